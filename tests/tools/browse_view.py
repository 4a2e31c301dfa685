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

PATIENCE = 60
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

    def was_set(self, name):
        return self.browser.execute_script("return wereSet.has(arguments[0])", name)

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


# What the page listens to, for check_one_source().
NOTE_SOURCES = """
window.sources = [];
window.EventSource = class extends EventSource {
  constructor(...how) {
    super(...how);
    sources.push(this);
  }
};
"""

# Features that were set: the page shows it for less than a second.
NOTE_SETS = """
window.wereSet = new Set();
new MutationObserver(records => records.filter(one => one.target.matches('.feature.set'))
  .forEach(one => wereSet.add(one.target.dataset.name)))
  .observe(document, { attributes: true, attributeFilter: ['class'], subtree: true });
"""

# The connection breaks, and while the page waits with the next one it is hidden and seen again.
HIDE_AND_SHOW = """
window.away = false;
Object.defineProperty(document, 'hidden', { configurable: true, get: () => window.away });
sources.find(one => one.readyState !== EventSource.CLOSED).dispatchEvent(new Event('error'));
for (window.away of [true, false]) {
  document.dispatchEvent(new Event('visibilitychange'));
}
"""
OPEN_SOURCES = "return sources.filter(one => one.readyState !== EventSource.CLOSED).length"

# What the first camera shows as soon as the connection breaks.
BREAK = """
sources.find(one => one.readyState !== EventSource.CLOSED).dispatchEvent(new Event('error'));
return [document.querySelector('.camera .state').textContent,
  ...[...document.querySelectorAll('.camera:first-child .tools button')].slice(-2).map(one => one.disabled)];
"""

# Wishes for values that are never answered.
NEVER_ANSWER = """
window.asked = 0;
window.answers = window.fetch;
window.fetch = (what, ...how) => {
  if (!what.startsWith('pixels?')) {
    return window.answers(what, ...how);
  }
  ++window.asked;
  return new Promise(() => {});
};
"""

# Whether the value under the cursor is told in the other half of the picture, with the cursor in its upper and its lower half.
FAR = """
const canvas = document.querySelector('canvas'), readout = document.querySelector('.readout');
const box = canvas.getBoundingClientRect();
return [.25, .75].map(part => {
  canvas.dispatchEvent(new PointerEvent('pointermove', { clientX: box.left + box.width / 2, clientY: box.top + box.height * part }));
  const told = readout.getBoundingClientRect();
  return (told.top > box.top + box.height / 2) === (part < .5);
});
"""

# Of 100 spots, how many have the brightness that the value of their pixel says; the others are under a digit or the frame
# around the cursor.
AGREE = """
const canvas = document.querySelector('canvas'), readout = document.querySelector('.readout');
const box = canvas.getBoundingClientRect();
return [...Array(100).keys()].filter(at => {
  const x = Math.floor(canvas.width * (at % 10 + .5) / 10), y = Math.floor(canvas.height * (Math.floor(at / 10) + .5) / 10);
  canvas.dispatchEvent(new PointerEvent('pointermove', { clientX: box.left + x + .5, clientY: box.top + y + .5 }));
  return canvas.getContext('2d').getImageData(x, y, 1, 1).data[0] === Number(readout.textContent.split('=')[1]);
}).length;
"""

# How far below the top of its card the buttons of the first camera are.
TOOLS = """
const top = selector => document.querySelector(selector).getBoundingClientRect().top;
return top('.camera:first-child .tools') - top('.camera:first-child');
"""

# Seconds that the numbers of the first camera go back.
KNOWN = """
const source = new EventSource('numbers');
source.onmessage = event => {
  source.close();
  const windows = JSON.parse(event.data).cameras[0].numbers.windows;
  arguments[0](windows.at(-1).end - windows[0].end);
};
"""

VALUE = """
fetch(`features?camera=${arguments[0]}`).then(answer => answer.json())
  .then(all => arguments[2](all.features.find(one => one.name === arguments[1]).value));
"""


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
        page.wait(f"{name} is set", lambda name=name, wanted=wanted: page.was_set(name) and
                  page.find(f"#feature-{name}").get_attribute("value") == wanted)
    search(page, "LineInverter")
    focus(page, "#feature-LineInverter")
    page.press(Keys.SPACE)
    page.wait("LineInverter is set", lambda: page.was_set("LineInverter"))
    search(page, "GainSelector")
    focus(page, "#feature-GainSelector")
    page.press(Keys.ARROW_DOWN)
    page.wait("GainSelector is set", lambda: page.was_set("GainSelector"))
    search(page, "TimestampLatch")
    focus(page, "#feature-TimestampLatch")
    page.press(Keys.ENTER)
    page.wait("TimestampLatch is executed", lambda: page.was_set("TimestampLatch"))
    search(page, "exposure")
    focus(page, "#feature-ExposureTime")
    page.browser.switch_to.active_element.send_keys(Keys.CONTROL, "a")
    page.press("-5", Keys.ENTER)
    page.wait("a refused value says why", lambda: page.text("#feature-ExposureTime-error").startswith("ExposureTime=-5: takes ")
              and page.text("#feature-ExposureTime-error").endswith("(code 2)"))
    page.picture("editing")
    expect("how near the limits come to the ring around the field", page.browser.execute_script(
        "const feature = document.querySelector('[data-name=ExposureTime]');"
        "return feature.querySelector('.limits').getBoundingClientRect().top"
        " - feature.querySelector('input').getBoundingClientRect().bottom > 4"), True)
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
    time.sleep(0.6)  # the values of all pixels
    page.picture("zoomed")
    expect("that the value is told away from its pixel", page.browser.execute_script(FAR), [True, True])
    for _ in range(5):
        agree = page.browser.execute_script(AGREE)
        expect(f"that most of 100 pixels are as bright as their value says ({agree})", agree > 50, True)
        time.sleep(0.1)
    canvas.send_keys("0")
    page.tab("picture")
    page.find(".tools button[aria-pressed]").click()
    canvas.send_keys(Keys.ENTER, *[Keys.ARROW_RIGHT] * 20, Keys.ENTER)
    page.wait("a line profile", lambda: page.text("#plot-profile h3 span") == "21 pixels")
    page.wait("a histogram", lambda: page.text("#plot-histogram h3 span").startswith("0 to 255, mean "))
    page.picture("picture")


def check_tooltips(page):
    """What a pointer that rests on a feature is told, and on what a camera is told to do."""
    title = lambda selector: page.find(selector).get_attribute("title")
    expect("what a feature is", [title("label[for=feature-ExposureTime]"), title("#feature-ExposureTime")], [
        "How long a picture is exposed. Twice as long is twice as bright; from 20 us on the picture comes so much later. Not "
        "available while ExposureMode takes it from Line0."] * 2)
    expect("what is told of no feature or button", page.browser.execute_script(
        "return [...document.querySelectorAll('.feature label, .feature input, .feature select, .feature button, .tools button')]"
        ".filter(one => !one.title).map(one => one.outerHTML.slice(0, 80))"), [])
    expect("what Record does", title(".tools button.record"), "Write every frame to a folder")


def check_theme(page):
    """Light and dark as chosen, whatever the system has, and still so when the page is opened again."""
    ground = lambda: page.browser.execute_script("return getComputedStyle(document.body).backgroundColor")
    choose = lambda name: page.find(f"#theme option[value='{name}']").click()
    light, dark = "rgb(244, 245, 246)", "rgb(20, 23, 27)"
    for scheme, own in (("light", light), ("dark", dark)):
        page.theme(scheme)
        for name, wanted in (("dark", dark), ("light", light), ("light dark", own)):
            choose(name)
            expect(f"the ground with {name} on a {scheme} system", ground(), wanted)
    choose("light")
    page.browser.refresh()
    page.wait("the page once more", lambda: page.text(".camera .state") == "live")
    expect("the ground after the page was opened again on a dark system", ground(), light)
    choose("light dark")
    page.theme("light")


def check_loss(page, path):
    page.tab("plots")
    control(path, {"fault": "id-jump:9:1"})
    # A busy machine may lose frames of its own.
    page.wait("loss in the plot", lambda: int(page.find("#plot-lost canvas").get_attribute("data-sum")) >= 9)
    page.wait("loss in the numbers", lambda: int(page.text(".numbers .bad dd")) >= 9)
    before, span, after = (known_seconds(page), page.find("#plot-lost canvas").get_attribute("data-span"), known_seconds(page))
    expect(f"that the plots have room for {after:.1f} s and not for much more", span in (fitting(before), fitting(after)), True)
    page.picture("plots")


def known_seconds(page):
    return page.browser.execute_async_script(KNOWN)


def fitting(seconds):
    return next((str(span) for span in (10, 30, 60) if seconds <= span), "120")


def check_loss_over(page):
    page.wait("a loss that is over, told calmly", lambda: not page.browser.find_elements(By.CSS_SELECTOR, ".numbers .bad")
              and page.text(".numbers .ago").startswith("last ") and page.text(".numbers .ago").endswith(" ago"))
    page.picture("calm")


def check_one_source(page):
    page.browser.execute_script(HIDE_AND_SHOW)
    time.sleep(1.5)
    page.wait("numbers come again", lambda: page.text("#link") == "")
    expect("connections for the numbers", page.browser.execute_script(OPEN_SOURCES), 1)


def check_broken(page):
    """What a page says of which nobody answers, and that it goes on."""
    expect("what a page shows that hears nothing", page.browser.execute_script(BREAK), ["not known", True, True])
    page.wait("the page is live again", lambda: page.text(".camera .state") == "live" and page.text("#link") == "")


def check_slow_line(page):
    """Whatever comes late is not asked for again meanwhile: a browser has few connections, and others would wait. The last
    check, for the page asks for no more values then."""
    page.find("canvas").send_keys(Keys.ARROW_RIGHT)
    page.browser.execute_script(NEVER_ANSWER)
    page.wait("a wish for values", lambda: page.browser.execute_script("return window.asked") > 0)
    time.sleep(1.5)
    expect("wishes for values at once", page.browser.execute_script("return window.asked"), 1)


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


# Features of whose name a line ends where no word of it does, and all whose name takes more than one line.
TORN_NAMES = """
const lines = node => {
  const range = document.createRange();
  range.selectNodeContents(node);
  return new Set([...range.getClientRects()].map(one => one.top)).size;
};
const labels = [...document.querySelectorAll('.feature label')].filter(one => one.offsetParent);
const told = some => some.map(one => one.textContent);
return [labels.length > 20, told(labels.filter(one => [...one.childNodes].some(part => part.nodeType === 3 && lines(part) > 1))),
  told(labels.filter(one => lines(one) > 1))];
"""


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
            found, torn, broken = page.browser.execute_script(TORN_NAMES)
            expect(f"that names are found, and which are torn on a {name} page", (found, torn), (True, []))
            expect("names that do not fit into a line", broken if name == "wide" else [], [])
            page.picture(f"{scheme}-{name}")
    page.size(1440, 900)


# The ground of a button under the pointer changes within a fifth of a second; in between axe sees neither colour.
AXE = """
const done = arguments[arguments.length - 1];
Promise.allSettled(document.getAnimations().map(one => one.finished)).then(() => axe.run()).then(done);
"""


def check_axe(page, axe):
    page.browser.execute_script(axe)
    for scheme in ("light", "dark"):
        page.theme(scheme)
        for tab in ("features", "plots", "picture", "doctor"):
            page.tab(tab)
            result = page.browser.execute_async_script(AXE)
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
    check_edit_stays(page)
    tools = page.browser.execute_script(TOOLS)
    print("take it", flush=True)
    page.wait("a lost camera", lambda: states() == ["lost", "live"] and page.text(".why.lost") != "")
    expect("what a lost camera can be told", [one.is_enabled() for one in page.browser.find_elements(
        By.CSS_SELECTOR, ".camera:first-child .tools button")][-2:], [False, False])
    expect("how far the buttons move when the camera is lost", page.browser.execute_script(TOOLS) - tools, 0)
    page.picture("lost")
    print("bring it back", flush=True)
    page.wait("the camera is back", lambda: states() == ["live", "live"])
    expect("why it was lost, when it is back", page.find(".why").is_displayed(), False)


def check_edit_stays(page):
    """An edit that is under way when another camera is chosen belongs to the camera where it began."""
    value = lambda camera: page.browser.execute_async_script(VALUE, camera, "ExposureTime")
    other = value(0) + 5  # which does not change what the picture shows much
    first, second = (page.find(f".camera:nth-child({place}) h2") for place in (1, 2))
    name = first.text.split()[0]

    def begin(text):
        first.click()
        page.wait("the first camera is the chosen one", lambda: page.text("#chosen") == name and page.find("#feature-ExposureTime"))
        search(page, "exposure")
        page.find("#feature-ExposureTime").send_keys(Keys.CONTROL, "a")
        page.find("#feature-ExposureTime").send_keys(text)
        second.click()
    before = value(1)
    begin(f"{other:g}")
    page.wait("the value reaches the first camera", lambda: value(0) == other)
    expect("the value of the second camera", value(1), before)
    begin("-7")
    page.wait("why the value is refused", lambda: page.text("#features > .error").startswith(f"{name}: ExposureTime=-7: takes "))
    page.picture("refused-late")
    page.wait("the features of the second camera", lambda: page.find("#feature-ExposureTime").get_attribute("value"))
    page.find("#feature-ExposureTime").send_keys(Keys.CONTROL, "a")
    page.find("#feature-ExposureTime").send_keys(f"{other:g}", Keys.ENTER)
    page.wait("what was refused is not told any more", lambda: not page.find("#features > .error").is_displayed())
    search(page, "")


def check_once(page):
    check_picture(page)
    page.wait("the features", lambda: page.find("#feature-ExposureTime"))
    page.wait("numbers", lambda: int(page.text(".numbers div:last-child dd")) > 0)
    expect("what the number of a frame is", page.find(".numbers div:last-child").get_attribute("title"),
           "The number that the camera gave the newest frame")


def check_one(page, path, axe):
    check_picture(page)
    check_latency(page, path)
    check_features(page)
    check_tooltips(page)
    check_theme(page)
    check_zoom(page)
    check_loss(page, path)
    check_doctor(page)
    check_record(page)
    check_loss_over(page)
    check_one_source(page)
    check_broken(page)
    check_sizes(page)
    if axe:
        check_axe(page, pathlib.Path(axe[0]).read_text())
    check_slow_line(page)


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
            browser.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": NOTE_SOURCES + NOTE_SETS})
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
