/**
 * Zorvane's MCP bridge for Pi.
 *
 * Pi has no MCP client of its own. Zorvane starts Pi with `-e <this file>` in the
 * session folder, next to a `.mcp.json` of the form
 *
 *   {"mcpServers": {"zorvane": {"command": "/path/zorvane", "args": ["--mcp", "--scope", "..."]}}}
 *
 * For each server this extension starts the command with Pi's environment, speaks MCP
 * over its standard input and output (JSON-RPC 2.0, one message per line), lists its
 * tools and registers each with Pi as `mcp__<server>__<tool>`. Calls are passed
 * through; text and image content comes back to the model, and a result flagged
 * `isError` reaches the model as a failed tool call.
 *
 * A server that can't be started or doesn't answer in time is reported on standard
 * error and skipped: Pi runs on without its tools. Servers are stopped when Pi shuts
 * the session down, and killed outright if Pi exits some other way.
 *
 * Self-contained on purpose: only Node's built-in modules are loaded at run time; the
 * Pi import below is for types and is erased when Pi loads the file.
 */

import { spawn } from "node:child_process";
import type { ChildProcessWithoutNullStreams } from "node:child_process";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import type { ExtensionAPI } from "@mariozechner/pi-coding-agent";

const LOG_PREFIX = "zorvane-mcp: ";
const CONFIG_FILE = ".mcp.json";
const PROTOCOL_VERSION = "2025-06-18";
const CLIENT_INFO = { name: "zorvane-pi-bridge", version: "1.0.0" };

/** Seconds from the environment, or the fallback when unset or not a positive number. */
function secondsFromEnv(name: string, fallback: number): number {
	const value = Number(process.env[name]);
	return Number.isFinite(value) && value > 0 ? value * 1000 : fallback * 1000;
}

/** Time for a server to start and answer `initialize` and `tools/list`. */
const START_TIMEOUT_MS = secondsFromEnv("ZORVANE_MCP_START_TIMEOUT", 15);
/** Time for one tool call; tools may wait on the user, so this is generous. */
const CALL_TIMEOUT_MS = secondsFromEnv("ZORVANE_MCP_CALL_TIMEOUT", 900);
/** Time a server gets to exit after its input is closed, and again after SIGTERM. */
const STOP_GRACE_MS = 1000;
/** Longest tool name the model providers accept. */
const MAX_TOOL_NAME = 128;
/** Upper bound on `tools/list` pages, against a server that never stops paging. */
const MAX_LIST_PAGES = 100;

function log(message: string): void {
	try {
		process.stderr.write(LOG_PREFIX + message + "\n");
	} catch {
		// Nothing sensible to do when standard error itself is gone.
	}
}

function errorText(error: unknown): string {
	return error instanceof Error ? error.message : String(error);
}

function isObject(value: unknown): value is Record<string, unknown> {
	return typeof value === "object" && value !== null && !Array.isArray(value);
}

// ---------------------------------------------------------------------------
// Configuration

interface ServerConfig {
	name: string;
	command: string;
	args: string[];
	env: Record<string, string>;
	cwd?: string;
}

/** Reads `.mcp.json` from `dir`. A missing file means no servers; a broken one is logged. */
function readServerConfigs(dir: string): ServerConfig[] {
	const path = join(dir, CONFIG_FILE);
	let text: string;
	try {
		text = readFileSync(path, "utf8");
	} catch (error) {
		if ((error as NodeJS.ErrnoException)?.code !== "ENOENT") {
			log(`can't read ${path}: ${errorText(error)}`);
		}
		return [];
	}
	let parsed: unknown;
	try {
		parsed = JSON.parse(text);
	} catch (error) {
		log(`${path} is not valid JSON: ${errorText(error)}`);
		return [];
	}
	const servers = isObject(parsed) ? parsed.mcpServers : undefined;
	if (!isObject(servers)) {
		log(`${path} has no "mcpServers" object`);
		return [];
	}
	const configs: ServerConfig[] = [];
	for (const [name, entry] of Object.entries(servers)) {
		if (!isObject(entry)) {
			log(`server "${name}" in ${path} is not an object; skipped`);
			continue;
		}
		if (typeof entry.type === "string" && entry.type !== "stdio") {
			log(`server "${name}" has transport "${entry.type}"; only stdio servers are supported; skipped`);
			continue;
		}
		if (typeof entry.command !== "string" || entry.command.length === 0) {
			log(`server "${name}" has no command; skipped`);
			continue;
		}
		const args = Array.isArray(entry.args) ? entry.args.filter((a): a is string => typeof a === "string") : [];
		const env: Record<string, string> = {};
		if (isObject(entry.env)) {
			for (const [key, value] of Object.entries(entry.env)) {
				if (typeof value === "string") env[key] = value;
			}
		}
		const cwd = typeof entry.cwd === "string" && entry.cwd.length > 0 ? entry.cwd : undefined;
		configs.push({ name, command: entry.command, args, env, cwd });
	}
	return configs;
}

// ---------------------------------------------------------------------------
// MCP client over a child's standard input and output

interface McpTool {
	name: string;
	title?: string;
	description?: string;
	inputSchema?: unknown;
	annotations?: { title?: unknown };
}

interface McpCallResult {
	content?: unknown;
	structuredContent?: unknown;
	isError?: unknown;
}

interface Pending {
	method: string;
	resolve: (value: unknown) => void;
	reject: (error: Error) => void;
	timer: NodeJS.Timeout;
	cleanup: () => void;
}

class McpClient {
	readonly name: string;
	private readonly config: ServerConfig;
	private child?: ChildProcessWithoutNullStreams;
	private nextId = 1;
	private readonly pending = new Map<number, Pending>();
	private stdoutBuffer = "";
	private stderrBuffer = "";
	private exited = false;
	private exitPromise?: Promise<void>;

	constructor(config: ServerConfig) {
		this.name = config.name;
		this.config = config;
	}

	get running(): boolean {
		return this.child !== undefined && !this.exited;
	}

	/** Starts the server and completes the `initialize` handshake. */
	async start(): Promise<void> {
		const { command, args, env, cwd } = this.config;
		const child = spawn(command, args, {
			cwd: cwd ?? process.cwd(),
			env: { ...process.env, ...env },
			stdio: ["pipe", "pipe", "pipe"],
		});
		this.child = child;
		this.exitPromise = new Promise<void>((resolve) => {
			const finish = (reason: string) => {
				if (this.exited) return;
				this.exited = true;
				this.flushStderr();
				this.failAll(new Error(`MCP server "${this.name}" ${reason}`));
				resolve();
			};
			child.once("error", (error) => finish(`could not be started: ${errorText(error)}`));
			child.once("exit", (code, signal) =>
				finish(signal ? `was ended by ${signal}` : `exited with code ${code}`),
			);
		});
		child.stdin.on("error", () => {
			// A server that closed its input early shows up through "exit"; ignore EPIPE here.
		});
		child.stdout.setEncoding("utf8");
		child.stdout.on("data", (chunk: string) => this.onStdout(chunk));
		child.stderr.setEncoding("utf8");
		child.stderr.on("data", (chunk: string) => this.onStderr(chunk));
		// The servers must never keep Pi alive on their own: only pending requests
		// (whose timers are referenced) hold the event loop open.
		child.unref();
		for (const stream of [child.stdin, child.stdout, child.stderr]) {
			(stream as unknown as { unref?: () => void }).unref?.();
		}

		const init = (await this.request(
			"initialize",
			{ protocolVersion: PROTOCOL_VERSION, capabilities: {}, clientInfo: CLIENT_INFO },
			START_TIMEOUT_MS,
		)) as Record<string, unknown> | undefined;
		if (!isObject(init) || typeof init.protocolVersion !== "string") {
			throw new Error(`MCP server "${this.name}" gave a malformed initialize result`);
		}
		this.notify("notifications/initialized", {});
	}

	/** All tools of the server, following `nextCursor` pages. */
	async listTools(): Promise<McpTool[]> {
		const tools: McpTool[] = [];
		let cursor: string | undefined;
		for (let page = 0; page < MAX_LIST_PAGES; page++) {
			const result = (await this.request(
				"tools/list",
				cursor === undefined ? {} : { cursor },
				START_TIMEOUT_MS,
			)) as Record<string, unknown> | undefined;
			if (!isObject(result) || !Array.isArray(result.tools)) {
				throw new Error(`MCP server "${this.name}" gave a malformed tools/list result`);
			}
			for (const tool of result.tools) {
				if (isObject(tool) && typeof tool.name === "string" && tool.name.length > 0) {
					tools.push(tool as unknown as McpTool);
				}
			}
			if (typeof result.nextCursor !== "string" || result.nextCursor.length === 0) break;
			cursor = result.nextCursor;
		}
		return tools;
	}

	async callTool(tool: string, args: unknown, signal?: AbortSignal): Promise<McpCallResult> {
		const result = await this.request(
			"tools/call",
			{ name: tool, arguments: isObject(args) ? args : {} },
			CALL_TIMEOUT_MS,
			signal,
		);
		if (!isObject(result)) {
			throw new Error(`MCP server "${this.name}" gave a malformed tools/call result`);
		}
		return result as McpCallResult;
	}

	/** Closes the server's input, then escalates to SIGTERM and SIGKILL if it lingers. */
	async stop(): Promise<void> {
		const child = this.child;
		if (!child || this.exited) return;
		this.failAll(new Error(`MCP server "${this.name}" is shutting down`));
		try {
			child.stdin.end();
		} catch {
			// Already closed.
		}
		if (await this.waitForExit(STOP_GRACE_MS)) return;
		child.kill("SIGTERM");
		if (await this.waitForExit(STOP_GRACE_MS)) return;
		child.kill("SIGKILL");
		await this.waitForExit(STOP_GRACE_MS);
	}

	/** Last resort, for process exit: no waiting is possible there. */
	killNow(): void {
		if (this.child && !this.exited) {
			try {
				this.child.kill("SIGKILL");
			} catch {
				// Gone already.
			}
		}
	}

	private waitForExit(ms: number): Promise<boolean> {
		if (this.exited || !this.exitPromise) return Promise.resolve(true);
		return new Promise<boolean>((resolve) => {
			const timer = setTimeout(() => resolve(false), ms);
			this.exitPromise!.then(() => {
				clearTimeout(timer);
				resolve(true);
			});
		});
	}

	private request(method: string, params: unknown, timeoutMs: number, signal?: AbortSignal): Promise<unknown> {
		if (!this.running) {
			return Promise.reject(new Error(`MCP server "${this.name}" is not running`));
		}
		if (signal?.aborted) {
			return Promise.reject(new Error(`${method} was cancelled`));
		}
		const id = this.nextId++;
		return new Promise<unknown>((resolve, reject) => {
			const onAbort = () => {
				this.settle(id)?.reject(new Error(`${method} was cancelled`));
				this.notify("notifications/cancelled", { requestId: id, reason: "cancelled by the user" });
			};
			const timer = setTimeout(() => {
				this.settle(id)?.reject(
					new Error(`MCP server "${this.name}" did not answer ${method} within ${timeoutMs / 1000} s`),
				);
				this.notify("notifications/cancelled", { requestId: id, reason: "timed out" });
			}, timeoutMs);
			signal?.addEventListener("abort", onAbort, { once: true });
			this.pending.set(id, {
				method,
				resolve,
				reject,
				timer,
				cleanup: () => signal?.removeEventListener("abort", onAbort),
			});
			if (!this.write({ jsonrpc: "2.0", id, method, params })) {
				this.settle(id)?.reject(new Error(`MCP server "${this.name}" can't be written to`));
			}
		});
	}

	private notify(method: string, params: unknown): void {
		if (this.running) this.write({ jsonrpc: "2.0", method, params });
	}

	private write(message: unknown): boolean {
		const child = this.child;
		if (!child || this.exited || child.stdin.destroyed || !child.stdin.writable) return false;
		try {
			child.stdin.write(JSON.stringify(message) + "\n");
			return true;
		} catch {
			return false;
		}
	}

	/** Removes a pending request and returns it, with its timer and abort listener cleared. */
	private settle(id: number): Pending | undefined {
		const entry = this.pending.get(id);
		if (!entry) return undefined;
		this.pending.delete(id);
		clearTimeout(entry.timer);
		entry.cleanup();
		return entry;
	}

	private failAll(error: Error): void {
		for (const id of [...this.pending.keys()]) {
			this.settle(id)?.reject(error);
		}
	}

	/** Splits output into lines, searching only the new chunk: a screenshot can make a
	 * single line of many megabytes, arriving in small pieces. */
	private onStdout(chunk: string): void {
		let start = 0;
		let newline = chunk.indexOf("\n");
		while (newline >= 0) {
			const line = (this.stdoutBuffer + chunk.slice(start, newline)).trim();
			this.stdoutBuffer = "";
			if (line.length > 0) this.onLine(line);
			start = newline + 1;
			newline = chunk.indexOf("\n", start);
		}
		this.stdoutBuffer += chunk.slice(start);
	}

	private onLine(line: string): void {
		let message: unknown;
		try {
			message = JSON.parse(line);
		} catch {
			log(`server "${this.name}" wrote a line that isn't JSON: ${line.slice(0, 200)}`);
			return;
		}
		if (!isObject(message)) return;
		const method = message.method;
		if (typeof method === "string") {
			if ("id" in message && message.id !== null && message.id !== undefined) {
				this.answerServerRequest(message.id, method);
			}
			// Notifications from the server (logging, list changes, progress) need no answer.
			return;
		}
		if (typeof message.id !== "number") return;
		const entry = this.settle(message.id);
		if (!entry) return; // Late answer to a request that timed out or was cancelled.
		if (isObject(message.error)) {
			const text = typeof message.error.message === "string" ? message.error.message : "unknown error";
			const code = typeof message.error.code === "number" ? ` (${message.error.code})` : "";
			entry.reject(new Error(`MCP server "${this.name}" failed ${entry.method}: ${text}${code}`));
		} else {
			entry.resolve(message.result);
		}
	}

	/** This client offers no capabilities, so it only answers pings. */
	private answerServerRequest(id: unknown, method: string): void {
		if (method === "ping") {
			this.write({ jsonrpc: "2.0", id, result: {} });
		} else {
			this.write({ jsonrpc: "2.0", id, error: { code: -32601, message: `Method not found: ${method}` } });
		}
	}

	/** Passes the server's own diagnostics on, one prefixed line at a time. */
	private onStderr(chunk: string): void {
		this.stderrBuffer += chunk;
		let newline: number;
		while ((newline = this.stderrBuffer.indexOf("\n")) >= 0) {
			const line = this.stderrBuffer.slice(0, newline).replace(/\r$/, "");
			this.stderrBuffer = this.stderrBuffer.slice(newline + 1);
			if (line.length > 0) log(`[${this.name}] ${line}`);
		}
	}

	private flushStderr(): void {
		const rest = this.stderrBuffer.trim();
		this.stderrBuffer = "";
		if (rest.length > 0) log(`[${this.name}] ${rest}`);
	}
}

// ---------------------------------------------------------------------------
// Turning MCP tools and results into Pi's

type PiContent = { type: "text"; text: string } | { type: "image"; data: string; mimeType: string };

/** `mcp__<server>__<tool>`, with characters the model APIs reject replaced by "_". */
function piToolName(server: string, tool: string): string {
	return `mcp__${server}__${tool}`.replace(/[^A-Za-z0-9_-]/g, "_").slice(0, MAX_TOOL_NAME);
}

/** The tool's input schema as Pi should see it: always an object schema. */
function parameterSchema(inputSchema: unknown): Record<string, unknown> {
	if (!isObject(inputSchema) || (inputSchema.type !== undefined && inputSchema.type !== "object")) {
		return { type: "object", properties: {} };
	}
	// The dialect marker only confuses validators and model APIs; the rest passes as is.
	const { $schema: _dialect, ...schema } = inputSchema;
	if (schema.type === undefined) schema.type = "object";
	if (!isObject(schema.properties)) schema.properties = {};
	return schema;
}

/** One line for the system prompt's list of tools. */
function promptSnippet(description: string): string {
	const firstLine = description.split("\n").find((line) => line.trim().length > 0)?.trim() ?? "";
	return firstLine.length > 200 ? firstLine.slice(0, 197) + "..." : firstLine;
}

function convertContent(content: unknown): PiContent[] {
	const out: PiContent[] = [];
	if (!Array.isArray(content)) return out;
	for (const block of content) {
		if (!isObject(block)) continue;
		switch (block.type) {
			case "text":
				if (typeof block.text === "string") out.push({ type: "text", text: block.text });
				break;
			case "image":
				if (typeof block.data === "string" && typeof block.mimeType === "string") {
					out.push({ type: "image", data: block.data, mimeType: block.mimeType });
				}
				break;
			case "resource": {
				const resource = isObject(block.resource) ? block.resource : {};
				if (typeof resource.text === "string") {
					out.push({ type: "text", text: resource.text });
				} else {
					out.push({ type: "text", text: `[binary resource ${String(resource.uri ?? "")}]` });
				}
				break;
			}
			case "resource_link":
				out.push({ type: "text", text: `[resource ${String(block.uri ?? "")}]` });
				break;
			case "audio":
				out.push({ type: "text", text: `[audio content of type ${String(block.mimeType ?? "unknown")} omitted]` });
				break;
			default:
				out.push({ type: "text", text: JSON.stringify(block) });
		}
	}
	return out;
}

function resultContent(result: McpCallResult): PiContent[] {
	const content = convertContent(result.content);
	if (content.length === 0 && result.structuredContent !== undefined) {
		content.push({ type: "text", text: JSON.stringify(result.structuredContent) });
	}
	if (content.length === 0) content.push({ type: "text", text: "(no output)" });
	return content;
}

// ---------------------------------------------------------------------------
// The extension

export default async function zorvaneMcp(pi: ExtensionAPI): Promise<void> {
	const configs = readServerConfigs(process.cwd());
	if (configs.length === 0) return;

	const clients: McpClient[] = [];
	const killAll = () => {
		for (const client of clients) client.killNow();
	};
	process.once("exit", killAll);

	pi.on("session_shutdown", async () => {
		process.removeListener("exit", killAll);
		await Promise.all(clients.map((client) => client.stop()));
	});

	const connect = async (config: ServerConfig): Promise<{ client: McpClient; tools: McpTool[] } | undefined> => {
		const client = new McpClient(config);
		clients.push(client);
		try {
			await client.start();
			return { client, tools: await client.listTools() };
		} catch (error) {
			log(`server "${config.name}" skipped: ${errorText(error)}`);
			await client.stop();
			return undefined;
		}
	};

	// Servers start side by side; each is bounded by its own timeouts.
	const connected = await Promise.all(configs.map(connect));

	const registered = new Set<string>();
	for (const entry of connected) {
		if (!entry) continue;
		const { client, tools } = entry;
		for (const tool of tools) {
			const name = piToolName(client.name, tool.name);
			if (registered.has(name)) {
				log(`tool "${tool.name}" of server "${client.name}" clashes with another as "${name}"; skipped`);
				continue;
			}
			registered.add(name);
			const description = typeof tool.description === "string" ? tool.description : "";
			const title = typeof tool.title === "string" ? tool.title : tool.annotations?.title;
			const snippet = promptSnippet(description);
			pi.registerTool({
				name,
				label: typeof title === "string" && title.length > 0 ? title : tool.name,
				description: description.length > 0 ? description : `Tool ${tool.name} of MCP server ${client.name}`,
				...(snippet.length > 0 ? { promptSnippet: snippet } : {}),
				// A plain JSON schema: Pi validates tool arguments against JSON schemas too.
				parameters: parameterSchema(tool.inputSchema) as never,
				async execute(_toolCallId, params, signal) {
					const result = await client.callTool(tool.name, params, signal);
					const content = resultContent(result);
					if (result.isError === true) {
						// Pi marks a tool call failed only when execute throws.
						const text = content
							.filter((block): block is { type: "text"; text: string } => block.type === "text")
							.map((block) => block.text)
							.join("\n");
						throw new Error(text.length > 0 ? text : `${tool.name} failed`);
					}
					return {
						content,
						details: { server: client.name, tool: tool.name, structuredContent: result.structuredContent },
					};
				},
			});
		}
	}
}
