// The MCP server driven by the official MCP SDK client over stdio, against a copy of
// the example desktop. Run by scripts/test.sh with TAVLIN_BINARY set to the executable.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { mkdtempSync, copyFileSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../../../../..');
const binary = process.env.TAVLIN_BINARY ?? join(root, 'build/Tavlin');

async function connect(dir) {
  const desktop = join(dir, 'desktop.json');
  copyFileSync(join(root, 'examples/desktops/text-editor.json'), desktop);
  const transport = new StdioClientTransport({
    command: join(root, 'bin/tavlin-mcp'),
    env: {
      PATH: process.env.PATH,
      HOME: dir,
      TAVLIN_EXECUTABLE: binary,
      TAVLIN_SIM_DESKTOP: desktop,
      TAVLIN_SIM_EVENT_LOG: join(dir, 'events.log'),
      ASAN_OPTIONS: process.env.ASAN_OPTIONS ?? '',
      UBSAN_OPTIONS: process.env.UBSAN_OPTIONS ?? '',
    },
    stderr: 'pipe',
  });
  const client = new Client({ name: 'tavlin-tests', version: '1.0.0' });
  await client.connect(transport);
  return { client, events: () => readFileSync(join(dir, 'events.log'), 'utf8') };
}

test('an MCP client observes and acts on the example desktop', async () => {
  const dir = mkdtempSync(join(tmpdir(), 'tavlin-mcp-'));
  const { client, events } = await connect(dir);
  try {
    assert.equal(client.getServerVersion().name, 'tavlin');
    assert.equal(client.getServerVersion().version, '0.1.0');

    // Every agent command is a tool, with a schema naming its arguments.
    const { tools } = await client.listTools();
    const byName = Object.fromEntries(tools.map((t) => [t.name, t]));
    for (const name of ['list_apps', 'activate_app', 'get_app_state', 'click', 'type_text', 'press_key', 'set_value',
                        'background_paste_clipboard', 'perform_secondary_action', 'choose_open_panel_path',
                        'choose_open_panel_bundle', 'inspect_open_panel', 'scroll', 'drag']) {
      assert.ok(byName[name], `tool ${name}`);
      assert.equal(byName[name].inputSchema.type, 'object');
      assert.ok(byName[name].description.length > 20, `${name} has a description`);
    }
    assert.deepEqual(byName.click.inputSchema.required, ['app']);
    assert.equal(byName.click.inputSchema.properties.element_index.type, 'integer');
    assert.deepEqual(byName.click.inputSchema.properties.mouse_button.enum, ['left', 'right', 'middle']);
    assert.deepEqual(byName.scroll.inputSchema.required, ['app', 'element_index', 'direction']);
    assert.deepEqual(byName.get_app_state.inputSchema.properties.format.enum, ['plugin', 'json', 'plugin-json']);

    const apps = await client.callTool({ name: 'list_apps', arguments: {} });
    assert.equal(apps.isError, false);
    assert.equal(apps.structuredContent.apps[0].name, 'Scribe');
    assert.deepEqual(JSON.parse(apps.content[0].text), apps.structuredContent.apps);

    const state = await client.callTool({ name: 'get_app_state', arguments: { app: 'Scribe' } });
    assert.equal(state.isError, false);
    assert.match(state.content[0].text, /^Computer AI Use state\n<app_state>\n/);
    const image = state.content.find((c) => c.type === 'image');
    assert.equal(image.mimeType, 'image/png');
    const png = Buffer.from(image.data, 'base64');
    assert.equal(png.subarray(1, 4).toString(), 'PNG');
    assert.equal(png.readUInt32BE(16), 900);  // the window's width in points
    assert.equal(png.readUInt32BE(20), 640);

    const click = await client.callTool({ name: 'click', arguments: { app: 'Scribe', element_index: 6 } });
    assert.equal(click.isError, false);
    assert.deepEqual(click.structuredContent.screenPoint, { x: 154, y: 128 });
    assert.match(events(), /hid left-mouse-down x=154 y=128 button=0 clickState=1\n/);

    const failed = await client.callTool({ name: 'click', arguments: { app: 'Nowhere', element_index: 1 } });
    assert.equal(failed.isError, true);
    assert.deepEqual(failed.content, [{ type: 'text', text: 'No running application matches Nowhere' }]);
    const missing = await client.callTool({ name: 'type_text', arguments: { app: 'Scribe' } });
    assert.equal(missing.isError, true);
    assert.equal(missing.content[0].text, 'Invalid arguments: missing required argument "text" for tool type_text');

    // Each call wrote the desktop back and let it go: another process sees the change.
    assert.match(readFileSync(join(dir, 'desktop.json'), 'utf8'), /"frontmostPid": 4242/);
  } finally {
    await client.close();
    rmSync(dir, { recursive: true, force: true });
  }
});
