// The analyst's pages beside the lists, as a person reaches them: the
// totals, a comparison of two files from the File menu and the explorer,
// the uncertainty of the figures with its k, and the table of
// uncertainties in the settings.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, pageText, screenshotPath,
  newFileWithRegion, clickMenuItem, chooseOperations, reportWindow } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

test('totals, a comparison of two files and the uncertainty of the figures', { skip: missing }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    const frame = page.frameLocator('#page');
    await newFileWithRegion(page, program.url, 'Scenario A');
    await chooseOperations(page, ['Winter cover crops', 'Hedgerow planting']);
    await page.click('#close-window');
    await page.locator('#panel-3').waitFor();

    // File 2 (the open one): a copy of the first with one operation more.
    await clickMenuItem(page, 'mnuFileSaveAs');
    await page.fill('#file-name', 'Scenario B');
    await page.locator('#file-name').press('Enter');
    await pageText(page, 'Scenario B');
    if (!(await page.locator('#item-2-3').isVisible())) await page.click('#panel-2');
    await page.click('#item-2-3');
    await page.click('#tab-tab1-1');
    await page.locator('#tree-catalogue .tree-node', { hasText: 'Riparian buffer strips' }).dblclick();
    await page.locator('#tab-tab1-2', { hasText: 'My RDP Operations (3)' }).waitFor({ timeout: 30000 });
    await page.click('#tab-tab1-2');

    // Totals: a page of its own, with the line on shared land.
    await page.click('#tool-Totals');
    const totals = await pageText(page, 'Totals of My Operations');
    assert.match(totals, /not additive/);
    assert.match(totals, /250\s/);

    // The comparison from the explorer's toolbar, in the report window.
    const compared = await reportWindow(page, async () => {
      await page.click('#tool-Compare');
      await page.fill('#file-name', 'Scenario A.arv');
      await page.locator('#file-name').press('Enter');
    }, 'Scenario comparison');
    const text = await compared.frameLocator('#page').locator('body').innerText();
    assert.match(text, /File 1: Scenario B\.arv/);
    assert.match(text, /File 2: Scenario A\.arv, regions: DK02/);
    assert.match(text, /Riparian buffer strips/);
    assert.match(text, /Total/);
    // One bar per operation; the two in both files differ by nothing.
    const bars = compared.frameLocator('#page').locator('#container svg .highcharts-series rect');
    await bars.first().waitFor({ state: 'attached' });
    assert.equal(await bars.count(), 3);
    await compared.screenshot({ path: screenshotPath('scenarios-comparison') });

    // The uncertainty page from the explorer, k chosen on the page.
    await page.bringToFront();
    await page.click('#tool-Uncertainty');
    assert.match(await pageText(page, 'Rank stability (top 5)'), /1,000 draws/);
    await frame.locator('a[href="10.unk"]').click();
    await pageText(page, 'Rank stability (top 10)');
    await frame.locator('#container svg').first().waitFor();
    await page.screenshot({ path: screenshotPath('scenarios-uncertainty') });

    // The table of uncertainties: a slider in the settings' Ranking tab.
    await page.click('#close-window');
    await page.locator('#panel-1').waitFor();
    if (!(await page.locator('#item-1-1').isVisible())) await page.click('#panel-1');
    await page.click('#item-1-1');
    await page.click('#tab-settings-4');
    const slider = page.locator('#slider-dq_uncertainty_3');
    await slider.waitFor();
    assert.equal(await slider.inputValue(), '40');
  } catch (e) {
    for (const [i, p] of browser.contexts().flatMap((c) => c.pages()).entries())
      await p.screenshot({ path: screenshotPath(`scenarios-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
  }
});
