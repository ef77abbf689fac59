#!/usr/bin/python3
"""The bubble as a person uses it, in a composited headless desktop: the goo is bonded to
a window (--demo-bond at its middle); the question is typed into the bubble's field with
the keyboard and sent with Return; the stand-in agent's answer shows in the bubble with
a chip for each source it cites, read back through the accessibility bus; Escape
closes the bubble. A screenshot of the answered bubble is kept under build/cards-gallery.

Usage: application_cards_test.py ZORVANE PROBE WIDGET_APP GALLERY_FOLDER
"""

import json
import os
import signal
import subprocess
import sys
import tempfile
import threading

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from app_checks import check, read_text, summary, wait_for  # noqa: E402

STANDINS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "fixtures", "bin")
ANSWER = ("## Summary\nThe form asks for an **email** [[cite: form.txt | line 2]].\n\n"
          "| Field | Kind |\n|---|---|\n| Email | text |\n\n- checked by `make test` [[cite: notes.md]]\n")
SCENARIO = {"byPrompt": [{"contains": "What is this form?",
                          "turn": [{"init": True}, {"text": "Reading the window."}, {"result": ANSWER}]}],
            "turns": [[{"init": True}, {"result": "DONE"}]]}


def tree(probe, pid):
    """The application's accessible elements: (depth, role, title, description, value, frame)."""
    out = subprocess.run([probe, "tree", str(pid)], capture_output=True, text=True, timeout=30).stdout
    elements = []
    for line in out.splitlines():
        depth = (len(line) - len(line.lstrip(" "))) // 2
        fields = line.strip(" ").split("\t")
        if len(fields) != 5:
            continue
        frame = tuple(float(v) for v in fields[4].split(",")) if fields[4] else None
        elements.append((depth, fields[0], fields[1], fields[2], fields[3], frame))
    return elements


def shown(elements, role, title):
    """The first element on screen with this role and title."""
    return next((e for e in elements if e[1] == role and e[2] == title and e[5] and e[5][2] > 0), None)


def xdotool(*args):
    return subprocess.run(["xdotool", *map(str, args)], capture_output=True, text=True, timeout=30).stdout


def main(argv):
    if len(argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    zorvane, probe, widget_app, gallery = (os.path.abspath(a) for a in argv[1:])
    work = tempfile.mkdtemp(prefix="zorvane-cards-")
    config = os.path.join(work, "config")
    os.makedirs(os.path.join(config, "zorvane"))
    with open(os.path.join(config, "zorvane", "settings.json"), "w") as f:
        json.dump({"onboarded": True}, f)
    scenario = os.path.join(work, "scenario.json")
    with open(scenario, "w") as f:
        json.dump(SCENARIO, f)
    env = dict(os.environ, XDG_DATA_HOME=os.path.join(work, "data"), XDG_STATE_HOME=os.path.join(work, "state"),
               XDG_CONFIG_HOME=config, STANDIN_SCENARIO=scenario, STANDIN_STATE_DIR=os.path.join(work, "standin"),
               PATH=STANDINS + os.pathsep + os.environ.get("PATH", ""))
    log = os.path.join(work, "state", "zorvane", "zorvane.log")
    started = []
    try:
        widget = subprocess.Popen([widget_app, "--at", "20,60"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                  text=True)
        started.append(widget)
        lines = []
        threading.Thread(target=lambda: [lines.append(l.strip()) for l in widget.stdout], daemon=True).start()
        check(wait_for(lambda: any(l.startswith("window ") for l in lines), 30), "the window to bond to shows")
        app = subprocess.Popen([zorvane, "--demo-bond", "200,180"], env=env, stdout=subprocess.DEVNULL,
                               stderr=subprocess.PIPE, text=True, start_new_session=True)
        started.append(app)
        errors = []
        threading.Thread(target=lambda: [errors.append(l.strip()) for l in app.stderr], daemon=True).start()

        field = wait_for(lambda: shown(tree(probe, app.pid), "AXTextField", "Ask Claude Code\u2026"), 30)
        check(field is not None, "the bubble opens with its ask field named for the agent (%s)" %
              " | ".join(read_text(log).splitlines()[-3:]))
        if field is None:
            return summary()
        heading = shown(tree(probe, app.pid), "AXHeading", "What should I do?")
        check(heading is not None, "the bubble asks what to do")

        xdotool("type", "--delay", "20", "What is this form?")
        xdotool("key", "Return")
        chip = wait_for(lambda: shown(tree(probe, app.pid), "AXButton", "form.txt line 2"), 30)
        elements = tree(probe, app.pid)
        check(chip is not None and shown(elements, "AXButton", "notes.md") is not None,
              "the answer shows a chip for each cited source")
        document = next((e for e in elements if e[1] == "AXWebArea" and e[5]), None)
        check(document is not None and "Summary" in document[2] and "form.txt line 2" in document[2]
              and "**" not in document[2], "the answer reads as text, its sources named (%s)" %
              (document[2] if document else None))
        check(shown(elements, "AXStaticText", "What is this form?") is not None, "the question stands above it")
        check(not any(l.startswith("typed") for l in lines), "the typing went to the bubble, not to the window below")

        os.makedirs(gallery, exist_ok=True)
        try:
            from PIL import ImageGrab
            ImageGrab.grab().save(os.path.join(gallery, "answer.png"))
        except Exception as error:  # the screenshot is evidence, not a check
            print("no screenshot: %s" % error)

        if chip:
            x, y, w, h = chip[5]
            xdotool("mousemove", int(x + w / 2), int(y + h / 2))
            xdotool("click", 1)
        bubble_name = "^zorvane_qt_widget_app \u2014 Zorvane Qt test$"
        check(xdotool("search", "--onlyvisible", "--name", bubble_name).strip() != "", "the bubble is on screen")
        xdotool("key", "Escape")
        check(wait_for(lambda: xdotool("search", "--onlyvisible", "--name", bubble_name).strip() == "", 10),
              "Escape closes the bubble")
        app.send_signal(signal.SIGTERM)
        app.wait(timeout=30)
        qml = [e for e in errors if "qrc:" in e or "QML" in e]
        check(not qml, "no QML warning on stderr (%s)" % qml[:3])
    finally:
        for process in reversed(started):
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    process.kill()
    return summary()


if __name__ == "__main__":
    sys.exit(main(sys.argv))
