#!/usr/bin/python3
"""The cards as a person meets them, run after run, in a composited headless desktop
with Thunar, every card read back through the accessibility bus:

1. first start with an empty home: the guide opens, is walked with Tab and Return to
   its end, and "onboarded" is saved;
2. a Codex piece bonded to a file in Thunar (--demo-bond over its row): a question typed
   into the bubble and sent with Return, keys typed while the agent works kept for the
   next question, the answer with a chip for each source, a click on the chip of a file
   the piece reaches by a tentacle flares that tentacle; the agent asks to run commands:
   Deny leaves the file alone, Allow changes it, "Allow all for this piece" lets the
   next act pass unasked, an irreversible one is still asked (with no Allow all), and
   audit.log holds every verdict; a failed turn shows its error;
3. after a restart the tray offers last run's piece and its button brings it back, in
   its old conversation;
4. a new bond on the same file offers to resume: "Continue" resumes the old
   conversation, and, on the next run, "Start fresh" does not.

A screenshot of every state is kept in <gallery> with an index.html.

Run by tests/desktop/file_manager_desktop.sh thunar with ZORVANE_DESKTOP_COMPOSITOR=1;
it passes a gtest filter first, which this script ignores.

usage: application_cards_test.py [--gtest_filter=...] <zorvane> <zorvane-probe> <gallery>
"""

import glob
import html
import json
import os
import re
import signal
import subprocess
import sys
import threading
import time

from app_checks import (check, click_element, drag, file_row_point, read_text, shown, summary, tree, wait_for,
                        xdotool)

HERE = os.path.dirname(os.path.abspath(__file__))
STANDINS = os.path.join(os.path.dirname(HERE), "fixtures", "bin")
ANSWER = ("## Summary\nThe form asks for a **signature** [[cite: form.txt | line 2]].\n\n"
          "| Field | Kind |\n|---|---|\n| Name | text |\n| Signature | text |\n\n"
          "```sh\ngrep -n Signature form.txt\n```\n\n- kept beside [[cite: notes.md]]\n")
SIGN = {"mcpCall": {"tool": "run_command", "arguments": {"command": "echo signed >> form.txt", "why": "Sign"}}}
REMOVE = {"mcpCall": {"tool": "run_command", "arguments": {"command": "rm notes.md", "why": "Tidy up"}}}


def turn(*actions):
    return [{"threadStarted": True}, {"turnStarted": True}, *actions, {"turnCompleted": True}]


SCENARIO = {
    "byPrompt": [
        {"contains": "What is this form?", "turn": turn({"sleep": 2.5}, {"agentMessage": ANSWER})},
        {"contains": "Sign the form", "turn": turn(SIGN, {"agentMessage": "Done."})},
        {"contains": "Sign once more", "turn": turn(SIGN, REMOVE, {"agentMessage": "Done."})},
        {"contains": "Break", "turn": [{"threadStarted": True}, {"turnStarted": True},
                                       {"turnFailed": "The model is overloaded."}]},
    ],
    "turns": [turn({"echo": True})],
}


class App:
    """One run of the application; its stderr is kept to find QML warnings."""

    def __init__(self, zorvane, env, *args):
        self.process = subprocess.Popen([zorvane, *args], env=env, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.PIPE, text=True, start_new_session=True)
        self.errors = []
        threading.Thread(target=lambda: [self.errors.append(l.strip()) for l in self.process.stderr],
                         daemon=True).start()

    def quit(self):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGTERM)
            try:
                self.process.wait(timeout=30)
            except subprocess.TimeoutExpired:
                os.killpg(self.process.pid, signal.SIGKILL)
                self.process.wait()
        return [e for e in self.errors if "qrc:" in e or "QML" in e]


class Gallery:
    def __init__(self, folder):
        self.folder = folder
        self.names = []
        os.makedirs(folder, exist_ok=True)

    def shot(self, name):
        xdotool("mousemove", 1270, 790)  # no tooltip in the picture
        time.sleep(0.5)  # the card's own motion settles
        try:
            from PIL import ImageGrab
            ImageGrab.grab().save(os.path.join(self.folder, name + ".png"))
            self.names.append(name)
        except Exception as error:  # the screenshots are evidence, not a check
            print("no screenshot of %s: %s" % (name, error))

    def write_index(self):
        # The states other tests draw into the same folder (the learn section's) come last.
        others = sorted(os.path.basename(p)[:-4] for p in glob.glob(os.path.join(self.folder, "*.png")))
        names = self.names + [n for n in others if n not in self.names]
        rows = "".join('<h2>%s</h2><img src="%s.png" width="720">\n' % (html.escape(n), html.escape(n))
                       for n in names)
        with open(os.path.join(self.folder, "index.html"), "w") as f:
            f.write("<!doctype html><title>Cards</title><body style='background:#444;color:#eee'>\n" + rows)


def main(argv):
    argv = [a for a in argv if not a.startswith("--gtest")]
    if len(argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    zorvane, probe, gallery_folder = (os.path.abspath(a) for a in argv)
    home = os.environ["HOME"]
    folder = os.path.join(home, "Documents")
    os.makedirs(folder, exist_ok=True)
    form, notes = os.path.join(folder, "form.txt"), os.path.join(folder, "notes.md")
    with open(form, "w") as f:
        f.write("Name:\nSignature:\n")
    with open(notes, "w") as f:
        f.write("# Notes\n")
    work = os.path.join(home, "work")
    os.makedirs(work)
    scenario = os.path.join(work, "scenario.json")
    with open(scenario, "w") as f:
        json.dump(SCENARIO, f)
    env = dict(os.environ, STANDIN_SCENARIO=scenario, STANDIN_STATE_DIR=os.path.join(work, "standin"),
               STANDIN_LOG_DIR=os.path.join(work, "starts"), PATH=STANDINS + os.pathsep + os.environ["PATH"])
    config = os.path.join(os.environ.get("XDG_CONFIG_HOME", os.path.join(home, ".config")), "zorvane")
    data = os.path.join(os.environ.get("XDG_DATA_HOME", os.path.join(home, ".local", "share")), "zorvane")
    gallery = Gallery(gallery_folder)
    cards = Cards(zorvane, probe, env, gallery)

    cards.walk_guide(os.path.join(config, "settings.json"))
    # The agent menu's choice, made ahead (and "onboarded", should the guide have failed).
    os.makedirs(config, exist_ok=True)
    with open(os.path.join(config, "settings.json"), "w") as f:
        json.dump({"onboarded": True, "selectedAgent": "codex"}, f)

    thunar = subprocess.Popen(["thunar", folder], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        rows = [wait_for(lambda p=p: file_row_point(probe, p), 30) for p in (form, notes)]
        check(None not in rows, "the files' rows are found in Thunar's window")
        if None not in rows:
            cards.ask_and_approve(rows, form, notes, data)
            cards.restore_from_tray(work)
            cards.resume(rows[0], work)
    finally:
        thunar.terminate()
        thunar.wait(timeout=10)
        gallery.write_index()
        print("gallery: " + os.path.join(gallery_folder, "index.html"))
    return summary()


class Cards:
    def __init__(self, zorvane, probe, env, gallery):
        self.zorvane, self.probe, self.env, self.gallery = zorvane, probe, env, gallery
        self.log = os.path.join(os.environ.get("XDG_STATE_HOME", os.path.join(os.environ["HOME"], ".local", "state")),
                                "zorvane", "zorvane.log")
        self.app = None

    def start(self, *args):
        self.mark = len(read_text(self.log))
        self.app = App(self.zorvane, self.env, *args)

    def logged(self):
        """What this run wrote to the log."""
        return read_text(self.log)[self.mark:]

    def quit(self, what):
        warnings = self.app.quit()
        check(not warnings, "%s: no QML warning on stderr (%s)" % (what, warnings[:3]))

    def find(self, role, title, seconds=30):
        return wait_for(lambda: shown(tree(self.probe, self.app.process.pid), role, title), seconds)

    def gone(self, role, title, seconds=30):
        return wait_for(lambda: shown(tree(self.probe, self.app.process.pid), role, title) is None, seconds)

    def elements(self):
        return tree(self.probe, self.app.process.pid)

    def press(self, element):
        """Clicks a button that goes away when it is pressed; a card still settling may
        move it from under the first click, so it is clicked again where it is now."""
        for _ in range(3):
            click_element(element)
            if self.gone(element[1], element[2], 5):
                return True
            element = shown(self.elements(), element[1], element[2]) or element
        return False

    def walk_guide(self, settings_path):
        self.start()
        check(wait_for(lambda: xdotool("getwindowfocus", "getwindowname").strip() == "Welcome to Zorvane", 20),
              "guide: it opens at first start with the keyboard")
        steps = []
        for step in range(1, 6):
            if step > 1:
                xdotool("key", "Return")
            found = self.find("AXStaticText", "Step %d of 5" % step, 20)
            steps.append(found is not None)
            if not found:
                break
            self.gallery.shot("guide-%d" % step)
            if step == 3:
                # Shift+Tab reaches Back: Return goes back a step, Tab and Return forward again.
                xdotool("key", "shift+Tab")
                xdotool("key", "Return")
                back = self.find("AXStaticText", "Step 2 of 5", 10) is not None
                xdotool("key", "Tab")
                xdotool("key", "Return")
                check(back and self.find("AXStaticText", "Step 3 of 5", 10) is not None,
                      "guide: Shift+Tab and Return go back a step, Tab and Return forward")
        check(all(steps) and len(steps) == 5, "guide: Return walks its five steps (%s)"
              % steps)
        xdotool("key", "Return")
        onboarded = wait_for(lambda: '"onboarded": true' in read_text(settings_path).replace('":true', '": true'), 10)
        check(onboarded, "guide: its last Return saves \"onboarded\" (%s)" % read_text(settings_path))
        check(wait_for(lambda: not xdotool("search", "--onlyvisible", "--name", "^Welcome to Zorvane$").strip(), 10),
              "guide: it closes at the end")
        self.quit("guide")

    def ask(self, question, paste_first=False):
        """Types a question into the bubble's field and sends it with Return; with
        `paste_first`, Ctrl+V comes first, from a clipboard nobody owns."""
        typed = lambda: (shown(self.elements(), "AXTextField", "Ask Codex\u2026") or [""] * 5)[4]
        for _ in range(2):  # a card still settling may move the field from under the first click
            field = self.settled("AXTextField", "Ask Codex\u2026")
            if field is None:
                return False
            click_element(field)
            xdotool("key", "ctrl+a")
            if paste_first:
                xdotool("key", "ctrl+v")
            xdotool("type", "--delay", "15", question)
            if wait_for(lambda: typed() == question, 5):
                break
        if paste_first:
            check(typed() == question, "bubble: a paste from an empty clipboard loses nothing typed (%r)" % typed())
        xdotool("key", "Return")
        return True

    def settled(self, role, title, seconds=30):
        """The element once its frame has stopped moving (the card grows and docks as its
        rows change)."""
        deadline = time.time() + seconds
        element = self.find(role, title, seconds)
        while element is not None and time.time() < deadline:
            time.sleep(0.3)
            again = shown(self.elements(), role, title)
            if again == element:
                return element
            element = again
        return element

    def ask_and_approve(self, rows, form, notes, data):
        self.start("--demo-bond", "%d,%d" % tuple(int(v) for v in rows[0].split(",")))
        field = self.find("AXTextField", "Ask Codex\u2026")
        check(field is not None, "bubble: it opens on the bond, its field named for the agent (%s)" %
              " | ".join(self.logged().splitlines()[-3:]))
        if field is None:
            return self.quit("bubble")
        self.gallery.shot("bubble-idle")

        # An arm from the knot to the notes gives the piece a second target to cite.
        knots = xdotool("search", "--onlyvisible", "--name", "^knot$").split()
        if knots:
            geometry = xdotool("getwindowgeometry", "--shell", knots[-1])
            values = dict(line.split("=", 1) for line in geometry.split() if "=" in line)
            knot = (int(values["X"]) + int(values["WIDTH"]) // 2, int(values["Y"]) + int(values["HEIGHT"]) // 2)
            drag(knot, tuple(int(v) for v in rows[1].split(",")))
        check(self.find("AXStaticText", "notes.md", 15) is not None,
              "bubble: the knot's arm reaches the notes, which the bubble lists")

        self.ask("What is this form?", paste_first=True)
        working = self.find("AXStaticText", "Thinking*", 10)
        check(working is not None, "bubble: the working line shows while the agent works")
        self.gallery.shot("bubble-working")
        xdotool("type", "--delay", "15", "and who signs")
        chip = self.find("AXButton", "notes.md")
        elements = self.elements()
        check(chip is not None and shown(elements, "AXButton", "form.txt line 2") is not None,
              "bubble: the answer shows a chip for each cited source")
        document = next((e for e in elements if e[1] == "AXWebArea" and e[5]), None)
        check(document is not None and "Summary" in document[2] and "**" not in document[2],
              "bubble: the answer reads as text (%s)" % (document[2][:80] if document else None))
        field = shown(elements, "AXTextField", "Ask Codex\u2026")
        check(field is not None and field[4] == "and who signs",
              "bubble: what was typed while the agent worked waits in the field (%r)" % (field[4] if field else None))
        self.gallery.shot("bubble-answer")
        if chip:
            click_element(chip)
            check(wait_for(lambda: "flare notes.md: 1 tentacle" in self.logged(), 10),
                  "bubble: the chip of the notes flares the arm that reaches them")

        original = read_text(form)
        audit = os.path.join(data, "audit.log")
        for verdict in ("Deny", "Allow", "Allow all for this piece"):
            self.ask("Sign the form, please.")
            button = self.find("AXButton", verdict, 30)
            card = self.elements()
            check(button is not None and shown(card, "AXStaticText", "Needs your OK") is not None
                  and shown(card, "AXStaticText", "Run \u201cecho signed >> form.txt\u201d*") is not None,
                  "approval: the agent's command is put to the user with its class and summary (%s)" % verdict)
            if verdict == "Deny":
                self.gallery.shot("approval")
            if verdict == "Allow":
                # By keys alone: the card holds the focus, Tab reaches Allow.
                focused = xdotool("getwindowfocus", "getwindowname").strip()
                xdotool("key", "Return")
                xdotool("key", "Tab", "Return")
                check(self.gone("AXButton", "Allow", 10), "approval: a stray Return allows nothing; Tab and Return "
                      "allow from the keyboard (keys went to %r)" % focused)
            elif button:
                self.press(button)
            self.find("AXTextField", "Ask Codex\u2026", 30)
        signed = read_text(form).count("signed")
        check(read_text(form).startswith(original) and signed == 2,
              "approval: Deny left the file alone, Allow and Allow all changed it (%d lines)" % signed)

        self.ask("Sign once more and tidy up.")
        deny = self.find("AXButton", "Deny", 30)
        card = self.elements()
        check(deny is not None and shown(card, "AXStaticText", "Can't be undone") is not None
              and shown(card, "AXButton", "Allow all for this piece") is None,
              "approval: after Allow all an irreversible command is still asked, without Allow all")
        check(read_text(form).count("signed") == 3, "approval: the act before it passed unasked")
        self.gallery.shot("approval-irreversible")
        if deny:
            self.press(deny)
        self.find("AXTextField", "Ask Codex\u2026", 30)
        check(os.path.exists(notes), "approval: denied, the notes stay")
        lines = [json.loads(l) for l in read_text(audit).splitlines() if l.strip()]
        verdicts = [(l.get("class"), l.get("allowed"), l.get("byTrust", False)) for l in lines]
        check(verdicts == [("act", False, False), ("act", True, False), ("act", True, False), ("act", True, True),
                           ("irreversible", False, False)],
              "approval: audit.log holds every verdict, the trusted one marked (%s)" % verdicts)

        self.ask("Break, please.")
        error = self.find("AXStaticText", "Error: *", 30)
        check(error is not None and "overloaded" in error[2], "bubble: a failed turn shows its error (%s)" %
              (error[2] if error else None))
        self.gallery.shot("bubble-error")
        self.quit("bubble")

    def codex_starts(self, work):
        starts = sorted(glob.glob(os.path.join(work, "starts", "codex-start-*.json")),
                        key=lambda p: int(re.search(r"(\d+)\.json$", p).group(1)))
        return [json.loads(read_text(p)).get("args", []) for p in starts]

    def threads(self, work):
        try:
            return set(json.loads(read_text(os.path.join(work, "standin", "threads.json"))))
        except ValueError:
            return set()

    def restore_from_tray(self, work):
        known = self.threads(work)
        self.start()
        button = self.find("AXButton", "Bring them back", 30)
        check(button is not None and shown(self.elements(), "AXStaticText", "form.txt") is not None,
              "tray: after a restart it offers last run's piece by name")
        self.gallery.shot("tray-restore")
        if button is None:
            return self.quit("tray")
        self.press(button)
        check(wait_for(lambda: "session resume" in self.logged(), 20), "tray: its button brings the piece back")
        knots = []
        wait_for(lambda: knots.extend(xdotool("search", "--onlyvisible", "--name", "^knot$").split()) or knots, 10)
        if knots:
            values = dict(l.split("=", 1) for l in xdotool("getwindowgeometry", "--shell", knots[-1]).split() if "=" in l)
            xdotool("mousemove", int(values["X"]) + 20, int(values["Y"]) + 20)
            xdotool("click", 1)
        before = len(self.codex_starts(work))
        self.ask("Are you back?")
        wait_for(lambda: len(self.codex_starts(work)) > before, 30)
        starts = self.codex_starts(work)[before:]
        check(len(starts) == 1 and "resume" in starts[0] and starts[0][starts[0].index("resume") + 1] in known,
              "tray: the piece it brought back continues its old conversation (%s)" % [s[-3:] for s in starts])
        retire = self.find("AXButton", "Retire this piece", 10)
        if retire:
            self.press(retire)
        check(self.gone("AXTextField", "Ask Codex\u2026", 10), "bubble: the retire button closes the piece")
        self.quit("tray")

    def resume(self, row, work):
        for answer in ("Continue", "Start fresh"):
            self.start("--demo-bond", row)
            button = self.find("AXButton", answer, 30)
            check(button is not None and shown(self.elements(), "AXGroup", "You've worked here before") is not None,
                  "resume: a new bond on the file offers its earlier conversation")
            if answer == "Continue":
                self.gallery.shot("resume")
            if button is None:
                self.quit("resume")
                continue
            self.press(button)
            known = self.threads(work)
            before = len(self.codex_starts(work))
            # The user works in Thunar a moment: a click into the field brings the keys back.
            thunar = xdotool("search", "--onlyvisible", "--class", "Thunar").split()
            if thunar:
                xdotool("windowactivate", "--sync", thunar[-1])
            asked = self.ask("Still there?")
            wait_for(lambda: len(self.codex_starts(work)) > before, 30)
            starts = self.codex_starts(work)[before:]
            resumed = "resume" in starts[0] and starts[0][starts[0].index("resume") + 1] in known if starts else None
            check(len(starts) == 1 and resumed == (answer == "Continue"),
                  "resume: \"%s\" %s the old conversation (%s; asked %s; %s)" % (
                      answer, "continues" if answer == "Continue" else "leaves", [s[-3:] for s in starts], asked,
                      " | ".join(self.logged().splitlines()[-4:])))
            self.quit("resume")


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
