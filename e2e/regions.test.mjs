// The regional profile builder in a browser: a new file, Denmark > NUTS1 >
// NUTS2 added, its child refused, and the region on the summary page.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, answer, pageText, screenshotPath, passAboutBox } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

test('a NUTS2 area is added, its child refused, and the region summarised', { skip: missing }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 800 } });
    await passAboutBox(page, program.url);

    // Regional Profile > Create New ARVEN file, then Explore and select regions.
    await page.click('#panel-3');
    await page.click('#item-3-1');
    await page.locator('#dialog').waitFor();
    await page.fill('#file-name', 'Sjælland profile');
    await page.click('#answer-Save');
    await pageText(page, 'File:');
    await page.click('#item-3-3');
    await page.locator('#list-0 .list-item').first().waitFor();

    const entry = (list, text) => page.locator(`#list-${list} .list-item`, { hasText: text });
    await entry(0, 'DK - Danmark').click();
    assert.equal(await entry(1, '000 - ALL').getAttribute('aria-selected'), 'true');
    await entry(1, 'DK0 - Danmark').click();
    await page.locator('#caption', { hasText: 'DK0 - Danmark currently selected' }).waitFor();
    await entry(2, 'DK02 - Sjælland').dblclick();
    const row = page.locator('#table-regions-row-0');
    await row.waitFor();
    assert.match(await row.innerText(), /DK02\s+Sjælland/);
    assert.equal(await page.locator('#table-regions tbody tr').count(), 1);

    // A child of the selected area is refused, naming that area.
    await entry(3, 'DK021').dblclick();
    await page.locator('#dialog').waitFor();
    assert.equal(await page.locator('#dialog .message p').textContent(),
      'This area is already included within your selection (DK02)');
    await answer(page, 'Area accounted', 'OK');
    assert.equal(await page.locator('#table-regions tbody tr').count(), 1);

    // A right click offers the area's menu.
    await entry(3, 'DK022').click({ button: 'right' });
    await page.locator('#context-mnuExploreRVC').waitFor();
    await page.keyboard.press('Escape');
    await page.locator('#context-menu').waitFor({ state: 'detached' });
    await page.screenshot({ path: screenshotPath('regions-builder') });

    // The map layers page replaces the lists and back.
    await page.click('#tool-GE');
    await pageText(page, 'RVC Data Available in Google Earth');
    await page.click('#tool-GE');
    await entry(0, 'DK - Danmark').waitFor();

    await page.click('#close-window');
    await page.locator('#panel-1').waitFor();
    const summary = await pageText(page, 'DK02');
    assert.match(summary, /NUTS\s+Region Name\s+Area \(km2\)/);
    assert.match(summary, /DK02\s+Sjælland\s+7,273/);  // the area with thousands marks
  } finally {
    await browser.close();
    program.child.kill();
  }
});
