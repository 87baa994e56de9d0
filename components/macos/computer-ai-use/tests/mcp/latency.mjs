// Median latency of tool calls in a running MCP server against the same commands as
// fresh processes, on the example desktop: get_app_state, and a click by element index
// (checked against the snapshot both ways). Run by scripts/bench.sh with TAVLIN_BINARY
// set to an optimised build; TAVLIN_LATENCY_MIN_RATIO makes a get_app_state ratio below
// it a failure.
import { mkdtempSync, copyFileSync, rmSync } from 'node:fs';
import { execFileSync } from 'node:child_process';
import { tmpdir } from 'node:os';
import { join, resolve, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../../../../..');
const binary = process.env.TAVLIN_BINARY ?? join(root, 'build/Tavlin');
const rounds = Number(process.env.TAVLIN_LATENCY_ROUNDS ?? 50);
const minRatio = Number(process.env.TAVLIN_LATENCY_MIN_RATIO ?? 0);
const median = (xs) => [...xs].sort((a, b) => a - b)[Math.floor(xs.length / 2)];

const dir = mkdtempSync(join(tmpdir(), 'tavlin-latency-'));
const desktop = join(dir, 'desktop.json');
copyFileSync(join(root, 'examples/desktops/text-editor.json'), desktop);
const env = { PATH: process.env.PATH, HOME: dir, TAVLIN_EXECUTABLE: binary, TAVLIN_SIM_DESKTOP: desktop };

const cases = [
  { tool: 'get_app_state', arguments: { app: 'Scribe' }, command: ['get-app-state', '--app', 'Scribe'] },
  {
    tool: 'click',
    arguments: { app: 'Scribe', element_index: 6 },
    command: ['click', '--app', 'Scribe', '--element-index', '6', '--verify-snapshot'],
  },
];

async function timed(run) {
  const times = [];
  for (let i = 0; i < rounds; ++i) {
    const start = process.hrtime.bigint();
    await run();
    times.push(Number(process.hrtime.bigint() - start) / 1e6);
  }
  return median(times);
}

const client = new Client({ name: 'latency', version: '1.0.0' });
await client.connect(new StdioClientTransport({ command: join(root, 'bin/tavlin-mcp'), env }));
const server = {};
for (const c of cases) {
  // A click by index needs the snapshot it is checked against.
  await client.callTool({ name: 'get_app_state', arguments: { app: 'Scribe' } });
  server[c.tool] = await timed(async () => {
    const result = await client.callTool({ name: c.tool, arguments: c.arguments });
    if (result.isError) throw new Error(`${c.tool}: ${result.content[0].text}`);
  });
}
await client.close();

const fresh = {};
for (const c of cases) {
  execFileSync(binary, ['get-app-state', '--app', 'Scribe'], { env, stdio: 'ignore' });
  fresh[c.tool] = await timed(async () => {
    execFileSync(binary, c.command, { env, stdio: ['ignore', 'ignore', 'inherit'] });
  });
}
rmSync(dir, { recursive: true, force: true });

console.log(`MCP server against fresh processes on the example desktop, median of ${rounds}:`);
for (const c of cases) {
  const ratio = fresh[c.tool] / server[c.tool];
  console.log(`  ${c.tool.padEnd(14)} server ${server[c.tool].toFixed(1).padStart(7)} ms   ` +
              `fresh process ${fresh[c.tool].toFixed(1).padStart(7)} ms   ratio ${ratio.toFixed(1)}x`);
}
const snapshotRatio = fresh.get_app_state / server.get_app_state;
if (snapshotRatio < minRatio) {
  console.error(`get_app_state through the server is only ${snapshotRatio.toFixed(1)}x faster (wanted ${minRatio}x)`);
  process.exit(1);
}
