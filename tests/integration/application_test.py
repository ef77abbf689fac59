"""The real application, run as a user would: inside a headless desktop, with the
stand-in agents first on PATH and a throwaway home.

  1. `--demo-peers A B "ask the other folder ..."` bonds both folders, links them; A's
     agent calls ask_piece through its real tool server and the real peer socket, B
     answers, A's turn ends. After SIGTERM the stores hold both conversations, the
     message and its reply, and both live pieces; no agent process is left.
  2. A second start while the first runs says so and exits 0.
  3. The next start offers the two pieces back.
  4. A malformed --demo-bond point is logged and bonds nothing.
  5. Without a display the application says so in one line and exits non-zero.

usage: application_test.py <zorvane>   (run inside scripts/headless-desktop.sh)
"""

import json
import os
import signal
import subprocess
import sys
import tempfile

from app_checks import check, failures, read_text, summary, wait_for

HERE = os.path.dirname(os.path.abspath(__file__))
STANDINS = os.path.join(os.path.dirname(HERE), "fixtures", "bin")
SKIPPED = 77

SCENARIO = {
    "byPrompt": [{"contains": "ask the other folder", "turn": [
        {"init": True},
        {"mcpCall": {"tool": "ask_piece", "arguments": {"message": "What do you hold?"}}},
        {"result": "The other folder holds b.txt."}]}],
    "turns": [[{"init": True}, {"text": "Looking."}, {"result": "I hold b.txt."}]],
}



def read_json(path):
    try:
        with open(path, encoding="utf-8") as f:
            return json.load(f)
    except (OSError, ValueError):
        return None


def standins_running(log_dir):
    """Processes of this test's stand-in agents still alive (found by their environment)."""
    mark = ("STANDIN_LOG_DIR=" + log_dir).encode()
    alive = []
    for pid in filter(str.isdigit, os.listdir("/proc")):
        try:
            with open("/proc/%s/environ" % pid, "rb") as f:
                if mark in f.read().split(b"\0"):
                    alive.append(pid)
        except OSError:
            pass
    return alive


def main(argv):
    if len(argv) != 1:
        print("usage: application_test.py <zorvane>", file=sys.stderr)
        return 2
    zorvane = os.path.abspath(argv[0])
    if not os.environ.get("DISPLAY"):
        print("no display: run inside scripts/headless-desktop.sh")
        return SKIPPED

    root = tempfile.mkdtemp(prefix="zorvane-app-test-")
    home = os.path.join(root, "home")
    folders = [os.path.join(root, name) for name in ("A", "B")]
    for folder, name in zip(folders, ("a.txt", "b.txt")):
        os.makedirs(folder)
        with open(os.path.join(folder, name), "w") as f:
            f.write(name)
    scenario = os.path.join(root, "scenario.json")
    with open(scenario, "w") as f:
        json.dump(SCENARIO, f)
    log_dir = os.path.join(root, "standin-log")
    env = dict(os.environ, HOME=home, XDG_DATA_HOME=home + "/data", XDG_STATE_HOME=home + "/state",
               XDG_CONFIG_HOME=home + "/config", STANDIN_SCENARIO=scenario, STANDIN_LOG_DIR=log_dir,
               PATH=STANDINS + os.pathsep + os.environ.get("PATH", ""))
    data = home + "/data/zorvane"
    log_path = home + "/state/zorvane/zorvane.log"

    def log_text():
        return read_text(log_path)

    # 1. Two linked pieces talk through the real socket.
    app = subprocess.Popen([zorvane, "--demo-peers", folders[0], folders[1], "ask the other folder what it holds"],
                           env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
    try:
        answered = wait_for(lambda: "answer [A]:" in log_text(), 30)
        check(answered, "piece A's turn ended after asking piece B")

        # 2. A second instance meets the first on the socket.
        second = subprocess.run([zorvane], env=env, capture_output=True, text=True, timeout=30)
        check(second.returncode == 0 and "Zorvane is already running." in second.stdout,
              "a second start says Zorvane is already running and exits 0")
    finally:
        app.send_signal(signal.SIGTERM)
        try:
            code = app.wait(timeout=30)
        except subprocess.TimeoutExpired:
            os.killpg(app.pid, signal.SIGKILL)
            code = app.wait()
    check(code == 0, "SIGTERM ends the application with exit 0 (got %s)" % code)

    activity = read_json(data + "/activity.json") or []
    kinds = [(e.get("kind"), e.get("actor")) for e in activity]
    check(("message", "A → B") in kinds and ("reply", "B → A") in kinds, "activity.json has the message and reply")
    sessions = read_json(data + "/sessions.json") or []
    check(sorted(r.get("displayName") for r in sessions) == ["A", "B"], "sessions.json has both conversations")
    pieces = read_json(data + "/live-pieces.json") or []
    check(sorted(p.get("displayName") for p in pieces) == ["A", "B"], "live-pieces.json has both pieces at quit")
    check(wait_for(lambda: not standins_running(log_dir), 5), "no agent process outlives its piece")

    # 3 and 4. The next start offers them back; a malformed point bonds nothing.
    app = subprocess.Popen([zorvane, "--demo-bond", "12"], env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           start_new_session=True)
    try:
        check(wait_for(lambda: "pending restore: [A, B]" in log_text() or "pending restore: [B, A]" in log_text(), 20),
              "the next start offers both pieces back")
        check(wait_for(lambda: 'demo-bond: "12" is not a point' in log_text(), 20),
              "a malformed --demo-bond point is logged")
    finally:
        app.send_signal(signal.SIGTERM)
        app.wait(timeout=30)
    pieces = read_json(data + "/live-pieces.json") or []
    check(sorted(p.get("displayName") for p in pieces) == ["A", "B"],
          "pieces not yet brought back stay offered for the next start")

    # 5. No display.
    bare = dict(env)
    bare.pop("DISPLAY", None)
    run = subprocess.run([zorvane], env=bare, capture_output=True, text=True, timeout=30)
    lines = [line for line in run.stderr.splitlines() if line.strip()]
    check(run.returncode != 0 and len(lines) == 1 and "display" in lines[0],
          "without a display it says so in one line and exits non-zero")

    if failures:
        print("--- application log ---")
        print(log_text()[-4000:])
    return summary()


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
