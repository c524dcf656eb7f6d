// Shared pieces of the browser tests: a program folder in a temporary
// place, the program started on it, and Debian's Chromium driven headless.
import { spawn } from 'node:child_process';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { chromium } from 'playwright-core';

export const ROOT = path.resolve(path.dirname(new URL(import.meta.url).pathname), '..');
// The build whose programs run: ARVEN_BUILD, or build/ of the checkout.
export const BUILD = process.env.ARVEN_BUILD ? path.resolve(process.env.ARVEN_BUILD) : path.join(ROOT, 'build');
// The program folder whose assets and stores the sandboxes copy: ARVEN_APP_DIR,
// else the chosen build's app/, else that of build/.
export const APP_SOURCE = process.env.ARVEN_APP_DIR ? path.resolve(process.env.ARVEN_APP_DIR)
  : [path.join(BUILD, 'app'), path.join(ROOT, 'build', 'app')].find((d) => fs.existsSync(d))
    ?? path.join(ROOT, 'build', 'app');

// A fresh program folder (assets copied from the built one) and a fresh
// home with its documents and settings folders.
export function makeSandbox({ withStores = [] } = {}) {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'arven-e2e-'));
  const app = path.join(dir, 'app');
  fs.mkdirSync(path.join(app, 'dbases'), { recursive: true });
  for (const sub of ['graphics', 'javascript', 'help']) {
    const from = path.join(APP_SOURCE, sub);
    if (fs.existsSync(from)) fs.cpSync(from, path.join(app, sub), { recursive: true });
  }
  for (const store of withStores) {
    fs.copyFileSync(path.join(APP_SOURCE, 'dbases', store), path.join(app, 'dbases', store));
  }
  const home = path.join(dir, 'home');
  fs.mkdirSync(home);
  return { dir, app, home, docs: path.join(home, 'Documents') };
}

// A sandbox with the demo master stores, or null when scripts/setup.sh has
// not made them (or one of `alsoNeeded`), after marking the test skipped.
export function demoMastersSandbox(t, alsoNeeded = []) {
  const masters = ['arven_operations.mdb', 'arven_rvcs.mdb'];
  const needed = [...masters.map((m) => path.join(APP_SOURCE, 'dbases', m)), ...alsoNeeded];
  if (!needed.every((f) => fs.existsSync(f))) {
    t.skip('the demo master stores are missing: run scripts/setup.sh');
    return null;
  }
  return makeSandbox({ withStores: masters });
}

// Starts a program on the sandbox; resolves with its address once it listens.
// `detached` gives it a process group of its own, so that what it starts
// (the downloader, and the program started again) can be ended with it.
export function startProgram(sandbox, program = 'arven', extra = [], { detached = false } = {}) {
  return startListening(path.join(BUILD, program),
    ['--app-dir', sandbox.app, '--no-browser', '--port', '0', ...extra],
    { ...process.env, HOME: sandbox.home, XDG_CONFIG_HOME: path.join(sandbox.home, '.config'),
      XDG_DOCUMENTS_DIR: path.join(sandbox.home, 'Documents'), LANG: 'C.UTF-8' }, { detached });
}

// Starts the executable with that environment; resolves with the child and
// its address ({ child, url, base }) once it prints that it listens.
export function startListening(executable, args, env, { detached = false } = {}) {
  return new Promise((resolve, reject) => {
    const child = spawn(executable, args, { env, stdio: ['ignore', 'pipe', 'pipe'], detached });
    let out = '';
    const timer = setTimeout(() => reject(new Error('no address printed: ' + out)), 15000);
    child.stdout.on('data', (d) => {
      out += d;
      const m = out.match(/listening on (http:\/\/\S+)/);
      if (m) { clearTimeout(timer); resolve({ child, url: m[1], base: m[1].replace(/\/\?token=.*/, '') }); }
    });
    child.stderr.on('data', (d) => { out += d; });
    child.on('exit', (code) => reject(new Error('program ended with ' + code + ': ' + out)));
  });
}

export async function launchBrowser() {
  return chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
      '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
}

// Opens the started program in a new browser page of that size, passes the
// About box and runs `body(page)`; the browser and the program end with it.
export async function onProgramPage(program, viewport, body) {
  const browser = await launchBrowser();
  try {
    const page = await browser.newPage({ viewport });
    await passAboutBox(page, program.url);
    await body(page);
  } finally {
    await browser.close();
    program.child.kill();
  }
}

// Answers the dialog on screen with a button, after checking its title.
export async function answer(page, title, button) {
  const dialog = page.locator('#dialog');
  await dialog.waitFor();
  const shown = await dialog.locator('.dialog-title').textContent();
  if (title && shown !== title) throw new Error(`expected dialog "${title}", got "${shown}"`);
  const id = await dialog.getAttribute('data-id');
  await page.click(`#answer-${button}`);
  await page.locator(`#dialog[data-id="${id}"]`).waitFor({ state: 'detached' });
}

// The text of the page in the window's embedded browser, once it holds `expected`.
// The text of the page in the window's frame once it shows `expected`. The
// frame may move on to another page between the wait and the read (a wait
// page replacing a summary), so the text read must itself show `expected`.
export async function pageText(page, expected, timeout = 10000) {
  const frame = page.frameLocator('#page');
  const shows = (text) => (expected instanceof RegExp ? expected.test(text)
    : text.replace(/\s+/g, ' ').toLowerCase().includes(expected.replace(/\s+/g, ' ').toLowerCase()));
  const deadline = Date.now() + timeout;
  for (;;) {
    const left = Math.max(1, deadline - Date.now());
    await frame.locator('body', { hasText: expected }).waitFor({ timeout: left });
    const text = await frame.locator('body').innerText({ timeout: left }).catch(() => '');
    if (shows(text)) return text;
    if (Date.now() > deadline) throw new Error(`the page no longer shows "${expected}": ${text.slice(0, 200)}`);
  }
}

export function screenshotPath(name) {
  const dir = path.join(ROOT, 'e2e', 'out');
  fs.mkdirSync(dir, { recursive: true });
  return path.join(dir, name + '.png');
}

// Opens the program's address and closes the About box; ends on the main
// window. Windows are told apart by their controls, not by one navigation:
// a window may be sent to its page twice (state poll and redirect).
export async function passAboutBox(page, url) {
  await page.goto(url);
  await page.locator('#button-ok').click();
  await page.locator('#panel-1').waitFor();
}

// Starts on the program's address, passes the About box, and creates a new
// assessment file with the region Sjælland (DK02); ends on the main window.
export async function newFileWithRegion(page, url, fileName) {
  await passAboutBox(page, url);
  await page.click('#panel-3');
  await page.click('#item-3-1');
  await page.locator('#dialog').waitFor();
  await page.fill('#file-name', fileName);
  await page.click('#answer-Save');
  await pageText(page, 'File:');
  await page.click('#item-3-3');
  // The page may be sent to the window twice (state poll and redirect): wait
  // for the window's controls rather than for one navigation.
  await page.locator('#list-0 .list-item', { hasText: 'DK - Danmark' }).waitFor();
  const entry = (list, text) => page.locator(`#list-${list} .list-item`, { hasText: text });
  await entry(0, 'DK - Danmark').click();
  await entry(1, 'DK0 - Danmark').click();
  await entry(2, 'DK02 - Sjælland').dblclick();
  await page.locator('#table-regions-row-0').waitFor();
  await page.click('#close-window');
  await page.locator('#panel-3').waitFor();
  await pageText(page, 'DK02');
}

// Opens the explorer from the main window and chooses the named catalogue
// operations by double click; ends on the chosen tab.
// Clicks an entry of the main window's menu bar. A change drawn between
// opening the menu and the click redraws the bar closed, so the menu is
// opened again until the click lands.
export async function clickMenuItem(page, id) {
  const item = page.locator('#menu-' + id);
  for (let attempt = 1; ; attempt++) {
    await item.evaluate((e) => e.closest('.menu').classList.add('open'));
    try {
      await item.click({ timeout: 3000 });
      return;
    } catch (e) {
      if (attempt >= 5) throw e;
    }
  }
}

export async function chooseOperations(page, names) {
  await page.click('#panel-2');
  await page.click('#item-2-3');
  await page.locator('#tab-tab1-1').waitFor();
  await pageText(page, 'No Operations Selected');
  await page.click('#tab-tab1-1');
  const node = (text) => page.locator('#tree-catalogue .tree-node', { hasText: text });
  for (const [i, name] of names.entries()) {
    await node(name).dblclick();
    await page.locator('#tab-tab1-2', { hasText: `My RDP Operations (${i + 1})` }).waitFor({ timeout: 30000 });
  }
  await page.click('#tab-tab1-2');
}

// Runs `action` and returns the browser tab that it opens (the report
// window), once its page holds `expected`.
export async function reportWindow(page, action, expected) {
  const [tab] = await Promise.all([page.context().waitForEvent('page'), action()]);
  await tab.frameLocator('#page').locator('body', { hasText: expected }).waitFor();
  return tab;
}

// Types into a cell of an editable grid and waits for the program's answer.
export async function editCell(page, grid, row, col, value) {
  await page.click(`#grid-${grid}-cell-${row}-${col}`);
  const editor = page.locator(`#grid-${grid}-editor`);
  await editor.fill(value);
  await editor.press('Tab');
  await page.locator(`#grid-${grid}-cell-${row}-${col}`, { hasText: value }).waitFor();
}
