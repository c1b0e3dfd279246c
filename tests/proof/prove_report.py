#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Opens the reports of vusctl in a headless browser, and uses them as a reader would.

usage: prove_report.py VUSCTL [DIRECTORY]

Their tables sort and filter, by mouse and by keyboard; they can be read in the dark, in print and
without script; nothing is asked of a network; and what a device calls itself does nothing, even if
it were not escaped. With a DIRECTORY the pages and screenshots stay there.
"""

import io
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

from PIL import Image
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.select import Select

POLICY = """<usbconfig mode="whitelist">
    <class>USB_CLASS_MASS_STORAGE</class>
    <class>AINPUT_SOURCE_KEYBOARD</class>
    <vid vendorid="1208"><pid>3605</pid></vid>
</usbconfig>
"""
OTHER_POLICY = POLICY.replace("MASS_STORAGE", "PRINTER")
ATTACK = "<script>document.title='taken'</script><img src=http://127.0.0.1:9/x>"
HOSTILE = [ATTACK, "\" onmouseover=\"document.title='taken'", "\u202egpj.exe", "'\u001b]0;x\u0007"]
NAMES = ["Disk b", "Disk C", "Disk a"] + [f"Till {at}" for at in range(9)] + HOSTILE


def devices():
    for at, name in enumerate(NAMES):
        yield {"deviceType": 0, "deviceName": name, "vendorId": 2385, "productId": 1000 - at,
               "interfaceClassList": [8] if at % 3 else [7, 255]}
    yield {"deviceType": 0, "deviceName": "Keys", "vendorId": 1, "productId": 1,
           "interfaceClassList": [3], "vendorHid": False}
    yield {"deviceType": 1, "deviceName": "Keys", "vendorId": 1, "productId": 1,
           "deviceClass": 0x101}


def write_reports(vusctl, directory):
    (directory / "old.xml").write_text(POLICY)
    (directory / "new.xml").write_text(OTHER_POLICY)
    (directory / "fleet.json").write_text("".join(json.dumps(each) + "\n" for each in devices()))
    for name, words in (("explain", ["explain", "old.xml", "--list", "fleet.json"]),
                        ("diff", ["diff", "old.xml", "new.xml", "--devices", "fleet.json"])):
        page = subprocess.run([vusctl, "policy", *words, "--format", "html"], check=True,
                              cwd=directory, stdout=subprocess.PIPE).stdout
        (directory / f"{name}.html").write_bytes(page)


def start_browser(directory):
    options = webdriver.ChromeOptions()
    options.binary_location = "/usr/bin/chromium"
    for word in ("--headless=new", "--disable-gpu", "--disable-dev-shm-usage", "--no-first-run",
                 "--disable-background-networking", "--disable-component-update",
                 "--disable-extensions", "--window-size=1200,900",
                 f"--user-data-dir={directory / 'profile'}"):
        options.add_argument(word)
    if os.geteuid() == 0:
        options.add_argument("--no-sandbox")  # it refuses to run as root in one
    options.set_capability("goog:loggingPrefs", {"performance": "ALL", "browser": "ALL"})
    return webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)


class Page:
    """A report in the browser."""

    def __init__(self, browser, directory, name):
        self.browser = browser
        self.directory = directory
        self.name = name
        self.address = (directory / name).as_uri()
        for log in ("performance", "browser"):
            browser.get_log(log)  # what is there is of the page before
        browser.get(self.address)

    def requests(self):
        """The addresses that the page asked for; what the browser does by itself is not its."""
        events = [json.loads(entry["message"])["message"]
                  for entry in self.browser.get_log("performance")]
        return [event["params"]["request"]["url"] for event in events
                if event["method"] == "Network.requestWillBeSent"
                and event["params"]["documentURL"] == self.address]

    def complaints(self):
        return [entry["message"] for entry in self.browser.get_log("browser")]

    def run(self, script, *arguments):
        return self.browser.execute_script("return " + script, *arguments)

    def column(self, title, table=0):
        """The texts of a column's cells, top to bottom, hidden rows left out."""
        return self.run("""(([table, title]) => {
            const at = [...table.tHead.rows[0].cells].findIndex(th => th.textContent === title);
            return [...table.tBodies[0].rows].filter(row => row.offsetParent !== null)
                .map(row => row.cells[at].firstChild.textContent);
        })(arguments)""", self.browser.find_elements(By.TAG_NAME, "table")[table], title)

    def header(self, title):
        return self.browser.find_element(By.XPATH, f"//th[normalize-space()='{title}']")

    def press(self, title):
        self.header(title).find_element(By.TAG_NAME, "button").click()

    def order(self, title):
        return self.header(title).get_attribute("aria-sort")

    def style(self, selector, name):
        return self.run("getComputedStyle(document.querySelector(arguments[0]))[arguments[1]]",
                        selector, name)

    def media(self, kind, scheme):
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "media": kind, "features": [{"name": "prefers-color-scheme", "value": scheme}]})

    def picture(self, name):
        png = self.browser.get_screenshot_as_png()
        (self.directory / f"{self.name}.{name}.png").write_bytes(png)
        return Image.open(io.BytesIO(png)).convert("L")


def brightness(picture):
    """Of the most frequent grey, the page's own; and the share of what is of another."""
    counts = picture.histogram()
    page = max(range(256), key=lambda grey: counts[grey])
    return page, 1 - counts[page] / sum(counts)


def luminance(colour):
    channels = [int(value) / 255 for value in re.findall(r"\d+", colour)[:3]]
    linear = [c / 12.92 if c <= 0.04045 else ((c + 0.055) / 1.055) ** 2.4 for c in channels]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


def contrast(one, other):
    dark, light = sorted((luminance(one), luminance(other)))
    return (light + 0.05) / (dark + 0.05)


def prove_content(page):
    assert page.column("Name")[:3] == ["Disk b", "Disk C", "Disk a"]
    assert page.column("Number") == [str(at + 1) for at in range(len(NAMES) + 2)]
    shown = page.column("Name")
    assert ATTACK in shown and HOSTILE[1] in shown
    assert "?gpj.exe" in shown and "'?]0;x?" in shown, "a character that rules others"
    assert page.browser.title == "What old.xml says of these devices"
    assert page.run("document.images.length + document.scripts.length") == 1
    assert page.column("Verdict").count("refused") == 6 and page.column("Verdict")[-2] == "input"


def prove_sorting(page):
    page.press("Name")
    names = page.column("Name")
    assert names[names.index("Disk a"):][:3] == ["Disk a", "Disk b", "Disk C"], names
    assert page.order("Name") == "ascending" and page.order("Number") == "none"
    page.press("Name")
    assert page.order("Name") == "descending"
    names = page.column("Name")
    assert names[names.index("Disk C"):][:3] == ["Disk C", "Disk b", "Disk a"], names
    page.press("Rule")  # where none decided comes last
    assert page.column("Rule")[0] == "line 2" and page.column("Rule")[-1] == ""
    page.press("Number")
    page.press("Number")
    numbers = [int(number) for number in page.column("Number")]
    assert numbers == sorted(numbers, reverse=True) and numbers[0] > 9, "not sorted as numbers"


def prove_keyboard(page):
    """From control to control by Tab; a header is pressed by Enter and by the blank."""
    page.browser.get(page.address)
    seen = []
    keys = ActionChains(page.browser)
    for _ in range(20):
        keys.send_keys(Keys.TAB).perform()
        focused = page.browser.switch_to.active_element
        if focused.tag_name == "body":
            break
        assert focused.accessible_name, f"{focused.get_attribute('outerHTML')} has no name"
        assert page.style(":focus", "outlineStyle") == "solid", "the focus cannot be seen"
        seen.append(focused.accessible_name)
        if focused.accessible_name == "Name":
            ActionChains(page.browser).send_keys(Keys.ENTER).perform()
            assert page.order("Name") == "ascending"
            ActionChains(page.browser).send_keys(Keys.SPACE).perform()
            assert page.order("Name") == "descending"
    assert seen == ["Rows with the words", "Type", "Verdict", "Details", "Number", "Type", "Ids",
                    "Classes", "Name", "Verdict", "Rule", "Reason"], seen


def prove_filters(page):
    page.browser.get(page.address)
    everything = len(NAMES) + 2
    count = page.browser.find_element(By.TAG_NAME, "output")
    assert count.text == f"{everything} of {everything} rows"
    words = page.browser.find_element(By.CSS_SELECTOR, "input[type=search]")
    words.send_keys("TILL allowed")
    assert set(page.column("Verdict")) == {"allowed"}
    assert all(name.startswith("Till") for name in page.column("Name"))
    assert count.text == f"6 of {everything} rows", count.text
    words.clear()
    words.send_keys("nobody is called so")
    assert page.column("Name") == [] and count.text == f"0 of {everything} rows"
    words.clear()
    choice = Select(page.browser.find_elements(By.TAG_NAME, "select")[1])
    assert [each.text for each in choice.options] == ["all", "allowed", "input", "refused"]
    choice.select_by_visible_text("refused")
    assert page.column("Verdict") == ["refused"] * 6
    page.press("Name")
    assert page.column("Verdict") == ["refused"] * 6, "sorting undoes the filter"
    choice.select_by_visible_text("all")
    assert len(page.column("Name")) == everything
    walk = page.browser.find_element(By.CSS_SELECTOR, "td ul")
    assert walk.is_displayed()
    page.browser.find_element(By.CSS_SELECTOR, "input[type=checkbox]").click()
    assert not walk.is_displayed()


def prove_looks(page):
    page.browser.get(page.address)
    pages = {}
    for scheme in ("light", "dark"):
        page.media("screen", scheme)
        pages[scheme], written = brightness(page.picture(scheme))
        assert written > 0.02, f"{scheme}: the page is blank"
        behind = page.style("body", "backgroundColor")
        for selector in ("td", "tr.allowed strong", "tr.refused strong", "td ul"):
            ratio = contrast(page.style(selector, "color"), behind)
            assert ratio >= 4.5, f"{scheme}: {selector}: contrast {ratio:.1f}"
    assert pages["light"] > 240 and pages["dark"] < 60, pages
    before = page.picture("whole")
    page.browser.find_element(By.CSS_SELECTOR, "input[type=search]").send_keys("gpj")
    assert page.picture("filtered").tobytes() != before.tobytes(), "filtering shows no difference"
    page.media("print", "dark")
    grey, written = brightness(page.picture("print"))
    assert grey > 240 and written > 0.01, "paper is white, and written on"
    assert page.style(".tools label", "display") == "none"
    count = page.browser.find_element(By.TAG_NAME, "output")
    assert count.is_displayed() and count.text == f"1 of {len(NAMES) + 2} rows"
    assert page.style("thead", "display") == "table-header-group"
    assert page.column("Name") == ["?gpj.exe"], "what is hidden is printed"
    page.media("", "light")


def prove_without_script(browser, directory):
    text = (directory / "explain.html").read_text()
    (directory / "silent.html").write_text(re.sub(r"<script>.*?</script>", "", text, flags=re.S))
    page = Page(browser, directory, "silent.html")
    assert page.column("Name")[:3] == ["Disk b", "Disk C", "Disk a"]
    assert page.run("document.querySelectorAll('button, input, select').length") == 0
    assert brightness(page.picture("silent"))[1] > 0.02, "the page is blank"


def prove_second_defence(browser, directory):
    """If a name were not escaped, the browser would still obey the page's own policy. And without
    either it would be seen here that a name runs a script and asks for something."""
    text = (directory / "explain.html").read_text()
    escaped = ATTACK.replace("<", "&lt;").replace(">", "&gt;").replace("'", "&#39;")
    assert escaped in text
    (directory / "raw.html").write_text(text.replace(escaped, ATTACK))
    page = Page(browser, directory, "raw.html")
    assert page.run("document.images.length + document.scripts.length") == 3
    assert page.browser.title == "What old.xml says of these devices", "the script was run"
    complaints = page.complaints()
    assert any("script" in each for each in complaints), complaints
    assert any("image" in each for each in complaints), complaints
    (directory / "open.html").write_text(
        re.sub(r"<meta http-equiv.*\n", "", text.replace(escaped, ATTACK)))
    page = Page(browser, directory, "open.html")
    assert page.browser.title == "taken", "the attack is none"
    assert "http://127.0.0.1:9/x" in page.requests(), "requests are not seen"


def prove_diff(browser, directory):
    page = Page(browser, directory, "diff.html")
    assert sorted(page.column("Now")) == ["admitted", "refused"]
    assert page.column("What")[0] == "USB devices with the class USB_CLASS_PRINTER"
    assert len(page.column("Name", table=1)) == len(NAMES)
    assert ATTACK in page.column("Name", table=1)
    assert page.browser.title == "What changes from old.xml to new.xml"
    tools = page.browser.find_elements(By.CLASS_NAME, "tools")
    assert [each.accessible_name for each in tools] == [
        "For every device that anybody could build", "Known devices that are judged differently"]
    Select(tools[1].find_elements(By.TAG_NAME, "select")[0]).select_by_visible_text("admitted")
    assert set(page.column("Now", table=1)) == {"admitted"}
    assert len(page.column("Now")) == 2, "a filter is of its own table"
    return page


def prove_quiet(page):
    """Whatever was done on the page asked for nothing but itself, and went without an error."""
    asked = page.requests()
    assert asked and set(asked) == {page.address}, f"asked for: {asked}"
    complaints = page.complaints()
    assert complaints == [], complaints


def prove(vusctl, directory):
    write_reports(vusctl, directory)
    browser = start_browser(directory)
    try:
        page = Page(browser, directory, "explain.html")
        prove_content(page)
        prove_sorting(page)
        prove_keyboard(page)
        prove_filters(page)
        prove_looks(page)
        prove_quiet(page)
        prove_quiet(prove_diff(browser, directory))
        prove_without_script(browser, directory)
        prove_second_defence(browser, directory)
    finally:
        browser.quit()


def main(arguments):
    if len(arguments) not in (1, 2):
        print(__doc__, file=sys.stderr)
        return 2
    vusctl = str(pathlib.Path(arguments[0]).resolve())
    with tempfile.TemporaryDirectory() as name:
        os.environ["HOME"] = name
        directory = pathlib.Path(arguments[1] if len(arguments) > 1 else name).resolve()
        directory.mkdir(exist_ok=True)
        prove(vusctl, directory)
    print("the reports sort, filter and can be read")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
