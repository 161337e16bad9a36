<?php
// Text from the report files as HTML. The files carry names from the scan
// log byte for byte, and anyone who can create a file on a scanned machine
// chooses such a name: it must reach the reader as the very characters it
// holds, never as markup, and must not hide or disguise itself. So markup
// characters are escaped, and a byte that is not part of valid UTF-8, a
// control character or a bidirectional override is shown as \xNN.
declare(strict_types=1);

// One character that is shown as itself: valid UTF-8, not a control
// character (tab excepted) and not a bidirectional embedding or isolate.
const SHOWN_CHAR = '(?:[\x09\x20-\x7e]|[\xc2-\xdf][\x80-\xbf]'
    . '|\xe0[\xa0-\xbf][\x80-\xbf]'
    . '|(?!\xe2\x80[\xaa-\xae]|\xe2\x81[\xa6-\xa9])[\xe1-\xec\xee\xef][\x80-\xbf]{2}'
    . '|\xed[\x80-\x9f][\x80-\xbf]|\xf0[\x90-\xbf][\x80-\xbf]{2}'
    . '|[\xf1-\xf3][\x80-\xbf]{3}|\xf4[\x80-\x8f][\x80-\xbf]{2})';
const SHOWN_AS_BYTES = '/[\x00-\x08\x0a-\x1f\x7f]|\xe2\x80[\xaa-\xae]|\xe2\x81[\xa6-\xa9]/';

function escaped(string $bytes, string $byte_format): string
{
    $plain = preg_match('//u', $bytes) === 1 && preg_match(SHOWN_AS_BYTES, $bytes) === 0;
    if ($plain) {
        return htmlspecialchars($bytes, ENT_QUOTES | ENT_HTML5, 'UTF-8');
    }
    return preg_replace_callback(
        '/(' . SHOWN_CHAR . '++)|(.)/s',
        fn (array $m): string => ($m[1] ?? '') !== ''
            ? htmlspecialchars($m[1], ENT_QUOTES | ENT_HTML5, 'UTF-8')
            : sprintf($byte_format, ord($m[2])),
        $bytes
    );
}

// For element content: a shown byte is marked so that it cannot be
// mistaken for a name that holds a backslash.
function text(string $bytes): string
{
    return escaped($bytes, '<span class="byte">\x%02X</span>');
}

// For a quoted attribute value, where no markup may stand.
function attr(string $bytes): string
{
    return escaped($bytes, '\x%02X');
}
