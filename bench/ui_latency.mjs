// Click-to-result latency of the program's windows, against a floor.
//
//   node bench/ui_latency.mjs [--runs N] [--json FILE] [--only analyst|admin]
//
// Each run starts the user build and the admin build on the demo data in a
// fresh sandbox and a fresh headless Chromium, and walks an analyst's road
// and an administrator's through the windows as a person does: a click, then
// a wait for what only its result shows. Each step's floor is the page the
// program wrote for that result, copied with the assets it refers to and
// loaded from disk (file://) in the same Chromium, timed to the same visible
// result; steps whose result is drawn by the window itself, with no page of
// the report folder behind it, have no floor. The table gives each step's
// median over the runs, its floor's median, their ratio, and p50 and p95 of
// the step medians. No time is asserted: the script fails only when a step
// cannot be done at all (UI_LATENCY_TIMEOUT ms, default 90 s), and a failure
// leaves screenshots of every tab in e2e/out/.
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { performance } from 'node:perf_hooks';
import { launchBrowser, makeSandbox, startProgram, screenshotPath } from '../e2e/lib.mjs';
import { analystRoad, adminRoad } from './ui_roads.mjs';

const STORE = 'new_arven_operations_DK.mdb';
const VIEWPORT = { width: 1400, height: 900 };
// Generous: the point is to measure a slow window, not to give up on it.
const TIMEOUT = Number(process.env.UI_LATENCY_TIMEOUT) || 90000;

function options(argv) {
  const o = { runs: 5, json: null, only: null };
  for (let i = 0; i < argv.length; ++i) {
    const a = argv[i];
    if (a === '--runs') o.runs = Number(argv[++i]);
    else if (a === '--json') o.json = argv[++i];
    else if (a === '--only') o.only = argv[++i];
    else if (a === '--help') {
      console.log('usage: node bench/ui_latency.mjs [--runs N] [--json FILE] [--only analyst|admin]');
      process.exit(0);
    } else throw new Error('unknown option ' + a);
  }
  if (!(Number.isInteger(o.runs) && o.runs > 0)) throw new Error('--runs wants a whole number above 0');
  if (o.only && !['analyst', 'admin'].includes(o.only)) throw new Error('--only analyst or --only admin');
  return o;
}

// Where a result shows: `tab` (a page, or 'any' for whichever tab of the
// browser shows it first, one opened by the click included, of the window
// `window` when given), in the window's embedded page (`frame`) or in the
// window's own controls; `text`, `sel` and `inLast` narrow it. A frame
// result must be a page loaded after the click: the pages on show are
// marked stale before it.
export function resultIn(root, want) {
  if (!want.frame) {
    const l = root.locator(want.sel, want.text ? { hasText: want.text } : {});
    return l.first();
  }
  const body = root.locator('body:not([data-bench-stale])', want.text ? { hasText: want.text } : {});
  // `inLast`: what the last of the `sel` elements holds once drawn (the
  // last of a page's charts, drawn in page order).
  if (want.inLast) return body.locator(want.sel).last().locator(want.inLast).first();
  return (want.sel ? body.locator(want.sel) : body).first();
}

// One run of one road: the program, its browser tab(s), the step times and
// the copies of the pages behind the results.
export class Walk {
  constructor(build, browser, sandbox, program, floorsDir, record) {
    Object.assign(this, { build, browser, sandbox, program, floorsDir, record });
    this.context = null;
    this.copies = [];
  }

  async open() {
    this.context = await this.browser.newContext({ viewport: VIEWPORT });
    this.context.setDefaultTimeout(TIMEOUT);
    this.page = await this.context.newPage();
    return this.page;
  }

  pages() {
    return this.context.pages().filter((p) => !p.isClosed());
  }

  async markStale() {
    await Promise.all(this.pages().map((p) => p.frame({ name: 'page' })?.evaluate(() => {
      if (document.body) document.body.setAttribute('data-bench-stale', '');
    }).catch(() => {})));
  }

  // The tab where `want` shows, once it does, within `timeout` ms.
  async shown(want, timeout = TIMEOUT) {
    if (want.tab !== 'any') {
      await resultIn(want.frame ? want.tab.frameLocator('#page') : want.tab, want).waitFor({ timeout });
      return want.tab;
    }
    // Every tab is looked at in turn, a new one included, until one shows
    // it: waits left running on the other tabs would load the browser.
    const deadline = performance.now() + timeout;
    while (performance.now() < deadline) {
      for (const p of this.pages()) {
        if (want.window && !new URL(p.url(), 'http://x').pathname.startsWith(`/${want.window}/`)) continue;
        const l = resultIn(want.frame ? p.frameLocator('#page') : p, want);
        if (await l.isVisible().catch(() => false)) return p;
      }
      await new Promise((r) => setTimeout(r, 10));
    }
    throw new Error(`no tab shows ${want.sel ?? ''} ${want.text ?? ''} within ${timeout} ms`);
  }

  // A timed step: `target` (a locator, shown before the clock starts) is
  // clicked, and the clock stops when `want` shows. Returns the tab that
  // shows it. With `patience` (ms), a result that does not show within it is
  // recorded as no answer and the step returns null: a measure of a jammed
  // program, not a broken road.
  async step(name, target, want, { dbl = false, patience = 0 } = {}) {
    await target.waitFor({ timeout: TIMEOUT });
    if (want.frame) await this.markStale();
    // A person clicks in the tab in front of them: a tab left behind the
    // others is throttled by the browser, which would time the browser's
    // background work rather than the program.
    await target.page().bringToFront();
    const t0 = performance.now();
    if (dbl) await target.dblclick();
    else await target.click();
    let tab;
    try {
      tab = await this.shown(want, patience || TIMEOUT);
    } catch (e) {
      if (patience) {
        this.record(name, 'missed', patience);
        process.stderr.write(`  ${name}: no answer within ${patience} ms\n`);
        return null;
      }
      throw new Error(`step "${name}" (${this.build}): ${e.message}`);
    }
    const ms = performance.now() - t0;
    this.record(name, 'times', ms);
    process.stderr.write(`  ${name}: ${Math.round(ms)} ms\n`);
    if (want.frame && want.floor !== false) this.copyPage(name, tab, want);
    return tab;
  }

  // Copies the page the tab's frame shows, from the report folder, with the
  // asset folders it refers to (copied once per run).
  copyPage(name, tab, want) {
    const url = new URL(tab.frame({ name: 'page' }).url());
    const file = decodeURIComponent(url.pathname.slice(url.pathname.lastIndexOf('/') + 1));
    const dir = path.join(this.floorsDir, String(this.copies.length));
    fs.mkdirSync(dir, { recursive: true });
    const assets = path.join(this.floorsDir, 'assets');
    for (const sub of ['graphics', 'javascript', 'help']) {
      const from = path.join(this.sandbox.app, sub);
      if (!fs.existsSync(from)) continue;
      if (!fs.existsSync(path.join(assets, sub))) fs.cpSync(from, path.join(assets, sub), { recursive: true });
      fs.symlinkSync(path.join(assets, sub), path.join(dir, sub));
    }
    fs.copyFileSync(path.join(this.sandbox.app, file), path.join(dir, file));
    this.copies.push({ name, file: path.join(dir, file), want });
  }

  // Each copied page loaded from disk in a tab of the same browser, timed
  // from navigation to the same visible result.
  async floors() {
    const context = await this.browser.newContext({ viewport: VIEWPORT });
    try {
      for (const c of this.copies) {
        const page = await context.newPage();
        const t0 = performance.now();
        await page.goto('file://' + c.file, { waitUntil: 'commit' });
        await resultIn(page, { ...c.want, frame: true }).waitFor({ timeout: TIMEOUT });
        this.record(c.name, 'floors', performance.now() - t0);
        await page.close();
      }
    } finally {
      await context.close();
    }
  }
}

// One run of a road on a fresh sandbox, program and browser.
async function walkOnce(build, road, run, record) {
  const sandbox = makeSandbox({ withStores: [STORE, 'arven_operations.mdb', 'arven_rvcs.mdb'] });
  const program = await startProgram(sandbox, build);
  const browser = await launchBrowser();
  const walk = new Walk(build, browser, sandbox, program, path.join(sandbox.dir, 'floors'), record);
  try {
    await walk.open();
    await road(walk, run);
    await walk.floors();
  } catch (e) {
    for (const [i, p] of walk.context ? walk.pages().entries() : [])
      await p.screenshot({ path: screenshotPath(`ui-latency-failure-${i}`) }).catch(() => {});
    throw e;
  } finally {
    await browser.close();
    program.child.kill();
    fs.rmSync(sandbox.dir, { recursive: true, force: true });
  }
}

export function median(xs) {
  if (!xs.length) return null;
  const s = [...xs].sort((a, b) => a - b);
  const m = s.length >> 1;
  return s.length % 2 ? s[m] : (s[m - 1] + s[m]) / 2;
}

// Nearest-rank percentile.
export function percentile(xs, p) {
  if (!xs.length) return null;
  const s = [...xs].sort((a, b) => a - b);
  return s[Math.min(s.length - 1, Math.max(0, Math.ceil((p / 100) * s.length) - 1))];
}

// A step with runs that got no answer has no median: it is shown as
// "no answer" with how many runs missed, and counts as slowest in the
// percentiles.
export function summarize(samples) {
  const steps = [...samples.entries()].map(([step, s]) => {
    const m = s.missed.length ? null : median(s.times);
    const f = median(s.floors);
    return { step, median: m, floor: f, ratio: m != null && f ? m / f : null, times: s.times, floors: s.floors,
      missed: s.missed.length, patience: s.missed[0] ?? null };
  });
  const medians = steps.map((s) => (s.median == null ? Infinity : s.median));
  return { steps, p50: percentile(medians, 50), p95: percentile(medians, 95) };
}

export function table(summary) {
  const ms = (v) => (v == null ? '—' : v === Infinity ? 'no answer' : `${Math.round(v).toLocaleString('en-US')} ms`);
  const runs = (s) => s.times.length + s.missed;
  const rows = summary.steps.map((s) => [s.step,
    s.missed ? `no answer in ${s.patience / 1000} s (${s.missed} of ${runs(s)} runs)` : ms(s.median),
    ms(s.floor), s.ratio == null ? '—' : s.ratio.toFixed(1)]);
  const head = ['step', 'median', 'floor', 'ratio'];
  const width = head.map((h, i) => Math.max(h.length, ...rows.map((r) => r[i].length)));
  const line = (r) => r.map((c, i) => (i ? c.padStart(width[i]) : c.padEnd(width[i]))).join('  ');
  return [line(head), ...rows.map(line), '',
    `p50 over ${summary.steps.length} steps: ${ms(summary.p50)}`, `p95 over the steps: ${ms(summary.p95)}`].join('\n');
}

async function main() {
  const o = options(process.argv.slice(2));
  const samples = new Map();
  const record = (name, kind, ms) => {
    if (!samples.has(name)) samples.set(name, { times: [], floors: [], missed: [] });
    samples.get(name)[kind].push(ms);
  };
  const roads = [['arven', analystRoad, 'analyst'], ['arven-admin', adminRoad, 'admin']]
    .filter(([, , who]) => !o.only || o.only === who);
  for (let run = 0; run < o.runs; ++run) {
    for (const [build, road, who] of roads) {
      process.stderr.write(`run ${run + 1}/${o.runs}: the ${who}'s road (${build})\n`);
      await walkOnce(build, road, run, record);
    }
  }
  const summary = summarize(samples);
  console.log(table(summary));
  if (o.json) {
    fs.writeFileSync(o.json, JSON.stringify({
      runs: o.runs, cpus: os.cpus().length, loadavg: os.loadavg(), ...summary,
    }, null, 2) + '\n');
  }
}

if (process.argv[1] && path.resolve(process.argv[1]) === path.resolve(new URL(import.meta.url).pathname)) {
  main().catch((e) => {
    console.error(e.stack || String(e));
    process.exit(1);
  });
}
