"""What the application's integration tests share: a named check that prints ok or
FAIL and is counted, waiting on a condition with a time limit, and reading the log."""

import time

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
