// The admin build's "RVC Data Import" and "Master Store Backups" in a browser:
// import the demo GIS export of one RVC, aggregate it, back up the master
// stores, break one and restore it.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { execFileSync } from 'node:child_process';
import { APP_SOURCE, startProgram, answer, screenshotPath, demoMastersSandbox, onProgramPage } from './lib.mjs';

const sql = (store, query) => execFileSync('sqlite3', [store, query], { encoding: 'utf8' }).trim();

test('an RVC export is imported and aggregated from the dialog, and a backup restores the stores', async (t) => {
  const exportStore = path.join(APP_SOURCE, 'dbases/rvcs/NUTS3_Import.mdb');
  const sandbox = demoMastersSandbox(t, [exportStore]);
  if (!sandbox) return;
  fs.mkdirSync(path.join(sandbox.app, 'dbases/rvcs'));
  fs.copyFileSync(exportStore, path.join(sandbox.app, 'dbases/rvcs/NUTS3_Import.mdb'));
  const rvcs = path.join(sandbox.app, 'dbases/arven_rvcs.mdb');
  sql(rvcs, 'DELETE FROM "NUTS3_Soil erosion risk"; DELETE FROM NUTS2_RVC_Data_Dist WHERE "RVC ID" = 1;');
  const program = await startProgram(sandbox, 'arven-admin');
  await onProgramPage(program, { width: 1200, height: 800 }, async (page) => {
    await page.goto(program.base + '/admin/');
    await page.click('#button-rvcimport');
    await page.goto(program.base + '/admin/rvcimport/');
    await page.locator('#list-rvc-item-0.selected').waitFor();
    assert.match(await page.locator('#list-rvc-item-0').textContent(), /1 - Soil erosion risk/);

    await page.click('#button-import');
    await answer(page, 'RVC Data Import', 'OK');
    await page.locator('text=NUTS3_Soil erosion risk: ').waitFor();
    assert.ok(Number(sql(rvcs, 'SELECT count(*) FROM "NUTS3_Soil erosion risk"')) > 20);

    // Only NUTS2, for RVC 1: the other levels keep their rows.
    const nuts3Before = sql(rvcs, 'SELECT count(*) FROM NUTS3_RVC_Data_Dist');
    for (const k of [0, 1, 3]) {
      await page.click(`#list-levels-item-${k}`);
      await page.locator(`#list-levels-item-${k}:not(.selected)`).waitFor();
    }
    await page.click('#button-aggregate');
    await answer(page, 'RVC Data Import', 'OK');
    await page.locator('text=NUTS<k>_RVC_Data_Dist rows').waitFor();
    await page.screenshot({ path: screenshotPath('rvc_import') });
    assert.equal(sql(rvcs, 'SELECT count(*) FROM NUTS3_RVC_Data_Dist'), nuts3Before);
    assert.equal(sql(rvcs, 'SELECT sum(Percent) BETWEEN 99 * 9 AND 101 * 9 FROM NUTS2_RVC_Data_Dist WHERE "RVC ID" = 1'), '1');

    // A backup, a damaged store, and the restore after its question.
    await page.goto(program.base + '/admin/');
    await page.click('#button-backups');
    await page.goto(program.base + '/admin/backups/');
    await page.click('#button-backup');
    await answer(page, 'Backup', 'OK');
    await page.locator('#list-backups-item-0').waitFor();
    sql(rvcs, 'DELETE FROM NUTS3');
    await page.click('#list-backups-item-0');
    await page.locator('#list-backups-item-0.selected').waitFor();
    await page.click('#button-restore');
    await answer(page, 'Restore', 'Yes');
    await answer(page, 'Restore', 'OK');
    await page.screenshot({ path: screenshotPath('backups') });
    assert.equal(sql(rvcs, 'SELECT count(*) FROM NUTS3'), '20');
  });
});

test('the all-country store window runs Code Gen', async (t) => {
  const sandbox = demoMastersSandbox(t);
  if (!sandbox) return;
  const program = await startProgram(sandbox, 'arven-admin');
  await onProgramPage(program, { width: 1200, height: 800 }, async (page) => {
    await page.goto(program.base + '/admin/');
    await page.click('#button-prepro');
    await page.goto(program.base + '/admin/prepro/');
    await page.click('#button-allcountry');
    await page.goto(program.base + '/admin/allcountry/');
    await page.locator('#list-actions-item-0.selected').waitFor();
    assert.equal(await page.locator('#list-actions-item-0').textContent(), 'Code Gen');
    await page.click('#button-run');
    await answer(page, 'Code Gen', 'OK');
    await page.screenshot({ path: screenshotPath('all_country') });
    const code = fs.readFileSync(path.join(sandbox.app, 'dbases/prepro/gencode.txt'), 'utf8');
    assert.match(code, /"NUTS3_OPS_LU"/);
  });
});
