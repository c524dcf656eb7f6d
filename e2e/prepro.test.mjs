// The admin build's "Data Pre-processor" in a browser: copy the masters,
// run Luxembourg in mode ALL, and find its published archive.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { startProgram, answer, screenshotPath, demoMastersSandbox, onProgramPage } from './lib.mjs';

test('a pre-processing run from the dialog publishes a country store', async (t) => {
  const sandbox = demoMastersSandbox(t);
  if (!sandbox) return;
  const program = await startProgram(sandbox, 'arven-admin');
  await onProgramPage(program, { width: 1200, height: 800 }, async (page) => {
    await page.goto(program.base + '/admin/');
    await page.click('#button-prepro');
    await page.goto(program.base + '/admin/prepro/');
    await page.locator('#list-countries-item-2').waitFor();
    await page.click('#button-copydbs');
    await answer(page, 'Copy DBs', 'OK');
    await page.click('#list-countries-item-2');  // LU - Luxembourg
    await page.locator('#list-countries-item-2.selected').waitFor();
    await page.click('#list-mode-item-5');       // Add new and update existing (ALL)
    await page.locator('#list-mode-item-5.selected').waitFor();
    await page.click('#button-start');
    await answer(page, 'Pre-processing', 'OK');  // "Done"
    await page.screenshot({ path: screenshotPath('prepro') });
    const archive = path.join(sandbox.app, 'dbases/prepro/zipped/arven_db_LU.zip');
    assert.ok(fs.existsSync(archive));
    const version = fs.readFileSync(path.join(sandbox.app, 'dbases/prepro/zipped/arven_db_version_LU.csv'), 'utf8');
    assert.match(version, /^\d\d\/\d\d\/\d{4}\n$/);
  });
});
