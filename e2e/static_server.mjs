// A static HTTP server for the update tests, run as a process of its own:
//   node e2e/static_server.mjs FOLDER
// It listens on 127.0.0.1 and a free port, prints "port N", and serves the
// files of FOLDER. Zip archives go out in ten parts 400 ms apart, as over a
// slow line, so that an install is long enough to be watched from a page;
// a HEAD request is answered at once.
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';

const folder = path.resolve(process.argv[2]);
const server = http.createServer(async (req, res) => {
  const file = path.join(folder, path.normalize(decodeURIComponent(req.url.split('?')[0])));
  if (!file.startsWith(folder + path.sep) || !fs.existsSync(file) || !fs.statSync(file).isFile()) {
    res.writeHead(404).end();
    return;
  }
  const body = fs.readFileSync(file);
  res.writeHead(200, { 'Content-Length': body.length });
  if (req.method === 'HEAD' || !file.endsWith('.zip')) {
    res.end(body);
    return;
  }
  const part = Math.ceil(body.length / 10);
  for (let at = 0; at < body.length; at += part) {
    res.write(body.subarray(at, at + part));
    await new Promise((r) => setTimeout(r, 400));
  }
  res.end();
});
server.listen(0, '127.0.0.1', () => console.log('port ' + server.address().port));
