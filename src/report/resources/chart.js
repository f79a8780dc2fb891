// Interactive charts: every zoom frame is redrawn from the JSON data island inside it, and
// reacts to the wheel (zoom around the cursor), a drag (pan), a shift-drag (box zoom), a
// double-click or its reset button (full view), and its trace toggle (both / ref / DUT).
(function () {
  'use strict';
  var VIEW_WIDTH_PX = 1000;   // viewBox width of every chart
  var MIN_SPAN_FRAC = 0.002;  // narrowest view, as a fraction of the full range
  var SVG_NS = 'http://www.w3.org/2000/svg';
  var COLUMNS = 4096;         // envelope columns per trace

  function el(svg, name, attrs, text) {
    var node = document.createElementNS(SVG_NS, name);
    for (var key in attrs) node.setAttribute(key, attrs[key]);
    if (text !== undefined) node.textContent = text;
    svg.appendChild(node);
    return node;
  }

  function f2(v) { return (Math.round(v * 100) / 100).toFixed(2); }

  function line(svg, x1, y1, x2, y2, stroke, width, extra) {
    var attrs = { x1: f2(x1), y1: f2(y1), x2: f2(x2), y2: f2(y2), stroke: 'var(' + stroke + ')', 'stroke-width': width };
    for (var key in extra) attrs[key] = extra[key];
    return el(svg, 'line', attrs);
  }

  function label(svg, x, y, text, size, anchor, fill, extra) {
    var attrs = { x: f2(x), y: f2(y), 'font-size': size, 'text-anchor': anchor, fill: 'var(' + fill + ')' };
    for (var key in extra) attrs[key] = extra[key];
    return el(svg, 'text', attrs, text);
  }

  function axisTitles(svg, d, xTitle, yTitle) {
    var midX = (d.chartLeft + d.chartRight) / 2;
    var midY = (d.chartTop + d.chartBottom) / 2;
    label(svg, midX, d.chartBottom + 28, xTitle, '10.5', 'middle', '--ink-soft');
    label(svg, 14, midY, yTitle, '10.5', 'middle', '--ink-soft', { transform: 'rotate(-90 14 ' + f2(midY) + ')' });
  }

  function axes(svg, d) {
    line(svg, d.chartLeft, d.chartTop, d.chartLeft, d.chartBottom, '--ink-soft', '1.4');
    line(svg, d.chartLeft, d.chartBottom, d.chartRight, d.chartBottom, '--ink-soft', '1.4');
  }

  // 1, 2, 5 or 10 times a power of ten; `round` picks the nearest, otherwise the next above.
  function niceNumber(x, round) {
    if (!(x > 0)) return 1;
    var e = Math.floor(Math.log10(x));
    var f = x / Math.pow(10, e);
    var n;
    if (round) n = f < 1.5 ? 1 : f < 3 ? 2 : f < 7 ? 5 : 10;
    else n = f <= 1 ? 1 : f <= 2 ? 2 : f <= 5 ? 5 : 10;
    return n * Math.pow(10, e);
  }

  function niceTicks(lo, hi, target) {
    var range = niceNumber(hi - lo, false);
    var step = niceNumber(range / (target - 1), true);
    var ticks = [];
    for (var t = Math.ceil(lo / step) * step; t <= hi + step * 1e-9 && ticks.length < 64; t += step) ticks.push(t);
    return { ticks: ticks, step: step };
  }

  // Keeps a unit view at least `minSpan` wide (around its middle) and inside 0..1.
  function clampView(lo, hi, minSpan) {
    var span = Math.max(hi - lo, minSpan);
    var mid = (lo + hi) / 2;
    lo = mid - span / 2;
    hi = mid + span / 2;
    if (lo < 0) { hi -= lo; lo = 0; }
    if (hi > 1) { lo -= hi - 1; hi = 1; }
    return [Math.max(lo, 0), Math.min(hi, 1)];
  }

  // ---- Waveform envelopes -------------------------------------------------------------

  function waveformY(d, v) {
    var top = d.chartTop, bottom = d.chartBottom;
    if (d.yScale === 'db') {
      if (v < d.dbMin) return bottom;
      return bottom - (Math.min(v, d.dbMax) - d.dbMin) / (d.dbMax - d.dbMin) * (bottom - top);
    }
    var centre = (top + bottom) / 2, half = (bottom - top) / 2;
    if (v > 1.2) return top;
    return centre - Math.max(v, -1.2) / 1.2 * half;
  }

  function timeLabel(seconds, minutes) {
    if (minutes) {
      var r = Math.floor(seconds + 0.5);
      var s = r % 60;
      return Math.floor(r / 60) + ':' + (s < 10 ? '0' : '') + s;
    }
    return (Math.round(seconds * 10) / 10).toFixed(1) + 's';
  }

  // The ribbon of one trace over the columns in view: runs of valid columns, each along its
  // maxima; the run that reaches the last column in view also walks back along its minima.
  function envelopePath(d, trace, lo, hi) {
    var width = d.chartRight - d.chartLeft;
    function x(frac) { return d.chartLeft + (Math.min(Math.max(frac, lo), hi) - lo) / (hi - lo) * width; }
    var first = Math.max(0, Math.floor(lo * COLUMNS)), last = Math.min(COLUMNS - 1, Math.ceil(hi * COLUMNS) - 1);
    var out = [];
    var k = first;
    while (k <= last) {
      if (!trace.valid[k]) { k++; continue; }
      var a = k;
      while (k + 1 <= last && trace.valid[k + 1]) k++;
      var b = k;
      out.push('M' + f2(x(a / COLUMNS)) + ',' + f2(waveformY(d, trace.max[a])) + ' L' + f2(x((a + 1) / COLUMNS)) + ',' +
               f2(waveformY(d, trace.max[a])) + ' ');
      for (var j = a + 1; j <= b; j++) out.push('L' + f2(x((j + 1) / COLUMNS)) + ',' + f2(waveformY(d, trace.max[j])) + ' ');
      if (b === last)
        for (var m = b; m >= a; m--) out.push('L' + f2(x(m / COLUMNS)) + ',' + f2(waveformY(d, trace.min[m])) + ' ');
      out.push('Z ');
      k = b + 1;
    }
    return out.join('');
  }

  function drawWaveform(svg, d, lo, hi) {
    var left = d.chartLeft, right = d.chartRight, top = d.chartTop, bottom = d.chartBottom;
    axes(svg, d);
    if (d.yScale === 'db') {
      for (var db = d.dbMax; db >= d.dbMin - 1e-9; db -= 20) {
        var y = waveformY(d, db);
        line(svg, left, y, right, y, '--ink-soft', '1', { opacity: '0.55' });
        label(svg, left - 6, y + 3, String(Math.round(db)), '9.5', 'end', '--muted');
      }
    } else {
      for (var i = 0; i <= 12; i++) {
        var v = 1.2 - 0.2 * i;
        var ya = waveformY(d, v);
        var zero = Math.abs(v) < 1e-9;
        line(svg, left, ya, right, ya, '--ink-soft', '1', { opacity: zero ? '0.9' : '0.55' });
        label(svg, left - 6, ya + 3, (v >= -1e-9 ? '+' : '-') + Math.abs(zero ? 0 : v).toFixed(1), '9.5', 'end', '--muted');
      }
    }
    var seconds = d.sampleRate > 0 ? d.totalFrames / d.sampleRate : 0;
    var t0 = lo * seconds, t1 = hi * seconds;
    var width = right - left;
    function tx(t) { return left + (t1 > t0 ? (t - t0) / (t1 - t0) : 0) * width; }
    if (t1 > t0) {
      var nice = niceTicks(t0, t1, 6);
      var ticks = nice.ticks;
      for (var q = 0; q < ticks.length; q++)
        for (var j = 1; j <= 3; j++) {
          var tq = ticks[q] + j / 4 * nice.step;
          if (tq < t1) line(svg, tx(tq), top, tx(tq), bottom, '--line-strong', '1', { opacity: '0.5' });
        }
      var minutes = seconds >= 60;
      ticks.forEach(function (t) {
        line(svg, tx(t), top, tx(t), bottom, '--ink-soft', '1', { opacity: '0.5' });
        label(svg, tx(t), bottom + 14, timeLabel(t, minutes), '9.5', 'middle', '--muted');
      });
    }
    axisTitles(svg, d, 'Time (s)', d.yScale === 'db' ? 'Amplitude (dB)' : 'Amplitude');
    [['ref', '--ref-trace', '0.85'], ['dut', '--dut-trace', '0.55']].forEach(function (t) {
      var trace = d[t[0]];
      if (!trace) return;
      el(svg, 'path', { fill: 'var(' + t[1] + ')', 'fill-opacity': t[2], stroke: 'none', 'data-trace': t[0],
                        d: envelopePath(d, trace, lo, hi) });
    });
    (d.markers || []).forEach(function (m) {
      if (m.frac < lo || m.frac > hi) return;
      var x = tx(m.frac * seconds);
      if (!(t1 > t0)) x = left;
      line(svg, x, top, x, bottom, '--fail', '1', { 'stroke-dasharray': '3,2' });
      label(svg, x + 3, top + 2, m.label, '9', 'start', '--fail',
            { transform: 'rotate(-90 ' + f2(x + 3) + ' ' + f2(top + 2) + ')' });
    });
  }

  // ---- Spectra ----------------------------------------------------------------------------

  function spectralY(d, v) {
    if (v < d.dbMin) return d.chartBottom;
    return d.chartBottom - (Math.min(v, d.dbMax) - d.dbMin) / (d.dbMax - d.dbMin) * (d.chartBottom - d.chartTop);
  }

  function freqLabel(f) {
    if (f >= 1000) return String(Math.round(f / 10) / 100) + 'k';
    return String(Math.round(f * 100) / 100);
  }

  function drawSpectral(svg, d, lo, hi) {
    var left = d.chartLeft, right = d.chartRight, top = d.chartTop, bottom = d.chartBottom, width = right - left;
    var log = d.freqScale === 'log';
    function x(f) {
      if (log) {
        var lf = Math.log10(Math.max(f, d.freqMinHz));
        return left + (lf - Math.log10(lo)) / (Math.log10(hi) - Math.log10(lo)) * width;
      }
      return left + (f - lo) / (hi - lo) * width;
    }
    for (var m = d.dbMax - 10; m >= d.dbMin; m -= 20) {
      var ym = spectralY(d, m);
      line(svg, left, ym, right, ym, '--line-strong', '1', { opacity: '0.6' });
    }
    var ticks = [];
    if (log && hi / lo >= 10) {
      for (var e = -2; e <= 6; e++) {
        var p = Math.pow(10, e);
        [3, 4, 6, 7, 8, 9].forEach(function (k) {
          var f = k * p;
          if (f >= lo && f <= hi) line(svg, x(f), top, x(f), bottom, '--line-strong', '1', { opacity: '0.55' });
        });
        [1, 2, 5].forEach(function (k) { var f = k * p; if (f >= lo && f <= hi) ticks.push(f); });
      }
    } else {
      ticks = niceTicks(lo, hi, 6).ticks.filter(function (f) { return f >= lo; });
    }
    axes(svg, d);
    for (var db = d.dbMax; db >= d.dbMin - 1e-9; db -= 20) {
      var y = spectralY(d, db);
      line(svg, left, y, right, y, '--ink-soft', '1', { opacity: '0.55' });
      label(svg, left - 6, y + 3, String(Math.round(db)), '9.5', 'end', '--muted');
    }
    ticks.forEach(function (f) {
      line(svg, x(f), top, x(f), bottom, '--ink-soft', '1', { opacity: '0.55' });
      label(svg, x(f), bottom + 14, freqLabel(f), '9.5', 'middle', '--muted');
    });
    if (log && hi >= d.nyquistHz && ticks.length && x(ticks[ticks.length - 1]) < right - 40) {
      line(svg, right, top, right, bottom, '--ink-soft', '1', { opacity: '0.55' });
      label(svg, right, bottom + 14, (d.nyquistHz / 1000).toFixed(1) + 'k', '9.5', 'end', '--muted');
    }
    axisTitles(svg, d, 'Frequency (Hz)', 'Amplitude (dB)');
    function band(fromDb, toDb) {
      var y0 = spectralY(d, fromDb), y1 = spectralY(d, toDb);
      el(svg, 'rect', { x: f2(left), y: f2(y0), width: f2(width), height: f2(Math.max(y1 - y0, 0)),
                        fill: 'var(--accent)', opacity: '0.05' });
    }
    band(d.tierNoiseFloorDb, d.dbMin - 1);
    if (d.tierPeakDb !== null && d.tierPeakDb !== undefined)
      band(d.tierPeakDb, d.tierNonPeakDb !== null && d.tierNonPeakDb !== undefined ? d.tierNonPeakDb : d.tierNoiseFloorDb);
    (d.markers || []).forEach(function (mk) {
      var ym = spectralY(d, mk.db);
      line(svg, left, ym, right, ym, mk.color, '1', { 'stroke-dasharray': mk.dash });
      var right_aligned = mk.align === 'right';
      label(svg, right_aligned ? right - 6 : left + 6, mk.db < d.dbMin ? bottom - 3 : ym - 3, mk.text, '10',
            right_aligned ? 'end' : 'start', mk.color);
    });
    [['ref', '--ref-trace'], ['dut', '--dut-trace']].forEach(function (t) {
      var levels = d[t[0]];
      if (!levels) return;
      var pts = [];
      for (var k = 0; k < levels.length; k++) {
        var f = k * d.binHz;
        if (f < lo || f > hi || (log && f < d.freqMinHz)) continue;
        pts.push(f2(x(f)) + ',' + f2(spectralY(d, levels[k])));
      }
      el(svg, 'polyline', { fill: 'none', stroke: 'var(' + t[1] + ')', 'stroke-width': '1.5', 'data-trace': t[0],
                            points: pts.join(' ') });
    });
    var fm = d.failMarker;
    if (fm && d.ref && d.dut && fm.freqHz >= lo && fm.freqHz <= hi) {
      var bins = d.ref.length;
      var k = Math.min(Math.max(Math.round(fm.freqHz / d.binHz), 0), bins - 1);
      var level = Math.max(d.ref[k], d.dut[k]);
      var fy = level < d.dbMin ? bottom - 10 : spectralY(d, level) - 10;
      var text = 'Fail ' + (fm.diffDb >= 0 ? '+' : '') + fm.diffDb.toFixed(1) + 'dB';
      var w = text.length * 5.6 + 12, fx = x(fm.freqHz);
      el(svg, 'path', { d: 'M' + f2(fx) + ',' + f2(fy + 20) + ' l-5,-9 l10,0 Z', fill: 'var(--fail)',
                        stroke: 'var(--fail-line)', 'stroke-width': '1' });
      el(svg, 'rect', { x: f2(fx - w / 2), y: f2(fy - 22), width: f2(w), height: '16', rx: '4', fill: 'var(--fail-soft)',
                        stroke: 'var(--fail-line)', 'stroke-width': '1' });
      label(svg, fx, fy - 10.5, text, '10', 'middle', '--fail', { 'font-weight': '700' });
    }
  }

  // ---- Frames -----------------------------------------------------------------------------

  function applyTraceMode(svg) {
    var mode = svg.getAttribute('data-trace-mode') || 'both';
    svg.querySelectorAll('[data-trace]').forEach(function (node) {
      var which = node.getAttribute('data-trace');
      node.style.display = mode === 'both' || mode === which ? '' : 'none';
    });
  }

  function setupFrame(frame) {
    var kind = frame.getAttribute('data-zoom-kind');
    var svg = frame.querySelector('svg');
    var island = frame.querySelector('script[type="application/json"]');
    if (!svg || !island || (kind !== 'waveform' && kind !== 'spectral')) return;
    var d;
    try { d = JSON.parse(island.textContent); } catch (err) { return; }
    var log = kind === 'spectral' && d.freqScale === 'log';
    var fullLo = kind === 'spectral' ? (log ? d.freqMinHz : 0) : 0;
    var fullHi = kind === 'spectral' ? d.nyquistHz : 1;
    if (!(fullHi > fullLo)) return;
    // Unit view 0..1 over the full range (the logarithm of frequency on a log axis).
    var view = [0, 1];
    function toValue(u) {
      if (log) return Math.pow(10, Math.log10(fullLo) + u * (Math.log10(fullHi) - Math.log10(fullLo)));
      return fullLo + u * (fullHi - fullLo);
    }
    function redraw() {
      // The visible unit range, for anyone inspecting the page (tests, devtools).
      frame.setAttribute('data-view', view[0].toFixed(6) + ',' + view[1].toFixed(6));
      while (svg.firstChild) svg.removeChild(svg.firstChild);
      if (kind === 'waveform') drawWaveform(svg, d, view[0], view[1]);
      else drawSpectral(svg, d, toValue(view[0]), toValue(view[1]));
      applyTraceMode(svg);
    }
    frame.vtRedraw = redraw;
    function plotBox() {
      var r = frame.getBoundingClientRect();
      var scale = r.width / VIEW_WIDTH_PX;
      return { left: r.left + d.chartLeft * scale, width: (d.chartRight - d.chartLeft) * scale, rect: r };
    }
    function unitAt(clientX) {
      var p = plotBox();
      return p.width > 0 ? Math.min(Math.max((clientX - p.left) / p.width, 0), 1) : 0;
    }
    frame.addEventListener('wheel', function (ev) {
      ev.preventDefault();
      var anchor = view[0] + unitAt(ev.clientX) * (view[1] - view[0]);
      var factor = Math.exp(ev.deltaY * 0.0015);
      view = clampView(anchor - (anchor - view[0]) * factor, anchor + (view[1] - view[0] - (anchor - view[0])) * factor,
                       MIN_SPAN_FRAC);
      redraw();
    }, { passive: false });
    var box = frame.querySelector('.zoom-box');
    var drag = null;
    frame.addEventListener('mousedown', function (ev) {
      if (ev.button !== 0) return;
      ev.preventDefault();
      drag = { x: ev.clientX, view: view.slice(), boxing: ev.shiftKey };
      if (drag.boxing && box) {
        var r = frame.getBoundingClientRect();
        box.style.left = (ev.clientX - r.left) + 'px';
        box.style.width = '0px';
        box.hidden = false;
      }
    });
    window.addEventListener('mousemove', function (ev) {
      if (!drag) return;
      var p = plotBox();
      if (drag.boxing) {
        if (!box) return;
        var a = Math.min(drag.x, ev.clientX), b = Math.max(drag.x, ev.clientX);
        box.style.left = (a - p.rect.left) + 'px';
        box.style.width = (b - a) + 'px';
        return;
      }
      if (p.width <= 0) return;
      var span = drag.view[1] - drag.view[0];
      var shift = -(ev.clientX - drag.x) / p.width * span;
      view = clampView(drag.view[0] + shift, drag.view[1] + shift, span);
      redraw();
    });
    window.addEventListener('mouseup', function (ev) {
      if (!drag) return;
      var was = drag;
      drag = null;
      if (!was.boxing) return;
      if (box) box.hidden = true;
      if (Math.abs(ev.clientX - was.x) <= 4) return;
      var u0 = unitAt(Math.min(was.x, ev.clientX)), u1 = unitAt(Math.max(was.x, ev.clientX));
      var span = was.view[1] - was.view[0];
      var lo = was.view[0] + u0 * span, hi = was.view[0] + u1 * span;
      if (hi - lo > 0.0005) {
        view = clampView(lo, hi, MIN_SPAN_FRAC);
        redraw();
      }
    });
    function reset() { view = [0, 1]; redraw(); }
    frame.addEventListener('dblclick', reset);
    document.querySelectorAll('.zoom-reset').forEach(function (button) {
      if (frame.id && button.getAttribute('data-zoom-target') === frame.id) button.addEventListener('click', reset);
    });
    redraw();
  }

  function setupToggle(toggle) {
    var frame = document.getElementById(toggle.getAttribute('data-target'));
    if (!frame) return;
    var buttons = toggle.querySelectorAll('button[data-mode]');
    buttons.forEach(function (button) {
      button.addEventListener('click', function () {
        var mode = button.getAttribute('data-mode');
        buttons.forEach(function (b) { b.classList.remove('active', 'ref-active', 'dut-active'); });
        button.classList.add('active');
        if (mode === 'ref' || mode === 'dut') button.classList.add(mode + '-active');
        var svg = frame.querySelector('svg');
        if (!svg) return;
        svg.setAttribute('data-trace-mode', mode);
        applyTraceMode(svg);
      });
    });
  }

  document.querySelectorAll('.zoom-frame[data-zoom-kind]').forEach(setupFrame);
  document.querySelectorAll('.trace-toggle[data-target]').forEach(setupToggle);
})();
