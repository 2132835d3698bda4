"""A real browser, driven through chromedriver."""

import shutil
import tempfile

import pytest

from processes import wait_for

CHROMIUM, DRIVER = shutil.which("chromium"), shutil.which("chromedriver")
FLAGS = ("--headless=new --no-sandbox --disable-gpu --disable-quic --no-first-run --disable-background-networking "
         "--disable-component-update --disable-sync --disable-dev-shm-usage").split()
DESK, TELEPHONE = (1280, 900), (390, 844)

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
except ImportError:
    webdriver = None

if not (CHROMIUM and DRIVER and webdriver):
    pytest.skip("no browser is here: chromium, chromium-driver and python3-selenium are wanted", allow_module_level=True)


class Browser:
    def __init__(self):
        self.profile = tempfile.mkdtemp(prefix="sms_web_browser_")
        options = Options()
        options.binary_location = CHROMIUM
        for flag in [*FLAGS, f"--user-data-dir={self.profile}"]:
            options.add_argument(flag)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        self.driver = webdriver.Chrome(options=options, service=Service(DRIVER))

    def close(self):
        self.driver.quit()
        shutil.rmtree(self.profile, ignore_errors=True)

    def look(self, size, dark=False):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == TELEPHONE})
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})

    def complaints(self):
        """What the browser found wrong with the page since the last call."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] in ("SEVERE", "WARNING")]


class Page:
    """What a person sees and does."""

    def __init__(self, browser, url):
        self.driver = browser.driver
        self.driver.get(url)
        self.wait(lambda: self.texts("#status li"), "the page has its first state")

    def wait(self, condition, what, seconds=40):
        return wait_for(condition, lambda: f"{what}; the page shows:\n{self.body()}", seconds, 0.05)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def run_async(self, script, *arguments):
        """`script` is the body of an async function."""
        return self.driver.execute_async_script(
            "const done = arguments[arguments.length - 1];"
            f"(async () => {{ {script} }})().then(done, (error) => done('failed: ' + error));", *arguments)

    def body(self):
        return self.run("return document.body.innerText")

    def find(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def texts(self, selector):
        """What is in each visible element, as it stands in the document."""
        return self.run("return [...document.querySelectorAll(arguments[0])].filter((e) => e.checkVisibility())"
                        ".map((e) => e.textContent)", selector)

    def text(self, selector):
        return self.run("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def is_shown(self, selector):
        return self.run("return document.querySelector(arguments[0])?.checkVisibility() ?? false", selector)

    def click(self, selector):
        self.find(selector).click()

    def type(self, selector, text):
        """Any text, also what no key gives; then as if it had been typed."""
        self.run("const e = document.querySelector(arguments[0]); e.focus(); e.value = arguments[1];"
                 "e.dispatchEvent(new Event('input', {bubbles: true}))", selector, text)

    def press(self, *keys):
        self.driver.switch_to.active_element.send_keys(*keys)

    def focused(self):
        return self.run("const e = document.activeElement; return e.id || e.dataset.act || e.tagName")

    # ---- the router's side ----

    def rows(self):
        """(sender, badge, text) of what is listed."""
        return [tuple(row) for row in self.run(
            "return [...document.querySelectorAll('#messages > li')].map((e) => ["
            "e.querySelector('.who').textContent, e.querySelector('.badge')?.textContent ?? '',"
            "e.querySelector('.message-text').textContent])")]

    def wait_rows(self, *rows):
        self.wait(lambda: self.rows() == list(rows), f"the list is {rows}")

    def box(self, name):
        self.click(f"#tab-{name}")

    def open(self, place=1):
        self.click(f"#messages > li:nth-child({place}) .message-head")
        self.wait(lambda: self.is_shown("#messages > li.open .actions"), "the message opens")

    def act(self, name):
        self.click(f'#messages > li.open [data-act="{name}"]')

    def confirm(self, yes=True):
        self.wait(lambda: self.is_shown("#confirm[open]"), "it asks first")
        self.click("#confirm-yes" if yes else '#confirm button[value="no"]')

    def write(self, to, text):
        if not self.is_shown("#composer"):
            self.click("#write")
        self.type("#to", to)
        self.type("#text", text)

    def notes(self):
        return [text.removesuffix("×") for text in self.texts("#notes .toast")]

    def wait_note(self, words):
        self.wait(lambda: any(words in note for note in self.notes()), f"a note says {words!r}")

    # ---- the handset's side ----

    def bubbles(self, mine):
        return self.texts(f"#handset-messages .bubble{'.mine' if mine else ':not(.mine)'} .bubble-text")

    def handset_send(self, text):
        self.type("#handset-text", text)
        self.click("#handset-send")
        self.wait(lambda: text in self.bubbles(True), "the handset shows what it sent")
