// One live channel per browser, shared by every ARVEN window's page: a
// shared worker holds the program's WebSocket and hands each change of the
// state on to the pages. However many windows are open, the browser then
// holds one socket for the news and its connections stay free for clicks.
'use strict';
const ports = new Set();
const pages = new Map();  // port -> {client, window}: what each page shows
let socket = null;
let version = 0;
let retry = 0;

function send(message) {
  if (socket && socket.readyState === WebSocket.OPEN) socket.send(JSON.stringify(message));
}

function tell(message) {
  for (const port of ports) port.postMessage(message);
}

function connect() {
  socket = new WebSocket((self.location.protocol === 'https:' ? 'wss://' : 'ws://') + self.location.host + '/channel');
  socket.onopen = () => {
    retry = 0;
    for (const show of pages.values()) send({ show });
    tell({ open: true });
  };
  socket.onmessage = (e) => {
    let m;
    try { m = JSON.parse(e.data); } catch (err) { return; }
    if (typeof m.version === 'number') {
      version = m.version;
      tell({ version });
    }
  };
  socket.onclose = () => {
    socket = null;
    // The program may have ended, or restarted with versions from 1 again.
    version = 0;
    tell({ lost: true });
    if (ports.size) setTimeout(connect, Math.min(500 * ++retry, 3000));
  };
}

self.onconnect = (e) => {
  const port = e.ports[0];
  ports.add(port);
  port.onmessage = (m) => {
    const d = m.data || {};
    if (d.show) {
      pages.set(port, d.show);
      send({ show: d.show });
      if (version) port.postMessage({ version });
    } else if (d.gone) {
      pages.delete(port);
      ports.delete(port);
      send({ gone: d.gone, closing: !!d.closing });
    }
  };
  port.start();
  if (!socket) connect();
  else if (socket.readyState === WebSocket.OPEN) port.postMessage({ open: true });
};
