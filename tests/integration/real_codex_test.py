#!/usr/bin/env python3
"""End-to-end check of `zorvane --selftest --agent codex` against the real Codex CLI.

Usage: real_codex_test.py <path-to-zorvane-executable>

The real tool runs fully offline: its model provider is tests/fixtures/responses_server.py
on loopback, set up in a throwaway CODEX_HOME, scripted to call Zorvane's run_command tool
with `mv a.txt b.txt` and then answer DONE. The tool starts `zorvane --mcp` from its
-c mcp_servers.zorvane.* arguments; the call must go through the selftest's approval
gate (a `gate:` line), rename the file, and come back to the model, and the selftest must
end with DONE. On the way the first turn's prompt must carry the system prompt glued in
front.

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
RESPONSES_SERVER = os.path.join(FIXTURES, "responses_server.py")
DEFAULT_CLI = os.path.expanduser("~/.cache/zorvane-tools/codex/node_modules/.bin/codex")
SELFTEST_TIMEOUT = 200
SERVER_LIFETIME = 260
KEY_VARIABLE = "ZORVANE_TEST_MODEL_KEY"
PROMPT_SEPARATOR = "\n\n---\n\n"

TOOL = "mcp__zorvane__run_command"
ARGUMENTS = {"command": "mv a.txt b.txt", "why": "Rename a.txt to b.txt"}
SCRIPT = [{"toolCall": {"name": TOOL, "arguments": ARGUMENTS}}, {"text": "DONE"}]

# The provider is ours; retries are off and a dead server fails the turn at once instead
# of being waited for (the tool otherwise reconnects for as long as it runs).
CONFIG_TOML = """\
model = "scripted-model"
model_provider = "scripted"

[model_providers.scripted]
name = "Scripted"
base_url = "http://127.0.0.1:{port}/v1"
wire_api = "responses"
env_key = "{key}"
request_max_retries = 0
stream_max_retries = 0

[analytics]
enabled = false

[features]
plugins = false
unbounded_connection_retries = false
"""


def find_cli():
    path = os.environ.get("ZORVANE_REAL_CODEX") or DEFAULT_CLI
    if os.path.isfile(path) and os.access(path, os.X_OK):
        return os.path.abspath(path)
    return None


def start_responses_server(work):
    script_path = os.path.join(work, "script.json")
    with open(script_path, "w", encoding="utf-8") as f:
        json.dump(SCRIPT, f)
    log_path = os.path.join(work, "model.log")
    server = subprocess.Popen(
        [sys.executable, RESPONSES_SERVER, script_path, "--log", log_path,
         "--lifetime", str(SERVER_LIFETIME)],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    ready, _, _ = select.select([server.stdout], [], [], 30)
    first = server.stdout.readline().decode().strip() if ready else ""
    if not first.isdigit():
        server.kill()
        server.wait()
        raise RuntimeError("responses server did not report a port (got %r)" % first)
    return server, int(first), log_path


def write_codex_home(home, port):
    codex_home = os.path.join(home, ".codex")
    os.makedirs(codex_home)
    with open(os.path.join(codex_home, "config.toml"), "w", encoding="utf-8") as f:
        f.write(CONFIG_TOML.format(port=port, key=KEY_VARIABLE))
    return codex_home


def agent_environment(home, codex_home, bin_dir):
    env = {k: v for k, v in os.environ.items()
           if not k.startswith(("CODEX_", "OPENAI_")) and k not in ("ZORVANE_IPC_SOCK",)}
    env.update({
        "HOME": home,
        "TMPDIR": home,  # the selftest keeps its session folder there
        "CODEX_HOME": codex_home,
        "XDG_CONFIG_HOME": os.path.join(home, ".config"),
        "XDG_DATA_HOME": os.path.join(home, ".local", "share"),
        "XDG_STATE_HOME": os.path.join(home, ".local", "state"),
        "PATH": bin_dir + os.pathsep + os.environ.get("PATH", "/usr/bin:/bin"),
        KEY_VARIABLE: "dummy",
    })
    return env


def run_selftest(zorvane, folder, env):
    """Runs the selftest in its own process group, so a hung run takes its children along."""
    proc = subprocess.Popen([zorvane, "--selftest", folder, "--agent", "codex"],
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.PIPE, env=env, start_new_session=True)
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


def main_bodies(entries):
    return [e["body"] for e in entries
            if e.get("kind") == "main" and isinstance(e.get("body"), dict)]


def offered_namespaces(body):
    return [t.get("name") for t in body.get("tools") or []
            if isinstance(t, dict) and t.get("type") == "namespace"]


def user_texts(body):
    texts = []
    for item in body.get("input") or []:
        if not isinstance(item, dict) or item.get("role") != "user":
            continue
        for part in item.get("content") or []:
            if isinstance(part, dict) and isinstance(part.get("text"), str):
                texts.append(part["text"])
    return texts


def call_outputs(body):
    """The outputs of function calls the request carries back to the model."""
    outputs = []
    for item in body.get("input") or []:
        if isinstance(item, dict) and item.get("type") == "function_call_output":
            output = item.get("output")
            if isinstance(output, list):
                output = "".join(p.get("text", "") for p in output if isinstance(p, dict))
            outputs.append(output if isinstance(output, str) else json.dumps(output))
    return outputs


def summarize(entry):
    body = entry.get("body")
    detail = ""
    if isinstance(body, dict):
        texts = user_texts(body)
        detail = "namespaces=%s last_user=%r" % (offered_namespaces(body),
                                                 texts[-1][-200:] if texts else None)
    elif body:
        detail = repr(body)[:300]
    return "%s %s kind=%s step=%s %s" % (entry.get("method"), entry.get("path"),
                                         entry.get("kind"), entry.get("step"), detail)


def main(argv):
    if len(argv) != 1:
        print("usage: real_codex_test.py <path-to-zorvane-executable>", file=sys.stderr)
        return 1
    zorvane = os.path.abspath(argv[0])
    cli = find_cli()
    if cli is None:
        print("SKIPPED: real Codex CLI not installed "
              "(scripts/install-agent-cli.sh codex installs it)")
        return 77
    if not os.access(zorvane, os.X_OK):
        print("FAIL: zorvane executable not found at %s" % zorvane)
        return 1

    work = tempfile.mkdtemp(prefix="zorvane-real-codex-")
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
        os.symlink(cli, os.path.join(bin_dir, "codex"))

        server, port, log_path = start_responses_server(work)
        codex_home = write_codex_home(home, port)
        env = agent_environment(home, codex_home, bin_dir)
        started = time.time()
        code, out, err, timed_out = run_selftest(zorvane, folder, env)
        elapsed = time.time() - started

        lines = [l for l in out.splitlines() if l.strip()]
        entries = read_log(log_path)
        bodies = main_bodies(entries)
        failures = []
        if timed_out:
            failures.append("selftest did not finish within %d s" % SELFTEST_TIMEOUT)
        elif code != 0:
            failures.append("exit code %s, expected 0" % code)
        if not any(l.startswith("target: ") for l in lines):
            failures.append('no line starting "target: "')
        if not lines or not lines[-1].startswith("outcome: answer") or "DONE" not in lines[-1]:
            failures.append('last line is not "outcome: answer(...DONE...)": %r'
                            % (lines[-1] if lines else ""))
        if not any(l.startswith("gate: approve %s " % TOOL) and '"mv a.txt b.txt"' in l for l in lines):
            failures.append('no line "gate: approve %s {...mv a.txt b.txt...}"' % TOOL)
        if "tool: " + TOOL not in lines:
            failures.append('no line "tool: %s"' % TOOL)
        if not os.path.exists(os.path.join(folder, "b.txt")):
            failures.append("b.txt was not created")
        if os.path.exists(os.path.join(folder, "a.txt")):
            failures.append("a.txt is still there")
        if not bodies:
            failures.append("the real CLI never asked the model server")
        else:
            if not any("mcp__zorvane" in offered_namespaces(b) for b in bodies):
                failures.append("Zorvane's tool server was never offered to the model "
                                "(no mcp__zorvane tools: it failed to start or was not configured)")
            # run_command's result starts "exit <status>": the command ran in our tool server.
            outputs = [o for b in bodies for o in call_outputs(b)]
            if not any("exit 0" in o for o in outputs):
                failures.append("the model never got a successful run_command result "
                                "(call outputs seen: %r)" % outputs[:5])
            first_texts = user_texts(bodies[0])
            if not first_texts or PROMPT_SEPARATOR not in first_texts[-1]:
                failures.append("the first turn's prompt did not carry the system prompt "
                                "before the separator")

        if not failures:
            print("PASS: codex selftest against the real CLI in %.1f s (%d model requests)"
                  % (elapsed, len(entries)))
            print(out.rstrip())
            return 0

        keep = True
        print("FAIL: " + "; ".join(failures))
        print("--- zorvane stdout ---")
        print(out.rstrip())
        print("--- zorvane stderr (tail) ---")
        print(err[-4000:].rstrip())
        print("--- model server log (last %d of %d requests) ---"
              % (min(10, len(entries)), len(entries)))
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
