<?php
// How the console touches the output tree. The tree lies under a web
// server's document root, where others may be able to write, so the
// console trusts only what root made: it serves a file only when every
// directory from the output root down to it is owned by root and not
// writable by group or others, and the file is a regular file owned by
// root.
//
// PHP cannot open a file without blocking (fopen has no O_NONBLOCK), so a
// named pipe opened by mistake would hold the request. What makes
// checking by path and then opening by path sound here is the chain
// itself: the entries of a directory that only root may write can be
// changed only by root, so once each directory on the way is found to be
// root's alone, nobody else can swap a link, a pipe or another directory
// into the path between the check and the open. The open handle is then
// checked with fstat against what the path resolved to (type, owner,
// device, inode), and the chain again after the open, for a swap above the
// output root, which the administrator owns. Reading is bounded in bytes,
// and lines in length, so a huge or sparse file cannot hold the page.
declare(strict_types=1);

// Where scanreport writes: the directory holding traffic/ and range/. The
// environment variable overrides it, for a test server or another build.
const DEFAULT_OUTPUT_ROOT = '/opt/Quillmarsh/var/www/htdocs/ravix/';

// Far above any line scanreport writes (a cell holds at most a 2047-byte
// log line, twice); a longer line is cut here.
const MAX_LINE = 65536;
// A file read whole (a summary, a quarantine page, a report.php) is read
// up to here; the page says when it stopped.
const MAX_FILE_BYTES = 64 * 1024 * 1024;
// A report.txt is read a page at a time, and indexed up to here (about
// five million rows).
const MAX_REPORT_BYTES = 2048 * 1024 * 1024;

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

// What the page must say about the tree: [path, why, what to run], each once.
function tree_problems(?array $add = null): array
{
    static $problems = [];
    if ($add !== null) {
        $problems[$add[0]] = $add;
    }
    return array_values($problems);
}

// Why a directory is not root's alone, or null when it is.
function untrusted_dir(array $stat): ?array
{
    if (($stat['mode'] & 0170000) !== 0040000) {
        return ['is not a directory', 'remove it'];
    }
    if ($stat['uid'] !== 0) {
        return ['is not owned by root', 'chown root:root'];
    }
    if (($stat['mode'] & 0022) !== 0) {
        return ['is writable by its group or others', 'chmod go-w'];
    }
    return null;
}

// Whether the directory at $path may be trusted; a directory that may not
// is noted for the page.
function trusted_dir(string $path, mixed &$stat = null): bool
{
    $stat = @lstat($path);
    if ($stat === false) {
        return false;
    }
    $why = untrusted_dir($stat);
    if ($why !== null) {
        tree_problems([$path, $why[0], $why[1] === 'remove it' ? "rm $path" : "$why[1] $path"]);
    }
    return $why === null;
}

// A path under the root as its parts, or null unless each is a plain name.
function path_parts(string $relative): ?array
{
    $parts = explode('/', $relative);
    foreach ($parts as $part) {
        if ($part === '' || $part === '.' || $part === '..' || str_contains($part, "\0")) {
            return null;
        }
    }
    return $parts;
}

// Opens $relative under $root when the chain and the file are root's:
// ['handle', 'stat' (fstat of the handle), 'name']; null otherwise.
function open_in_root(string $root, string $relative): ?array
{
    $parts = path_parts($relative);
    if ($parts === null) {
        return null;
    }
    $name = array_pop($parts);
    $path = $root;
    $chain = [];
    // PHP keeps the last lstat of a path: every one here must ask the kernel.
    clearstatcache();
    foreach ([null, ...$parts] as $part) {
        $path .= $part === null ? '' : "/$part";
        if (!trusted_dir($path, $stat)) {
            return null;
        }
        $chain[$path] = [$stat['dev'], $stat['ino']];
    }
    $path .= "/$name";
    $named = @lstat($path);
    if ($named === false || ($named['mode'] & 0170000) !== 0100000) {
        return null;
    }
    if ($named['uid'] !== 0) {
        tree_problems([$path, 'is not owned by root', "chown root:root $path"]);
        return null;
    }
    $handle = @fopen($path, 'rb');
    if ($handle === false) {
        return null;
    }
    $open = fstat($handle);
    $same = $open !== false && ($open['mode'] & 0170000) === 0100000 && $open['uid'] === 0
        && $open['dev'] === $named['dev'] && $open['ino'] === $named['ino'];
    clearstatcache();
    foreach ($chain as $dir => [$dev, $ino]) {
        $again = @lstat($dir);
        $same = $same && $again !== false && $again['dev'] === $dev && $again['ino'] === $ino;
    }
    if (!$same) {
        fclose($handle);
        return null;
    }
    return ['handle' => $handle, 'stat' => $open, 'name' => $relative];
}

// Files that were read only in part, for the page to say so.
function cut_files(?string $add = null): array
{
    static $cut = [];
    if ($add !== null) {
        $cut[$add] = true;
    }
    return array_keys($cut);
}

// Says, once, of each file read only in part that the page stops there.
function render_cut_notes(): void
{
    static $said = [];
    foreach (array_diff(cut_files(), $said) as $name) {
        echo '<p class="note">Only the first part of ', text($name), ' is shown: it is larger than the console reads.</p>', "\n";
        $said[] = $name;
    }
}

// The lines of an open file from its current position up to byte $end,
// split at line feeds only (a carriage return stays part of its line),
// each at most MAX_LINE bytes. Closes the file when done unless $keep.
function handle_lines(array $file, int $end, bool $keep = false): Generator
{
    $handle = $file['handle'];
    try {
        while (($at = ftell($handle)) < $end
            && ($line = stream_get_line($handle, min(MAX_LINE + 1, $end - $at), "\n")) !== false) {
            if (strlen($line) > MAX_LINE) {
                $line = substr($line, 0, MAX_LINE);
                while (ftell($handle) < $end
                    && ($rest = stream_get_line($handle, MAX_LINE + 1, "\n")) !== false
                    && strlen($rest) > MAX_LINE) {
                }
            }
            yield $line;
        }
    } finally {
        if (!$keep) {
            fclose($handle);
        }
    }
}

// The lines of a file read whole, up to MAX_FILE_BYTES.
function file_lines(array $file): Generator
{
    if ($file['stat']['size'] > MAX_FILE_BYTES) {
        cut_files($file['name']);
    }
    yield from handle_lines($file, MAX_FILE_BYTES);
}

// Whether yyyymmdd is a calendar day no later than today.
function past_day(string $day): bool
{
    return preg_match('/^[0-9]{8}$/', $day) === 1
        && checkdate((int) substr($day, 4, 2), (int) substr($day, 6, 2), (int) substr($day, 0, 4))
        && $day <= date('Ymd');
}

// The days the console serves, oldest first: a directory of its own under
// traffic/, root's alone, and not after today.
function report_days(string $root): array
{
    if (!trusted_dir($root) || !trusted_dir("$root/traffic")) {
        return [];
    }
    $names = @scandir("$root/traffic");
    $days = array_values(array_filter($names === false ? [] : $names, fn (string $name): bool =>
        past_day($name) && trusted_dir("$root/traffic/$name")));
    sort($days, SORT_STRING);
    return $days;
}
