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
import sys

import harness
from harness import TOOL

DEFAULT_CLI = os.path.expanduser("~/.cache/zorvane-tools/pi/node_modules/.bin/pi")
MODEL_ID = "scripted-model"

SCRIPT = [{"toolUse": {"name": TOOL, "input": harness.RENAME}}, {"text": "DONE"}]


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


def agent_environment(work, agent_dir):
    # Keys of real providers would make Pi prefer them over the scripted one.
    return work.environment(
        dropped_prefixes=("ANTHROPIC_", "OPENAI_", "GEMINI_", "GOOGLE_", "MISTRAL_", "GROQ_",
                          "XAI_", "OPENROUTER_", "AZURE_", "AWS_", "PI_"),
        settings={"PI_CODING_AGENT_DIR": agent_dir, "PI_OFFLINE": "1"})


def offered_tools(entry):
    body = entry.get("body")
    tools = body.get("tools") if isinstance(body, dict) else None
    return [t.get("name") for t in tools or [] if isinstance(t, dict)]


def summarize(entry):
    return "%s tools=%s last=%s" % (harness.entry_head(entry),
                                    ",".join(n for n in offered_tools(entry) if n),
                                    harness.last_message(entry))


def main(argv):
    zorvane, cli, status = harness.arguments(
        argv, "real_pi_test.py", "ZORVANE_REAL_PI", DEFAULT_CLI,
        skipped="SKIPPED: real Pi CLI not installed (scripts/install-agent-cli.sh pi installs it)")
    if status is not None:
        return status
    extension = os.path.join(os.path.dirname(zorvane), "pi-extension", "zorvane-mcp.ts")
    if not os.path.isfile(extension):
        print("FAIL: %s is missing; the build puts src/pi-extension next to the executable" % extension)
        return 1

    with harness.Workspace("zorvane-real-pi-", cli, "pi") as work:
        port = work.start_server(harness.MODEL_SERVER, SCRIPT)
        agent_dir = os.path.join(work.path, "agent")
        write_agent_dir(agent_dir, port)
        run = work.run_selftest(zorvane, agent_environment(work, agent_dir),
                                agent_args=["--agent", "pi"])

        main_requests = [e for e in run.entries if e.get("kind") == "main"]
        # Exit 0 in time, a "tool:" line, DONE at the end, a.txt renamed to b.txt.
        failures = harness.renamed_and_answered(run, work)
        if not run.has_line_starting("target:"):
            failures.append('no line starting "target:"')
        if not harness.gate_approved_rename(run):
            failures.append('no line "gate: approve %s {...mv a.txt b.txt...}"' % TOOL)
        # run_command's result starts "exit <status>": the command ran in our tool server.
        results = harness.messages_tool_results(run.entries)
        if not any(not is_error and text.startswith("exit 0") for is_error, text in results):
            failures.append("the model never got a successful run_command result "
                            "(tool results seen: %r)" % results[:5])
        if not main_requests:
            failures.append("the model server was never asked for the main conversation")
        elif main_requests[0].get("body", {}).get("model") != MODEL_ID:
            failures.append("the model server was asked for model %r, not %r"
                            % (main_requests[0].get("body", {}).get("model"), MODEL_ID))

        mcp_tools = sorted({n for e in main_requests for n in offered_tools(e)
                            if isinstance(n, str) and n.startswith("mcp__zorvane__")})
        return work.report(run, failures, summarize=summarize, passed=(
            "PASS: selftest against the real Pi CLI in %.1f s (%d model requests, "
            "%d Zorvane tools offered)" % (run.elapsed, len(run.entries), len(mcp_tools))))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
