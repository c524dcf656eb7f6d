// The static web export: written from the admin console, then opened from
// disk with the program gone, page by page, with every link followed.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { pathToFileURL, fileURLToPath } from 'node:url';
import { APP_SOURCE, makeSandbox, startProgram, onProgramPage, launchBrowser, screenshotPath } from './lib.mjs';

const stores = ['arven_operations.mdb', 'arven_rvcs.mdb', 'new_arven_operations_DK.mdb',
  'new_arven_operations_IE.mdb', 'new_arven_operations_LU.mdb'];
const missing = !stores.every((s) => fs.existsSync(path.join(APP_SOURCE, 'dbases', s)))
  && 'the demo stores are missing: run scripts/setup.sh';

// Every address a page names: links, scripts, images, style sheets and the
// body's background.
const addresses = (page) => page.evaluate(() => {
  const out = [];
  for (const a of document.querySelectorAll('a[href]')) out.push({ kind: 'a', raw: a.getAttribute('href'), url: a.href });
  for (const e of document.querySelectorAll('script[src], img[src]')) out.push({ kind: e.tagName, raw: e.getAttribute('src'), url: e.src });
  for (const l of document.querySelectorAll('link[href]')) out.push({ kind: 'link', raw: l.getAttribute('href'), url: l.href });
  const bg = document.body && document.body.getAttribute('background');
  if (bg) out.push({ kind: 'background', raw: bg, url: new URL(bg, document.baseURI).href });
  return out;
});

test('the static web export opens from disk with no console error and no dead link', { skip: missing, timeout: 600000 }, async () => {
  const sandbox = makeSandbox({ withStores: stores });
  const program = await startProgram(sandbox, 'arven-admin');
  const folder = path.join(sandbox.app, 'exports', 'web');
  await onProgramPage(program, { width: 1280, height: 900 }, async (page) => {
    await page.goto(program.base + '/admin/');
    await page.click('#button-webexport');
    await page.waitForFunction(async () => (await (await fetch('/admin/webexport/state.json')).json()).open);
    await page.goto(program.base + '/admin/webexport/');
    await page.click('#button-export');
    await page.locator('#caption', { hasText: /^Exported \d+ pages to .*web; open index\.html there\.$/ })
      .waitFor({ timeout: 300000 });
    await page.screenshot({ path: screenshotPath('admin-webexport') });
  });
  // The program has ended: a page that called it would fail now.
  assert.ok(fs.existsSync(path.join(folder, 'index.html')));
  assert.deepEqual(fs.readdirSync(path.dirname(folder)).filter((f) => f.startsWith('.')), [],
    'no temporary folder is left');

  const browser = await launchBrowser();
  try {
    const page = await browser.newPage();
    const faults = [];
    page.on('console', (m) => { if (m.type() === 'error') faults.push(`${page.url()}: console: ${m.text()}`); });
    page.on('pageerror', (e) => faults.push(`${page.url()}: ${e.message}`));
    page.on('requestfailed', (r) => faults.push(`${page.url()}: failed ${r.url()}`));
    page.on('request', (r) => { if (!r.url().startsWith('file://')) faults.push(`${page.url()}: asks ${r.url()}`); });

    const start = pathToFileURL(path.join(folder, 'index.html')).href;
    const seen = new Set([start]);
    const queue = [start];
    const kinds = new Map();
    let pies = 0;
    while (queue.length) {
      const url = queue.shift();
      await page.goto(url, { waitUntil: 'load' });
      const name = path.basename(fileURLToPath(url));
      const kind = name === 'index.html' ? 'start' : name === 'index.htm' ? 'rvc index'
        : name === 'catalogue.htm' ? 'catalogue' : name.startsWith('operation_') ? 'operation'
          : name.endsWith('_details.htm') ? 'details' : 'area';
      kinds.set(kind, (kinds.get(kind) ?? 0) + 1);
      if (kind === 'details') pies += await page.locator('.highcharts-container').count();
      for (const a of await addresses(page)) {
        const where = `${name}: ${a.kind} "${a.raw}"`;
        assert.ok(a.url.startsWith('file://'), `${where} leaves the export`);
        const target = fileURLToPath(a.url.replace(/[?#].*$/, ''));
        assert.ok(target.startsWith(folder + path.sep), `${where} leaves the export`);
        assert.ok(fs.existsSync(target) && fs.statSync(target).isFile(), `${where} is dead`);
        const next = pathToFileURL(target).href;
        if (a.kind === 'a' && /\.html?$/.test(target) && !seen.has(next)) {
          seen.add(next);
          queue.push(next);
        }
      }
    }
    assert.deepEqual(faults, []);
    // Every written page is reached, and every kind is there: the two
    // demo countries' areas at each level with their details, each operation.
    const written = fs.readdirSync(folder).filter((f) => /\.html?$/.test(f));
    assert.equal(seen.size, written.length, 'pages no link reaches');
    for (const k of ['start', 'rvc index', 'catalogue', 'operation', 'details', 'area'])
      assert.ok(kinds.get(k) > 0, `no ${k} page: ${[...kinds]}`);
    assert.equal(kinds.get('details'), kinds.get('area'));
    assert.ok(['DK.htm', 'IE.htm', 'LU.htm'].every((f) => written.includes(f)), written.join(' '));
    assert.ok(pies > 0, 'the details pages draw their pie charts');
    // A pie is drawn with its slices, as in the program.
    await page.goto(pathToFileURL(path.join(folder, 'IE_details.htm')).href);
    await page.locator('.highcharts-point').first().waitFor();
    await page.waitForTimeout(1500);  // the pie's animation
    assert.ok(await page.locator('#container1 .highcharts-point').count() > 1, 'the first pie has its slices');
    await page.screenshot({ path: screenshotPath('webexport-details') });
  } finally {
    await browser.close();
    fs.rmSync(sandbox.dir, { recursive: true, force: true });
  }
});
