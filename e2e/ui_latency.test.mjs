// The latency benchmark's own parts: the figures it prints from the runs,
// and the floor, a copy of a result page loaded from disk in Chromium.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { launchBrowser } from './lib.mjs';
import { Walk, summarize, table } from '../bench/ui_latency.mjs';

test('steps without an answer show as such and count as slowest', () => {
  const samples = new Map([
    ['chart', { times: [300, 100, 200, 400], floors: [50, 150], missed: [] }],
    ['dialog', { times: [80, 90, 70], floors: [], missed: [] }],
    ['jammed', { times: [900, 800], floors: [], missed: [60000] }],
  ]);
  const s = summarize(samples);
  assert.deepEqual(s.steps.map((x) => [x.median, x.floor, x.ratio]), [[250, 100, 2.5], [80, null, null], [null, null, null]]);
  assert.equal(s.p50, 250);
  assert.equal(s.p95, Infinity);
  const lines = table(s).split('\n');
  assert.match(lines.find((l) => l.startsWith('chart')), /250 ms\s+100 ms\s+2\.5$/);
  assert.match(lines.find((l) => l.startsWith('dialog')), /80 ms\s+—\s+—$/);
  assert.match(lines.find((l) => l.startsWith('jammed')), /no answer in 60 s \(1 of 3 runs\)/);
  assert.match(table(s), /p95 over the steps: no answer/);
});

test('a floor is the page as it was at the step, with its scripts, loaded from disk', async () => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'arven-latency-'));
  const app = path.join(dir, 'app');
  fs.mkdirSync(path.join(app, 'javascript'), { recursive: true });
  fs.writeFileSync(path.join(app, 'javascript', 'draw.js'),
    "document.addEventListener('DOMContentLoaded', () => document.getElementById('c').append(Object.assign(document.createElement('b'), { className: 'drawn', textContent: 'drawn' })));");
  const page = path.join(app, 'summary_report.htm');
  fs.writeFileSync(page, '<html><head><script src="javascript/draw.js"></script></head><body>First report<div id="c"></div></body></html>');
  const record = [];
  const browser = await launchBrowser();
  try {
    const walk = new Walk('arven', browser, { app }, null, path.join(dir, 'floors'), (...r) => record.push(r));
    const tab = { frame: () => ({ url: () => 'http://127.0.0.1:1/explorer/summary_report.htm?n=7' }) };
    walk.copyPage('summary', tab, { frame: true, text: 'First report', sel: '#c .drawn' });
    // The program writes the next page under the same name.
    fs.writeFileSync(page, '<html><body>Second report</body></html>');
    await walk.floors();
  } finally {
    await browser.close();
    fs.rmSync(dir, { recursive: true, force: true });
  }
  assert.equal(record.length, 1);
  assert.deepEqual(record[0].slice(0, 2), ['summary', 'floors']);
  assert.ok(record[0][2] > 0);
});
