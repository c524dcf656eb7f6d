// A page of another site, here another port of 127.0.0.1 that the browser
// sends the program's cookie to, tries to drive the program: a new file over
// the open one, REMOVE ALL, the explorer, and the end of the program. None
// of it may do anything.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { makeSandbox, startProgram, launchBrowser, newFileWithRegion, screenshotPath } from './lib.mjs';

function hostilePage(target) {
  return `<!DOCTYPE html><html><body><h1>Cheap flights</h1>
<form id="f" method="post" action="${target}/main/command" target="sink">
  <input name="menu" value="mnuFileExit"></form>
<iframe name="sink"></iframe>
<script>
const A = ${JSON.stringify(target)};
const post = (p, fields) => fetch(A + p, { method: 'POST', mode: 'no-cors', credentials: 'include',
  body: new URLSearchParams(fields) }).catch(() => {});
(async () => {
  await post('/main/command', { menu: 'mnuFileNew' });
  await new Promise((r) => setTimeout(r, 300));
  for (let id = 1; id < 30; id++) {
    await post('/main/answer', { id, button: 'Save', file: 'demo' });
    await post('/main/answer', { id, button: 'Yes' });
  }
  for (const p of ['/explorer/remove.rem', '/main/edit.xx1', '/main/command?menu=mnuFileExit']) {
    const img = new Image();
    img.src = A + p;
    document.body.appendChild(img);
  }
  document.getElementById('f').submit();
  await new Promise((r) => setTimeout(r, 1000));
  document.title = 'done';
})();
</script></body></html>`;
}

test('a page of another origin cannot drive the program', async () => {
  const sandbox = makeSandbox({ withStores: ['new_arven_operations_DK.mdb'] });
  const program = await startProgram(sandbox);
  const token = new URL(program.url).searchParams.get('token');
  const state = async (win) => (await fetch(`${program.base}/${win}/state.json`,
    { headers: { 'X-ARVEN-Token': token } })).json();
  const evil = http.createServer((req, res) => {
    res.writeHead(200, { 'Content-Type': 'text/html' });
    res.end(hostilePage(program.base));
  });
  await new Promise((r) => evil.listen(0, '127.0.0.1', r));
  const browser = await launchBrowser();
  try {
    const context = await browser.newContext({ viewport: { width: 1200, height: 800 } });
    const page = await context.newPage();
    await newFileWithRegion(page, program.url, 'demo');
    const file = path.join(sandbox.docs, 'My ARVEN Files', 'demo.arv');
    const before = fs.readFileSync(file);

    const other = await context.newPage();
    await other.goto(`http://127.0.0.1:${evil.address().port}/`);
    await other.waitForFunction(() => document.title === 'done', null, { timeout: 20000 });
    await other.screenshot({ path: screenshotPath('security-hostile-page') });

    const main = await state('main');
    assert.equal(main.ended, false, 'the program was ended from another page');
    assert.equal(main.dialog, null, 'another page raised a question');
    assert.deepEqual(main.modal_stack, [], 'another page opened a window');
    assert.ok(fs.readFileSync(file).equals(before), 'another page replaced the file');

    // The program's own page still works as before.
    await page.click('#panel-1');
    await page.locator('#panel-1.open').waitFor();
  } finally {
    await browser.close();
    evil.close();
    program.child.kill();
  }
});
