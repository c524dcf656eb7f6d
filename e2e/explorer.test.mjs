// The explorer in a browser: a new file with a region, three operations
// chosen, their summary report with its chart, the ranked list sorted, an
// uptake edited and recalculated, and one operation removed.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, answer, pageText, screenshotPath, newFileWithRegion,
  chooseOperations, reportWindow } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

test('an assessment goes from a new file to ranked operation reports', { skip: missing }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    const frame = page.frameLocator('#page');
    await newFileWithRegion(page, program.url, 'Explorer test');

    // The explorer opens on the chosen tab of the file, with no operation yet;
    // names with an ampersand and an apostrophe show as they are.
    const node = (text) => page.locator('#tree-catalogue .tree-node', { hasText: text });
    const names = ['Winter cover crops', 'Zero tillage & direct drilling', 'Hedgerow planting'];
    await chooseOperations(page, names);
    await page.click('#tab-tab1-1');
    await node("Wild bird seed mixtures (farmland birds' food plots)").waitFor();
    await node(names[1]).waitFor();

    // The chosen tab: the first operation's summary report with its chart.
    await page.click('#tab-tab1-2');
    await page.locator('#tree-chosen .tree-node', { hasText: 'Hedgerow planting' }).waitFor();
    await page.locator('#tree-chosen .tree-node', { hasText: 'Hedgerow planting' }).click();
    await pageText(page, 'Remove Operation');
    await frame.locator('#container svg').first().waitFor({ timeout: 15000 });
    await page.waitForTimeout(1500);  // the chart's animation
    const report = await frame.locator('body').innerText();
    assert.match(report, /Hedgerow planting/);
    assert.match(report, /Mitigation \(1 year to 250 years\)/);
    await page.screenshot({ path: screenshotPath('explorer-summary-report') });

    // The detailed report opens in the report window, a tab of its own.
    const report2 = await reportWindow(page, () => frame.locator('a[href$=".det"]').first().click(),
      'Detailed GHG emission and carbon sequestration data');
    await report2.screenshot({ path: screenshotPath('explorer-detailed-report') });
    await report2.close();

    // The ranked list, sorted by the combined score high to low.
    await page.click('#tab-tab2-1');
    await pageText(page, 'Ranked by total regional impact');
    const ranked = () => frame.locator('table').last().locator('tr');
    assert.equal(await ranked().count(), 4);
    // The column's title sorts as its arrow does.
    await frame.locator('a[href="sort.3s5"]', { hasText: 'Mitigation' }).click();
    await frame.locator('a[href="sort.4s5"]').first().waitFor();
    await page.screenshot({ path: screenshotPath('explorer-ranked') });

    // The uptake of one operation edited in the manager, then recalculated.
    await page.click('#tab-tab2-5');
    await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
    await pageText(page, 'Winter cover crops');
    const totals = () => frame.locator('tr', { hasText: 'tCO2e (total)' }).first().innerText();
    const before = await totals();
    await frame.locator('a[href="edit.opd"]').first().click();
    await page.locator('#grid-operations').waitFor();
    const uptake = page.locator('#grid-operations-cell-0-4');
    await uptake.click();
    const editor = page.locator('#grid-operations-editor');
    await editor.fill('100');
    await editor.press('Enter');
    await page.screenshot({ path: screenshotPath('explorer-operation-manager') });
    await page.click('#button-save');
    await answer(page, 'Save changes', 'Yes');
    await page.locator('#caption', { hasText: 'Saved 1 operation in Explorer test.arv: Winter cover crops.' }).waitFor();
    await page.click('#button-close');
    await answer(page, 'Recalculate', 'Yes');
    await page.locator('#tab-tab1-1').waitFor();
    await page.locator('#progress-done', { hasText: 'Recalculation finished: 1 operation.' }).waitFor();
    await pageText(page, 'Remove Operation', 30000);
    await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
    await frame.locator('font', { hasText: 'Winter cover crops' }).first().waitFor();
    const after = await totals();
    assert.notEqual(after, before, 'the figures follow the new uptake');
    // Twice the uptake doubles the 250-year total, give or take the rounding.
    const last = (row) => Number(row.trim().split(/\s+/).pop().replace(/,/g, ''));
    assert.ok(Math.abs(last(after) / last(before) - 2) < 0.01, `${before} -> ${after}`);
    await page.waitForTimeout(1500);  // the chart's animation
    await page.screenshot({ path: screenshotPath('explorer-after-recalculation') });

    // One operation removed from its report.
    await frame.locator('a[href$=".yyy"]').first().click();
    await page.locator('#tab-tab1-2', { hasText: 'My RDP Operations (2)' }).waitFor();
    assert.equal(await page.locator('#tree-chosen .tree-node.leaf').count(), 2);
  } catch (e) {
    // What the window showed when the test stopped.
    for (const [i, p] of browser.contexts().flatMap((c) => c.pages()).entries())
      await p.screenshot({ path: screenshotPath(`explorer-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
  }
});
