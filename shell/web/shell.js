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

  function renderMenus(menus) {
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

  function renderForm(c) {
    const tb = $('toolbar');
    tb.replaceChildren();
    if (c.html !== undefined) {
      const box = el('div', { class: 'window-body' });
      box.innerHTML = c.html;  // written by the program from escaped text
      tb.appendChild(box);
    }
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
    $('page').style.display = c.no_page ? 'none' : '';
    document.body.classList.toggle('form-window', !!c.no_page);
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
      document.title = c.title || 'ARVEN';
      renderMenus(c.menus);
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
      window.open(/^https?:/.test(t) ? t : base + t, '_blank');
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
