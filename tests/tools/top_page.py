"""tivra-top in a real browser: usage: top_page.py TIVRA_HUB TIVRA_TOP FOLDER

Leaves screenshots of the page and of the terminal in FOLDER. Ends with 77 where there is no browser.
"""
import html
import os
import re
import shutil
import socket
import subprocess
import sys
import time
import urllib.error
import urllib.request
from pathlib import Path

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
    from selenium.webdriver.support.ui import WebDriverWait
except ImportError:
    print("skipped: python3-selenium isn't installed")
    sys.exit(77)
if not shutil.which("chromium") or not shutil.which("chromedriver"):
    print("skipped: chromium or chromium-driver isn't installed")
    sys.exit(77)

HUB, TOP, FOLDER = sys.argv[1], sys.argv[2], Path(sys.argv[3])
PATIENCE = 60
COLOURS = {"90": "#888", "31": "#f66", "32": "#5d8", "33": "#fb4"}


def wait_for(what, condition):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        if result := condition():
            return result
        time.sleep(0.05)
    raise AssertionError(f"{what}: not within {PATIENCE} s")


class Program:
    """A program whose output is read line by line."""

    def __init__(self, *words):
        self.process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True, env={
            **os.environ, "TIVRA_PASSWORD": "demo", "XDG_STATE_HOME": str(FOLDER), "NO_COLOR": ""})

    def address(self, pattern):
        for line in self.process.stdout:
            if found := re.search(pattern, line):
                return found[1]
        raise AssertionError(f"{self.process.args[0]} ended before it listened")

    def end(self):
        self.process.terminate()
        rest = self.process.stdout.read()
        assert self.process.wait(PATIENCE) == 0, self.process.args
        return rest


def browser():
    options = webdriver.ChromeOptions()
    for word in ("--headless=new", "--no-sandbox", "--disable-gpu", "--window-size=1100,1000", "--disable-dev-shm-usage"):
        options.add_argument(word)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    return webdriver.Chrome(service=Service(shutil.which("chromedriver")), options=options)


def text(driver, selector):
    return driver.execute_script("return [...document.querySelectorAll(arguments[0])].map(e => e.textContent).join('\\n')", selector)


def look_at_page(driver, address):
    driver.get(f"http://{address}/")
    wait = WebDriverWait(driver, PATIENCE)
    wait.until(lambda d: text(d, "#state") == "established")
    wait.until(lambda d: re.search(r"^\d+s$", text(d, "#board td:nth-last-child(2)"), re.M))
    wait.until(lambda d: re.match(r"[1-9]\d*/s", text(d, "#rate")))
    assert "ready" in text(driver, "#hubs") and "100:LOAD000000" in text(driver, "#board")
    before = text(driver, "#board")
    wait.until(lambda d: text(d, "#board") != before)
    driver.find_element(By.ID, "filter").send_keys("000001")
    wait.until(lambda d: text(d, "#board td:first-child") == "100:LOAD000001")
    driver.find_element(By.CSS_SELECTOR, "#board tr").click()
    wait.until(lambda d: text(d, "#chartname").startswith("100:LOAD000001"))
    # What is drawn, not only that there is something to draw on.
    drawn = """const c = document.querySelector(arguments[0] + " canvas");
               return c !== null && new Set(c.getContext("2d").getImageData(0, 0, c.width, c.height).data).size > 20"""
    for plot in ("#rates", "#latency", "#symbol"):
        wait.until(lambda d, plot=plot: d.execute_script(drawn, plot))
    assert driver.execute_script("return [moveOf('12:00:01', '12:00:02'), moveOf('', '1'), moveOf('10', '9')].join()") == "0,0,-1"
    driver.execute_script("const whole = fetch; fetch = () => Promise.reject(new Error('gone')); choose('100:LOAD000002'); fetch = whole")
    wait.until(lambda d: "no answer" in text(d, "#chartname"))
    driver.find_element(By.CSS_SELECTOR, "#board tr").click()
    wait.until(lambda d: d.execute_script(drawn, "#symbol"))
    driver.execute_script("document.getElementById('filter').value = ''; document.getElementById('filter').oninput()")
    for width in (1100, 400):
        driver.set_window_size(width, 1000)
        wait.until(lambda d: d.execute_script("return document.documentElement.scrollWidth <= document.documentElement.clientWidth"))
    driver.set_window_size(1100, 1000)
    wait.until(lambda d: d.execute_script("return history[0].length >= 8"))  # some seconds in the plots
    driver.save_screenshot(str(FOLDER / "tivra-top-page.png"))
    faults = [entry["message"] for entry in driver.get_log("browser") if entry["level"] == "SEVERE" and "favicon" not in entry["message"]]
    assert not faults, faults


def refuses(address):
    """Other hosts' names, other paths, and more viewers than there may be.

    Returns the streams of viewers that don't read.
    """
    host, port = address.split(":")

    def status(path, **headers):
        try:
            return urllib.request.urlopen(urllib.request.Request(f"http://{address}{path}", headers=headers), timeout=PATIENCE).status
        except urllib.error.HTTPError as error:
            return error.code

    assert status("/") == 200 and status("/no") == 404
    for name in ("evil.example", "127.0.0.1.evil.example", "127.0.0.1.evil.example:80", ""):
        assert status("/symbol?name=100:LOAD000001", Host=name) == 403, name
    for name in ("localhost", "localhost:80", "127.0.0.1", "10.1.2.3:80"):
        assert status("/symbol?name=100:LOAD000001", Host=name) == 200, name
    slow = []
    for _ in range(40):
        connection = socket.socket()
        connection.settimeout(PATIENCE)
        connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
        connection.connect((host, int(port)))
        connection.sendall(b"GET /events HTTP/1.1\r\nHost: localhost\r\n\r\n")
        answer = connection.recv(12, socket.MSG_WAITALL)
        assert answer in (b"HTTP/1.1 200", b"HTTP/1.1 503"), answer
        if answer.endswith(b"200"):
            slow.append(connection)
    assert 20 < len(slow) <= 32, len(slow)
    return slow


def show_terminal(driver, host):
    """The screen as a terminal shows it, as a picture."""
    tmux = ["tmux", "-S", str(FOLDER / "tmux"), "-f", "/dev/null"]
    if not shutil.which("tmux"):
        return
    line = f"NO_COLOR= TIVRA_PASSWORD=demo XDG_STATE_HOME={FOLDER} {TOP} -H {host} -u demo --read-timeout 60 '100:LOAD*'"
    subprocess.run([*tmux, "new-session", "-d", "-x", "80", "-y", "24", line], check=True)
    try:
        def screen():
            return subprocess.run([*tmux, "capture-pane", "-p", "-e"], capture_output=True, text=True).stdout
        wait_for("a screen with movement", lambda: "\x1b[32m" in screen() and re.search("established [1-9]", screen()))
        captured = screen()
    finally:
        subprocess.run([*tmux, "kill-server"])
    page = FOLDER / "terminal.html"
    page.write_text("<meta charset=utf-8><style>body{margin:0;background:#111;color:#ddd}pre{margin:8px;font:15px/1.25 monospace}"
                    ".r{background:#ddd;color:#111}</style><pre>" + as_html(captured) + "</pre>")
    driver.set_window_size(760, 640)
    driver.get(page.as_uri())
    driver.find_element(By.TAG_NAME, "pre").screenshot(str(FOLDER / "tivra-top-terminal.png"))


def as_html(captured):
    out, colour, is_reverse, is_bold = [], None, False, False
    for part in re.split(r"(\x1b\[[\d;]*m)", captured):
        if not part.startswith("\x1b"):
            style = (f"color:{COLOURS[colour]};" if colour in COLOURS else "") + ("font-weight:bold" if is_bold else "")
            out.append(f'<span class="{"r" if is_reverse else ""}" style="{style}">{html.escape(part)}</span>')
            continue
        for code in part[2:-1].split(";"):
            if code in ("", "0"):
                colour, is_reverse, is_bold = None, False, False
            is_reverse = is_reverse or code == "7"
            is_bold = is_bold or code == "1"
            colour = code if code in COLOURS else None if code == "39" else colour
    return "".join(out)


def main():
    FOLDER.mkdir(parents=True, exist_ok=True)
    hub = Program(HUB, "--port", "0", "--load", "400:4000")
    host = hub.address(r"listening on (\S+)")
    top = Program(TOP, "-H", host, "-u", "demo", "-s", "100", "--serve", "0", "--read-timeout", "60")
    address = top.address(r"page on http://(\S+)/")
    driver = browser()
    try:
        look_at_page(driver, address)
        driver.get("about:blank")
        slow = refuses(address)
        show_terminal(driver, host)
        # Who doesn't read is given up, and makes room.
        wait_for("room", lambda: has_room(address, len(slow)))
        driver.get(f"http://{address}/")
        WebDriverWait(driver, PATIENCE).until(lambda d: text(d, "#state") == "established")
        told = top.end()
        WebDriverWait(driver, PATIENCE).until(lambda d: "doesn't answer" in text(d, "#link"))
    finally:
        driver.quit()
        for program in (top, hub):
            if program.process.poll() is None:
                program.process.kill()
    viewers, dropped = map(int, re.search(r"(\d+) viewers, (\d+) of them dropped", told).groups())
    assert viewers > dropped >= len(slow), told
    print(f"passed: {viewers} viewers, {dropped} dropped; screenshots in {FOLDER}")


def has_room(address, count):
    streams = []
    try:
        for _ in range(count):
            streams.append(urllib.request.urlopen(f"http://{address}/events", timeout=PATIENCE))
        return True
    except urllib.error.HTTPError:
        return False
    finally:
        for stream in streams:
            stream.close()


main()
