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
#timeline a text{fill:var(--ink)}
#timeline a:hover text{text-decoration:underline}
table{border-collapse:collapse;width:100%}
th,td{border-bottom:1px solid var(--line);padding:.2rem .4rem;text-align:left;vertical-align:top}
th{position:sticky;top:0;background:#fff}
th button{font:inherit;font-weight:600;border:0;background:none;padding:0;cursor:pointer;text-align:left;color:inherit}
th[aria-sort=ascending] button::after{content:" \25B2"}
th[aria-sort=descending] button::after{content:" \25BC"}
td.num{text-align:right}
.warn{color:#a40000;font-weight:600}.ok{color:#1b5e20}
time{white-space:nowrap}
tr.file:nth-child(4n+1){background:var(--band)}
tr.file:target{outline:2px solid var(--run)}
tr.more{display:none}
tr.more.shown,tr.more:target{display:table-row}
tr.more>td{background:#fafbfc;padding:.5rem 1rem}
ol.list{margin:.25rem 0;padding-left:2.5rem}
details{margin:.25rem 0}
summary{cursor:pointer;color:var(--muted)}
.ref{color:var(--muted)}
[hidden]{display:none!important}
@media print{body{margin:0;font-size:9pt}.legend label{display:none}th{position:static}.tl{overflow:visible}
#timeline{min-width:0}a{color:inherit;text-decoration:none}td.path{min-width:0}code,.mono,.path,.ref{font-size:8pt}
th,td{padding:.1rem .2rem}tr.file{break-inside:avoid}}
)";

char const html_timeline_frame[] = R"(<section id="timeline-section"><h2>Execution timeline</h2>
<div class="legend"><label>Filter <input id="filter" type="search" placeholder="name, hash, path or time"></label>
<span class="key"><b class="k-last">&#9679;</b> last run <b class="k-run">&#9679;</b> earlier run <b class="k-run">&#9675;</b> run only an older version keeps <b class="k-mod">&#9474;</b> Prefetch file modified (dashed at the edge: outside the runs' span)</span>
<span id="shown"></span></div>
<noscript><p>The timeline is drawn by the page's script; the table below holds the same times.</p></noscript>
<div class="tl"><svg id="timeline" xmlns="http://www.w3.org/2000/svg" role="img" aria-label="Execution timeline"></svg></div>
</section>
)";

// Plain script, run once the page is parsed. Evidence is read with
// textContent and written with textContent and setAttribute, never as markup.
char const html_script[] = R"(
(function () {
  'use strict';
  var NS = 'http://www.w3.org/2000/svg';
  var W = 1200, LABEL = 330, RIGHT = 16, ROW = 18, TOP = 34, MONTH = 2629746e3;
  // Tick steps in milliseconds, then in months (second member 1).
  var STEPS = [[6e4], [3e5], [9e5], [18e5], [36e5], [108e5], [216e5], [432e5], [864e5], [1728e5], [6048e5],
    [1, 1], [3, 1], [6, 1], [12, 1], [24, 1], [60, 1], [120, 1], [240, 1], [600, 1], [1200, 1]];
  var svg = document.getElementById('timeline');
  var filter = document.getElementById('filter');
  var body = document.getElementById('files').tBodies[0];
  var rows = Array.prototype.filter.call(body.rows, function (r) { return r.className === 'file'; });
  var lo = Infinity, hi = -Infinity, caption = '';

  function times(row, name) { var v = row.getAttribute('data-' + name); return v ? v.split(' ') : []; }
  function ms(iso) { return Date.parse(iso.slice(0, 23) + 'Z'); }
  function el(name, attrs, parent) {
    var e = document.createElementNS(NS, name);
    Object.keys(attrs).forEach(function (k) { e.setAttribute(k, attrs[k]); });
    parent.appendChild(e);
    return e;
  }
  function titled(e, text) { el('title', {}, e).textContent = text; return e; }

  var items = rows.map(function (row) {
    var it = { row: row, more: document.getElementById('d' + row.id.slice(1)),
      name: row.cells[0].textContent, hash: row.cells[1].textContent, text: row.textContent.toLowerCase(),
      last: times(row, 'last'), runs: times(row, 'runs'), older: times(row, 'older'), mod: times(row, 'modified') };
    it.last.concat(it.runs, it.older).forEach(function (t) { var v = ms(t); lo = Math.min(lo, v); hi = Math.max(hi, v); });
    return it;
  });
  // The axis spans the runs. The files' modified times often tell when they
  // were copied, not when they were written: one outside the runs' span is
  // drawn hollow at the edge, with its time in its title.
  if (!isFinite(lo)) items.forEach(function (it) {
    it.mod.forEach(function (t) { var v = ms(t); lo = Math.min(lo, v); hi = Math.max(hi, v); });
  });
  items.sort(function (a, b) { var p = a.last[0] || '', q = b.last[0] || ''; return p < q ? 1 : p > q ? -1 : 0; });
  var timed = isFinite(lo);
  if (hi - lo < 12e4) { lo -= 6e4; hi += 6e4; }
  var pad = (hi - lo) * 0.02;
  lo -= pad; hi += pad;
  function x(v) { return (LABEL + (v - lo) / (hi - lo) * (W - LABEL - RIGHT)).toFixed(1); }

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
    caption = 'Time (UTC' + (cut ? ')' : ', ' + new Date(lo).toISOString().slice(0, 4) + ')');
    return out.map(function (t) {
      var s = new Date(t).toISOString();
      return [t, cut ? s.slice(0, cut) : s.slice(5, 16).replace('T', ' ')];
    });
  }

  function draw() {
    var q = filter.value.trim().toLowerCase();
    while (svg.firstChild) svg.removeChild(svg.firstChild);
    var shown = items.filter(function (it) {
      var on = !q || it.text.indexOf(q) >= 0;
      it.row.hidden = !on;
      if (it.more) it.more.hidden = !on;
      return on;
    });
    document.getElementById('shown').textContent = shown.length + ' of ' + items.length + ' files';
    if (!timed || !shown.length) {
      svg.setAttribute('viewBox', '0 0 ' + W + ' 24');
      svg.setAttribute('width', W);
      svg.setAttribute('height', 24);
      el('text', { x: 4, y: 16 }, svg).textContent = items.length ? (timed ? 'No file matches the filter.' : 'No times to show.') : 'No file was decoded.';
      return;
    }
    var h = TOP + shown.length * ROW + 6;
    svg.setAttribute('viewBox', '0 0 ' + W + ' ' + h);
    svg.setAttribute('width', W);
    svg.setAttribute('height', h);
    var axis = el('g', { 'class': 'axis' }, svg);
    var marks = ticks();
    el('text', { x: 4, y: TOP - 10 }, axis).textContent = caption;
    marks.forEach(function (tick) {
      var tx = x(tick[0]);
      el('line', { 'class': 'grid', x1: tx, x2: tx, y1: TOP - 6, y2: h }, axis);
      el('text', { x: tx, y: TOP - 10, 'text-anchor': 'middle' }, axis).textContent = tick[1];
    });
    shown.forEach(function (it, i) {
      var y = TOP + i * ROW, cy = y + ROW / 2;
      var g = el('g', { 'class': 'tl-row', 'data-row': it.row.id }, svg);
      if (i % 2 === 0) el('rect', { 'class': 'band', x: 0, y: y, width: W, height: ROW }, g);
      var label = el('text', { x: LABEL - 8, y: cy + 4, 'text-anchor': 'end' }, el('a', { href: '#' + it.row.id }, g));
      label.textContent = (it.name.length > 30 ? it.name.slice(0, 29) + '\u2026' : it.name) + '-' + it.hash;
      titled(label, it.name + '-' + it.hash);
      var runs = it.last.concat(it.runs, it.older).map(ms);
      if (runs.length > 1)
        el('line', { 'class': 'span', x1: x(Math.min.apply(null, runs)), x2: x(Math.max.apply(null, runs)), y1: cy, y2: cy }, g);
      it.mod.forEach(function (t) {
        var v = ms(t), beyond = v < lo || v > hi, at = x(Math.min(Math.max(v, lo), hi)) - 1;
        titled(el('rect', { 'class': beyond ? 'mod beyond' : 'mod', x: at, y: y + 3, width: 2, height: ROW - 6 }, g),
          'Prefetch file modified ' + t + (beyond ? ', beyond the runs shown' : ''));
      });
      it.older.forEach(function (t) { titled(el('circle', { 'class': 'older', cx: x(ms(t)), cy: cy, r: 3.5 }, g), 'run, older version ' + t); });
      it.runs.forEach(function (t) { titled(el('circle', { 'class': 'run', cx: x(ms(t)), cy: cy, r: 3.5 }, g), 'run ' + t); });
      it.last.forEach(function (t) { titled(el('circle', { 'class': 'last', cx: x(ms(t)), cy: cy, r: 5 }, g), 'last run ' + t); });
    });
  }

  var pending = 0;
  filter.addEventListener('input', function () { clearTimeout(pending); pending = setTimeout(draw, 150); });

  // Sorting: a file's details row moves with it.
  var heads = document.querySelectorAll('#files thead th');
  Array.prototype.forEach.call(heads, function (th, col) {
    th.querySelector('button').addEventListener('click', function () {
      var dir = th.getAttribute('aria-sort') === 'ascending' ? -1 : 1, number = th.getAttribute('data-kind') === 'number';
      Array.prototype.forEach.call(heads, function (other) { other.removeAttribute('aria-sort'); });
      th.setAttribute('aria-sort', dir > 0 ? 'ascending' : 'descending');
      var keyed = items.map(function (it) {
        var cell = it.row.cells[col], key = cell.getAttribute('data-sort');
        if (key === null) key = cell.textContent;
        return [number ? Number(key) : key.toLowerCase(), it];
      });
      keyed.sort(function (a, b) { return a[0] < b[0] ? -dir : a[0] > b[0] ? dir : 0; });
      keyed.forEach(function (k) { body.appendChild(k[1].row); if (k[1].more) body.appendChild(k[1].more); });
    });
  });

  // A file's name opens and closes its details.
  body.addEventListener('click', function (e) {
    var a = e.target.closest && e.target.closest('a.open');
    var more = a && document.getElementById(a.getAttribute('href').slice(1));
    if (more) { e.preventDefault(); more.classList.toggle('shown'); }
  });

  // The counts belong at the top, next to the run.
  var run = document.getElementById('run'), summary = document.getElementById('summary');
  run.parentNode.insertBefore(summary, run.nextSibling);
  draw();
})();
)";
char const html_script_sha256[] = "cV3BmTwGZd/X3TgYaHKII1jN+enNZfYmCcyyvvJwfaY=";
