"""What the application's integration tests share: a named check that prints ok or
FAIL and is counted, waiting on a condition with a time limit, reading the log, and
finding a file's row in a Thunar window."""

import os
import subprocess
import time
import urllib.parse

failures, passes = [], []


def check(ok, what):
    print(("ok   " if ok else "FAIL ") + what)
    (passes if ok else failures).append(what)


def wait_for(predicate, seconds):
    deadline = time.time() + seconds
    while time.time() < deadline:
        value = predicate()
        if value:
            return value
        time.sleep(0.1)
    return predicate()


def read_text(path):
    try:
        with open(path, encoding="utf-8") as f:
            return f.read()
    except OSError:
        return ""


def summary():
    """The closing line the test runners read, and the exit code."""
    print("%d passed, %d failed" % (len(passes), len(failures)))
    return 1 if failures else 0


def file_row_point(probe, path):
    """A screen point over the file's row in Thunar's window, found by asking the drop
    resolver along a column of points."""
    search = subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--class", "Thunar"],
                            capture_output=True, text=True, timeout=20)
    windows = search.stdout.split()
    if not windows:
        return None
    geometry = subprocess.run(["xdotool", "getwindowgeometry", "--shell", windows[-1]],
                              capture_output=True, text=True, timeout=10).stdout
    values = dict(line.split("=", 1) for line in geometry.split() if "=" in line)
    x0, y0 = int(values["X"]), int(values["Y"])
    for dy in range(30, 400, 8):
        point = "%d,%d" % (x0 + 450, y0 + dy)  # the list, right of the side pane
        out = subprocess.run([probe, "resolve", point], capture_output=True, text=True, timeout=20).stdout
        if '"file"' in out and urllib.parse.quote(os.path.basename(path)) in out:
            return point
    return None
