#!/usr/bin/env python3
"""End-to-end check of `zorvane --selftest --agent pi` against the real Pi CLI.

Usage: real_pi_test.py <path-to-zorvane-executable>

The real tool runs fully offline: a throwaway agent folder (PI_CODING_AGENT_DIR) holds a
models.json whose only provider is tests/fixtures/model_server.py on loopback, scripted
to call mcp__zorvane__run_command with `mv a.txt b.txt` and then answer DONE; HOME is a
throwaway folder too, and PI_OFFLINE=1 keeps Pi from any startup network traffic. A `pi`
symlink first on PATH points at the real CLI. Our extension starts `zorvane --mcp` from
the session folder's .mcp.json; the call must go through the selftest's approval gate (a
`gate:` line), rename the file and come back to the model, and the selftest must end
with DONE.

The real CLI is ZORVANE_REAL_PI if set, else ~/.cache/zorvane-tools/pi/node_modules/.bin/pi.

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
DEFAULT_CLI = os.path.expanduser("~/.cache/zorvane-tools/pi/node_modules/.bin/pi")
SELFTEST_TIMEOUT = 200
SERVER_LIFETIME = 260
MODEL_ID = "scripted-model"

TOOL = "mcp__zorvane__run_command"
SCRIPT = [
    {"toolUse": {"name": TOOL, "input": {"command": "mv a.txt b.txt", "why": "Rename a.txt to b.txt"}}},
    {"text": "DONE"},
]


def find_cli():
    path = os.environ.get("ZORVANE_REAL_PI") or DEFAULT_CLI
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
        server.wait()
        raise RuntimeError("model server did not report a port (got %r)" % first)
    return server, int(first), log_path


def write_agent_dir(agent_dir, port):
    """Pi's agent folder: one provider, the scripted model server."""
    os.makedirs(agent_dir, exist_ok=True)
    models = {
        "providers": {
            "scripted": {
                "baseUrl": "http://127.0.0.1:%d" % port,
                "api": "anthropic-messages",
                "apiKey": "dummy",
                "models": [{
                    "id": MODEL_ID, "name": "Scripted model", "reasoning": False,
                    "input": ["text", "image"], "contextWindow": 200000, "maxTokens": 8192,
                    "cost": {"input": 0, "output": 0, "cacheRead": 0, "cacheWrite": 0},
                }],
            }
        }
    }
    with open(os.path.join(agent_dir, "models.json"), "w", encoding="utf-8") as f:
        json.dump(models, f, indent=1)


def agent_environment(home, bin_dir, agent_dir):
    # Keys of real providers would make Pi prefer them over the scripted one.
    dropped_prefixes = ("ANTHROPIC_", "OPENAI_", "GEMINI_", "GOOGLE_", "MISTRAL_", "GROQ_",
                        "XAI_", "OPENROUTER_", "AZURE_", "AWS_", "PI_")
    env = {k: v for k, v in os.environ.items()
           if not k.startswith(dropped_prefixes) and k not in ("ZORVANE_IPC_SOCK",)}
    env.update({
        "HOME": home,
        "TMPDIR": home,  # the selftest keeps its session folder there
        "XDG_CONFIG_HOME": os.path.join(home, ".config"),
        "PATH": bin_dir + os.pathsep + os.environ.get("PATH", "/usr/bin:/bin"),
        "PI_CODING_AGENT_DIR": agent_dir,
        "PI_OFFLINE": "1",
    })
    return env


def run_selftest(zorvane, folder, env):
    """Runs the selftest in its own process group, so a hung run takes its children along."""
    proc = subprocess.Popen([zorvane, "--selftest", folder, "--agent", "pi"],
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


def offered_tools(entry):
    body = entry.get("body")
    tools = body.get("tools") if isinstance(body, dict) else None
    return [t.get("name") for t in tools or [] if isinstance(t, dict)]


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


def summarize(entry):
    body = entry.get("body")
    last = ""
    if isinstance(body, dict) and isinstance(body.get("messages"), list) and body["messages"]:
        last = json.dumps(body["messages"][-1])[:300]
    elif body:
        last = json.dumps(body)[:300]
    return "%s %s kind=%s step=%s tools=%s last=%s" % (
        entry.get("method"), entry.get("path"), entry.get("kind"), entry.get("step"),
        ",".join(n for n in offered_tools(entry) if n), last)


def main(argv):
    if len(argv) != 1:
        print("usage: real_pi_test.py <path-to-zorvane-executable>", file=sys.stderr)
        return 1
    zorvane = os.path.abspath(argv[0])
    cli = find_cli()
    if cli is None:
        print("SKIPPED: real Pi CLI not installed (scripts/install-agent-cli.sh pi installs it)")
        return 77
    if not (os.path.isfile(zorvane) and os.access(zorvane, os.X_OK)):
        print("FAIL: zorvane executable not found at %s" % zorvane)
        return 1
    extension = os.path.join(os.path.dirname(zorvane), "pi-extension", "zorvane-mcp.ts")
    if not os.path.isfile(extension):
        print("FAIL: %s is missing; the build puts src/pi-extension next to the executable" % extension)
        return 1

    work = tempfile.mkdtemp(prefix="zorvane-real-pi-")
    server = None
    keep = False
    try:
        folder = os.path.join(work, "folder")
        home = os.path.join(work, "home")
        bin_dir = os.path.join(work, "bin")
        agent_dir = os.path.join(work, "agent")
        for d in (folder, home, bin_dir):
            os.makedirs(d)
        with open(os.path.join(folder, "a.txt"), "w", encoding="utf-8") as f:
            f.write("selftest file\n")
        os.symlink(cli, os.path.join(bin_dir, "pi"))

        server, port, log_path = start_model_server(work)
        write_agent_dir(agent_dir, port)
        env = agent_environment(home, bin_dir, agent_dir)
        started = time.time()
        code, out, err, timed_out = run_selftest(zorvane, folder, env)
        elapsed = time.time() - started

        lines = [l for l in out.splitlines() if l.strip()]
        entries = read_log(log_path)
        main_requests = [e for e in entries if e.get("kind") == "main"]
        failures = []
        if timed_out:
            failures.append("selftest did not finish within %d s" % SELFTEST_TIMEOUT)
        elif code != 0:
            failures.append("exit code %s, expected 0" % code)
        if not any(l.startswith("target:") for l in lines):
            failures.append('no line starting "target:"')
        if not lines or not lines[-1].startswith("outcome: answer") or "DONE" not in lines[-1]:
            failures.append('last line is not "outcome: answer(...DONE...)": %r' % (lines[-1] if lines else ""))
        if not any(l.startswith("gate: approve %s " % TOOL) and '"mv a.txt b.txt"' in l for l in lines):
            failures.append('no line "gate: approve %s {...mv a.txt b.txt...}"' % TOOL)
        if "tool: " + TOOL not in lines:
            failures.append('no line "tool: %s"' % TOOL)
        if not os.path.exists(os.path.join(folder, "b.txt")):
            failures.append("b.txt was not created")
        if os.path.exists(os.path.join(folder, "a.txt")):
            failures.append("a.txt is still there")
        # run_command's result starts "exit <status>": the command ran in our tool server.
        results = tool_results(entries)
        if not any(not is_error and text.startswith("exit 0") for is_error, text in results):
            failures.append("the model never got a successful run_command result "
                            "(tool results seen: %r)" % results[:5])
        if not main_requests:
            failures.append("the model server was never asked for the main conversation")
        elif main_requests[0].get("body", {}).get("model") != MODEL_ID:
            failures.append("the model server was asked for model %r, not %r"
                            % (main_requests[0].get("body", {}).get("model"), MODEL_ID))

        if not failures:
            mcp_tools = sorted({n for e in main_requests for n in offered_tools(e)
                                if isinstance(n, str) and n.startswith("mcp__zorvane__")})
            print("PASS: selftest against the real Pi CLI in %.1f s (%d model requests, %d Zorvane tools offered)"
                  % (elapsed, len(entries), len(mcp_tools)))
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
