// Many windows in one browser: every click answered in the window where it
// was made, news on one channel, no tab the user did not ask for, and no
// framing by another site.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { APP_SOURCE, answer, makeSandbox, startProgram, launchBrowser, pageText, passAboutBox, newFileWithRegion,
  chooseOperations, reportWindow } from './lib.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) &&
  `the demo stores are missing (${STORE} is not in ${path.join(APP_SOURCE, 'dbases')})`;

async function withProgram(program, stores, body) {
  const sandbox = makeSandbox({ withStores: stores });
  const running = await startProgram(sandbox, program);
  const browser = await launchBrowser();
  try {
    await body(browser, running);
  } finally {
    await browser.close();
    running.child.kill();
  }
}

// The window a tab shows.
const windowOf = (tab) => tab.evaluate(() => document.body.dataset.window).catch(() => '');

test('twelve admin windows and more open at once, and a click in the Backups window is answered', { skip: missing, timeout: 240000 }, async () => {
  await withProgram('arven-admin', [STORE, 'arven_operations.mdb', 'arven_rvcs.mdb'], async (browser, program) => {
    const context = await browser.newContext({ viewport: { width: 1200, height: 800 } });
    const polls = [];
    context.on('request', (r) => { if (/state\.json\?since=/.test(r.url())) polls.push(r.url()); });
    const page = await context.newPage();
    await passAboutBox(page, program.url);
    const [console_] = await Promise.all([context.waitForEvent('page'),
      page.evaluate(() => window.arvenCommand({ menu: 'mnuToolsAdmin' }))]);
    await console_.locator('[id^="button-"]').first().waitFor();
    // The console's tool buttons (not its Publish, which asks for a version).
    const tools = await console_.locator('[id^="button-"]').evaluateAll((bs) =>
      bs.map((b) => b.id).filter((id) => id !== 'button-publish'));
    // Every tool window of the console, each in a tab of its own.
    for (const id of tools) {
      const before = context.pages().length;
      await console_.click('#' + id);
      for (let i = 0; i < 50 && context.pages().length === before; ++i) await console_.waitForTimeout(100);
    }
    // A console in each tab more, up to twelve at least.
    while (context.pages().length < 12) {
      const more = await context.newPage();
      await more.goto(program.base + '/admin/');
      await more.locator('[id^="button-"]').first().waitFor();
    }
    assert.ok(context.pages().length >= 12, `tabs open: ${context.pages().length}`);
    // A backup from the Backups window is made and listed.
    let backups = null;
    for (const tab of context.pages()) if ((await windowOf(tab)) === 'admin/backups') backups = tab;
    assert.ok(backups, 'the Backups window has a tab');
    await backups.click('#button-backup');
    await answer(backups, 'Backup', 'OK');
    await backups.locator('#list-backups-item-0').waitFor({ timeout: 10000 });
    // No window long-polls: the news comes on the browser's one channel.
    assert.deepEqual(polls, []);
  });
});

test('a page of another site cannot frame the program', { skip: missing }, async () => {
  await withProgram('arven', [STORE], async (browser, program) => {
    const page = await browser.newPage();
    await passAboutBox(page, program.url);  // the cookie is set: the frame would send it
    const hostile = http.createServer((req, res) => {
      res.setHeader('Content-Type', 'text/html');
      res.end(`<iframe id="f" src="${program.base}/main/" width="800" height="600"></iframe>`);
    });
    await new Promise((res) => hostile.listen(0, '127.0.0.1', res));
    try {
      const other = await browser.newPage();
      await other.goto(`http://127.0.0.1:${hostile.address().port}/`);
      await other.waitForTimeout(1500);
      const frame = other.frames().find((f) => f !== other.mainFrame());
      const drawn = frame ? await frame.evaluate(() => !!document.getElementById('menubar')).catch(() => false) : false;
      assert.equal(drawn, false, 'the program was drawn in a foreign frame');
      // The program's own frame still shows its pages.
      await page.frameLocator('#page').locator('body').waitFor();
    } finally {
      hostile.close();
    }
  });
});

test('no tab opens that the user did not ask for', { skip: missing, timeout: 120000 }, async () => {
  await withProgram('arven', [STORE], async (browser, program) => {
    const context = await browser.newContext({ viewport: { width: 1300, height: 850 } });
    const page = await context.newPage();
    await newFileWithRegion(page, program.url, 'Windows');
    await chooseOperations(page, ['Winter cover crops']);
    await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
    await pageText(page, 'Remove Operation');
    await reportWindow(page, () => page.frameLocator('#page').locator('a[href$=".det"]').first().click(),
      'Regional breakdown');
    // Closing the explorer, reloading the main tab and opening the program
    // in a second main tab open nothing else.
    await page.click('#close-window');
    await page.locator('#panel-1').waitFor();
    await page.reload();
    await page.locator('#panel-1').waitFor();
    const second = await context.newPage();
    await second.goto(program.base + '/main/');
    await second.locator('#panel-1').waitFor();
    await page.waitForTimeout(1500);
    const windows = await Promise.all(context.pages().map(windowOf));
    assert.deepEqual(windows.sort(), ['main', 'main', 'report']);
  });
});
