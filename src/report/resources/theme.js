(function () {
  'use strict';
  // Light/dark theme: a stored choice wins; without one the page follows the system.
  var THEME_KEY = 'veltrane-report-theme';
  var root = document.documentElement;
  var darkQuery = window.matchMedia ? window.matchMedia('(prefers-color-scheme: dark)') : null;

  function storedTheme() {
    try {
      var value = window.localStorage.getItem(THEME_KEY);
      return value === 'dark' || value === 'light' ? value : null;
    } catch (e) {
      return null; // storage unavailable (privacy mode, file access rules)
    }
  }

  function storeTheme(value) {
    try {
      window.localStorage.setItem(THEME_KEY, value);
    } catch (e) {
      // the choice then lasts for this page view only
    }
  }

  function effectiveTheme() {
    var set = root.getAttribute('data-theme');
    if (set === 'dark' || set === 'light') return set;
    return darkQuery && darkQuery.matches ? 'dark' : 'light';
  }

  var initial = storedTheme();
  if (initial) root.setAttribute('data-theme', initial);

  var button = document.getElementById('themeToggle');

  // The button offers the other theme: a sun while dark, a moon while light.
  function updateButton() {
    if (!button) return;
    var dark = effectiveTheme() === 'dark';
    button.setAttribute('data-effective', dark ? 'dark' : 'light');
    button.setAttribute('aria-label', dark ? 'Switch to light theme' : 'Switch to dark theme');
    button.setAttribute('title', dark ? 'Switch to light theme' : 'Switch to dark theme');
  }

  if (button) {
    button.addEventListener('click', function () {
      var next = effectiveTheme() === 'dark' ? 'light' : 'dark';
      root.setAttribute('data-theme', next);
      storeTheme(next);
      updateButton();
    });
  }

  if (darkQuery) {
    // Without a stored choice the style sheet follows the system by itself; only the
    // button needs telling.
    var onSystemChange = function () {
      if (!storedTheme()) updateButton();
    };
    if (darkQuery.addEventListener) darkQuery.addEventListener('change', onSystemChange);
    else if (darkQuery.addListener) darkQuery.addListener(onSystemChange);
  }

  updateButton();
})();
