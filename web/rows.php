<?php
// The rows of a report table a page at a time, filtered, and as CSV. A
// day of a full scan holds a million rows (a report.txt of 400 MB), so a
// page never reads the rows before it: the console keeps, for each
// report.txt, an index of where its rows start (and, for each filter asked
// for, where the matching rows start), built in one pass over the file the
// first time it is asked for and kept in the console's own cache
// directory, keyed by the file's device, inode, size and modification
// time, so that a rewritten report gets a new index. A page then reads a
// few hundred offsets and seeks to each row.
//
// The index is only a hint: each offset is a seek inside a report.txt that
// was opened and checked (files.php), and a row there must start where the
// index says, so a damaged index cannot make the console read elsewhere.
// The cache is a directory only the web server's user writes; the
// program's own files are never changed.
declare(strict_types=1);

const PAGE_ROWS = 250;
// A day with more rows than this opens on its infected rows.
const HUGE_TABLE_ROWS = 100000;
// Read per step while indexing: bounds the memory of a pass.
const SCAN_BLOCK = 4 * 1024 * 1024;
// A row of the program spans ten lines; a longer run stops at this bound.
const MAX_ROW_LINES = 64;
const RESULTS = ['CLEAN', 'INFECTED', 'CURED', 'ERROR', 'EXCLUDED'];
const ACTIONS = ['QUARANTINED', 'DELETED', 'ACCESS DENIED', 'ACTION ERROR', '-'];
const FILTERS = ['result', 'action', 'virus', 'client', 'file'];
const CSV_HEADER = ['Date/Time', 'Client', 'File', 'Result', 'Virus/Remark', 'Action', 'Quarantine'];

// The console's cache directory: SCANREPORT_CACHE_DIR, else one of its own
// in the temporary directory; used only when it is a directory of this
// user's that nobody else may write. Null: no cache, indexes are built per
// request.
function cache_dir(): ?string
{
    static $dir = false;
    if ($dir !== false) {
        return $dir;
    }
    if (!function_exists('posix_geteuid')) {
        return $dir = null;
    }
    $user = posix_geteuid();
    $setting = getenv('SCANREPORT_CACHE_DIR');
    $path = is_string($setting) && $setting !== ''
        ? rtrim($setting, '/') : sys_get_temp_dir() . "/scanreport-console-$user";
    @mkdir($path, 0700);
    $stat = @lstat($path);
    $ok = $stat !== false && ($stat['mode'] & 0170000) === 0040000 && $stat['uid'] === $user
        && ($stat['mode'] & 0022) === 0;
    return $dir = $ok ? $path : null;
}

// A cached index, opened when it is a regular file of this user's.
function open_cached(string $path): ?array
{
    $named = @lstat($path);
    if ($named === false || ($named['mode'] & 0170000) !== 0100000
        || $named['uid'] !== posix_geteuid() || $named['size'] % 8 !== 0) {
        return null;
    }
    $handle = @fopen($path, 'rb');
    $open = $handle === false ? false : fstat($handle);
    if ($open === false || $open['ino'] !== $named['ino'] || $open['dev'] !== $named['dev']) {
        return null;
    }
    return ['handle' => $handle, 'count' => intdiv($open['size'], 8)];
}

// Calls $block(text, offset) for the file's bytes in consecutive blocks,
// each ending where a line starts (where a row starts when there is one),
// up to MAX_REPORT_BYTES.
function scan_blocks(array $file, callable $block): void
{
    $handle = $file['handle'];
    $limit = min($file['stat']['size'], MAX_REPORT_BYTES);
    fseek($handle, 0);
    [$base, $carry] = [0, ''];
    do {
        $want = min(SCAN_BLOCK, $limit - $base - strlen($carry));
        $data = $want > 0 ? (string) fread($handle, $want) : '';
        $text = $carry . $data;
        $last = $data === '';
        $end = strlen($text);
        if (!$last) {
            $at = strrpos($text, "\n<tr");
            $at = $at === false ? strrpos($text, "\n") : $at;
            $end = $at === false ? $end : $at + 1;
        }
        $block(substr($text, 0, $end), $base);
        [$base, $carry] = [$base + $end, substr($text, $end)];
    } while (!$last);
}

// The offsets of the rows in a block: where "<tr" opens a line.
function block_rows(string $text, int $base): array
{
    $rows = str_starts_with($text, '<tr') ? [$base] : [];
    for ($at = strpos($text, "\n<tr"); $at !== false; $at = strpos($text, "\n<tr", $at + 4)) {
        $rows[] = $base + $at + 1;
    }
    return $rows;
}

// A regular expression for a row of the program's own form that matches
// the filter. Result and action are keywords, matched without regard to
// ASCII case as the program reads them; names are matched exactly, the file
// name as a part of the full path (checked again on the parsed cell).
function filter_pattern(array $filter): string
{
    $any = "[^\n]*";
    $exact = fn (string $key, bool $fold = false): string => !isset($filter[$key]) ? $any
        : ($fold ? '(?i:' . preg_quote($filter[$key], '/') . ')' : preg_quote($filter[$key], '/'));
    $file = isset($filter['file']) ? $any . preg_quote($filter['file'], '/') . $any : $any;
    $cell = "<td align='left'>";
    return "/\\A<tr$any\n<td$any\n$cell$any<\\/td>\n$cell{$exact('client')}<\\/td>\n"
        . "<td align='left' title='$file<\\/td>\n$cell{$exact('result', true)}<\\/td>\n"
        . "$cell{$exact('virus')}<\\/td>\n$cell{$exact('action', true)}<\\/td>\n<td$any\n<\\/tr>\\z/";
}

// What to look for first: the text of the filter's most telling cell as it
// stands in the file, and whether to ignore ASCII case.
function filter_needle(array $filter): array
{
    foreach (['virus', 'client', 'file', 'action', 'result'] as $key) {
        if (isset($filter[$key])) {
            $fold = $key === 'action' || $key === 'result';
            return [$key === 'file' ? $filter[$key] : ">$filter[$key]</td>\n", $fold];
        }
    }
    return ["\n<tr", false];
}

// The offsets of the rows in a block that match the filter: each place
// where the needle stands is taken back to its row, and the row is checked
// whole.
function block_matches(string $text, int $base, array $filter): array
{
    [$needle, $fold] = filter_needle($filter);
    // Folded once per block: stripos would fold the rest of it at each call.
    $haystack = $fold ? strtolower($text) : $text;
    $needle = $fold ? strtolower($needle) : $needle;
    $pattern = filter_pattern($filter);
    $rows = [];
    for ($at = strpos($haystack, $needle); $at !== false; $at = strpos($haystack, $needle, $next)) {
        $before = $at === 0 ? false : strrpos($text, "\n<tr", $at - strlen($text) - 1);
        $start = $before === false ? 0 : $before + 1;
        $end = strpos($text, "\n</tr>", $at);
        $next = $end === false ? strlen($text) : $end + 6;
        $row = substr($text, $start, $next - $start);
        if ($end !== false && preg_match($pattern, $row) === 1 && (!isset($filter['file'])
            || str_contains(parse_cell(explode("\n", $row, 6)[4], false)['title'] ?? '', $filter['file']))) {
            $rows[] = $base + $start;
        }
    }
    return $rows;
}

// The rows of an open report.txt that match each filter (all rows for an
// empty one): for each, ['handle' of packed 64-bit offsets, 'count']. The
// indexes not in the cache are built in one pass over the file.
function row_indexes(array $file, array $filters): array
{
    $stat = $file['stat'];
    $dir = cache_dir();
    [$found, $building] = [[], []];
    foreach ($filters as $i => $filter) {
        ksort($filter);
        $key = "{$stat['dev']}-{$stat['ino']}-{$stat['size']}-{$stat['mtime']}"
            . ($filter === [] ? '' : '-' . sha1(serialize($filter)));
        $found[$i] = $dir === null ? null : open_cached("$dir/rows-$key");
        if ($found[$i] === null) {
            $temp = $dir === null ? false : @tempnam($dir, 'build-');
            $out = $temp === false ? fopen('php://temp', 'w+b') : fopen($temp, 'w+b');
            $building[$i] = ['filter' => $filter, 'temp' => $temp, 'key' => $key, 'handle' => $out, 'count' => 0];
        }
    }
    if ($building === []) {
        return $found;
    }
    scan_blocks($file, function (string $text, int $base) use (&$building): void {
        foreach ($building as &$index) {
            $rows = $index['filter'] === [] ? block_rows($text, $base) : block_matches($text, $base, $index['filter']);
            if ($rows !== []) {
                fwrite($index['handle'], pack('P*', ...$rows));
                $index['count'] += count($rows);
            }
        }
    });
    foreach ($building as $i => $index) {
        if ($index['temp'] !== false) {
            fflush($index['handle']);
            rename($index['temp'], "$dir/rows-{$index['key']}");
        }
        $found[$i] = ['handle' => $index['handle'], 'count' => $index['count']];
    }
    if ($dir !== null) {
        forget_old_indexes($dir);
    }
    return $found;
}

// Indexes not used for a week belong to reports rewritten or long gone.
function forget_old_indexes(string $dir): void
{
    foreach (glob("$dir/{rows,build}-*", GLOB_BRACE | GLOB_NOSORT) ?: [] as $path) {
        $stat = @lstat($path);
        if ($stat !== false && $stat['mtime'] < time() - 7 * 86400 && $stat['atime'] < time() - 7 * 86400) {
            @unlink($path);
        }
    }
}

// $count offsets from the index, starting with the $first'th.
function index_offsets(array $index, int $first, int $count): array
{
    if ($count <= 0 || fseek($index['handle'], $first * 8) !== 0) {
        return [];
    }
    $bytes = (string) fread($index['handle'], $count * 8);
    return array_values(unpack('P*', substr($bytes, 0, strlen($bytes) - strlen($bytes) % 8)) ?: []);
}

// The lines of the row that starts at $offset: up to the next row, at most
// MAX_ROW_LINES. Nothing when no row starts there.
function row_lines(array $file, int $offset): array
{
    $handle = $file['handle'];
    if ($offset >= min($file['stat']['size'], MAX_REPORT_BYTES) || fseek($handle, $offset) !== 0) {
        return [];
    }
    $lines = [];
    while (count($lines) < MAX_ROW_LINES && ($line = stream_get_line($handle, MAX_LINE + 1, "\n")) !== false) {
        if (str_starts_with($line, '<tr') !== ($lines === [])) {
            break;
        }
        $lines[] = substr($line, 0, MAX_LINE);
    }
    return $lines;
}

// A table's rows as the files that hold them, each with its index:
// [['file', 'index'], ...] and the total count.
function table_parts(array $files, array $filter, array $also = []): array
{
    $parts = [];
    $total = 0;
    foreach ($files as $file) {
        if ($file['stat']['size'] > MAX_REPORT_BYTES) {
            cut_files($file['name']);
        }
        $index = row_indexes($file, [$filter, ...$also])[0];
        $parts[] = ['file' => $file, 'index' => $index];
        $total += $index['count'];
    }
    return [$parts, $total];
}

// The lines of rows $first to $first + $count - 1 of the table.
function page_lines(array $parts, int $first, int $count): Generator
{
    foreach ($parts as ['file' => $file, 'index' => $index]) {
        if ($first >= $index['count']) {
            $first -= $index['count'];
            continue;
        }
        $offsets = index_offsets($index, $first, min($count, $index['count'] - $first));
        foreach ($offsets as $offset) {
            yield from row_lines($file, $offset);
        }
        $count -= count($offsets);
        $first = 0;
        if ($count <= 0) {
            return;
        }
    }
}

// One CSV field as RFC 4180 quotes it, bytes unchanged.
function csv_field(string $text): string
{
    return strpbrk($text, "\",\r\n") === false ? $text : '"' . str_replace('"', '""', $text) . '"';
}

// The cells of a row of the program's own form (its opening line, eight
// cells, its closing line), parsed as fragment_items parses them but
// without its tests for the other forms a line may take; null for any
// other row.
function csv_cells(array $lines): ?array
{
    if (count($lines) !== 10 || $lines[9] !== '</tr>' || preg_match(ROW_START, $lines[0]) !== 1) {
        return null;
    }
    $cells = [];
    foreach (array_slice($lines, 1, 8) as $i => $line) {
        $cell = str_starts_with($line, '<td') ? parse_cell($line, $i === 0) : null;
        if ($cell === null) {
            return null;
        }
        $cells[] = $cell;
    }
    return $cells;
}

// Streams the table's rows as CSV: the texts of the seven columns as the
// report holds them, the file and the quarantine as full paths.
function stream_csv(array $parts): void
{
    echo implode(',', CSV_HEADER), "\r\n";
    $sent = 0;
    foreach ($parts as ['file' => $file, 'index' => $index]) {
        for ($first = 0; $first < $index['count']; $first += 4096) {
            foreach (index_offsets($index, $first, 4096) as $offset) {
                $lines = row_lines($file, $offset);
                $cells = csv_cells($lines);
                foreach ($cells !== null ? [['row', $cells]] : fragment_items($lines) as [$kind, $cells]) {
                    if ($kind !== 'row') {
                        continue;
                    }
                    $texts = array_map(fn (array $c): string => csv_field($c['title'] ?? $c['text']),
                        array_slice($cells, 1, 7));
                    echo implode(',', $texts), "\r\n";
                }
            }
            if (++$sent % 16 === 0) {
                flush();
            }
        }
    }
}
