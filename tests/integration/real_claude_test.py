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
import sys

import harness
from harness import TOOL

DEFAULT_CLI = os.path.expanduser("~/.cache/zorvane-tools/claude/node_modules/.bin/claude")
SCRIPT = [{"toolUse": {"name": TOOL, "input": harness.RENAME}}, {"text": "DONE"}]


def agent_environment(work, port):
    return work.environment(
        dropped_prefixes=("ANTHROPIC_", "CLAUDE"), dropped_names=("MCP_TOOL_TIMEOUT",),
        settings={
            "ANTHROPIC_BASE_URL": "http://127.0.0.1:%d" % port,
            "ANTHROPIC_API_KEY": "dummy",
            "CLAUDE_CODE_DISABLE_NONESSENTIAL_TRAFFIC": "1",
        })


def told_of_tool(entries, name):
    """Whether the first main request, made before any tool call, names the tool: in its
    tools, or (as the tool now does with MCP tools) in its list of deferred tools, whose
    schemas the model loads through ToolSearch."""
    for entry in entries:
        if entry.get("kind") == "main" and isinstance(entry.get("body"), dict):
            return name in json.dumps(entry["body"])
    return False


def summarize(entry):
    return "%s last=%s" % (harness.entry_head(entry), harness.last_message(entry))


def main(argv):
    zorvane, cli, status = harness.arguments(
        argv, "real_claude_test.py", "ZORVANE_REAL_CLAUDE", DEFAULT_CLI,
        skipped="SKIPPED: real Claude Code CLI not installed (make real-claude-test installs it)")
    if status is not None:
        return status

    with harness.Workspace("zorvane-real-claude-", cli, "claude") as work:
        port = work.start_server(harness.MODEL_SERVER, SCRIPT)
        run = work.run_selftest(zorvane, agent_environment(work, port))

        # Exit 0 in time, a "tool:" line, DONE at the end, a.txt renamed to b.txt.
        failures = harness.renamed_and_answered(run, work)
        if not run.has_line_starting("target: folder:"):
            failures.append('no line starting "target: folder:"')
        if not told_of_tool(run.entries, TOOL):
            failures.append("the model was never told of %s (the tool server did not start "
                            "or was not configured)" % TOOL)
        if not run.has_line_starting("permission: %s " % TOOL):
            failures.append('no line starting "permission: %s "' % TOOL)
        # run_command's result starts "exit <status>": the command ran in our tool server.
        results = harness.messages_tool_results(run.entries)
        if not any(not is_error and text.startswith("exit 0") for is_error, text in results):
            failures.append("the model never got a successful run_command result "
                            "(tool results seen: %r)" % results[:5])

        return work.report(run, failures, summarize=summarize, passed=(
            "PASS: selftest against the real CLI in %.1f s (%d model requests)"
            % (run.elapsed, len(run.entries))))


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
