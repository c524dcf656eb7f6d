// The main window in a browser: start-up, a new assessment file through the
// file chooser, its summary page, and opening it again from the recent list.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, answer, pageText, screenshotPath, passAboutBox } from './lib.mjs';

test('a new file is created, summarised and reopened from the recent list', async () => {
  const sandbox = makeSandbox();
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 800 } });
    await page.goto(program.url);

    // The About box comes first; its check box is kept for the next start.
    await page.locator('#check-ShowSplash').click();
    await page.click('#button-ok');
    // No country store in this folder: the program says so and opens the
    // settings dialog on its updates, after a check that finds no server.
    await answer(page, 'No Databases Installed', 'OK');
    await answer(page, 'Cannot proceed', 'OK');
    await answer(page, 'Cannot proceed', 'OK');
    await page.locator('#tab-settings-5[aria-selected="true"]').waitFor();
    // It does not close without a store: Yes stays to download one.
    await page.click('#close-window');
    await answer(page, 'No databases installled', 'Yes');
    // A store installed meanwhile is found when it closes.
    fs.copyFileSync(path.join(APP_SOURCE, 'dbases', 'new_arven_operations_DK.mdb'),
      path.join(sandbox.app, 'dbases', 'new_arven_operations_DK.mdb'));
    await page.click('#close-window');
    await page.locator('#panel-2').waitFor();
    const ini = fs.readFileSync(path.join(sandbox.home, '.config/arven/ARVEN.ini'), 'utf8');
    assert.match(ini, /ShowSplash=0/);

    // Measures & Operations > Create New ARVEN file.
    await page.click('#panel-2');
    await page.click('#item-2-1');
    const chooser = page.locator('#dialog');
    await chooser.waitFor();
    assert.equal(await chooser.locator('.dialog-title').textContent(), 'Save ARVEN File As...');
    await page.fill('#file-name', "Farmer O'Neill – Sjælland");
    await page.click('#answer-Save');
    const summary = await pageText(page, 'File:');
    assert.match(summary, /File:\s*Farmer O'Neill – Sjælland/);
    const file = path.join(sandbox.docs, 'My ARVEN Files', "Farmer O'Neill – Sjælland.arv");
    assert.ok(fs.existsSync(file));
    await page.screenshot({ path: screenshotPath('main-summary') });

    // Creating a second file under the same name asks before replacing it.
    await page.click('#item-2-1');
    await page.locator('#file-list li', { hasText: "Farmer O'Neill" }).click();
    await page.click('#answer-Save');
    await answer(page, 'Save ARVEN File As...', 'No');
    await page.click('#answer-Cancel');

    // The recent list of the File menu opens it again.
    await page.hover('.menu-title >> text=File');
    const recent = page.locator('#menu-mnuFileTemp1');
    assert.match(await recent.textContent(), /Sjælland\.arv$/);
    assert.equal(await recent.getAttribute('title'), file);  // the whole path as its tip
    await recent.click();
    assert.match(await pageText(page, 'File:'), /Farmer O'Neill/);

    // Closing the main window exits: it asks, keeps the open panel for the
    // next start and ends the process.
    const ended = new Promise((res) => program.child.once('exit', res));
    await page.click('#close-window');
    await page.locator('#dialog .dialog-title', { hasText: 'Exit' }).waitFor();
    await page.click('#answer-Yes');
    // The page may or may not see the last state before the server stops.
    await ended;
    const after = fs.readFileSync(path.join(sandbox.home, '.config/arven/ARVEN.ini'), 'utf8');
    assert.match(after, /Outlook_Frame=2/);
  } finally {
    await browser.close();
    program.child.kill();
  }
});

// Closing the browser tab of the main window ends the program as its close
// box does, keeping the open panel; a reload of the page does not.
const STORE = 'new_arven_operations_DK.mdb';
test('closing the main tab exits, a reload keeps the program', {
  skip: !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) && 'the demo stores are missing',
}, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    await passAboutBox(page, program.url);
    await page.click('#panel-3');
    await page.locator('#panel-3.open').waitFor();

    // A reload: the new page polls within the grace time, the program stays.
    await page.reload();
    await page.locator('#panel-3.open').waitFor();
    await page.waitForTimeout(6000);
    assert.equal(program.child.exitCode, null, 'still running after a reload');
    assert.match(await page.locator('#caption').innerText(), /No file open/);

    // Closed while a question is on screen (the close box's "Are you sure
    // you want to exit?"): nobody is left to answer it, and it still ends.
    const ended = new Promise((res) => program.child.once('exit', res));
    await page.click('#close-window');
    await page.locator('#dialog .dialog-title', { hasText: 'Exit' }).waitFor();
    const started = Date.now();
    await page.close();
    const code = await Promise.race([ended, new Promise((res) => setTimeout(() => res('timeout'), 15000))]);
    assert.equal(code, 0, 'the program ended by itself');
    assert.ok(Date.now() - started > 3000, 'after the grace time for a reload');
    const ini = fs.readFileSync(path.join(sandbox.home, '.config/arven/ARVEN.ini'), 'utf8');
    assert.match(ini, /Outlook_Frame=3/);
  } finally {
    await browser.close();
    program.child.kill();
  }
});
