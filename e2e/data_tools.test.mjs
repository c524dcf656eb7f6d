// The admin data tools in a browser, on a copy of the demo masters.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { execFileSync } from 'node:child_process';
import { startProgram, answer, screenshotPath, demoMastersSandbox, onProgramPage } from './lib.mjs';

const sql = (db, query) => execFileSync('sqlite3', ['-cmd', '.timeout 10000', db, query], { encoding: 'utf8' }).trim();
const caption = (page, text) => page.locator('#caption', { hasText: text }).waitFor();

// Opens a tool from the console's table of tools.
async function openTool(page, program, id) {
  await page.goto(program.base + '/admin/');
  await page.click(`#button-${id}`);
  await page.goto(program.base + `/admin/${id}/`);
}

test('the data tools round-trip a table, correct a reference and refuse bad values', async (t) => {
  const sandbox = demoMastersSandbox(t);
  if (!sandbox) return;
  const master = path.join(sandbox.app, 'dbases/arven_operations.mdb');
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
  });
});
