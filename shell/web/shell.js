// The browser side of an ARVEN window. The page draws the window from
// GET state.json, fetched again whenever the browser's live channel says
// the state changed (long-polled where there is no channel), and every
// click is a POST that the server queues for the program's worker. Nothing
// is decided here.
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
  let beside = false;  // shown open beside the others (a report window)
  let closed = false;
  let inMainTab = false;  // this page shows the main tab (main window or the modal on top)
  let moving = false;     // this page sends its tab on to another window itself

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
          text: it.text, title: it.tip || null, onclick: () => post('command', { menu: it.id }),
        }));
      }
      bar.appendChild(el('div', { class: 'menu' }, [el('span', { class: 'menu-title', text: m.text,
        tabindex: 0, role: 'button', 'aria-haspopup': 'true' }), items]));
    }
    if (win !== 'main' && title) bar.appendChild(el('span', { class: 'window-title', text: title }));
    // The main window's close ends the program (it asks first).
    bar.appendChild(el('button', { class: 'close', title: win === 'main' ? 'Exit ARVEN' : 'Close',
      text: '\u00d7', id: 'close-window', onclick: () => post('close') }));
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
        // The browser counts a double click when it happens (e.detail), so a busy
        // page that handles the second click late still sees one.
        const second = lastClick.key === key && (e.detail >= 2 || now - lastClick.time < 500);
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
    const cells = (tag, values) => values.map((v, i) => (hidden.has(i) ? null : el(tag, { text: v, 'data-col': i })));
    const thead = el('thead', {}, [el('tr', {}, cells('th', t.header || []))]);
    const tbody = el('tbody');
    (t.rows || []).forEach((r, i) => {
      const tr = el('tr', { id: 'table-' + t.id + '-row-' + i, class: i === t.selected ? 'selected' : null },
        cells('td', r));
      // `colours`: a background per row, or null for the window's own.
      const colour = (t.colours || [])[i];
      if (colour) tr.style.background = colour;
      tr.addEventListener('click', (e) => {
        markSelected(tbody, 'tr', tr);
        const td = e.target.closest('td');
        post('command', { table: t.id, row: i, col: td ? +td.dataset.col : -1 });
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

  // ---- editable grid (key "grid") ----
  // `kinds` says per column how a cell is edited: a click on a "cycle" or
  // "toggle" cell posts `grid`, `row`, `col` and `event=click`; a "number"
  // or "text" cell opens an editor in place that posts `event=edit` and
  // `value` on Enter (then edits the row below) or when it loses focus, and
  // Escape drops. Number cells take any typing: the program reads the
  // `decimal` separator or the point and refuses anything else with a
  // message, so no key vanishes unseen. Pasting a block of cells from a
  // spreadsheet into an editor fills the cells from there. Rows marked in
  // `changed` are tinted.
  let gridEdit = null;  // {id, row, col}: the editor to open after the next redraw
  // The cell last clicked in each grid, while the grid shows the same table
  // (its `key`): a button with `cell` sends its `row` and `col`.
  const gridCurrent = {};
  function renderEditGrid(g) {
    if (!$('edit-grid-style')) {
      document.head.appendChild(el('style', { id: 'edit-grid-style', text:
        '.edit-grid tr.changed td{background:#fff2c2}' +
        '.edit-grid td.kind-cycle,.edit-grid td.kind-toggle{cursor:pointer}' +
        '.edit-grid td.kind-number,.edit-grid td.kind-text{cursor:text}' +
        '.edit-grid td.kind-readonly{color:#555}' +
        '.edit-grid td.current{outline:2px solid #2a6ebb;outline-offset:-2px}' +
        '.edit-grid input.cell-editor{width:100%;box-sizing:border-box;font:inherit}' }));
    }
    const header = g.header || [];
    const rows = g.rows || [];
    const kindOf = (c) => ((g.editable || [])[c] === false ? 'readonly' : (g.kinds || [])[c] || 'readonly');
    const cellId = (i, c) => 'grid-' + g.id + '-cell-' + i + '-' + c;
    const tbody = el('tbody');
    const cur = gridCurrent[g.id];
    if (cur && (cur.key !== (g.key || '') || cur.row >= rows.length)) delete gridCurrent[g.id];

    function openEditor(td, i, c) {
      if (td.querySelector('input')) return;
      const kind = kindOf(c);
      const old = rows[i][c];
      const input = el('input', { type: 'text', class: 'cell-editor', id: 'grid-' + g.id + '-editor',
        value: old, 'aria-label': header[c] || '', inputmode: kind === 'number' ? 'decimal' : null });
      let done = false;
      const finish = (keep, down) => {
        if (done) return;
        done = true;
        const value = keep ? input.value : old;
        const next = down && i + 1 < rows.length ? { id: g.id, row: i + 1, col: c } : null;
        td.textContent = value;
        if (value !== old) {
          gridEdit = next;
          lastControls = '';  // redraw with the program's answer, even a refusal
          post('command', { grid: g.id, row: i, col: c, event: 'edit', value });
        } else if (next) {
          const below = $(cellId(next.row, next.col));
          if (below) openEditor(below, next.row, next.col);
        }
      };
      input.addEventListener('keydown', (e) => {
        if (e.key === 'Enter') { e.preventDefault(); finish(true, true); return; }
        if (e.key === 'Escape') { e.preventDefault(); finish(false, false); return; }
      });
      input.addEventListener('blur', () => finish(true, false));
      // A block copied from a spreadsheet (tab-separated cells, a line per
      // row) fills the grid from this cell on, as far as the grid reaches;
      // each cell goes to the program as its own edit, in order.
      input.addEventListener('paste', async (e) => {
        const text = e.clipboardData?.getData('text') || '';
        if (!/[\t\n]/.test(text.replace(/\r?\n$/, ''))) return;
        e.preventDefault();
        done = true;
        const block = text.replace(/\r?\n$/, '').split(/\r?\n/).map((line) => line.split('\t'));
        for (let r = 0; r < block.length && i + r < rows.length; ++r) {
          for (let k = 0; k < block[r].length && c + k < header.length; ++k) {
            const kind = kindOf(c + k);
            if (kind !== 'number' && kind !== 'text') continue;
            const res = await post('command', { grid: g.id, row: i + r, col: c + k, event: 'edit', value: block[r][k].trim() });
            if (!res.ok) return;  // refused, or a message box now waits
          }
        }
        lastControls = '';
      });
      td.replaceChildren(input);
      input.focus();
      input.select();
    }

    rows.forEach((r, i) => {
      const tr = el('tr', { id: 'grid-' + g.id + '-row-' + i, class: (g.changed || [])[i] ? 'changed' : null });
      r.forEach((v, c) => {
        const kind = kindOf(c);
        const at = gridCurrent[g.id];
        const td = el('td', { id: cellId(i, c), class: 'kind-' + kind + (at && at.row === i && at.col === c ? ' current' : ''), text: v });
        td.addEventListener('click', () => {
          gridCurrent[g.id] = { row: i, col: c, key: g.key || '' };
          for (const n of tbody.querySelectorAll('td.current')) n.classList.remove('current');
          td.classList.add('current');
        });
        if (kind === 'cycle' || kind === 'toggle') {
          td.addEventListener('click', () => post('command', { grid: g.id, row: i, col: c, event: 'click' }));
        } else if (kind === 'number' || kind === 'text') {
          td.addEventListener('click', () => openEditor(td, i, c));
        }
        tr.appendChild(td);
      });
      tbody.appendChild(tr);
    });
    if (!rows.length && g.empty) {
      tbody.appendChild(el('tr', { class: 'empty' }, [el('td', { colspan: header.length, text: g.empty })]));
    }
    const table = el('table', { class: 'grid edit-grid', id: 'grid-' + g.id }, [
      el('thead', {}, [el('tr', {}, header.map((h) => el('th', { text: h })))]), tbody]);
    const wrap = el('div', { class: 'table-wrap' }, [
      g.label ? el('div', { class: 'table-label', text: g.label }) : null,
      el('div', { class: 'table-scroll', id: 'grid-' + g.id + '-scroll',
        'data-sig': JSON.stringify(rows.map((r) => r[0])) }, [table])]);
    const pending = gridEdit && gridEdit.id === g.id ? gridEdit : null;
    gridEdit = null;
    if (pending) {
      setTimeout(() => {
        const td = $(cellId(pending.row, pending.col));
        if (td && !document.querySelector('.dialog')) openEditor(td, pending.row, pending.col);
      }, 0);
    }
    return wrap;
  }


  // ---- tabs, option buttons and trees (the explorer) ----

  // A tab strip: a click posts `tabs` and `tab` (the tab's id).
  function renderTabs(t) {
    const strip = el('div', { class: 'tabs', role: 'tablist', id: 'tabs-' + t.id });
    for (const it of t.items || []) {
      strip.appendChild(el('button', {
        class: 'tab' + (it.id === t.selected ? ' selected' : ''), role: 'tab', id: 'tab-' + t.id + '-' + it.id,
        'aria-selected': it.id === t.selected ? 'true' : 'false', text: it.text,
        onclick: () => post('command', { tabs: t.id, tab: it.id }),
      }));
    }
    return strip;
  }

  // Option buttons: a choice posts `radio` and `value`.
  function renderRadios(r) {
    const box = el('div', { class: 'radios', role: 'radiogroup', id: 'radios-' + r.id });
    for (const it of r.items || []) {
      const input = el('input', { type: 'radio', name: 'radio-' + r.id, id: 'radio-' + r.id + '-' + it.id,
        checked: it.id === r.selected });
      input.addEventListener('change', () => post('command', { radio: r.id, value: it.id }));
      box.appendChild(el('label', { class: 'radio' }, [input, document.createTextNode(' ' + it.text)]));
    }
    return box;
  }

  // A tree of groups and their entries: a click, a double click and the
  // group's expander post `tree`, `index` and `event`.
  function renderTree(t) {
    const box = el('div', { class: 'tree', role: 'tree', id: 'tree-' + t.id, tabindex: 0,
      'aria-label': t.label || t.id, 'data-sig': JSON.stringify((t.nodes || []).map((n) => n.text)) });
    let open = true;
    (t.nodes || []).forEach((n, i) => {
      if (n.group) open = n.expanded;
      else if (!open) return;
      const item = el('div', {
        class: 'tree-node' + (n.group ? ' group' : ' leaf') + (n.selected ? ' selected' : ''),
        role: 'treeitem', id: 'tree-' + t.id + '-node-' + i, 'data-index': i,
        'aria-selected': n.selected ? 'true' : 'false', 'aria-expanded': n.group ? String(!!n.expanded) : null,
      });
      if (n.group) {
        const tog = el('span', { class: 'expander', text: n.expanded ? '\u25be' : '\u25b8' });
        tog.addEventListener('click', (e) => { e.stopPropagation(); post('command', { tree: t.id, index: i, event: 'toggle' }); });
        item.appendChild(tog);
      }
      item.appendChild(el('span', { class: 'node-text', text: n.text, title: n.text }));
      box.appendChild(item);
    });
    box.addEventListener('click', (e) => {
      const o = e.target.closest('.tree-node');
      if (!o) return;
      const key = t.id + ':' + o.dataset.index;
      const now = Date.now();
      // The browser counts a double click when it happens (e.detail), so a busy
      // page that handles the second click late still sees one.
      const second = lastClick.key === key && (e.detail >= 2 || now - lastClick.time < 500);
      lastClick = second ? { key: '', time: 0 } : { key, time: now };
      markSelected(box, '.tree-node', o);
      post('command', { tree: t.id, index: +o.dataset.index, event: second ? 'dblclick' : 'click' });
    });
    return box;
  }

  function renderInputs(target, inputs) {
    for (const f of inputs || []) {
      if (f.choices) {  // a choice list: posts the chosen entry's value
        const select = el('select', { id: 'input-' + f.id, 'aria-label': f.label || f.id },
          f.choices.map((o) => el('option', { value: o.value, text: o.text, selected: o.value === f.value })));
        select.addEventListener('change', () => post('command', { input: f.id, value: select.value }));
        target.appendChild(el('label', { class: 'input' }, [document.createTextNode((f.label || '') + ' '), select]));
        continue;
      }
      const input = el('input', { type: 'text', id: 'input-' + f.id, value: f.value || '',
        placeholder: f.placeholder || '', 'aria-label': f.label || f.placeholder || f.id });
      const send = () => post('command', { input: f.id, value: input.value });
      input.addEventListener('keydown', (e) => { if (e.key === 'Enter') { e.preventDefault(); send(); } });
      input.addEventListener('change', send);
      target.appendChild(el('label', { class: 'input' }, [document.createTextNode((f.label || '') + ' '), input]));
    }
  }

  function renderCheckboxes(target, boxes) {
    for (const cb of boxes || []) {
      const input = el('input', { type: 'checkbox', id: 'check-' + cb.id, checked: !!cb.checked });
      input.addEventListener('change', () => post('command', { check: cb.id, value: input.checked ? 1 : 0 }));
      target.appendChild(el('label', { class: 'check' }, [input, document.createTextNode(' ' + cb.text)]));
    }
  }

  // Sliders: whole numbers from `min` to `max`; a change posts `slider`
  // and `value`.
  function renderSliders(target, sliders) {
    if ((sliders || []).length && !$('slider-style')) {
      document.head.appendChild(el('style', { id: 'slider-style', text:
        'label.slider{display:flex;align-items:center;gap:8px;margin:6px 12px}' +
        'label.slider input{width:220px}label.slider .slider-value{min-width:3em}' }));
    }
    for (const sl of sliders || []) {
      const shown = el('span', { class: 'slider-value', id: 'slider-' + sl.id + '-value', text: String(sl.value) });
      const input = el('input', { type: 'range', id: 'slider-' + sl.id, min: sl.min, max: sl.max, step: 1,
        value: sl.value, 'aria-label': sl.label || sl.id });
      input.addEventListener('input', () => { shown.textContent = input.value; });
      input.addEventListener('change', () => post('command', { slider: sl.id, value: input.value }));
      target.appendChild(el('label', { class: 'slider' }, [document.createTextNode((sl.label || '') + ' '), input, shown]));
    }
  }

  function renderButtons(target, buttons) {
    const row = el('div', { class: 'buttons' });
    for (const b of buttons || []) {
      const at = () => (b.cell && gridCurrent[b.cell] ? { row: gridCurrent[b.cell].row, col: gridCurrent[b.cell].col } : {});
      row.appendChild(el('button', { id: 'button-' + b.id, disabled: b.enabled === false, text: b.text,
        onclick: () => post('command', { button: b.id, ...at() }) }));
    }
    if ((buttons || []).length) target.appendChild(row);
  }

  // The side of a window that has trees instead of panels.
  function renderSide(sd) {
    const side = $('side');
    const oldTree = side.querySelector('.tree');
    const kept = oldTree ? [oldTree.id, oldTree.dataset.sig, oldTree.scrollTop] : null;
    side.replaceChildren();
    side.style.display = '';
    side.classList.add('tree-side');
    if (sd.tabs) side.appendChild(renderTabs(sd.tabs));
    if (sd.radios) side.appendChild(renderRadios(sd.radios));
    renderCheckboxes(side, sd.checkboxes);
    renderInputs(side, sd.inputs);
    if (sd.tree) {
      const tree = renderTree(sd.tree);
      side.appendChild(tree);
      if (kept && kept[0] === tree.id && kept[1] === tree.dataset.sig) tree.scrollTop = kept[2];
      else {
        const sel = tree.querySelector('.selected');
        if (sel) sel.scrollIntoView({ block: 'nearest' });
      }
    }
    renderButtons(side, sd.buttons);
  }

  function renderForm(c) {
    const tb = $('toolbar');
    // Redraws keep the scroll position of a list whose entries stay the same.
    const kept = {};
    for (const b of tb.querySelectorAll('.listbox, .table-scroll')) kept[b.id || 'table'] = [b.dataset.sig, b.scrollTop];
    tb.replaceChildren();
    if (c.toolbar) tb.appendChild(renderToolstrip(c.toolbar));
    if (c.tabs) tb.appendChild(renderTabs(c.tabs));
    if (c.html !== undefined) {
      const box = el('div', { class: 'window-body' });
      box.innerHTML = c.html;  // written by the program from escaped text
      tb.appendChild(box);
    }
    renderInputs(tb, c.inputs);
    if (c.lists) tb.appendChild(renderLists(c.lists, c.context_menu));
    if (c.table) tb.appendChild(renderTable(c.table));
    if (c.grid) tb.appendChild(renderEditGrid(c.grid));
    for (const r of c.radios || []) {
      tb.appendChild(el('fieldset', { class: 'radio-group' }, [el('legend', { text: r.label || '' }), renderRadios(r)]));
    }
    renderCheckboxes(tb, c.checkboxes);
    renderSliders(tb, c.sliders);
    renderButtons(tb, c.buttons);
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
        el('div', { class: 'filter', text: (d.filter === '*.arv' ? 'ARVEN File' : 'Files') + ' (' + d.filter + ')' })]);
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

  // A window whose pages size their charts is told the page area's size.
  let sentSize = '';
  function sendSize() {
    if (!controls.wants_size) return;
    const f = $('page');
    const size = f.clientWidth + 'x' + f.clientHeight;
    if (size === sentSize || !f.clientWidth) return;
    sentSize = size;
    post('command', { size: 1, width: f.clientWidth, height: f.clientHeight });
  }
  window.addEventListener('resize', () => { clearTimeout(sendSize.timer); sendSize.timer = setTimeout(sendSize, 300); });

  // The browser tab of a window of the program: the main tab shows the
  // main window and the modal ones on it; a window beside has its own.
  const tabName = (w) => 'arven' + ('/' + w + '/').replace(/\//g, '-');
  let noticeSeen = null;

  // A word in the window's own bar, with a link that does what the
  // browser would not do by itself.
  function showNotice(text, target, linkText, href) {
    const bar = $('notice');
    if (!bar) return;
    const link = el('a', { id: 'notice-link', href: href || '#', text: linkText });
    link.addEventListener('click', (e) => {
      if (!href) { e.preventDefault(); const w = window.open('', target); if (w) w.focus(); }
      bar.replaceChildren();
    });
    if (href) link.target = target;
    const dismiss = el('button', { type: 'button', class: 'notice-close', title: 'Close this notice', text: '\u00d7',
      onclick: () => bar.replaceChildren() });
    bar.replaceChildren(el('div', { class: 'start-window notice' }, [el('span', { text: text + ' ' }), link, dismiss]));
  }

  function openDocument(t) {
    if (t.startsWith('exports/')) {
      // An exported table: downloaded, no blank tab left behind.
      const a = el('a', { href: base + t, download: t.slice('exports/'.length) });
      document.body.appendChild(a);
      a.click();
      a.remove();
      return;
    }
    const url = /^https?:/.test(t) || t.startsWith('/') ? t : base + t;
    if (!t.startsWith('/')) {
      if (!window.open(url, '_blank')) showNotice('The browser did not let ARVEN open a new tab.', '_blank', 'Open ' + t, url);
      return;
    }
    // A window of the program ("/report/") has one browser tab, reused
    // without loading its page again when it is there.
    if (t === '/' + win + '/') { window.focus(); return; }
    const name = tabName(t.replace(/^\/|\/$/g, ''));
    const w = window.open('', name);
    if (!w) {
      showNotice('The browser did not let ARVEN open a window.', name,
        t === '/admin/' ? 'Open the ARVEN Admin Console' : 'Open ' + t, url);
      return;
    }
    let blank = true;
    try { blank = w.location.href === 'about:blank'; } catch (e) { /* not ours: replace it */ }
    if (blank) w.location.href = url;
    else w.focus();
  }

  function render(s) {
    // One browser tab shows the main window or the modal window on top of
    // it; a window opened beside them (a report) keeps its own tab.
    const stacked = win === 'main' || (s.modal_stack || []).includes(win);
    inMainTab = stacked && !s.ended;
    if (inMainTab && window.name !== tabName('main')) window.name = tabName('main');
    if (!stacked && s.open) beside = true;
    if ((stacked && s.top !== win) || (!stacked && !s.open && !beside)) {
      moving = true;
      location.href = '/' + (s.top || 'main') + '/';
      return;
    }
    if (!stacked && !s.open) {
      // A window beside the others that was closed: its tab goes, never
      // becoming a second copy of the window on top.
      if (!closed) {
        closed = true;
        document.body.replaceChildren(el('p', { class: 'ended', text: 'This window is closed. You may close this page.' }));
        window.close();
      }
      return;
    }
    if (closed) { moving = true; location.reload(); return; }  // opened again
    const c = s.controls || {};
    const key = JSON.stringify(c);
    if (key !== lastControls) {
      lastControls = key;
      controls = c;
      document.title = c.title || 'ARVEN';
      // Text being typed into a field survives a redraw that another
      // change brought meanwhile: the field keeps its text and the focus.
      const a = document.activeElement;
      const typing = a && a.tagName === 'INPUT' && a.type === 'text' && /^input-/.test(a.id)
        ? { id: a.id, value: a.value, start: a.selectionStart, end: a.selectionEnd } : null;
      renderMenus(c.menus, c.title);
      if (c.side) renderSide(c.side);
      else renderPanels(c.panels, c.caption);
      $('caption').textContent = c.caption || '';
      renderForm(c);
      const field = typing && $(typing.id);
      if (field && field.tagName === 'INPUT') {
        field.value = typing.value;
        field.focus();
        field.setSelectionRange(typing.start, typing.end);
      }
      sendSize();
    }
    if (s.ended) {
      document.body.replaceChildren(el('p', { class: 'ended', text: 'ARVEN has ended. You may close this page.' }));
      waitForRestart();
      return;
    }
    if (printed !== null && s.print !== printed) $('page').contentWindow.print();
    printed = s.print;
    // A document or window opened by a click is opened by the tab where
    // the click was made: the browser lets only that one open another.
    const mine = s.opened.tab === 'main' ? stacked : s.opened.tab === win;
    if (opened !== null && s.opened.count !== opened && mine) openDocument(s.opened.target);
    // A window opened at start, before any click (the admin console): once
    // per run of the program, by the first main page that draws.
    const start = s.start;
    if (win === 'main' && start && /^\/[a-z\/]+\/$/.test(start.target) &&
        !localStorage.getItem('arven-start-' + start.run)) {
      localStorage.setItem('arven-start-' + start.run, '1');
      openDocument(start.target);
    }
    if (noticeSeen !== null && s.notice.count !== noticeSeen) showNotice(s.notice.text, 'arven-main', 'Show it');
    noticeSeen = s.notice.count;
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
    } else if (p.label) {
      // Work that has ended leaves a word of it (no bar).
      $('progress').appendChild(el('span', { class: 'done', id: 'progress-done', text: p.label }));
    }
    document.body.classList.toggle('busy', !!s.busy);
    renderDialog(s.dialog);
  }

  // The page's own id for its long polls: the server lets each client hold
  // only a few waiting polls, and answers at once beyond them.
  const client = Array.from(crypto.getRandomValues(new Uint8Array(12)), (b) => b.toString(16).padStart(2, '0')).join('');
  const pause = (ms) => new Promise((res) => setTimeout(res, ms));

  // After an update the downloader starts ARVEN again on the same address
  // and token: the page then comes back by itself (for two minutes).
  // After the program has ended, its address may answer again: the program
  // itself once restarted (the page goes back to it), or, meanwhile, the
  // downloader saying how far an update's install is.
  async function waitForRestart() {
    let until = Date.now() + 120000;
    while (Date.now() < until) {
      await new Promise((res) => setTimeout(res, 1000));
      try {
        const r = await fetch('/main/state.json', { credentials: 'same-origin', cache: 'no-store' });
        if (!r.ok) continue;
        const s = await r.json();
        if (!s.ended) { location.href = '/main/'; return; }
        if (s.installing) {
          until = Date.now() + 120000;
          document.body.replaceChildren(
            el('p', { class: 'ended', text: 'ARVEN is installing an update. This page returns to ARVEN when it starts again.' }),
            el('p', { class: 'ended', id: 'install-progress', role: 'status', text: s.progress || '' }));
        }
      } catch (e) { /* not back yet */ }
    }
  }

  // The main tab going away (closed, or reloaded by the person) is told to
  // the program, which ends as its close box ends it unless a page of the
  // tab shows again within a few seconds, as a reload does.
  window.addEventListener('pagehide', () => {
    if (inMainTab && !moving) navigator.sendBeacon(base + 'leave', new URLSearchParams({ client }));
  });

  let stopped = false;  // the program ended or is installing: no more news
  function forbidden() {
    stopped = true;
    document.body.textContent = 'This page needs the address that ARVEN printed when it started.';
  }
  // Draws a state; false when no more is to come.
  function take(s) {
    // The downloader answers while an update installs: the end was missed.
    if (s.installing) { stopped = true; waitForRestart(); return false; }
    // A state older than the one drawn (a slow answer overtaken by a newer
    // one) is not drawn over it. After a restart versions begin again:
    // the page then starts from 0 (the channel said it was lost).
    if (s.version < version) return true;
    version = s.version;
    render(s);
    if (s.ended) stopped = true;
    return !s.ended;
  }

  // The window's state, fetched when the channel says it changed. A change
  // during a fetch fetches once more after it.
  let fetching = false, again = false;
  async function refresh() {
    if (fetching) { again = true; return; }
    fetching = true;
    try {
      do {
        again = false;
        const r = await fetch(base + 'state.json', { credentials: 'same-origin', cache: 'no-store' });
        if (r.status === 403) return forbidden();
        if (!take(await r.json())) return;
      } while (again && !stopped);
    } catch (e) {
      // The program is away: the channel says when it is back.
    } finally {
      fetching = false;
    }
  }

  // The browser's live channel: one shared worker for every window of the
  // program, holding one WebSocket. Its news is a version number; a page
  // whose version differs fetches its state.
  let heard = false;
  function useChannel() {
    const script = document.body.dataset.channel;
    if (typeof SharedWorker === 'undefined' || !script) return false;
    let worker;
    try {
      worker = new SharedWorker(script, { name: 'arven-channel' });
    } catch (e) {
      return false;
    }
    const port = worker.port;
    port.onmessage = (m) => {
      const d = m.data || {};
      heard = heard || !!d.open || typeof d.version === 'number';
      if (stopped) return;
      if (d.lost) version = 0;
      if (d.open || d.lost || (typeof d.version === 'number' && d.version !== version)) refresh();
    };
    worker.onerror = () => { if (!heard) loop(); };
    port.start();
    const show = () => port.postMessage({ show: { client, window: win } });
    show();
    window.addEventListener('pagehide', () => port.postMessage({ gone: client, closing: inMainTab && !moving }));
    window.addEventListener('pageshow', (e) => { if (e.persisted) { show(); refresh(); } });
    return true;
  }

  // Without the channel the page long-polls its state.
  let polling = false;
  async function loop() {
    if (polling) return;
    polling = true;
    while (!stopped) {
      try {
        const r = await fetch(base + 'state.json?since=' + version + '&client=' + client,
          { credentials: 'same-origin', cache: 'no-store' });
        if (r.status === 403) return forbidden();
        const s = await r.json();
        const unchanged = s.version === version;
        if (!take(s)) return;
        // An answer without news came from a timeout or a busy server: the
        // next poll waits a moment, so that no page polls in a tight loop.
        if (unchanged) await pause(250);
      } catch (e) {
        // The program may come back as a new run (after an update), whose
        // versions start again from 1.
        version = 0;
        await pause(1000);
      }
    }
  }

  function start() {
    refresh();
    if (!useChannel()) return loop();
    // A channel that says nothing (its socket refused) leaves the page to poll.
    setTimeout(() => { if (!heard && !stopped) loop(); }, 4000);
  }
  // ---- keyboard ----
  // Menus: Enter, Space or Down on a title opens it on its first item; Up
  // and Down move in it, Left and Right go to the next menu, Escape closes.
  function menuKeys(e) {
    const title = e.target.closest('.menu-title');
    const item = e.target.closest('.menu-item');
    const menu = e.target.closest('.menu');
    if (!menu) return;
    const items = () => Array.from(menu.querySelectorAll('.menu-item:not([disabled])'));
    const titles = Array.from(document.querySelectorAll('#menubar .menu-title'));
    if (title && ['Enter', ' ', 'ArrowDown'].includes(e.key)) {
      e.preventDefault();
      menu.classList.add('open');
      const first = items()[0];
      if (first) first.focus();
    } else if (item && (e.key === 'ArrowDown' || e.key === 'ArrowUp')) {
      e.preventDefault();
      const list = items();
      const i = list.indexOf(item) + (e.key === 'ArrowDown' ? 1 : -1);
      list[(i + list.length) % list.length].focus();
    } else if (e.key === 'ArrowRight' || e.key === 'ArrowLeft') {
      e.preventDefault();
      const mine = menu.querySelector('.menu-title');
      const i = titles.indexOf(mine) + (e.key === 'ArrowRight' ? 1 : -1);
      menu.classList.remove('open');
      titles[(i + titles.length) % titles.length].focus();
    } else if (e.key === 'Escape') {
      e.preventDefault();
      e.stopPropagation();
      menu.classList.remove('open');
      menu.querySelector('.menu-title').focus();
    }
  }
  document.addEventListener('click', (e) => {
    const title = e.target.closest && e.target.closest('.menu-title');
    if (title) title.parentElement.classList.toggle('open');
    // An entry of a window menu closes its menu; the right-click menu's
    // entries stand in no window menu.
    const menu = e.target.closest && e.target.closest('.menu-item') && e.target.closest('.menu');
    if (menu) menu.classList.remove('open');
  });
  document.addEventListener('focusout', (e) => {
    const menu = e.target.closest && e.target.closest('.menu');
    if (menu && !menu.contains(e.relatedTarget)) menu.classList.remove('open');
  });

  // Trees: Up and Down select the next shown node, Right and Left open and
  // close a group, Enter does what a double click does.
  function treeKeys(e) {
    const box = e.target.closest('.tree');
    if (!box) return;
    const nodes = Array.from(box.querySelectorAll('.tree-node'));
    const cur = box.querySelector('.tree-node.selected');
    const at = nodes.indexOf(cur);
    const id = box.id.replace(/^tree-/, '');
    let target = null;
    if (e.key === 'ArrowDown') target = nodes[Math.min(at + 1, nodes.length - 1)];
    else if (e.key === 'ArrowUp') target = nodes[Math.max(at - 1, 0)];
    if (target && target !== cur) {
      e.preventDefault();
      markSelected(box, '.tree-node', target);
      target.scrollIntoView({ block: 'nearest' });
      post('command', { tree: id, index: +target.dataset.index, event: 'click' });
      return;
    }
    if (!cur) return;
    const expanded = cur.getAttribute('aria-expanded');
    if ((e.key === 'ArrowRight' && expanded === 'false') || (e.key === 'ArrowLeft' && expanded === 'true')) {
      e.preventDefault();
      post('command', { tree: id, index: +cur.dataset.index, event: 'toggle' });
    } else if (e.key === 'Enter') {
      e.preventDefault();
      post('command', { tree: id, index: +cur.dataset.index, event: 'dblclick' });
    }
  }

  // Dialogs: Escape answers Cancel (or No, or the only button); Enter in
  // the file chooser's name box confirms with the first button.
  function dialogKeys(e) {
    const dialog = $('dialog');
    if (!dialog) return false;
    const pick = (names) => names.map((n) => $('answer-' + n)).find((b) => b);
    if (e.key === 'Escape') {
      const all = dialog.querySelectorAll('.buttons button');
      const b = pick(['Cancel', 'No', 'Close']) || (all.length === 1 ? all[0] : null);
      if (b) { e.preventDefault(); b.click(); }
      return true;
    }
    if (e.key === 'Enter' && e.target.id === 'file-name') {
      e.preventDefault();
      const first = dialog.querySelector('.buttons button');
      if (first) first.click();
      return true;
    }
    return false;
  }

  document.addEventListener('keydown', (e) => {
    if (dialogKeys(e)) return;
    menuKeys(e);
    treeKeys(e);
  });

  start();
})();
