// Faults of real machines, as the user meets them in the browser: a disk
// that fills up under the settings and under the assessment file, and a
// second ARVEN opening a file that the first has open. Nothing of the user's
// is lost, and each failure is one clear message.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, answer, pageText, passAboutBox,
  newFileWithRegion, chooseOperations, screenshotPath } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const noStore = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;
const notRoot = process.getuid() !== 0 && 'mounting a small file system for a full disk needs root';

// A small tmpfs mounted on the folder for the test's length: the function
// that unmounts it, or null after marking the test skipped when no file
// system can be mounted here.
function mountSmallDisk(t, folder, bytes) {
  fs.mkdirSync(folder, { recursive: true });
  try {
    execFileSync('mount', ['-t', 'tmpfs', '-o', `size=${bytes}`, 'tmpfs', folder], { stdio: 'pipe' });
  } catch (e) {
    t.skip(`a tmpfs could not be mounted: ${String(e.stderr || e.message).trim()}`);
    return null;
  }
  return () => execFileSync('umount', ['-l', folder]);
}

// Fills the disk of the folder to the brim.
function fill(folder) {
  const fd = fs.openSync(path.join(folder, '.filler'), 'a');
  try {
    for (const size of [65536, 4096, 1]) {
      const block = Buffer.alloc(size);
      try { for (;;) fs.writeSync(fd, block); } catch (e) { if (e.code !== 'ENOSPC') throw e; }
    }
  } finally {
    fs.closeSync(fd);
  }
}

// The one dialog on screen: its title and text; it is answered with OK, and
// no other follows within a while.
async function oneMessage(page) {
  const dialog = page.locator('#dialog');
  await dialog.waitFor({ timeout: 30000 });
  const shown = { title: await dialog.locator('.dialog-title').textContent(), text: await dialog.innerText() };
  await answer(page, shown.title, 'OK');
  await page.waitForTimeout(2500);
  assert.equal(await page.locator('#dialog').count(), 0, 'a second message followed');
  return shown;
}

test('a settings save on a full disk keeps ARVEN.ini and says why once', { skip: noStore || notRoot }, async (t) => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const config = path.join(sandbox.home, '.config');
  const unmount = mountSmallDisk(t, config, 1 << 20);
  if (!unmount) return;
  const ini = path.join(config, 'arven', 'ARVEN.ini');
  fs.mkdirSync(path.dirname(ini));
  fs.writeFileSync(ini, '[Settings]\nUpdate_Server=http://127.0.0.1:9/\nmiti_weight=70\n');
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1200, height: 800 } });
    await passAboutBox(page, program.url);
    await page.click('#panel-1');
    fill(config);
    const before = fs.readFileSync(ini);
    await page.click('#item-1-1');
    await page.click('#tab-settings-2');
    await page.click('#check-hotspot_regional');
    await page.click('#button-ok');
    const shown = await oneMessage(page);
    assert.equal(shown.title, 'File not saved');
    assert.match(shown.text, new RegExp(`The disk is full: "${ini}" could not be written\\.`));
    assert.deepEqual(fs.readFileSync(ini), before);
    // The dialog stays open with what was chosen; with room again OK saves it.
    fs.rmSync(path.join(config, '.filler'));
    await page.click('#button-ok');
    await page.locator('#tab-settings-2').waitFor({ state: 'detached' });
    assert.match(fs.readFileSync(ini, 'utf8'), /Update_Server=http:\/\/127\.0\.0\.1:9\/[\s\S]*hotspot_regional=1/);
  } finally {
    await browser.close();
    program.child.kill();
    unmount();
  }
});

test('Select All on a full disk stops at one message and keeps the file', { skip: noStore || notRoot }, async (t) => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  const unmount = mountSmallDisk(t, sandbox.docs, 4 << 20);
  if (!unmount) return;
  const program = await startProgram(sandbox);
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    await newFileWithRegion(page, program.url, 'Full disk');
    await page.click('#panel-2');
    await page.click('#item-2-3');
    await pageText(page, 'No Operations Selected');
    await page.click('#tab-tab1-1');
    await page.locator('#tree-catalogue .tree-node').nth(3).waitFor();
    const file = path.join(sandbox.docs, 'My ARVEN Files', 'Full disk.arv');
    fill(sandbox.docs);
    const before = fs.readFileSync(file);
    await page.click('#button-selectall');
    const shown = await oneMessage(page);
    await page.screenshot({ path: screenshotPath('durability-select-all-full-disk') });
    assert.equal(shown.title, 'File not saved');
    assert.match(shown.text, /The disk is full: ".*Full disk\.arv" could not be written\./);
    assert.deepEqual(fs.readFileSync(file), before);
    await page.locator('#tab-tab1-2', { hasText: 'My RDP Operations (0)' }).waitFor();
  } finally {
    await browser.close();
    program.child.kill();
    unmount();
  }
});

test('a second ARVEN opens a file in use read-only and never shows stale counts', { skip: noStore }, async () => {
  const first = makeSandbox({ withStores: [STORE] });
  // Its own program folder, the same user's documents and settings.
  const second = { ...makeSandbox({ withStores: [STORE] }), home: first.home, docs: first.docs };
  const a = await startProgram(first);
  const browser = await launchBrowser();
  let b;
  try {
    const pageA = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    await newFileWithRegion(pageA, a.url, 'Shared');
    await chooseOperations(pageA, ['Winter cover crops']);

    b = await startProgram(second);
    const pageB = await browser.newPage({ viewport: { width: 1400, height: 900 } });
    await passAboutBox(pageB, b.url);
    await pageB.click('#panel-3');
    await pageB.click('#item-3-2');
    await pageB.locator('#file-name').fill('Shared.arv');
    await pageB.locator('#file-name').press('Enter');
    const dialog = pageB.locator('#dialog');
    await dialog.locator('.dialog-title', { hasText: 'File in use' }).waitFor();
    assert.match(await dialog.innerText(), /Shared\.arv is in use: another ARVEN has it open/);
    await answer(pageB, 'File in use', 'OK');
    await pageText(pageB, 'read-only: in use by another ARVEN');
    await pageB.click('#panel-2');
    await pageB.click('#item-2-3');
    await pageB.locator('#tab-tab1-2', { hasText: 'My RDP Operations (1)' }).waitFor();

    // The first adds an operation: the second's count follows.
    await pageA.click('#tab-tab1-1');
    await pageA.locator('#tree-catalogue .tree-node', { hasText: 'Hedgerow planting' }).dblclick();
    await pageA.locator('#tab-tab1-2', { hasText: 'My RDP Operations (2)' }).waitFor({ timeout: 30000 });
    await pageB.locator('#tab-tab1-2', { hasText: 'My RDP Operations (2)' }).waitFor({ timeout: 10000 });

    // The second may not change it: one message, and the file keeps both.
    const file = path.join(first.docs, 'My ARVEN Files', 'Shared.arv');
    const before = fs.readFileSync(file);
    await pageB.click('#tab-tab1-1');
    await pageB.locator('#tree-catalogue .tree-node', { hasText: 'Riparian buffer strips' }).dblclick();
    const shown = await oneMessage(pageB);
    assert.equal(shown.title, 'File not saved');
    assert.match(shown.text, /Shared\.arv" is in use by another program: it could not be written\./);
    assert.deepEqual(fs.readFileSync(file), before);
    await pageB.locator('#tab-tab1-2', { hasText: 'My RDP Operations (2)' }).waitFor();
  } finally {
    await browser.close();
    a.child.kill();
    if (b) b.child.kill();
  }
});
