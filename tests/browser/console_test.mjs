// The console in headless Chromium (DevTools protocol on a pipe), served by
// php -S on 127.0.0.1, over the tree that daily_test.sh left: reports of a
// log of hostile names, summaries written by hand and planted files.
import assert from 'node:assert/strict';
import {execFileSync, spawn} from 'node:child_process';
import {mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {once} from 'node:events';
import {createServer} from 'node:net';
import {tmpdir} from 'node:os';
import {after, before, test} from 'node:test';

const {OUTPUT_ROOT: root, PHP, CHROMIUM, WEB, SHOTS, SWAP} = process.env;
const HOSTILE = ['<b id=x>bold.txt', '<!--comment.doc', '</td></tr></table><b id=x>',
  "'>q-0001", '<img id=x>q2', '<?php echo "PHP-RAN"; ?>', 'a<b.txt', 'W32.<bad',
  '<script>document.title="INJECTED"</script>', 'a&amp;b <textarea>.txt',
  'pc\\xFF[10.0.0.7]', 'caf\\xE9.txt'];
// From data/summaries by hand: clean, cured, then the infected actions; null
// for a day without a summary (none, a FIFO, a link out of the root).
const KEYS = ['clean', 'cured', 'quarantined', 'deleted', 'denied', 'acterror'];
const CHART = {20240310: [120, 3, 4, 2, 1, 0], 20240311: [80, 0, 0, 0, 0, 1], 20240312: null,
  20240313: [10, -4, 6, 0, 2, 1], 20240314: null, 20240315: null, 20240316: [50, 0, 10, 0, 0, 0]};
const sleep = (ms) => new Promise((resolve) => setTimeout(resolve, ms));
let send, session, base, profile, php, browser;

function devtools(browser) { // messages are JSON, each ended by a NUL byte
  const calls = new Map();
  let id = 0, pending = Buffer.alloc(0);
  browser.stdio[4].on('data', (chunk) => {
    pending = Buffer.concat([pending, chunk]);
    for (let end; (end = pending.indexOf(0)) >= 0; pending = pending.subarray(end + 1)) {
      const message = JSON.parse(pending.subarray(0, end));
      const call = calls.get(message.id);
      calls.delete(message.id);
      if (call) message.error ? call.reject(new Error(message.error.message)) : call.resolve(message.result);
    }
  });
  return (method, params = {}, sessionId = undefined) => new Promise((resolve, reject) => {
    calls.set(++id, {resolve, reject});
    browser.stdio[3].write(JSON.stringify({id, method, params, sessionId}) + '\0');
  });
}

// Runs fn(arg) in the page and returns its result.
async function run(fn, arg = null) {
  const {result, exceptionDetails} = await send('Runtime.evaluate', {expression: `(${fn})(${JSON.stringify(arg)})`,
    returnByValue: true, awaitPromise: true}, session);
  assert.ok(!exceptionDetails, JSON.stringify(exceptionDetails));
  return result.value;
}

async function load(query) {
  const url = `${base}/index.php${query}`;
  await send('Page.navigate', {url}, session);
  while (!await run((u) => location.href === u && document.readyState === 'complete', url)) {
    await sleep(50);
  }
}

async function screenshot(name, width, height) {
  await send('Emulation.setDeviceMetricsOverride', {width, height, deviceScaleFactor: 1, mobile: width < 600}, session);
  const {data} = await send('Page.captureScreenshot', {format: 'png'}, session);
  writeFileSync(`${SHOTS}/${name}.png`, Buffer.from(data, 'base64'));
}

before(async () => {
  const server = createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const {port} = server.address();
  await new Promise((resolve) => server.close(resolve));
  base = `http://127.0.0.1:${port}`;
  const cache = `${SHOTS}/console-cache`;
  rmSync(cache, {recursive: true, force: true});
  mkdirSync(cache, {mode: 0o700});
  php = spawn(PHP, ['-S', `127.0.0.1:${port}`, '-t', WEB],
    {env: {...process.env, SCANREPORT_OUTPUT_ROOT: root, SCANREPORT_CACHE_DIR: cache, PHP_CLI_SERVER_WORKERS: '4'},
    stdio: 'ignore'}); // its request log would fill an unread pipe and stop it
  for (let i = 0; i < 100 && !(await fetch(`${base}/style.css`).catch(() => null))?.ok; i++) await sleep(100);
  profile = mkdtempSync(`${tmpdir()}/console-test-`);
  browser = spawn(CHROMIUM, ['--headless', '--no-sandbox', '--disable-gpu', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
    '--disable-dev-shm-usage', `--user-data-dir=${profile}`, '--remote-debugging-pipe', 'about:blank'],
  {stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe']});
  send = devtools(browser);
  const {targetId} = await send('Target.createTarget', {url: 'about:blank'});
  session = (await send('Target.attachToTarget', {targetId, flatten: true})).sessionId;
});

after(async () => {
  await Promise.race([send?.('Browser.close').then(() => once(browser, 'exit')), sleep(5000)]);
  browser?.kill('SIGKILL');
  php?.kill('SIGKILL');
  rmSync(profile, {recursive: true, force: true, maxRetries: 10, retryDelay: 200});
});

test('PHP resolves the include lines of the pages, double slash and all', () => {
  const php = (day) => execFileSync(PHP, ['-n', `${root}${day}/report.php`], {encoding: 'latin1', stdio: ['ignore', 'pipe', 'ignore']});
  const file = (path) => readFileSync(`${root}${path}`, 'latin1');
  assert.match(file('traffic/20240302/report.php'), /traffic\/\/20240302\/report\.txt"\) \?><\/table>\n$/);
  assert.equal(php('traffic/20240302'), file('traffic/20240302/report.php').split('<?php')[0] + file('traffic/20240302/report.txt') + '</table>\n');
  // Including runs the PHP in a name: why the console never includes.
  assert.ok(php('range').includes(file('traffic/20240301/report.txt').replaceAll('<?php echo "PHP-RAN"; ?>', 'PHP-RAN') + file('traffic/20240302/report.txt')));
});

test('every name is shown as text, every row and checkbox stays', async () => {
  await load('?day=20240301');
  const shown = await run(() => ({title: document.title, text: document.body.innerText,
    x: document.getElementById('x') !== null, scripts: document.scripts.length,
    markup: document.querySelectorAll('section table :is(b, img, script, textarea, a:not(.filter))').length,
    boxes: Object.fromEntries([...document.querySelectorAll('section')].map((s) => [s.id,
      [...s.querySelectorAll('input[type=checkbox]')].map((b) => b.id).join(' ')])),
    cells: [...document.querySelectorAll('#day-report tr')].map((r) => r.cells.length)}));
  assert.deepEqual([shown.title, shown.x, shown.scripts, shown.markup], ['Scan reports', false, 1, 0]);
  for (const name of HOSTILE) assert.ok(shown.text.includes(name), name);
  assert.ok(!shown.text.replaceAll('<?php echo "PHP-RAN"; ?>', '').includes('PHP-RAN'));
  const ids = (from, to) => Array.from({length: to - from + 1}, (_, i) => `chk_sel_${from + i}`).join(' ');
  assert.equal(shown.boxes['day-report'], `selall ${ids(0, 8)}`);
  assert.equal(shown.boxes['day-quarantine'], `selall ${ids(1, 2)}`);
  assert.equal(shown.boxes['range-report'], `selall ${ids(0, 8)} ${ids(0, 2)}`);
  assert.deepEqual(shown.cells, Array(10).fill(8));
  const policy = (await fetch(`${base}/index.php?day=20240301`)).headers.get('content-security-policy');
  assert.match(policy, /script-src 'self';/);
});

test('select-all ticks and clears the rows of its own table', async () => {
  const ticked = () => run(() => ['day-report', 'day-quarantine', 'range-report'].map((id) =>
    document.querySelectorAll(`#${id} input[id^=chk_sel_]:checked`).length));
  for (const [id, expected] of [['day-report', [9, 0, 0]], ['day-quarantine', [9, 2, 0]],
    ['range-report', [9, 2, 12]], ['day-report', [0, 2, 12]]]) {
    await run((s) => document.querySelector(`#${s} input[id=selall]`).click(), id);
    assert.deepEqual(await ticked(), expected, id);
  }
});

test('the chart\'s bars and table match the summary files', async () => {
  await load('?day=20240301&from=2024-03-10&to=2024-03-16');
  const chart = await run(() => [...document.querySelectorAll('svg.trend rect')].map((r) =>
    [r.dataset.day, r.getAttribute('class').replace('s-', ''), r.height.baseVal.value]));
  const table = await run(() => [...document.querySelectorAll('table.trend-numbers tr')].slice(1).map((r) => r.innerText));
  for (const [panel, keys] of [['infected', KEYS.slice(2)], ['clean', KEYS.slice(0, 2)]]) {
    const bars = chart.filter(([, key]) => keys.includes(key));
    const scale = Math.max(...bars.map(([, , h]) => h)) / Math.max(...Object.values(CHART).flatMap((c) => c ? keys.map((k) => c[KEYS.indexOf(k)]) : []));
    for (const [day, key, height] of bars) {
      assert.ok(Math.abs(height - Math.max(0, CHART[day][KEYS.indexOf(key)]) * scale) < 0.01, `${panel} ${day} ${key}`);
    }
  }
  for (const [day, counts] of Object.entries(CHART)) {
    assert.equal(chart.filter(([d, key]) => d === day && key !== 'gap').length, counts ? 6 : 0, day);
    const infected = counts && counts.slice(2).reduce((a, b) => a + b);
    assert.equal(table.shift().split('\t').slice(1).join(' '), counts ? `${counts.join(' ')} ${infected}` : 'no summary');
  }
  const totals = await run(() => [...document.querySelectorAll('svg.trend text.total')].map((t) => t.textContent));
  assert.deepEqual(totals, ['7', '1', '9', '10']);
  await screenshot('chart-phone', 390, 800);
});

test('planted files are refused or shown as text, never followed', async () => {
  await load('?day=20240228');
  const text = await run(() => document.body.innerText);
  assert.ok(!text.includes('OUTSIDE-ROOT') && text.includes('No summary of this day') &&
    text.includes("<td align='left'>cut short") && text.includes('a line <b id=x> of its own'));
  assert.equal(await run(() => document.getElementById('x')), null);
  await load('?day=20240301&from=2024-02-28&to=2024-03-16');
  await screenshot('console', 1280, 2400);
});

// The rows of the million-row day as CSV lines, from its log by hand: an
// INFECTED line is id, date, time, client, address, result, action, virus,
// path and, when quarantined, the quarantine file.
const bigLog = () => readFileSync(`${root.replace(/\/$/, '')}-outside/big.log`, 'latin1').split('\n');
const infectedCsv = (lines) => lines.map((l) => l.split(',,')).filter((f) => f[5] === 'INFECTED')
  .map(([, date, time, client, ip, result, action, virus, path, quarantine]) =>
    [`${date}/${time}`, `${client}[${ip}]`, path, result, virus, action, quarantine ?? '-'].join(','));

const sentIn = async (query) => {
  const start = performance.now();
  const body = await (await fetch(`${base}/index.php${query}`)).text();
  return [(performance.now() - start).toFixed(0), body.length];
};

// Prints the time to send the page the first time (with its index built)
// and again, and the time Chromium takes to show it.
async function timed(query) {
  const [cold, size] = await sentIn(query);
  const [warm] = await sentIn(query);
  const loadStart = performance.now();
  await load(query);
  console.log(`# ${query}: ${size} bytes sent in ${cold} ms, again in ${warm} ms; shown by Chromium in ${(performance.now() - loadStart).toFixed(0)} ms`);
  return run(() => ({pager: document.querySelector('#day-report nav.pager').innerText,
    rows: [...document.querySelectorAll('#day-report table.report tr')].slice(1).map((r) =>
      [...r.cells].map((c, i) => (i === 3 || i === 7) && c.title ? c.title : c.innerText)),
    ids: [...document.querySelectorAll('#day-report input[id^=chk_sel_]')].map((b) => b.id)}));
}

test('a day of a million rows: infected first, any page, a filter, CSV', async () => {
  const lines = bigLog();
  const infected = infectedCsv(lines);
  const first = await timed('?day=20240320');
  assert.match(first.pager, new RegExp(`^Rows 1–250 of ${infected.length.toLocaleString('en')}`));
  assert.deepEqual(first.rows.slice(0, 3).map((r) => r.slice(1).join(',')), infected.slice(0, 3));
  await run(() => document.getElementById('day-report').scrollIntoView());
  await screenshot('million-rows', 1280, 1600);
  const late = await timed('?day=20240320&all=1&page=3999');
  assert.match(late.pager, /^Rows 999,501–999,750 of 1,000,000/);
  assert.equal(late.ids[0], 'chk_sel_999500');
  assert.equal(late.rows[0][2].split('[')[0], lines[999500].split(',,')[3]);
  const client = 'ws0042';
  const byClient = lines.filter((l) => l.split(',,')[3] === client && l.split(',,')[4] === '10.0.0.42').length;
  const filtered = await timed(`?day=20240320&all=1&client=${client}%5B10.0.0.42%5D`);
  assert.match(filtered.pager, new RegExp(`of ${byClient.toLocaleString('en')}\\b`));
  assert.ok(filtered.rows.every((r) => r[2] === `${client}[10.0.0.42]`));
  const start = performance.now();
  const csv = await (await fetch(`${base}/index.php?format=csv&table=day&day=20240320&result=INFECTED`)).text();
  console.log(`# CSV of ${infected.length} infected rows in ${(performance.now() - start).toFixed(0)} ms`);
  assert.equal(csv, ['Date/Time,Client,File,Result,Virus/Remark,Action,Quarantine', ...infected, ''].join('\r\n'));
});

test('queries of a wrong form get a 400 that says why', async () => {
  for (const [query, said] of [['?day=2024', 'day'], ['?page=0', 'page'], ['?result=FOO', 'result'],
    ['?day[]=20240301', 'day'], ['?sort=name', 'sort'], ['?day=20991230', 'day'], ['?format=csv', 'CSV']]) {
    const response = await fetch(`${base}/index.php${query}`);
    assert.equal(response.status, 400, query);
    const body = await response.text();
    assert.ok(body.includes(said) && !/Warning|Notice|Fatal/.test(body), query);
  }
});

test('planted and foreign days: no hang, nothing from outside, what to change', async () => {
  const listener = createServer((socket) => { listener.connections++; socket.destroy(); }).listen(0, '127.0.0.1');
  await once(listener, 'listening');
  listener.connections = 0;
  const page = `${root}traffic/20240228/report.php`;
  writeFileSync(page, readFileSync(page, 'latin1') + ['/etc/shadow', '/root/.nothing-here', `ftp://127.0.0.1:${listener.address().port}/x/report.txt`,
    `${root}traffic/../../../../etc/report.txt`].map((p) => `<?php include("${p}") ?>\n`).join(''), 'latin1');
  const planted = await (await fetch(`${base}/index.php?day=20240228`, {signal: AbortSignal.timeout(20000)})).text();
  const said = [...planted.matchAll(/Not shown: ([^ ]*) \(([^)]*)\)/g)];
  assert.equal(new Set(said.map((m) => m[2])).size, 1, 'the same words whether a file exists or not');
  assert.ok(said.some((m) => m[1] === '/etc/shadow') && said.some((m) => m[1] === '/root/.nothing-here'));
  assert.ok(!planted.includes('OUTSIDE-ROOT'));
  assert.equal(listener.connections, 0);
  listener.close();
  const fifo = await fetch(`${base}/index.php?day=20240318`, {signal: AbortSignal.timeout(20000)});
  assert.match(await fifo.text(), /No report of this day has been written yet/);
  const sparse = await (await fetch(`${base}/index.php?day=20240319`, {signal: AbortSignal.timeout(20000)})).text();
  assert.ok(sparse.includes('Only the first part of traffic/20240319/report.php is shown'));
  await load('');
  const shown = await run(() => ({days: [...document.querySelectorAll('select[name=day] option')].map((o) => o.value),
    unsafe: document.getElementById('unsafe')?.innerText ?? '',
    last: [...document.querySelectorAll('svg.trend rect')].at(-1).dataset.day}));
  assert.equal(shown.days[0], '20240320');
  for (const day of ['20991230', '20240321', '20240322']) assert.ok(!shown.days.includes(day), day);
  assert.equal(shown.last, '20240320');
  assert.match(shown.unsafe, /traffic\/20240321 is not owned by root: chown root:root \S*traffic\/20240321/);
  assert.match(shown.unsafe, /traffic\/20240322 is writable by its group or others: chmod go-w \S*traffic\/20240322/);
  assert.equal((await fetch(`${base}/index.php?day=20240321`)).status, 404);
});

test('a day directory swapped with a link out of the root while pages are read', async () => {
  const swapper = spawn(SWAP, [`${root}traffic/20240317`, `${root}traffic/swapped`, '4'], {stdio: ['ignore', 'pipe', 'inherit']});
  const statuses = {};
  const deadline = performance.now() + 3500;
  while (performance.now() < deadline) {
    const batch = await Promise.all(Array.from({length: 4}, () => fetch(`${base}/index.php?day=20240317`,
      {signal: AbortSignal.timeout(10000)}).then(async (r) => [r.status, await r.text()])));
    for (const [status, body] of batch) {
      statuses[status] = (statuses[status] ?? 0) + 1;
      assert.ok(!body.includes('root:x:0:0'), 'a byte from /etc/passwd');
    }
  }
  const [code] = await once(swapper, 'exit');
  assert.equal(code, 0);
  console.log(`# during the swaps: ${JSON.stringify(statuses)}`);
  assert.ok(Object.keys(statuses).every((s) => s === '200' || s === '404'));
});
