// The crawler's tools: it watches every tab of a browser for faults, clicks
// what a person would click, answers dialogs with their safe choice, follows
// the links of the program's pages, and files each command it ran under the
// key of the command table it belongs to.
import { pageText } from './lib.mjs';

// The commands of the main window (its tool pairs, menus and page links),
// of the explorer's pages and toolbar, and of the RVC browser's pages.
export const MAIN_PAIRS = ['1,1', '1,2', '2,1', '2,2', '2,3', '3,1', '3,2', '3,3', '3,4', '3,5'];
export const MAIN_MENUS = ['mnuFileNew', 'mnuFileOpen', 'mnuFileSaveAs', 'mnuFilePrint', 'mnuFileTemp1',
  'mnuFileTemp2', 'mnuFileTemp3', 'mnuFileTemp4', 'mnuFileCompare', 'mnuFileReportPack', 'mnuFileExit', 'mnuFarmNew', 'mnuFarmEdit', 'mnuFarmHot',
  'mnuDatabaseOpen', 'mnuToolsSettings', 'mnuDatabaseCreate', 'mnuAllNFA', 'mnuAllOFA', 'mnuAllSaveAs',
  'mnuAllPrint', 'mnuAllsExReg', 'mnuAllEFA', 'mnuAllHot', 'mnuAllOQ', 'mnuAllSet', 'mnuAllCNQ',
  'mnuHelpStart', 'mnuHelpShowMe', 'mnuHelpAbout', 'mnuHelpWeb', 'mnuHelpUpdates'];
export const MAIN_LINKS = ['ff1', 'ff2', 'ff3', 'ff4', 'hot', 'xx2', 'xx1', 'xxx', 'uuu'];
export const EXPLORER_LINKS = ['s3', 's4', 's5', 's6', 's7', 's8', 's12', 'yes', 'ra1', 'ra2', 'xno', 'xxx',
  'det', 'yyy', 'rg1', 'rg2', 'rg3', 'rg4', 'rg5', 'rg6', 'rg7', 'rea', 'rep', 'cg1', 'cg2', 'ca1', 'ca2',
  'cp1', 'cp2', 'zzz', 'mmm', 'rem', 'opd', 'wrk', 'tot', 'unk'];
export const EXPLORER_TOOLS = ['New', 'Open', 'Print', 'ReCalc', 'maccghg', 'maccadapt', 'Home', 'Totals', 'Working',
  'Compare', 'Uncertainty'];
export const RVC_LINKS = ['hcn', 'working.htm', 'hotspot_rep1.htm', 'hotspot_rep2.htm', 'index.htm', 'back.htm',
  'details.htm', 'code.htm'];

export function expectedCommands({ admin = false } = {}) {
  return [
    ...MAIN_PAIRS.map((p) => 'main pair ' + p), ...(admin ? ['main pair 1,3'] : []),
    ...MAIN_MENUS.map((m) => 'main menu ' + m), ...(admin ? ['main menu mnuToolsAdmin', 'main menu mnuAllAdmin'] : []),
    ...MAIN_LINKS.map((l) => 'main link ' + l),
    ...EXPLORER_LINKS.map((l) => 'explorer link ' + l),
    ...EXPLORER_TOOLS.map((t) => 'explorer tool ' + t),
    ...RVC_LINKS.map((l) => 'rvc link ' + l),
  ];
}

// The table key of a link target in a window's page, or null for a link
// that is no command (an asset, an outside address).
export function linkKey(win, href) {
  let t = href.replace(/[?#].*$/, '');
  t = t.slice(t.lastIndexOf('/') + 1).toLowerCase();
  if (/^(https?:|javascript:|mailto:)/.test(href) || !t) return null;
  // The report window's links are the explorer's.
  const table = win === 'report' ? 'explorer' : win;
  if (table === 'rvc') {
    if (t.endsWith('hcn')) return 'rvc link hcn';
    if (t.endsWith('details.htm')) return 'rvc link details.htm';
    if (['working.htm', 'hotspot_rep1.htm', 'hotspot_rep2.htm', 'index.htm', 'back.htm'].includes(t)) return 'rvc link ' + t;
    if (t.endsWith('.htm')) return 'rvc link code.htm';
    return null;
  }
  const sort = t.match(/^sort\.\d+s(\d+)$/);
  if (sort && table === 'explorer') return 'explorer link s' + sort[1];
  // Another page of the window: it navigates as a plain link does.
  if (table === 'explorer' && /\.html?$/.test(t)) return 'explorer page ' + t;
  if (/\.(htm|html|gif|png|jpg|pdf|js|css)$/.test(t)) return null;
  const tail = t.slice(-3);
  if (table === 'explorer') {
    if (tail === 'exc' || tail === 'exx') return 'explorer export ' + tail;
    return EXPLORER_LINKS.includes(tail) ? 'explorer link ' + tail : 'explorer unknown ' + t;
  }
  if (table === 'main') return MAIN_LINKS.includes(tail) ? 'main link ' + tail : 'main unknown ' + t;
  return win + ' link ' + t;
}

export class Crawler {
  constructor(browser, base, token) {
    this.base = base;
    this.headers = { 'X-ARVEN-Token': token };
    this.failures = [];
    this.covered = new Set();
    this.context = null;
    this.browser = browser;
  }

  async start(url) {
    this.context = await this.browser.newContext({ viewport: { width: 1400, height: 900 }, acceptDownloads: true });
    this.context.on('page', (p) => this.watch(p));
    const page = await this.context.newPage();
    await page.goto(url);
    return page;
  }

  fail(text) {
    this.failures.push(text);
  }

  watch(page) {
    page.on('console', (m) => {
      if (m.type() === 'error') this.fail(`console error on ${page.url()}: ${m.text()}`);
    });
    page.on('pageerror', (e) => this.fail(`page error on ${page.url()}: ${e.message}`));
    page.on('response', (r) => {
      if (r.status() >= 400) this.fail(`${r.status()} for ${r.request().method()} ${r.url()}`);
    });
  }

  cover(key) {
    this.covered.add(key);
  }

  // The state of a window, asked as a script asks (the token in a header),
  // so that a tab moving on to another window does not cut the question.
  async state(page, win) {
    const r = await this.context.request.get(`${this.base}/${win}/state.json`, { headers: this.headers });
    return r.json();
  }

  // The window a tab shows (its page's data-window).
  async windowOf(page) {
    for (let i = 0; i < 20; ++i) {
      try {
        return await page.evaluate(() => document.body.dataset.window || '');
      } catch (e) {
        await new Promise((r) => setTimeout(r, 100));  // the tab is moving on
      }
    }
    return '';
  }

  // Waits until the program is idle: no work running; a dialog on screen is
  // answered with its safe choice (or by `answers`, a list of [title part,
  // button] tried first). Returns the dialogs answered.
  async settle(page, answers = [], timeout = 60000) {
    const seen = [];
    const until = Date.now() + timeout;
    let quiet = 0;
    while (Date.now() < until) {
      const s = await this.state(page, 'main').catch(() => null);
      if (!s || s.ended) return seen;
      if (s.dialog) {
        quiet = 0;
        const d = s.dialog;
        seen.push(d);
        const pick = answers.find(([part]) => (d.title + ' ' + d.text).includes(part));
        const buttons = d.buttons || [];
        const safe = ['Cancel', 'No', 'Close', 'OK', 'Ok'].find((b) => buttons.includes(b)) || buttons[0];
        const button = pick ? pick[1] : safe;
        const body = { id: String(d.id), button };
        if (d.kind === 'file') body.file = pick && pick[2] ? pick[2] : '';
        await this.context.request.post(`${this.base}/${d.window || s.top || 'main'}/answer`,
          { headers: this.headers, form: body });
        await new Promise((r) => setTimeout(r, 150));
        continue;
      }
      if (!s.busy) {
        if (++quiet >= 5) return seen;
      } else {
        quiet = 0;
      }
      await new Promise((r) => setTimeout(r, 100));
    }
    this.fail('the program stayed busy for ' + timeout / 1000 + ' s');
    return seen;
  }

  // Runs `act` on the page, settles, and checks that the program's state
  // moved on (a new version); files the command under `key`.
  async run(page, key, act, { answers = [], mustChange = true } = {}) {
    const before = await this.state(page, 'main');
    await act();
    const dialogs = await this.settle(page, answers);
    const after = await this.state(page, 'main').catch(() => ({ version: -1 }));
    if (mustChange && after.version === before.version && dialogs.length === 0)
      this.fail(`${key}: the command changed nothing`);
    this.cover(key);
    return dialogs;
  }

  // A click on a control of a tab's window, by element id.
  async click(page, selector, key, options) {
    return this.run(page, key, () => page.click(selector), options);
  }

  // The link targets of the page shown in a tab's embedded browser.
  async links(page) {
    const frame = page.frame({ name: 'page' });
    if (!frame) return [];
    return frame.evaluate(() => Array.from(document.querySelectorAll('a[href]'),
      (a) => a.getAttribute('href'))).catch(() => []);
  }

  // Checks that the tab's embedded page is not blank, once it has loaded.
  async notBlank(page, what) {
    let text = '', url = '';
    for (let i = 0; i < 50 && !text; ++i) {
      const frame = page.frame({ name: 'page' });
      if (!frame) return;
      url = frame.url();
      // A window without a page of its own (a dialog window) has none to show.
      if (url === 'about:blank') return;
      text = await frame.evaluate(() => (document.readyState === 'complete' && document.body
        ? document.body.innerText.trim() : '')).catch(() => '');
      if (!text) await new Promise((r) => setTimeout(r, 100));
    }
    if (!text) this.fail(`${what}: the page ${url} is blank`);
  }

  // Follows, once per command key, the links of the page on show in the
  // tab, in page order, re-reading the page after each. `skip` names keys
  // left for later (a removal, say); `only` the keys to follow, met before
  // or not; `answers` as for settle.
  async followLinks(page, { skip = [], answers = [], only = null } = {}) {
    const win = await this.windowOf(page);
    const tried = new Set();
    const wanted = (h) => {
      const k = linkKey(win, h);
      // Keys named in `only` are followed even when met before.
      return k && !tried.has(k) && !skip.includes(k) && (only ? only.includes(k) : !this.covered.has(k));
    };
    for (let round = 0; round < 60; ++round) {
      let next = (await this.links(page)).find(wanted);
      // A link asked for by name may be on a page still loading.
      for (let wait = 0; !next && only && round === 0 && wait < 50; ++wait) {
        await new Promise((r) => setTimeout(r, 100));
        next = (await this.links(page)).find(wanted);
      }
      if (!next) return;
      const key = linkKey(win, next);
      tried.add(key);
      if (key.includes(' unknown ')) this.fail(`${win}: the link ${next} leads nowhere`);
      const frame = page.frame({ name: 'page' });
      const link = frame.locator(`a[href="${next}"]`).first();
      if (key.includes(' export ')) {
        const [download] = await Promise.all([page.waitForEvent('download', { timeout: 15000 }), link.click()]);
        if (!(await download.path())) this.fail(`${key}: no file came`);
        this.cover(key);
        continue;
      }
      if (key.includes(' page ')) {
        // A plain page: the embedded browser goes there.
        const name = next.slice(next.lastIndexOf('/') + 1);
        await link.click();
        await page.waitForFunction((n) => {
          const f = document.getElementById('page');
          return f && f.contentDocument && f.contentDocument.readyState === 'complete' &&
            f.contentWindow.location.pathname.endsWith('/' + n);
        }, name, { timeout: 15000 }).catch(() => this.fail(`${key}: the page did not open`));
        this.cover(key);
      } else {
        // The RVC browser's own pages navigate as they stand.
        const plain = /^rvc link (index|working|hotspot_rep[12])\.htm$/.test(key);
        await this.run(page, key, () => link.click(), { answers, mustChange: !plain });
      }
      await this.notBlank(page, key);
    }
  }

  // A command reached by no link of the pages: its request, as a link in
  // the window's page would make it.
  async request(page, win, target, key, options) {
    return this.run(page, key, () => this.context.request.get(`${this.base}/${win}/${target}`,
      { headers: this.headers }), options);
  }

  // The tab that shows `win` (a window opened beside the others).
  async tabOf(win, timeout = 30000) {
    const until = Date.now() + timeout;
    while (Date.now() < until) {
      for (const p of this.context.pages()) {
        if (p.isClosed()) continue;
        const w = await this.windowOf(p).catch(() => '');
        if (w === win) return p;
      }
      await new Promise((r) => setTimeout(r, 100));
    }
    throw new Error('no tab shows ' + win);
  }

  // The main tab once it shows `win` (a modal window on top of the main one).
  async onTop(page, win, timeout = 15000) {
    await page.waitForFunction((w) => document.body.dataset.window === w, win, { timeout });
    await page.locator('#menubar .close, #side, #toolbar').first().waitFor();
  }

  // Closes the window the tab shows with its frame's close box.
  async closeWindow(page, answers = []) {
    await this.settle(page, answers);
    if (page.isClosed()) return;  // it closed itself
    await page.click('#close-window');
    await this.settle(page, answers);
  }

  missing(expected) {
    return expected.filter((k) => !this.covered.has(k));
  }
}

export { pageText };
