#!/usr/bin/env python3
"""Checks `zorvane --mcp` with the official MCP TypeScript SDK client.

Usage: mcp_sdk_client_test.py <path-to-zorvane-executable>

Runs mcp_sdk_client/check.mjs, which starts the tool server through the SDK's
StdioClientTransport, initializes, lists the tools and calls a few of them (see that
file). The SDK is the one scripts/install-agent-cli.sh mcp-sdk installs outside the
repository, at the version pinned in mcp_sdk_client/package.json; Node finds it through
NODE_PATH. Everything runs on this machine; nothing is fetched.

ZORVANE_TOOLS_DIR overrides ~/.cache/zorvane-tools, as it does for the install script.

Exit codes: 0 pass, 1 fail, 77 skipped (Node, npm or the pinned SDK isn't installed).
"""

import json
import os
import shutil
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
PROJECT = os.path.join(HERE, "mcp_sdk_client")
CHECK = os.path.join(PROJECT, "check.mjs")
PACKAGE = "@modelcontextprotocol/sdk"
CHECK_TIMEOUT = 150
SKIP = 77


def skip(reason):
    print("SKIPPED: " + reason)
    sys.exit(SKIP)


def pinned_version():
    with open(os.path.join(PROJECT, "package.json"), encoding="utf-8") as f:
        return json.load(f)["dependencies"][PACKAGE]


def installed_version(node_modules):
    path = os.path.join(node_modules, *PACKAGE.split("/"), "package.json")
    try:
        with open(path, encoding="utf-8") as f:
            return json.load(f).get("version")
    except (OSError, ValueError):
        return None


def main():
    if len(sys.argv) != 2:
        print("usage: %s <path-to-zorvane>" % sys.argv[0], file=sys.stderr)
        return 2
    zorvane = os.path.abspath(sys.argv[1])
    if not os.access(zorvane, os.X_OK):
        print("FAIL: no executable at %s" % zorvane)
        return 1

    node = shutil.which("node")
    if node is None or shutil.which("npm") is None:
        skip("node and npm are needed for the MCP SDK client check")
    tools_dir = os.environ.get("ZORVANE_TOOLS_DIR") or os.path.expanduser("~/.cache/zorvane-tools")
    node_modules = os.path.join(tools_dir, "mcp-sdk", "node_modules")
    want = pinned_version()
    got = installed_version(node_modules)
    if got != want:
        found = "version %s" % got if got else "nothing"
        skip("%s %s isn't installed in %s (found %s); run scripts/install-agent-cli.sh mcp-sdk"
             % (PACKAGE, want, node_modules, found))

    env = dict(os.environ)
    env["NODE_PATH"] = node_modules
    try:
        run = subprocess.run([node, CHECK, zorvane], env=env, cwd=PROJECT, stdin=subprocess.DEVNULL,
                             timeout=CHECK_TIMEOUT)
    except subprocess.TimeoutExpired:
        print("FAIL: check.mjs did not finish within %d s" % CHECK_TIMEOUT)
        return 1
    return 0 if run.returncode == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
