#!/usr/bin/python3
"""Opens pages written by the real veltrane binary in Debian's headless Chromium and works
their charts as a user would: a failing and a passing analyze report, a plot page and an
ERROR page. No script or console errors on any of them; on every chart kind the wheel
zooms around the cursor down to the narrowest view, a drag pans, a shift-drag box-zooms,
a box of 4 px or less does nothing, a double-click and the reset button restore the full
view; the trace toggle hides and shows one trace on its own chart only, and the choice
survives a zoom; snapshot tabs switch their panels. Screenshots of the passing and the
failing report in both themes go to the folder given with --screenshots, and the time to
the first complete render of each page is printed (reported, never asserted).

Usage: charts_test.py --veltrane <veltrane binary> --screenshots <folder>
Exit status: 0 all checks passed, 1 a check failed, 77 Chromium is not installed (skip).
"""
import argparse
import math
import os
import random
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import wave

from theme_test import CHROMEDRIVER, CHROMIUM, SKIP, Checker, browser_errors, start_driver

RATE = 48000


def write_wav(path, channels):
    """16-bit PCM; `channels` is a list of per-channel sample lists (floats in -1..1)."""
    frames = len(channels[0])
    data = bytearray()
    for i in range(frames):
        for ch in channels:
            data += struct.pack("<h", int(round(max(-1.0, min(1.0, ch[i])) * 32767)))
    with wave.open(path, "wb") as w:
        w.setnchannels(len(channels))
        w.setsampwidth(2)
        w.setframerate(RATE)
        w.writeframes(bytes(data))


def make_pairs(folder):
    """A passing pair (identical) and a failing pair: the DUT is 40 samples late, carries a
    2nd harmonic, a click and a short dropout."""
    rng = random.Random(5)
    seconds = 4
    n = RATE * seconds
    left = [0.4 * math.sin(2 * math.pi * 1000 * i / RATE) + 0.02 * (rng.random() - 0.5) for i in range(n)]
    right = [0.3 * math.sin(2 * math.pi * 440 * i / RATE) + 0.02 * (rng.random() - 0.5) for i in range(n)]
    write_wav(os.path.join(folder, "ref.wav"), [left, right])
    write_wav(os.path.join(folder, "same.wav"), [left, right])
    delay = 40
    dut_l = [0.0] * delay + left[:-delay]
    dut_r = [0.0] * delay + right[:-delay]
    for i in range(n):
        dut_l[i] += 0.01 * math.sin(2 * math.pi * 2000 * i / RATE)
    dut_l[RATE + 123] = 0.95
    for i in range(2 * RATE, 2 * RATE + 30):
        dut_r[i] = 0.0
    write_wav(os.path.join(folder, "dut.wav"), [dut_l, dut_r])


VIEW = "return arguments[0].getAttribute('data-view');"


def view_of(driver, frame):
    text = driver.execute_script(VIEW, frame)
    if not text:
        return None
    lo, hi = text.split(",")
    return float(lo), float(hi)


def wheel(driver, frame, delta_y, at=0.5, times=1):
    driver.execute_script(
        "var f = arguments[0], r = f.getBoundingClientRect();"
        "for (var i = 0; i < arguments[3]; i++)"
        "  f.dispatchEvent(new WheelEvent('wheel', {deltaY: arguments[1], clientX: r.left + r.width * arguments[2],"
        "    clientY: r.top + r.height / 2, bubbles: true, cancelable: true}));",
        frame, delta_y, at, times)


def drag(driver, frame, from_frac, to_frac, shift=False):
    driver.execute_script(
        "var f = arguments[0], r = f.getBoundingClientRect(), y = r.top + r.height / 2;"
        "var x0 = r.left + r.width * arguments[1], x1 = r.left + r.width * arguments[2];"
        "f.dispatchEvent(new MouseEvent('mousedown', {button: 0, shiftKey: arguments[3], clientX: x0, clientY: y,"
        "  bubbles: true}));"
        "window.dispatchEvent(new MouseEvent('mousemove', {clientX: x1, clientY: y, bubbles: true}));"
        "window.dispatchEvent(new MouseEvent('mouseup', {clientX: x1, clientY: y, bubbles: true}));",
        frame, from_frac, to_frac, shift)


def drag_pixels(driver, frame, pixels, shift):
    driver.execute_script(
        "var f = arguments[0], r = f.getBoundingClientRect(), y = r.top + r.height / 2, x0 = r.left + r.width / 2;"
        "f.dispatchEvent(new MouseEvent('mousedown', {button: 0, shiftKey: arguments[2], clientX: x0, clientY: y,"
        "  bubbles: true}));"
        "window.dispatchEvent(new MouseEvent('mousemove', {clientX: x0 + arguments[1], clientY: y, bubbles: true}));"
        "window.dispatchEvent(new MouseEvent('mouseup', {clientX: x0 + arguments[1], clientY: y, bubbles: true}));",
        frame, pixels, shift)


def close(a, b, tol=1e-4):
    return a is not None and b is not None and abs(a[0] - b[0]) < tol and abs(a[1] - b[1]) < tol


def first_frame(driver, By, kind):
    for frame in driver.find_elements(By.CSS_SELECTOR, ".zoom-frame[data-zoom-kind='%s']" % kind):
        if frame.is_displayed():
            return frame
    return None


def check_zoom(c, driver, By, kind, where):
    frame = first_frame(driver, By, kind)
    if frame is None:
        c.check("%s: a %s chart to zoom" % (where, kind), False, "none shown")
        return
    name = "%s %s (%s)" % (where, kind, frame.get_attribute("id"))
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'});", frame)
    c.check(name + ": drawn by the script at full view", close(view_of(driver, frame), (0.0, 1.0)),
            repr(view_of(driver, frame)))
    wheel(driver, frame, -400, at=0.25)
    zoomed = view_of(driver, frame)
    c.check(name + ": wheel zooms in around the cursor",
            zoomed is not None and zoomed[1] - zoomed[0] < 0.9 and zoomed[0] < 0.25 < zoomed[1], repr(zoomed))
    drag(driver, frame, 0.6, 0.4)
    panned = view_of(driver, frame)
    c.check(name + ": dragging left pans right, keeping the span",
            panned is not None and panned[0] > zoomed[0] and abs((panned[1] - panned[0]) - (zoomed[1] - zoomed[0])) < 1e-5,
            "%r -> %r" % (zoomed, panned))
    drag_pixels(driver, frame, 4, True)
    c.check(name + ": a box of 4 px does nothing", close(view_of(driver, frame), panned), repr(view_of(driver, frame)))
    drag(driver, frame, 0.3, 0.7, shift=True)
    boxed = view_of(driver, frame)
    c.check(name + ": shift-drag zooms to the box",
            boxed is not None and boxed[1] - boxed[0] < (panned[1] - panned[0]) * 0.6, "%r -> %r" % (panned, boxed))
    hidden = driver.execute_script("var b = arguments[0].querySelector('.zoom-box'); return !b || b.hidden;", frame)
    c.check(name + ": the zoom box is hidden after the release", hidden)
    driver.execute_script("arguments[0].dispatchEvent(new MouseEvent('dblclick', {bubbles: true}));", frame)
    c.check(name + ": double-click restores the full view", close(view_of(driver, frame), (0.0, 1.0)),
            repr(view_of(driver, frame)))
    wheel(driver, frame, -600, times=40)
    deepest = view_of(driver, frame)
    c.check(name + ": the narrowest view is 0.002 of the range",
            deepest is not None and abs((deepest[1] - deepest[0]) - 0.002) < 1e-6, repr(deepest))
    button = driver.find_element(By.CSS_SELECTOR, ".zoom-reset[data-zoom-target='%s']" % frame.get_attribute("id"))
    driver.execute_script("arguments[0].click();", button)
    c.check(name + ": the reset button restores the full view", close(view_of(driver, frame), (0.0, 1.0)),
            repr(view_of(driver, frame)))


TRACE_STATE = """
var svg = arguments[0].querySelector('svg');
var shown = function (which) {
  var nodes = svg.querySelectorAll('[data-trace=' + which + ']');
  if (!nodes.length) return null;
  for (var i = 0; i < nodes.length; i++) if (getComputedStyle(nodes[i]).display === 'none') return false;
  return true;
};
return [shown('ref'), shown('dut')];
"""


def check_trace_toggle(c, driver, By, where):
    toggles = [t for t in driver.find_elements(By.CSS_SELECTOR, ".trace-toggle[data-target]") if t.is_displayed()]
    if len(toggles) < 2:
        c.check(where + ": two charts with a trace toggle", False, "%d found" % len(toggles))
        return
    toggle, other = toggles[0], toggles[1]
    frame = driver.find_element(By.ID, toggle.get_attribute("data-target"))
    other_frame = driver.find_element(By.ID, other.get_attribute("data-target"))
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'});", frame)
    c.check(where + ": both traces shown at first", driver.execute_script(TRACE_STATE, frame) == [True, True],
            repr(driver.execute_script(TRACE_STATE, frame)))
    toggle.find_element(By.CSS_SELECTOR, "button[data-mode='dut']").click()
    c.check(where + ": DUT mode hides the reference", driver.execute_script(TRACE_STATE, frame) == [False, True],
            repr(driver.execute_script(TRACE_STATE, frame)))
    c.check(where + ": the other chart keeps both traces",
            driver.execute_script(TRACE_STATE, other_frame) == [True, True],
            repr(driver.execute_script(TRACE_STATE, other_frame)))
    wheel(driver, frame, -300)
    c.check(where + ": the reference stays hidden after a zoom",
            driver.execute_script(TRACE_STATE, frame) == [False, True], repr(driver.execute_script(TRACE_STATE, frame)))
    toggle.find_element(By.CSS_SELECTOR, "button[data-mode='ref']").click()
    c.check(where + ": Ref mode hides the DUT", driver.execute_script(TRACE_STATE, frame) == [True, False],
            repr(driver.execute_script(TRACE_STATE, frame)))
    toggle.find_element(By.CSS_SELECTOR, "button[data-mode='both']").click()
    c.check(where + ": Both shows them again", driver.execute_script(TRACE_STATE, frame) == [True, True])
    active = [b.get_attribute("class") for b in toggle.find_elements(By.CSS_SELECTOR, "button")]
    c.check(where + ": only the clicked button is active", active == ["active", "", ""], repr(active))


def check_snapshot_tabs(c, driver, By):
    tabs = driver.find_elements(By.CSS_SELECTOR, ".snap-tab")
    if len(tabs) < 2:
        c.check("snapshot tabs present", False, "%d tabs" % len(tabs))
        return
    widget = tabs[0].find_element(By.XPATH, "./ancestor::*[starts-with(@id, 'vt-snap-widget')]")
    mine = widget.find_elements(By.CSS_SELECTOR, ".snap-tab")
    target = mine[-1]
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'});", target)
    target.click()
    idx = target.get_attribute("data-snap-idx")
    state = driver.execute_script(
        "var w = arguments[0];"
        "return [Array.prototype.map.call(w.querySelectorAll('.snap-tab'), function (t) {"
        "  return t.getAttribute('data-snap-idx') + ':' + t.classList.contains('active') + ':' + t.getAttribute('aria-selected'); }),"
        "  Array.prototype.map.call(w.querySelectorAll('.snap-panel'), function (p) {"
        "  return p.getAttribute('data-snap-idx') + ':' + p.hidden; })];", widget)
    tabs_ok = all(s.endswith(":true:true") == s.startswith(idx + ":") for s in state[0])
    panels_ok = all(s.endswith(":false") == s.startswith(idx + ":") for s in state[1])
    c.check("a snapshot tab shows its own panel only", tabs_ok and panels_ok, repr(state))


RENDERED = "return document.readyState === 'complete' && " \
           "Array.prototype.every.call(document.querySelectorAll('.zoom-frame[data-zoom-kind]'), " \
           "function (f) { return f.hasAttribute('data-view'); });"


def open_page(c, driver, path, name):
    """Loads a page, waits until every chart was redrawn by the script, and reports the time
    from navigation start to that point."""
    driver.get("file://" + path)
    deadline = time.monotonic() + 20
    while not driver.execute_script(RENDERED) and time.monotonic() < deadline:
        time.sleep(0.02)
    elapsed_ms = driver.execute_script("return performance.now();")
    size_kb = os.path.getsize(path) / 1024.0
    print("# first render of %s: %.0f ms (page %.0f KiB)" % (name, elapsed_ms, size_kb))
    errors = driver.execute_script("return window.__vtErrors || ['error collector missing'];") + browser_errors(driver)
    c.check(name + ": no script or console errors", not errors, repr(errors))


def screenshots(driver, path, name, folder):
    for theme in ("light", "dark"):
        driver.get("file://" + path)
        driver.execute_script("window.localStorage.setItem('veltrane-report-theme', arguments[0]);", theme)
        driver.refresh()
        time.sleep(0.3)
        height = driver.execute_script("return document.documentElement.scrollHeight;")
        driver.set_window_size(1280, min(max(height, 900), 16000))
        driver.save_screenshot(os.path.join(folder, "%s-%s.png" % (name, theme)))
    driver.set_window_size(1280, 900)
    driver.execute_script("window.localStorage.removeItem('veltrane-report-theme');")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--veltrane", required=True)
    parser.add_argument("--screenshots", required=True)
    args = parser.parse_args()
    if not os.access(CHROMIUM, os.X_OK):
        print("SKIP: %s is not installed" % CHROMIUM)
        return SKIP
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    if not os.access(CHROMEDRIVER, os.X_OK):
        print("error: %s (chromium-driver) is missing" % CHROMEDRIVER)
        return 1

    os.makedirs(args.screenshots, exist_ok=True)
    workdir = tempfile.mkdtemp(prefix="veltrane-charts-")
    driver = None
    c = Checker()
    try:
        make_pairs(workdir)
        run = lambda *a: subprocess.run([args.veltrane] + list(a), cwd=workdir, timeout=300,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode
        c.check("failing report written", run("analyze", "--ref", "ref.wav", "--dut", "dut.wav", "--out", "fail.html",
                                              "--deepscan", "--snapshots", "3") == 0)
        c.check("passing report written", run("analyze", "--ref", "ref.wav", "--dut", "same.wav", "--out",
                                              "pass.html") == 0)
        c.check("plot page written", run("plot", "--input", "ref.wav", "--out", "plot.html") == 0)
        c.check("ERROR page written", run("analyze", "--ref", "missing.wav", "--dut", "dut.wav", "--out",
                                          "error.html") == 1)
        driver = start_driver(webdriver, Service, os.path.join(workdir, "profile"))
        pages = {name: os.path.join(workdir, name + ".html") for name in ("fail", "pass", "plot", "error")}

        open_page(c, driver, pages["fail"], "failing report")
        for kind in ("spectral", "waveform"):
            if first_frame(driver, By, kind) is not None:
                check_zoom(c, driver, By, kind, "failing report")
        c.check("failing report has a spectral chart", first_frame(driver, By, "spectral") is not None)
        check_trace_toggle(c, driver, By, "failing report")
        check_snapshot_tabs(c, driver, By)

        open_page(c, driver, pages["plot"], "plot page")
        for kind in ("spectral", "waveform"):
            check_zoom(c, driver, By, kind, "plot page")
        open_page(c, driver, pages["pass"], "passing report")
        open_page(c, driver, pages["error"], "ERROR page")

        screenshots(driver, pages["pass"], "report-pass", args.screenshots)
        screenshots(driver, pages["fail"], "report-fail", args.screenshots)
        screenshots(driver, pages["plot"], "plot", args.screenshots)
        print("# screenshots in %s" % args.screenshots)
    except Exception as e:  # a browser or driver failure is a test failure, reported plainly
        c.check("browser session", False, "%s: %s" % (type(e).__name__, e))
    finally:
        if driver is not None:
            try:
                driver.quit()
            except Exception:
                pass
        shutil.rmtree(workdir, ignore_errors=True)

    print("%d passed, %d failed" % (c.passed, c.failed))
    return 0 if c.failed == 0 and c.passed > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
