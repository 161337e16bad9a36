<?php
// The trend over a run of days: each day's result counts, read from the
// summary.txt that its report left, drawn on the server as inline SVG (the
// page allows no script) and listed in a table. Counts are read exactly
// as a range report merges the file, so the chart and a range report over
// the same days agree: sections by the letter of their header, the name
// before the first "=", the value as atoi reads it, repeated names added
// in 32-bit arithmetic. Infections are drawn in a panel of their own with
// its own scale, since clean files outnumber them by far.
declare(strict_types=1);

const INFECTED_SERIES = ['quarantined' => 'Quarantined', 'deleted' => 'Deleted',
    'denied' => 'Access denied', 'acterror' => 'Action error'];
const CLEAN_SERIES = ['clean' => 'Clean', 'cured' => 'Cured'];
const DEFAULT_TREND_DAYS = 30;
const MAX_TREND_DAYS = 366;
// The plot's place in the chart's 400-unit-wide view box.
const PLOT_LEFT = 40.0;
const PLOT_WIDTH = 354.0;

function int32(int $n): int
{
    $n &= 0xFFFFFFFF;
    return $n >= 0x80000000 ? $n - 0x100000000 : $n;
}

// atoi as the C library computes it: (int) strtol, which saturates at the
// 64-bit range before the cut to 32 bits.
function atoi_value(string $text): int
{
    preg_match('/^[\t\n\x0b\f\r ]*([+-]?)0*([0-9]*)/', $text, $m);
    [, $sign, $digits] = $m;
    if (strlen($digits) > 19
        || (strlen($digits) === 19 && strcmp($digits, '9223372036854775807') > 0)) {
        return $sign === '-' ? 0 : -1;
    }
    return int32($sign === '-' ? -(int) $digits : (int) $digits);
}

// The result counts of one summary.txt; keys it lacks count 0.
function summary_counts(array $file): array
{
    $counts = array_fill_keys(array_keys(CLEAN_SERIES + INFECTED_SERIES), 0);
    $in_summary = false;
    foreach (file_lines($file) as $line) {
        if ($line === '') {
            continue;
        }
        if ($line[0] === '[') {
            // A header that matches no test keeps the section it is in.
            if (in_array($line[8] ?? '', ['C', 'V', 'F'], true)) {
                $in_summary = false;
            }
            $in_summary = ($line[1] ?? '') === 'S' || $in_summary;
            continue;
        }
        $equals = strpos($line, '=');
        $name = $equals === false ? $line : substr($line, 0, $equals);
        if ($in_summary && array_key_exists($name, $counts)) {
            $value = $equals === false ? $line : substr($line, $equals + 1);
            $counts[$name] = int32($counts[$name] + atoi_value($value));
        }
    }
    return $counts;
}

// A summary's counts, kept in the console's cache: a full scan's day has
// a summary of megabytes, and the chart reads a month of them.
function cached_counts(array $file): array
{
    $stat = $file['stat'];
    $dir = cache_dir();
    $path = "$dir/counts-{$stat['dev']}-{$stat['ino']}-{$stat['size']}-{$stat['mtime']}";
    $cached = $dir === null ? null : open_cached($path);
    $keys = array_keys(CLEAN_SERIES + INFECTED_SERIES);
    if ($cached !== null && $cached['count'] === count($keys)) {
        $values = unpack('q*', (string) fread($cached['handle'], 8 * count($keys)));
        fclose($file['handle']);
        return array_combine($keys, array_values($values));
    }
    $counts = summary_counts($file);
    $temp = $dir === null ? false : @tempnam($dir, 'build-');
    if ($temp !== false && file_put_contents($temp, pack('q*', ...array_values($counts))) !== false) {
        rename($temp, $path);
    }
    return $counts;
}

// A date typed by the reader (yyyy-mm-dd or yyyymmdd) as yyyymmdd, or null.
function typed_day(mixed $typed): ?string
{
    if (!is_string($typed) || preg_match('/^([0-9]{4})-?([0-9]{2})-?([0-9]{2})$/', $typed, $m) !== 1
        || !checkdate((int) $m[2], (int) $m[3], (int) $m[1])) {
        return null;
    }
    return $m[1] . $m[2] . $m[3];
}

function shift_day(string $day, int $by): string
{
    $date = new DateTimeImmutable($day, new DateTimeZone('UTC'));
    return $date->modify(sprintf('%+d days', $by))->format('Ymd');
}

// The days the chart covers: the reader's from and to, else the 30 days
// that end with the latest report served; at most MAX_TREND_DAYS, and none
// after today.
function trend_days(array $query, array $report_days): array
{
    $latest = $report_days === [] ? date('Ymd') : end($report_days);
    $to = typed_day($query['to'] ?? null) ?? $latest;
    $from = typed_day($query['from'] ?? null) ?? shift_day($to, 1 - DEFAULT_TREND_DAYS);
    if ($from > $to) {
        [$from, $to] = [$to, $from];
    }
    $to = min($to, date('Ymd'));
    $from = min($from, $to);
    $from = max($from, shift_day($to, 1 - MAX_TREND_DAYS));
    $days = [];
    for ($day = $from; $day <= $to; $day = shift_day($day, 1)) {
        $days[] = $day;
    }
    return $days;
}

// Each day's counts, or null for a day without a readable summary.
function trend_counts(string $root, array $days): array
{
    $counts = [];
    foreach ($days as $day) {
        $file = past_day($day) ? open_in_root($root, "traffic/$day/summary.txt") : null;
        $counts[$day] = $file === null ? null : cached_counts($file);
    }
    return $counts;
}

// A round axis top and its step (1, 2 or 5 times a power of ten) for
// values up to $max, in at most four steps.
function axis_scale(int $max): array
{
    $step = 1;
    while ($step * 4 < $max) {
        $step = intdiv($step * (str_starts_with((string) $step, '2') ? 5 : 4), 2);
    }
    return [$step * max(1, (int) ceil($max / $step)), $step];
}

function svg_text(float $x, float $y, string $text, string $class = ''): string
{
    $class = $class === '' ? '' : " class=\"$class\"";
    return sprintf('<text x="%.1f" y="%.1f"%s>%s</text>', $x, $y, $class, text($text));
}

// One bar, or the band of a day without a summary, with its tooltip.
function svg_bar(string $class, string $day, float $x, float $y, float $width,
    float $height, string $tooltip): string
{
    return sprintf('<rect class="%s" data-day="%s" x="%.2f" y="%.2f" width="%.2f" height="%.2f">'
        . '<title>%s: %s</title></rect>', $class, $day, $x, $y, $width, $height,
        display_day($day), text($tooltip));
}

function display_day(string $day): string
{
    return substr($day, 6, 2) . '-' . substr($day, 4, 2) . '-' . substr($day, 0, 4);
}

// One panel: stacked bars of $series per day, its y axis and its title.
function svg_panel(array $counts, array $series, string $title, float $top,
    float $height, bool $totals): string
{
    [$left, $width] = [PLOT_LEFT, PLOT_WIDTH];
    $column = $width / max(1, count($counts));
    $stack = fn (?array $c): int => $c === null ? 0
        : array_sum(array_map(fn (string $k): int => max(0, $c[$k]), array_keys($series)));
    $sums = array_map($stack, $counts);
    [$axis_top, $step] = axis_scale(max([0, ...array_values($sums)]));
    $scale = $height / $axis_top;
    $base = $top + $height;
    $svg = svg_text($left, $top - 6, $title, 'panel-title');
    for ($tick = 0; $tick <= $axis_top; $tick += $step) {
        $y = $base - $tick * $scale;
        $svg .= sprintf('<line class="grid" x1="%.1f" x2="%.1f" y1="%.1f" y2="%.1f"/>',
            $left, $left + $width, $y, $y) . svg_text($left - 4, $y + 3.5, (string) $tick, 'tick');
    }
    $x = $left;
    foreach ($counts as $day => $day_counts) {
        $day = (string) $day;
        $bar_x = $x + $column * 0.15;
        $bar_width = $column * 0.7;
        $y = $base;
        if ($day_counts === null) {
            $svg .= svg_bar('gap', $day, $bar_x, $top, $bar_width, $height, 'no summary');
        }
        foreach ($day_counts === null ? [] : $series as $key => $label) {
            $bar = max(0, $day_counts[$key]) * $scale;
            $y -= $bar;
            $svg .= svg_bar("s-$key", $day, $bar_x, $y, $bar_width, $bar, "$label {$day_counts[$key]}");
        }
        // The total over the bar, turned upright when the column is narrow.
        if ($totals && $day_counts !== null && $column >= 6) {
            $total = (string) $sums[$day];
            $svg .= $column >= 5.5 * strlen($total) + 2
                ? svg_text($x + $column / 2, $y - 2, $total, 'total')
                : sprintf('<text class="total vertical" transform="translate(%.1f %.1f) rotate(-90)">%s</text>',
                    $x + $column / 2 + 3, $y - 2, $total);
        }
        $x += $column;
    }
    return $svg;
}

// The x axis: a date under every few columns, as many as fit.
function svg_days(array $days, float $y): string
{
    $every = (int) ceil(count($days) * 34 / PLOT_WIDTH);
    $svg = '';
    foreach (array_values($days) as $i => $day) {
        if ($i % $every === 0) {
            $x = PLOT_LEFT + (PLOT_WIDTH / count($days)) * ($i + 0.5);
            $svg .= svg_text($x, $y, substr($day, 6, 2) . '-' . substr($day, 4, 2), 'day');
        }
    }
    return $svg;
}

function render_trend_chart(array $counts): void
{
    $days = array_map('strval', array_keys($counts));
    $label = 'Result counts per day from ' . display_day($days[0]) . ' to ' . display_day(end($days));
    echo '<svg class="trend" viewBox="0 0 400 262" role="img" aria-labelledby="trend-title">',
        '<title id="trend-title">', text($label), '</title>',
        svg_panel($counts, INFECTED_SERIES, 'Infected, by action taken', 20, 100, true),
        svg_panel($counts, CLEAN_SERIES, 'Clean and cured', 150, 86, false),
        svg_days($days, 252), "</svg>\n";
    echo '<ul class="legend">';
    foreach (INFECTED_SERIES + CLEAN_SERIES as $key => $name) {
        echo '<li><span class="swatch s-', $key, '"></span>', text($name), '</li>';
    }
    echo '<li><span class="swatch gap"></span>No summary</li>',
        "<li>Numbers above the bars: infected in all</li></ul>\n";
}

function render_trend_table(array $counts): void
{
    echo '<table class="report trend-numbers"><caption>Counts per day</caption>', "\n<tr><th>Day</th>";
    foreach (CLEAN_SERIES + INFECTED_SERIES as $name) {
        echo '<th>', text($name), '</th>';
    }
    echo "<th>Infected</th></tr>\n";
    foreach ($counts as $day => $day_counts) {
        echo '<tr><td>', display_day((string) $day), '</td>';
        if ($day_counts === null) {
            echo "<td colspan=\"7\" class=\"gap\">no summary</td></tr>\n";
            continue;
        }
        $infected = 0;
        foreach (CLEAN_SERIES + INFECTED_SERIES as $key => $name) {
            echo '<td class="num">', $day_counts[$key], '</td>';
            $infected += isset(INFECTED_SERIES[$key]) ? $day_counts[$key] : 0;
        }
        echo '<td class="num total">', $infected, "</td></tr>\n";
    }
    echo "</table>\n";
}
