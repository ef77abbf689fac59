"""What the application's integration tests share: a named check that prints ok or
FAIL and is counted, waiting on a condition with a time limit, reading the log, finding
a file's row in a Thunar window, driving the pointer and keyboard with xdotool, and
reading the application's own windows back through the accessibility bus."""

import os
import re
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


def xdotool(*args):
    return subprocess.run(["xdotool", *[str(a) for a in args]], capture_output=True, text=True,
                          timeout=20).stdout


def geometry(window):
    """The window's client area in screen pixels, as the X server tells it."""
    out = subprocess.run(["xwininfo", "-id", str(window)], capture_output=True, text=True, timeout=20).stdout
    value = lambda name: int(re.search(name + r":\s+(-?\d+)", out).group(1))
    return value("Absolute upper-left X"), value("Absolute upper-left Y"), value("Width"), value("Height")


def drag(start, end, steps=40, pause=0.015, midway=None):
    """Presses at `start`, moves to `end` in small steps and releases; `midway(step)` is
    called after each step and may take a screenshot."""
    xdotool("mousemove", *start)
    time.sleep(0.1)  # the notch polls the pointer 30 times a second before it takes it
    xdotool("mousedown", 1)
    for step in range(1, steps + 1):
        x = start[0] + (end[0] - start[0]) * step // steps
        y = start[1] + (end[1] - start[1]) * step // steps
        xdotool("mousemove", x, y)
        time.sleep(pause)
        if midway:
            midway(step)
    time.sleep(0.4)  # the goo's tip catches up with the pointer
    xdotool("mouseup", 1)


def tree(probe, pid):
    """A process's accessible elements in its windows on screen, as `zorvane-probe tree`
    lists them: (depth, role, title, description, value, frame); frame is (x, y, width,
    height) or None. A hidden window keeps its elements and frames on the bus; they are
    left out, as a screen reader leaves them out."""
    out = subprocess.run([probe, "tree", str(pid)], capture_output=True, text=True, timeout=30).stdout
    mapped = set()
    for window in xdotool("search", "--onlyvisible", "--pid", pid).split():
        mapped.add(xdotool("getwindowname", window).strip())
    elements, showing = [], False
    for line in out.splitlines():
        depth = (len(line) - len(line.lstrip(" "))) // 2
        fields = line.strip(" ").split("\t")
        if len(fields) != 5:
            continue
        if depth == 0:
            showing = fields[1] in mapped
        if not showing:
            continue
        frame = tuple(float(v) for v in fields[4].split(",")) if fields[4] else None
        elements.append((depth, fields[0], fields[1], fields[2], fields[3], frame))
    return elements


def shown(elements, role, title):
    """The first element on screen with this role and title (a title ending in "*" matches
    its beginning)."""
    matches = (lambda t: t.startswith(title[:-1])) if title.endswith("*") else (lambda t: t == title)
    return next((e for e in elements if e[1] == role and matches(e[2]) and e[5] and e[5][2] > 0), None)


def click_element(element):
    """A left click at the middle of an element of `tree`."""
    x, y, w, h = element[5]
    xdotool("mousemove", int(x + w / 2), int(y + h / 2))
    time.sleep(0.1)
    xdotool("click", 1)
