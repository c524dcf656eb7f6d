// The RVC browser and the hotspot report in a browser, on the demo data:
// country > NUTS1 > details with their pies from the region builder; the
// hotspot report from the summary page with its tabs, and a second run
// cancelled; the report window reused and closed from its menu.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, pageText, screenshotPath,
  newFileWithRegion, chooseOperations } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

async function withProgram(body) {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 800 } });
    await body(page, program, sandbox);
  } finally {
    await browser.close();
    program.child.kill();
  }
}

test('the RVC browser drills down from the country to an area\'s details', { skip: missing }, async () => {
  await withProgram(async (page, program) => {
    await newFileWithRegion(page, program.url, 'RVC browse');
    await page.click('#item-3-4');
    const entry = (list, text) => page.locator(`#list-${list} .list-item`, { hasText: text });
    await entry(0, 'DK - Danmark').click();
    await page.locator('#caption', { hasText: 'DK - Danmark currently selected' }).waitFor();
    await page.click('#tool-RVC');
    await page.locator('#tool-Index').waitFor();
    const frame = page.frameLocator('#page');

    // The country's page: its NUTS1 areas, coloured, and the colour key.
    const country = await pageText(page, 'Colour code key');
    assert.match(country, /^Index/);
    assert.equal(await frame.locator('table').last().locator('td[bgcolor]').count(), 50);
    await frame.locator('a', { hasText: /^Danmark$/ }).click();

    // NUTS1: the breadcrumb and one row per NUTS2 area.
    const nuts1 = await pageText(page, 'NUTS1: Danmark');
    assert.match(nuts1, /Hovedstaden/);
    assert.match(nuts1, /Sjælland/);
    await page.screenshot({ path: screenshotPath('rvc-nuts1') });
    await frame.locator('a[href="DK01_details.htm"]').click();

    // The details of Hovedstaden: one pie per RVC.
    const details = await pageText(page, 'European range:', 20000);
    assert.match(details, /NUTS2: Hovedstaden \(DK01\)/);
    assert.match(details, /Regional range:/);
    await frame.locator('#container1 svg').waitFor({ timeout: 15000 });
    assert.ok(await frame.locator('.highcharts-pie-series').count() >= 4);
    await page.waitForTimeout(1200);  // the pies' animation
    await page.screenshot({ path: screenshotPath('rvc-details'), fullPage: true });

    // The breadcrumb leads back to the index of the countries.
    await frame.locator('a', { hasText: 'NUTS1: Danmark' }).click();
    // The details page names Hovedstaden too: wait for the NUTS1 page's own link.
    await frame.locator('a[href="DK01_details.htm"]').waitFor();
    await frame.locator('a[href="index.htm"]').click();
    await pageText(page, 'Regional Variation Categories (RVCs)');
    await page.click('#close-window');
    await page.locator('#list-0').waitFor();
  });
});

test('the hotspot report runs from the summary page, switches tabs and is cancelled', { skip: missing }, async () => {
  await withProgram(async (page, program, sandbox) => {
    await newFileWithRegion(page, program.url, 'Hotspots');
    const main = page.frameLocator('#page');
    await main.locator('a[href="hot.hot"]').click();
    await page.locator('#tab-report-1').waitFor({ timeout: 20000 });
    const rep1 = await pageText(page, 'Hotspot Report: Hotspots.arv');
    assert.match(rep1, /falls into the high risk band for the criteria shown\./);
    assert.match(rep1, /Hotspots are relative to: the EU-27\./);
    assert.match(rep1, /Vest- og Sydsjælland/);
    await page.screenshot({ path: screenshotPath('rvc-hotspot-rep1') });

    await page.click('#tab-report-2');
    const rep2 = await pageText(page, 'average risk class for each NUTS3 area');
    assert.match(rep2, /Colour code key/);
    await page.screenshot({ path: screenshotPath('rvc-hotspot-rep2') });

    // A second run, cancelled from its wait page. Its figures would differ
    // (the store's distributions changed), and the store stays locked by
    // another process until the cancel has been clicked, so the run cannot
    // finish first: the pages of the first run must stay as they were.
    const rep1File = path.join(sandbox.app, 'hotspot_rep1.htm');
    const before = fs.readFileSync(rep1File, 'utf8');
    const store = path.join(sandbox.app, 'dbases', STORE);
    execFileSync('sqlite3', [store, 'UPDATE "NUTS3_RVC_Data_Dist" SET "Percent" = 100 - "Percent";']);
    await page.click('#close-window');
    await page.locator('#panel-3').waitFor();
    const lock = spawn('sqlite3', [store], { stdio: ['pipe', 'pipe', 'inherit'] });
    await new Promise((resolve, reject) => {
      lock.stdout.on('data', (d) => { if (String(d).includes('locked')) resolve(); });
      lock.on('exit', (code) => reject(new Error('the locking sqlite3 ended with ' + code)));
      lock.stdin.write(".timeout 10000\n.bail on\nBEGIN EXCLUSIVE;\nSELECT 'locked';\n");
    });
    try {
      await main.locator('a[href="hot.hot"]').click();
      // The lock goes only once the server has the cancel.
      await Promise.all([page.waitForResponse((r) => r.url().endsWith('/hot.hcn'), { timeout: 20000 }),
        page.frameLocator('#page').locator('a[href="hot.hcn"]').click({ timeout: 20000, noWaitAfter: true })]);
    } finally {
      lock.stdin.end('COMMIT;\n');
      await new Promise((resolve) => lock.on('close', resolve));
    }
    await page.locator('#tab-report-1').waitFor({ timeout: 20000 });
    await pageText(page, 'Hotspot Report: Hotspots.arv');
    assert.equal(fs.readFileSync(rep1File, 'utf8'), before);
    await page.locator('#progress progress').waitFor({ state: 'detached' });
  });
});

test('the report window is one browser tab, reused, and closes from its menu', { skip: missing }, async () => {
  await withProgram(async (page, program) => {
    await newFileWithRegion(page, program.url, 'Reports');
    await chooseOperations(page, ['Winter cover crops']);
    const frame = page.frameLocator('#page');
    await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
    await pageText(page, 'Remove Operation');
    const [report] = await Promise.all([page.context().waitForEvent('page'),
      frame.locator('a[href$=".det"]').first().click()]);
    await report.frameLocator('#page').locator('body', { hasText: 'Regional breakdown' }).waitFor();
    const tabs = page.context().pages().length;

    // The regional breakdown asked for in the report, then its chart: both
    // go to the report's tab, where the links were; the explorer stays.
    const explorerPage = await frame.locator('body').innerText();
    await report.frameLocator('#page').locator('a[href$=".rg5"]').first().click();
    assert.match(await pageText(report, 'Time Horizon: 50 years'), /Vest- og Sydsjælland/);
    assert.equal(await frame.locator('body').innerText(), explorerPage);
    await report.frameLocator('#page').locator('a[href$=".cg1"]').click();
    await report.frameLocator('#page').locator('body', { hasText: 'Regional breakdown for Winter cover crops' })
      .waitFor({ timeout: 15000 });
    assert.equal(page.context().pages().length, tabs);
    await report.hover('.menu-title >> text=File');
    await report.locator('#menu-mnuPrint').waitFor();
    await report.screenshot({ path: screenshotPath('report-window') });

    // Close from its menu: the tab does not turn into the explorer.
    await report.locator('#menu-mnuClose').click();
    await report.waitForEvent('close', { timeout: 5000 }).catch(() => {});
    if (!report.isClosed()) {
      await report.locator('p.ended', { hasText: 'This window is closed' }).waitFor();
      assert.equal(await report.locator('#tree-chosen').count(), 0);
    }
    await page.locator('#tree-chosen').waitFor();
  });
});
