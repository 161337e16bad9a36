<?php
// How the console touches the output tree. The tree lies under a web
// server's document root, where a careless permission lets others plant
// files: so every file is opened only once its real path lies inside the
// output root and it is a regular file (a planted FIFO would hang the page,
// a device could be read forever), and lines are read with a bound, so a
// file without line breaks cannot exhaust the page's memory.
declare(strict_types=1);

// Where scanreport writes: the directory holding traffic/ and range/. The
// environment variable overrides it, for a test server or another build.
const DEFAULT_OUTPUT_ROOT = '/opt/Quillmarsh/var/www/htdocs/ravix/';

// Far above any line scanreport writes (a cell holds at most a 2047-byte
// log line, twice); a longer line is cut here.
const MAX_LINE = 65536;

function configured_root(): string
{
    $setting = getenv('SCANREPORT_OUTPUT_ROOT');
    return is_string($setting) && $setting !== '' ? $setting : DEFAULT_OUTPUT_ROOT;
}

// The output root with links and dots resolved, or null when it is missing.
function real_root(): ?string
{
    $real = realpath(configured_root());
    return $real === false || !is_dir($real) ? null : rtrim($real, '/');
}

// $path resolved, if it is a regular file inside $root; otherwise null.
function root_file(string $root, string $path): ?string
{
    $real = realpath($path);
    if ($real === false || !str_starts_with($real, $root . '/')) {
        return null;
    }
    // The resolved path holds no link, so filetype() sees the file itself.
    return @filetype($real) === 'file' ? $real : null;
}

// The lines of a checked file, split at line feeds only (a carriage return
// stays part of its line), each at most MAX_LINE bytes.
function file_lines(string $real): Generator
{
    $handle = @fopen($real, 'rb');
    if ($handle === false) {
        return;
    }
    try {
        while (($line = stream_get_line($handle, MAX_LINE + 1, "\n")) !== false) {
            if (strlen($line) > MAX_LINE) {
                $line = substr($line, 0, MAX_LINE);
                while (($rest = stream_get_line($handle, MAX_LINE + 1, "\n")) !== false
                    && strlen($rest) > MAX_LINE) {
                }
            }
            yield $line;
        }
    } finally {
        fclose($handle);
    }
}

// The days that have a directory of their own under traffic/, oldest
// first; a link in place of a day's directory is not a day.
function report_days(string $root): array
{
    $names = @scandir($root . '/traffic');
    if ($names === false) {
        return [];
    }
    $days = array_values(array_filter($names, fn (string $name): bool =>
        preg_match('/^[0-9]{8}$/', $name) === 1
        && @filetype($root . '/traffic/' . $name) === 'dir'));
    sort($days, SORT_STRING);
    return $days;
}
