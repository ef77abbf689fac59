#!/usr/bin/env node
// Drives `zorvane --mcp` with the official MCP TypeScript SDK client, the way an
// independent agent would, and checks what it gets back.
//
// Usage: node check.mjs <path-to-zorvane>
//
// The SDK is found the way Node finds any package: a node_modules beside this file, or
// the folders in NODE_PATH (scripts/install-agent-cli.sh mcp-sdk installs one outside
// the repository and prints the folder to put there).
//
// Each check prints "ok - ..." as it passes; the first failure prints "not ok - ..." with
// the server's standard error and ends the run with status 1. Everything started here
// ends with the run: the whole check has a time limit, and every server is closed.

import { createRequire } from 'node:module';
import fs from 'node:fs';
import os from 'node:os';
import path from 'node:path';

const RUN_LIMIT_MS = 90_000;
const REQUEST_TIMEOUT_MS = 20_000;
const SDK_VERSION = '1.32.2';

const EXPECTED_TOOLS = [
  'list_targets', 'get_target_info', 'screenshot', 'read_ui_tree', 'press', 'set_value', 'click',
  'type_text', 'press_key', 'scroll', 'run_command', 'write_file', 'run_applescript', 'browser_read_page',
  'browser_eval', 'browser_navigate', 'list_pieces', 'ask_piece', 'tell_piece', 'list_schedules',
  'create_schedule', 'delete_schedule',
];
const NO_WINDOWS = 'No windows attached.';
const ONE_ENTRY_SCOPE = {
  entries: [{ name: 'Notes', kind: 'app window', windowID: 7, bundleID: 'org.gnome.TextEditor' }],
};
const ONE_ENTRY_LISTING = '0: Notes [app window, org.gnome.TextEditor]';

const require = createRequire(import.meta.url);

function loadSDK() {
  try {
    const clientPath = require.resolve('@modelcontextprotocol/sdk/client/index.js');
    // The SDK's own dependencies (ajv) are resolved from where the SDK lives.
    const sdkRequire = createRequire(clientPath);
    const { Client } = require('@modelcontextprotocol/sdk/client/index.js');
    const { StdioClientTransport } = require('@modelcontextprotocol/sdk/client/stdio.js');
    const types = require('@modelcontextprotocol/sdk/types.js');
    const ajvModule = sdkRequire('ajv');
    return { Client, StdioClientTransport, types, Ajv: ajvModule.default ?? ajvModule };
  } catch (error) {
    console.error(`check.mjs: the MCP SDK isn't installed where Node can find it (${error.message}).`);
    console.error(`Install it with scripts/install-agent-cli.sh mcp-sdk and set NODE_PATH to the folder it prints.`);
    process.exit(2);
  }
}

const zorvane = process.argv[2];
if (!zorvane) {
  console.error('usage: node check.mjs <path-to-zorvane>');
  process.exit(2);
}
if (!fs.existsSync(zorvane)) {
  console.error(`check.mjs: no executable at ${zorvane}`);
  process.exit(2);
}

const { Client, StdioClientTransport, types, Ajv } = loadSDK();

const work = fs.mkdtempSync(path.join(os.tmpdir(), 'zorvane-sdk-check-'));
const scopePath = path.join(work, 'scope.json');
const home = path.join(work, 'home');
fs.mkdirSync(home);
// A socket path where no application listens: nothing here may reach a running Zorvane.
const serverEnv = {
  PATH: process.env.PATH ?? '/usr/bin:/bin',
  HOME: home,
  SHELL: '/bin/sh',
  LANG: 'C.UTF-8',
  ZORVANE_IPC_SOCK: path.join(work, 'ipc.sock'),
};
const serverParams = {
  command: path.resolve(zorvane),
  args: ['--mcp', '--scope', scopePath],
  env: serverEnv,
  cwd: work,
  stderr: 'pipe',
};

let serverStderr = '';
let passed = 0;
const cleanups = [];

function cleanUp() {
  fs.rmSync(work, { recursive: true, force: true });
}

function fail(what, detail) {
  console.log(`not ok - ${what}`);
  if (detail !== undefined) console.log(`  ${String(detail).replace(/\n/g, '\n  ')}`);
  if (serverStderr) console.log(`  server stderr:\n  ${serverStderr.replace(/\n/g, '\n  ')}`);
  console.log(`${passed} passed, 1 failed`);
  cleanUp();
  process.exit(1);
}

function check(condition, what, detail) {
  if (!condition) fail(what, detail);
  passed += 1;
  console.log(`ok - ${what}`);
}

const watchdog = setTimeout(() => fail(`the check finished within ${RUN_LIMIT_MS / 1000} s`), RUN_LIMIT_MS);

function writeScope(scope) {
  fs.writeFileSync(scopePath, JSON.stringify(scope));
}

function onlyText(result) {
  if (!Array.isArray(result.content) || result.content.length !== 1) return undefined;
  const [item] = result.content;
  return item.type === 'text' ? item.text : undefined;
}

// A value each parameter type accepts, and one it refuses.
const SAMPLE = { string: '0', integer: 1, number: 1.5, boolean: true, array: [] };
const WRONG = { string: 5, integer: 'one', number: 'one', boolean: 'yes', array: {} };

function checkSchema(ajv, tool) {
  const schema = tool.inputSchema;
  const where = `${tool.name}: inputSchema`;
  if (schema?.type !== 'object') return `${where}: type is ${JSON.stringify(schema?.type)}, not "object"`;
  if (typeof schema.properties !== 'object' || schema.properties === null || Array.isArray(schema.properties)) {
    return `${where}: properties is missing or not an object`;
  }
  if (!Array.isArray(schema.required)) return `${where}: required is missing or not an array`;
  if (!ajv.validateSchema(schema)) return `${where}: not a valid JSON Schema: ${ajv.errorsText(ajv.errors)}`;
  let validate;
  try {
    validate = ajv.compile(schema);
  } catch (error) {
    return `${where}: refused by a strict validator: ${error.message}`;
  }
  const example = {};
  for (const [name, property] of Object.entries(schema.properties)) {
    if (!(property.type in SAMPLE)) return `${where}: ${name} has the unexpected type ${property.type}`;
    if (typeof property.description !== 'string' || property.description === '') {
      return `${where}: ${name} has no description`;
    }
    example[name] = SAMPLE[property.type];
  }
  if (!validate(example)) return `${where}: refuses a well-typed argument set: ${ajv.errorsText(validate.errors)}`;
  for (const name of schema.required) {
    const { [name]: _, ...missing } = example;
    if (validate(missing)) return `${where}: accepts arguments without the required ${name}`;
  }
  for (const [name, property] of Object.entries(schema.properties)) {
    if (validate({ ...example, [name]: WRONG[property.type] })) {
      return `${where}: accepts a ${typeof WRONG[property.type]} for the ${property.type} ${name}`;
    }
  }
  return undefined;
}

// Before initialize, as some agents do: an unknown method must get "Method not found"
// at once, and the server must carry on.
async function probeBeforeInitialize() {
  const transport = new StdioClientTransport(serverParams);
  const replies = new Map();
  const waiters = new Map();
  transport.onmessage = (message) => {
    if (waiters.has(message.id)) waiters.get(message.id)(message);
    else replies.set(message.id, message);
  };
  transport.onerror = () => {};
  const reply = (id) =>
    new Promise((resolve, reject) => {
      if (replies.has(id)) return resolve(replies.get(id));
      const timer = setTimeout(() => reject(new Error(`no reply to request ${id}`)), REQUEST_TIMEOUT_MS);
      waiters.set(id, (message) => {
        clearTimeout(timer);
        resolve(message);
      });
    });
  await transport.start();
  cleanups.push(() => transport.close());
  try {
    await transport.send({ jsonrpc: '2.0', id: 1, method: 'server/discover', params: {} });
    const discover = await reply(1);
    check(
      discover.error?.code === types.ErrorCode.MethodNotFound && discover.error?.message === 'Method not found' &&
        !('result' in discover),
      'server/discover before initialize is answered "Method not found" (-32601)',
      JSON.stringify(discover),
    );
    await transport.send({ jsonrpc: '2.0', id: 'after', method: 'ping' });
    const ping = await reply('after');
    check(
      ping.result !== undefined && Object.keys(ping.result).length === 0,
      'the server answers the next request after it',
      JSON.stringify(ping),
    );
  } catch (error) {
    fail('the server/discover probe', error.stack ?? error);
  } finally {
    await transport.close();
  }
}

async function main() {
  writeScope({ entries: [] });
  await probeBeforeInitialize();

  const client = new Client({ name: 'zorvane-sdk-check', version: SDK_VERSION });
  const transport = new StdioClientTransport(serverParams);
  transport.stderr?.on('data', (chunk) => {
    serverStderr += chunk.toString();
  });
  cleanups.push(() => client.close());
  const options = { timeout: REQUEST_TIMEOUT_MS };

  try {
    await client.connect(transport, options);
  } catch (error) {
    fail('the SDK client initializes', error.stack ?? error);
  }
  check(true, 'the SDK client initializes');
  const info = client.getServerVersion();
  check(info?.name === 'zorvane' && info?.version === '0.2.0', 'serverInfo is zorvane 0.2.0', JSON.stringify(info));
  const capabilities = client.getServerCapabilities();
  check(
    capabilities?.tools !== undefined && Object.keys(capabilities).length === 1,
    'the server offers tools and nothing else',
    JSON.stringify(capabilities),
  );

  const pong = await client.ping(options);
  check(pong !== undefined && Object.keys(pong).length === 0, 'ping gets an empty result', JSON.stringify(pong));

  const { tools } = await client.listTools(undefined, options);
  check(tools.length === 22, 'tools/list has 22 tools', `got ${tools.length}`);
  const names = tools.map((tool) => tool.name);
  check(
    JSON.stringify(names) === JSON.stringify(EXPECTED_TOOLS),
    'the tools come in table order',
    `got ${names.join(', ')}`,
  );
  const ajv = new Ajv({ strict: true, allErrors: true });
  const problems = tools.map((tool) => checkSchema(ajv, tool)).filter(Boolean);
  check(problems.length === 0, 'every inputSchema is a valid, strict JSON Schema of type object', problems.join('\n'));
  check(
    tools.every((tool) => typeof tool.description === 'string' && tool.description.length > 0),
    'every tool has a description',
  );
  const listTargets = tools[0].inputSchema;
  check(
    Object.keys(listTargets.properties).length === 0 && listTargets.required.length === 0,
    'list_targets takes no parameters and still lists an empty required',
    JSON.stringify(listTargets),
  );

  let result = await client.callTool({ name: 'list_targets', arguments: {} }, undefined, options);
  check(
    !result.isError && onlyText(result)?.startsWith(NO_WINDOWS),
    'list_targets on an empty scope says no windows are attached',
    JSON.stringify(result),
  );

  result = await client.callTool({ name: 'screenshot', arguments: {} }, undefined, options);
  check(
    result.isError === true && onlyText(result)?.startsWith(NO_WINDOWS),
    'screenshot on an empty scope is a tool error (isError) that says why',
    JSON.stringify(result),
  );

  result = await client.callTool(
    { name: 'write_file', arguments: { path: 'notes.txt', content: 'draft' } },
    undefined,
    options,
  );
  check(
    result.isError === true && onlyText(result) === 'Use an absolute path.',
    'write_file with a relative path is refused: "Use an absolute path."',
    JSON.stringify(result),
  );
  check(!fs.existsSync(path.join(work, 'notes.txt')), 'the refused write_file wrote nothing');

  result = await client.callTool(
    { name: 'run_command', arguments: { command: 'echo hi', why: 'x' } },
    undefined,
    options,
  );
  check(
    !result.isError && onlyText(result) === 'exit 0\nhi\n',
    'run_command "echo hi" returns "exit 0\\nhi\\n"',
    JSON.stringify(result),
  );

  // The scope file is read anew on each call.
  writeScope(ONE_ENTRY_SCOPE);
  result = await client.callTool({ name: 'list_targets', arguments: {} }, undefined, options);
  check(
    !result.isError && onlyText(result) === ONE_ENTRY_LISTING,
    'list_targets lists the one attached window',
    JSON.stringify(result),
  );
  result = await client.callTool({ name: 'screenshot', arguments: { target: 'Nowhere' } }, undefined, options);
  check(
    result.isError === true && onlyText(result)?.includes(ONE_ENTRY_LISTING),
    'screenshot of a target that matches nothing is a tool error listing what is attached',
    JSON.stringify(result),
  );

  // A JSON-RPC error must reach the SDK as an McpError with its code.
  try {
    await client.request({ method: 'tools/call', params: {} }, types.CallToolResultSchema, options);
    fail('tools/call without a name is refused');
  } catch (error) {
    check(
      error instanceof types.McpError && error.code === types.ErrorCode.InvalidParams &&
        error.message.includes('Missing tool name'),
      'tools/call without a name is a JSON-RPC error -32602 "Missing tool name"',
      error.stack ?? error,
    );
  }

  await client.close();
  cleanups.pop();
  console.log(`${passed} passed, 0 failed`);
}

main()
  .catch((error) => fail('an unexpected failure', error.stack ?? error))
  .finally(async () => {
    clearTimeout(watchdog);
    for (const close of cleanups) await close().catch(() => {});
    cleanUp();
  });
