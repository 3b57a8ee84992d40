"""The documentation site as a reader meets it: usage: site_test.py SITE SCREENSHOTS

Every link leads somewhere; in a browser no page is wider than its window, in light and dark, and the search finds a class without
a server. The tests that SECURITY.md names exist. Ends with "N passed, N failed".
"""
import re
import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

from selenium import webdriver
from selenium.webdriver.common.by import By
from selenium.webdriver.support.ui import WebDriverWait

WIDTHS = (1280, 400)
SHOWN = ("index.html", "pages.html", "guide.html", "pictures.html", "classtivra_1_1Subscription.html", "troubleshooting.html")
# Words that stand letter under letter, because something else has taken their room.
CRUSHED = """return [...document.querySelectorAll(".contents a")].filter(link => link.textContent.trim().length > 3 &&
    link.offsetWidth > 0 && link.offsetWidth < 20 && link.offsetHeight > 60).map(link => link.textContent.trim())"""
# Wider than the window: what a reader would have to move the page sideways for.
EXCESS = "return document.documentElement.scrollWidth - document.documentElement.clientWidth"


class Links(HTMLParser):
    def __init__(self, page):
        super().__init__()
        self.targets, self.loaded, self.anchors = [], [], set()
        self.feed(page.read_text())

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if value and (name == "id" or (tag == "a" and name == "name")):
                self.anchors.add(value)
            elif value and name in ("href", "src", "data"):
                self.targets.append(value)
                if tag != "a":
                    self.loaded.append(value)


def dead_links(site):
    pages = {page: Links(page) for page in site.rglob("*.html")}
    for page, links in pages.items():
        for target in links.targets:
            parts = urlsplit(target)
            if parts.scheme in ("http", "https", "mailto", "javascript"):
                if parts.netloc and target in links.loaded:
                    yield f"{page.name}: {target} needs the internet"
                continue
            other = (page.parent / unquote(parts.path)).resolve() if parts.path else page
            if not other.is_file():
                yield f"{page.name}: {target} leads nowhere"
            elif parts.fragment and other in pages and unquote(parts.fragment) not in pages[other].anchors:
                yield f"{page.name}: {target} names no place on that page"


def unknown_tests(root):
    """The promises of SECURITY.md are held by tests, whose names change."""
    named = set(re.findall(r"`([A-Z]\w+)\.([A-Z]\w+)`", (root / "SECURITY.md").read_text()))
    known = {test for path in root.glob("tests/**/*.cpp")
             for test in re.findall(r"TEST(?:_F|_P)?\((\w+),\s*(\w+)\)", path.read_text())}
    targets = set(re.findall(r"`(\w+Fuzz)`", (root / "SECURITY.md").read_text()))
    yield from (f"SECURITY.md names {suite}.{name}, which is no test" for suite, name in sorted(named - known))
    yield from (f"SECURITY.md names {target}, which fuzz/ lacks" for target in sorted(targets) if not (root / f"fuzz/{target}.cpp").is_file())
    if not named:
        yield "SECURITY.md names no test"


def browser():
    options = webdriver.ChromeOptions()
    for argument in ("--headless=new", "--no-sandbox", "--disable-dev-shm-usage", "--disable-gpu", "--allow-file-access-from-files",
                     "--host-resolver-rules=MAP * ~NOTFOUND"):
        options.add_argument(argument)
    return webdriver.Chrome(options=options)


def show(driver, page, width, scheme):
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": width, "height": 900, "deviceScaleFactor": 1, "mobile": False})
    driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [{"name": "prefers-color-scheme", "value": scheme}]})
    driver.get(page.as_uri())


def too_wide(driver, site):
    for width in WIDTHS:
        for page in sorted(site.glob("*.html")):
            show(driver, page, width, "light")
            if (excess := driver.execute_script(EXCESS)) > 0:
                yield f"{page.name}: {excess} pixels wider than a window of {width}"
            yield from (f"{page.name}: {text!r} is crushed in a window of {width}" for text in driver.execute_script(CRUSHED))


def not_found(driver, site):
    show(driver, site / "index.html", 1280, "light")
    driver.find_element(By.ID, "MSearchField").send_keys("UpdateQueue")

    def results(_):
        driver.switch_to.default_content()
        driver.switch_to.frame(driver.find_element(By.ID, "MSearchResults"))
        return [e for e in driver.find_elements(By.CLASS_NAME, "SRSymbol") if e.is_displayed() and e.text == "UpdateQueue"]

    try:
        WebDriverWait(driver, 20, ignored_exceptions=(Exception,)).until(results)
    except Exception as error:
        yield f"the search doesn't find UpdateQueue: {error}"
    driver.switch_to.default_content()


def white_in_the_dark(driver, site):
    for name in SHOWN:
        show(driver, site / name, 1280, "dark")
        colour = driver.execute_script("return getComputedStyle(document.body).backgroundColor")
        if colour != "rgb(20, 24, 30)":
            yield f"{name}: the background is {colour} where a reader has asked for a dark one"


def take_screenshots(driver, site, folder):
    folder.mkdir(parents=True, exist_ok=True)
    for name in SHOWN:
        for width, scheme in ((1280, "light"), (1280, "dark"), (400, "light")):
            show(driver, site / name, width, scheme)
            driver.save_screenshot(str(folder / f"{Path(name).stem}-{width}-{scheme}.png"))


def main(site, screenshots):
    site = Path(site).resolve()
    checks = [("no dead link", list(dead_links(site))), ("tests of SECURITY.md", list(unknown_tests(Path(__file__).parents[2])))]
    driver = browser()
    try:
        checks.append(("no page wider than its window, no word crushed", list(too_wide(driver, site))))
        checks.append(("search", list(not_found(driver, site))))
        checks.append(("dark pages", list(white_in_the_dark(driver, site))))
        take_screenshots(driver, site, Path(screenshots))
    finally:
        driver.quit()
    for name, faults in checks:
        print(f"{'failed' if faults else 'passed'}: {name}", *faults, sep="\n    ")
    failed = sum(bool(faults) for _, faults in checks)
    print(f"{len(checks) - failed} passed, {failed} failed")
    return bool(failed)


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
