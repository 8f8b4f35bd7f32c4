# SPDX-License-Identifier: MIT
"""Debian's Chromium, without a screen, looking at a file."""
import base64
import contextlib
import json
import os
import tempfile

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

_ARGUMENTS = ["--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
              "--disable-extensions", "--disable-background-networking", "--no-first-run", "--allow-file-access-from-files"]

# What is not as it should be, of any page: one text for each.
_FAULTS = """
const faults = [], width = document.documentElement.clientWidth;
const light = text => text.match(/[\\d.]+/g).slice(0, 3).map(c => c / 255)
    .map(c => c <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
    .reduce((sum, c, i) => sum + c * [0.2126, 0.7152, 0.0722][i], 0.05);
if (document.documentElement.scrollWidth > width) faults.push('wider than the screen');
if (!document.documentElement.lang || !document.title) faults.push('no language, or no title');
if (document.querySelectorAll('h1').length != 1) faults.push('not one main heading');
const paper = light(getComputedStyle(document.body).backgroundColor);
for (const one of document.querySelectorAll('body *')) {
    const style = getComputedStyle(one), box = one.getBoundingClientRect();
    const name = one.tagName + ' ' + one.className + ' ' + one.textContent.slice(0, 40);
    if (style.display == 'none' || !box.width) continue;
    if (box.right > width + 1 || box.left < -1) faults.push('stands out: ' + name);
    const ownText = [...one.childNodes].some(node => node.nodeType == 3 && node.textContent.trim());
    if (!ownText) continue;
    if (parseFloat(style.fontSize) < 11) faults.push('too small to read: ' + name);
    const ink = light(style.color);
    if (Math.max(ink, paper) / Math.min(ink, paper) < 4.5) faults.push('too pale: ' + name);
}
for (const table of document.querySelectorAll('table'))
    if (!table.querySelector('thead th[scope=col]') || !table.querySelector('tbody th[scope=row]'))
        faults.push('a table without heads');
for (const picture of document.querySelectorAll('[role=img]'))
    if (!picture.getAttribute('aria-label')) faults.push('a picture without words');
return faults;
"""


class Browser:
    """A page at one width; what it asked for and complained of is collected."""

    def __init__(self, driver):
        self.driver = driver

    def show(self, path, width, height, dark=False, phone=False):
        """Loads a file anew. Returns what was requested beside the file, and what the console has."""
        self.driver.get("about:blank")
        for kind in ("performance", "browser"):
            self.driver.get_log(kind)  # of the page before, or of the browser's own
        command = self.driver.execute_cdp_cmd
        command("Emulation.setDeviceMetricsOverride",
                {"width": width, "height": height, "deviceScaleFactor": 2 if phone else 1, "mobile": phone})
        command("Emulation.setEmulatedMedia",
                {"features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})
        self.driver.get(f"file://{path}")
        events = [json.loads(entry["message"])["message"] for entry in self.driver.get_log("performance")]
        asked = [event["params"]["request"]["url"] for event in events
                 if event["method"] == "Network.requestWillBeSent"]
        assert asked[:1] == [f"file://{path}"], asked
        return asked[1:], self.driver.get_log("browser")

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def faults(self):
        return self.run(_FAULTS)

    def shoot(self, path):
        """Writes a picture of the whole page."""
        shot = self.driver.execute_cdp_cmd("Page.captureScreenshot", {"captureBeyondViewport": True})
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "wb") as file:
            file.write(base64.b64decode(shot["data"]))


@contextlib.contextmanager
def started():
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
    with tempfile.TemporaryDirectory(prefix="page-") as home:
        os.environ["HOME"] = home
        for argument in (*_ARGUMENTS, f"--user-data-dir={home}/data"):
            options.add_argument(argument)
        driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
        try:
            yield Browser(driver)
        finally:
            driver.quit()
