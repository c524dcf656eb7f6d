// The roads the latency benchmark walks: an analyst's through one
// assessment in the user build, an administrator's through the console and
// its tools in the admin build. Each `walk.step` is one timed click; what
// is done between steps, untimed, only brings the windows to the click.
import { performance } from 'node:perf_hooks';
import { chooseOperations, newFileWithRegion } from '../e2e/lib.mjs';

const frameText = (tab, text, sel) => ({ tab, frame: true, text, sel });
const control = (tab, sel, text) => ({ tab, frame: false, sel, text });
const CHART = '.highcharts-series-group';

// Tabs that show `window` (a page's data-window), newest first.
async function tabsOf(walk, window) {
  const found = [];
  for (const p of walk.pages()) {
    const w = await p.evaluate(() => document.body?.dataset.window).catch(() => '');
    if (w === window) found.push(p);
  }
  return found.reverse();
}

export async function analystRoad(walk, run) {
  const page = walk.page;
  const frame = page.frameLocator('#page');
  const entry = (list, text) => page.locator(`#list-${list} .list-item`, { hasText: text });

  await page.goto(walk.program.url);
  await walk.step('About box OK → main window', page.locator('#button-ok'), control(page, '#panel-1'));

  // A new assessment file and its region.
  await page.click('#panel-3');
  await page.click('#item-3-1');
  await page.fill('#file-name', `Latency ${run + 1}`);
  await walk.step('new file: Save in the file chooser → its summary', page.locator('#answer-Save'),
    frameText(page, 'File:'));
  await walk.step('regional profile builder opens', page.locator('#item-3-3'),
    control(page, '#list-0 .list-item', 'DK - Danmark'));
  await walk.step('a country → its NUTS1 areas', entry(0, 'DK - Danmark'), control(page, '#list-1 .list-item', 'DK0 - Danmark'));
  await entry(1, 'DK0 - Danmark').click();
  await walk.step('an area double-clicked → in the region', entry(2, 'DK02 - Sjælland'),
    control(page, '#table-regions-row-0'), { dbl: true });
  await walk.step('builder closed → summary with the region', page.locator('#close-window'), frameText(page, 'DK02'));

  // The explorer: operations chosen, their pages and charts.
  await page.click('#panel-2');
  await walk.step('explorer opens', page.locator('#item-2-3'), frameText(page, 'No Operations Selected'));
  await page.click('#tab-tab1-1');
  const node = (tree, text) => page.locator(`#tree-${tree} .tree-node`, { hasText: text }).first();
  await walk.step('an operation double-clicked in the catalogue → chosen', node('catalogue', 'Winter cover crops'),
    control(page, '#tab-tab1-2', 'My RDP Operations (1)'), { dbl: true });
  for (const [i, name] of ['Hedgerow planting', 'Riparian buffer strips along watercourses'].entries()) {
    await node('catalogue', name).dblclick();
    await page.locator('#tab-tab1-2', { hasText: `My RDP Operations (${i + 2})` }).waitFor();
  }
  await walk.step('chosen operations tab → an operation\'s summary with chart', page.locator('#tab-tab1-2'),
    frameText(page, 'Remove Operation', '#container ' + CHART));
  await walk.step('another operation → its summary with chart', node('chosen', 'Winter cover crops'),
    frameText(page, 'Remove Operation', '#container ' + CHART));
  const report = await walk.step('detailed report in its tab', frame.locator('a[href$=".det"]').first(),
    frameText('any', 'References'));
  // The breakdown shows in the explorer or in the report tab; its chart link is there.
  const breakdown = await walk.step('regional breakdown (table)',
    report.frameLocator('#page').locator('a[href$=".rg5"]').first(), frameText('any', 'Time Horizon: 50 years'));
  const chartLink = breakdown.frameLocator('#page').locator('a[href$=".cg1"]').first();
  await walk.step('regional breakdown → bar chart', chartLink,
    frameText('any', 'Regional breakdown for Winter cover crops', CHART));

  await walk.step('Ranked tab', page.locator('#tab-tab2-1'), frameText(page, 'Ranked by total regional impact'));
  await walk.step('sort the ranked list', frame.locator('a[href^="sort."]').first(),
    frameText(page, 'Ranked by total regional impact'));
  await walk.step('aggregation tab', page.locator('#tab-tab2-6'), frameText(page, 'Aggregated by RDP Measures (post-2013)'));
  await walk.step('cost-curve options shown', page.locator('#tool-maccghg'), control(page, '#button-CreateGHG'));
  await walk.step('GHG cost curve drawn', page.locator('#button-CreateGHG'), frameText('any', null, CHART));
  await walk.step('adaptation cost curve drawn', page.locator('#tool-maccadapt'), frameText('any', null, CHART));
  await walk.step('explorer closed → main window', page.locator('#close-window'), frameText(page, 'DK02'));

  // The RVC browser: country, NUTS1, an area's details with its pies.
  await page.click('#panel-3');
  await walk.step('RVC browser opens', page.locator('#item-3-4'), control(page, '#list-0 .list-item', 'DK - Danmark'));
  await walk.step('a country chosen', entry(0, 'DK - Danmark'), control(page, '#caption', 'DK - Danmark currently selected'));
  await walk.step('RVC index of the country', page.locator('#tool-RVC'), frameText(page, 'Colour code key'));
  await walk.step('country → NUTS1', frame.locator('a', { hasText: /^Danmark$/ }), frameText(page, 'NUTS1: Danmark'));
  await walk.step('NUTS1 → area details with pies', frame.locator('a[href="DK01_details.htm"]'),
    { ...frameText(page, 'European range:', '[id^="container"]'), inLast: '.highcharts-pie-series' });
  await walk.step('RVC browser closed → regional profile builder', page.locator('#close-window'),
    control(page, 'body[data-window="regions"] #list-0 .list-item'));
  await page.click('#close-window');

  // The hotspot report, and the settings.
  await walk.step('hotspot report', frame.locator('a[href="hot.hot"]'), frameText(page, 'Hotspot Report:'));
  await walk.step('hotspot report, second tab', page.locator('#tab-report-2'),
    frameText(page, 'average risk class for each NUTS3 area'));
  await walk.step('hotspot report closed → main window', page.locator('#close-window'), control(page, '#panel-3'));
  await page.click('#panel-1');
  await walk.step('settings open', page.locator('#item-1-1'), control(page, 'body[data-window="settings"] [id^="tab-"]'));
  await walk.step('settings closed → main window', page.locator('#close-window'), control(page, 'body[data-window="main"] #panel-3'));
}

// The console's tools (Publish writes a file and opens no window), the
// window each opens, and what shows once it is drawn.
const TOOLS = ['prepro', 'details', 'factors', 'compman', 'rvcman', 'budget', 'rvcimport', 'backups'];
const drawn = (win) => ({ window: win, ...(win === 'admin/budget' ? frameText('any', null, CHART)
  : control('any', `body[data-window="${win}"] #content [id^="button-"]`)) });

const TWELVE = '12 windows open (admin build): ';
const PATIENCE = 60000;

export async function adminRoad(walk, run) {
  const page = walk.page;
  await newFileWithRegion(page, walk.program.url, `Admin latency ${run + 1}`);
  // The console the program opened at start is closed, to be opened from the menu.
  for (const t of await tabsOf(walk, 'admin')) await t.close();
  await page.click('#panel-1');
  const consoleTab = await walk.step('console from Toolbox → Administration', page.locator('#item-1-3'),
    control('any', 'body[data-window="admin"] #button-backups'));

  // Each tool window opened and closed again, with two windows open.
  const open = (name, button, win) => walk.step(name, button, drawn(win));
  for (const tool of TOOLS) {
    const tab = await open(`tool window opens: ${tool}`, consoleTab.locator('#button-' + tool), 'admin/' + tool);
    if (tool === 'prepro') {
      const all = await open('tool window opens: all-country store', tab.locator('#button-allcountry'), 'admin/allcountry');
      await all.close();
    }
    if (tool === 'backups') await backUp(walk, tab, '');
    await tab.close();
  }

  // Twelve windows, each in its tab: the main window (with the explorer on
  // it), the report window, the console and its nine tool windows; then a
  // click in the last one.
  await chooseOperations(page, ['Winter cover crops']);
  await page.locator('#tree-chosen .tree-node', { hasText: 'Winter cover crops' }).click();
  await page.frameLocator('#page').locator('a[href$=".det"]').first().click();
  await walk.shown(frameText('any', 'References'));
  let prepro = null;
  // Each opening is timed too: the program answers slower with every tab.
  // A window that does not open within PATIENCE leaves the rest unreached.
  const steps = [...TOOLS.flatMap((t) => (t === 'prepro' ? [t, 'allcountry'] : [t]))];
  let backups = null;
  let stuck = false;
  for (const [i, tool] of steps.entries()) {
    const name = `${TWELVE}window ${i + 4} of 12 opens (${tool})`;
    if (stuck) {
      walk.record(name, 'missed', PATIENCE);
      continue;
    }
    const from = tool === 'allcountry' ? prepro : consoleTab;
    const tab = await walk.step(name, from.locator('#button-' + tool), drawn('admin/' + tool), { patience: PATIENCE });
    if (!tab) stuck = true;
    if (tool === 'prepro') prepro = tab;
    backups = tab;
  }
  if (stuck) {
    for (const what of ['Back up now → its message', 'OK → the backup listed']) walk.record(TWELVE + what, 'missed', PATIENCE);
    process.stderr.write('  (the twelve windows could not all be opened: the click in the last one was not made)\n');
    return;
  }
  const windows = walk.pages().length;
  if (windows !== 12) process.stderr.write(`  (${windows} tabs open, not 12)\n`);
  await backUp(walk, backups, TWELVE, PATIENCE);
}

// "Back up now", its message, and OK: the new backup is listed.
async function backUp(walk, tab, prefix, patience = 0) {
  const listed = await tab.locator('#list-backups .list-item').count();
  const said = await walk.step(prefix + 'Back up now → its message', tab.locator('#button-backup'),
    control(tab, '#dialog .dialog-title', 'Backup'), { patience });
  if (!said) {
    walk.record(prefix + 'OK → the backup listed', 'missed', patience);
    return;
  }
  await walk.step(prefix + 'OK → the backup listed', tab.locator('#answer-OK'),
    control(tab, `#list-backups-item-${listed}`), { patience });
}
