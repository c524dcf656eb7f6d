// The Debian package as a user meets it: unpacked into a root that stays
// read-only, started with a fresh home, compared with the build tree.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import crypto from 'node:crypto';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { ROOT, BUILD, APP_SOURCE, makeSandbox, startProgram, startListening, launchBrowser,
  newFileWithRegion, chooseOperations, pageText } from './lib.mjs';

const PROGRAMS = ['arven', 'arven-admin', 'arven-downloader'];
const OPERATION = 'Winter cover crops';
const missing = !fs.existsSync(path.join(APP_SOURCE, 'dbases', 'new_arven_operations_DK.mdb')) &&
  'the demo stores are missing: run scripts/setup.sh';

// The package of this build: made by scripts/package.sh unless one newer
// than the programs is there (./test.sh makes it before the browser tests).
function thePackage() {
  const find = () => fs.readdirSync(BUILD).filter((f) => /^arven_.*_amd64\.deb$/.test(f))
    .map((f) => path.join(BUILD, f))[0];
  let deb = find();
  const built = Math.max(...PROGRAMS.map((p) => fs.statSync(path.join(BUILD, p)).mtimeMs));
  if (!deb || fs.statSync(deb).mtimeMs < built) {
    execFileSync(path.join(ROOT, 'scripts', 'package.sh'), { stdio: ['ignore', 'ignore', 'inherit'] });
    deb = find();
  }
  return deb;
}

// Every entry under `dir`: its kind, mode, size, modification time and, for
// a file, its content's hash.
function manifest(dir) {
  const out = {};
  const walk = (d) => {
    for (const name of fs.readdirSync(d).sort()) {
      const p = path.join(d, name);
      const st = fs.lstatSync(p);
      const hash = st.isFile() ? crypto.createHash('sha1').update(fs.readFileSync(p)).digest('hex') : '';
      out[path.relative(dir, p)] = [st.mode, st.size, st.mtimeMs, hash].join(' ');
      if (st.isDirectory()) walk(p);
    }
  };
  walk(dir);
  return out;
}

// A fresh home; the environment names nothing else of the user's, so that
// the program falls back on ~/.local/share, ~/.config and ~/Documents.
function freshHome(dir, name) {
  const home = path.join(dir, name);
  fs.mkdirSync(home);
  const env = { PATH: process.env.PATH, HOME: home, LANG: 'C.UTF-8' };
  return { home, env, userFolder: path.join(home, '.local', 'share', 'arven') };
}

// Creates a file with the region DK02 and one operation; returns the
// figures of the operation's report, and the browser page.
async function operationFigures(browser, url) {
  const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
  await newFileWithRegion(page, url, 'Package test');
  await chooseOperations(page, [OPERATION]);
  await page.locator('#tree-chosen .tree-node', { hasText: OPERATION }).click();
  return { figures: await pageText(page, 'Remove Operation'), page };
}

test('the package, unpacked read-only, runs from a fresh home as from the build tree', { skip: missing, timeout: 300000 }, async (t) => {
  const deb = thePackage();
  assert.ok(deb, 'scripts/package.sh made no package');
  const version = path.basename(deb).split('_')[1];
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'arven-package-'));
  const root = path.join(dir, 'root');
  t.after(() => {
    execFileSync('chmod', ['-R', 'u+w', dir]);
    fs.rmSync(dir, { recursive: true, force: true });
  });
  execFileSync('dpkg-deb', ['-x', deb, root]);
  // Read-only for everyone but root, who is checked by the manifest alone.
  execFileSync('chmod', ['-R', 'a-w', root]);
  const before = manifest(root);
  const bin = (program) => path.join(root, 'usr', 'bin', program);
  const browser = await launchBrowser();
  let installed, built;
  try {
    // --help, --version and an unknown option, for each program; none of
    // them makes the user's folder.
    const user = freshHome(dir, 'options');
    for (const program of PROGRAMS) {
      const run = (arg) => spawnSync(bin(program), [arg], { env: user.env, encoding: 'utf8' });
      const version_ = run('--version');
      assert.equal(version_.status, 0);
      assert.equal(version_.stdout, `${program} ${version}\n`);
      const help = run('--help');
      assert.equal(help.status, 0);
      assert.match(help.stdout, new RegExp(`^usage: ${program} `));
      assert.match(help.stdout, /--version/);
      const wrong = run('--colour');
      assert.equal(wrong.status, 2, program + ' --colour');
      const [first, second] = wrong.stderr.split('\n');
      assert.equal(first, `${program}: unknown argument --colour`);
      assert.match(second, new RegExp(`^usage: ${program} `));
      assert.equal(wrong.stdout, '');
    }
    assert.ok(!fs.existsSync(user.userFolder), '--help and --version make no folder');

    // The user build, started from the root with a fresh home.
    const analyst = freshHome(dir, 'analyst');
    installed = await startListening(bin('arven'), ['--no-browser', '--port', '0'], analyst.env);
    const { figures: fromPackage, page } = await operationFigures(browser, installed.url);
    // The welcome page from the user's folder; graphics, the chart library
    // and help from share/arven.
    const welcome = await page.request.get(installed.base + '/main/welcome.htm');
    assert.equal(welcome.status(), 200);
    assert.ok(fs.existsSync(path.join(analyst.userFolder, 'welcome.htm')));
    for (const asset of ['graphics/bk1.jpg', 'javascript/highcharts.js', 'help/ARVEN_Manual.htm']) {
      const res = await page.request.get(installed.base + '/main/' + asset);
      assert.equal(res.status(), 200, asset);
      assert.ok(!fs.existsSync(path.join(analyst.userFolder, asset)), asset + ' is not copied');
    }
    const dbases = path.join(analyst.userFolder, 'dbases');
    assert.deepEqual(fs.readdirSync(dbases).filter((f) => f.startsWith('new_arven_operations_')).sort(),
      ['new_arven_operations_DK.mdb', 'new_arven_operations_IE.mdb', 'new_arven_operations_LU.mdb']);
    assert.ok(fs.existsSync(path.join(analyst.home, 'Documents', 'My ARVEN Files', 'Package test.arv')));

    // The same steps from the build tree give the same figures.
    const sandbox = makeSandbox({ withStores: ['new_arven_operations_DK.mdb'] });
    built = await startProgram(sandbox);
    const { figures: fromBuild } = await operationFigures(browser, built.url);
    assert.match(fromPackage, /\d\.\d/);
    assert.equal(fromPackage, fromBuild);
  } finally {
    await browser.close();
    installed?.child.kill();
    built?.child.kill();
  }

  // The admin build from the same root pre-processes into the user's folder.
  const admin = freshHome(dir, 'admin');
  const run = spawnSync(bin('arven-admin'), ['preprocess', '--countries', 'LU', '--level', '3', '--mode', 'all'],
    { env: admin.env, encoding: 'utf8' });
  assert.equal(run.status, 0, run.stdout + run.stderr);
  assert.match(run.stdout, /Area-operation pairs generated: [1-9]/);
  const prepro = path.join(admin.userFolder, 'dbases', 'prepro');
  assert.ok(fs.statSync(path.join(prepro, 'zipped', 'arven_db_LU.zip')).size > 0);
  assert.ok(fs.existsSync(path.join(admin.userFolder, 'dbases', 'arven_operations.mdb')));

  assert.deepEqual(manifest(root), before, 'nothing under the root has changed');
});
