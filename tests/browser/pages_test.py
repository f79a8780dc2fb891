#!/usr/bin/python3
"""Opens pages written by the real veltrane binary in Debian's headless Chromium: a failing
and a passing analyze report, a report whose DUT name holds markup, a plot page and two
ERROR pages (one with markup in its error text). Checks: no script or console errors on
any page kind; the theme toggle, its stored choice and the system colour scheme; markup in
names and error texts shown as text, never run; chart zoom, pan, box zoom, reset, trace
toggle and snapshot tabs. Screenshots in both themes go to --screenshots; the time to the
first complete render of each page is printed (reported, never asserted).

Usage: pages_test.py --veltrane <veltrane binary> --screenshots <folder>
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

SKIP = 77
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
RATE = 48000

LIGHT_BG, DARK_BG = "rgb(238, 241, 244)", "rgb(14, 19, 24)"  # --bg
LIGHT_FAIL, DARK_FAIL = "rgb(198, 40, 40)", "rgb(226, 133, 123)"  # --fail: the ERROR verdict tile
LIGHT_PASS, DARK_PASS = "rgb(46, 125, 50)", "rgb(111, 191, 115)"  # --pass: a PASS verdict tile
INJECTED = "window.__vtInjected=1"

# Installed before any page script runs: collects uncaught errors and rejected promises.
ERROR_COLLECTOR = """
window.__vtErrors = [];
window.addEventListener('error', function (e) { window.__vtErrors.push('error: ' + e.message); });
window.addEventListener('unhandledrejection', function (e) {
  window.__vtErrors.push('unhandled rejection: ' + String(e.reason));
});
"""


class Checker:
    def __init__(self):
        self.passed = 0
        self.failed = 0

    def check(self, name, condition, detail=""):
        if condition:
            self.passed += 1
            print("ok - " + name)
        else:
            self.failed += 1
            print("not ok - " + name + (": " + detail if detail else ""))


def start_driver(webdriver, Service, profile_dir):
    options = webdriver.ChromeOptions()
    options.binary_location = CHROMIUM
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
                 "--no-default-browser-check", "--disable-background-networking", "--disable-component-update",
                 "--disable-sync", "--disable-extensions", "--disable-dev-shm-usage",
                 "--host-resolver-rules=MAP * ~NOTFOUND", "--window-size=1280,900", "--user-data-dir=" + profile_dir):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(executable_path=CHROMEDRIVER, log_path=os.devnull), options=options)
    driver.set_page_load_timeout(30)
    driver.set_script_timeout(30)
    driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": ERROR_COLLECTOR})
    return driver


def browser_errors(driver):
    """Console messages of level SEVERE since the last call (script errors, failed loads)."""
    return [entry.get("message", "") for entry in driver.get_log("browser") if entry.get("level") == "SEVERE"]


def page_errors(driver):
    return driver.execute_script("return window.__vtErrors || ['error collector missing'];") + browser_errors(driver)


# ---------------------------------------------------------------------------------------
# Inputs

def write_wav(path, channels):
    """16-bit PCM; `channels` is a list of per-channel sample lists (floats in -1..1)."""
    data = bytearray()
    for i in range(len(channels[0])):
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
    n = RATE * 4
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


# ---------------------------------------------------------------------------------------
# Theme

STATE_SCRIPT = """
var root = document.documentElement;
var button = document.getElementById('themeToggle');
var stored = null;
try { stored = window.localStorage.getItem('veltrane-report-theme'); } catch (e) { stored = 'unavailable'; }
var shown = function (sel) { var el = button && button.querySelector(sel); return !!el && getComputedStyle(el).display !== 'none'; };
var verdict = document.querySelector('.kpi.verdict');
return {
  theme: root.getAttribute('data-theme'),
  label: button ? button.getAttribute('aria-label') : null,
  stored: stored,
  bg: getComputedStyle(document.body).backgroundColor,
  verdictBg: verdict ? getComputedStyle(verdict).backgroundColor : null,
  sun: shown('.ti-sun'),
  moon: shown('.ti-moon'),
  errors: window.__vtErrors || ['error collector missing']
};
"""


def wait_for(driver, predicate):
    """Polls the page state until predicate(state) holds or 5 s pass; returns the last state."""
    deadline = time.monotonic() + 5
    state = driver.execute_script(STATE_SCRIPT)
    while not predicate(state) and time.monotonic() < deadline:
        time.sleep(0.05)
        state = driver.execute_script(STATE_SCRIPT)
    return state


def expect_theme(c, driver, name, theme, effective, stored, verdict="fail"):
    """One check per step: the theme attribute, button label and icon, stored choice, the
    colours the style sheet gives, and no script error or console error so far."""
    light = effective == "light"
    want = {
        "theme": theme,
        "label": "Switch to dark theme" if light else "Switch to light theme",
        "stored": stored,
        "bg": LIGHT_BG if light else DARK_BG,
        "verdictBg": (LIGHT_FAIL if light else DARK_FAIL) if verdict == "fail" else (LIGHT_PASS if light else DARK_PASS),
        "sun": not light,
        "moon": light,
        "errors": [],
    }
    state = wait_for(driver, lambda s: s["label"] == want["label"] and s["bg"] == want["bg"])
    state["errors"] = state["errors"] + browser_errors(driver)
    wrong = ["%s=%r (want %r)" % (k, state[k], v) for k, v in want.items() if state[k] != v]
    c.check(name, not wrong, "; ".join(wrong))


def set_system_scheme(driver, scheme):
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                           {"features": [{"name": "prefers-color-scheme", "value": scheme}]})


def check_theme_and_markup(c, driver, By, pages):
    toggle = lambda: driver.find_element(By.ID, "themeToggle").click()
    # Fresh profile, light system: the page is light and offers the dark theme. The
    # markup in the error text shows as text.
    set_system_scheme(driver, "light")
    driver.get("file://" + pages["error"])
    expect_theme(c, driver, "first load", None, "light", None)
    text = driver.find_element(By.CSS_SELECTOR, "p.run-error").text
    c.check("error text shown as text", "<script>" + INJECTED + "</script>" in text, repr(text))
    c.check("error text markup not run", driver.execute_script("return window.__vtInjected === undefined;"))
    c.check("title", driver.title == "Run Error -- Veltrane Report", repr(driver.title))

    # A click switches to dark and stores the choice; a reload keeps it.
    toggle()
    expect_theme(c, driver, "after click", "dark", "dark", "dark")
    driver.refresh()
    expect_theme(c, driver, "dark after reload", "dark", "dark", "dark")

    # Nothing stored: the page follows the system scheme, also when it changes.
    driver.execute_script("window.localStorage.removeItem('veltrane-report-theme');")
    set_system_scheme(driver, "dark")
    driver.refresh()
    expect_theme(c, driver, "dark system", None, "dark", None)
    set_system_scheme(driver, "light")
    expect_theme(c, driver, "system turns light", None, "light", None)
    set_system_scheme(driver, "dark")
    expect_theme(c, driver, "system turns dark", None, "dark", None)

    # One click makes the page light; the choice holds on the next page under a dark
    # system, and a system change no longer matters.
    toggle()
    expect_theme(c, driver, "click under dark system", "light", "light", "light")
    driver.get("file://" + pages["next"])
    expect_theme(c, driver, "next page", "light", "light", "light")
    set_system_scheme(driver, "light")
    set_system_scheme(driver, "dark")
    expect_theme(c, driver, "stored choice outlives system change", "light", "light", "light")

    # An analyze report takes the stored choice, its toggle works, and its island parses.
    driver.get("file://" + pages["pass"])
    expect_theme(c, driver, "report takes the stored choice", "light", "light", "light", "pass")
    c.check("report title", driver.title == "ref -- Veltrane Report", repr(driver.title))
    results = driver.execute_script("return JSON.parse(document.getElementById('veltrane-results').textContent);")
    c.check("results island parses", results.get("overall_verdict") == "PASS" and results.get("status") == "analyzed",
            repr(results)[:200])
    toggle()
    expect_theme(c, driver, "report toggled dark", "dark", "dark", "dark", "pass")

    # A report whose DUT name holds markup: nothing of the name becomes an element, the
    # theme script still runs and the island parses back to the name.
    driver.get("file://" + pages["hostile"])
    hostile = driver.execute_script(
        "var island = document.getElementById('veltrane-results');"
        "var doc = null; try { doc = JSON.parse(island.textContent); } catch (e) {}"
        "return {imgs: document.querySelectorAll('img').length, injected: window.__vtInjected,"
        " dut: doc && doc.dut_file, fname: document.querySelectorAll('.fname')[1].textContent,"
        " errors: window.__vtErrors || ['error collector missing']};")
    c.check("hostile name: no injected element", hostile["imgs"] == 0 and hostile.get("injected") is None,
            repr(hostile))
    c.check("hostile name: island parses to the name", hostile["dut"] == pages["hostile_dut"], repr(hostile))
    c.check("hostile name shown as text", hostile["fname"] == pages["hostile_dut"], repr(hostile["fname"]))
    c.check("hostile name: no script errors", not hostile["errors"] and not browser_errors(driver),
            repr(hostile["errors"]))
    theme = "return document.documentElement.getAttribute('data-theme');"
    before = driver.execute_script(theme)
    toggle()
    after = driver.execute_script(theme)
    c.check("hostile name: theme script still runs", after in ("light", "dark") and after != before,
            "%r -> %r" % (before, after))

    # The error checks themselves must see an error: an inline script of the page throws
    # one (an inline script, like the page's own, so its message is not masked).
    driver.execute_script("var s = document.createElement('script');"
                          "s.textContent = \"throw new Error('veltrane-probe');\"; document.body.appendChild(s);")
    state = wait_for(driver, lambda s: any("veltrane-probe" in e for e in s["errors"]))
    c.check("error collector sees a thrown error", any("veltrane-probe" in e for e in state["errors"]),
            repr(state["errors"]))
    log = browser_errors(driver)
    c.check("console log sees a thrown error", any("veltrane-probe" in m for m in log), repr(log))
    driver.execute_script("window.localStorage.removeItem('veltrane-report-theme');")


# ---------------------------------------------------------------------------------------
# Charts

def view_of(driver, frame):
    text = driver.execute_script("return arguments[0].getAttribute('data-view');", frame)
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


def drag(driver, frame, from_frac, to_frac, shift=False, pixels=None):
    """A mouse drag across the frame between two fractions of its width, or `pixels` to the
    right of its centre."""
    driver.execute_script(
        "var f = arguments[0], r = f.getBoundingClientRect(), y = r.top + r.height / 2;"
        "var x0 = r.left + r.width * arguments[1];"
        "var x1 = arguments[4] === null ? r.left + r.width * arguments[2] : x0 + arguments[4];"
        "f.dispatchEvent(new MouseEvent('mousedown', {button: 0, shiftKey: arguments[3], clientX: x0, clientY: y,"
        "  bubbles: true}));"
        "window.dispatchEvent(new MouseEvent('mousemove', {clientX: x1, clientY: y, bubbles: true}));"
        "window.dispatchEvent(new MouseEvent('mouseup', {clientX: x1, clientY: y, bubbles: true}));",
        frame, from_frac, to_frac, shift, pixels)


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
    view = lambda: view_of(driver, frame)
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'});", frame)
    c.check(name + ": drawn by the script at full view", close(view(), (0.0, 1.0)), repr(view()))
    wheel(driver, frame, -400, at=0.25)
    zoomed = view()
    c.check(name + ": wheel zooms in around the cursor",
            zoomed is not None and zoomed[1] - zoomed[0] < 0.9 and zoomed[0] < 0.25 < zoomed[1], repr(zoomed))
    drag(driver, frame, 0.6, 0.4)
    panned = view()
    c.check(name + ": dragging left pans right, keeping the span",
            panned is not None and panned[0] > zoomed[0] and abs((panned[1] - panned[0]) - (zoomed[1] - zoomed[0])) < 1e-5,
            "%r -> %r" % (zoomed, panned))
    drag(driver, frame, 0.5, None, shift=True, pixels=4)
    c.check(name + ": a box of 4 px does nothing", close(view(), panned), repr(view()))
    drag(driver, frame, 0.3, 0.7, shift=True)
    boxed = view()
    c.check(name + ": shift-drag zooms to the box",
            boxed is not None and boxed[1] - boxed[0] < (panned[1] - panned[0]) * 0.6, "%r -> %r" % (panned, boxed))
    hidden = driver.execute_script("var b = arguments[0].querySelector('.zoom-box'); return !b || b.hidden;", frame)
    c.check(name + ": the zoom box is hidden after the release", hidden)
    driver.execute_script("arguments[0].dispatchEvent(new MouseEvent('dblclick', {bubbles: true}));", frame)
    c.check(name + ": double-click restores the full view", close(view(), (0.0, 1.0)), repr(view()))
    wheel(driver, frame, -600, times=40)
    deepest = view()
    c.check(name + ": the narrowest view is 0.002 of the range",
            deepest is not None and abs((deepest[1] - deepest[0]) - 0.002) < 1e-6, repr(deepest))
    button = driver.find_element(By.CSS_SELECTOR, ".zoom-reset[data-zoom-target='%s']" % frame.get_attribute("id"))
    driver.execute_script("arguments[0].click();", button)
    c.check(name + ": the reset button restores the full view", close(view(), (0.0, 1.0)), repr(view()))


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
    toggle = toggles[0]
    frame = driver.find_element(By.ID, toggle.get_attribute("data-target"))
    other_frame = driver.find_element(By.ID, toggles[1].get_attribute("data-target"))
    state = lambda f=frame: driver.execute_script(TRACE_STATE, f)
    click = lambda mode: toggle.find_element(By.CSS_SELECTOR, "button[data-mode='%s']" % mode).click()
    driver.execute_script("arguments[0].scrollIntoView({block: 'center'});", frame)
    c.check(where + ": both traces shown at first", state() == [True, True], repr(state()))
    click("dut")
    c.check(where + ": DUT mode hides the reference", state() == [False, True], repr(state()))
    c.check(where + ": the other chart keeps both traces", state(other_frame) == [True, True], repr(state(other_frame)))
    wheel(driver, frame, -300)
    c.check(where + ": the reference stays hidden after a zoom", state() == [False, True], repr(state()))
    click("ref")
    c.check(where + ": Ref mode hides the DUT", state() == [True, False], repr(state()))
    click("both")
    c.check(where + ": Both shows them again", state() == [True, True])
    active = [b.get_attribute("class") for b in toggle.find_elements(By.CSS_SELECTOR, "button")]
    c.check(where + ": only the clicked button is active", active == ["active", "", ""], repr(active))


def check_snapshot_tabs(c, driver, By):
    tabs = driver.find_elements(By.CSS_SELECTOR, ".snap-tab")
    if len(tabs) < 2:
        c.check("snapshot tabs present", False, "%d tabs" % len(tabs))
        return
    widget = tabs[0].find_element(By.XPATH, "./ancestor::*[starts-with(@id, 'vt-snap-widget')]")
    target = widget.find_elements(By.CSS_SELECTOR, ".snap-tab")[-1]
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
    """Loads a page, waits until every chart was redrawn by the script, reports the time
    from navigation start to that point, and checks for script and console errors."""
    driver.get("file://" + path)
    deadline = time.monotonic() + 20
    while not driver.execute_script(RENDERED) and time.monotonic() < deadline:
        time.sleep(0.02)
    elapsed_ms = driver.execute_script("return performance.now();")
    print("# first render of %s: %.0f ms (page %.0f KiB)" % (name, elapsed_ms, os.path.getsize(path) / 1024.0))
    errors = page_errors(driver)
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
    try:
        from selenium import webdriver
        from selenium.webdriver.chrome.service import Service
        from selenium.webdriver.common.by import By
    except ImportError as e:
        print("error: Chromium is installed but python3-selenium is missing (%s)" % e)
        return 1
    if not os.access(CHROMEDRIVER, os.X_OK):
        print("error: Chromium is installed but %s (chromium-driver) is missing" % CHROMEDRIVER)
        return 1

    os.makedirs(args.screenshots, exist_ok=True)
    workdir = tempfile.mkdtemp(prefix="veltrane-pages-")
    driver = None
    c = Checker()
    try:
        make_pairs(workdir)
        pages = {name: os.path.join(workdir, name + ".html")
                 for name in ("fail", "pass", "plot", "error", "next", "hostile")}
        # The same capture under a hostile name: its "</" makes "x<" a directory.
        os.mkdir(os.path.join(workdir, "x<"))
        pages["hostile_dut"] = os.path.join(workdir, "x</SCRIPT><img src=x onerror=%s><!--<script>.wav" % INJECTED)
        shutil.copy(os.path.join(workdir, "same.wav"), pages["hostile_dut"])
        runs = [
            ("failing report", 0, ["analyze", "--ref", "ref.wav", "--dut", "dut.wav", "--out", pages["fail"],
                                   "--deepscan", "--snapshots", "3"]),
            ("passing report", 0, ["analyze", "--ref", "ref.wav", "--dut", "same.wav", "--out", pages["pass"]]),
            ("hostile report", 0, ["analyze", "--ref", "ref.wav", "--dut", pages["hostile_dut"], "--out",
                                   pages["hostile"]]),
            ("plot page", 0, ["plot", "--input", "ref.wav", "--out", pages["plot"]]),
            # The error text carries markup and quotes: it must show as text, never run.
            ("ERROR page", 1, ["analyze", "--ref", "/captures/<script>%s</script>.wav" % INJECTED, "--dut",
                               "dut.wav", "--out", pages["error"]]),
            ("next ERROR page", 1, ["analyze", "--ref", "ref.wav", "--dut", "missing.wav", "--out", pages["next"]]),
        ]
        for name, status, command in runs:
            got = subprocess.run([args.veltrane] + command, cwd=workdir, timeout=300, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL).returncode
            c.check(name + " written", got == status, "exit status %d" % got)
        driver = start_driver(webdriver, Service, os.path.join(workdir, "profile"))

        check_theme_and_markup(c, driver, By, pages)

        open_page(c, driver, pages["fail"], "failing report")
        c.check("failing report has a spectral chart", first_frame(driver, By, "spectral") is not None)
        for kind in ("spectral", "waveform"):
            check_zoom(c, driver, By, kind, "failing report")
        check_trace_toggle(c, driver, By, "failing report")
        check_snapshot_tabs(c, driver, By)
        open_page(c, driver, pages["plot"], "plot page")
        for kind in ("spectral", "waveform"):
            check_zoom(c, driver, By, kind, "plot page")
        open_page(c, driver, pages["pass"], "passing report")
        open_page(c, driver, pages["error"], "ERROR page")

        for name in ("pass", "fail", "plot"):
            screenshots(driver, pages[name], {"pass": "report-pass", "fail": "report-fail"}.get(name, name),
                        args.screenshots)
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
