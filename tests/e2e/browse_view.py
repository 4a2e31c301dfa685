# SPDX-License-Identifier: Apache-2.0
"""Uses the page of nq-gev view in Chromium as a person does.

usage: browse_view.py URL FOLDER once: opens the page, and looks at its picture, its features and its numbers.
usage: browse_view.py URL FOLDER CONTROL [AXE]: FOLDER takes pictures of the page, CONTROL is the socket of the virtual camera,
AXE is the file axe.min.js of axe-core. Pictures must be less than 300 ms behind the camera, so the machine has to be idle.
usage: browse_view.py URL FOLDER: the page shows two cameras, and whoever started this takes the first away at "take it" and
brings it back at "bring it back".
Prints what is wrong; exit code 1 when something is, 77 when Chromium, its driver or Selenium is not installed.
"""
import cmath
import json
import pathlib
import shutil
import socket
import sys
import tempfile
import time

try:
    from selenium import webdriver
    from selenium.webdriver import ActionChains
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.common.keys import Keys
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    print("python3-selenium is not installed")
    sys.exit(77)

PATIENCE = 20
wrong = []

# The value of a pixel of the picture as the canvas shows it, at the fitted size and in the middle of the pixel.
PIXEL = """
const canvas = document.querySelector('.camera canvas');
const [width, height, x, y] = arguments;
const scale = Math.min(canvas.width / width, canvas.height / height);
const left = (canvas.width - width * scale) / 2, top = (canvas.height - height * scale) / 2;
const at = canvas.getContext('2d').getImageData(left + (x + .5) * scale, top + (y + .5) * scale, 1, 1).data;
return [Number(canvas.dataset.frame), at[0]];
"""


# The same of many pixels that no end of the range of values is near to: x, y and value of each.
PIXELS = """
const canvas = document.querySelector('.camera canvas');
const [width, height] = arguments;
const scale = Math.min(canvas.width / width, canvas.height / height);
const left = (canvas.width - width * scale) / 2, top = (canvas.height - height * scale) / 2;
const bytes = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data;
const found = [];
for (let y = 4; y < height; y += 8) {
  for (let x = 4; x < width; x += 8) {
    const column = Math.floor(left + (x + .5) * scale), row = Math.floor(top + (y + .5) * scale);
    const value = bytes[4 * (row * canvas.width + column)];
    if (value > 40 && value < 215) {
      found.push([x, y, value]);
    }
  }
}
return found;
"""


def expect(what, found, wanted):
    if found != wanted:
        wrong.append(f"{what}: {found!r} instead of {wanted!r}")


def control(path, command):
    with socket.socket(socket.AF_UNIX) as camera:
        camera.connect(path)
        camera.sendall((json.dumps(command) + "\n").encode())
        return json.loads(camera.makefile().readline())


def open_browser(profile):
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                     "--window-size=1440,900", f"--user-data-dir={profile}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


class Page:
    def __init__(self, browser, folder):
        self.browser = browser
        self.folder = folder

    def find(self, selector):
        return self.browser.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.find(selector).text

    def wait(self, what, holds):
        """Waits until it holds, and says so when it does not."""
        try:
            return WebDriverWait(self.browser, PATIENCE, poll_frequency=0.1,
                                 ignored_exceptions=(Exception,)).until(lambda _: holds())
        except Exception:  # what came last is told by the picture
            wrong.append(f"{what}: not in {PATIENCE} s")
            self.picture("wrong")
            return None

    def press(self, *keys):
        ActionChains(self.browser).send_keys(*keys).perform()

    def picture(self, name):
        self.browser.save_screenshot(str(self.folder / f"{name}.png"))

    def theme(self, name):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                     {"features": [{"name": "prefers-color-scheme", "value": name}]})

    def size(self, width, height, mobile=False):
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": mobile})

    def tab(self, name):
        self.find(f"#tab-{name}").click()


def check_picture(page):
    """The ramp of the camera: value(x, y) = (x + y + 7 * frame id) modulo 256; a JPEG is some values off."""
    page.wait("a live picture", lambda: page.text(".camera .state") == "live" and page.find("canvas").get_attribute("data-frame"))
    seen = []

    def fits():
        frame, value = page.browser.execute_script(PIXEL, 320, 240, 100, 60)
        off = (value - 160 - 7 * frame + 128) % 256 - 128
        if abs(off) <= 8 and (not seen or frame > seen[-1]):
            seen.append(frame)
        return len(seen) >= 5
    page.wait("pictures with their frame ids in their pixels, rising", fits)


def check_latency(page, path):
    """How far the picture that the page shows is behind the frames that the camera has taken: that number stands in its
    pixels, as value(x, y) - x - y = 7 * frame id modulo 256, and seven times the last 18 numbers are all different."""
    period = 1 / 20
    delays = []
    while len(delays) < 21:
        pixels = page.browser.execute_script(PIXELS, 320, 240)
        now = control(path, {"cmd": "status"})["frames_taken"]
        turn = sum(cmath.exp(2j * cmath.pi * (value - x - y) / 256) for x, y, value in pixels)
        phase = cmath.phase(turn) / (2 * cmath.pi) * 256
        off, frame = min((abs((phase - 7 * frame + 128) % 256 - 128), frame) for frame in range(now - 16, now + 2))
        if off > 2:
            wrong.append(f"no frame id in the pixels: {phase:.1f} at frame {now}")
            return
        delays.append((now - frame) * period)
        time.sleep(0.03)
    delay = sorted(delays)[len(delays) // 2]
    print(f"the picture is {1000 * delay:.0f} ms behind the camera's")
    if delay >= 0.3:
        wrong.append(f"the picture is {1000 * delay:.0f} ms behind the camera's: {delays}")


def check_features(page):
    """Ten features of five types, by keyboard alone; the camera gives back what it was told."""
    page.wait("the features", lambda: page.find("#feature-ExposureTime"))
    for name, keys, wanted in (("ExposureTime", "2000", "2000"), ("DeviceUserID", "bench", "bench"),
                               ("Gain", "3", "3"), ("BlackLevel", "4", "4"), ("Gamma", "2", "2"),
                               ("AcquisitionFrameRate", "25", "25"),
                               ("DeviceLinkHeartbeatTimeout", "3500000", "3500000")):
        search(page, name)
        focus(page, f"#feature-{name}")
        page.press(Keys.CONTROL, "a")
        page.browser.switch_to.active_element.send_keys(Keys.CONTROL, "a")
        page.press(keys, Keys.ENTER)
        page.wait(f"{name} is set", lambda name=name, wanted=wanted: page.find(f"[data-name={name}].set") and
                  page.find(f"#feature-{name}").get_attribute("value") == wanted)
    search(page, "LineInverter")
    focus(page, "#feature-LineInverter")
    page.press(Keys.SPACE)
    page.wait("LineInverter is set", lambda: page.find("[data-name=LineInverter].set"))
    search(page, "GainSelector")
    focus(page, "#feature-GainSelector")
    page.press(Keys.ARROW_DOWN)
    page.wait("GainSelector is set", lambda: page.find("[data-name=GainSelector].set"))
    search(page, "TimestampLatch")
    focus(page, "#feature-TimestampLatch")
    page.press(Keys.ENTER)
    page.wait("TimestampLatch is executed", lambda: page.find("[data-name=TimestampLatch].set"))
    search(page, "exposure")
    focus(page, "#feature-ExposureTime")
    page.browser.switch_to.active_element.send_keys(Keys.CONTROL, "a")
    page.press("-5", Keys.ENTER)
    page.wait("a refused value says why", lambda: page.text("#feature-ExposureTime-error").startswith("ExposureTime=-5: takes ")
              and page.text("#feature-ExposureTime-error").endswith("(code 2)"))
    page.picture("editing")
    page.press(Keys.ESCAPE)
    expect("what Escape leaves", page.find("#feature-ExposureTime").get_attribute("value"), "2000")
    search(page, "")


def search(page, text):
    field = page.find("#features input[type=search]")
    field.click()
    field.send_keys(Keys.CONTROL, "a")
    field.send_keys(Keys.DELETE, text)


def focus(page, selector):
    """Goes there by the tab key from where the focus is."""
    wanted = page.find(selector)
    for _ in range(40):
        page.press(Keys.TAB)
        if page.browser.switch_to.active_element == wanted:
            return
    wrong.append(f"the tab key does not lead to {selector}")


def check_zoom(page):
    canvas = page.find("canvas")
    canvas.send_keys(Keys.ARROW_RIGHT)
    for _ in range(6):
        canvas.send_keys("+")
    page.wait("the value under the cursor", lambda: page.text(".readout").split("=")[1].strip().isdigit())
    page.picture("zoomed")
    canvas.send_keys("0")
    page.tab("picture")
    page.find(".tools button[aria-pressed]").click()
    canvas.send_keys(Keys.ENTER, *[Keys.ARROW_RIGHT] * 20, Keys.ENTER)
    page.wait("a line profile", lambda: page.text("#plot-profile h3 span") == "21 pixels")
    page.wait("a histogram", lambda: page.text("#plot-histogram h3 span").startswith("0 to 255, mean "))
    page.picture("picture")


def check_loss(page, path):
    page.tab("plots")
    control(path, {"fault": "id-jump:9:1"})
    # A busy machine may lose frames of its own.
    page.wait("loss in the plot", lambda: int(page.find("#plot-lost canvas").get_attribute("data-sum")) >= 9)
    page.wait("loss in the numbers", lambda: int(page.text(".numbers .bad dd")) >= 9)
    page.picture("plots")


def check_doctor(page):
    page.tab("doctor")
    page.find("#doctor button").click()
    page.wait("findings", lambda: len(page.browser.find_elements(By.CSS_SELECTOR, ".finding")) > 5)
    page.picture("doctor")
    page.tab("features")


def check_record(page):
    button = page.find("button.record")
    button.click()
    page.wait("a recording", lambda: page.text(".recording").startswith("recording ") and " 0 frames" not in page.text(".recording"))
    page.picture("recording")
    button.click()
    page.wait("the end of the recording", lambda: page.text(".recording").startswith("recorded "))


def check_sizes(page):
    for scheme in ("light", "dark"):
        page.theme(scheme)
        for name, width, height in (("wide", 1440, 900), ("phone", 375, 1400)):
            page.size(width, height, name == "phone")
            time.sleep(0.6)  # the pictures and charts of the new size
            wider = page.browser.execute_script("return [...document.querySelectorAll('body *')].filter(one => "
                                                "one.getBoundingClientRect().right > innerWidth + 1).map(one => one.outerHTML"
                                                ".slice(0, 80))")
            expect(f"what is too wide for a {name} page", wider, [])
            page.picture(f"{scheme}-{name}")
    page.size(1440, 900)


def check_axe(page, axe):
    page.browser.execute_script(axe)
    for scheme in ("light", "dark"):
        page.theme(scheme)
        for tab in ("features", "plots", "picture", "doctor"):
            page.tab(tab)
            result = page.browser.execute_async_script("axe.run().then(arguments[arguments.length - 1])")
            expect(f"what axe says of {tab} in {scheme}",
                   [f"{one['id']}: {one['nodes'][0]['html'][:150]}" for one in result["violations"]
                    if one["impact"] in ("serious", "critical")], [])
    page.tab("features")


def check_two(page):
    states = lambda: [one.text for one in page.browser.find_elements(By.CSS_SELECTOR, ".camera .state")]
    page.wait("two live pictures", lambda: states() == ["live", "live"] and all(
        one.get_attribute("data-frame") for one in page.browser.find_elements(By.CSS_SELECTOR, "canvas[role=img][tabindex]")))
    page.find(".camera:nth-child(2) h2").click()
    page.wait("the second camera is the chosen one", lambda: page.text("#chosen") == page.text(".camera:nth-child(2) h2").split()[0])
    page.picture("two-cameras")
    print("take it", flush=True)
    page.wait("a lost camera", lambda: states() == ["lost", "live"] and page.text(".why.lost") != "")
    expect("what a lost camera can be told", [one.is_enabled() for one in page.browser.find_elements(
        By.CSS_SELECTOR, ".camera:first-child .tools button")][-2:], [False, False])
    page.picture("lost")
    print("bring it back", flush=True)
    page.wait("the camera is back", lambda: states() == ["live", "live"])
    expect("why it was lost, when it is back", page.find(".why").is_displayed(), False)


def check_once(page):
    check_picture(page)
    page.wait("the features", lambda: page.find("#feature-ExposureTime"))
    page.wait("numbers", lambda: int(page.text(".numbers div:last-child dd")) > 0)


def check_one(page, path, axe):
    check_picture(page)
    check_latency(page, path)
    check_features(page)
    check_zoom(page)
    check_loss(page, path)
    check_doctor(page)
    check_record(page)
    check_sizes(page)
    if axe:
        check_axe(page, pathlib.Path(axe[0]).read_text())


def check_browser_log(browser, url):
    expect("what the browser complains about", [one["message"] for one in browser.get_log("browser")
                                                if "409 (Conflict)" not in one["message"]  # what was refused above
                                                and "willReadFrequently" not in one["message"]], [])  # by this script
    events = [json.loads(one["message"])["message"] for one in browser.get_log("performance")]
    asked = {event["params"]["request"]["url"] for event in events if event["method"] == "Network.requestWillBeSent"}
    foreign = {one for one in asked if not one.startswith((url, "data:", "blob:"))}
    expect("what is loaded from elsewhere", foreign, set())


def main():
    url, folder, more = sys.argv[1], pathlib.Path(sys.argv[2]), sys.argv[3:]
    for program, package in (("chromium", "chromium"), ("chromedriver", "chromium-driver")):
        if shutil.which(program) is None:
            print(f"{package} is not installed")
            return 77
    with tempfile.TemporaryDirectory() as profile:
        browser = open_browser(profile)
        try:
            browser.get("about:blank")
            for log in ("browser", "performance"):
                browser.get_log(log)  # of the page that the browser begins with
            page = Page(browser, folder)
            page.theme("light")
            browser.get(url)
            if more == ["once"]:
                check_once(page)
            elif more:
                check_one(page, more[0], more[1:])
            else:
                check_two(page)
            check_browser_log(browser, url)
        finally:
            browser.quit()
    print("\n".join(wrong))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
