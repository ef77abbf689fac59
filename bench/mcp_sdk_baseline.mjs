#!/usr/bin/env node
// The baseline for bench/mcp_server_bench: a minimal MCP server on stdio, written the
// usual way with the official TypeScript SDK (McpServer + StdioServerTransport).
//
// Usage: node mcp_sdk_baseline.mjs --scope <scope.json>
//
// It offers one tool, list_targets, doing the work zorvane's does per call: read the
// scope file anew and list its entries, one line each ("0: Notes [app window, ...]"),
// so the two round trips compare like with like. The SDK is found through NODE_PATH
// (scripts/install-agent-cli.sh mcp-sdk prints the folder).

import { createRequire } from 'node:module';
import fs from 'node:fs';

const require = createRequire(import.meta.url);
const { McpServer } = require('@modelcontextprotocol/sdk/server/mcp.js');
const { StdioServerTransport } = require('@modelcontextprotocol/sdk/server/stdio.js');

const scopeFlag = process.argv.indexOf('--scope');
const scopePath = scopeFlag >= 0 ? process.argv[scopeFlag + 1] : undefined;

function listing() {
  let entries = [];
  try {
    entries = JSON.parse(fs.readFileSync(scopePath, 'utf8')).entries ?? [];
  } catch {
    entries = [];
  }
  if (entries.length === 0) return 'No windows attached.';
  return entries
    .map((e, i) => `${i}: ${e.name} [${e.kind}, ${e.bundleID}${e.url ? `, ${e.url}` : ''}]`)
    .join('\n');
}

const server = new McpServer({ name: 'sdk-baseline', version: '1.0.0' });
server.registerTool(
  'list_targets',
  { description: 'List the windows this piece can see and drive (its own window first, then attached ones).' },
  async () => ({ content: [{ type: 'text', text: listing() }] }),
);

await server.connect(new StdioServerTransport());
