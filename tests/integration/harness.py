"""What the checks of `zorvane --selftest` against the real agent CLIs share
(real_claude_test.py, real_codex_test.py, real_pi_test.py).

Each check links the real CLI first on PATH in a throwaway work folder, starts a scripted
model server from tests/fixtures on loopback, runs the selftest in its own process group
with a time limit, and judges its output, the folder and the server's request log. This
module has the finding, the work folder, the server, the environment and the run; a test
keeps its CLI's configuration, its model script and its checks.
"""

import json
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
FIXTURES = os.path.join(os.path.dirname(HERE), "fixtures")
MODEL_SERVER = os.path.join(FIXTURES, "model_server.py")          # Messages API
RESPONSES_SERVER = os.path.join(FIXTURES, "responses_server.py")  # Responses API
SELFTEST_TIMEOUT = 200
SERVER_LIFETIME = 260
SKIPPED = 77  # the exit code that tells ctest the check was skipped

# What each script has the model do: rename a.txt through Zorvane's run_command tool.
TOOL = "mcp__zorvane__run_command"
RENAME = {"command": "mv a.txt b.txt", "why": "Rename a.txt to b.txt"}


def arguments(argv, script_name, variable, default_cli, skipped):
    """(zorvane, cli, None) when the test can run; else (None, None, its exit code) after
    saying why: 1 for a bad command line or a missing zorvane, SKIPPED after printing the
    line skipped when the real CLI (find_cli) isn't installed."""
    if len(argv) != 1:
        print("usage: %s <path-to-zorvane-executable>" % script_name, file=sys.stderr)
        return None, None, 1
    zorvane = os.path.abspath(argv[0])
    cli = find_cli(variable, default_cli)
    if cli is None:
        print(skipped)
        return None, None, SKIPPED
    if not (os.path.isfile(zorvane) and os.access(zorvane, os.X_OK)):
        print("FAIL: zorvane executable not found at %s" % zorvane)
        return None, None, 1
    return zorvane, cli, None


def find_cli(variable, default):
    """The real CLI: the environment variable's path if set, else the default; None when
    it isn't an executable file."""
    path = os.environ.get(variable) or default
    if os.path.isfile(path) and os.access(path, os.X_OK):
        return os.path.abspath(path)
    return None


class Run:
    """One selftest run: exit code (None on time-out), output, time taken, and the model
    server's log as it stood after the run."""

    def __init__(self, code, out, err, timed_out, elapsed, entries):
        self.code = code
        self.out = out
        self.err = err
        self.timed_out = timed_out
        self.elapsed = elapsed
        self.lines = [l for l in out.splitlines() if l.strip()]
        self.entries = entries

    def has_line_starting(self, prefix):
        return any(l.startswith(prefix) for l in self.lines)


class Workspace:
    """A throwaway work folder, removed on leaving unless a check failed:
    folder/ (the selftest's target, holding a.txt), home/ (HOME and TMPDIR of the run),
    bin/ (the real CLI linked under its command name, first on PATH), and the model
    server's script and log. The server is killed on leaving."""

    def __init__(self, prefix, cli, command):
        self.path = tempfile.mkdtemp(prefix=prefix)
        self.folder = os.path.join(self.path, "folder")
        self.home = os.path.join(self.path, "home")
        self.bin_dir = os.path.join(self.path, "bin")
        self.log_path = os.path.join(self.path, "model.log")
        self.server = None
        self.keep = False
        try:
            for d in (self.folder, self.home, self.bin_dir):
                os.makedirs(d)
            with open(os.path.join(self.folder, "a.txt"), "w", encoding="utf-8") as f:
                f.write("selftest file\n")
            os.symlink(cli, os.path.join(self.bin_dir, command))
        except OSError:
            shutil.rmtree(self.path, ignore_errors=True)
            raise

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        if self.server is not None:
            self.server.kill()
            self.server.wait()
        if not self.keep:
            shutil.rmtree(self.path, ignore_errors=True)
        return False

    def start_server(self, server_path, script):
        """Starts the scripted server on script (its lifetime bounded) and returns its port."""
        script_path = os.path.join(self.path, "script.json")
        with open(script_path, "w", encoding="utf-8") as f:
            json.dump(script, f)
        self.server = subprocess.Popen(
            [sys.executable, server_path, script_path, "--log", self.log_path,
             "--lifetime", str(SERVER_LIFETIME)],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        ready, _, _ = select.select([self.server.stdout], [], [], 30)
        first = self.server.stdout.readline().decode().strip() if ready else ""
        if not first.isdigit():
            name = os.path.basename(server_path)[:-len("_server.py")]
            raise RuntimeError("%s server did not report a port (got %r)" % (name, first))
        return int(first)

    def environment(self, dropped_prefixes, settings, dropped_names=()):
        """The run's environment: ours without the variables of those prefixes and names
        (and without ZORVANE_IPC_SOCK), HOME, TMPDIR and XDG_CONFIG_HOME in home/, bin/
        first on PATH, then settings."""
        dropped_names = ("ZORVANE_IPC_SOCK",) + tuple(dropped_names)
        env = {k: v for k, v in os.environ.items()
               if not k.startswith(tuple(dropped_prefixes)) and k not in dropped_names}
        env.update({
            "HOME": self.home,
            "TMPDIR": self.home,  # the selftest keeps its session folder there
            "XDG_CONFIG_HOME": os.path.join(self.home, ".config"),
            "PATH": self.bin_dir + os.pathsep + os.environ.get("PATH", "/usr/bin:/bin"),
        })
        env.update(settings)
        return env

    def run_selftest(self, zorvane, env, agent_args=()):
        """Runs `zorvane --selftest folder [agent_args]` in its own process group, so a hung
        run takes its children along, and kills what is left of the group afterwards."""
        started = time.time()
        proc = subprocess.Popen([zorvane, "--selftest", self.folder] + list(agent_args),
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env=env, start_new_session=True)
        try:
            out, err = proc.communicate(timeout=SELFTEST_TIMEOUT)
            code, timed_out = proc.returncode, False
        except subprocess.TimeoutExpired:
            os.killpg(proc.pid, signal.SIGKILL)
            out, err = proc.communicate()
            code, timed_out = None, True
        try:  # anything of the run still alive in its group (a tool server, say) goes too
            os.killpg(proc.pid, signal.SIGKILL)
        except (ProcessLookupError, PermissionError):
            pass
        return Run(code, out.decode("utf-8", "replace"), err.decode("utf-8", "replace"),
                   timed_out, time.time() - started, read_log(self.log_path))

    def exists(self, name):
        return os.path.exists(os.path.join(self.folder, name))

    def report(self, run, failures, passed, summarize):
        """Prints passed and the selftest's output and returns 0 when there are no failures;
        else prints them with the output, the server log's tail (summarize: one line an
        entry) and the kept work folder, and returns 1."""
        if not failures:
            print(passed)
            print(run.out.rstrip())
            return 0
        self.keep = True
        print("FAIL: " + "; ".join(failures))
        print("--- zorvane stdout ---")
        print(run.out.rstrip())
        print("--- zorvane stderr (tail) ---")
        print(run.err[-4000:].rstrip())
        print("--- model server log (last %d of %d requests) ---"
              % (min(10, len(run.entries)), len(run.entries)))
        for entry in run.entries[-10:]:
            print(summarize(entry))
        print("--- work folder kept at %s ---" % self.path)
        return 1


def read_log(log_path):
    """The scripted server's log entries: {"method", "path", "kind", "step", "body", ...}."""
    entries = []
    try:
        with open(log_path, encoding="utf-8") as f:
            for line in f:
                try:
                    entries.append(json.loads(line))
                except ValueError:
                    pass
    except OSError:
        pass
    return entries


def renamed_and_answered(run, work):
    """The checks every selftest shares: it exited 0 in time, used TOOL (a `tool:` line),
    ended with the scripted answer DONE, and a.txt was renamed to b.txt."""
    failures = []
    if run.timed_out:
        failures.append("selftest did not finish within %d s" % SELFTEST_TIMEOUT)
    elif run.code != 0:
        failures.append("exit code %s, expected 0" % run.code)
    if "tool: " + TOOL not in run.lines:
        failures.append('no line "tool: %s"' % TOOL)
    last = run.lines[-1] if run.lines else ""
    if not last.startswith("outcome: answer") or "DONE" not in last:
        failures.append('last line is not "outcome: answer(...DONE...)": %r' % last)
    if not work.exists("b.txt"):
        failures.append("b.txt was not created")
    if work.exists("a.txt"):
        failures.append("a.txt is still there")
    return failures


def gate_approved_rename(run):
    """Whether the selftest's approval gate let the rename through: a line
    `gate: approve TOOL {...mv a.txt b.txt...}`."""
    return any(l.startswith("gate: approve %s " % TOOL) and '"mv a.txt b.txt"' in l
               for l in run.lines)


# The Messages API side (model_server.py): what its log says the model was sent.

def messages_tool_results(entries):
    """The tool results the main requests carried back to the model: (is_error, text)."""
    results = []
    for entry in entries:
        body = entry.get("body")
        if entry.get("kind") != "main" or not isinstance(body, dict):
            continue
        for message in body.get("messages") or []:
            content = message.get("content") if isinstance(message, dict) else None
            for block in content if isinstance(content, list) else []:
                if not isinstance(block, dict) or block.get("type") != "tool_result":
                    continue
                inner = block.get("content")
                if isinstance(inner, list):
                    text = "".join(b.get("text", "") for b in inner if isinstance(b, dict))
                else:
                    text = inner if isinstance(inner, str) else ""
                results.append((block.get("is_error") is True, text))
    return results


def last_message(entry):
    """The last message of a logged Messages request (or its whole body), cut to 300 chars."""
    body = entry.get("body")
    if isinstance(body, dict) and isinstance(body.get("messages"), list) and body["messages"]:
        return json.dumps(body["messages"][-1])[:300]
    if body:
        return json.dumps(body)[:300]
    return ""


def entry_head(entry):
    """method path kind=... step=...: the start of a log entry's summary line."""
    return "%s %s kind=%s step=%s" % (entry.get("method"), entry.get("path"),
                                      entry.get("kind"), entry.get("step"))
