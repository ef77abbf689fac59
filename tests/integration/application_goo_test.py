#!/usr/bin/python3
"""The goo pulled with the mouse, as a user does it, in a composited headless desktop:

- a short tug on the notch bonds nothing;
- a pull from the notch, in small steps, onto a file's row in Thunar's details view
  bonds a `file` piece to that file;
- a drag from that piece's knot onto a Chromium window gives the piece a second target
  (its scope file lists both);
- a second piece pulled onto Chromium, then the first piece's knot dragged onto it,
  links the two;
- with the notch and a piece on a window shown, a click on that window's check box under
  the piece's overlay still reaches the check box (read back through the accessibility
  bus).

Along the way every goo on screen is stopped on its frame (SIGUSR1 with --ink-dump),
the screen is captured and each panel is compared with the CPU reference renderer
(zorvane-ink --cpu); the screenshots and references are kept in <gallery> with an
index.html to look at.

Run by tests/desktop/file_manager_desktop.sh thunar with ZORVANE_DESKTOP_COMPOSITOR=1
(which makes the headless desktop with a compositor, Thunar's bus services and a fresh
HOME in its details view); it passes a gtest filter first, which this script ignores.

usage: application_goo_test.py [--gtest_filter=...] <zorvane> <zorvane-probe> <zorvane-ink>
       <qt-widget-app> <gallery>
"""

import glob
import html
import json
import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

from PIL import Image, ImageChops, ImageGrab

from app_checks import check, drag, file_row_point, geometry, read_text, summary, wait_for, xdotool

HERE = os.path.dirname(os.path.abspath(__file__))
STANDINS = os.path.join(os.path.dirname(HERE), "fixtures", "bin")
CLAUDE_SCENARIO = {"turns": [[{"init": True}, {"text": "Reading."}, {"echoPrompt": True}]]}


def window_of(*search):
    ids = xdotool("search", "--sync", "--onlyvisible", *search).split()
    return ids[-1] if ids else None


class Gallery:
    """Stops the goo, captures the screen and compares each panel with the reference."""

    def __init__(self, app, log, dump, ink, folder):
        self.app, self.log, self.dump, self.ink, self.folder = app, log, dump, ink, folder
        self.shots = []
        shutil.rmtree(folder, ignore_errors=True)
        os.makedirs(folder)

    def shot(self, name, panels):
        frozen = read_text(self.log).count("ink frozen:")
        for stale in glob.glob(os.path.join(self.dump, "*.json")):
            os.remove(stale)
        self.app.send_signal(signal.SIGUSR1)
        ok = wait_for(lambda: read_text(self.log).count("ink frozen:") > frozen, 10)
        screen = self.stable_screen() if ok else None
        running = read_text(self.log).count("ink running")
        self.app.send_signal(signal.SIGUSR1)
        wait_for(lambda: read_text(self.log).count("ink running") > running, 10)
        if screen is None:
            check(False, "%s: the goo stops for the screenshot" % name)
            return
        index = len(self.shots) + 1
        screen.save(os.path.join(self.folder, "%02d-%s-screen.png" % (index, name)))
        self.cards = self.card_frames()
        compared = []
        for path in sorted(glob.glob(os.path.join(self.dump, "*.json"))):
            with open(path, encoding="utf-8") as f:
                scene = json.load(f)
            if scene["panel"] not in panels or not (scene.get("blobs") or scene.get("capsules") or scene.get("boxes")):
                continue
            compared.append(self.compare(index, name, scene, path, screen))
        self.shots.append((index, name, compared))
        check(sum(c["pixels"] for c in compared) >= 100 and all(c["ok"] for c in compared),
              "%s: the screen matches the reference renderer (%s)" % (
                  name, ", ".join("%s %.0f%% of %d goo pixels" % (c["panel"], c["agree"] * 100, c["pixels"])
                                  for c in compared) or "no goo"))

    def card_frames(self):
        """The frames of the application's visible windows that are not goo panels:
        the cards, which stand in front of the goo."""
        ids = subprocess.run(["xdotool", "search", "--onlyvisible", "--pid", str(self.app.pid)],
                             capture_output=True, text=True, timeout=20).stdout.split()
        goo = {"Zorvane", "drag layer", "goo overlay", "knot", "tentacles"}
        frames = []
        for window in ids:
            name = subprocess.run(["xdotool", "getwindowname", window], capture_output=True, text=True,
                                  timeout=20).stdout.strip()
            if name and name not in goo:
                frames.append(geometry(window))
        return frames

    def stable_screen(self):
        """The screen once two captures in a row are the same: the compositor has shown
        the last frames."""
        last = ImageGrab.grab()
        for _ in range(20):
            time.sleep(0.05)
            now = ImageGrab.grab()
            if ImageChops.difference(now, last).getbbox() is None:
                return now
            last = now
        return last

    def compare(self, index, name, scene, path, screen):
        panel = scene["panel"]
        label = re.sub(r"[^A-Za-z0-9]+", "-", panel).strip("-").lower()
        reference = os.path.join(self.folder, "%02d-%s-%s-reference.png" % (index, name, label))
        subprocess.run([self.ink, "--cpu", path, reference], check=True, timeout=120)
        ref = Image.open(reference).convert("RGBA")
        x, y, w, h = (int(round(v)) for v in scene["frame"])
        crop = screen.crop((x, y, x + ref.width, y + ref.height)).convert("RGB")
        crop.save(os.path.join(self.folder, "%02d-%s-%s-screen.png" % (index, name, label)))
        # Where the reference is opaque goo the screen must show the same colour; where
        # it is partly transparent the desktop below mixes in, so those pixels are left.
        # A card (a bubble) in front of the goo hides it there: those pixels are left too.
        pixels = agree = 0
        ref_data, crop_data = ref.getdata(), crop.getdata()
        for i, ((r, g, b, a), (sr, sg, sb)) in enumerate(zip(ref_data, crop_data)):
            if a < 250:
                continue
            px, py = x + i % ref.width, y + i // ref.width
            if any(cx <= px < cx + cw and cy <= py < cy + ch for cx, cy, cw, ch in self.cards):
                continue
            pixels += 1
            if max(abs(r - sr), abs(g - sg), abs(b - sb)) <= 40:
                agree += 1
        fraction = agree / pixels if pixels else 0
        return {"panel": panel, "pixels": pixels, "agree": fraction, "ok": pixels < 10 or fraction >= 0.9,
                "reference": os.path.basename(reference)}

    def write_index(self):
        rows = []
        for index, name, compared in self.shots:
            screen = "%02d-%s-screen.png" % (index, name)
            cells = "".join('<td><img src="%s"><br>%s: %.0f%% of %d goo pixels agree</td>' % (
                html.escape(c["reference"]), html.escape(c["panel"]), c["agree"] * 100, c["pixels"]) for c in compared)
            rows.append('<tr><th>%s</th><td><img src="%s" width="640"></td>%s</tr>' % (
                html.escape(name), html.escape(screen), cells))
        with open(os.path.join(self.folder, "index.html"), "w", encoding="utf-8") as f:
            f.write("<!doctype html><title>Zorvane goo gallery</title><h1>Screen and CPU reference</h1>"
                    "<table border=1>%s</table>\n" % "".join(rows))


def main(argv):
    argv = [a for a in argv if not a.startswith("--gtest")]
    if len(argv) != 5:
        print(__doc__, file=sys.stderr)
        return 2
    zorvane, probe, ink, widget_app, gallery_folder = (os.path.abspath(a) for a in argv)
    home = os.environ["HOME"]
    folder = os.path.join(home, "Documents")
    os.makedirs(folder, exist_ok=True)
    note = os.path.join(folder, "meeting notes.txt")
    with open(note, "w") as f:
        f.write("Budget review on Friday.\n")
    work = tempfile.mkdtemp(prefix="zorvane-goo-")
    page = os.path.join(work, "page.html")
    with open(page, "w") as f:
        f.write("<!doctype html><title>Plans</title><h1>Plans for the week</h1>")

    started = []
    try:
        thunar = subprocess.Popen(["thunar", folder], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        started.append(thunar)
        chromium = subprocess.Popen(
            ["chromium", "--no-sandbox", "--disable-gpu", "--no-first-run", "--no-default-browser-check",
             "--disable-background-networking", "--disable-component-update", "--disable-sync",
             "--password-store=basic", "--user-data-dir=" + os.path.join(work, "chromium"),
             "--window-position=20,420", "--window-size=440,340", "file://" + page],
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        started.append(chromium)
        files_window = window_of("--class", "Thunar")
        check(files_window is not None, "Thunar shows its window")
        if files_window is None:
            return summary()
        # Top right, clear of Chromium's window and of the bubble beside it.
        xdotool("windowmove", files_window, 370, 30)
        point = wait_for(lambda: file_row_point(probe, note), 30)
        check(point is not None, "the file's row is found in Thunar's window")
        browser_window = wait_for(lambda: window_of("--class", "chromium"), 60)
        check(browser_window is not None, "Chromium shows its window")
        if point is None or browser_window is None:
            return summary()
        row = tuple(int(v) for v in point.split(","))
        bx, by, bw, bh = geometry(browser_window)
        browser_middle = (bx + bw // 2, by + bh // 2)
        run_app(zorvane, probe, ink, widget_app, gallery_folder, work, row, note, browser_middle, started)
    finally:
        for process in reversed(started):
            if process.poll() is None:
                process.terminate()
                try:
                    process.wait(timeout=10)
                except subprocess.TimeoutExpired:
                    process.kill()
    return summary()


def run_app(zorvane, probe, ink, widget_app, gallery_folder, work, row, note, browser_middle, started):
    data = os.path.join(work, "data")
    dump = os.path.join(work, "dump")
    os.makedirs(dump)
    env = dict(os.environ, XDG_DATA_HOME=data, XDG_STATE_HOME=os.path.join(work, "state"),
               XDG_CONFIG_HOME=os.path.join(work, "config"), STANDIN_STATE_DIR=os.path.join(work, "standin"),
               PATH=STANDINS + os.pathsep + os.environ.get("PATH", ""))
    scenario = os.path.join(work, "scenario.json")
    with open(scenario, "w") as f:
        json.dump(CLAUDE_SCENARIO, f)
    env["STANDIN_SCENARIO"] = scenario
    log = os.path.join(work, "state", "zorvane", "zorvane.log")
    app = subprocess.Popen([zorvane, "--ink-dump", dump], env=env, stdout=subprocess.DEVNULL,
                           stderr=subprocess.DEVNULL, start_new_session=True)
    started.append(app)
    check(wait_for(lambda: "agents: [" in read_text(log), 30), "the application starts and finds its agents")
    band = re.search(r"notch relayout: \((\d+), (\d+), (\d+), (\d+)\)", read_text(log))
    check(band is not None, "the notch is placed")
    if band is None:
        return
    nx, ny, nw, nh = (int(v) for v in band.groups())
    notch = (nx + nw // 2, ny + nh // 2)
    gallery = Gallery(app, log, dump, ink, gallery_folder)
    goo = {"Zorvane", "drag layer", "goo overlay", "knot", "tentacles"}

    xdotool("mousemove", 20, 790)
    time.sleep(0.3)
    gallery.shot("notch-at-rest", goo)

    bonds = lambda: len(re.findall(r"Z bond .*? frame=", read_text(log)))
    drag(notch, (notch[0], notch[1] + 30), steps=10)
    check(wait_for(lambda: "reached=false" in read_text(log), 10) and bonds() == 0,
          "a short tug that doesn't pinch bonds nothing")

    def mid_pull(step):
        if step == 25:
            gallery.shot("mid-pull", goo)
    drag(notch, row, midway=mid_pull)
    time.sleep(0.15)
    gallery.shot("just-after-the-drop", goo)
    bonded = wait_for(lambda: re.search(r"Z bond (file:.*?) frame=", read_text(log)), 15)
    check(bonded is not None and bonded.group(1) == "file:" + note,
          "the pull bonds a file piece to the file under the goo (%s)" % (bonded.group(1) if bonded else "nothing"))
    time.sleep(1.5)
    gallery.shot("settled-cover", goo)

    # The piece's knot: the 40-point handle panel nearest the file's row.
    knots = [geometry(w) for w in xdotool("search", "--onlyvisible", "--name", "^knot$").split()]
    knots.sort(key=lambda g: abs(g[0] - row[0]) + abs(g[1] - row[1]))
    check(len(knots) >= 1, "the piece shows its knot")
    if not knots:
        return
    kx, ky, kw, kh = knots[0]
    knot = (kx + kw // 2, ky + kh // 2)

    def mid_arm(step):
        if step == 30:
            gallery.shot("tentacle", goo)
    drag(knot, browser_middle, midway=mid_arm)
    scopes = lambda: [read_text(p) for p in glob.glob(os.path.join(data, "zorvane", "sessions", "*", "scope.json"))]
    # The file piece's scope (its working folder is the file's) now lists Chromium's window.
    def arm_attached():
        for text in scopes():
            scope = json.loads(text) if text else {}
            if scope.get("workDir") == os.path.dirname(note) and any(
                    e.get("bundleID") == "org.chromium.Chromium" for e in scope.get("entries", [])):
                return True
        return False
    check(wait_for(arm_attached, 15), "the arm from the knot gives the piece Chromium as a second target (%s)" % scopes())
    time.sleep(1.0)
    gallery.shot("tentacle-settled", goo)

    drag(notch, browser_middle)
    check(wait_for(lambda: bonds() >= 2, 15), "a second piece is pulled onto Chromium")
    time.sleep(1.0)
    gallery.shot("settled-border", goo)
    drag(knot, browser_middle)
    check(wait_for(lambda: re.search(r"linked .* <-> ", read_text(log)), 15),
          "the first piece's arm dropped on the second piece's target links the two")

    # A window with a check box under a piece's overlay: the click goes through.
    widget = subprocess.Popen([widget_app, "--at", "20,60"], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              stdin=subprocess.PIPE, text=True)
    started.append(widget)
    lines = []
    threading.Thread(target=lambda: [lines.append(l.strip()) for l in widget.stdout], daemon=True).start()
    wait_for(lambda: any(l.startswith("window ") for l in lines) and any(l.startswith("layout check") for l in lines),
             30)
    window_id = next((l.split()[1] for l in lines if l.startswith("window ")), None)
    layout = next((l for l in lines if l.startswith("layout check")), None)
    check(window_id is not None and layout is not None, "the check box window shows")
    if not layout:
        return
    wx, wy, ww, wh = geometry(window_id)
    _, _, cx, cy, cw, ch = layout.split()
    box = (wx + int(cx) + 8, wy + int(cy) + int(ch) // 2)
    drag(notch, (wx + ww // 2, wy + wh // 2))
    check(wait_for(lambda: bonds() >= 3, 15), "a piece is pulled onto the check box window (%s; window %s at %s)" % (
        " | ".join(read_text(log).splitlines()[-4:]), window_id, (wx, wy, ww, wh)))
    time.sleep(1.0)
    gallery.shot("over-a-window", goo)
    xdotool("mousemove", *box)
    time.sleep(0.2)
    xdotool("click", 1)
    checked = wait_for(lambda: "checked 1" in lines, 10)
    element = subprocess.run([probe, "element", "%d,%d" % box], capture_output=True, text=True, timeout=30).stdout
    check(checked and "value: 1" in element,
          "a click under the piece's overlay reaches the check box (%s; clicked at %s; %s)" % (
              element.replace("\n", "; "), box, [l for l in lines if l.startswith("layout")]))

    app.send_signal(signal.SIGTERM)
    try:
        app.wait(timeout=30)
    except subprocess.TimeoutExpired:
        os.killpg(app.pid, signal.SIGKILL)
    gallery.write_index()
    print("gallery: " + os.path.join(gallery_folder, "index.html"))
    try:
        with open(os.path.join(data, "zorvane", "live-pieces.json"), encoding="utf-8") as f:
            pieces = json.load(f)
    except (OSError, ValueError):
        pieces = []
    check(len(pieces) == 3, "the three pieces are saved at quit (%d)" % len(pieces))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
