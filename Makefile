# Entry points for building and testing. The scripts under scripts/ do the work.

CLAUDE_CODE_VERSION := 2.1.330
TOOLS_DIR ?= $(HOME)/.cache/zorvane-tools
CLAUDE_PREFIX := $(TOOLS_DIR)/claude
CLAUDE_BIN := $(CLAUDE_PREFIX)/node_modules/.bin/claude
CLAUDE_PACKAGE_JSON := $(CLAUDE_PREFIX)/node_modules/@anthropic-ai/claude-code/package.json
BUILD_DIR := $(or $(ZORVANE_BUILD_DIR),build)

.PHONY: build test real-claude-test install-real-claude

build:
	scripts/build.sh

test:
	scripts/test.sh

# The real agent CLI, pinned, installed outside the repository (never committed).
install-real-claude:
	@installed=$$(node -p "require('$(CLAUDE_PACKAGE_JSON)').version" 2>/dev/null || true); \
	if [ -x "$(CLAUDE_BIN)" ] && [ "$$installed" = "$(CLAUDE_CODE_VERSION)" ]; then \
	  echo "Claude Code $(CLAUDE_CODE_VERSION) already installed in $(CLAUDE_PREFIX)"; \
	else \
	  mkdir -p "$(CLAUDE_PREFIX)" && \
	  npm install --prefix "$(CLAUDE_PREFIX)" --no-audit --no-fund \
	    @anthropic-ai/claude-code@$(CLAUDE_CODE_VERSION); \
	fi

real-claude-test: install-real-claude
	scripts/build.sh
	ZORVANE_REAL_CLAUDE="$(CLAUDE_BIN)" ctest --test-dir "$(BUILD_DIR)" -R integration.real_claude --output-on-failure
