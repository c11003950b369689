#include "reports/html_assets.h"

char const html_style[] = R"(
:root{--ink:#1b1f24;--muted:#5b6570;--line:#d5dae0;--band:#f3f5f7;--last:#c62828;--run:#1565c0;--mod:#7b1fa2}
body{font:14px/1.4 system-ui,sans-serif;color:var(--ink);margin:0 1.5rem 2rem}
h1{font-size:1.5rem;margin:1rem 0 .5rem}
h2{font-size:1.15rem;margin:1.5rem 0 .5rem;border-bottom:1px solid var(--line)}
dl.facts{display:grid;grid-template-columns:max-content 1fr;gap:.15rem 1rem;margin:0}
dt{color:var(--muted)}
dd{margin:0}
code,.mono,.path,.ref{font-family:ui-monospace,monospace;font-size:12.5px}
.path,code{overflow-wrap:anywhere}
td.path{min-width:14em}
mark.esc{background:#ffe082;color:#000;outline:1px solid #b28704;font-family:monospace}
.legend{display:flex;flex-wrap:wrap;gap:1rem;align-items:center}
.key b{margin-left:.8rem}
.key .k-last{color:var(--last)}
.key .k-run{color:var(--run);font-size:.75em}
.key .k-mod{color:var(--mod)}
em.none{color:var(--muted)}
#shown{color:var(--muted)}
.tl{overflow-x:auto}
#timeline{width:100%;height:auto;min-width:900px;font-size:11px;display:block}
#timeline .band{fill:var(--band)}
#timeline .grid{stroke:var(--line)}
#timeline .axis text{fill:var(--muted)}
#timeline .span{stroke:#90a4ae}
#timeline .last{fill:var(--last)}
#timeline .run{fill:var(--run)}
#timeline .older{fill:#fff;stroke:var(--run);stroke-width:1.5}
#timeline .mod{fill:var(--mod)}
#timeline .mod.beyond{fill:none;stroke:var(--mod);stroke-dasharray:2 2}
#timeline .bin{fill:#78909c;cursor:crosshair}
#timeline .plot{fill:transparent;cursor:crosshair}
#timeline .sel{fill:rgba(21,101,192,.15);stroke:var(--run);pointer-events:none}
#timeline a text{fill:var(--ink)}
#timeline a:hover text{text-decoration:underline}
table{border-collapse:collapse;width:100%}
th,td{border-bottom:1px solid var(--line);padding:.2rem .4rem;text-align:left;vertical-align:top}
th{position:sticky;top:0;background:#fff}
th button{font:inherit;font-weight:600;border:0;background:none;padding:0;cursor:pointer;text-align:left;color:inherit}
th[aria-sort=ascending] button::after{content:" \25B2"}
th[aria-sort=descending] button::after{content:" \25BC"}
td.num{text-align:right}
.warn{color:#a40000;font-weight:600}.ok{color:#1b5e20}.hosting{color:var(--muted)}
time{white-space:nowrap}
tr.file{display:none}
tr.file.on{display:table-row}
tr.file.alt{background:var(--band)}
tr.file:target{outline:2px solid var(--run)}
tr.more>td{background:#fafbfc;padding:.5rem 1rem}
ol.list{margin:.25rem 0;padding-left:2.5rem}
details{margin:.25rem 0}
summary{cursor:pointer;color:var(--muted)}
.ref{color:var(--muted)}
[hidden]{display:none!important}
#paging,.hint{color:var(--muted)}
@media print{body{margin:0;font-size:9pt}.legend label,.legend button,.hint,#paging button{display:none}th{position:static}.tl{overflow:visible}
#timeline{min-width:0}a{color:inherit;text-decoration:none}td.path{min-width:0}code,.mono,.path,.ref{font-size:8pt}
th,td{padding:.1rem .2rem}tr.file{break-inside:avoid}}
)";

char const html_timeline_frame[] = R"(<section id="timeline-section"><h2>Execution timeline</h2>
<div class="legend"><label>Filter <input id="filter" type="search" placeholder="name, hash, path or time"></label>
<span class="hint">Drag across the strip or the axis to zoom in.</span> <button type="button" id="whole" disabled>Whole span</button>
<span class="key"><b class="k-last">&#9679;</b> last run <b class="k-run">&#9679;</b> earlier run <b class="k-run">&#9675;</b> run only an older version keeps <b class="k-mod">&#9474;</b> Prefetch file modified (dashed at the edge: outside the span shown)</span>
<span id="shown"></span></div>
<noscript><p>The timeline and the files' details are drawn by the page's script; the table below holds the same times.</p></noscript>
<div class="tl"><svg id="timeline" xmlns="http://www.w3.org/2000/svg" role="img" aria-label="Execution timeline"></svg></div>
</section>
)";

// Plain script, run once the page is parsed. Evidence is read with
// textContent and JSON.parse and written with textContent and setAttribute,
// never as markup.
char const html_script[] = R"(
(function () {
  'use strict';
  var NS = 'http://www.w3.org/2000/svg';
  var W = 1200, LABEL = 330, RIGHT = 16, ROW = 18, STRIP = 44, TOP = 78, MONTH = 2629746e3;
  // Rows drawn at a time, and the steps of the strip of run counts.
  var PAGE = 200, BINS = 100;
  // Tick steps in milliseconds, then in months (second member 1).
  var STEPS = [[6e4], [3e5], [9e5], [18e5], [36e5], [108e5], [216e5], [432e5], [864e5], [1728e5], [6048e5],
    [1, 1], [3, 1], [6, 1], [12, 1], [24, 1], [60, 1], [120, 1], [240, 1], [600, 1], [1200, 1]];
  var svg = document.getElementById('timeline');
  var filter = document.getElementById('filter');
  var whole = document.getElementById('whole');
  var paging = document.getElementById('paging');
  var body = document.getElementById('files').tBodies[0];
  var heads = document.querySelectorAll('#files thead th');
  var rows = Array.prototype.filter.call(body.rows, function (r) { return r.className === 'file'; });
  var lo = Infinity, hi = -Infinity, caption = '', zoomed = false, zoomable = false, limit = PAGE, order;

  function times(row, name) { var v = row.getAttribute('data-' + name); return v ? v.split(' ') : []; }
  function ms(iso) { return Date.parse(iso.slice(0, 23) + 'Z'); }
  function iso(v) { return new Date(v).toISOString(); }
  function plain(v) { return iso(v).slice(0, 19).replace('T', ' '); }
  // A step of the strip in words: minutes, hours or days.
  function duration(v) {
    var unit = v < 72e5 ? [6e4, 'minutes'] : v < 1728e5 ? [36e5, 'hours'] : [864e5, 'days'];
    return Number((v / unit[0]).toPrecision(3)) + ' ' + unit[1];
  }
  function el(name, attrs, parent) {
    var e = document.createElementNS(NS, name);
    Object.keys(attrs).forEach(function (k) { e.setAttribute(k, attrs[k]); });
    parent.appendChild(e);
    return e;
  }
  function titled(e, text) { el('title', {}, e).textContent = text; return e; }

  var items = rows.map(function (row) {
    var it = { row: row, number: row.id.slice(1), name: row.cells[0].textContent, hash: row.cells[1].textContent,
      last: times(row, 'last'), runs: times(row, 'runs'), older: times(row, 'older'), mod: times(row, 'modified') };
    it.at = it.last.concat(it.runs, it.older).map(ms);
    it.at.forEach(function (v) { lo = Math.min(lo, v); hi = Math.max(hi, v); });
    return it;
  });
  // The axis spans the runs. The files' modified times often tell when they
  // were copied, not when they were written: one outside the span shown is
  // drawn hollow at the edge, with its time in its title.
  if (!isFinite(lo)) items.forEach(function (it) {
    it.mod.forEach(function (t) { var v = ms(t); lo = Math.min(lo, v); hi = Math.max(hi, v); });
  });
  var timed = isFinite(lo);
  if (hi - lo < 12e4) { lo -= 6e4; hi += 6e4; }
  // The span shown runs over whole milliseconds, in BINS steps of whole milliseconds.
  function view(from, to) {
    lo = Math.floor(from);
    hi = lo + Math.max(1, Math.ceil((to - lo) / BINS)) * BINS;
  }
  var pad = (hi - lo) * 0.02;
  view(lo - pad, hi + pad);
  var span = [lo, hi];
  function x(v) { return (LABEL + (v - lo) / (hi - lo) * (W - LABEL - RIGHT)).toFixed(1); }
  function at(px) { return lo + (Math.min(Math.max(px, LABEL), W - RIGHT) - LABEL) / (W - LABEL - RIGHT) * (hi - lo); }

  // About eight ticks, on round minutes, hours, days, months or years.
  function ticks() {
    var step = STEPS[STEPS.length - 1], out = [], t, m;
    for (var i = 0; i < STEPS.length; i++)
      if ((hi - lo) / (STEPS[i][1] ? STEPS[i][0] * MONTH : STEPS[i][0]) <= 8) { step = STEPS[i]; break; }
    if (step[1]) {
      var d = new Date(lo);
      for (m = Math.ceil((d.getUTCFullYear() * 12 + d.getUTCMonth()) / step[0]) * step[0];
           (t = Date.UTC(Math.floor(m / 12), m % 12, 1)) <= hi; m += step[0]) if (t >= lo) out.push(t);
    } else {
      for (t = Math.ceil(lo / step[0]) * step[0]; t <= hi; t += step[0]) out.push(t);
    }
    var cut = step[1] ? (step[0] % 12 ? 7 : 4) : step[0] >= 864e5 ? 10 : 0;
    // Labels within a day leave out the year: the caption gives it.
    caption = 'Time (UTC' + (cut ? ')' : ', ' + iso(lo).slice(0, 4) + ')');
    return out.map(function (t) { var s = iso(t); return [t, cut ? s.slice(0, cut) : s.slice(5, 16).replace('T', ' ')]; });
  }

  // A file is shown when its row holds the filter's text and, zoomed in,
  // when one of its runs lies in the window.
  function matches(it, q) {
    if (q && (it.text || (it.text = it.row.textContent.toLowerCase())).indexOf(q) < 0) return false;
    return !zoomed || it.at.some(function (v) { return v >= lo && v < hi; });
  }

  // How many runs of the files shown fall in each step of the axis.
  function drawStrip(shown) {
    var counts = [], most = 0, width = (hi - lo) / BINS, g = el('g', { 'class': 'strip' }, svg);
    for (var i = 0; i < BINS; i++) counts.push(0);
    shown.forEach(function (it) {
      it.at.forEach(function (v) { if (v >= lo && v < hi) counts[Math.floor((v - lo) / width)]++; });
    });
    counts.forEach(function (n) { most = Math.max(most, n); });
    el('text', { x: LABEL - 8, y: STRIP - 4, 'text-anchor': 'end' }, g).textContent = 'Runs per ' + duration(width) + ' (most ' + most + ')';
    counts.forEach(function (n, i) {
      if (!n) return;
      var from = lo + i * width, to = from + width, h = Math.max(2, n / most * (STRIP - 10));
      titled(el('rect', { 'class': 'bin', x: x(from), y: STRIP - h, width: Math.max(1, x(to) - x(from) - 0.5), height: h,
        'data-count': n, 'data-from': iso(from), 'data-to': iso(to) }, g), n + ' runs from ' + iso(from) + ' to ' + iso(to));
    });
  }

  function drawRow(it, i) {
    var y = TOP + i * ROW, cy = y + ROW / 2;
    var g = el('g', { 'class': 'tl-row', 'data-row': it.row.id }, svg);
    if (i % 2 === 0) el('rect', { 'class': 'band', x: 0, y: y, width: W, height: ROW }, g);
    var label = el('text', { x: LABEL - 8, y: cy + 4, 'text-anchor': 'end' }, el('a', { href: '#' + it.row.id }, g));
    label.textContent = (it.name.length > 30 ? it.name.slice(0, 29) + '\u2026' : it.name) + '-' + it.hash;
    titled(label, it.name + '-' + it.hash);
    var first = Math.max(Math.min.apply(null, it.at), lo), end = Math.min(Math.max.apply(null, it.at), hi);
    if (it.at.length > 1 && first < end) el('line', { 'class': 'span', x1: x(first), x2: x(end), y1: cy, y2: cy }, g);
    it.mod.forEach(function (t) {
      var v = ms(t), beyond = v < lo || v > hi;
      titled(el('rect', { 'class': beyond ? 'mod beyond' : 'mod', x: x(Math.min(Math.max(v, lo), hi)) - 1, y: y + 3, width: 2, height: ROW - 6 }, g),
        'Prefetch file modified ' + t + (beyond ? ', outside the span shown' : ''));
    });
    [[it.older, 'older', 3.5, 'run, older version '], [it.runs, 'run', 3.5, 'run '], [it.last, 'last', 5, 'last run ']].forEach(function (kind) {
      kind[0].forEach(function (t) {
        var v = ms(t);
        if (v >= lo && v <= hi) titled(el('circle', { 'class': kind[1], cx: x(v), cy: cy, r: kind[2] }, g), kind[3] + t);
      });
    });
  }

  function draw() {
    var q = filter.value.trim().toLowerCase();
    var shown = order.filter(function (it) { return matches(it, q); }), drawn = shown.slice(0, limit);
    items.forEach(function (it) { it.on = false; });
    // Only the rows drawn need to stand in order.
    drawn.forEach(function (it, i) {
      it.on = true;
      it.row.className = 'file on' + (i % 2 ? '' : ' alt');
      body.appendChild(it.row);
      if (it.more) body.appendChild(it.more);
    });
    items.forEach(function (it) {
      if (!it.on && it.row.className !== 'file') it.row.className = 'file';
      if (it.more) it.more.hidden = !(it.on && it.open);
    });
    document.getElementById('shown').textContent = shown.length + ' of ' + items.length + ' files' +
      (zoomed ? ', with a run from ' + plain(lo) + ' to ' + plain(hi) + ' UTC' : '');
    paging.hidden = drawn.length === shown.length;
    paging.firstChild.textContent = 'The first ' + drawn.length + ' of ' + shown.length + ' files are shown. ';
    whole.disabled = !zoomed;
    while (svg.firstChild) svg.removeChild(svg.firstChild);
    svg.setAttribute('data-from', iso(lo));
    svg.setAttribute('data-to', iso(hi));
    if (!timed || !shown.length) {
      svg.setAttribute('viewBox', '0 0 ' + W + ' 24');
      svg.setAttribute('width', W);
      svg.setAttribute('height', 24);
      el('text', { x: 4, y: 16 }, svg).textContent = items.length ? (!timed ? 'No times to show.' : zoomed ? 'No file shown has a run in this window.' : 'No file matches the filter.') : 'No file was decoded.';
      zoomable = false;
      return;
    }
    var h = TOP + drawn.length * ROW + 6;
    zoomable = true;
    svg.setAttribute('viewBox', '0 0 ' + W + ' ' + h);
    svg.setAttribute('width', W);
    svg.setAttribute('height', h);
    el('rect', { 'class': 'plot', x: LABEL, y: 0, width: W - LABEL - RIGHT, height: TOP - 6 }, svg);
    drawStrip(shown);
    var axis = el('g', { 'class': 'axis' }, svg), marks = ticks();
    el('text', { x: 4, y: TOP - 10 }, axis).textContent = caption;
    marks.forEach(function (tick) {
      var tx = x(tick[0]);
      el('line', { 'class': 'grid', x1: tx, x2: tx, y1: TOP - 6, y2: h }, axis);
      // A label at the right end would run off the drawing: it ends at its tick.
      el('text', { x: tx, y: TOP - 10, 'text-anchor': tx > W - RIGHT - 40 ? 'end' : 'middle' }, axis).textContent = tick[1];
    });
    drawn.forEach(drawRow);
  }
  function redraw() { limit = PAGE; draw(); }

  // Zoom: a drag across the axis or the strip makes its span the window.
  function viewX(e) { var r = svg.getBoundingClientRect(); return (e.clientX - r.left) * W / r.width; }
  var drag = null;
  svg.addEventListener('pointerdown', function (e) {
    var r = svg.getBoundingClientRect(), y = (e.clientY - r.top) * W / r.width, vx = viewX(e);
    if (!timed || !zoomable || vx < LABEL || vx > W - RIGHT || y > TOP - 6) return;
    e.preventDefault();
    drag = { from: viewX(e), box: el('rect', { 'class': 'sel', x: viewX(e), y: 0, width: 0, height: svg.getAttribute('height') }, svg) };
  });
  document.addEventListener('pointermove', function (e) {
    if (!drag) return;
    var to = Math.min(Math.max(viewX(e), LABEL), W - RIGHT);
    drag.box.setAttribute('x', Math.min(drag.from, to));
    drag.box.setAttribute('width', Math.abs(to - drag.from));
  });
  document.addEventListener('pointerup', function (e) {
    if (!drag) return;
    var a = at(drag.from), b = at(viewX(e));
    drag = null;
    if (Math.abs(b - a) < (hi - lo) / 300) { draw(); return; }
    view(Math.min(a, b), Math.max(a, b));
    zoomed = true;
    redraw();
  });
  whole.addEventListener('click', function () { view(span[0], span[1]); zoomed = false; redraw(); });
  paging.lastChild.addEventListener('click', function () { limit += PAGE; draw(); });

  var pending = 0;
  filter.addEventListener('input', function () { clearTimeout(pending); pending = setTimeout(redraw, 150); });

  // Sorting orders the files of the table and the timeline alike; draw() puts the rows in place.
  function sort(col, dir) {
    var number = heads[col].getAttribute('data-kind') === 'number';
    Array.prototype.forEach.call(heads, function (other) { other.removeAttribute('aria-sort'); });
    heads[col].setAttribute('aria-sort', dir > 0 ? 'ascending' : 'descending');
    var keyed = items.map(function (it) {
      var cell = it.row.cells[col], key = cell.getAttribute('data-sort');
      if (key === null) key = cell.textContent;
      return [number ? Number(key) : key.toLowerCase(), it];
    });
    keyed.sort(function (a, b) { return a[0] < b[0] ? -dir : a[0] > b[0] ? dir : 0; });
    order = keyed.map(function (k) { return k[1]; });
  }
  Array.prototype.forEach.call(heads, function (th, col) {
    th.querySelector('button').addEventListener('click', function () {
      sort(col, th.getAttribute('aria-sort') === 'ascending' ? -1 : 1);
      draw();
    });
  });

  // A file's details come as data, built when its name first opens them.
  // Items are numbers in the page's table, which each file's "new" items
  // extend in page order; a negative number -k after n stands for n+1 to n+k.
  var table = [], read = 0;
  function data(number) {
    function parsed(n) { return JSON.parse(items[n - 1].row.getAttribute('data-details')); }
    for (; read < number; read++) parsed(read + 1)['new'].forEach(function (item) { table.push(item); });
    return parsed(number);
  }
  function expand(list) {
    var out = [], last = 0;
    list.forEach(function (v) {
      if (typeof v !== 'number') out.push(v);
      else if (v >= 0) out.push(table[last = v]);
      else for (var i = 0; i < -v; i++) out.push(table[++last]);
    });
    return out;
  }
  function add(name, parent, attrs) {
    var e = document.createElement(name);
    Object.keys(attrs || {}).forEach(function (k) { e.setAttribute(k, attrs[k]); });
    return parent.appendChild(e);
  }
  // A string as the page shows it: each visible escape stands between two U+0001 marks.
  function text(parent, s) {
    if (s === '') { add('em', parent, { 'class': 'none' }).textContent = '(empty)'; return; }
    s.split('\u0001').forEach(function (piece, i) {
      if (i % 2) add('mark', parent, { 'class': 'esc' }).textContent = piece;
      else if (piece) parent.appendChild(document.createTextNode(piece));
    });
  }
  function time(parent, t) {
    if (t) add('time', parent, { datetime: t }).textContent = t.slice(0, 19).replace('T', ' ');
  }
  // A time pointed at gives its full value, all seven digits of the fraction.
  document.addEventListener('mouseover', function (e) {
    var t = e.target.closest && e.target.closest('time');
    if (t && !t.title) t.title = t.getAttribute('datetime');
  });
  function list(parent, summary, entries, each, open) {
    var d = add('details', parent, open ? { open: '' } : {});
    add('summary', d).textContent = entries.length + ' ' + summary;
    var ol = add('ol', d, { 'class': 'list' });
    entries.forEach(function (entry) { each(add('li', ol), entry); });
  }
  function build(it) {
    var d = data(Number(it.number)), tr = document.createElement('tr'), td;
    tr.className = 'more';
    td = add('td', tr, { colspan: heads.length });
    if (d.sha256) {
      var p = add('p', td);
      p.textContent = 'SHA-256 of the file as read: ';
      add('span', p, { 'class': 'mono' }).textContent = d.sha256;
    }
    if (d.same) list(td, 'other places with the same bytes', d.same, function (li, s) { text(add('span', li, { 'class': 'path' }), s); }, true);
    if (d.versions) list(td, 'versions, newest first', d.versions, function (li, v) {
      text(add('span', li, { 'class': 'path' }), v[0]);
      li.appendChild(document.createTextNode(', last run '));
      time(li, v[1]);
    }, true);
    // A loaded file is its name, or its name with its MFT entry and sequence.
    if (d.files) list(td, 'loaded files', expand(d.files), function (li, f) {
      text(li, typeof f === 'string' ? f : f[0]);
      if (typeof f === 'string') return;
      li.appendChild(document.createTextNode(' '));
      add('span', li, { 'class': 'ref' }).textContent = 'MFT ' + f[1] + '-' + f[2];
    }, true);
    if (d.volumes) list(td, 'volumes', d.volumes, function (li, v) {
      text(add('span', li, { 'class': 'path' }), expand(v[0])[0]);
      li.appendChild(document.createTextNode(', serial ' + v[1] + ', created '));
      time(li, v[2]);
      list(li, 'directories', expand(v[3]), text, false);
    }, true);
    return tr;
  }
  body.addEventListener('click', function (e) {
    var a = e.target.closest && e.target.closest('a.open');
    var it = a && items[Number(a.getAttribute('href').slice(2)) - 1];
    if (!it) return;
    e.preventDefault();
    if (!it.more) { it.more = build(it); body.insertBefore(it.more, it.row.nextSibling); }
    it.open = !it.open;
    it.more.hidden = !(it.open && it.on);
  });

  // The counts belong at the top, next to the run.
  var run = document.getElementById('run'), summary = document.getElementById('summary');
  run.parentNode.insertBefore(summary, run.nextSibling);
  // Newest last run first, as the timeline reads.
  var lastRun = Array.prototype.findIndex.call(heads, function (th) { return th.textContent.indexOf('Last run') === 0; });
  sort(lastRun, -1);
  draw();
})();
)";
char const html_script_sha256[] = "ScXKdLWL4IyQvhThVjGCiTXxXeBipYjl0xUHzOVVyO8=";
