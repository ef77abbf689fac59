#!/usr/bin/env bash
# Installs one of the agent command-line tools Zorvane drives, at its pinned version,
# into ~/.cache/zorvane-tools/<name> (outside the repository, never committed), and
# prints the path of its executable. Nothing is fetched when that version is there.
#
# `mcp-sdk` is the official MCP TypeScript SDK, a library rather than a tool: the
# independent client of tests/integration/mcp_sdk_client and the baseline server of
# bench/ are built on it. For it the script prints its node_modules folder, the value
# NODE_PATH wants.
#
# It says in one line on standard error what it installs; npm's own output goes to a log
# (${XDG_STATE_HOME:-~/.local/state}/zorvane/install-agent-cli-<name>.log, or a file in
# ${TMPDIR:-/tmp} where that can't be written), whose last lines and path it prints when
# the install fails.
#
# Usage: scripts/install-agent-cli.sh claude|codex|pi|mcp-sdk
# ZORVANE_TOOLS_DIR overrides ~/.cache/zorvane-tools.
set -euo pipefail

usage() {
  echo "usage: $0 claude|codex|pi|mcp-sdk" >&2
  exit 2
}

[ $# -eq 1 ] || usage
name=$1
case "$name" in
  claude) package=@anthropic-ai/claude-code; version=2.1.330; bin=claude ;;
  codex)  package=@openai/codex;             version=0.169.0; bin=codex ;;
  pi)     package=@mariozechner/pi-coding-agent; version=0.73.1; bin=pi ;;
  # Keep in step with tests/integration/mcp_sdk_client/package.json.
  mcp-sdk) package=@modelcontextprotocol/sdk;    version=1.32.2; bin= ;;
  *) usage ;;
esac

tools_dir=${ZORVANE_TOOLS_DIR:-$HOME/.cache/zorvane-tools}
prefix=$tools_dir/$name
package_json=$prefix/node_modules/$package/package.json
if [ -n "$bin" ]; then
  executable=$prefix/node_modules/.bin/$bin
  present() { [ -x "$executable" ]; }
else
  executable=$prefix/node_modules
  present() { [ -f "$package_json" ]; }
fi

installed_version() {
  [ -f "$package_json" ] || return 0
  node -e 'try { process.stdout.write(String(require(process.argv[1]).version)) } catch (e) {}' \
    "$package_json"
}

for tool in node npm; do
  if ! command -v "$tool" >/dev/null 2>&1; then
    echo "$0: $tool is not installed; install Node.js and npm first" >&2
    exit 1
  fi
done

if present && [ "$(installed_version)" = "$version" ]; then
  echo "$name $version already installed in $prefix" >&2
else
  echo "installing $package@$version into $prefix" >&2
  # Under the state folder when there is one (a missing home is never made, not even by
  # root), else in the temporary folder.
  log=""
  if [ -n "${XDG_STATE_HOME:-}" ] || { [ -n "${HOME:-}" ] && [ -d "$HOME" ]; }; then
    state_dir=${XDG_STATE_HOME:-$HOME/.local/state}/zorvane
    if { mkdir -p "$state_dir" && : >"$state_dir/install-agent-cli-$name.log"; } 2>/dev/null; then
      log=$state_dir/install-agent-cli-$name.log
    fi
  fi
  [ -n "$log" ] || log=$(mktemp "${TMPDIR:-/tmp}/zorvane-install-agent-cli.XXXXXX")
  failed() {
    {
      echo "$0: $1; the last lines of npm's output:"
      tail -n 15 "$log" | sed 's/^/  /'
      echo "$0: the whole output is in $log"
    } >&2
    exit 1
  }
  mkdir -p "$prefix"
  npm install --prefix "$prefix" --no-audit --no-fund "$package@$version" </dev/null >"$log" 2>&1 ||
    failed "installing $package@$version failed (npm exit status $?)"
  got=$(installed_version)
  if [ "$got" != "$version" ] || ! present; then
    failed "installing $package@$version failed (found version '${got:-none}', looked for $executable)"
  fi
fi

echo "$executable"
