// The crawler: on an assessment of the demo data with several operations,
// it opens every window and page of the user build, runs every command of
// the main window's, the explorer's and the RVC browser's command tables
// once (dialogs answered with their safe choice), and fails on a console or
// page error, a 4xx or 5xx answer, a command that changes nothing, a link
// that leads nowhere or a blank page. It prints the commands it did not
// reach, and fails while any is missing.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import path from 'node:path';
import { APP_SOURCE, makeSandbox, startProgram, launchBrowser, screenshotPath } from './lib.mjs';
import { Crawler, expectedCommands, MAIN_MENUS } from './crawl.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', STORE)) && `the demo stores are missing (${STORE})`;
const OPERATIONS = ['Winter cover crops', 'Zero tillage & direct drilling', 'Hedgerow planting'];

// A new file by the file chooser, named `name`.
const saveAs = (name) => [['', 'Save', name]];

// A panel item of the main window, its panel opened first when closed.
async function pair(c, page, group, tool, options) {
  if (!(await page.locator(`#item-${group}-${tool}`).isVisible()))
    await c.click(page, `#panel-${group}`, `main panel ${group}`);
  return c.click(page, `#item-${group}-${tool}`, `main pair ${group},${tool}`, options);
}

async function chooseRegion(c, page, areas) {
  await c.onTop(page, 'regions');
  const entry = (list, text) => page.locator(`#list-${list} .list-item`, { hasText: text });
  await entry(0, 'DK - Danmark').click();
  await c.settle(page);
  await entry(1, 'DK0 - Danmark').click();
  await c.settle(page);
  for (const area of areas) {
    await entry(2, area).dblclick();
    await c.settle(page);
  }
  await c.closeWindow(page);
  await c.onTop(page, 'main');
}

async function mainWindow(c, page) {
  // No file yet: the welcome page's update link, the search that is not
  // there yet, the settings.
  await c.settle(page);
  await c.followLinks(page, { only: ['main link uuu'] });
  if ((await c.windowOf(page)) === 'settings') await c.closeWindow(page);
  await c.onTop(page, 'main');
  await pair(c, page, 1, 2);
  await pair(c, page, 1, 1);
  await c.onTop(page, 'settings');
  for (const tab of await page.locator('[id^="tab-"]').all()) await c.click(page, `#${await tab.getAttribute('id')}`, 'settings tab', { mustChange: false });
  await c.closeWindow(page);
  await c.onTop(page, 'main');

  // A new file, its region (Sjælland), then the region edited.
  await pair(c, page, 3, 1, { answers: saveAs('Crawl A') });
  // The file commands of the panels, each answered Cancel.
  for (const [g, t] of [[2, 1], [2, 2], [3, 2]]) await pair(c, page, g, t);
  await pair(c, page, 3, 3);
  await chooseRegion(c, page, ['DK02 - Sjælland']);
  await pair(c, page, 3, 4);
  await c.onTop(page, 'regions');
  await c.closeWindow(page);
  await c.onTop(page, 'main');
  await c.notBlank(page, 'the summary page');
}

async function explorer(c, page) {
  await pair(c, page, 2, 3);
  await c.onTop(page, 'explorer');
  const node = (tree, text) => page.locator(`#tree-${tree} .tree-node`, { hasText: text }).first();
  // An operation of the chosen tree, shown A to Z.
  const chosen = async (text) => {
    if (!(await page.locator('#radio-view-4:checked').count())) await c.click(page, '#radio-view-4', 'explorer view 4', { mustChange: false });
    await node('chosen', text).click();
    await c.settle(page);
  };
  // The catalogue: a group's page (its operations, SELECT), an operation's.
  await c.click(page, '#tab-tab1-1', 'explorer tab1 1', { mustChange: false });
  await c.click(page, '#radio-view-1', 'explorer view 1', { mustChange: false });
  await c.click(page, '#tree-catalogue .tree-node.group, #tree-catalogue .tree-node[aria-expanded]', 'explorer group', { mustChange: false });
  await c.followLinks(page, { only: ['explorer link xxx'] });
  await c.click(page, '#tree-catalogue .tree-node.group, #tree-catalogue .tree-node[aria-expanded]', 'explorer group', { mustChange: false });
  await c.followLinks(page, { only: ['explorer link zzz'] });
  await c.click(page, '#radio-view-4', 'explorer view 4', { mustChange: false });
  for (const name of OPERATIONS) {
    await node('catalogue', name).dblclick();
    await c.settle(page);
  }
  await page.locator('#tab-tab1-2', { hasText: /My RDP Operations \([3-9]\)/ }).waitFor();
  await c.click(page, '#tool-Home', 'explorer tool Home');
  await c.click(page, '#tool-Print', 'explorer tool Print');

  // The chosen operations: every list page and its sorts, the aggregation.
  await c.click(page, '#tab-tab1-2', 'explorer tab1 2');
  for (let tab = 1; tab <= 6; ++tab) {
    if (tab === 5) continue;
    await c.click(page, `#tab-tab2-${tab}`, `explorer tab2 ${tab}`);
    await c.notBlank(page, `list tab ${tab}`);
    await c.followLinks(page, { skip: ['explorer link rem', 'explorer link yyy', 'explorer link mmm', 'explorer link zzz'] });
  }
  // The ranked aggregation, behind its link on the aggregation page.
  await c.click(page, '#tab-tab2-6', 'explorer tab2 6');
  await c.followLinks(page, { only: ['explorer page aggregate_ranked1.htm'] });
  await c.followLinks(page, { only: ['explorer link s8'] });
  await c.followLinks(page, { only: ['explorer link mmm'] });
  // The two ranking modes, which no page offers, on the ranked list.
  await c.click(page, '#tab-tab2-1', 'explorer tab2 1');
  await c.request(page, 'explorer', 'rank.ra2', 'explorer link ra2');
  await c.request(page, 'explorer', 'rank.ra1', 'explorer link ra1');
  await c.followLinks(page, { only: ['explorer link zzz'] });

  // An operation's report, its detailed form in the report window, the
  // breakdowns and their charts.
  await chosen(OPERATIONS[0]);
  await c.followLinks(page, { only: ['explorer link det'] });
  let report = await c.tabOf('report');
  const det = (await c.links(page)).find((h) => h.endsWith('.det'));
  // Each breakdown link of the detailed report, the report opened again
  // before each: the breakdown shows in the report window, where its links
  // (sorts, charts) are followed in turn.
  // A chart replaces the breakdown, which is then shown again for the rest.
  const breakdown = async (link) => {
    await c.request(page, 'explorer', det, 'explorer link det');
    report = await c.tabOf('report');
    await c.followLinks(report, { only: ['explorer link ' + link] });
  };
  for (const link of ['rea', 'rep', 'rg1', 'rg2', 'rg3', 'rg4', 'rg5', 'rg6', 'rg7']) {
    await breakdown(link);
    for (let more = 0; more < 6; ++more) {
      const covered = c.covered.size;
      await c.followLinks(report, { skip: ['explorer link yyy', 'explorer link rem', 'explorer link opd', 'explorer link det'] });
      if (c.covered.size === covered) break;
      await breakdown(link);
    }
  }
  await report.close();

  // Cost curves from the toolbar, a recalculation.
  await c.click(page, '#tab-tab2-1', 'explorer tab2 1');
  await c.click(page, '#tool-maccghg', 'explorer tool maccghg');
  await c.click(page, '#button-CreateGHG', 'explorer create ghg');
  await c.click(page, '#tool-maccadapt', 'explorer tool maccadapt');
  // The totals, each operation's working from them, a comparison asked and
  // cancelled.
  await c.click(page, '#tool-Totals', 'explorer tool Totals');
  await c.notBlank(page, 'the totals page');
  await c.followLinks(page, { only: ['explorer link wrk'] });
  await c.request(page, 'explorer', 'totals.tot', 'explorer link tot');
  await c.click(page, '#tool-Compare', 'explorer tool Compare');
  await c.click(page, '#tool-Uncertainty', 'explorer tool Uncertainty');
  await c.followLinks(page, { only: ['explorer link unk'] });
  await c.click(page, '#tool-ReCalc', 'explorer tool ReCalc');
  await c.click(page, '#tool-New', 'explorer tool New');
  await c.click(page, '#tool-Open', 'explorer tool Open');

  // The operation's properties (answered No to the recalculation), then a
  // removal of all asked and declined, and of one done.
  await chosen(OPERATIONS[0]);
  await c.click(page, '#tool-Working', 'explorer tool Working');
  await c.notBlank(page, 'the working page');
  await chosen(OPERATIONS[0]);
  await c.followLinks(page, { only: ['explorer link opd'] });
  if ((await c.windowOf(page)) === 'opman') {
    await c.closeWindow(page);
    await c.settle(page);
  }
  await c.onTop(page, 'explorer');
  await c.click(page, '#tab-tab2-5', 'explorer tab2 5');
  await c.click(page, '#radio-view-3', 'explorer view 3', { mustChange: false });
  await c.click(page, '#tree-chosen .tree-node', 'explorer chosen group', { mustChange: false });
  await c.followLinks(page, { only: ['explorer link rem'] });
  await chosen(OPERATIONS[2]);
  await c.followLinks(page, { only: ['explorer link yyy'] });
  await c.closeWindow(page);
  await c.onTop(page, 'main');
}

// A stale cache: the region edited, then the explorer offers the
// recalculation, declined once and taken once.
async function staleCache(c, page) {
  for (const key of ['explorer link xno', 'explorer link yes']) {
    await pair(c, page, 3, 4);
    const extra = key.endsWith('xno') ? 'DK01 - Hovedstaden' : 'DK03 - Syddanmark';
    await chooseRegion(c, page, [extra]);
    await pair(c, page, 2, 3);
    await c.onTop(page, 'explorer');
    await c.click(page, '#tab-tab1-2', 'explorer tab1 2', { mustChange: false });
    await c.followLinks(page, { only: [key] });
    await c.closeWindow(page);
    await c.onTop(page, 'main');
  }
}

// The hotspot report and the RVC browser.
async function rvcBrowser(c, page) {
  await pair(c, page, 3, 5);
  await c.onTop(page, 'rvc');
  await c.request(page, 'rvc', 'hot.hcn', 'rvc link hcn', { mustChange: false });
  await c.settle(page);
  await c.followLinks(page, { only: ['rvc link hotspot_rep1.htm', 'rvc link hotspot_rep2.htm', 'rvc link back.htm', 'rvc link details.htm'] });
  await c.click(page, '#tab-report-2', 'rvc tab 2');
  await c.click(page, '#tab-report-1', 'rvc tab 1');
  await c.click(page, '#tool-Index', 'rvc index');
  await c.followLinks(page, { only: ['rvc link code.htm'] });
  await c.notBlank(page, 'a country page');
  // A page below the country's carries the breadcrumb back to the index.
  await c.followLinks(page, { only: ['rvc link code.htm'] });
  await c.notBlank(page, 'a level page');
  await c.followLinks(page, { only: ['rvc link index.htm'] });
  // Pages that no page links to, but that the window serves as they stand.
  for (const name of ['working.htm', 'hotspot_rep1.htm', 'hotspot_rep2.htm'])
    await c.request(page, 'rvc', name, 'rvc link ' + name, { mustChange: false });
  await c.request(page, 'rvc', 'back.htm', 'rvc link back.htm');
  await c.click(page, '#tool-Print', 'rvc print');
  await c.closeWindow(page);
  await c.onTop(page, 'main');
}

// Every entry of the window menu and of the panels' right-click menu.
async function menus(c, page) {
  // Save As three times gives the four recent files.
  for (const [i, id] of ['mnuFileSaveAs', 'mnuAllSaveAs', 'mnuFileSaveAs'].entries())
    await c.run(page, 'main menu ' + id, () => page.evaluate((m) => window.arvenCommand({ menu: m }), id),
      { answers: saveAs('Crawl ' + 'BCD'[i]) });
  const opens = { mnuFarmEdit: 'regions', mnuFarmHot: 'regions', mnuToolsSettings: 'settings', mnuAllsExReg: 'regions',
    mnuAllEFA: 'regions', mnuAllHot: 'rvc', mnuAllOQ: 'explorer', mnuAllSet: 'settings', mnuHelpAbout: 'about',
    mnuHelpUpdates: 'settings' };
  const context = new Set(['mnuAllNFA', 'mnuAllOFA', 'mnuAllSaveAs', 'mnuAllPrint', 'mnuAllsExReg', 'mnuAllEFA',
    'mnuAllHot', 'mnuAllOQ', 'mnuAllSet', 'mnuAllCNQ']);
  for (const id of MAIN_MENUS) {
    if (id === 'mnuFileExit' || c.covered.has('main menu ' + id)) continue;
    const tabsBefore = c.context.pages().length;
    const act = context.has(id)
      ? async () => {
        await page.locator('#side').click({ button: 'right', position: { x: 20, y: 300 } });
        await page.click('#context-' + id);
      }
      : async () => {
        const item = page.locator('#menu-' + id);
        await item.evaluate((e) => e.closest('.menu').classList.add('open'));
        await item.click();
      };
    await c.run(page, 'main menu ' + id, act);
    if (opens[id]) {
      await c.onTop(page, opens[id]).catch(() => {});
      const w = await c.windowOf(page);
      if (w === 'about') await page.click('#button-ok');
      else if (w !== 'main') await c.closeWindow(page);
      await c.settle(page);
      await c.onTop(page, 'main');
    }
    // Help pages open in tabs of their own: each must load.
    for (const p of c.context.pages().slice(tabsBefore)) {
      await p.waitForLoadState();
      if (!(await p.evaluate(() => document.body && document.body.innerText.trim().length > 0)))
        c.fail(`${id}: the page ${p.url()} is blank`);
      await p.close();
    }
  }
  // The links of the summary page.
  await c.followLinks(page, { only: ['main link xx2'] });
  if ((await c.windowOf(page)) === 'regions') await c.closeWindow(page);
  await c.onTop(page, 'main');
  await c.followLinks(page, { only: ['main link xx1'] });
  if ((await c.windowOf(page)) === 'explorer') await c.closeWindow(page);
  await c.onTop(page, 'main');
  await c.followLinks(page, { only: ['main link hot'] });
  await c.onTop(page, 'rvc').catch(() => {});
  if ((await c.windowOf(page)) === 'rvc') await c.closeWindow(page);
  await c.onTop(page, 'main');
  await c.request(page, 'main', 'show.xxx', 'main link xxx');
  for (const p of c.context.pages()) if (p !== page) await p.close();
}

test('the crawler reaches every command of the user build without a fault', { skip: missing, timeout: 900000 }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE] });
  let program = await startProgram(sandbox);
  const browser = await launchBrowser();
  const c = new Crawler(browser, program.base, new URL(program.url).searchParams.get('token'));
  let page;
  try {
    page = await c.start(program.url);
    await page.locator('#button-ok').click();
    await c.onTop(page, 'main');
    await mainWindow(c, page);
    await explorer(c, page);
    await staleCache(c, page);
    await rvcBrowser(c, page);
    await menus(c, page);
    const exited = new Promise((r) => program.child.once('exit', r));
    await c.run(page, 'main menu mnuFileExit', async () => {
      const item = page.locator('#menu-mnuFileExit');
      await item.evaluate((e) => e.closest('.menu').classList.add('open'));
      await item.click();
    }, { answers: [['', 'Yes']], mustChange: false });
    await exited;

    // Started again, four times: the welcome page lists the four recent
    // files, and each of its links opens one.
    for (const n of [1, 2, 3, 4]) {
      program = await startProgram(sandbox);
      c.base = program.base;
      c.headers = { 'X-ARVEN-Token': new URL(program.url).searchParams.get('token') };
      await page.goto(program.url);
      await page.locator('#button-ok').click();
      await c.onTop(page, 'main');
      await c.followLinks(page, { only: [`main link ff${n}`] });
      await c.notBlank(page, `main link ff${n}`);
      const ended = new Promise((r) => program.child.once('exit', r));
      await c.run(page, 'main menu mnuFileExit', () => page.evaluate(() => window.arvenCommand({ menu: 'mnuFileExit' })),
        { answers: [['', 'Yes']], mustChange: false });
      await ended;
    }
  } catch (e) {
    console.log('covered: ' + [...c.covered].join(', '));
    console.log('failures: ' + c.failures.join('\n'));
    for (const [i, p] of c.context ? c.context.pages().entries() : [])
      await p.screenshot({ path: screenshotPath(`crawler-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
  }
  const left = c.missing(expectedCommands());
  if (process.env.ARVEN_CRAWL_LOG) console.log('covered: ' + [...c.covered].join(', '));
  if (left.length) console.log('commands not covered:\n  ' + left.join('\n  '));
  assert.deepEqual(c.failures, []);
  assert.deepEqual(left, []);
});

// The admin build: the console from the main window's three ways to it,
// then every tool window of the console, each of its buttons pressed once
// with the safe answer to what it asks, and closed again.
test('the crawler presses every button of the admin console and its tools without a fault', { skip: missing, timeout: 900000 }, async () => {
  const sandbox = makeSandbox({ withStores: [STORE, 'arven_operations.mdb', 'arven_rvcs.mdb'] });
  const program = await startProgram(sandbox, 'arven-admin');
  const browser = await launchBrowser();
  const c = new Crawler(browser, program.base, new URL(program.url).searchParams.get('token'));
  try {
    const page = await c.start(program.url);
    await page.locator('#button-ok').click();
    await c.onTop(page, 'main');
    await pair(c, page, 1, 3, { mustChange: false });
    await c.run(page, 'main menu mnuToolsAdmin', () => page.evaluate(() => window.arvenCommand({ menu: 'mnuToolsAdmin' })), { mustChange: false });
    await c.run(page, 'main menu mnuAllAdmin', async () => {
      await page.locator('#side').click({ button: 'right', position: { x: 20, y: 300 } });
      await page.click('#context-mnuAllAdmin');
    }, { mustChange: false });
    const console_ = await c.tabOf('admin');
    const tools = await console_.locator('[id^="button-"]').evaluateAll((bs) => bs.map((b) => b.id.slice('button-'.length)));
    assert.ok(tools.length >= 8, `tools: ${tools}`);
    for (const tool of tools) {
      const before = new Set(c.context.pages());
      await c.click(console_, '#button-' + tool, 'admin ' + tool, { mustChange: false });
      const opened = c.context.pages().filter((p) => !before.has(p));
      for (const win of opened) {
        await win.waitForLoadState();
        const name = await c.windowOf(win);
        // Every button of the tool once; none that would wait on a long run.
        const buttons = await win.locator('#content [id^="button-"], #side [id^="button-"]')
          .evaluateAll((bs) => bs.filter((b) => !b.disabled && b.offsetParent).map((b) => b.id));
        for (const id of buttons) {
          if (!(await win.locator('#' + id).isVisible()) || !(await win.locator('#' + id).isEnabled())) continue;
          await c.click(win, '#' + id, `${name} ${id}`, { mustChange: false });
          await c.notBlank(win, `${name} ${id}`);
        }
        if (!win.isClosed() && (await c.windowOf(win)) === name && (await win.locator('#close-window').count()))
          await c.closeWindow(win);
        if (!win.isClosed()) await win.close();
      }
    }
  } catch (e) {
    for (const [i, p] of c.context ? c.context.pages().entries() : [])
      await p.screenshot({ path: screenshotPath(`crawler-admin-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
  }
  const left = c.missing(['main pair 1,3', 'main menu mnuToolsAdmin', 'main menu mnuAllAdmin']);
  if (process.env.ARVEN_CRAWL_LOG) console.log('covered: ' + [...c.covered].join(', '));
  // Every tool window was reached and its buttons pressed.
  assert.ok([...c.covered].filter((k) => k.startsWith('admin/')).length >= 30, 'buttons of the tool windows pressed');
  assert.deepEqual(c.failures, []);
  assert.deepEqual(left, []);
});
