<?php
// Shows the reports that scanreport writes, for one chosen day and for the
// latest date range, without ever running text from the scan log.
//
// The report files carry file names, client names and virus names from the
// log unchanged, and anyone who can create a file on a scanned machine
// chooses such a name. So this page never includes "report.php" (it would
// run any PHP that a file name holds): it reads it as text, echoes its
// lines, and sends each report.txt that an include line names with
// readfile, once it has checked that the file is a report.txt under the
// output root. Markup in a name still reaches the browser; the
// Content-Security-Policy below keeps any script in it from running, and
// select.js, a file of this site, is the only script on the page.
declare(strict_types=1);

// Where scanreport writes: the directory holding traffic/ and range/. The
// environment variable overrides it, for a test server or another build.
const DEFAULT_OUTPUT_ROOT = '/opt/Quillmarsh/var/www/htdocs/ravix/';
$root_setting = getenv('SCANREPORT_OUTPUT_ROOT');
define('OUTPUT_ROOT', is_string($root_setting) && $root_setting !== ''
    ? $root_setting : DEFAULT_OUTPUT_ROOT);

// An include line as scanreport writes it; the path never holds a quote.
const INCLUDE_LINE = '/<\?php include\("([^"]*)"\) \?>/';

function html(string $text): string
{
    return htmlspecialchars($text, ENT_QUOTES | ENT_SUBSTITUTE, 'UTF-8');
}

// The output root with links and dots resolved, or null when it is missing.
function real_root(): ?string
{
    $real = realpath(OUTPUT_ROOT);
    return $real === false ? null : rtrim($real, '/');
}

// The days that have a directory under traffic/, oldest first.
function report_days(string $root): array
{
    $names = scandir($root . '/traffic');
    if ($names === false) {
        return [];
    }
    $days = array_values(array_filter($names, function (string $name) use ($root): bool {
        return preg_match('/^[0-9]{8}$/', $name) === 1
            && is_dir($root . '/traffic/' . $name);
    }));
    sort($days, SORT_STRING);
    return $days;
}

// The day asked for, if the output has it; otherwise the latest day.
function chosen_day(array $days): ?string
{
    $asked = $_GET['day'] ?? null;
    if (is_string($asked) && in_array($asked, $days, true)) {
        return $asked;
    }
    return $days === [] ? null : $days[count($days) - 1];
}

function display_date(string $day): string
{
    return substr($day, 6, 2) . '-' . substr($day, 4, 2) . '-' . substr($day, 0, 4);
}

// The file that an include line names, if it is a report.txt inside the
// output root once links and dots are resolved; otherwise null. The double
// slash of a day page's include line resolves like a single one.
function checked_rows_file(string $named, string $root): ?string
{
    if (basename($named) !== 'report.txt') {
        return null;
    }
    $real = realpath($named);
    if ($real === false || basename($real) !== 'report.txt' || !is_file($real)) {
        return null;
    }
    return str_starts_with($real, $root . '/') ? $real : null;
}

// Sends a report page: its own lines as they are, and in place of each
// include line the rows file it names. A day of a range without rows
// contributes nothing, as it does when the page is included.
function send_report_page(string $page, string $root): bool
{
    $text = is_file($page) ? file_get_contents($page) : false;
    if ($text === false) {
        return false;
    }
    $offset = 0;
    preg_match_all(INCLUDE_LINE, $text, $matches, PREG_SET_ORDER | PREG_OFFSET_CAPTURE);
    foreach ($matches as $match) {
        [$whole, $start] = $match[0];
        echo substr($text, $offset, $start - $offset);
        $rows = checked_rows_file($match[1][0], $root);
        if ($rows !== null) {
            readfile($rows);
        } elseif (file_exists($match[1][0])) {
            error_log('scanreport page: refused to send ' . $match[1][0]);
        }
        $offset = $start + strlen($whole);
        // PHP swallows the one newline that follows a closing tag.
        if (substr($text, $offset, 1) === "\n") {
            $offset++;
        }
    }
    echo substr($text, $offset);
    return true;
}

// Sends one of the HTML fragments (summary.htm, quarantine.htm) as it is.
function send_fragment(string $path): bool
{
    return is_file($path) && readfile($path) !== false;
}

function missing(string $what): void
{
    echo '<p class="missing">No ', html($what), ' has been written yet.</p>', "\n";
}

header('Content-Type: text/html; charset=utf-8');
header("Content-Security-Policy: default-src 'none'; script-src 'self'; "
    . "style-src 'self'; img-src 'self'; base-uri 'none'; form-action 'none'; "
    . "frame-ancestors 'none'");
header('X-Content-Type-Options: nosniff');
header('Referrer-Policy: no-referrer');

$root = real_root();
$days = $root === null ? [] : report_days($root);
$day = chosen_day($days);
?>
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<title>Scan reports</title>
<link rel="stylesheet" href="style.css">
<script src="select.js" defer></script>
</head>
<body>
<h1>Scan reports</h1>
<?php if ($root === null): ?>
<p class="missing">The output directory <?= html(OUTPUT_ROOT) ?> does not exist.</p>
<?php else: ?>
<nav id="days">
<?php foreach ($days as $each): ?>
<a href="?day=<?= html($each) ?>"<?= $each === $day ? ' aria-current="page"' : '' ?>><?= html(display_date($each)) ?></a>
<?php endforeach; ?>
</nav>
<?php if ($day === null): ?>
<p class="missing">No day has been reported yet.</p>
<?php else: ?>
<?php $day_dir = $root . '/traffic/' . $day; ?>
<section id="day-report">
<h2>Report of <?= html(display_date($day)) ?></h2>
<?php if (!send_report_page($day_dir . '/report.php', $root)) missing('report of this day'); ?>
</section>
<section id="day-summary">
<h2>Summary of <?= html(display_date($day)) ?></h2>
<?php if (!send_fragment($day_dir . '/summary.htm')) missing('summary of this day'); ?>
</section>
<section id="day-quarantine">
<h2>Quarantine of <?= html(display_date($day)) ?></h2>
<?php if (!send_fragment($day_dir . '/quarantine.htm')) missing('quarantine page of this day'); ?>
</section>
<?php endif; ?>
<section id="range-report">
<h2>Latest range report</h2>
<?php if (!send_report_page($root . '/range/report.php', $root)) missing('range report'); ?>
</section>
<section id="range-summary">
<h2>Summary of the latest range</h2>
<?php if (!send_fragment($root . '/range/summary.htm')) missing('range summary'); ?>
</section>
<?php endif; ?>
</body>
</html>
