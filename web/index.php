<?php
// The console: the trend of the last days, then the reports of one chosen
// day and of the latest date range, as scanreport wrote them.
//
// The report files carry file, client and virus names from the scan log
// unchanged, and anyone who can create a file on a scanned machine chooses
// such a name. So this page never includes "report.php" (it would run any
// PHP that a name holds) and never passes a fragment on as it is: it reads
// each file as lines, takes every cell's text out of its line and shows it
// escaped (fragments.php). It reads only regular files inside the output
// root (files.php). The Content-Security-Policy below is a second wall:
// select.js, a file of this site, is the only script that may run.
declare(strict_types=1);

require __DIR__ . '/files.php';
require __DIR__ . '/text.php';
require __DIR__ . '/fragments.php';
require __DIR__ . '/trend.php';

// The day asked for, if the output has it; otherwise the latest day.
function chosen_day(array $days): ?string
{
    $asked = $_GET['day'] ?? null;
    if (is_string($asked) && in_array($asked, $days, true)) {
        return $asked;
    }
    return $days === [] ? null : end($days);
}

// Shows one fragment of the output tree, or says that it is missing.
function show(string $root, string $path, string $missing, bool $report_page = false): void
{
    $real = root_file($root, $path);
    $items = $real === null ? [] : ($report_page
        ? report_page_items($root, $real) : fragment_items(file_lines($real)));
    if (!render_items($items)) {
        echo '<p class="missing">No ', text($missing), ' has been written yet.</p>', "\n";
    }
}

function iso_day(string $day): string
{
    return substr($day, 0, 4) . '-' . substr($day, 4, 2) . '-' . substr($day, 6, 2);
}

header('Content-Type: text/html; charset=utf-8');
header("Content-Security-Policy: default-src 'none'; script-src 'self'; "
    . "style-src 'self'; img-src 'self'; base-uri 'none'; form-action 'self'; "
    . "frame-ancestors 'none'");
header('X-Content-Type-Options: nosniff');
header('Referrer-Policy: no-referrer');

$root = real_root();
$days = $root === null ? [] : report_days($root);
$day = chosen_day($days);
$trend = $root === null ? [] : trend_counts($root, trend_days($_GET, $days));
?>
<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Scan reports</title>
<link rel="stylesheet" href="style.css">
<script src="select.js" defer></script>
</head>
<body>
<h1>Scan reports</h1>
<?php if ($root === null): ?>
<p class="missing">The output directory <?= text(configured_root()) ?> does not exist.</p>
<?php else: ?>
<form class="choice" method="get">
<label>Day <select name="day">
<?php foreach (array_reverse($days) as $each): ?>
<option value="<?= attr($each) ?>"<?= $each === $day ? ' selected' : '' ?>><?= text(display_day($each)) ?></option>
<?php endforeach; ?>
</select></label>
<label>Trend from <input type="date" name="from" value="<?= attr(iso_day((string) array_key_first($trend))) ?>"></label>
<label>to <input type="date" name="to" value="<?= attr(iso_day((string) array_key_last($trend))) ?>"></label>
<button type="submit">Show</button>
</form>
<section id="trend">
<h2>Trend</h2>
<figure>
<?php render_trend_chart($trend); ?>
</figure>
<?php render_trend_table($trend); ?>
</section>
<?php if ($day === null): ?>
<p class="missing">No day has been reported yet.</p>
<?php else: ?>
<?php $day_dir = "$root/traffic/$day"; ?>
<section id="day-report">
<h2>Report of <?= text(display_day($day)) ?></h2>
<?php show($root, "$day_dir/report.php", 'report of this day', true); ?>
</section>
<section id="day-summary">
<h2>Summary of <?= text(display_day($day)) ?></h2>
<?php show($root, "$day_dir/summary.htm", 'summary of this day'); ?>
</section>
<section id="day-quarantine">
<h2>Quarantine of <?= text(display_day($day)) ?></h2>
<?php show($root, "$day_dir/quarantine.htm", 'quarantine page of this day'); ?>
</section>
<?php endif; ?>
<section id="range-report">
<h2>Latest range report</h2>
<?php show($root, "$root/range/report.php", 'range report', true); ?>
</section>
<section id="range-summary">
<h2>Summary of the latest range</h2>
<?php show($root, "$root/range/summary.htm", 'range summary'); ?>
</section>
<?php endif; ?>
</body>
</html>
