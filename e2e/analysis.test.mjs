// The analysis pages in a browser: an operation's regional breakdown and its
// chart, the aggregation by measure, a GHG and an adaptation cost curve in
// the report window, and a list exported as CSV.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, pageText, screenshotPath, newFileWithRegion,
  chooseOperations, reportWindow } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

// Waits for a chart drawn in a report tab, lets its animation end, and
// keeps a screenshot.
async function chartShown(tab, name) {
  await tab.frameLocator('#page').locator('#container svg').first().waitFor({ timeout: 15000 });
  await tab.waitForTimeout(1500);
  await tab.screenshot({ path: screenshotPath(name) });
}

test('breakdown, aggregation, cost curves and export of an assessment', { skip: missing }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 }, acceptDownloads: true });
    const frame = page.frameLocator('#page');
    await newFileWithRegion(page, program.url, 'Analysis test');
    await chooseOperations(page, ['Winter cover crops', 'Zero tillage & direct drilling', 'Hedgerow planting']);

    // The regional breakdown of one operation at 50 years, asked for in its
    // detailed report: one row per NUTS3 area of Sjælland in the report
    // window, where the link was clicked, then its bar chart there too.
    await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
    await pageText(page, 'Remove Operation');
    const detailed = await reportWindow(page, () => frame.locator('a[href$=".det"]').first().click(),
      'Regional breakdown');
    await detailed.frameLocator('#page').locator('a[href$=".rg5"]').first().click();
    const breakdown = await pageText(detailed, 'Time Horizon: 50 years');
    assert.match(breakdown, /Regional breakdown/);
    assert.match(breakdown, /Vest- og Sydsjælland/);
    const areas = await detailed.frameLocator('#page').locator('table').last().locator('tr').count();
    assert.ok(areas >= 3, `areas listed: ${areas - 1}`);
    await detailed.screenshot({ path: screenshotPath('analysis-breakdown') });
    await detailed.frameLocator('#page').locator('a[href$=".cg1"]').click();
    await pageText(detailed, 'Regional breakdown for Winter cover crops');
    await chartShown(detailed, 'analysis-breakdown-chart');
    await detailed.close();

    // The aggregation by measure.
    await page.click('#tab-tab2-6');
    const aggregation = await pageText(page, 'Aggregated by RDP Measures (post-2013)');
    assert.match(aggregation, /Adaptive Capacity Impact/);
    await page.screenshot({ path: screenshotPath('analysis-aggregation') });

    // A GHG cost curve of the operations, costs from the production figures.
    await page.click('#tab-tab2-1');
    await pageText(page, 'Ranked by total regional impact');
    await page.click('#tool-maccghg');
    await page.click('#radio-mac_source-1');
    await page.locator('#radio-mac_source-1:checked').waitFor();
    const ghg = await reportWindow(page, () => page.click('#button-CreateGHG'), 'MAC');
    await chartShown(ghg, 'analysis-mac-ghg');
    assert.ok(await ghg.frameLocator('#page').locator('.highcharts-title', { hasText: 'MAC (GHG) curve for RDP Operations' }).count());
    // The x axis is labelled along its length, not at its start alone.
    const xLabels = await ghg.frameLocator('#page').locator('.highcharts-xaxis-labels text').allTextContents();
    assert.ok(xLabels.filter((t) => /^\d[\d,]*$/.test(t.trim())).length >= 4, `x labels: ${xLabels}`);
    await ghg.close();

    // An adaptation cost curve on the costs entered (the training and advice
    // costs that new operations bring from the catalogue).
    await page.click('#tool-maccghg');
    await page.click('#radio-mac_source-2');
    await page.locator('#radio-mac_source-2:checked').waitFor();
    const adaptation = await reportWindow(page, () => page.click('#tool-maccadapt'), 'MAC');
    await chartShown(adaptation, 'analysis-mac-adaptation');
    assert.ok(await adaptation.frameLocator('#page').locator('.highcharts-title', { hasText: 'MAC (ADAPT) curve for RDP Operations' }).count());
    await adaptation.close();

    // The ranked list as a CSV download.
    await pageText(page, 'Ranked by total regional impact');
    const [download] = await Promise.all([page.waitForEvent('download'), frame.locator('a[href="5.exc"]').click()]);
    const csv = fs.readFileSync(await download.path(), 'utf8');
    // Its context comes first (file, region, horizon, units, date), an empty
    // line, then the table as it stands.
    // UTF-8 with a byte-order mark, so that a spreadsheet reads "æ" as such.
    assert.ok(csv.startsWith('\uFEFF'), 'byte-order mark');
    const [about, table] = csv.slice(1).split('\r\n\r\n');
    assert.match(about, /^File,.*Analysis test\.arv\r\nRegions,DK02 Sjælland\r\nTime horizon \(years\),50\r\n/);
    assert.match(about, /\r\nRanking weights \(%\),"mitigation 100, adaptation 100, production 100"\r\n/);
    assert.match(about, /\r\nExported,\d{4}-\d\d-\d\d \d\d:\d\d$/);
    assert.match(table, /^Operation ID,Operation name,Mitigation,Adaptation,Production,Combined,Data Quality\r\n/);
    assert.match(table, /Zero tillage & direct drilling/);
    assert.equal(table.trim().split('\r\n').length, 4);
  } catch (e) {
    // What the window showed when the test stopped.
    for (const [i, p] of browser.contexts().flatMap((c) => c.pages()).entries())
      await p.screenshot({ path: screenshotPath(`analysis-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
  }
});
