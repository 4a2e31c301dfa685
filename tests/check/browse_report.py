# SPDX-License-Identifier: Apache-2.0
"""Opens a report of gentl-check in Chromium, uses its filters, and compares it with what --json says of the same run.

usage: browse_report.py REPORT.html RESULT.json FOLDER: FOLDER takes pictures of it, dark and light, wide and narrow. Prints
what is wrong; exit code 1 when something is, 77 when Chromium, its driver or Selenium is not installed.
"""
import collections
import json
import pathlib
import shutil
import sys
import tempfile

try:
    from selenium import webdriver
    from selenium.webdriver import ActionChains
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import Select
except ImportError:
    print("python3-selenium is not installed")
    sys.exit(77)

wrong = []


def expect(what, found, wanted):
    if found != wanted:
        wrong.append(f"{what}: {found!r} instead of {wanted!r}")


def open_browser(profile):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                     f"--user-data-dir={profile}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


class Page:
    def __init__(self, browser, findings):
        self.browser = browser
        self.findings = findings

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def shown(self):
        """The ids of the rules that a reader can see, by what the browser lays out."""
        return self.browser.execute_script(
            "return [...document.querySelectorAll('.rule')].filter(rule => rule.checkVisibility()).map(rule => rule.id)")

    def expect_shown(self, what, keep):
        wanted = [one["id"] for one in self.findings if keep(one)]
        expect(what, self.shown(), wanted)
        expect(f"{what}, as it is told", self.find("#shown").text,
               f"{len(wanted)} of {len(self.findings)} rules are shown")
        families = list(dict.fromkeys(one["family"] for one in self.findings if keep(one)))
        expect(f"{what}, the families", [one.text for one in self.browser.find_elements(By.CSS_SELECTOR, "h2")
                                         if one.is_displayed()], families)


def check_summary(page, result):
    counts = {one.find_element(By.TAG_NAME, "dt").text: int(one.find_element(By.TAG_NAME, "dd").text)
              for one in page.browser.find_elements(By.CSS_SELECTOR, "#summary div")}
    expect("the summary", counts, {"passed": result["passed"], "failed": result["failed"],
                                   "not tried": result["not_tried"]})
    for key in ("outcome", "severity"):
        name = {"outcome": "result"}.get(key, key)
        of_each = collections.Counter(one[key] for one in result["findings"])
        for box in page.browser.find_elements(By.CSS_SELECTOR, f"input[name={name}]"):
            word = box.get_attribute("value")
            told = box.find_element(By.XPATH, "..").find_element(By.CLASS_NAME, "count").text
            expect(f"how many are {word}", told, str(of_each[word]))


def check_failures(page, result):
    for one in result["findings"]:
        rule = page.find(f"#{one['id']}")
        failed = one["outcome"] in ("failed", "warned")
        expect(f"{one['id']} stands open", rule.get_attribute("open") is not None, failed)
        if failed:
            for name, key in (("consumer", "consumer"), ("calls", "calls")):
                expect(f"{name} of {one['id']}", rule.find_element(By.CSS_SELECTOR, f"pre.{name}").text.split(),
                       one[key].split())


def check_filters(page):
    page.expect_shown("at first", lambda one: True)
    for name, key, word in (("result", "outcome", "passed"), ("result", "outcome", "failed"),
                            ("severity", "severity", "must")):
        box = page.find(f"input[name={name}][value={word}]")
        box.click()
        page.expect_shown(f"without {word}", lambda one, key=key, word=word: one[key] != word)
        box.send_keys(Keys.SPACE)
        page.expect_shown(f"{word} again, by keyboard", lambda one: True)
    family = page.findings[-1]["family"]
    choice = Select(page.find("select[name=family]"))
    choice.select_by_visible_text(family)
    page.expect_shown(f"of {family}", lambda one: one["family"] == family)
    choice.select_by_visible_text("all")
    text = page.find("input[name=text]")
    text.send_keys("lb-005", Keys.ENTER)
    page.expect_shown("with a text", lambda one: one["id"] == "LB-005")
    text.clear()
    text.send_keys("no rule has this text")
    page.expect_shown("with a text that no rule has", lambda one: False)
    text.clear()
    page.expect_shown("without a text", lambda one: True)


def press(page, key):
    ActionChains(page.browser).send_keys(key).perform()


def check_keyboard(page):
    """From the last filter the tab key goes to the first rule, and the enter key opens and closes it."""
    page.find("input[name=text]").click()
    press(page, Keys.TAB)
    first = page.findings[0]["id"]
    focused = page.browser.execute_script("return document.activeElement.parentElement.id")
    expect("what the tab key goes to", focused, first)
    before = page.find(f"#{first}").get_attribute("open")
    press(page, Keys.ENTER)
    expect(f"that {first} is opened or closed by the enter key",
           (page.find(f"#{first}").get_attribute("open") is None), before is not None)


def check_sizes(page, folder):
    for scheme in ("light", "dark"):
        page.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                     {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
        back = page.browser.execute_script("return getComputedStyle(document.body).backgroundColor")
        expect(f"the ground in a {scheme} page", back, {"light": "rgb(255, 255, 255)", "dark": "rgb(20, 23, 27)"}[scheme])
        for name, width, height in (("wide", 1280, 1600), ("phone", 360, 1500)):
            page.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
                "width": width, "height": height, "deviceScaleFactor": 1, "mobile": name == "phone"})
            wider = page.browser.execute_script("return ['html', '#summary', '#filters', 'section'].filter("
                                                "name => document.querySelector(name).scrollWidth > "
                                                "document.querySelector(name).clientWidth)")
            expect(f"what is too wide for a {name} page", wider, [])
            page.browser.execute_script("scrollTo(0, 0)")
            page.browser.save_screenshot(str(folder / f"{scheme}-{name}.png"))


def check_browser_log(browser, address):
    expect("what the browser complains about", [one["message"] for one in browser.get_log("browser")], [])
    events = [json.loads(one["message"])["message"] for one in browser.get_log("performance")]
    asked = {event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"}
    expect("what is loaded", {url for url in asked if not url.startswith("data:")}, {address})


def main():
    report, result, folder = pathlib.Path(sys.argv[1]), json.loads(pathlib.Path(sys.argv[2]).read_text()), sys.argv[3]
    for program, package in (("chromium", "chromium"), ("chromedriver", "chromium-driver")):
        if shutil.which(program) is None:
            print(f"{package} is not installed")
            return 77
    with tempfile.TemporaryDirectory() as profile:
        browser = open_browser(profile)
        try:
            address = report.resolve().as_uri()
            browser.get("about:blank")
            for log in ("browser", "performance"):
                browser.get_log(log)  # of the page that the browser begins with
            browser.get(address)
            page = Page(browser, result["findings"])
            check_summary(page, result)
            check_failures(page, result)
            check_filters(page)
            check_keyboard(page)
            check_sizes(page, pathlib.Path(folder))
            check_browser_log(browser, address)
        finally:
            browser.quit()
    print("\n".join(wrong))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
