<?php
// A report table of the page, the day's or the range's: the head that its
// report.php writes, then one page of the rows of the report.txt files
// that it includes (rows.php), with the pager, the filter's count and the
// CSV link.
//
// The include lines are text from a file, so a path in one is only
// compared as text: it is followed when it is a plain local path inside
// the output root that names a report.txt, and then opened as any other
// file of the tree. Nothing else is touched, so the page never tells
// whether a file outside the root exists and never opens a URL.
declare(strict_types=1);

// Kept of a report.php's own lines (its head and tail): far above the
// dozen lines the program writes.
const MAX_PAGE_TEXT = 1024 * 1024;
const MAX_INCLUDES = 4000;

function plain_parts(string $path): array
{
    return array_values(array_filter(explode('/', $path), fn (string $p): bool => $p !== ''));
}

// An include line's path as a path under the root, or null.
function included_report(string $root, string $named): ?string
{
    if (str_contains($named, '://') || !str_starts_with($named, '/')) {
        return null;
    }
    $parts = plain_parts($named);
    foreach ([$root, configured_root()] as $prefix) {
        $head = plain_parts($prefix);
        $rest = array_slice($parts, count($head));
        if (array_slice($parts, 0, count($head)) === $head && $rest !== []
            && end($rest) === 'report.txt' && path_parts(implode('/', $rest)) !== null) {
            return implode('/', $rest);
        }
    }
    return null;
}

// A report.php as [head lines, included paths, tail lines].
function read_report_page(array $page): array
{
    [$head, $includes, $tail, $kept] = [[], [], [], 0];
    foreach (file_lines($page) as $line) {
        if (preg_match(INCLUDE_LINE, $line, $m) === 1) {
            if (count($includes) === MAX_INCLUDES) {
                cut_files($page['name']);
                break;
            }
            $includes[] = $m[1];
            $line = $m[2];
            if ($line === '') {
                continue;
            }
        }
        $kept += strlen($line);
        if ($kept > MAX_PAGE_TEXT) {
            cut_files($page['name']);
            break;
        }
        if ($includes === []) {
            $head[] = $line;
        } else {
            $tail[] = $line;
        }
    }
    return [$head, $includes, $tail];
}

// The report.txt files a report.php includes, opened, and what the page
// must say of the lines it does not follow.
function included_files(string $root, array $includes): array
{
    [$files, $notes] = [[], []];
    foreach ($includes as $named) {
        $relative = included_report($root, $named);
        $file = $relative === null ? null : open_in_root($root, $relative);
        if ($file !== null) {
            $files[] = $file;
        } elseif ($relative !== null && @lstat("$root/$relative") === false) {
            // A day of a range that was never reported adds no rows, as
            // when the page is included.
            continue;
        } else {
            $notes[] = "Not shown: $named (only a report.txt under the output root that root wrote is shown)";
        }
    }
    return [$files, $notes];
}

// The table behind a report.php: head, tail, parts, total, notes, and the
// filter in force (infected rows first on a huge table unless $all).
function report_table(string $root, string $relative, array $filter, bool $all): ?array
{
    $page = open_in_root($root, $relative);
    if ($page === null) {
        return null;
    }
    [$head, $includes, $tail] = read_report_page($page);
    [$files, $notes] = included_files($root, $includes);
    $defaulted = false;
    // A huge table opens on its infected rows: both indexes in one pass.
    $infected = ['result' => 'INFECTED'];
    if ($filter === [] && !$all && table_parts($files, [], [$infected])[1] > HUGE_TABLE_ROWS) {
        [$filter, $defaulted] = [$infected, true];
    }
    [$parts, $total] = table_parts($files, $filter);
    return compact('head', 'tail', 'parts', 'total', 'notes', 'filter', 'defaulted');
}

function link_to(array $query): string
{
    return '?' . http_build_query($query, '', '&', PHP_QUERY_RFC3986);
}

// First, previous, next and last page, the rows shown and a row number to
// go to. $keys names this table's page and row parameters.
function render_pager(array $query, array $keys, int $page, int $pages, int $total, string $anchor): void
{
    [$page_key, $row_key] = $keys;
    unset($query[$page_key], $query[$row_key]);
    $first = ($page - 1) * PAGE_ROWS;
    echo '<nav class="pager">', $total === 0 ? 'No rows' : sprintf('Rows %s&ndash;%s of %s',
        number_format($first + 1), number_format(min($total, $first + PAGE_ROWS)), number_format($total));
    foreach (['First' => 1, 'Previous' => $page - 1, 'Next' => $page + 1, 'Last' => $pages] as $label => $to) {
        echo $to < 1 || $to > $pages || $to === $page ? " <span>$label</span>"
            : ' <a href="' . attr(link_to($query + [$page_key => $to]) . "#$anchor") . "\">$label</a>";
    }
    echo " <span>page $page of $pages</span>";
    echo '<form method="get" action="#', $anchor, '">';
    foreach ($query as $name => $value) {
        if (preg_match('//u', (string) $value) === 1) {
            echo '<input type="hidden" name="', attr($name), '" value="', attr((string) $value), '">';
        }
    }
    echo '<label>Row <input type="number" name="', $row_key, '" min="1" max="', max(1, $total),
        '" required></label> <button type="submit">Go</button></form></nav>', "\n";
}

// Shows a report table a page at a time, or says that it is missing.
function show_report_table(string $root, string $relative, string $missing, array $view): void
{
    $table = report_table($root, $relative, $view['filter'], $view['all']);
    if ($table === null) {
        echo '<p class="missing">No ', text($missing), ' has been written yet.</p>', "\n";
        return;
    }
    [$page_key, $row_key] = $view['keys'];
    $pages = max(1, intdiv($table['total'] + PAGE_ROWS - 1, PAGE_ROWS));
    $page = isset($view['query'][$row_key])
        ? intdiv((int) $view['query'][$row_key] - 1, PAGE_ROWS) + 1 : (int) ($view['query'][$page_key] ?? 1);
    $page = min($page, $pages);
    $query = $view['query'];
    if ($table['defaulted']) {
        echo '<p class="note">This table has more than ', number_format(HUGE_TABLE_ROWS),
            ' rows: its infected rows are shown first. <a href="',
            attr(link_to(['all' => '1'] + $query) . '#' . $view['anchor']), '">Show all rows</a></p>', "\n";
    }
    $csv = ['format' => 'csv', 'table' => $view['name']] + array_intersect_key($query, array_flip(['day', 'all', ...FILTERS]));
    if ($table['defaulted']) {
        $csv += $table['filter'];
    }
    echo '<p class="export"><a href="', attr(link_to($csv)), '">Export these rows as CSV</a></p>', "\n";
    render_pager($query, $view['keys'], $page, $pages, $table['total'], $view['anchor']);
    $lines = (function () use ($table, $page): Generator {
        yield from $table['head'];
        yield from page_lines($table['parts'], ($page - 1) * PAGE_ROWS, PAGE_ROWS);
        yield from $table['tail'];
    })();
    render_items(fragment_items($lines));
    foreach ($table['notes'] as $note) {
        echo '<p class="note">', text($note), "</p>\n";
    }
}

// The CSV export of one table with its filter; false when it is missing.
function export_table(string $root, string $relative, array $filter, bool $all, string $name): bool
{
    $table = report_table($root, $relative, $filter, $all);
    if ($table === null) {
        return false;
    }
    header('Content-Type: text/csv; charset=utf-8; header=present');
    header("Content-Disposition: attachment; filename=\"$name.csv\"");
    stream_csv($table['parts']);
    return true;
}
