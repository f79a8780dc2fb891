#!/usr/bin/python3
"""Opens generated pages in Debian's headless Chromium and checks the page scripts: the
ERROR page and a real analyze report (written by the veltrane binary from a WAV pair the
fixture program generates). No script errors, the theme toggle switches data-theme and its
aria-label, the choice is stored and survives a reload and carries over to the next page,
without a stored choice the page follows the system colour scheme, and the report's
results island parses as JSON. A report whose DUT file name holds markup ("</SCRIPT>",
an <img> with an onerror handler, "<!--<script>") has no injected element, a working
theme script and an island that parses back to the name.

Usage: theme_test.py --fixture <page fixture program> --veltrane <veltrane binary>
Exit status: 0 all checks passed, 1 a check failed, 77 Chromium is not installed (skip).
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time

SKIP = 77
CHROMIUM = "/usr/bin/chromium"
CHROMEDRIVER = "/usr/bin/chromedriver"
PAGE_TIMEOUT_S = 30
WAIT_S = 5

LIGHT_BG = "rgb(238, 241, 244)"  # --bg, light
DARK_BG = "rgb(14, 19, 24)"  # --bg, dark
LIGHT_FAIL = "rgb(198, 40, 40)"  # --fail, light: the ERROR verdict tile
DARK_FAIL = "rgb(226, 133, 123)"
LIGHT_PASS = "rgb(46, 125, 50)"  # --pass, light: a PASS verdict tile
DARK_PASS = "rgb(111, 191, 115)"

# Installed before any page script runs: collects uncaught errors and rejected promises.
ERROR_COLLECTOR = """
window.__vtErrors = [];
window.addEventListener('error', function (e) { window.__vtErrors.push('error: ' + e.message); });
window.addEventListener('unhandledrejection', function (e) {
  window.__vtErrors.push('unhandled rejection: ' + String(e.reason));
});
"""

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
    for flag in (
        "--headless",
        "--no-sandbox",
        "--disable-gpu",
        "--disable-quic",
        "--no-first-run",
        "--no-default-browser-check",
        "--disable-background-networking",
        "--disable-component-update",
        "--disable-sync",
        "--disable-extensions",
        "--disable-dev-shm-usage",
        "--host-resolver-rules=MAP * ~NOTFOUND",
        "--window-size=1280,900",
        "--user-data-dir=" + profile_dir,
    ):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    service = Service(executable_path=CHROMEDRIVER, log_path=os.devnull)
    driver = webdriver.Chrome(service=service, options=options)
    driver.set_page_load_timeout(PAGE_TIMEOUT_S)
    driver.set_script_timeout(PAGE_TIMEOUT_S)
    driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": ERROR_COLLECTOR})
    return driver


def set_system_scheme(driver, scheme):
    driver.execute_cdp_cmd(
        "Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]}
    )


def wait_for(driver, predicate):
    """Polls the page state until predicate(state) holds or WAIT_S passes; returns the last state."""
    deadline = time.monotonic() + WAIT_S
    state = driver.execute_script(STATE_SCRIPT)
    while not predicate(state) and time.monotonic() < deadline:
        time.sleep(0.05)
        state = driver.execute_script(STATE_SCRIPT)
    return state


def browser_errors(driver):
    """Console messages of level SEVERE since the last call (script errors, failed loads)."""
    return [entry.get("message", "") for entry in driver.get_log("browser") if entry.get("level") == "SEVERE"]


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


def click_toggle(driver, By):
    driver.find_element(By.ID, "themeToggle").click()


def run_checks(c, driver, By, pages):
    error_url = "file://" + pages["error"]
    next_url = "file://" + pages["next"]

    # Fresh profile, light system: the page is light and offers the dark theme.
    set_system_scheme(driver, "light")
    driver.get(error_url)
    expect_theme(c, driver, "first load", None, "light", None)

    text = driver.find_element(By.CSS_SELECTOR, "p.run-error").text
    c.check("error text shown as text", "<script>window.__vtInjected=1</script>" in text, repr(text))
    c.check("error text markup not run", driver.execute_script("return window.__vtInjected === undefined;"))
    c.check("title", driver.title == "Run Error -- Veltrane Report", repr(driver.title))

    # A click switches to dark and stores the choice; a reload keeps it.
    click_toggle(driver, By)
    expect_theme(c, driver, "after click", "dark", "dark", "dark")
    driver.refresh()
    expect_theme(c, driver, "dark after reload", "dark", "dark", "dark")
    click_toggle(driver, By)
    expect_theme(c, driver, "second click", "light", "light", "light")
    driver.refresh()
    expect_theme(c, driver, "light after reload", "light", "light", "light")

    # Nothing stored and a dark system: the page renders dark and offers the light theme.
    driver.execute_script("window.localStorage.removeItem('veltrane-report-theme');")
    set_system_scheme(driver, "dark")
    driver.refresh()
    expect_theme(c, driver, "dark system", None, "dark", None)

    # The system scheme changes while nothing is stored: the button follows it.
    set_system_scheme(driver, "light")
    expect_theme(c, driver, "system turns light", None, "light", None)
    set_system_scheme(driver, "dark")
    expect_theme(c, driver, "system turns dark", None, "dark", None)

    # One click makes the page light; the choice holds on the next report under a dark system.
    click_toggle(driver, By)
    expect_theme(c, driver, "click under dark system", "light", "light", "light")
    driver.get(next_url)
    expect_theme(c, driver, "next report", "light", "light", "light")

    # With a stored choice a system change no longer matters.
    set_system_scheme(driver, "light")
    set_system_scheme(driver, "dark")
    expect_theme(c, driver, "stored choice outlives system change", "light", "light", "light")

    # The analyze report: the stored choice applies, the toggle works and persists there too,
    # and the embedded results document parses.
    driver.get("file://" + pages["report"])
    expect_theme(c, driver, "report page takes the stored choice", "light", "light", "light", "pass")
    c.check("report title", driver.title == "ref -- Veltrane Report", repr(driver.title))
    results = driver.execute_script(
        "return JSON.parse(document.getElementById('veltrane-results').textContent);")
    c.check("results island parses", results.get("overall_verdict") == "PASS" and results.get("status") == "analyzed",
            repr(results)[:200])
    click_toggle(driver, By)
    expect_theme(c, driver, "report toggled dark", "dark", "dark", "dark", "pass")
    driver.refresh()
    expect_theme(c, driver, "report dark after reload", "dark", "dark", "dark", "pass")

    # A report whose DUT name holds markup: nothing of the name becomes an element, the
    # theme script still runs and the island parses back to the name.
    driver.get("file://" + pages["hostile"])
    hostile = driver.execute_script(
        "var island = document.getElementById('veltrane-results');"
        "var doc = null; try { doc = JSON.parse(island.textContent); } catch (e) {}"
        "return {imgs: document.querySelectorAll('img').length, injected: window.__vtInjected,"
        " scripts: document.scripts.length, dut: doc && doc.dut_file,"
        " fname: document.querySelectorAll('.fname')[1].textContent,"
        " errors: window.__vtErrors || ['error collector missing']};")
    c.check("hostile name: no injected element", hostile["imgs"] == 0 and hostile.get("injected") is None,
            repr(hostile))
    c.check("hostile name: island parses to the name", hostile["dut"] == pages["hostile_dut"], repr(hostile))
    c.check("hostile name shown as text", hostile["fname"] == pages["hostile_dut"], repr(hostile["fname"]))
    c.check("hostile name: no script errors", not hostile["errors"] and not browser_errors(driver),
            repr(hostile["errors"]))
    before = driver.execute_script("return document.documentElement.getAttribute('data-theme');")
    click_toggle(driver, By)
    after = driver.execute_script("return document.documentElement.getAttribute('data-theme');")
    c.check("hostile name: theme script still runs", after in ("light", "dark") and after != before,
            "%r -> %r" % (before, after))

    # The error checks themselves must see an error: an inline script of the page throws
    # one (an inline script, like the page's own, so its message is not masked).
    driver.execute_script(
        "var s = document.createElement('script');"
        "s.textContent = \"throw new Error('veltrane-probe');\";"
        "document.body.appendChild(s);"
    )
    state = wait_for(driver, lambda s: any("veltrane-probe" in e for e in s["errors"]))
    c.check("error collector sees a thrown error", any("veltrane-probe" in e for e in state["errors"]),
            repr(state["errors"]))
    log = browser_errors(driver)
    c.check("console log sees a thrown error", any("veltrane-probe" in m for m in log), repr(log))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--fixture", required=True, help="program that writes the test pages into a directory")
    parser.add_argument("--veltrane", required=True, help="the veltrane binary, to write a real report")
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

    workdir = tempfile.mkdtemp(prefix="veltrane-browser-")
    driver = None
    c = Checker()
    try:
        page_dir = os.path.join(workdir, "pages")
        os.mkdir(page_dir)
        subprocess.run([args.fixture, page_dir], check=True, timeout=60)
        pages = {"error": os.path.join(page_dir, "error.html"), "next": os.path.join(page_dir, "next.html"),
                 "report": os.path.join(page_dir, "report.html")}
        subprocess.run([args.veltrane, "analyze", "--ref", os.path.join(page_dir, "ref.wav"), "--dut",
                        os.path.join(page_dir, "dut.wav"), "--out", pages["report"], "--quiet"],
                       check=True, timeout=120, stdout=subprocess.DEVNULL)
        # The same capture under a hostile name: its "</" makes "x<" a directory.
        os.mkdir(os.path.join(page_dir, "x<"))
        pages["hostile_dut"] = os.path.join(
            page_dir, "x</SCRIPT><img src=x onerror=window.__vtInjected=1><!--<script>.wav")
        shutil.copy(os.path.join(page_dir, "dut.wav"), pages["hostile_dut"])
        pages["hostile"] = os.path.join(page_dir, "hostile.html")
        subprocess.run([args.veltrane, "analyze", "--ref", os.path.join(page_dir, "ref.wav"), "--dut",
                        pages["hostile_dut"], "--out", pages["hostile"], "--quiet"],
                       check=True, timeout=120, stdout=subprocess.DEVNULL)
        driver = start_driver(webdriver, Service, os.path.join(workdir, "profile"))
        run_checks(c, driver, By, pages)
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
