"""The page of `--html` in a real browser: what a reader sees, how it is worked, and that nothing foreign in it comes alive."""
import contextlib
import datetime
import io
import json
import pathlib
import re
import socket
import struct
import tempfile
import time
import unittest
import zipfile

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import WebDriverWait

import browser
from test_log import BEGIN, CRASH, END, dumped, lines, started
from test_minidump import CODE, STACK, Writer
from triage_lib import command, report_html

NASTY = "</script><script>window.owned=1</script><!--<img src=x onerror=window.owned=2>&lt; \u202e${1}"
MANY = 5000


def crash_dump(process: int, at: str) -> bytes:
    writer = Writer().system().module("C:\\suite\\cavm4h.dll").exception(0xC0000005, CODE + 0x1010, (1, 0))
    writer.memory((STACK, bytes(64))).stream(15, struct.pack("<III12x", 24, 1, process))
    return writer.bytes(int(datetime.datetime.fromisoformat(at).timestamp()))


def requests_of(driver: webdriver.Chrome) -> list[str]:
    messages = [json.loads(entry["message"])["message"] for entry in driver.get_log("performance")]
    return [message["params"]["request"]["url"] for message in messages if message["method"] == "Network.requestWillBeSent"]


class PageTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        cls.driver = browser.start(cls.folder / "browser")
        cls.addClassCleanup(cls.driver.quit)

        good, bad, page = cls.folder / "anna", cls.folder / "berta.zip", cls.folder / "report.html"
        good.mkdir()
        (good / "wsc.log").write_bytes(
            lines(8, BEGIN, started("/svc /update /antivirus /state:on /signatures:up_to_date"), END) +
            lines(12, BEGIN, started("/svc /update /firewall /state:ON"), "wsc: run: to_prod_state ON (code 0x000000a0)", END,
                  at=20) +
            lines(16, BEGIN, started(f"/as /enable {NASTY}"), END, at=40) +
            lines(20, BEGIN, started("/svc /register /antivirus /firewall"), "wsc: wscsvc is not running, starting now",
                  at=3000))
        with zipfile.ZipFile(bad, "w") as archive:
            archive.writestr("log/wsc.log", lines(8, BEGIN, started("/av /enable"), CRASH, dumped("c0000005"), at=600))
            archive.writestr("log/unp1.mdmp", crash_dump(8, "2026-11-22T21:10:03+00:00"))
            archive.writestr("log/unp2.mdmp", b"MDMP")
        with contextlib.redirect_stdout(io.StringIO()):
            command.main(["--html", str(page), str(good), str(bad)])
        cls.address = page.as_uri()
        cls.data = json.loads(re.search(r'id="data">(.*?)</script>', page.read_text(encoding="utf-8"), re.S)[1])

    def setUp(self) -> None:
        self.driver.get_log("browser")
        self.open()

    def tearDown(self) -> None:
        self.assertEqual([], self.driver.get_log("browser"))

    def open(self, fragment: str = "", address: str | None = None) -> None:
        self.driver.get("about:blank")  # else only the fragment would change
        self.driver.get((address or self.address) + fragment)

    def all(self, selector: str) -> list:
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def one(self, selector: str):
        return self.driver.find_element(By.CSS_SELECTOR, selector)

    def runs(self) -> list[str]:
        # In one go: the list is made anew while a reader types.
        return self.driver.execute_script("return [...document.querySelectorAll('#run-list > details > summary')].map(run => run.innerText)")

    def until(self, expected, what) -> None:
        with contextlib.suppress(Exception):
            WebDriverWait(self.driver, 5, 0.03).until(lambda _: what() == expected)
        self.assertEqual(expected, what())

    def emulate(self, features: list[dict[str, str]], media: str = "") -> None:
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"media": media, "features": features})

    def press(self, *keys: str) -> None:
        webdriver.ActionChains(self.driver).send_keys(*keys).perform()

    def focused(self) -> str:
        return self.driver.execute_script("return document.activeElement.id || document.activeElement.textContent")

    def test_the_answer_stands_on_top(self) -> None:
        self.assertEqual("3 of 5 runs went wrong.", self.one("h1").text)
        read = self.one("#read").text
        for expected in ("5 runs and 2 minidumps of 2 machines", "22 November 2026, 22:00 to 22:50", "2 things not understood"):
            self.assertIn(expected, read)
        titles = [element.text for element in self.all("#group-list .title strong")]
        self.assertEqual(3, len(titles))
        self.assertIn("Wrong word behind /state:", titles)
        self.assertIn("unp2.mdmp", self.one("#problem-list").text)
        self.one("#group-list li:nth-child(1) a").click()
        self.assertEqual((1, True), (len(self.runs()), self.one("#run-list details").get_property("open")))

    def test_filters(self) -> None:
        self.assertEqual(5, len(self.runs()))
        for clicked, expected in (
                ("outcome=failed", 1), ("outcome=crashed", 2), ("product=firewall", 1), ("outcome=failed", 0),
                ("outcome=crashed", 2), ("product=antivirus", 4), ("outcome=did-not-return", 1), ("product=firewall", 1),
                ("product=none", 1), ("product=antivirus", 0)):
            name, value = clicked.split("=")
            self.one(f"input[name={name}][value={value}]").click()
            self.assertEqual(expected, len(self.runs()), (clicked, self.runs()))
        self.assertIn("#outcome=did-not-return&product=none", self.driver.current_url)
        self.driver.back()
        self.until(1, lambda: len(self.runs()))
        self.assertTrue(self.one("input[value=antivirus]").is_selected())
        self.driver.forward()
        self.until(0, lambda: len(self.runs()))
        self.assertIn("No run is like this", self.one("#run-list").text)
        self.press(Keys.ESCAPE)
        self.until(5, lambda: len(self.runs()))
        for text, expected in (("SIGNATURES:up", 1), ("wscsvc not", 1), ("cavm4h.dll", 1), ("0x000000a0", 1),
                               ("running not", 1), ('"running not"', 0)):
            self.one("#text").clear()
            self.one("#text").send_keys(text)
            self.until(expected, lambda: len(self.runs()))
        self.one("#text").clear()
        self.until(5, lambda: len(self.runs()))
        self.one("#machine").send_keys(self.data["machines"][1]["name"])
        self.until(1, lambda: len(self.runs()))
        self.assertIn("crashed", self.runs()[0])

    def test_an_address_shows_what_was_sent(self) -> None:
        run = next(run["id"] for run in self.data["runs"] if run["outcome"] == "crashed")
        self.open(f"#outcome=crashed,failed&order=oldest&run={run}")
        self.assertEqual(["failed", "crashed"], [text.split()[0] for text in self.runs()])
        self.assertIn("cavm4h.dll+0x1010", self.one(f'[data-run="{run}"] .stack').text)
        self.assertRegex(self.one(f'[data-run="{run}"] .verdict').text, "(?s)in the AV manager.*access violation, writing 0x0")
        self.open(f"#product=firewall&run={run}")
        self.assertIn("the filters hide it", self.one("#linked").text)
        for junk in ("#outcome=nothing&from=now&to=%00&run=%22%5D&group=x&product=<b>", "#%",
                     "#constructor=1&__proto__=2&order=worst"):
            self.open(junk)
            self.assertIn("went wrong", self.one("h1").text)

    def test_a_run_unfolds(self) -> None:
        details = next(element for element in self.all("#run-list > details") if "/state:" in element.text)
        self.assertEqual([], details.find_elements(By.CSS_SELECTOR, ".inside"))
        details.find_element(By.TAG_NAME, "summary").click()
        self.until(True, lambda: bool(details.find_elements(By.CSS_SELECTOR, ".inside")))
        self.assertEqual("/state:ON", details.find_element(By.CSS_SELECTOR, ".command mark").text)
        verdict = details.find_element(By.CSS_SELECTOR, ".verdict").text
        for expected in ("on, off and snoozed", "correct “ON”", "0x000000a0", "to_prod_state ON"):
            self.assertIn(expected.lower(), verdict.lower())
        rows = details.find_elements(By.CSS_SELECTOR, ".lines tbody tr")
        self.assertEqual(4, len(rows))
        self.assertIn("The request failed", rows[2].text)
        self.assertIn("fault", rows[2].get_attribute("class"))
        self.assertIn("run=", self.driver.current_url)

    def test_keyboard(self) -> None:
        self.press("/")
        self.assertEqual("text", self.focused())
        self.press("state", Keys.ESCAPE)
        self.until(5, lambda: len(self.runs()))
        summaries = self.all("#run-list > details > summary")
        self.driver.execute_script("arguments[0].focus()", summaries[0])
        self.press(Keys.ARROW_DOWN, Keys.ARROW_DOWN, Keys.ARROW_UP, Keys.ENTER)
        self.until(True, lambda: self.all("#run-list > details")[1].get_property("open"))
        self.driver.execute_script("document.querySelector('.timeline .bin[tabindex=\"0\"]').focus()")
        self.press(Keys.END, Keys.ARROW_LEFT, Keys.HOME, Keys.ENTER)
        self.until(True, lambda: "from=" in self.driver.current_url or "run=" in self.driver.current_url)
        reached = set()
        self.driver.execute_script("document.querySelector('.skip').focus()")
        for _ in range(40):
            reached.add(self.driver.execute_script("return document.activeElement.name || document.activeElement.tagName"))
            self.press(Keys.TAB)
        self.assertTrue({"outcome", "product", "text", "machine", "order", "A", "g", "SUMMARY"} <= reached, reached)

    def test_the_timeline_leads_closer(self) -> None:
        bins = self.all(".timeline .bin")
        self.assertEqual(5, len(self.all(".timeline .bin .mark")))
        wide = next(element for element in bins if len(element.find_elements(By.CSS_SELECTOR, ".mark")) > 1)
        self.driver.execute_script("arguments[0].dispatchEvent(new Event('click'))", wide)
        self.assertEqual(3, len(self.runs()))
        self.assertEqual(3, len(self.all(".timeline .bin")))
        self.one("#narrowed button").click()
        self.assertEqual(5, len(self.runs()))

    def test_foreign_text_stays_text(self) -> None:
        details = next(element for element in self.all("#run-list > details") if "anti-spyware" in element.text)
        details.find_element(By.TAG_NAME, "summary").click()
        self.until(True, lambda: bool(details.find_elements(By.CSS_SELECTOR, ".lines")))
        shown = NASTY.replace("\u202e", "\\u{202e}")
        self.assertIn(shown, details.find_element(By.CSS_SELECTOR, ".command").text)
        self.assertIn(shown, details.find_element(By.CSS_SELECTOR, ".lines").text)
        self.assertEqual([None, 0, 2], self.driver.execute_script("""return [window.owned,
            document.querySelectorAll('img, iframe, object, embed, base').length, document.scripts.length]"""))
        self.assertEqual(3, len(self.all("style, script")))

    def test_no_request_leaves_the_page(self) -> None:
        self.driver.get_log("performance")
        self.open()
        for summary in self.all("#run-list > details > summary"):
            self.driver.execute_script("arguments[0].click()", summary)
        self.assertEqual([self.address], [url for url in requests_of(self.driver) if url != "about:blank"])
        loaded = self.driver.execute_script("return performance.getEntriesByType('resource').map(entry => entry.name)")
        self.assertEqual([], loaded)
        # Not even when a script in it tried: the policy stands, and no markup is ever made of a text.
        with socket.create_server(("127.0.0.1", 0)) as server:
            server.settimeout(0.3)
            place = f"http://127.0.0.1:{server.getsockname()[1]}/"
            refused = self.driver.execute_async_script("""
                const [place, done] = arguments;
                new Image().src = place;
                let markup = "allowed";
                try { document.body.innerHTML = "<b>"; } catch { markup = "refused"; }
                const script = document.createElement("script");
                try { script.text = "window.owned = 3"; document.body.append(script); } catch { }
                fetch(place).then(() => done([markup, "sent"]), () => done([markup, "refused"]));""", place)
            with self.assertRaises(TimeoutError):
                server.accept()
        self.assertEqual(["refused", "refused"], refused)
        self.assertIsNone(self.driver.execute_script("return window.owned ?? null"))
        blocked = [entry["message"] for entry in self.driver.get_log("browser")]
        for text in blocked or ["nothing"]:
            self.assertRegex(text, "Content Security Policy|TrustedHTML|TrustedScript")

    def test_looks(self) -> None:
        """Nothing is cut off on a phone, texts are legible in both schemes, and paper has no controls."""
        contrast = """
            const canvas = new OffscreenCanvas(1, 1).getContext("2d", {willReadFrequently: true});
            const linear = v => (v /= 255) <= .04045 ? v / 12.92 : ((v + .055) / 1.055) ** 2.4;
            const light = colour => {
              canvas.fillStyle = colour;
              canvas.fillRect(0, 0, 1, 1);
              const [r, g, b] = [...canvas.getImageData(0, 0, 1, 1).data].map(linear);
              return .2126 * r + .7152 * g + .0722 * b + .05;
            };
            const style = element => getComputedStyle(element);
            const behind = element => !element ? "white" : /, 0\\)$/.test(style(element).backgroundColor)
              ? behind(element.parentElement) : style(element).backgroundColor;
            const texts = [...document.querySelectorAll("p, dt, dd, th, td, a, .outcome, code, .chip:not(.none), kbd")];
            return texts.filter(text => text.checkVisibility() && text.textContent.trim()).map(text => {
              const [dark, bright] = [light(style(text).color), light(behind(text))].sort((x, y) => x - y);
              return [bright / dark, text.className + " " + text.tagName + ": " + text.textContent.slice(0, 40)];
            }).filter(([ratio]) => ratio < 4.5);"""
        crashed = next(run["id"] for run in self.data["runs"] if run["outcome"] == "crashed")
        try:
            for scheme in ("light", "dark"):
                self.emulate(features=[{"name": "prefers-color-scheme", "value": scheme}])
                self.open(f"#run={crashed}")
                self.assertEqual([], self.driver.execute_script(contrast), scheme)
            paper = self.driver.execute_script("return getComputedStyle(document.body).backgroundColor")
            self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                                        {"width": 360, "height": 740, "deviceScaleFactor": 2, "mobile": True})
            self.open(f"#run={crashed}")
            for summary in self.all("#run-list > details:not([open]) > summary"):
                self.driver.execute_script("arguments[0].click()", summary)
            self.assertLessEqual(self.driver.execute_script("return document.documentElement.scrollWidth"), 360)
            self.emulate(media="print", features=[{"name": "prefers-color-scheme", "value": "dark"}])
            self.assertEqual([], [element for element in self.all("form, nav, button") if element.is_displayed()])
            self.assertNotEqual(paper, self.driver.execute_script("return getComputedStyle(document.body).backgroundColor"))
        finally:
            self.emulate(features=[])
            self.driver.execute_cdp_cmd("Emulation.clearDeviceMetricsOverride", {})

    def test_thousands_of_runs(self) -> None:
        template = next(run for run in self.data["runs"] if run["outcome"] == "failed")
        begin = datetime.datetime(2026, 1, 1)
        runs = []
        for number in range(MANY):
            at = (begin + datetime.timedelta(minutes=number)).isoformat(timespec="milliseconds")
            runs.append({**template, "id": f"m{number}", "begin": at, "end": at, "begin_utc": None,
                         "outcome": ("failed", "succeeded", "crashed", "did-not-return")[number % 4],
                         "line_count": 1050 if number == 7 else 10,
                         "lines": [{**template["lines"][0], "number": line + 1 + 50 * (line > 99), "text": f"line {line} of {number} \ud800"}
                                   for line in range(1000 if number == 7 else 10)]})
        page = self.folder / "many.html"
        with page.open("w", encoding="utf-8") as file:
            machines, left_out = [{**self.data["machines"][0], "runs": MANY + 7}], {"runs": 7, "dumps": 0, "problems": 0}
            many = {**self.data, "runs": runs, "dumps": [], "machines": machines, "left_out": left_out}
            file.writelines(report_html.pieces(many))
        nodes = "return document.querySelectorAll('*').length"
        start = time.monotonic()
        self.open(address=page.as_uri())
        self.assertEqual(50, len(self.runs()))
        self.assertLess(self.driver.execute_script(nodes), 6000)
        self.driver.execute_script("document.querySelector('#run-list + .more').click()")
        self.assertEqual(100, len(self.runs()))
        self.one("#text").send_keys('"line 999 of 7"')
        self.until(f"1 of {MANY:,} runs; 7 others are counted, but not in this page", lambda: self.one("#shown").text)
        self.one("#run-list summary").click()
        self.until(200, lambda: len(self.all(".lines tbody tr")))
        self.assertIn("50 lines of the run are left out here", self.all(".lines tbody tr")[100].text)
        self.driver.execute_script("document.querySelector('.lines + .more').click()")
        self.assertEqual(400, len(self.all(".lines tbody tr")))
        self.assertIn("\\u{d800}", self.one(".lines td.text").text)
        self.assertLess(self.driver.execute_script(nodes), 6000)
        self.assertLess(time.monotonic() - start, 20)


if __name__ == "__main__":
    unittest.main()
