#!/usr/bin/env python3
"""The page of velmara serve in Chromium: browser_test.py VELMARA VELMARA-SIM CHROMEDRIVER SCREENSHOTS"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time
import unittest

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

VELMARA, SIMULATOR, DRIVER, PICTURES = sys.argv[1:5]
LIMIT = 40  # seconds, also on a slow machine
TABS = ("live", "codes", "monitors", "tests", "info", "report", "recording")
SHOWN = {
    "monitors": "Evaporative System",
    "tests": "Catalyst Monitor Bank 1",
    "info": "1VM20SAL6R1000417.*2024.*VSIM20-ECM-0417",
}

# Texts whose color stands out from what is behind them by less than WCAG 2.1 AA asks for.
FAINT = """
const channel = (c) => (c /= 255) <= 0.03928 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4;
const parts = (color) => (color.match(/[\\d.]+/g) ?? []).map(Number);
const luminance = ([r, g, b]) => 0.2126 * channel(r) + 0.7152 * channel(g) + 0.0722 * channel(b);
const behind = (e) => {
  for (; e; e = e.parentElement) {
    const color = parts(getComputedStyle(e).backgroundColor);
    if (color.length === 3 || color[3] === 1) return color;
  }
  return [255, 255, 255];
};
const faint = [];
for (const e of document.querySelectorAll("body *")) {
  const text = [...e.childNodes].filter((n) => n.nodeType === 3).map((n) => n.data.trim()).join("");
  if (text === "" || !e.checkVisibility() || e.disabled || e.tagName === "OPTION") continue;
  const style = getComputedStyle(e);
  const [a, b] = [luminance(parts(e.namespaceURI.includes("svg") ? style.fill : style.color)), luminance(behind(e))];
  const ratio = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  if (ratio < (parseFloat(style.fontSize) >= 24 ? 3 : 4.5)) faint.push(`${text}: ${ratio.toFixed(2)}`);
}
return faint;
"""

# Controls that a screen reader could not name, and pictures without words.
NAMELESS = """
return [...document.querySelectorAll("button, a, input, select, [role=img], [role=region], section[role]")]
  .filter((e) => e.checkVisibility())
  .filter((e) => !(e.getAttribute("aria-label") || e.getAttribute("aria-labelledby") || e.textContent.trim()
                   && e.tagName !== "SELECT" || e.labels?.length))
  .map((e) => e.outerHTML.slice(0, 120));
"""

# How many pixels the charts have drawn in other colors than those of axes and grid.
INK = """
return [...document.querySelectorAll("#%s canvas")].map((canvas) => {
  const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
  let ink = 0;
  for (let i = 0; i < data.length; i += 4) {
    ink += data[i + 3] > 128 && Math.max(data[i], data[i + 1], data[i + 2]) - Math.min(data[i], data[i + 1], data[i + 2]) > 60;
  }
  return ink;
}).reduce((a, b) => a + b, 0);
"""


class Program:
    """A program that prints its address first."""

    def __init__(self, *words):
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        self.address = self.process.stdout.readline().strip()

    def end(self):
        self.process.terminate()
        self.process.wait(LIMIT)
        self.process.stdout.close()


def serve(*options):
    return Program(VELMARA, "serve", "--listen", "127.0.0.1:0", *options)


HOSTILE = """name = Hostile
protocol = 6
engine = petrol
[unit ECM 7E8]
monitors = 07 E5 04
codes = P0171
01 0C = {rpm * 4 : 2}
01 1C = 07
09 02 = "<img src=x id=vx>"
09 04 = "<b id=cx>x</b>"
09 0A = "<i>" "<script id=sx>"
"""


class Page(unittest.TestCase):
    # To reach a car takes seconds: all that need none at first begin at once, while the browser starts.
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        os.environ["XDG_CONFIG_HOME"] = cls.folder.name
        hostile = pathlib.Path(cls.folder.name) / "hostile.vehicle"
        hostile.write_text(HOSTILE)
        recorded = pathlib.Path(__file__).parents[1] / "traces" / "stn-refusals.trace"
        renamed = pathlib.Path(cls.folder.name) / "renamed.trace"
        renamed.write_text(recorded.read_text().replace("ELM327 v1.3a", "ELM327 v1.3a<u id=ax "))
        cls.fast, cls.slow = serve("--link", "demo:", "--fast"), serve("--link", "demo:")
        cls.refusing = serve("--link", "demo:odd/refusals")
        cls.hostile = serve("--link", f"demo:{hostile}")
        cls.renamed = serve("--link", f"replay:{renamed}@fast")
        cls.car = Program(SIMULATOR, "--tcp", "0")
        cls.losing = serve("--link", cls.car.address)
        for program in (cls.hostile, cls.renamed, cls.fast, cls.slow, cls.refusing, cls.car, cls.losing):
            cls.addClassCleanup(program.end)
        options = webdriver.ChromeOptions()
        for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", "--hide-scrollbars"):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
        cls.driver = webdriver.Chrome(service=Service(DRIVER), options=options)
        cls.addClassCleanup(cls.driver.quit)

    def setUp(self):
        self.color("light")
        self.resize(1280)

    def tearDown(self):
        # A server or a link that goes away is noticed by the network.
        errors = [entry["message"] for entry in self.driver.get_log("browser")
                  if entry["level"] == "SEVERE" and "net::ERR" not in entry["message"]]
        self.driver.execute_script("localStorage.clear()")
        self.driver.get("about:blank")
        self.assertEqual(errors, [])

    def look_at(self, server):
        self.driver.get(server.address)
        return server

    def resize(self, width, height=900):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 1, "mobile": width < 500})

    def color(self, scheme):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia",
                                    {"features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def picture(self, name):
        pathlib.Path(PICTURES).mkdir(parents=True, exist_ok=True)
        self.driver.save_screenshot(f"{PICTURES}/{name}.png")

    def at(self, selector):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def text(self, selector):
        return self.driver.execute_script("return document.querySelector(arguments[0])?.textContent ?? ''", selector)

    def until(self, done, words):
        end = time.monotonic() + LIMIT
        while time.monotonic() < end:
            if done():
                return
            time.sleep(0.05)
        self.fail(f"{words}: {self.at('body').text}")

    def until_text(self, selector, pattern):
        self.until(lambda: re.search(pattern, self.text(selector), re.S), f"{pattern} in {selector}")

    def open_tab(self, name):
        self.at(f"#tab-{name}").click()

    def assert_named_and_legible(self):
        self.assertEqual(self.driver.execute_script(NAMELESS), [])
        self.assertEqual(self.driver.execute_script(FAINT), [])

    def drop(self, rows):
        self.driver.execute_script("""
            const files = new DataTransfer();
            files.items.add(new File([arguments[0]], "dropped.csv", { type: "text/csv" }));
            document.body.dispatchEvent(new DragEvent("drop", { bubbles: true, cancelable: true, dataTransfer: files }));
            """, rows)
        self.until_text("#recording h2", "dropped.csv")

    def until_moving(self):
        self.until_text('.tile[data-key="0C"] .value', r"\d")
        first = self.text('.tile[data-key="0C"] .value')
        self.until(lambda: self.text('.tile[data-key="0C"] .value') != first, "values that move")

    def test_car_is_shown_and_cleared(self):
        server = self.look_at(serve())
        self.addCleanup(server.end)
        self.until_text("#links", "Petrol saloon")
        self.assert_named_and_legible()
        self.picture("choose-1280")
        self.at("#connect-demo").click()
        self.until_text("#phases", "Looking for the adapter")
        self.until_text("#status", "Connected: demo:petrol-can11")
        self.until_moving()
        self.until(lambda: self.driver.execute_script(INK % "live") > 100, "charts with lines")
        self.assertNotEqual(self.driver.execute_script(
            "return document.querySelector('.tile[data-key=\"0C\"] .hand').getAttribute('d')"), "")
        self.picture("live-1280")

        self.open_tab("codes")
        self.until_text("#codes", "P0171.*System Too Lean Bank 1.*P0442")
        self.until_text("#codes", "Freeze frame 0, stored by P0171.*Engine RPM1800rpm")
        self.picture("codes-1280")
        self.at("#clear").click()
        warning = self.text("#clear-dialog")
        for loss in ("P0171", "freeze frames", "on-board tests", "readiness monitors", "demo:petrol-can11", "Permanent"):
            self.assertIn(loss, warning)
        self.assert_named_and_legible()
        self.driver.switch_to.active_element.send_keys(Keys.ENTER)  # whoever does not look keeps them
        self.until(lambda: not self.driver.find_elements(By.ID, "clear-dialog"), "a closed dialog")
        self.assertIn("P0301", self.text("#codes"))
        self.at("#clear").click()
        self.at("#clear-yes").click()
        self.until_text("#cleared", r"7E8 \(ECM\): cleared P0171, P0301, P0420, P0442")
        self.until_text("#codes", "Confirmed codes: none.*Permanent codes.*P0420.*Freeze frames: none")

        self.at("#unit-system").send_keys("imperial")
        self.open_tab("live")
        self.until_text('.tile[data-key="05"] .unit', "°F")

    def test_what_did_not_come_is_told(self):
        refused = "The control unit refused: conditions not correct."
        self.look_at(self.refusing)
        self.until_text("#status", "Connected")
        for tab, words in {
            "codes": "Confirmed codes: refused: conditions not correct.*The unit itself counts 2 confirmed"
                     f".*Permanent codes: refused.*Freeze frames: {refused}",
            "tests": f"On-board monitoring: {refused}.*none of 1 failed",
            "info": f"Vehicle information: {refused}In-use counters: {refused}.*1VM20ODD0S1000001",
        }.items():
            self.open_tab(tab)
            self.until_text(f"#{tab}", words)

    def test_narrow_and_named_and_legible(self):
        self.look_at(self.slow)
        self.until_text("#status", "Connected")
        self.resize(390)
        for scheme in ("light", "dark"):
            self.color(scheme)
            for tab in TABS:
                with self.subTest(scheme=scheme, tab=tab):
                    self.open_tab(tab)
                    if tab not in ("live", "report", "recording"):
                        self.until_text(f"#{tab}", "ECM")
                        self.until(lambda: "reading" not in self.text("#status"), "the end of reading")
                    if tab == "live":
                        self.until_moving()
                    if tab in SHOWN:
                        self.assertRegex(self.text(f"#{tab}"), SHOWN[tab])
                    if tab == "tests":
                        self.assertGreater(len(self.driver.find_elements(By.CSS_SELECTOR, "#tests svg.limits")), 20)
                    self.assertLessEqual(self.driver.execute_script("return document.documentElement.scrollWidth"), 390)
                    self.assert_named_and_legible()
                    if scheme == "light" or tab in ("live", "codes"):
                        self.picture(f"{tab}-390-{scheme}")

    def test_choice_by_keyboard_lasts(self):
        self.look_at(self.fast)
        self.until_moving()
        self.until_text("#rate", r"\d readings/s in groups")
        self.at("#tab-live").send_keys(Keys.ARROW_RIGHT)
        self.assertEqual(self.driver.switch_to.active_element.get_attribute("id"), "tab-codes")
        self.assertTrue(self.at("#codes").is_displayed())
        self.driver.switch_to.active_element.send_keys(Keys.HOME)

        self.at("#choose").send_keys(Keys.ENTER)
        self.at('.choice li[data-key="0D"] .up').send_keys(Keys.ENTER)
        self.at('.choice input[value="05"]').send_keys(Keys.SPACE)
        self.at("#choice-filter").send_keys("fuel level")
        self.at('.choice input[value="2F"]').send_keys(Keys.SPACE)
        self.at("dialog .primary").send_keys(Keys.ENTER)
        expected = ["0D", "0C", "04", "11", "10", "0F", "42", "2F"]
        shown = "return [...document.querySelectorAll('.tile')].map((tile) => tile.dataset.key)"
        self.until(lambda: self.driver.execute_script(shown) == expected, "the chosen values")
        self.until_text('.tile[data-key="2F"] .value', r"\d")
        pause = '//*[@id="live"]//button[text()="Pause" or text()="Go on"]'
        for name, text in (("Zoom in", "Go on"), ("Earlier", "Go on"), ("Go on", "Pause")):
            self.driver.find_element(By.XPATH, f'//*[@id="live"]//button[text()="{name}"]').send_keys(Keys.ENTER)
            self.assertEqual(self.driver.find_element(By.XPATH, pause).text, text)
        self.driver.refresh()
        self.until(lambda: self.driver.execute_script(shown) == expected, "the same after a reload")

    def test_link_lost_and_back(self):
        self.look_at(self.losing)
        self.until_moving()
        self.car.end()
        self.until_text("#alert", "was lost")
        self.assert_named_and_legible()
        self.picture("lost-1280")
        car = Program(SIMULATOR, "--tcp", self.car.address.rpartition(":")[2])
        self.addCleanup(car.end)
        self.at("#again").click()
        self.until_text("#status", "Connected")
        self.until_moving()
        self.assertFalse(self.at("#alert").is_displayed())

    def test_texts_of_car_and_adapter_stay_texts(self):
        self.look_at(self.renamed)
        self.until_text("#status", r"Connected.*<u id=ax")
        self.assertEqual(self.driver.find_elements(By.ID, "ax"), [])
        self.look_at(self.hostile)
        self.until_text("#status", "Connected")
        self.open_tab("info")
        self.until_text("#info", "<img src=x id=vx>.*<b id=cx>")
        self.open_tab("report")
        self.at("#report .read").click()
        self.until_text("#report", "fault")
        self.assertEqual(self.driver.find_elements(By.CSS_SELECTOR, "#vx, #cx, #sx"), [])
        self.driver.get(self.at("#report-page").get_attribute("href"))
        self.assertIn("<img src=x id=vx>", self.at("body").text)
        self.assertEqual(self.driver.find_elements(By.CSS_SELECTOR, "#vx, #cx, #sx"), [])

    def test_recording_is_made_and_opened(self):
        self.look_at(self.slow)
        self.until_moving()
        self.at("#record").click()
        self.until_text("#record-state", r"[3-9] rows|\d\d rows")
        self.at("#record").click()
        self.until(lambda: self.at("#download").is_displayed(), "a download")
        rows = self.driver.execute_async_script(
            "fetch('api/recording.csv').then((r) => r.text()).then(arguments[arguments.length - 1])")
        self.assertRegex(rows, r"^[^\n]*Engine RPM \[rpm\]")
        recording = pathlib.Path(self.folder.name) / "trip.csv"
        recording.write_text(rows.replace("Engine RPM", "<img id=rx src=x> speed", 1))
        self.open_tab("recording")
        self.at("#recording-file").send_keys(str(recording))
        self.until_text("#recording h2", "trip.csv")
        self.until(lambda: self.driver.execute_script(INK % "recording") > 100, "charts with lines")
        self.assertIn("<img id=rx src=x> speed", self.text("#recording .legend") + self.text("#recording table"))
        self.assertEqual(self.driver.find_elements(By.ID, "rx"), [])
        self.picture("recording-1280")
        broken = pathlib.Path(self.folder.name) / "broken.csv"
        broken.write_text("no recording")
        self.at("#recording-file").send_keys(str(broken))
        self.until_text("#note", "broken.csv cannot be shown")
        self.drop(rows)

    def test_address_that_nobody_has(self):
        server = self.look_at(serve())
        self.addCleanup(server.end)
        self.until_text("#links", "Wi-Fi")
        self.at("#host").send_keys("127.0.0.1")
        self.driver.execute_script("document.querySelector('#port').value = 1")
        self.at("#host").send_keys(Keys.ENTER)
        self.until_text("#alert", "tcp:127.0.0.1:1 cannot be opened.*refused the connection.*Connect again")
        self.until(lambda: self.at("#host").is_displayed(), "links to choose from")

    def test_server_gone_and_back(self):
        server = self.look_at(serve())
        self.until_text("#links", "Petrol saloon")
        self.driver.execute_script("window.isFormer = true")
        server.end()
        self.until_text("#alert", "does not answer")
        port = server.address.rpartition(":")[2].rstrip("/")
        again = Program(VELMARA, "serve", "--listen", f"127.0.0.1:{port}")
        self.addCleanup(again.end)
        self.until(lambda: self.driver.execute_script(
            "return !window.isFormer && document.querySelector('#links')?.textContent"), "the page, loaded anew")
        self.at("#unit-system").send_keys("imperial")  # needs the token of now
        self.until(lambda: self.driver.execute_script(
            "return fetch('api/state').then((r) => r.json()).then((state) => state.unitSystem)") == "imperial", "other units")
        self.assertEqual(self.text("#note"), "")

        self.drop("Seconds,Time,Speed [km/h]\n0,00:00:00,1\n1,00:00:01,2\n")
        again.end()
        self.until_text("#alert", "does not answer")
        self.assertTrue(self.at("#recording canvas").is_displayed())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
