# Entry points for building and testing. The scripts under scripts/ do the work.
#
#   make build | make test
#   make real-claude-test | real-codex-test | real-pi-test | real-agents-test
#       install the pinned agent CLI outside the repository (~/.cache/zorvane-tools),
#       build, and run Zorvane's selftest against it, offline, with a scripted model
#       server on loopback.
#   make mcp-sdk-test
#       install the pinned MCP TypeScript SDK the same way, build, and check the tool
#       server with the SDK's own client.

BUILD_DIR := $(or $(ZORVANE_BUILD_DIR),build)

.PHONY: build test real-claude-test real-codex-test real-pi-test real-agents-test mcp-sdk-test

build:
	scripts/build.sh

test:
	scripts/test.sh

real-claude-test:
	$(call real-agent-test,claude,CLAUDE)

real-codex-test:
	$(call real-agent-test,codex,CODEX)

real-pi-test:
	$(call real-agent-test,pi,PI)

real-agents-test: real-claude-test real-codex-test real-pi-test

mcp-sdk-test:
	@scripts/install-deps.sh
	@scripts/install-agent-cli.sh mcp-sdk >/dev/null && \
	  scripts/build.sh && \
	  ctest --test-dir "$(BUILD_DIR)" -R integration.mcp_sdk_client --output-on-failure

# $(1): the agent id, $(2): its variable suffix (ZORVANE_REAL_<suffix> names the CLI).
define real-agent-test
	@scripts/install-deps.sh
	@tool=$$(scripts/install-agent-cli.sh $(1)) && \
	  scripts/build.sh && \
	  ZORVANE_REAL_$(2)="$$tool" ctest --test-dir "$(BUILD_DIR)" -R integration.real_$(1) --output-on-failure
endef
