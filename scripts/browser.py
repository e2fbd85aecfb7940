"""A headless browser with a profile of its own, which asks nobody for anything: for the tests of pages, and for pictures of them."""
from selenium import webdriver
from selenium.webdriver.chrome.service import Service

FLAGS = ("--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
         "--disable-component-update", "--disable-sync", "--force-prefers-reduced-motion", "--hide-scrollbars")


def start(profile, width=1200, height=900):
    """The folder of the profile has to be empty. The console and the network are logged; the caller quits it."""
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for flag in (*FLAGS, f"--window-size={width},{height}", f"--user-data-dir={profile}"):
        options.add_argument(flag)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_script_timeout(20)
    driver.set_page_load_timeout(30)
    return driver
