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
import sys

import harness
from harness import TOOL

DEFAULT_CLI = os.path.expanduser("~/.cache/zorvane-tools/codex/node_modules/.bin/codex")
KEY_VARIABLE = "ZORVANE_TEST_MODEL_KEY"
PROMPT_SEPARATOR = "\n\n---\n\n"

SCRIPT = [{"toolCall": {"name": TOOL, "arguments": harness.RENAME}}, {"text": "DONE"}]

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


def write_codex_home(home, port):
    codex_home = os.path.join(home, ".codex")
    os.makedirs(codex_home)
    with open(os.path.join(codex_home, "config.toml"), "w", encoding="utf-8") as f:
        f.write(CONFIG_TOML.format(port=port, key=KEY_VARIABLE))
    return codex_home


def agent_environment(work, codex_home):
    home = work.home
    return work.environment(
        dropped_prefixes=("CODEX_", "OPENAI_"),
        settings={
            "CODEX_HOME": codex_home,
            "XDG_DATA_HOME": os.path.join(home, ".local", "share"),
            "XDG_STATE_HOME": os.path.join(home, ".local", "state"),
            KEY_VARIABLE: "dummy",
        })


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
    return "%s %s" % (harness.entry_head(entry), detail)


def main(argv):
    zorvane, cli, status = harness.arguments(
        argv, "real_codex_test.py", "ZORVANE_REAL_CODEX", DEFAULT_CLI,
        skipped="SKIPPED: real Codex CLI not installed "
                "(scripts/install-agent-cli.sh codex installs it)")
    if status is not None:
        return status

    with harness.Workspace("zorvane-real-codex-", cli, "codex") as work:
        port = work.start_server(harness.RESPONSES_SERVER, SCRIPT)
        codex_home = write_codex_home(work.home, port)
        run = work.run_selftest(zorvane, agent_environment(work, codex_home),
                                agent_args=["--agent", "codex"])

        # Exit 0 in time, a "tool:" line, DONE at the end, a.txt renamed to b.txt.
        failures = harness.renamed_and_answered(run, work)
        if not run.has_line_starting("target: "):
            failures.append('no line starting "target: "')
        if not harness.gate_approved_rename(run):
            failures.append('no line "gate: approve %s {...mv a.txt b.txt...}"' % TOOL)
        bodies = main_bodies(run.entries)
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

        return work.report(run, failures, summarize=summarize, passed=(
            "PASS: codex selftest against the real CLI in %.1f s (%d model requests)"
            % (run.elapsed, len(run.entries))))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
