// Median latency of a get_app_state tool call in a running MCP server against the same
// command as a fresh process, on the example desktop. Run by scripts/bench.sh with
// TAVLIN_BINARY set to an optimised build.
import { mkdtempSync, copyFileSync, rmSync } from 'node:fs';
import { execFileSync } from 'node:child_process';
import { tmpdir } from 'node:os';
import { join, resolve, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../../../../..');
const binary = process.env.TAVLIN_BINARY ?? join(root, 'build/Tavlin');
const rounds = Number(process.env.TAVLIN_LATENCY_ROUNDS ?? 30);
const median = (xs) => [...xs].sort((a, b) => a - b)[Math.floor(xs.length / 2)];

const dir = mkdtempSync(join(tmpdir(), 'tavlin-latency-'));
const desktop = join(dir, 'desktop.json');
copyFileSync(join(root, 'examples/desktops/text-editor.json'), desktop);
const env = { PATH: process.env.PATH, HOME: dir, TAVLIN_EXECUTABLE: binary, TAVLIN_SIM_DESKTOP: desktop };

const client = new Client({ name: 'latency', version: '1.0.0' });
await client.connect(new StdioClientTransport({ command: join(root, 'bin/tavlin-mcp'), env }));
const server = [];
for (let i = 0; i < rounds; ++i) {
  const start = process.hrtime.bigint();
  const result = await client.callTool({ name: 'get_app_state', arguments: { app: 'Scribe' } });
  server.push(Number(process.hrtime.bigint() - start) / 1e6);
  if (result.isError) throw new Error(result.content[0].text);
}
await client.close();

const fresh = [];
for (let i = 0; i < rounds; ++i) {
  const start = process.hrtime.bigint();
  execFileSync(binary, ['get-app-state', '--app', 'Scribe'], { env, stdio: ['ignore', 'ignore', 'inherit'] });
  fresh.push(Number(process.hrtime.bigint() - start) / 1e6);
}
rmSync(dir, { recursive: true, force: true });
console.log(`get_app_state on the example desktop, median of ${rounds}:`);
console.log(`  tool call in a running MCP server: ${median(server).toFixed(1)} ms`);
console.log(`  the same command as a fresh process: ${median(fresh).toFixed(1)} ms`);
