// The report pack of the demo data: from the File menu, printed to PDF by
// Chromium (its pages and headings read back with pdfinfo and pdftotext),
// and from the command line with no Chromium to be found.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { spawnSync, execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, BUILD, makeSandbox, startProgram, launchBrowser, newFileWithRegion, clickMenuItem,
  chooseOperations, screenshotPath } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const hasTool = (tool) => spawnSync('sh', ['-c', `command -v ${tool}`]).status === 0;
const missing = (!fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`) ||
  (!hasTool('pdfinfo') && 'pdfinfo is missing: run scripts/setup.sh (poppler-utils)');

const OPERATIONS = ['Winter cover crops', 'Hedgerow planting', 'Riparian buffer strips'];

// The pages of the pack in their order, as its contents page lists them.
function sections(folder) {
  const index = fs.readFileSync(path.join(folder, 'index.htm'), 'utf8');
  return [...index.matchAll(/<li><a href="([^"]+)">([^<]+)<\/a> \(([^)]*)\)<\/li>/g)]
    .map((m) => ({ file: m[1], title: m[2], subject: m[3] }));
}

const pageText = (pdf, n) => execFileSync('pdftotext', ['-layout', '-f', String(n), '-l', String(n), pdf, '-'],
  { encoding: 'utf8' });

test('the report pack from the File menu, with its PDF, and from the command line without Chromium',
  { skip: missing, timeout: 240000 }, async () => {
    const sandbox = makeSandbox({ withStores: [STORE] });
    const program = await startProgram(sandbox);
    const browser = await launchBrowser();
    const folder = path.join(sandbox.app, 'exports', 'Pack_report_pack');
    try {
      const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
      await newFileWithRegion(page, program.url, 'Pack');
      await chooseOperations(page, OPERATIONS);
      await page.click('#close-window');
      await page.locator('#panel-3').waitFor();

      await clickMenuItem(page, 'mnuFileReportPack');
      // The writers' own notes (costs left at zero) come first; the pack's
      // message last, with its contents page opened beside.
      let said = '';
      for (;;) {
        const dialog = page.locator('#dialog');
        await dialog.waitFor({ timeout: 120000 });
        const title = await dialog.locator('.dialog-title').textContent();
        const id = await dialog.getAttribute('data-id');
        if (title === 'Export report pack') said = await dialog.innerText();
        await page.click('#answer-OK');
        await page.locator(`#dialog[data-id="${id}"]`).waitFor({ state: 'detached' });
        if (said) break;
      }
      assert.match(said, /The report pack is in .*Pack_report_pack: \d+ pages, the workbook report_pack\.xlsx and the PDF report_pack\.pdf\./s);
      await page.screenshot({ path: screenshotPath('report-pack-done') });
    } finally {
      await browser.close();
      program.child.kill();
    }

    // Every page: the summary, both reports of each operation, the lists, the
    // aggregation, both cost curves and the hotspot report.
    const pages = sections(folder);
    const titles = pages.map((p) => p.title);
    for (const name of OPERATIONS) {
      const mine = pages.filter((p) => p.subject.startsWith(`Operation: ${name}`)).map((p) => p.title);
      assert.deepEqual(mine, ['Operation summary', 'Detailed report'], name);
    }
    for (const title of ['Summary of the assessment', 'Ranked list', 'Mitigation list', 'Adaptation list',
      'Production list', 'Aggregation by RDP measure', 'Marginal abatement cost curve (GHG)',
      'Marginal abatement cost curve (adaptation)', 'Hotspot report: share in the risky bands']) {
      assert.ok(titles.includes(title), `${title} is not in the pack: ${titles.join(', ')}`);
    }
    for (const p of pages) assert.ok(fs.existsSync(path.join(folder, p.file)), p.file);
    for (const asset of ['javascript/highcharts.js', 'graphics/bar5.gif', 'report_pack.xlsx']) {
      assert.ok(fs.existsSync(path.join(folder, asset)), asset);
    }

    // The PDF: each page of the pack from a sheet of its own, in order, with
    // its caption; a page longer than a sheet goes on to the next ones.
    const pdf = path.join(folder, 'report_pack.pdf');
    const info = execFileSync('pdfinfo', [pdf], { encoding: 'utf8' });
    const count = Number(info.match(/^Pages:\s+(\d+)/m)[1]);
    assert.ok(count >= pages.length, `${count} PDF pages for ${pages.length} pack pages`);
    const starts = [];
    let next = 0;
    for (let n = 1; n <= count && next < pages.length; n++) {
      const text = pageText(pdf, n).replace(/\s+/g, ' ');
      const p = pages[next];
      if (text.includes(`${p.title} ${p.subject.replace(/&amp;/g, '&')} Region: DK`)) {
        starts.push(n);
        next++;
      }
    }
    assert.equal(starts.length, pages.length,
      `the caption of ${pages[next]?.title} (${pages[next]?.subject}) was not found on a page of its own`);
    assert.equal(starts[0], 1);
    const all = execFileSync('pdftotext', [pdf, '-'], { encoding: 'utf8' });
    for (const heading of ['Ranked list', 'Hotspot report', 'Aggregated by RDP Measures', ...OPERATIONS]) {
      assert.ok(all.includes(heading), `${heading} is not in the PDF's text`);
    }
    // The charts were drawn before the print: their axis titles are text of the PDF.
    assert.match(all, /tCO2e/);

    // From the command line, with Chromium looked for where there is none:
    // the rest is written, and the pack and the command say so.
    const file = path.join(sandbox.docs, 'My ARVEN Files', 'Pack.arv');
    const out = path.join(sandbox.dir, 'batch pack');
    const run = spawnSync(path.join(BUILD, 'arven'), ['report', file, '--out', out, '--app-dir', sandbox.app], {
      encoding: 'utf8', timeout: 120000,
      env: { ...process.env, HOME: sandbox.home, XDG_CONFIG_HOME: path.join(sandbox.home, '.config'),
        XDG_DOCUMENTS_DIR: sandbox.docs, LANG: 'C.UTF-8', ARVEN_CHROMIUM: path.join(sandbox.dir, 'no-chromium') },
    });
    assert.equal(run.status, 0, run.stderr);
    assert.match(run.stdout, /No PDF: Chromium was not found/);
    assert.match(fs.readFileSync(path.join(out, 'README.txt'), 'utf8'), /No PDF: Chromium was not found/);
    assert.ok(!fs.existsSync(path.join(out, 'report_pack.pdf')));
    assert.deepEqual(sections(out).map((p) => p.file), pages.map((p) => p.file));
    assert.ok(fs.statSync(path.join(out, 'report_pack.xlsx')).size > 0);

    // A command line it does not understand changes nothing.
    const wrong = spawnSync(path.join(BUILD, 'arven'), ['report', file, '--app-dir', sandbox.app], { encoding: 'utf8' });
    assert.equal(wrong.status, 2);
    assert.match(wrong.stderr, /report needs an assessment file and --out DIR/);
    fs.rmSync(sandbox.dir, { recursive: true, force: true });
  });
