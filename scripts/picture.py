#!/usr/bin/python3
"""Makes docs/report.png and docs/report-run.png, how the page of tools/triage looks, from build/report.html of ./demo --report."""
import base64
import json
import pathlib
import re
import sys
import tempfile

import browser

ROOT = pathlib.Path(__file__).resolve().parent.parent
REPORT = ROOT / "build/report.html"
WIDTH = 1120

# What is seen: from the top of the page down to the bottom of the fifth group; a crash in the AV manager from the filters down to
# the end of its stack.
TOP = "return [0, document.querySelector('#group-list > li:nth-child(5)').getBoundingClientRect().bottom + scrollY + 1]"
RUN = """return [document.getElementById('runs-title').getBoundingClientRect().top + scrollY - 24,
                document.querySelector('.dumps-of-run .scroll').getBoundingClientRect().bottom + scrollY + 24]"""


def main():
    if len(sys.argv) > 1:
        print(__doc__, file=sys.stderr)
        return 2
    if not REPORT.is_file():
        sys.exit("picture: first ./demo --report")
    data = json.loads(re.search(r'id="data">(.*?)</script>', REPORT.read_text(encoding="utf-8"), re.S)[1])
    run = next(run["id"] for run in data["runs"] if run["outcome"] == "crashed" and "cavm4h.dll" in run["failure"]["title"])
    with tempfile.TemporaryDirectory() as profile:
        driver = browser.start(profile, WIDTH)
        try:
            for name, fragment, place in (("report", "", TOP), ("report-run", f"#outcome=crashed&run={run}", RUN)):
                driver.get("about:blank")
                driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": "light"}]})
                driver.get(REPORT.as_uri() + fragment)
                driver.execute_script("document.activeElement.blur()")
                top, bottom = driver.execute_script(place)
                clip = {"x": 0, "y": top, "width": WIDTH, "height": bottom - top, "scale": 1}
                picture = driver.execute_cdp_cmd("Page.captureScreenshot", {"captureBeyondViewport": True, "clip": clip})
                (ROOT / f"docs/{name}.png").write_bytes(base64.b64decode(picture["data"]))
        finally:
            driver.quit()
    return 0


if __name__ == "__main__":
    sys.exit(main())
