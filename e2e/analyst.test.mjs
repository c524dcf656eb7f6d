// What an analyst meets on the way through one assessment: number entry in
// the operation manager, figures on the lists, reference numbers of the
// detailed report, a measure link of the aggregation, the keyboard, and a
// chart saved as an image.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, answer, pageText, screenshotPath,
  newFileWithRegion, chooseOperations, reportWindow } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

// The text of the open dialog, once one is shown.
async function dialogText(page) {
  await page.locator('#dialog').waitFor();
  return page.locator('#dialog').innerText();
}

test('an analyst enters numbers, follows references and links, and uses the keyboard', { skip: missing }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 }, acceptDownloads: true });
    const frame = page.frameLocator('#page');

    await newFileWithRegion(page, program.url, 'Analyst test');

    // The File menu opens from the keyboard, and Escape closes it again.
    const fileMenu = page.locator('#menubar .menu-title').first();
    await fileMenu.focus();
    await page.keyboard.press('Enter');
    const firstItem = page.locator('#menubar .menu').first().locator('.menu-item').first();
    await firstItem.waitFor({ state: 'visible' });
    assert.ok(await firstItem.evaluate((e) => e === document.activeElement), 'the first item has the focus');
    await page.keyboard.press('Escape');
    await firstItem.waitFor({ state: 'hidden' });

    // Escape cancels the file chooser; Enter in its name box confirms.
    await page.click('#item-3-1');
    await page.locator('#file-name').waitFor();
    await page.keyboard.press('Escape');
    await page.locator('#dialog').waitFor({ state: 'detached' });
    await page.click('#item-3-2');
    await page.locator('#file-name').fill('Analyst test.arv');
    await page.locator('#file-name').press('Enter');
    await page.locator('#dialog').waitFor({ state: 'detached' });
    await pageText(page, 'Analyst test');
    await chooseOperations(page, ['Winter cover crops', 'Hedgerow planting', 'Riparian buffer strips along watercourses']);

    // The operation manager: a comma is no decimal separator here and is
    // refused, as is an uptake above 100; the point is read.
    await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
    await pageText(page, 'Remove Operation');
    await frame.locator('a[href="edit.opd"]').first().click();
    await page.locator('#grid-operations').waitFor();
    const head = await page.locator('#grid-operations thead').innerText();
    assert.match(head, /Uptake rate \(%\)/);
    const uptake = page.locator('#grid-operations-cell-0-4');
    const before = await uptake.innerText();
    const type = async (text) => {
      await uptake.click();
      await page.locator('#grid-operations-editor').fill(text);
      await page.locator('#grid-operations-editor').press('Tab');
    };
    await type('12,5');
    assert.match(await dialogText(page), /Invalid value/);
    await answer(page, 'Invalid value', 'OK');
    await page.locator('#grid-operations-cell-0-4', { hasText: before }).waitFor();
    await type('250');
    assert.match(await dialogText(page), /between 0 and 100/);
    await answer(page, 'Invalid value', 'OK');
    await page.locator('#grid-operations-cell-0-4', { hasText: before }).waitFor();
    await type('12.5');
    await page.locator('#grid-operations-row-0.changed').waitFor();
    assert.equal(await uptake.innerText(), '12.5');
    // Closing with the edit unsaved asks; No discards it and asks nothing more.
    await page.click('#button-close');
    await answer(page, 'Save changes', 'No');
    await page.locator('#tab-tab1-1').waitFor();
    await page.waitForTimeout(500);
    assert.equal(await page.locator('#dialog').count(), 0, 'no recalculation question');

    // The lists show figures with thousands marks and fixed decimals.
    await page.click('#tab-tab2-2');
    const mitigation = await pageText(page, 'Regional impact (tCO2e) / ha');
    assert.doesNotMatch(mitigation, /\d\.\d{4,}/, 'no raw doubles');
    assert.match(mitigation, /-?\d{1,3}(,\d{3})+/, 'totals grouped by thousands');

    // The detailed report's Refs column uses the numbers of its list.
    await page.click('#tab-tab2-5');
    await page.locator('#tree-chosen .tree-node', { hasText: 'Hedgerow planting' }).click();
    await pageText(page, 'Remove Operation');
    const detailed = await reportWindow(page, () => frame.locator('a[href$=".det"]').first().click(), 'References');
    const body = await detailed.frameLocator('#page').locator('body').innerText();
    const listed = [...body.matchAll(/^\[(\d+)\] /gm)].map((m) => Number(m[1]));
    assert.ok(listed.length > 0, 'the report has references');
    const cited = [...body.matchAll(/\[(\d+)\](?!\s)/g)].map((m) => Number(m[1]));
    assert.ok(cited.length > 0, 'the tables cite references');
    for (const n of cited) assert.ok(listed.includes(n), `[${n}] is in the list ${listed}`);
    await detailed.screenshot({ path: screenshotPath('analyst-detailed-report') });
    await detailed.close();

    // A measure link of the aggregation opens that post-2013 measure.
    await page.click('#tab-tab2-6');
    await pageText(page, 'Aggregated by RDP Measures (post-2013)');
    const measure = frame.locator('a[href$=".mmm"]').first();
    const name = (await measure.innerText()).trim();
    await measure.click();
    await page.waitForFunction(() => {
      const f = document.getElementById('page');
      return f.contentWindow.location.pathname.endsWith('/operation.htm') && f.contentDocument.readyState === 'complete';
    });
    const heading = (await frame.locator('font[size="4"]').first().innerText()).trim();
    // The tree's heading is the measure's code and the name the page linked.
    assert.match(heading.replace(/\s+/g, ' '), /^M\d+: /);
    assert.ok(heading.replace(/\s+/g, ' ').endsWith(': ' + name.replace(/\s+/g, ' ')), `${heading} / ${name}`);
    // The page is that measure's own: the operations of that measure, each
    // with its link in the tree.
    const listedOps = (await frame.locator('a[href$=".zzz"]').allInnerTexts()).map((t) => t.trim());
    assert.ok(listedOps.length > 0, 'the measure lists its operations');
    assert.equal(await frame.locator('a[href$=".xxx"], a[href$=".yyy"]').count() > 0, true, 'each can be chosen');
    await page.screenshot({ path: screenshotPath('analyst-measure') });

    // Arrow keys move in the tree.
    const tree = page.locator('#tree-chosen');
    const selected = () => tree.locator('.tree-node.selected').innerText();
    const was = await selected();
    await tree.focus();
    await page.keyboard.press('ArrowDown');
    await page.waitForFunction((w) => document.querySelector('#tree-chosen .tree-node.selected')?.innerText !== w, was);

    // A chart is saved as a PNG from its own menu.
    await page.click('#tab-tab2-1');
    await pageText(page, 'Ranked by total regional impact');
    await frame.locator('a[href$=".zzz"]', { hasText: 'Winter cover crops' }).click();
    await pageText(page, 'Remove Operation');
    await frame.locator('#container svg').first().waitFor({ timeout: 15000 });
    await frame.locator('.highcharts-contextbutton').click();
    const [download] = await Promise.all([
      page.waitForEvent('download'),
      frame.locator('.highcharts-menu-item', { hasText: 'PNG' }).click(),
    ]);
    const saved = path.join(sandbox.dir, 'chart.png');
    await download.saveAs(saved);
    const bytes = fs.readFileSync(saved);
    assert.equal(bytes.subarray(1, 4).toString(), 'PNG');
  } catch (e) {
    for (const [i, p] of browser.contexts().flatMap((c) => c.pages()).entries())
      await p.screenshot({ path: screenshotPath(`analyst-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
  }
});
