// The browser side of an ARVEN window. The page draws the window from
// GET state.json (long-polled), and every click is a POST that the server
// queues for the program's worker. Nothing is decided here.
(function () {
  'use strict';
  const win = document.body.dataset.window;
  const base = '/' + win + '/';
  const $ = (id) => document.getElementById(id);
  let version = 0;
  let nav = -1;
  let shownDialog = 0;
  let lastControls = '';
  let printed = null;
  let opened = null;

  function post(action, params) {
    const body = new URLSearchParams(params || {});
    return fetch(base + action, { method: 'POST', body, credentials: 'same-origin' });
  }
  window.arvenCommand = (params) => post('command', params);

  function el(tag, attrs, children) {
    const e = document.createElement(tag);
    for (const [k, v] of Object.entries(attrs || {})) {
      if (k === 'text') e.textContent = v;
      else if (k === 'onclick') e.addEventListener('click', v);
      else if (v !== undefined && v !== null && v !== false) e.setAttribute(k, v === true ? '' : v);
    }
    for (const c of children || []) if (c) e.appendChild(c);
    return e;
  }

  function renderMenus(menus, title) {
    const bar = $('menubar');
    bar.replaceChildren();
    for (const m of menus || []) {
      const items = el('div', { class: 'menu-items' });
      for (const it of m.items || []) {
        if (it.visible === false) continue;
        if (it.separator) { items.appendChild(el('hr')); continue; }
        items.appendChild(el('button', {
          class: 'menu-item', id: 'menu-' + it.id, disabled: it.enabled === false,
          text: it.text, onclick: () => post('command', { menu: it.id }),
        }));
      }
      bar.appendChild(el('div', { class: 'menu' }, [el('span', { class: 'menu-title', text: m.text }), items]));
    }
    if (win !== 'main') {
      if (title) bar.appendChild(el('span', { class: 'window-title', text: title }));
      bar.appendChild(el('button', { class: 'close', title: 'Close', text: '\u00d7', id: 'close-window',
        onclick: () => post('close') }));
    }
  }

  function renderPanels(panels, caption) {
    const side = $('side');
    side.replaceChildren();
    side.style.display = panels && panels.length ? '' : 'none';
    (panels || []).forEach((p, i) => {
      const head = el('button', { class: 'panel-title' + (p.open ? ' open' : ''), id: 'panel-' + (i + 1),
        onclick: () => post('command', { panel: i + 1 }) },
        [el('span', { text: p.title }), el('small', { text: p.open ? 'Click to close' : 'Click to open' })]);
      const body = el('div', { class: 'panel-body' + (p.open ? ' open' : '') });
      for (const it of p.items || []) {
        if (it.visible === false) continue;
        const b = el('button', {
          class: 'panel-item', id: 'item-' + it.group + '-' + it.tool,
          'aria-disabled': it.enabled === false ? 'true' : null, text: it.text,
          onclick: () => post('command', { group: it.group, tool: it.tool }),
        });
        b.addEventListener('mouseenter', () => { $('caption').textContent = it.text + ' \u2014 ' + (it.tip || ''); });
        b.addEventListener('mouseleave', () => { $('caption').textContent = caption || ''; });
        body.appendChild(b);
      }
      side.appendChild(el('div', { class: 'panel' }, [head, body]));
    });
  }
  $('side').addEventListener('contextmenu', (e) => {
    if (!controls.context_menu || !(controls.panels || []).length) return;
    e.preventDefault();
    showContextMenu(controls.context_menu, e.clientX, e.clientY);
  });

  // ---- generic controls: toolbar, list boxes, grid table, context menu ----

  let controls = {};
  let lastClick = { key: '', time: 0 };

  function hideContextMenu() {
    const m = $('context-menu');
    if (m) m.remove();
  }

  // Shows the window's context_menu at the pointer; entries post `menu`.
  function showContextMenu(menu, x, y) {
    hideContextMenu();
    if (!menu || !(menu.items || []).length) return;
    const box = el('div', { class: 'context-menu', id: 'context-menu', role: 'menu' });
    for (const it of menu.items) {
      if (it.visible === false) continue;
      if (it.separator) { box.appendChild(el('hr')); continue; }
      box.appendChild(el('button', {
        class: 'menu-item', id: 'context-' + it.id, role: 'menuitem', disabled: it.enabled === false,
        text: it.text, onclick: () => { hideContextMenu(); post('command', { menu: it.id }); },
      }));
    }
    document.body.appendChild(box);
    const w = box.offsetWidth, h = box.offsetHeight;
    box.style.left = Math.max(0, Math.min(x, window.innerWidth - w - 4)) + 'px';
    box.style.top = Math.max(0, Math.min(y, window.innerHeight - h - 4)) + 'px';
  }
  document.addEventListener('click', (e) => { if (!e.target.closest('#context-menu')) hideContextMenu(); });
  document.addEventListener('keydown', (e) => { if (e.key === 'Escape') hideContextMenu(); });
  window.addEventListener('blur', hideContextMenu);

  function renderToolstrip(items) {
    const bar = el('div', { class: 'toolstrip', role: 'toolbar' });
    for (const b of items) {
      if (b.separator) { bar.appendChild(el('span', { class: 'tool-sep' })); continue; }
      bar.appendChild(el('button', {
        class: 'tool', id: 'tool-' + b.id, title: b.tip || null, disabled: b.enabled === false,
        text: b.text, onclick: () => post('command', { toolbar: b.id }),
      }));
    }
    return bar;
  }

  function markSelected(container, selector, node) {
    for (const n of container.querySelectorAll(selector)) {
      n.classList.toggle('selected', n === node);
      if (n.hasAttribute('aria-selected')) n.setAttribute('aria-selected', n === node ? 'true' : 'false');
    }
  }

  // List boxes: a click, a second click on the same entry within 500 ms (the
  // double click) and a right click each post `list`, `index` and `event`.
  function renderLists(lists, menu) {
    const row = el('div', { class: 'lists' });
    for (const l of lists) {
      const box = el('div', { class: 'listbox', id: 'list-' + l.id, role: 'listbox', tabindex: 0,
        'aria-label': l.label || l.id, 'data-sig': JSON.stringify((l.items || []).map((it) => it.text)) });
      (l.items || []).forEach((it, i) => {
        box.appendChild(el('div', {
          class: 'list-item' + (it.selected ? ' selected' : ''), id: 'list-' + l.id + '-item-' + i,
          role: 'option', 'aria-selected': it.selected ? 'true' : 'false', 'data-index': i, text: it.text,
        }));
      });
      const send = (index, event) => {
        const node = $('list-' + l.id + '-item-' + index);
        if (node) markSelected(box, '.list-item', node);
        post('command', { list: l.id, index, event });
      };
      box.addEventListener('click', (e) => {
        const o = e.target.closest('.list-item');
        if (!o) return;
        const key = l.id + ':' + o.dataset.index;
        const now = Date.now();
        const second = lastClick.key === key && now - lastClick.time < 500;
        lastClick = second ? { key: '', time: 0 } : { key, time: now };
        send(+o.dataset.index, second ? 'dblclick' : 'click');
      });
      box.addEventListener('keydown', (e) => {
        const items = l.items || [];
        const cur = items.findIndex((it) => it.selected);
        let next = null;
        if (e.key === 'ArrowDown') next = Math.min(items.length - 1, cur + 1);
        else if (e.key === 'ArrowUp') next = Math.max(0, cur - 1);
        else if (e.key === 'Enter' && cur >= 0) { e.preventDefault(); send(cur, 'dblclick'); return; }
        if (next === null || next < 0 || next === cur) return;
        e.preventDefault();
        send(next, 'click');
      });
      if (l.context) {
        box.addEventListener('contextmenu', (e) => {
          const o = e.target.closest('.list-item');
          e.preventDefault();
          if (!o) return;
          send(+o.dataset.index, 'context');
          showContextMenu(menu, e.clientX, e.clientY);
        });
      }
      row.appendChild(el('div', { class: 'list-col' }, [
        el('label', { class: 'list-label', for: 'list-' + l.id, text: l.label || '' }), box]));
    }
    return row;
  }

  // A grid: header cells and rows of text; a click on a row posts `table`
  // and `row` (0-based among the rows).
  function renderTable(t) {
    const hidden = new Set(t.hidden || []);
    const cells = (tag, values) => values.map((v, i) => (hidden.has(i) ? null : el(tag, { text: v })));
    const thead = el('thead', {}, [el('tr', {}, cells('th', t.header || []))]);
    const tbody = el('tbody');
    (t.rows || []).forEach((r, i) => {
      const tr = el('tr', { id: 'table-' + t.id + '-row-' + i, class: i === t.selected ? 'selected' : null },
        cells('td', r));
      tr.addEventListener('click', () => {
        markSelected(tbody, 'tr', tr);
        post('command', { table: t.id, row: i });
      });
      tbody.appendChild(tr);
    });
    if (!(t.rows || []).length && t.empty) {
      tbody.appendChild(el('tr', { class: 'empty' }, [el('td', {
        colspan: (t.header || []).length - hidden.size, text: t.empty })]));
    }
    return el('div', { class: 'table-wrap' }, [
      t.label ? el('div', { class: 'table-label', text: t.label }) : null,
      el('div', { class: 'table-scroll' }, [el('table', { class: 'grid', id: 'table-' + t.id }, [thead, tbody])])]);
  }

  function renderForm(c) {
    const tb = $('toolbar');
    // Redraws keep the scroll position of a list whose entries stay the same.
    const kept = {};
    for (const b of tb.querySelectorAll('.listbox, .table-scroll')) kept[b.id || 'table'] = [b.dataset.sig, b.scrollTop];
    tb.replaceChildren();
    if (c.toolbar) tb.appendChild(renderToolstrip(c.toolbar));
    if (c.html !== undefined) {
      const box = el('div', { class: 'window-body' });
      box.innerHTML = c.html;  // written by the program from escaped text
      tb.appendChild(box);
    }
    for (const f of c.inputs || []) {
      const input = el('input', { type: 'text', id: 'input-' + f.id, value: f.value || '',
        placeholder: f.placeholder || '', 'aria-label': f.label || f.id });
      const send = () => post('command', { input: f.id, value: input.value });
      input.addEventListener('keydown', (e) => { if (e.key === 'Enter') { e.preventDefault(); send(); } });
      input.addEventListener('change', send);
      tb.appendChild(el('label', { class: 'input' }, [document.createTextNode((f.label || '') + ' '), input]));
    }
    if (c.lists) tb.appendChild(renderLists(c.lists, c.context_menu));
    if (c.table) tb.appendChild(renderTable(c.table));
    for (const cb of c.checkboxes || []) {
      const input = el('input', { type: 'checkbox', id: 'check-' + cb.id, checked: !!cb.checked });
      input.addEventListener('change', () => post('command', { check: cb.id, value: input.checked ? 1 : 0 }));
      tb.appendChild(el('label', { class: 'check' }, [input, document.createTextNode(' ' + cb.text)]));
    }
    const row = el('div', { class: 'buttons' });
    for (const b of c.buttons || []) {
      row.appendChild(el('button', { id: 'button-' + b.id, disabled: b.enabled === false, text: b.text,
        onclick: () => post('command', { button: b.id }) }));
    }
    if ((c.buttons || []).length) tb.appendChild(row);
    for (const b of tb.querySelectorAll('.listbox, .table-scroll')) {
      const k = kept[b.id || 'table'];
      if (k && k[0] === b.dataset.sig) b.scrollTop = k[1];
      else if (b.classList.contains('listbox')) {
        const sel = b.querySelector('.selected');
        if (sel && sel.offsetTop > b.clientHeight) b.scrollTop = sel.offsetTop - b.clientHeight / 2;
      }
    }
    $('page').style.display = c.no_page ? 'none' : '';
    document.body.classList.toggle('form-window', !!c.no_page && !c.fill);
    document.body.classList.toggle('fill-window', !!c.fill);
    document.body.classList.toggle('fill-form', !!c.fill && !!c.no_page);
  }

  function renderDialog(d) {
    const layer = $('dialog-layer');
    if (!d || d.window !== win) {
      if (shownDialog) { layer.replaceChildren(); shownDialog = 0; }
      return;
    }
    if (shownDialog === d.id) return;
    shownDialog = d.id;
    const answer = (button, file) => post('answer', { id: d.id, button, file: file || '' });
    let content;
    let nameInput = null;
    if (d.kind === 'file') {
      nameInput = el('input', { type: 'text', id: 'file-name', value: d.default_name || '',
        'aria-label': 'File name' });
      const list = el('ul', { class: 'file-list', id: 'file-list' });
      for (const f of d.files || []) {
        const li = el('li', { text: f, tabindex: 0 });
        li.addEventListener('click', () => { nameInput.value = f; });
        li.addEventListener('dblclick', () => answer(d.buttons[0], f));
        list.appendChild(li);
      }
      content = el('div', {}, [
        el('div', { class: 'folder', text: d.folder }), list,
        el('label', { text: 'File name: ' }, [nameInput]),
        el('div', { class: 'filter', text: 'ARVEN File (' + d.filter + ')' })]);
    } else {
      content = el('div', { class: 'message icon-' + d.icon }, [el('p', { text: d.text })]);
    }
    const buttons = el('div', { class: 'buttons' }, d.buttons.map((b) => el('button', {
      id: 'answer-' + b, text: b,
      onclick: () => answer(b, nameInput ? nameInput.value : ''),
    })));
    layer.replaceChildren(el('div', { class: 'overlay' }, [
      el('div', { class: 'dialog', role: 'dialog', 'aria-label': d.title, id: 'dialog', 'data-id': d.id }, [
        el('div', { class: 'dialog-title', text: d.title }), content, buttons])]));
    (nameInput || buttons.firstChild).focus();
  }

  function render(s) {
    // One browser tab shows the main window or the modal window on top of
    // it; a window opened beside them (a report) keeps its own tab.
    const stacked = win === 'main' || (s.modal_stack || []).includes(win);
    if ((stacked && s.top !== win) || (!stacked && !s.open)) {
      location.href = '/' + (s.top || 'main') + '/';
      return;
    }
    const c = s.controls || {};
    const key = JSON.stringify(c);
    if (key !== lastControls) {
      lastControls = key;
      controls = c;
      document.title = c.title || 'ARVEN';
      renderMenus(c.menus, c.title);
      renderPanels(c.panels, c.caption);
      $('caption').textContent = c.caption || '';
      renderForm(c);
    }
    if (s.ended) {
      document.body.replaceChildren(el('p', { class: 'ended', text: 'ARVEN has ended. You may close this page.' }));
      return;
    }
    if (printed !== null && s.print !== printed) $('page').contentWindow.print();
    printed = s.print;
    if (opened !== null && s.opened.count !== opened && stacked) {
      const t = s.opened.target;
      window.open(/^https?:/.test(t) || t.startsWith('/') ? t : base + t, '_blank');
    }
    opened = s.opened.count;
    if (s.nav !== nav) {
      nav = s.nav;
      if (s.page) $('page').src = base + s.page + '?n=' + s.nav;
    }
    const p = s.progress || {};
    $('progress').replaceChildren();
    if (p.max > 0) {
      $('progress').appendChild(el('span', { text: p.label + ' ' }));
      $('progress').appendChild(el('progress', { value: p.value, max: p.max }));
    }
    document.body.classList.toggle('busy', !!s.busy);
    renderDialog(s.dialog);
  }

  async function loop() {
    while (true) {
      try {
        const r = await fetch(base + 'state.json?since=' + version, { credentials: 'same-origin', cache: 'no-store' });
        if (r.status === 403) { document.body.textContent = 'This page needs the address that ARVEN printed when it started.'; return; }
        const s = await r.json();
        version = s.version;
        render(s);
        if (s.ended) return;
      } catch (e) {
        await new Promise((res) => setTimeout(res, 1000));
      }
    }
  }
  loop();
})();
