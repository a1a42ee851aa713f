// What a browser makes of the pages of dnspair report.
//   node report.mjs PROGRAM SAMPLE BROWSER

import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, rmSync, writeFileSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after, afterEach, before, test} from 'node:test';
import {pathToFileURL} from 'node:url';
import {chromium} from 'playwright-core';
import {Capture} from './pcap.mjs';

const [program, sample, executablePath] = process.argv.slice(2);
const folder = mkdtempSync(join(tmpdir(), 'dnspair-browser-'));
const hostile = '<img src=x onerror=window.hacked=1>';
const shownHostile = hostile.replace('.', '\\.'); // a dot inside a label
const run = (...args) => execFileSync(program, args, {encoding: 'utf8', maxBuffer: 1 << 26});
let browser;

// A page of these captures in a window; what the browser complains of or asks for is collected.
async function open(captures, {width = 1200, colorScheme = 'light', javaScriptEnabled = true} = {}) {
  const file = join(folder, 'report.html');
  run('report', ...captures, '-q', '-o', file);
  const context = await browser.newContext({viewport: {width, height: 800}, colorScheme, javaScriptEnabled});
  const page = await context.newPage();
  page.complaints = [];
  page.requests = [];
  page.on('console', (message) => page.complaints.push(message.text()));
  page.on('pageerror', (error) => page.complaints.push(String(error)));
  page.on('request', (request) => page.requests.push(request.url()));
  await page.goto(pathToFileURL(file).href);
  return page;
}

const hostileCapture = () => {
  const capture = new Capture();
  capture.exchange([hostile], {at: 0, after: 1500, code: 2});
  capture.exchange(['</script><script>window.hacked=1</script>'], {at: 1000, after: 900});
  capture.exchange(['<!--', '\u2028\u202e'], {at: 2000, after: 700});
  capture.exchange([hostile, 'silent'], {at: 3000});
  capture.exchange(['late', 'example'], {at: 9000000, after: 300, code: 3});
  const file = join(folder, `${hostile.replace('/', '')}.pcap`);
  writeFileSync(file, capture.bytes());
  return file;
};

const shownRows = (page) => page.locator('#worst-table tbody tr:visible');
const texts = (page, column) =>
  page.$$eval('#worst-table tbody tr', (rows, at) => rows.filter((r) => !r.hidden).map((r) => r.cells[at].textContent), column);

before(async () => {
  browser = await chromium.launch({executablePath});
});
afterEach(async () => {
  for (const context of browser.contexts()) await context.close();
});
after(async () => {
  await browser?.close();
  rmSync(folder, {recursive: true, force: true});
});

test('a page opens without complaints and asks for nothing but itself', async () => {
  const page = await open([sample]);
  assert.deepEqual(page.complaints, []);
  assert.equal(page.requests.length, 1);
  assert.match(page.requests[0], /report\.html$/);
  assert.equal(await page.title(), 'DNS report: dns.pcap');
});

test('its numbers are those of the summary', async () => {
  const page = await open([sample]);
  const summary = JSON.parse(run('summary', sample, '-q', '--format', 'json'));
  const figures = Object.fromEntries(
    await page.$$eval('data[data-key]', (all) => all.map((one) => [one.dataset.key, [Number(one.value), one.textContent]])));
  for (const key of ['total', 'answered', 'failed', 'timeout', 'open']) {
    assert.equal(figures[key][0], summary.exchanges[key], key);
    assert.equal(figures[key][1].replace(/\D/g, ''), String(summary.exchanges[key]), key);
  }
  for (const key of ['p50', 'p95', 'p99']) assert.equal(figures[key][0], summary.response_time_us[key], key);

  const quantiles = await page.$$eval('#quantiles tbody td', (cells) => cells.map((cell) => cell.textContent));
  const expected = ['p50', 'p90', 'p95', 'p99', 'p99_9', 'max'].map((key) => (summary.response_time_us[key] / 1000).toFixed(3));
  assert.deepEqual(quantiles, expected);

  const results = Object.fromEntries(
    await page.$$eval('#results tbody tr', (rows) => rows.map((row) => [row.cells[0].textContent, Number(row.cells[1].dataset.v)])));
  const count = (name) => summary.groups.find((group) => group.name === name)?.count;
  assert.ok(results.NOERROR > 0);
  for (const name of ['NOERROR', 'NXDOMAIN', 'SERVFAIL', 'REFUSED']) assert.equal(results[name], count(name), name);
  assert.equal(results['timed out'], count('timeout'));

  const column = (table, at) =>
    page.$$eval(`${table} tbody tr`, (rows, i) => rows.reduce((sum, row) => sum + Number(row.cells[i].textContent), 0), at);
  assert.equal(await column('#spans', 1), summary.exchanges.total);
  assert.equal(await column('#bars', 1), summary.response_time_us.count);
});

test('tables sort by any column, in both directions, with the keyboard too', async () => {
  const page = await open([sample]);
  const header = page.getByRole('region', {name: 'Worst exchanges'}).getByRole('button', {name: 'Time ms'});
  const times = async () => (await texts(page, 2)).map((text) => (text === '-' ? -1 : Number(text)));
  await header.click();
  const down = await times();
  assert.ok(down.length > 50);
  assert.deepEqual(down, [...down].sort((a, b) => b - a));
  await header.press('Enter');
  assert.deepEqual(await times(), [...down].sort((a, b) => a - b));
  assert.equal(await page.locator('#worst-table th[aria-sort]').getAttribute('aria-sort'), 'ascending');
  await page.locator('#worst-table').getByRole('button', {name: 'Name'}).click();
  const names = await texts(page, 0);
  assert.deepEqual(names, [...names].sort((a, b) => a.localeCompare(b)));
});

test('the worst exchanges are filtered by words and by kind', async () => {
  const page = await open([sample]);
  const all = await shownRows(page).count();
  await page.getByLabel('Kind').selectOption('timeout');
  const summary = JSON.parse(run('summary', sample, '-q', '--format', 'json'));
  assert.equal(await shownRows(page).count(), summary.exchanges.timeout);
  assert.equal(await page.locator('#shown').textContent(), `${summary.exchanges.timeout} of ${all} shown`);
  await page.getByLabel('Containing').fill('nobody');
  assert.equal(await shownRows(page).count(), 1);
  await page.getByLabel('Kind').selectOption('');
  await page.getByLabel('Containing').fill('EXAMPLE.net aaaa');
  const found = await shownRows(page).allTextContents();
  assert.ok(found.length > 1 && found.length < all);
  for (const text of found) assert.match(text, /example\.net.*AAAA/);
});

test('names and file names that are markup are shown and not obeyed', async () => {
  const page = await open([hostileCapture()]);
  await page.getByLabel('Containing').fill('img');
  await page.locator('#worst-table').getByRole('button', {name: 'Name'}).click();
  assert.equal(await page.evaluate(() => window.hacked), undefined);
  assert.equal(await page.locator('img').count(), 0);
  assert.equal(await page.locator('script').count(), 1);
  assert.deepEqual(page.complaints, []);
  assert.ok((await page.title()).includes(hostile));
  assert.ok((await texts(page, 0)).includes(shownHostile));
  const unanswered = page.locator('section', {has: page.locator('#time-outs')}).locator('table');
  assert.ok((await unanswered.last().textContent()).includes(`${shownHostile}.silent`));
});

test('the policy of the page stops scripts that it did not come with', async () => {
  const page = await open([sample]);
  await page.evaluate(() => {
    const script = document.createElement('script');
    script.textContent = 'window.hacked = 1';
    document.body.append(script);
    document.body.insertAdjacentHTML('beforeend', '<img src="https://192.0.2.1/x.png" onerror="window.hacked = 2">');
  });
  await page.waitForTimeout(100);
  assert.equal(await page.evaluate(() => window.hacked), undefined);
  assert.ok(page.complaints.some((text) => text.includes('Content Security Policy')));
});

test('a phone scrolls sideways in wide tables only', async () => {
  for (const capture of [sample, hostileCapture()]) {
    const page = await open([capture], {width: 360});
    await page.$$eval('details', (all) => all.forEach((one) => (one.open = true)));
    assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 360);
    const outside = await page.$$eval('body *', (all) =>
      all.filter((one) => !one.closest('.wide, caption, #tip') && one.getBoundingClientRect().right > 360).map((one) => one.outerHTML));
    assert.deepEqual(outside, []);
  }
});

test('colours follow the system until they are chosen', async () => {
  const colours = (page) => page.evaluate(() => [getComputedStyle(document.body).backgroundColor, getComputedStyle(document.body).color]);
  const light = await colours(await open([sample]));
  const page = await open([sample], {colorScheme: 'dark'});
  const dark = await colours(page);
  assert.notDeepEqual(dark, light);
  const button = page.getByRole('button', {name: 'Colours'});
  await button.click(); // dark
  assert.deepEqual(await colours(page), dark);
  await button.click(); // light
  assert.deepEqual(await colours(page), light);
  await page.reload();
  assert.deepEqual(await colours(page), light);
});

// Contrast as WCAG 2.1 counts it (1.4.3): 4.5 to 1 for text, whose size here is always small.
test('text has enough contrast in both colours', async () => {
  for (const colorScheme of ['light', 'dark']) {
    const page = await open([sample], {colorScheme});
    const poor = await page.evaluate(() => {
      const parse = (colour) => colour.match(/[\d.]+/g).map(Number);
      const luminance = (colour) => {
        const [r, g, b] = parse(colour).slice(0, 3).map((v) => (v / 255 <= 0.03928 ? v / 255 / 12.92 : ((v / 255 + 0.055) / 1.055) ** 2.4));
        return 0.2126 * r + 0.7152 * g + 0.0722 * b;
      };
      const backOf = (element) => {
        for (let at = element; at; at = at.parentElement) {
          const colour = getComputedStyle(at).backgroundColor;
          if (parse(colour)[3] !== 0) return colour;
        }
        return 'rgb(255, 255, 255)';
      };
      const found = [];
      for (const element of document.querySelectorAll('h1, h2, h3, p, a, dt, dd, li, th, td, button, label, summary')) {
        const [a, b] = [luminance(getComputedStyle(element).color), luminance(backOf(element))];
        const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
        if (contrast < 4.5) found.push(`${element.outerHTML.slice(0, 80)}: ${contrast.toFixed(2)}`);
      }
      return found;
    });
    assert.deepEqual(poor, []);
  }
});

test('a pointer or an arrow key reads a plot', async () => {
  const page = await open([sample]);
  const plot = page.locator('svg.plot[data-table="bars"]');
  await plot.hover();
  assert.match(await page.locator('#tip').textContent(), /^From: .*\nAnswers: \d+\nShare: /);
  await page.mouse.move(0, 0);
  assert.ok(await page.locator('#tip').isHidden());
  await plot.focus();
  await page.keyboard.press('ArrowRight');
  const first = await page.locator('#tip').textContent();
  await page.keyboard.press('ArrowRight');
  assert.notEqual(await page.locator('#tip').textContent(), first);
  await page.keyboard.press('Escape');
  assert.ok(await page.locator('#tip').isHidden());
});

test('without scripts everything is there, and nothing that would not work', async () => {
  const page = await open([sample], {javaScriptEnabled: false});
  assert.ok(await page.locator('svg.plot').first().isVisible());
  assert.ok((await page.locator('#worst-table tbody tr').count()) > 50);
  assert.equal(await page.locator('button:visible, input:visible, select:visible').count(), 0);
});
