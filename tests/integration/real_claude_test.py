#!/usr/bin/env python3
"""End-to-end check of `zorvane --selftest` against the real agent command-line tool.

Usage: real_claude_test.py <path-to-zorvane-executable>

The real tool runs fully offline: its model is tests/fixtures/model_server.py on
loopback, scripted to call Zorvane's run_command tool (mcp__zorvane__run_command) with
`mv a.txt b.txt` and then say DONE. The real tool starts `zorvane --mcp` from the
--mcp-config it was given and asks for permission first (the tool isn't in the --settings
allow list); the selftest must see that request, allow it, and end with that answer. The
file must really have been renamed, by our tool server: its result goes back to the model.

Exit codes: 0 pass, 1 fail, 77 skipped (the real tool isn't installed).
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
MODEL_SERVER = os.path.join(FIXTURES, "model_server.py")
DEFAULT_CLI = os.path.expanduser("~/.cache/zorvane-tools/claude/node_modules/.bin/claude")
SELFTEST_TIMEOUT = 200
SERVER_LIFETIME = 260

TOOL = "mcp__zorvane__run_command"
SCRIPT = [
    {"toolUse": {"name": TOOL, "input": {"command": "mv a.txt b.txt", "why": "Rename a.txt to b.txt"}}},
    {"text": "DONE"},
]


def find_cli():
    path = os.environ.get("ZORVANE_REAL_CLAUDE") or DEFAULT_CLI
    if os.path.isfile(path) and os.access(path, os.X_OK):
        return os.path.abspath(path)
    return None


def start_model_server(work):
    script_path = os.path.join(work, "script.json")
    with open(script_path, "w", encoding="utf-8") as f:
        json.dump(SCRIPT, f)
    log_path = os.path.join(work, "model.log")
    server = subprocess.Popen(
        [sys.executable, MODEL_SERVER, script_path, "--log", log_path,
         "--lifetime", str(SERVER_LIFETIME)],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    ready, _, _ = select.select([server.stdout], [], [], 30)
    first = server.stdout.readline().decode().strip() if ready else ""
    if not first.isdigit():
        server.kill()
        raise RuntimeError("model server did not report a port (got %r)" % first)
    return server, int(first), log_path


def agent_environment(home, bin_dir, port):
    env = {k: v for k, v in os.environ.items()
           if not k.startswith(("ANTHROPIC_", "CLAUDE")) and k not in ("ZORVANE_IPC_SOCK", "MCP_TOOL_TIMEOUT")}
    env.update({
        "HOME": home,
        "TMPDIR": home,  # the selftest keeps its session folder there
        "XDG_CONFIG_HOME": os.path.join(home, ".config"),
        "PATH": bin_dir + os.pathsep + os.environ.get("PATH", "/usr/bin:/bin"),
        "ANTHROPIC_BASE_URL": "http://127.0.0.1:%d" % port,
        "ANTHROPIC_API_KEY": "dummy",
        "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1",
    })
    return env


def run_selftest(zorvane, folder, env):
    """Runs the selftest in its own process group, so a hung run takes its children along."""
    proc = subprocess.Popen([zorvane, "--selftest", folder], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env,
                            start_new_session=True)
    try:
        out, err = proc.communicate(timeout=SELFTEST_TIMEOUT)
        result = proc.returncode, False
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, err = proc.communicate()
        result = None, True
    try:  # anything of the run still alive in its group (a tool server, say) goes too
        os.killpg(proc.pid, signal.SIGKILL)
    except (ProcessLookupError, PermissionError):
        pass
    return result[0], out.decode("utf-8", "replace"), err.decode("utf-8", "replace"), result[1]


def read_log(log_path):
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


def summarize(entry):
    body = entry.get("body")
    last = ""
    if isinstance(body, dict) and isinstance(body.get("messages"), list) and body["messages"]:
        last = json.dumps(body["messages"][-1])[:300]
    elif body:
        last = json.dumps(body)[:300]
    return "%s %s kind=%s step=%s last=%s" % (entry.get("method"), entry.get("path"),
                                              entry.get("kind"), entry.get("step"), last)


def told_of_tool(entries, name):
    """Whether the first main request, made before any tool call, names the tool: in its
    tools, or (as the tool now does with MCP tools) in its list of deferred tools, whose
    schemas the model loads through ToolSearch."""
    for entry in entries:
        if entry.get("kind") == "main" and isinstance(entry.get("body"), dict):
            return name in json.dumps(entry["body"])
    return False


def tool_results(entries):
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


def main(argv):
    if len(argv) != 1:
        print("usage: real_claude_test.py <path-to-zorvane-executable>", file=sys.stderr)
        return 1
    zorvane = os.path.abspath(argv[0])
    cli = find_cli()
    if cli is None:
        print("SKIPPED: real Claude Code CLI not installed (make real-claude-test installs it)")
        return 77
    if not os.access(zorvane, os.X_OK):
        print("FAIL: zorvane executable not found at %s" % zorvane)
        return 1

    work = tempfile.mkdtemp(prefix="zorvane-real-claude-")
    server = None
    keep = False
    try:
        folder = os.path.join(work, "folder")
        home = os.path.join(work, "home")
        bin_dir = os.path.join(work, "bin")
        for d in (folder, home, bin_dir):
            os.makedirs(d)
        with open(os.path.join(folder, "a.txt"), "w", encoding="utf-8") as f:
            f.write("selftest file\n")
        os.symlink(cli, os.path.join(bin_dir, "claude"))

        server, port, log_path = start_model_server(work)
        env = agent_environment(home, bin_dir, port)
        started = time.time()
        code, out, err, timed_out = run_selftest(zorvane, folder, env)
        elapsed = time.time() - started

        lines = [l for l in out.splitlines() if l.strip()]
        entries = read_log(log_path)
        failures = []
        if timed_out:
            failures.append("selftest did not finish within %d s" % SELFTEST_TIMEOUT)
        elif code != 0:
            failures.append("exit code %s, expected 0" % code)
        if not any(l.startswith("target: folder:") for l in lines):
            failures.append('no line starting "target: folder:"')
        if not told_of_tool(entries, TOOL):
            failures.append("the model was never told of %s (the tool server did not start "
                            "or was not configured)" % TOOL)
        if not any(l.startswith("permission: %s " % TOOL) for l in lines):
            failures.append('no line starting "permission: %s "' % TOOL)
        if "tool: " + TOOL not in lines:
            failures.append('no line "tool: %s"' % TOOL)
        if not lines or not lines[-1].startswith("outcome: answer") or "DONE" not in lines[-1]:
            failures.append('last line is not "outcome: answer(...DONE...)": %r' % (lines[-1] if lines else ""))
        if not os.path.exists(os.path.join(folder, "b.txt")):
            failures.append("b.txt was not created")
        if os.path.exists(os.path.join(folder, "a.txt")):
            failures.append("a.txt is still there")
        # run_command's result starts "exit <status>": the command ran in our tool server.
        results = tool_results(entries)
        if not any(not is_error and text.startswith("exit 0") for is_error, text in results):
            failures.append("the model never got a successful run_command result "
                            "(tool results seen: %r)" % results[:5])

        if not failures:
            print("PASS: selftest against the real CLI in %.1f s (%d model requests)" % (elapsed, len(entries)))
            print(out.rstrip())
            return 0

        keep = True
        print("FAIL: " + "; ".join(failures))
        print("--- zorvane stdout ---")
        print(out.rstrip())
        print("--- zorvane stderr (tail) ---")
        print(err[-4000:].rstrip())
        print("--- model server log (last %d of %d requests) ---" % (min(10, len(entries)), len(entries)))
        for entry in entries[-10:]:
            print(summarize(entry))
        print("--- work folder kept at %s ---" % work)
        return 1
    finally:
        if server is not None:
            server.kill()
            server.wait()
        if not keep:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
