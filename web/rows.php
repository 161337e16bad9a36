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
    if ($file['stat']['size'] > MAX_REPORT_BYTES) {
        cut_files($file['name']);
    }
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

// A regular expression for the rows of the program's own form that match
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
    return "/^<tr$any\n<td$any\n$cell$any<\\/td>\n$cell{$exact('client')}<\\/td>\n"
        . "<td align='left' title='$file<\\/td>\n$cell{$exact('result', true)}<\\/td>\n"
        . "$cell{$exact('virus')}<\\/td>\n$cell{$exact('action', true)}<\\/td>\n<td$any\n<\\/tr>\$/m";
}

// The offsets of the rows in a block that match the filter.
function block_matches(string $text, int $base, array $filter): array
{
    preg_match_all(filter_pattern($filter), $text, $found, PREG_OFFSET_CAPTURE);
    $rows = [];
    foreach ($found[0] as [$row, $at]) {
        $file_cell = parse_cell(explode("\n", $row, 6)[4], false);
        if (!isset($filter['file']) || str_contains($file_cell['title'] ?? $file_cell['text'], $filter['file'])) {
            $rows[] = $base + $at;
        }
    }
    return $rows;
}

// The rows of an open report.txt that match the filter (all rows for an
// empty one): ['handle' of packed 64-bit offsets, 'count'].
function row_index(array $file, array $filter): array
{
    $stat = $file['stat'];
    ksort($filter);
    $key = "{$stat['dev']}-{$stat['ino']}-{$stat['size']}-{$stat['mtime']}"
        . ($filter === [] ? '' : '-' . sha1(serialize($filter)));
    $dir = cache_dir();
    $cached = $dir === null ? null : open_cached("$dir/rows-$key");
    if ($cached !== null) {
        return $cached;
    }
    $temp = $dir === null ? false : @tempnam($dir, 'build-');
    $out = $temp === false ? fopen('php://temp', 'w+b') : fopen($temp, 'w+b');
    $count = 0;
    scan_blocks($file, function (string $text, int $base) use ($filter, $out, &$count): void {
        $rows = $filter === [] ? block_rows($text, $base) : block_matches($text, $base, $filter);
        if ($rows !== []) {
            fwrite($out, pack('P*', ...$rows));
            $count += count($rows);
        }
    });
    if ($temp !== false) {
        fflush($out);
        rename($temp, "$dir/rows-$key");
        forget_old_indexes($dir);
    }
    return ['handle' => $out, 'count' => $count];
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
function table_parts(array $files, array $filter): array
{
    $parts = [];
    $total = 0;
    foreach ($files as $file) {
        $index = row_index($file, $filter);
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

// Streams the table's rows as CSV: the texts of the seven columns as the
// report holds them, the file and the quarantine as full paths.
function stream_csv(array $parts): void
{
    echo implode(',', CSV_HEADER), "\r\n";
    $sent = 0;
    foreach ($parts as ['file' => $file, 'index' => $index]) {
        for ($first = 0; $first < $index['count']; $first += 4096) {
            foreach (index_offsets($index, $first, 4096) as $offset) {
                foreach (fragment_items(row_lines($file, $offset)) as [$kind, $cells]) {
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
