// Updates in a browser: a newer country store published on a real static
// HTTP server is offered, the downloader installs it, and the program,
// started again by the downloader, says so, shows the new version and the
// file that was open; a store whose archive is missing keeps ARVEN open.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync, spawn } from 'node:child_process';
import crypto from 'node:crypto';
import fs from 'node:fs';
import path from 'node:path';
import { ROOT, APP_SOURCE, makeSandbox, startProgram, launchBrowser, answer, pageText, screenshotPath } from './lib.mjs';

const STORES = ['new_arven_operations_DK.mdb', 'new_arven_operations_LU.mdb'];
const missing = !STORES.every((s) => fs.existsSync(path.join(APP_SOURCE, 'dbases', s))) &&
  `the demo stores are missing from ${path.join(APP_SOURCE, 'dbases')}`;

// e2e/static_server.mjs, a process of its own, serving `folder` (archives slowly).
function staticServer(folder) {
  return new Promise((resolve, reject) => {
    const child = spawn(process.execPath, [path.join(ROOT, 'e2e', 'static_server.mjs'), folder],
      { stdio: ['ignore', 'pipe', 'inherit'] });
    let out = '';
    child.stdout.on('data', (d) => {
      out += d;
      const m = out.match(/port (\d+)/);
      if (m) resolve({ child, address: 'http://127.0.0.1:' + m[1] });
    });
    child.on('exit', (code) => reject(new Error('the static server ended with ' + code + ': ' + out)));
  });
}

// The Luxembourg store with a later Version date, published as the
// pre-processor publishes: archive, checksum and version file.
function publishNewerStore(dir, downloads) {
  const store = path.join(dir, 'new_arven_operations_LU.mdb');
  fs.copyFileSync(path.join(APP_SOURCE, 'dbases', 'new_arven_operations_LU.mdb'), store);
  execFileSync('sqlite3', [store, `UPDATE "Version" SET "Version" = '2030-01-15 00:00:00'`]);
  fs.mkdirSync(downloads, { recursive: true });
  const zip = path.join(downloads, 'arven_db_LU.zip');
  execFileSync('zip', ['-q', '-j', zip, store]);
  const digest = crypto.createHash('sha256').update(fs.readFileSync(zip)).digest('hex');
  fs.writeFileSync(zip + '.sha256', `${digest}  arven_db_LU.zip\n`);
  fs.writeFileSync(path.join(downloads, 'arven_db_version_LU.csv'), '15/01/2030\n');
  fs.writeFileSync(path.join(downloads, 'arven_version118.csv'), '1.1.8');
}

async function waitForServer(url, ms) {
  const end = Date.now() + ms;
  while (Date.now() < end) {
    try {
      if ((await fetch(url)).status < 500) return;
    } catch { /* not listening yet */ }
    await new Promise((r) => setTimeout(r, 200));
  }
  throw new Error('the program did not come back at ' + url);
}

// A sandbox with the Danish and Luxembourg stores, the newer Luxembourg
// store published on a real static server, and ARVEN started against it.
async function startAgainstServer() {
  const sandbox = makeSandbox({ withStores: STORES });
  const www = path.join(sandbox.dir, 'www');
  publishNewerStore(sandbox.dir, path.join(www, 'downloads'));
  const server = await staticServer(www);
  const config = path.join(sandbox.home, '.config', 'arven');
  fs.mkdirSync(config, { recursive: true });
  fs.writeFileSync(path.join(config, 'ARVEN.ini'), `[Settings]\nUpdate_Server=${server.address}\nShowSplash=0\n`);
  const program = await startProgram(sandbox, 'arven', [], { detached: true });
  const browser = await launchBrowser();
  const end = async () => {
    await browser.close();
    // The program's group holds the downloader and the program it started again.
    try { process.kill(-program.child.pid, 'SIGTERM'); } catch { /* already gone */ }
    server.child.kill();
    fs.rmSync(sandbox.dir, { recursive: true, force: true });
  };
  return { sandbox, server, program, browser, end };
}

// Help > Check for updates.
async function openUpdatesFromMenu(page) {
  await page.hover('.menu-title >> text=Help');
  await page.locator('#menu-mnuHelpUpdates').click();
  await page.locator('#tab-settings-5[aria-selected="true"]').waitFor();
}

test('a newer store is offered, downloaded, installed, and shown after the restart with the file open again', { skip: missing }, async () => {
  const { sandbox, program, browser, end } = await startAgainstServer();
  try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 800 } });
    await page.goto(program.url);
    // The start-up check found the newer store: the welcome page says so.
    await pageText(page, 'Updates are available');
    // An assessment file is open when the update starts.
    await page.click('#panel-3');
    await page.click('#item-3-1');
    await page.fill('#file-name', 'Before the update');
    await page.click('#answer-Save');
    await pageText(page, 'File:');
    await openUpdatesFromMenu(page);
    const lu = page.locator('#table-updates tbody tr', { hasText: 'Luxembourg (LU)' });
    await lu.locator('td', { hasText: 'YES' }).waitFor();
    assert.match(await lu.innerText(), /Database: Luxembourg \(LU\)\s+\S+\s+YES\s+15\/01\/2030\s+Download\s+29/);
    // The row offered is coloured (the page may be redrawn meanwhile: ask the page itself).
    await page.waitForFunction(() => [...document.querySelectorAll('#table-updates tbody tr')].some((tr) =>
      tr.textContent.includes('Luxembourg') && getComputedStyle(tr).backgroundColor === 'rgb(255, 128, 128)'));
    await page.locator('#download-label', { hasText: "Click 'download' column to download an update" }).waitFor();
    await page.screenshot({ path: screenshotPath('updates-offered') });

    // Download: the program ends, the downloader installs and starts it again.
    await lu.locator('td[data-col="4"]').click();
    await answer(page, 'Update software', 'Yes');
    // Meanwhile the page says the install is under way, and how far it is.
    await page.locator('#install-progress', { hasText: /Downloading arven_db_LU\.zip: \d+%/ }).waitFor({ timeout: 15000 });
    assert.match(await page.locator('body').innerText(), /ARVEN is installing an update/);
    await page.screenshot({ path: screenshotPath('updates-installing') });
    await waitForServer(program.url, 30000);

    // The page finds the program again by itself (whether or not it saw the
    // end: the restart can be quicker than its next look), which says what
    // it installed and shows the file that was open.
    const told = page.locator('#dialog', { hasText: 'has been installed' });
    await told.waitFor({ timeout: 30000 });
    assert.equal(await told.locator('.message p').innerText(),
      'The database for Luxembourg (LU) has been installed. Installed version: 15/01/2030.');
    await page.screenshot({ path: screenshotPath('updates-installed-told') });
    await answer(page, 'Update software', 'OK');
    assert.match(await pageText(page, 'File:'), /File:\s*Before the update/);
    await openUpdatesFromMenu(page);
    const row = page.locator('#table-updates tbody tr', { hasText: 'Luxembourg (LU)' });
    await row.locator('td', { hasText: 'NO' }).waitFor();
    assert.match(await row.innerText(), /Database: Luxembourg \(LU\)\s+15\/01\/2030\s+NO/);
    await page.screenshot({ path: screenshotPath('updates-installed') });
    const installed = execFileSync('sqlite3', [path.join(sandbox.app, 'dbases', 'new_arven_operations_LU.mdb'),
      'SELECT "Version" FROM "Version"']).toString().trim();
    assert.equal(installed, '2030-01-15 00:00:00');
  } finally {
    await end();
  }
});

test('a store whose archive the server lacks is still offered, and its download says so and keeps ARVEN open', { skip: missing }, async () => {
  const { sandbox, server, program, browser, end } = await startAgainstServer();
  try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 800 } });
    await page.goto(program.url);
    await pageText(page, 'Updates are available');
    await page.frameLocator('#page').locator('a', { hasText: 'Updates are available' }).click();
    // Austria: nothing published, so "Unknown", and "Download" on offer all the same.
    const at = page.locator('#table-updates tbody tr', { hasText: 'Austria (AT)' });
    await at.locator('td', { hasText: 'Unknown' }).first().waitFor();
    assert.match(await at.innerText(), /Not installed\s+Unknown\s+Unknown\s+Download\s+3/);
    await at.locator('td[data-col="4"]').click();
    const dialog = page.locator('#dialog');
    await dialog.waitFor();
    assert.equal(await dialog.locator('.message p').innerText(),
      'The database for Austria (AT) cannot be downloaded: the update server has no file ' +
      `${server.address}/downloads/arven_db_AT.zip (HTTP 404). ARVEN stays open.`);
    await page.screenshot({ path: screenshotPath('updates-archive-missing') });
    await answer(page, 'Update software', 'OK');
    // Still there, on the same tab, and nothing set for a restart.
    await at.waitFor();
    const state = await (await page.request.get(`${program.base}/main/state.json`)).json();
    assert.ok(!state.ended);
    assert.equal(program.child.exitCode, null);
    const ini = fs.readFileSync(path.join(sandbox.home, '.config/arven/ARVEN.ini'), 'utf8');
    assert.doesNotMatch(ini, /Restart_Flag=1/);
  } finally {
    await end();
  }
});
