<?php
// Reads the HTML fragments that scanreport writes and shows them again with
// every cell's text escaped. The fragments are never passed on as they
// are: a name from the scan log sits in them unescaped, so a name holding
// "</td>" or "<!--" would reshape the table. What makes reading them safe
// is their fixed line structure: one cell per line, opened and closed by
// the program's own literals, and a name can never hold a line feed. So a
// cell's text is whatever stands between its line's fixed opening and its
// line's last closing tag, whatever bytes it holds. A line that fits no
// known form is shown as text in a row of its own, never dropped, so a
// damaged or planted file still shows everything it holds.
declare(strict_types=1);

// Cells are most lines, so they are told apart first.
const CELL_START = '/^<t[dh][ >]/i';
// "<td align='left' title='PATH'>BASE</td>", where BASE is PATH's last part.
const TITLED_CELL = "/^<td align='left' title='(.*)<\\/td>\$/s";
// Any other cell: a tag with plain attributes, the text, its closing tag.
const PLAIN_CELL = "/^<(t[dh])((?: [a-z]+(?:='[^']*')?)*) ?>(.*)<\\/\\1>\$/is";
const CHECKBOX = "/^<input type='checkbox' id='(chk_sel_[0-9]+|selall)'>\$/";
// Titles: of the report and quarantine tables, of the summary table, and
// the first of the two lines that title a top-ten table.
const BOLD_TITLE = "/^<tr><t[dh][^>]*><b>(.*)\$/is";
const SUMMARY_TITLE = "/^<tr><th colspan='8'><a name='[^']*'>(.*)<\\/a><\\/th><\\/tr>\$/is";
const TOP_TITLE_START = "/^<th colspan='3'><a name='[^']*'><\\/a>\$/i";
const TOP_TITLE_END = "/^(.*)<\\/th>\$/is";
const ROW_START = "/^<tr(?: bgcolor='[^']*')?>\$/i";
const TABLE_START = "/^<table\\b/i";
const TABLE_END = "/^(?:<\\/table>|<br>)\$/i";
// An include line of report.php: a day's ends with "</table>".
const INCLUDE_LINE = '/^<\?php include\("([^"]*)"\) \?>(.*)$/s';

// The last part of a path as basename(3) gives it.
function base_name(string $path): string
{
    $trimmed = rtrim($path, '/');
    if ($trimmed === '') {
        return $path === '' ? '.' : '/';
    }
    $slash = strrpos($trimmed, '/');
    return $slash === false ? $trimmed : substr($trimmed, $slash + 1);
}

// Splits "PATH'>BASE" where both may hold "'>": the split whose base is
// the path's last part, as the program wrote it; else the first one.
function split_titled(string $rest): array
{
    $first = null;
    for ($at = strpos($rest, "'>"); $at !== false; $at = strpos($rest, "'>", $at + 1)) {
        [$path, $base] = [substr($rest, 0, $at), substr($rest, $at + 2)];
        if (base_name($path) === $base) {
            return [$path, $base];
        }
        $first ??= [$path, $base];
    }
    return $first ?? [null, $rest];
}

// One cell line as ['tag', 'text', 'title', 'box', 'colspan', 'rowspan',
// 'right'], or null when the line is not a cell.
function parse_cell(string $line, bool $first_in_row): ?array
{
    $cell = ['tag' => 'td', 'title' => null, 'box' => null, 'colspan' => 1,
        'rowspan' => 1, 'right' => false];
    if (preg_match(TITLED_CELL, $line, $m) === 1) {
        [$cell['title'], $cell['text']] = split_titled($m[1]);
        return $cell;
    }
    if (preg_match(PLAIN_CELL, $line, $m) !== 1) {
        return null;
    }
    $cell['tag'] = strtolower($m[1]);
    $cell['text'] = $m[3];
    foreach (['colspan', 'rowspan'] as $span) {
        if (preg_match("/ $span='([0-9]{1,2})'/i", $m[2], $n) === 1) {
            $cell[$span] = max(1, (int) $n[1]);
        }
    }
    $cell['right'] = stripos($m[2], "align='right'") !== false;
    if ($first_in_row && preg_match(CHECKBOX, $m[3], $box) === 1) {
        $cell['box'] = $box[1];
    }
    return $cell;
}

// What a fragment shows, in order: ['table', null], ['caption', text],
// ['row', cells] and ['text', line] for a line that fits no form.
// $include, when given, turns an include line's path into the items of
// the file it names.
function fragment_items(iterable $lines, ?callable $include = null): Generator
{
    $row = null;
    $top_title = false;
    foreach ($lines as $line) {
        if ($include !== null && preg_match(INCLUDE_LINE, $line, $m) === 1) {
            yield from $include($m[1]);
            $line = $m[2];
            if ($line === '') {
                continue;
            }
        }
        $cell = preg_match(CELL_START, $line) === 1 ? parse_cell($line, $row === []) : null;
        if ($top_title && preg_match(TOP_TITLE_END, $line, $m) === 1) {
            yield ['caption', $m[1]];
        } elseif ($cell !== null) {
            if ($row === null) {
                yield ['row', [$cell]];
            } else {
                $row[] = $cell;
            }
        } elseif (preg_match(ROW_START, $line) === 1) {
            $row = [];
        } elseif (strcasecmp($line, '</tr>') === 0) {
            if ($row) {
                yield ['row', $row];
            }
            $row = null;
        } elseif (preg_match(TABLE_START, $line) === 1) {
            yield ['table', null];
        } elseif (preg_match(BOLD_TITLE, $line, $m) === 1
            || preg_match(SUMMARY_TITLE, $line, $m) === 1) {
            yield ['caption', trim($m[1], ' ')];
        } elseif (preg_match(TOP_TITLE_START, $line) !== 1 && preg_match(TABLE_END, $line) !== 1) {
            yield ['text', $line];
        }
        $top_title = preg_match(TOP_TITLE_START, $line) === 1;
    }
    if ($row) {
        yield ['row', $row];
    }
}

function cell_html(array $cell, ?string $href = null): string
{
    $tag = $cell['tag'];
    $html = '<' . $tag;
    foreach (['colspan', 'rowspan'] as $span) {
        if ($cell[$span] > 1) {
            $html .= " $span=\"{$cell[$span]}\"";
        }
    }
    if ($cell['right']) {
        $html .= ' class="num"';
    }
    if ($cell['title'] !== null) {
        $html .= ' title="' . attr($cell['title']) . '"';
    }
    $content = $cell['box'] !== null
        ? '<input type="checkbox" id="' . attr($cell['box']) . '">'
        : text($cell['text']);
    if ($href !== null) {
        $content = '<a class="filter" href="' . attr($href) . '">' . $content . '</a>';
    }
    return $html . '>' . $content . "</$tag>";
}

// Writes the items as tables; returns whether it wrote anything. $link,
// when given, maps a table's caption and a row's cells to a link for the
// row's second cell, or null.
function render_items(iterable $items, ?callable $link = null): bool
{
    $open = false;
    $caption = '';
    $rows = 0;
    $start = function () use (&$open, &$rows): void {
        echo $open ? "</table>\n" : '', "<table class=\"report\">\n";
        [$open, $rows] = [true, 0];
    };
    foreach ($items as [$kind, $value]) {
        if ($kind === 'table' || !$open) {
            $caption = '';
            $start();
        }
        if ($kind === 'caption' && $rows === 0) {
            $caption = $value;
            echo '<caption>', text($value), "</caption>\n";
        } elseif ($kind === 'row') {
            $href = $link === null ? null : $link($caption, $value);
            echo '<tr>', implode('', array_map(fn (array $cell, int $i): string =>
                cell_html($cell, $i === 1 ? $href : null), $value, array_keys($value))), "</tr>\n";
        } elseif ($kind !== 'table') {
            echo '<tr class="loose"><td colspan="9">', text($value), "</td></tr>\n";
        }
        $rows += $kind === 'table' ? 0 : 1;
    }
    if ($open) {
        echo "</table>\n";
    }
    return $open;
}
