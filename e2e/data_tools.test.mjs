// The admin data tools in a browser, on a copy of the demo masters.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { execFileSync } from 'node:child_process';
import { BUILD, startProgram, answer, screenshotPath, demoMastersSandbox, onProgramPage, editCell } from './lib.mjs';

const sql = (db, query) => execFileSync('sqlite3', ['-cmd', '.timeout 10000', db, query], { encoding: 'utf8' }).trim();
const caption = (page, text) => page.locator('#caption', { hasText: text }).waitFor();

// Opens a tool from the console's table of tools.
async function openTool(page, program, id) {
  await page.goto(program.base + '/admin/');
  await page.click(`#button-${id}`);
  // The window is open before this tab goes to it; a tab that came first
  // would be sent back to the main window.
  await page.waitForFunction(async (w) => (await (await fetch(`/admin/${w}/state.json`)).json()).open, id);
  await page.goto(program.base + `/admin/${id}/`);
}

test('the data tools round-trip a table, correct a reference and refuse bad values', async (t) => {
  const sandbox = demoMastersSandbox(t);
  if (!sandbox) return;
  const master = path.join(sandbox.app, 'dbases/arven_operations.mdb');
  // A Luxembourg store to drill into.
  execFileSync(path.join(BUILD, 'arven-admin'),
    ['preprocess', '--app-dir', sandbox.app, '--countries', 'LU', '--level', '3', '--mode', 'all'],
    { env: { ...process.env, HOME: sandbox.home, XDG_CONFIG_HOME: path.join(sandbox.home, '.config'), LANG: 'C.UTF-8' }, stdio: 'ignore' });
  const program = await startProgram(sandbox, 'arven-admin');
  await onProgramPage(program, { width: 1280, height: 900 }, async (page) => {
    // References out to a workbook and back: nothing changes.
    const before = sql(master, 'SELECT * FROM "References" ORDER BY rowid');
    await openTool(page, program, 'sheets');
    await page.locator('#list-tables .list-item', { hasText: /^References \(\d+ rows?\)$/ }).click();
    await page.click('#button-export');
    await page.locator('#file-name').fill('refs');
    await page.click('#answer-Save');
    await caption(page, /^Exported the \d+ rows of "References" to refs\.xlsx\.$/);
    assert.ok(fs.existsSync(path.join(sandbox.app, 'exports/refs.xlsx')));
    await page.click('#button-import');
    await page.locator('#file-list li', { hasText: 'refs.xlsx' }).click();
    await page.click('#answer-Open');
    await caption(page, /^Imported \d+ rows into "References" from refs\.xlsx: 0 rows added, removed or altered; 0 operations due/);
    assert.equal(sql(master, 'SELECT * FROM "References" ORDER BY rowid'), before);
    await page.screenshot({ path: screenshotPath('admin-sheets') });

    // A reference corrected, where it is used, and kept while used.
    await openTool(page, program, 'references');
    await page.locator('#list-refs-item-1', { hasText: /^2 - Larsen & Quinn \(2011\) \(used by \d+ rows\)$/ }).click();
    await page.locator('#ref-title', { hasText: 'Reference 2' }).waitFor();
    await page.locator('#table-uses tr', { hasText: 'Mitigation_Activity_Emission_Factors' }).first().waitFor();
    const short = page.locator('[id="input-f:Ref Short"]');
    await short.fill('Larsen & Quinn (2012)');
    await short.press('Enter');
    await page.click('#button-save');
    await caption(page, 'Saved reference 2 "Larsen & Quinn (2012)".');
    assert.equal(sql(master, 'SELECT "Ref Short" FROM "References" WHERE "Ref ID" = 2'), 'Larsen & Quinn (2012)');
    const refs = sql(master, 'SELECT * FROM "References" ORDER BY rowid');
    await page.click('#button-delete');
    await answer(page, 'References', 'Yes');
    await answer(page, 'References', 'OK');  // in use: refused
    assert.equal(sql(master, 'SELECT * FROM "References" ORDER BY rowid'), refs);

    // The Refs of a factor row chosen from the list: reference 3 added.
    await page.locator('#list-activities .list-item', { hasText: 'Mineral nitrogen fertiliser' }).click();
    await page.locator('#list-factorrows-item-0').click();
    await page.locator('#list-rowrefs-item-2').click();
    await caption(page, /^Refs of the factor row: .*3\. Not saved yet\.$/);
    await page.click('#button-saverefs');
    await caption(page, /^Saved the Refs .*3 of Mitigation_Activity_Emission_Factors .*due for the next run by date\.$/);
    assert.match(sql(master, 'SELECT Refs FROM Mitigation_Activity_Emission_Factors WHERE "Activity ID" = 1 ORDER BY rowid LIMIT 1'), /, 3$/);
    await page.screenshot({ path: screenshotPath('admin-references') });

    // The rows behind operation 1's figures in Luxembourg (LU000).
    await openTool(page, program, 'drill');
    await page.locator('#list-stores .list-item', { hasText: 'dbases/prepro/new_arven_operations_LU.mdb' }).click();
    await page.fill('#input-area', 'LU000');
    await page.press('#input-area', 'Enter');
    await page.locator('#list-operations .list-item', { hasText: /^1 - / }).click();
    await page.click('#button-show');
    await page.locator('#drill-heading', { hasText: 'in LU000 "Luxembourg" (NUTS3)' }).waitFor();
    const store = path.join(sandbox.app, 'dbases/prepro/new_arven_operations_LU.mdb');
    const values = sql(store, 'SELECT "Impact value" FROM NUTS3_OPS WHERE NUTS3_ID = 20 AND "Operation ID" = 1 ORDER BY rowid').split('\n');
    const shown = await page.locator('#drill-0 tr td:nth-child(4)').allInnerTexts();
    // sqlite3 prints 15 digits, the page the shortest text of the stored double.
    assert.equal(shown.length, values.length);
    shown.forEach((v, i) => assert.ok(Math.abs(Number(v) - Number(values[i])) <= 1e-9 * Math.max(1, Math.abs(Number(v))), `${v} against ${values[i]}`));
    await page.screenshot({ path: screenshotPath('admin-drill'), fullPage: true });

    // A practicality item added and assigned to operation 5; an empty key refused.
    await openTool(page, program, 'lists');
    await page.locator('#grid-rows-cell-8-1').waitFor();
    await page.click('#button-addrow');
    await editCell(page, 'rows', 9, 0, '10');
    await editCell(page, 'rows', 9, 1, 'Needs a water licence');
    await page.click('#button-save');
    await caption(page, 'Saved 10 rows of "Practicality_Items": 1 added, removed or altered; 0 operations due for the next run by date.');
    await page.locator('#list-tables-item-1').click();
    await page.locator('#grid-rows-cell-0-0').waitFor();
    const last = Number(sql(master, 'SELECT COUNT(*) FROM Operations_Practicality'));  // the new row's index
    await page.click('#button-addrow');
    await page.locator(`#grid-rows-cell-${last}-0`).waitFor();
    await editCell(page, 'rows', last, 0, '5');
    await editCell(page, 'rows', last, 1, '10');
    await page.click('#button-save');
    await caption(page, /^Saved \d+ rows of "Operations_Practicality": 1 added, removed or altered; 1 operation due for the next run by date\.$/);
    assert.equal(sql(master, 'SELECT "Operation ID" FROM Operations_Practicality WHERE "Practicality ID" = 10'), '5');
    const items = sql(master, 'SELECT * FROM Practicality_Items ORDER BY rowid');
    await page.locator('#list-tables-item-0').click();
    await page.locator('#grid-rows-cell-9-0', { hasText: '10' }).waitFor();
    await page.click('#grid-rows-cell-9-0');
    await page.press('#grid-rows-editor', 'Escape');
    await page.click('#button-delrow');
    await page.click('#button-save');
    await answer(page, 'Operation Lists and Practicality', 'OK');  // item 10 is assigned
    assert.equal(sql(master, 'SELECT * FROM Practicality_Items ORDER BY rowid'), items);
  });
});
