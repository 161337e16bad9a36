<?php
// The console: the trend of the last days, then the reports of one chosen
// day and of the latest date range, as scanreport wrote them, their tables
// a page at a time and filtered (tables.php, rows.php), or as CSV.
//
// The report files carry file, client and virus names from the scan log
// unchanged, and anyone who can create a file on a scanned machine chooses
// such a name. So this page never includes "report.php" (it would run any
// PHP that a name holds) and never passes a fragment on as it is: it reads
// each file as lines, takes every cell's text out of its line and shows it
// escaped (fragments.php). It reads only regular files that root alone
// could have written inside the output root (files.php). The Content-Security-Policy below is a second wall:
// select.js, a file of this site, is the only script that may run.
declare(strict_types=1);

require __DIR__ . '/files.php';
require __DIR__ . '/text.php';
require __DIR__ . '/fragments.php';
require __DIR__ . '/trend.php';
require __DIR__ . '/rows.php';
require __DIR__ . '/tables.php';

const MAX_NAME_QUERY = 4096;

// The query, checked: each parameter the page knows, with a value of its
// form; anything else is answered with a 400 and what was wrong. Empty
// values count as absent (a form sends its empty fields).
function checked_query(array $get): array
{
    $number = fn (string $v): bool => preg_match('/^[1-9][0-9]{0,8}$/', $v) === 1;
    $name = fn (string $v): bool => strlen($v) <= MAX_NAME_QUERY && strpbrk($v, "\0\r\n") === false;
    $forms = [
        'day' => fn (string $v): bool => preg_match('/^[0-9]{8}$/', $v) === 1 && past_day($v),
        'from' => fn (string $v): bool => typed_day($v) !== null,
        'to' => fn (string $v): bool => typed_day($v) !== null,
        'page' => $number, 'row' => $number, 'rpage' => $number, 'rrow' => $number,
        'result' => fn (string $v): bool => in_array(strtoupper($v), RESULTS, true),
        'action' => fn (string $v): bool => in_array(strtoupper($v), ACTIONS, true),
        'virus' => $name, 'client' => $name, 'file' => $name,
        'all' => fn (string $v): bool => $v === '1',
        'format' => fn (string $v): bool => $v === 'csv',
        'table' => fn (string $v): bool => $v === 'day' || $v === 'range',
    ];
    $query = [];
    foreach ($get as $key => $value) {
        if (!isset($forms[$key])) {
            refuse("The page knows no parameter \"$key\".");
        }
        if (!is_string($value)) {
            refuse("The parameter \"$key\" is given more than once or as a list.");
        }
        if ($value !== '' && !$forms[$key]($value)) {
            refuse("The value of \"$key\" is not valid: " . match ($key) {
                'day' => 'a day as yyyymmdd, not after today',
                'from', 'to' => 'a date as yyyy-mm-dd',
                'result' => 'one of ' . implode(', ', RESULTS),
                'action' => 'one of ' . implode(', ', ACTIONS),
                'virus', 'client', 'file' => 'text of one line, at most ' . MAX_NAME_QUERY . ' bytes',
                'all' => '1', 'format' => 'csv', 'table' => 'day or range',
                default => 'a whole number from 1',
            } . '.');
        }
        if ($value !== '') {
            $query[$key] = $value;
        }
    }
    if (isset($query['format']) !== isset($query['table'])) {
        refuse('A CSV export needs both format=csv and table=day or table=range.');
    }
    return $query;
}

function refuse(string $why, int $status = 400): never
{
    http_response_code($status);
    header('Content-Type: text/html; charset=utf-8');
    echo "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>Scan reports</title>",
        '<link rel="stylesheet" href="style.css"></head><body><h1>Scan reports</h1><p class="refused">',
        text($why), '</p><p><a href="?">Back to the console</a></p></body></html>', "\n";
    exit;
}

// The filter the query asks for, keywords in capitals.
function query_filter(array $query): array
{
    $filter = array_intersect_key($query, array_flip(FILTERS));
    foreach (['result', 'action'] as $keyword) {
        if (isset($filter[$keyword])) {
            $filter[$keyword] = strtoupper($filter[$keyword]);
        }
    }
    return $filter;
}

// Shows one fragment of the output tree, or says that it is missing.
function show(string $root, string $relative, string $missing, ?callable $link = null): void
{
    $file = open_in_root($root, $relative);
    if ($file === null || !render_items(fragment_items(file_lines($file)), $link)) {
        echo '<p class="missing">No ', text($missing), ' has been written yet.</p>', "\n";
    }
    render_cut_notes();
}

// Links from a summary's top-ten tables to the rows they count.
function top_ten_link(array $query): callable
{
    return function (string $caption, array $cells) use ($query): ?string {
        $key = ['Top 10 Virus' => 'virus', 'Top 10 Client' => 'client', 'Top 10 File' => 'file'][$caption] ?? null;
        if ($key === null || count($cells) !== 3) {
            return null;
        }
        $keep = array_intersect_key($query, array_flip(['day', 'from', 'to']));
        return link_to($keep + [$key => $cells[1]['text']]) . '#day-report';
    };
}

function iso_day(string $day): string
{
    return substr($day, 0, 4) . '-' . substr($day, 4, 2) . '-' . substr($day, 6, 2);
}

header("Content-Security-Policy: default-src 'none'; script-src 'self'; "
    . "style-src 'self'; img-src 'self'; base-uri 'none'; form-action 'self'; "
    . "frame-ancestors 'none'");
header('X-Content-Type-Options: nosniff');
header('Referrer-Policy: no-referrer');

$query = checked_query($_GET);
$root = real_root();
$days = $root === null ? [] : report_days($root);
$root === null || trusted_dir("$root/range");
if (isset($query['day']) && !in_array($query['day'], $days, true)) {
    refuse('There is no report of ' . display_day($query['day']) . ' that the console serves.', 404);
}
$day = $query['day'] ?? ($days === [] ? null : end($days));
$filter = query_filter($query);
$all = isset($query['all']);
if (isset($query['format'])) {
    $table = $query['table'] === 'day' ? ($day === null ? null : "traffic/$day/report.php") : 'range/report.php';
    if ($table === null || !export_table($root, $table, $filter, $all, "scanreport-{$query['table']}-" . ($day ?? ''))) {
        refuse('That report has not been written.', 404);
    }
    exit;
}
header('Content-Type: text/html; charset=utf-8');
$trend = $root === null ? [] : trend_counts($root, trend_days($query, $days));
$view = fn (string $name, array $keys, string $anchor): array =>
    ['filter' => $filter, 'all' => $all, 'query' => $query, 'keys' => $keys, 'anchor' => $anchor, 'name' => $name];
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
<?php $problems = tree_problems(); ?>
<?php if ($problems !== []): ?>
<section id="unsafe">
<h2>Parts of the output tree are not served</h2>
<p>Only directories and files that root alone may write are shown: others could have planted what they hold. Put them right as root, or remove what you did not make:</p>
<ul>
<?php foreach ($problems as [$path, $why, $fix]): ?>
<li><?= text($path) ?> <?= text($why) ?>: <code><?= text($fix) ?></code></li>
<?php endforeach; ?>
</ul>
</section>
<?php endif; ?>
<form class="choice filters" method="get" action="#day-report">
<?php if (isset($query['day'])): ?><input type="hidden" name="day" value="<?= attr($query['day']) ?>"><?php endif; ?>
<label>Result <select name="result"><option value="">any</option>
<?php foreach (RESULTS as $each): ?>
<option<?= ($filter['result'] ?? '') === $each ? ' selected' : '' ?>><?= $each ?></option>
<?php endforeach; ?>
</select></label>
<label>Action <select name="action"><option value="">any</option>
<?php foreach (ACTIONS as $each): ?>
<option<?= ($filter['action'] ?? '') === $each ? ' selected' : '' ?>><?= $each ?></option>
<?php endforeach; ?>
</select></label>
<label>Virus <input type="text" name="virus" value="<?= attr($filter['virus'] ?? '') ?>"></label>
<label>Client <input type="text" name="client" value="<?= attr($filter['client'] ?? '') ?>"></label>
<label>File name holds <input type="text" name="file" value="<?= attr($filter['file'] ?? '') ?>"></label>
<button type="submit">Filter</button>
<?php if ($filter !== []): ?><a href="<?= attr(link_to(array_intersect_key($query, array_flip(['day', 'from', 'to']))) . '#day-report') ?>">All rows</a><?php endif; ?>
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
<section id="day-report">
<h2>Report of <?= text(display_day($day)) ?></h2>
<?php show_report_table($root, "traffic/$day/report.php", 'report of this day', $view('day', ['page', 'row'], 'day-report')); ?>
<?php render_cut_notes(); ?>
</section>
<section id="day-summary">
<h2>Summary of <?= text(display_day($day)) ?></h2>
<?php show($root, "traffic/$day/summary.htm", 'summary of this day', top_ten_link($query)); ?>
</section>
<section id="day-quarantine">
<h2>Quarantine of <?= text(display_day($day)) ?></h2>
<?php show($root, "traffic/$day/quarantine.htm", 'quarantine page of this day'); ?>
</section>
<?php endif; ?>
<section id="range-report">
<h2>Latest range report</h2>
<?php show_report_table($root, 'range/report.php', 'range report', $view('range', ['rpage', 'rrow'], 'range-report')); ?>
<?php render_cut_notes(); ?>
</section>
<section id="range-summary">
<h2>Summary of the latest range</h2>
<?php show($root, 'range/summary.htm', 'range summary', top_ten_link($query)); ?>
</section>
<?php endif; ?>
</body>
</html>
