"""The ends of interpreters, forks, and who else may want the library."""

import multiprocessing
import os
import subprocess
import sys
import threading

import pytest

import tivra
from hubs import DEADLINE, make_feed, wait_live, wait_until

_EXITS = {
    "feeds that live": "",
    "a reader on a thread": """
import threading
def read():
    for event in sub: pass
threading.Thread(target=read, daemon=True).start()
""",
    "callbacks that run": """
feed.subscribe(100, "AIG", on_update=lambda event: sum(range(10000)), on_state=print)
keep = feed.subscribe(100, "SPY", on_update=print)
""",
    "an exit in the middle": "import sys; sys.exit(0)",
    "a cycle": "class Owner: pass\nowner = Owner()\nowner.sub = feed.subscribe(100, 'SPY', on_update=lambda e: owner)\n",
    "a board and an answer": "board = feed.board; board.add(100, 'IBM'); answer = feed.snapshot(100, 'IBM')",
    "a callback that doesn't end": """
slow = tivra.Feed(sys.argv[1], user="demo", password="demo", close_timeout=0.2).open()
import threading
begun = threading.Event()
def spin(event):
    begun.set()
    while True: pass
keep = slow.subscribe(100, "AIG", on_update=spin)
begun.wait()
""",
    "threads that wait": """
import contextlib, threading
deaf = feed.snapshot(100, "AIG")
begun = threading.Barrier(3)

def wait_for(what):
    begun.wait()
    with contextlib.suppress(tivra.Error):  # the feed may be closed before the thread is stopped
        what()

threading.Thread(target=wait_for, args=(deaf.get,), daemon=True).start()
threading.Thread(target=wait_for, args=(tivra.Feed(sys.argv[1], user="x", password="x").open,), daemon=True).start()
begun.wait()
""",
    "logging": "import logging; logging.basicConfig(level=logging.DEBUG)",
}

_EXIT = """
import sys, tivra
feed = tivra.Feed(sys.argv[1], user="demo", password="demo").open()
sub = feed.subscribe(100, "IBM", fields=["BID"])
"""


@pytest.mark.parametrize("what", _EXITS)
def test_an_interpreter_ends_quietly(hub, what):
    writer_ends = threading.Event()

    def write():
        number = 0
        while not writer_ends.is_set():
            number += 1
            for symbol in ("IBM", "AIG", "SPY"):
                hub.publish(100, symbol, {"BID": float(number)})

    writer = threading.Thread(target=write)
    writer.start()
    try:
        done = subprocess.run([sys.executable, "-c", _EXIT + _EXITS[what], hub.address], capture_output=True, text=True,
                              timeout=60)
    finally:
        writer_ends.set()
        writer.join()
    assert done.returncode == 0, done.stderr
    assert "Traceback" not in done.stderr and "Fatal" not in done.stderr and "leak" not in done.stderr


def test_a_thread_that_ends_gives_its_state_back(hub):
    # Each feed has threads of its own that call Python; what they leave behind would add up.
    def states():
        return len(sys._current_frames())

    before = states()
    for _ in range(5):
        heard = threading.Event()
        with make_feed(hub) as feed:
            feed.subscribe(100, "IBM", on_update=lambda event: heard.set())
            assert heard.wait(DEADLINE)
    wait_until(lambda: states() <= before + 1, "states of the threads gone")


def _work_in_child(address, result):
    with tivra.Feed(address, user="demo", password="demo") as feed:
        result.put(feed.snapshot(100, "IBM").get()["ISIN"])


@pytest.mark.parametrize("method", ["fork", "spawn"])
@pytest.mark.filterwarnings("ignore:.*multi-threaded.*:DeprecationWarning")
def test_a_child_process_opens_feeds_of_its_own(hub, feed, method):
    context = multiprocessing.get_context(method)
    result = context.Queue()
    child = context.Process(target=_work_in_child, args=(hub.address, result))
    child.start()
    assert result.get(timeout=60) == "US4592001014"
    child.join(30)
    assert child.exitcode == 0
    assert feed.snapshot(100, "IBM").get()["ISIN"], "the parent goes on"


@pytest.mark.filterwarnings("ignore:.*multi-threaded.*:DeprecationWarning")
def test_a_forked_child_cant_use_the_parents_feed_and_ends_quietly(hub, feed):
    sub = feed.subscribe(100, "IBM", on_update=lambda event: None)
    wait_live(sub, "IBM")
    child = os.fork()
    if child == 0:
        code = 1
        try:
            feed.snapshot(100, "IBM").get(5)
        except tivra.Error:
            code = 0
            try:
                sub.close()
                feed.close()
            except tivra.Error:
                pass
        finally:
            os._exit(code)
    _, status = os.waitpid(child, 0)
    assert os.waitstatus_to_exitcode(status) == 0
    assert feed.snapshot(100, "IBM").get()["ISIN"] and sub.state("IBM") == "live"


def test_a_subinterpreter_is_refused():
    code = """
import _xxsubinterpreters as sub
one = sub.create()
try:
    sub.run_string(one, "import tivra")
except Exception as error:
    print(error)
"""
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    if "No module named" in done.stderr:
        pytest.skip("this interpreter makes no others")
    assert "subinterpreter" in done.stdout, done.stdout + done.stderr


@pytest.mark.parametrize("is_on, shown", [(True, "fine"), (False, "needs Python's global lock, which is off: leave out PYTHON_GIL=0")])
def test_an_interpreter_without_its_lock_is_refused(is_on, shown):
    code = f"""
import sys
sys._is_gil_enabled = lambda: {is_on}
try:
    import tivra
    print("fine")
except ImportError as error:
    print(error)
"""
    done = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True, timeout=60)
    assert shown in done.stdout, done.stdout + done.stderr


def test_the_package_has_the_librarys_version_and_library():
    import importlib.metadata

    assert tivra.__version__ == importlib.metadata.version("tivra")
