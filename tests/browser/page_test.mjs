// The example page in a real browser. Reports are generated from a sample
// log whose file names hold PHP code and a script, the page is served by
// PHP's own web server on 127.0.0.1, and headless Chromium, driven over the
// DevTools protocol on a pipe, loads it. The checks are on what a person
// sees: every row of every day, the summary totals, the "selall" boxes at
// work, and the PHP and the script from file names shown or blocked, never
// run. A screenshot of the first day is left in the build tree.
//
//   node page_test.mjs --program P --root R --php PHP --chromium C
//                      --web DIR --screenshot FILE

import {execFileSync, spawn} from 'node:child_process';
import {mkdirSync, mkdtempSync, rmSync, symlinkSync, writeFileSync} from 'node:fs';
import {createServer} from 'node:net';
import {tmpdir} from 'node:os';
import {dirname, join} from 'node:path';
import {fileURLToPath} from 'node:url';
import {parseArgs} from 'node:util';

const here = dirname(fileURLToPath(import.meta.url));
const {values: opt} = parseArgs({
  options: {
    program: {type: 'string'},
    root: {type: 'string'},
    php: {type: 'string'},
    chromium: {type: 'string'},
    web: {type: 'string'},
    screenshot: {type: 'string'},
  },
});

const PHP_NAME = '/srv/share/<?php echo "INJECTED"; ?>.txt';
const SCRIPT_TEXT = 'document.title="INJECTED"';

// What the sample log gives, worked out by hand from its lines: rows of
// the report table, rows of the quarantine page, and the summary totals.
const DAYS = [
  {day: '20240301', rows: 6, quarantined: 2, scanned: 5, infected: 2},
  {day: '20240302', rows: 4, quarantined: 0, scanned: 3, infected: 2},
  {day: '20240304', rows: 2, quarantined: 0, scanned: 2, infected: 1},
];
const RANGE = {
  rows: 12,
  scanned: 10,
  infected: 5
};
// A day whose page names files that must never be sent.
const HOSTILE_DAY = '20240228';

let passed = 0;
let failed = 0;
function check(name, ok, detail = '') {
  if (ok) {
    passed++;
  } else {
    failed++;
    console.error(`FAIL: ${name}${detail ? `: ${detail}` : ''}`);
  }
}

// ---- Chrome DevTools protocol over --remote-debugging-pipe

class DevTools {
  constructor(input, output) {
    this.input = input;
    this.nextId = 1;
    this.calls = new Map();
    this.listeners = new Set();
    let pending = Buffer.alloc(0);
    output.on('data', (chunk) => {
      pending = Buffer.concat([pending, chunk]);
      for (let end; (end = pending.indexOf(0)) >= 0;) {
        this.receive(JSON.parse(pending.subarray(0, end).toString('utf8')));
        pending = pending.subarray(end + 1);
      }
    });
  }

  receive(message) {
    if (message.id === undefined) {
      for (const listener of [...this.listeners]) listener(message);
      return;
    }
    const call = this.calls.get(message.id);
    this.calls.delete(message.id);
    if (!call) return;
    if (message.error) {
      call.reject(new Error(`${call.method}: ${message.error.message}`));
    } else {
      call.resolve(message.result);
    }
  }

  send(method, params = {}, sessionId = undefined) {
    const id = this.nextId++;
    const message = {id, method, params};
    if (sessionId) message.sessionId = sessionId;
    this.input.write(JSON.stringify(message) + '\0');
    return new Promise((resolve, reject) => {
      this.calls.set(id, {method, resolve, reject});
    });
  }

  event(method, sessionId, timeoutMs = 15000) {
    return new Promise((resolve, reject) => {
      const listener = (message) => {
        if (message.method === method && message.sessionId === sessionId) {
          clearTimeout(timer);
          this.listeners.delete(listener);
          resolve(message.params);
        }
      };
      const timer = setTimeout(() => {
        this.listeners.delete(listener);
        reject(new Error(`no ${method} within ${timeoutMs} ms`));
      }, timeoutMs);
      this.listeners.add(listener);
    });
  }
}

class Page {
  constructor(devtools, sessionId) {
    this.devtools = devtools;
    this.sessionId = sessionId;
  }

  send(method, params = {}) {
    return this.devtools.send(method, params, this.sessionId);
  }

  async load(url) {
    const loaded = this.devtools.event('Page.loadEventFired', this.sessionId);
    const result = await this.send('Page.navigate', {url});
    if (result.errorText) throw new Error(`${url}: ${result.errorText}`);
    await loaded;
  }

  // Runs fn(arg) in the page and returns its result as a value.
  async run(fn, arg = null) {
    const result = await this.send('Runtime.evaluate', {
      expression: `(${fn})(${JSON.stringify(arg)})`,
      returnByValue: true,
      awaitPromise: true,
    });
    if (result.exceptionDetails) {
      throw new Error(`in page: ${result.exceptionDetails.text} ${
          JSON.stringify(result.exceptionDetails.exception?.description)}`);
    }
    return result.result.value;
  }

  // A real mouse click in the middle of the element.
  async click(sectionId, selector) {
    const point = await this.run(([id, sel]) => {
      const element = document.getElementById(id)?.querySelector(sel);
      if (!element) return null;
      element.scrollIntoView({block: 'center'});
      const box = element.getBoundingClientRect();
      return {x: box.left + box.width / 2, y: box.top + box.height / 2};
    }, [sectionId, selector]);
    if (!point) throw new Error(`nothing to click: #${sectionId} ${selector}`);
    for (const type of ['mousePressed', 'mouseReleased']) {
      await this.send(
          'Input.dispatchMouseEvent',
          {type, x: point.x, y: point.y, button: 'left', clickCount: 1});
    }
  }

  async screenshot(file) {
    const metrics = await this.send('Page.getLayoutMetrics');
    const size = metrics.cssContentSize || metrics.contentSize;
    const shot = await this.send('Page.captureScreenshot', {
      format: 'png',
      captureBeyondViewport: true,
      clip: {
        x: 0,
        y: 0,
        width: size.width,
        height: Math.min(size.height, 8000),
        scale: 1
      },
    });
    writeFileSync(file, Buffer.from(shot.data, 'base64'));
  }
}

// ---- What the page shows (these functions run inside the browser)

function inspectPage() {
  const section = (id) => {
    const element = document.getElementById(id);
    if (!element) return null;
    const boxes =
        [...element.querySelectorAll('input[type="checkbox"][id^="chk_sel_"]')];
    return {
      rows: boxes.length,
      checked: boxes.filter((box) => box.checked).length,
      heads: element.querySelectorAll('input[type="checkbox"][id="selall"]')
                 .length,
      text: element.innerText,
    };
  };
  const ids = [
    'day-report', 'day-summary', 'day-quarantine', 'range-report',
    'range-summary'
  ];
  return {
    title: document.title,
    text: document.body.innerText,
    sections: Object.fromEntries(ids.map((id) => [id, section(id)])),
    titles: [...document.querySelectorAll('[title]')].map(
        (e) => e.getAttribute('title')),
    scripts: [...document.scripts].map(
        (s) => s.src ? `src:${s.src}` : s.textContent),
    violations: window.scanreportViolations || [],
  };
}

// Registered before any page script; the page's policy does not apply to it.
const RECORD_VIOLATIONS = `
  window.scanreportViolations = [];
  document.addEventListener('securitypolicyviolation', (e) =>
      window.scanreportViolations.push(e.effectiveDirective + ' ' + e.blockedURI));`;

// ---- The servers

function freePort() {
  return new Promise((resolve, reject) => {
    const server = createServer();
    server.on('error', reject);
    server.listen(0, '127.0.0.1', () => {
      const {port} = server.address();
      server.close(() => resolve(port));
    });
  });
}

// Every process started here, for the watchdog to end.
const children = [];

async function startPhp(port) {
  const log = [];
  const server = spawn(opt.php, ['-S', `127.0.0.1:${port}`, '-t', opt.web], {
    env: {...process.env, SCANREPORT_OUTPUT_ROOT: opt.root},
    stdio: ['ignore', 'pipe', 'pipe'],
  });
  children.push(server);
  server.stdout.on('data', (d) => log.push(String(d)));
  server.stderr.on('data', (d) => log.push(String(d)));
  server.log = log;
  for (let attempt = 0; attempt < 100; attempt++) {
    if (server.exitCode !== null) break;
    try {
      const response = await fetch(`http://127.0.0.1:${port}/select.js`);
      if (response.ok) return server;
    } catch {
      // not listening yet
    }
    await new Promise((r) => setTimeout(r, 100));
  }
  server.kill('SIGKILL');
  throw new Error(`php -S did not start: ${log.join('')}`);
}

async function startChromium(profile) {
  const browser = spawn(
      opt.chromium,
      [
        '--headless',
        '--no-sandbox',
        '--disable-gpu',
        '--disable-quic',
        '--no-first-run',
        '--disable-background-networking',
        '--disable-component-update',
        '--disable-sync',
        '--disable-extensions',
        '--disable-dev-shm-usage',
        '--hide-scrollbars',
        '--mute-audio',
        `--user-data-dir=${profile}`,
        '--remote-debugging-pipe',
        '--window-size=1280,900',
        'about:blank',
      ],
      {stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe']});
  children.push(browser);
  const log = [];
  browser.stderr.on('data', (d) => log.push(String(d)));
  browser.log = log;
  const devtools = new DevTools(browser.stdio[3], browser.stdio[4]);
  const {targetId} =
      await devtools.send('Target.createTarget', {url: 'about:blank'});
  const {sessionId} =
      await devtools.send('Target.attachToTarget', {targetId, flatten: true});
  const page = new Page(devtools, sessionId);
  await page.send('Page.enable');
  await page.send('Runtime.enable');
  await page.send(
      'Page.addScriptToEvaluateOnNewDocument', {source: RECORD_VIOLATIONS});
  await page.send(
      'Emulation.setDeviceMetricsOverride',
      {width: 1280, height: 900, deviceScaleFactor: 1, mobile: false});
  return {browser, devtools, page};
}

async function stop(child, graceful) {
  if (!child || child.exitCode !== null) return;
  const exited = new Promise((resolve) => child.once('exit', resolve));
  try {
    if (graceful)
      await Promise.race([graceful(), new Promise((r) => setTimeout(r, 2000))]);
  } catch {
    // the process may be gone already
  }
  if (child.exitCode === null) child.kill('SIGTERM');
  const timer = setTimeout(() => child.kill('SIGKILL'), 3000);
  await exited;
  clearTimeout(timer);
}

// ---- The reports

function generateReports() {
  execFileSync(
      join(here, 'generate.sh'),
      [
        opt.program,
        opt.root,
        join(here, 'data/sample.log'),
        '20240301',
        '20240304',
        ...DAYS.map((d) => d.day),
      ],
      {stdio: 'inherit'});

  // A hand-made page for one day that names files the page must refuse:
  // one outside the root, one not called report.txt, and a report.txt in
  // the root that is a link to a file outside it.
  const outside = join(opt.root, '../outside-root');
  rmSync(outside, {recursive: true, force: true});
  mkdirSync(outside);
  writeFileSync(
      join(outside, 'report.txt'), '<tr><td>OUTSIDE-ROOT</td></tr>\n');
  const day = join(opt.root, 'traffic', HOSTILE_DAY);
  mkdirSync(join(day, 'linked'), {recursive: true});
  writeFileSync(join(day, 'notes.txt'), '<tr><td>NOT-A-REPORT</td></tr>\n');
  symlinkSync(join(outside, 'report.txt'), join(day, 'linked/report.txt'));
  writeFileSync(join(day, 'report.php'), [
    '<table>',
    `<?php include("${outside}/report.txt") ?>`,
    `<?php include("${opt.root}traffic/${
        HOSTILE_DAY}/../../../outside-root/report.txt") ?>`,
    `<?php include("${day}/notes.txt") ?>`,
    `<?php include("${day}/linked/report.txt") ?>`,
    '</table>',
    '',
  ].join('\n'));
}

// ---- The checks

async function checkDay(page, base, expected) {
  await page.load(`${base}/index.php?day=${expected.day}`);
  const shown = await page.run(inspectPage);
  const report = shown.sections['day-report'];
  const quarantine = shown.sections['day-quarantine'];
  const summary = shown.sections['day-summary'];
  const day = expected.day;
  check(
      `${day}: report table has all rows`, report?.rows === expected.rows,
      `${report?.rows} checkboxes, expected ${expected.rows}`);
  check(`${day}: report table has its selall`, report?.heads === 1);
  check(
      `${day}: quarantine table has all rows`,
      quarantine?.rows === expected.quarantined,
      `${quarantine?.rows}, expected ${expected.quarantined}`);
  check(
      `${day}: summary totals`,
      summary?.text.includes(`Scanned ${expected.scanned}`) &&
          summary.text.includes(`Infected ${expected.infected}`),
      summary?.text.slice(0, 120));
  const range = shown.sections['range-report'];
  check(
      `${day}: range table has every day's rows`, range?.rows === RANGE.rows,
      `${range?.rows}, expected ${RANGE.rows}`);
  const rangeSummary = shown.sections['range-summary'];
  check(
      `${day}: range summary totals`,
      rangeSummary?.text.includes(`Scanned ${RANGE.scanned}`) &&
          rangeSummary.text.includes(`Infected ${RANGE.infected}`));
  check(
      `${day}: no script from the log ran`, shown.title === 'Scan reports',
      `title is ${shown.title}`);
  check(`${day}: no PHP from the log ran`, !shown.text.includes('INJECTED'));
  return shown;
}

async function checkInjections(page, base, shown) {
  // The PHP in the name reached the browser as the bytes of the log...
  const response = await fetch(`${base}/index.php?day=20240301`);
  const body = await response.text();
  check('the PHP text is sent as text', body.includes(PHP_NAME));
  const policy = response.headers.get('content-security-policy') || '';
  check(
      'the page forbids inline script',
      /script-src 'self'(;|$)/.test(policy) &&
          !policy.includes('unsafe-inline'),
      policy);
  // ...and the browser shows it, as the file's title, not its output.
  check(
      'the PHP text appears as text', shown.titles.includes(PHP_NAME),
      JSON.stringify(shown.titles.filter((t) => t.includes('php'))));
  // The script in the other name became a script element, which the
  // policy stopped.
  check(
      'the script from the log is in the page',
      shown.scripts.includes(SCRIPT_TEXT), JSON.stringify(shown.scripts));
  check(
      'the policy blocked it',
      shown.violations.some((v) => v.startsWith('script-src')),
      JSON.stringify(shown.violations));
  check(
      'select.js is the only script that loads',
      shown.scripts.filter((s) => s.startsWith('src:')).length === 1 &&
          shown.scripts.some((s) => s.endsWith('/select.js')));
}

async function checkSelectAll(page) {
  const state = async () => (await page.run(inspectPage)).sections;
  await page.click('day-report', 'input[id="selall"]');
  let sections = await state();
  check(
      'selall checks every row of its table',
      sections['day-report'].checked === sections['day-report'].rows &&
          sections['day-report'].rows > 0,
      `${sections['day-report'].checked} of ${sections['day-report'].rows}`);
  check(
      'selall leaves the other tables alone',
      sections['day-quarantine'].checked === 0 &&
          sections['range-report'].checked === 0);
  await page.click('day-quarantine', 'input[id="selall"]');
  sections = await state();
  check(
      'quarantine selall checks its rows',
      sections['day-quarantine'].checked === sections['day-quarantine'].rows);
  await page.click('range-report', 'input[id="selall"]');
  sections = await state();
  check(
      'range selall checks the rows of every day',
      sections['range-report'].checked === RANGE.rows);
  await page.click('day-report', 'input[id="selall"]');
  sections = await state();
  check('a second click clears the rows', sections['day-report'].checked === 0);
}

async function checkRefusals(page, base) {
  await page.load(`${base}/index.php?day=${HOSTILE_DAY}`);
  const shown = await page.run(inspectPage);
  check(
      'a file outside the root is not sent',
      !shown.text.includes('OUTSIDE-ROOT'));
  check(
      'a file not called report.txt is not sent',
      !shown.text.includes('NOT-A-REPORT'));
  check(
      'missing pages are reported',
      shown.sections['day-summary']?.text.includes('No summary of this day'));
  await page.load(`${base}/index.php?day=../range`);
  const fallback = await page.run(inspectPage);
  check(
      'an unknown day shows the latest day',
      fallback.sections['day-report']?.rows === DAYS[DAYS.length - 1].rows);
}

async function main() {
  generateReports();
  const profile = mkdtempSync(join(tmpdir(), 'scanreport-chromium-'));
  let php;
  let chromium;
  try {
    const port = await freePort();
    php = await startPhp(port);
    const base = `http://127.0.0.1:${port}`;
    chromium = await startChromium(profile);
    const {page} = chromium;

    for (const expected of DAYS) await checkDay(page, base, expected);
    await page.load(`${base}/index.php?day=20240301`);
    await checkInjections(page, base, await page.run(inspectPage));
    await checkSelectAll(page);
    await page.screenshot(opt.screenshot);
    console.log(`screenshot: ${opt.screenshot}`);
    await checkRefusals(page, base);
  } catch (error) {
    failed++;
    console.error(`FAIL: ${error.stack || error}`);
    if (php) console.error(`php -S said:\n${php.log.join('').slice(-3000)}`);
    if (chromium)
      console.error(
          `chromium said:\n${chromium.browser.log.join('').slice(-3000)}`);
  } finally {
    await stop(
        chromium?.browser, () => chromium.devtools.send('Browser.close'));
    await stop(php);
    // Chromium's helpers may still be letting go of the profile.
    try {
      rmSync(
          profile,
          {recursive: true, force: true, maxRetries: 10, retryDelay: 200});
    } catch (error) {
      console.error(`left behind: ${profile}: ${error.message}`);
    }
  }
  console.log(`example page: ${passed} passed, ${failed} failed`);
  process.exitCode = failed === 0 && passed > 0 ? 0 : 1;
}

const watchdog = setTimeout(() => {
  console.error('FAIL: the page test took longer than 90 s');
  for (const child of children) child.kill('SIGKILL');
  process.exit(1);
}, 90000);
watchdog.unref();
await main();
