"""Checks the pages of "brisko history" in headless Chromium, as a person would use them: on a phone and on a large
screen, in light and in dark mode, with the keyboard, and on paper. The argument is the program; SHOTS=FOLDER in the
environment keeps screenshots. Ends with 77, and a sentence, where the browser or its driver is not installed.
"""

import base64
import datetime
import json
import math
import os
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77
PHONE, DESK = 420, 1280
HEIGHT = 900
A4 = {"paperWidth": 8.27, "paperHeight": 11.69, "printBackground": False}

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.action_chains import ActionChains
    from selenium.webdriver.common.keys import Keys
except ImportError:
    print("Skipped: the Debian package python3-selenium is not installed.")
    sys.exit(SKIPPED)

# Runs in the page; returns one line for each problem.
PROBLEMS_OF_THE_PAGE = r"""
const problems = [];
const expect = (holds, what) => { if (!holds) problems.push(what); };
const rgba = (colour) => {
  const [red, green, blue, alpha = 1] = colour.match(/[\d.]+/g).map(Number);
  return { shades: [red, green, blue], alpha };
};
const over = (colour, below) => colour.shades.map((shade, place) => shade * colour.alpha + below[place] * (1 - colour.alpha));
const lightness = (shades) => {
  const [red, green, blue] = shades.map((shade) =>
    shade / 255 <= 0.04045 ? shade / 255 / 12.92 : ((shade / 255 + 0.055) / 1.055) ** 2.4);
  return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
};
const contrast = (one, other) => {
  const [low, high] = [lightness(one), lightness(other)].sort((first, second) => first - second);
  return (high + 0.05) / (low + 0.05);
};
const isShown = (element) => element.getClientRects().length > 0 && getComputedStyle(element).visibility === "visible";
const paper = rgba(getComputedStyle(document.body).backgroundColor).shades;

// What a text is written on: the row of the chart that it lies in, or the nearest element with a background.
function behind(element) {
  const style = [...element.classList].find((name) => name.startsWith("on-"));
  if (style) {
    const fill = getComputedStyle(element.ownerSVGElement.querySelector(`.look.${style.slice(3)}`)).fill;
    // On a pattern the text has an outline in the colour of the page.
    return fill.startsWith("rgb") ? over(rgba(fill), paper) : paper;
  }
  if (element.ownerSVGElement) {
    return rgba(getComputedStyle(element.ownerSVGElement.querySelector(".paper")).fill).shades;
  }
  for (let place = element; place; place = place.parentElement) {
    const colour = rgba(getComputedStyle(place).backgroundColor);
    if (colour.alpha > 0) return over(colour, paper);
  }
  return paper;
}

const texts = [...document.querySelectorAll("body *")].filter((element) =>
  !["SCRIPT", "STYLE", "TITLE", "DESC", "title", "desc", "style"].includes(element.tagName) && isShown(element) &&
  [...element.childNodes].some((node) => node.nodeType === Node.TEXT_NODE && node.textContent.trim()));
expect(texts.length > 40, `there are only ${texts.length} texts`);
expect(texts.some((text) => text.ownerSVGElement), "no picture with texts is shown");
for (const text of texts) {
  const style = getComputedStyle(text);
  const name = `"${text.textContent.trim().slice(0, 30)}"`;
  const scale = text.ownerSVGElement ? text.getScreenCTM().a : 1;
  const size = parseFloat(style.fontSize) * scale;
  expect(size >= 12, `${name} has letters of ${size.toFixed(1)} pixels`);
  const ground = behind(text);
  const colour = over(rgba(text.ownerSVGElement ? style.fill : style.color), ground);
  expect(contrast(colour, ground) >= 4.5, `${name} has a contrast of ${contrast(colour, ground).toFixed(1)}`);
  const box = text.getBoundingClientRect();
  expect(box.left >= 0 && box.right <= innerWidth + 0.5, `${name} reaches from ${box.left} to ${box.right}`);
}
expect(document.documentElement.scrollWidth <= innerWidth,
  `the page is ${document.documentElement.scrollWidth} wide in a window of ${innerWidth}`);
const dark = matchMedia("(prefers-color-scheme: dark)").matches && matchMedia("screen").matches;
expect(dark === lightness(paper) < 0.2, `the background is ${paper} although dark is ${dark}`);

const pictures = [...document.querySelectorAll(".picture[role=img]")].filter(isShown);
expect(pictures.length === 1, `${pictures.length} pictures are shown`);
const entries = [...document.querySelectorAll(".legend li")];
expect(entries.length >= 4, `the legend has ${entries.length} entries`);
for (const entry of entries) {
  const sample = entry.querySelector("svg > *");
  const name = entry.textContent.trim();
  expect(name && isShown(entry) && sample && sample.getBoundingClientRect().width > 10, `the legend's "${name}" is incomplete`);
  const drawn = pictures[0]?.querySelector(`[class="${sample.getAttribute("class")}"]`);
  const look = (element) => ["fill", "stroke", "fillOpacity"].map((value) => getComputedStyle(element)[value]).join(" ");
  expect(!drawn || look(drawn) === look(sample), `the legend's "${name}" looks unlike what it explains`);
}
for (const part of document.querySelectorAll("pattern > *")) {
  const style = getComputedStyle(part);
  expect(style.fill !== "rgb(0, 0, 0)", `the pattern ${part.parentElement.id} is black`);
}
for (const style of arguments[0]) {
  expect(pictures[0]?.querySelector(`.${style}`), `the picture has no ${style}`);
  expect(entries.some((entry) => entry.querySelector(`.${style}`)), `the legend does not explain ${style}`);
}
return problems;
"""

STATE_OF_THE_SELECTION = """
const picture = [...document.querySelectorAll(".picture[role=img]")].find((each) => each.getClientRects().length > 0);
const cursor = picture.querySelector(".cursor").getBoundingClientRect();
const plot = picture.querySelector(".plot").getBoundingClientRect();
const slider = document.getElementById("moment");
const style = getComputedStyle(slider);
const thumb = slider.getBoundingClientRect();
return {
  focused: document.activeElement === slider,
  outline: style.outlineStyle === "none" ? 0 : parseFloat(style.outlineWidth),
  outlineColour: style.outlineColor,
  share: (cursor.left + cursor.width / 2 - plot.left) / plot.width,
  value: Number(slider.value), last: Number(slider.max), text: slider.getAttribute("aria-valuetext"),
  shown: [...document.querySelectorAll("#reading dd")].map((value) => value.textContent),
};
"""


class Checker:
    def __init__(self):
        self.problems = []
        self.checks = 0

    def expect(self, holds, what):
        self.checks += 1
        if not holds:
            self.problems.append(what)

    def add(self, place, problems):
        self.checks += 1
        self.problems += [f"{place}: {problem}" for problem in problems]


def write_history(volume, first, days):
    """A history as the daemon writes it: at a desk by day, on the battery at lunch, asleep at night."""
    folder = os.path.join(volume, "Library/Application Support/Brisko/history")
    os.makedirs(folder, exist_ok=True)
    for number in range(days):
        date = first + datetime.timedelta(days=number)
        midnight = datetime.datetime(date.year, date.month, date.day, tzinfo=datetime.timezone.utc).timestamp()
        if number % 11 == 7:
            continue
        with open(os.path.join(folder, f"{date}.jsonl"), "w", encoding="utf-8") as file:
            for sample in range(210):
                hour = 7 + sample * 16 / 210
                full = number % 10 == 3 and 14 <= hour < 20
                plugged = not 12 <= hour < 13.5
                level = 80 - (hour - 12) * 14 if not plugged else 80 + (hour - 14) * 3 if full else 80 - 6 * math.sin(hour)
                hot = number % 9 == 4 and 15 <= hour < 18
                state = "discharge" if number % 5 == 2 and 20 <= hour else "hold" if plugged and not full else "allow"
                line = {"ct": int(260 + 60 * math.sin(hour / 3)), "g": plugged, "p": max(5, min(100, round(level))),
                        "s": state, "t": int(midnight + hour * 3600), "wt": -60 if not plugged else 12}
                if hot:
                    line["hot"] = True
                file.write(json.dumps(line, separators=(",", ":"), sort_keys=True) + "\n")


def draw(program, volume, first, days, page):
    last = first + datetime.timedelta(days=days - 1)
    environment = dict(os.environ, TZ="UTC", LC_ALL="C.UTF-8")
    environment.pop("BRISKO_VIRTUAL_MAC", None)
    subprocess.run([program, "history", "--volume", volume, "--from", str(first), "--to", str(last), "--html", page,
                    "--quiet"], check=True, env=environment)


def start_browser(browser, driver, profile):
    options = webdriver.ChromeOptions()
    options.binary_location = browser
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                     "--no-first-run", "--disable-background-networking", "--disable-component-update",
                     "--disable-sync", "--disable-extensions", f"--user-data-dir={profile}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
    return webdriver.Chrome(service=Service(executable_path=driver), options=options)


def emulate(chrome, width, scheme, media="screen"):
    chrome.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": width, "height": HEIGHT, "deviceScaleFactor": 1, "mobile": False})
    chrome.execute_cdp_cmd("Emulation.setEmulatedMedia",
                           {"media": media, "features": [{"name": "prefers-color-scheme", "value": scheme}]})


def keep_screenshot(chrome, name):
    folder = os.environ.get("SHOTS")
    if not folder:
        return
    os.makedirs(folder, exist_ok=True)
    size = chrome.execute_cdp_cmd("Page.getLayoutMetrics", {})["cssContentSize"]
    shot = chrome.execute_cdp_cmd("Page.captureScreenshot", {
        "captureBeyondViewport": True, "clip": {"x": 0, "y": 0, "width": size["width"], "height": size["height"], "scale": 1}})
    with open(os.path.join(folder, name + ".png"), "wb") as file:
        file.write(base64.b64decode(shot["data"]))


def press(chrome, key):
    ActionChains(chrome).send_keys(key).perform()
    return chrome.execute_script(STATE_OF_THE_SELECTION)


def check_keyboard(chrome, checker, name):
    before = chrome.execute_script(STATE_OF_THE_SELECTION)
    checker.expect(before["value"] == before["last"], f"{name}: the page does not begin with its last moment")
    state = press(chrome, Keys.TAB)
    checker.expect(state["focused"], f"{name}: Tab does not lead to the slider")
    checker.expect(state["outline"] >= 2, f"{name}: the focus is not visible")
    moved = press(chrome, Keys.ARROW_LEFT)
    checker.expect(moved["value"] == state["value"] - 1, f"{name}: the left arrow does not move the slider")
    checker.expect(moved["share"] < state["share"], f"{name}: the left arrow does not move the cursor")
    checker.expect(moved["shown"] != state["shown"], f"{name}: the left arrow does not show other values")
    checker.expect(moved["shown"][0] in (moved["text"] or ""), f"{name}: a screen reader is not told the values")
    checker.expect(press(chrome, Keys.ARROW_RIGHT)["shown"] == state["shown"], f"{name}: the right arrow does not return")
    begin = press(chrome, Keys.HOME)
    checker.expect(begin["value"] == 0 and abs(begin["share"]) < 0.05, f"{name}: Home does not lead to the beginning")
    end = press(chrome, Keys.END)
    checker.expect(end["value"] == end["last"] and abs(end["share"] - 1) < 0.05, f"{name}: End does not lead to the end")


def check_pointer(chrome, checker, name):
    plot = chrome.execute_script("""
      const picture = [...document.querySelectorAll(".picture[role=img]")].find((each) => each.getClientRects().length > 0);
      scrollTo(0, 0);
      const box = picture.querySelector(".plot").getBoundingClientRect();
      return {left: box.left, top: box.top, width: box.width, height: box.height};""")
    x, y = plot["left"] + plot["width"] * 0.5, plot["top"] + plot["height"] / 2
    chrome.execute_cdp_cmd("Input.dispatchMouseEvent", {"type": "mouseMoved", "x": x, "y": y})
    state = chrome.execute_script(STATE_OF_THE_SELECTION)
    checker.expect(abs(state["share"] - 0.5) < 0.06, f"{name}: pointing at the middle moves the cursor to {state['share']:.2f}")


def check_print(chrome, checker, name, styles):
    emulate(chrome, 700, "dark", "print")
    checker.add(f"{name}, on paper", chrome.execute_script(PROBLEMS_OF_THE_PAGE, styles))
    shown = chrome.execute_script("return document.getElementById('moment').getClientRects().length + "
                                  "document.getElementById('reading').getClientRects().length")
    checker.expect(shown == 0, f"{name}, on paper: controls are printed")
    background = chrome.execute_script("return getComputedStyle(document.body).backgroundColor")
    checker.expect(background == "rgb(255, 255, 255)", f"{name}, on paper: the background is {background}")
    keep_screenshot(chrome, f"{name}-paper")
    pdf = base64.b64decode(chrome.execute_cdp_cmd("Page.printToPDF", A4)["data"])
    pages = len(re.findall(rb"/Type\s*/Page\b", pdf))
    checker.expect(1 <= pages <= 2, f"{name}, on paper: {pages} pages")


def check_requests(chrome, checker, name, url):
    own = 0
    for entry in chrome.get_log("performance"):
        message = json.loads(entry["message"])["message"]
        if message["method"] == "Network.requestWillBeSent":
            asked = message["params"]["request"]["url"]
            own += asked == url
            checker.expect(asked == url, f"{name}: the page asks for {asked}")
    checker.expect(own > 0, f"{name}: the requests of the page were not seen")
    checker.add(name, [entry["message"] for entry in chrome.get_log("browser")])


def check_page(chrome, checker, name, page, styles):
    url = "file://" + page
    for width in (PHONE, DESK):
        for scheme in ("light", "dark"):
            emulate(chrome, width, scheme)
            chrome.get(url)
            place = f"{name}, {width} pixels, {scheme}"
            checker.add(place, chrome.execute_script(PROBLEMS_OF_THE_PAGE, styles))
            keep_screenshot(chrome, f"{name}-{width}-{scheme}")
            if scheme == "light":
                check_keyboard(chrome, checker, place)
                check_pointer(chrome, checker, place)
    check_print(chrome, checker, name, styles)
    check_requests(chrome, checker, name, url)


def main():
    program = os.path.abspath(sys.argv[1])
    browser, driver = shutil.which("chromium"), shutil.which("chromedriver")
    if not browser or not driver:
        print("Skipped: the Debian packages chromium and chromium-driver are not installed.")
        return SKIPPED
    checker = Checker()
    first = datetime.date(2025, 1, 1)
    with tempfile.TemporaryDirectory(prefix="brisko-browser-") as folder:
        volume = os.path.join(folder, "volume")
        write_history(volume, first, 365)
        pages = {"week": (7, ["level", "hold"]), "year": (365, ["bar", "high"])}
        for name, (days, _) in pages.items():
            draw(program, volume, first, days, os.path.join(folder, name + ".html"))
        chrome = start_browser(browser, driver, os.path.join(folder, "profile"))
        try:
            # What the browser loads for its own first page does not count.
            chrome.get("about:blank")
            chrome.get_log("performance")
            for name, (_, styles) in pages.items():
                check_page(chrome, checker, name, os.path.join(folder, name + ".html"), styles)
        finally:
            chrome.quit()
    for problem in checker.problems:
        print("FAILED", problem)
    print(f"{checker.checks} checks, {len(checker.problems)} problems")
    return 1 if checker.problems else 0


if __name__ == "__main__":
    sys.exit(main())
