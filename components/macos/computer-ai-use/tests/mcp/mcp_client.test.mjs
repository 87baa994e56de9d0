// The MCP server driven by official MCP SDK clients over stdio (one pinned release per
// protocol version) and by the MCP Inspector CLI, against a copy of the example desktop.
// Run by scripts/test.sh with TAVLIN_BINARY set to the executable.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { mkdtempSync, copyFileSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join, resolve, dirname } from 'node:path';
import { fileURLToPath } from 'node:url';
import { execFile } from 'node:child_process';
import { promisify } from 'node:util';
import { Client } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import Ajv from 'ajv';

const root = resolve(dirname(fileURLToPath(import.meta.url)), '../../../../..');
const binary = process.env.TAVLIN_BINARY ?? join(root, 'build/Tavlin');

function serverEnv(dir) {
  const desktop = join(dir, 'desktop.json');
  copyFileSync(join(root, 'examples/desktops/text-editor.json'), desktop);
  return {
    PATH: process.env.PATH,
    HOME: dir,
    TAVLIN_EXECUTABLE: binary,
    TAVLIN_SIM_DESKTOP: desktop,
    TAVLIN_SIM_EVENT_LOG: join(dir, 'events.log'),
    ASAN_OPTIONS: process.env.ASAN_OPTIONS ?? '',
    UBSAN_OPTIONS: process.env.UBSAN_OPTIONS ?? '',
  };
}

async function connect(dir, sdk = { Client, StdioClientTransport }) {
  const transport = new sdk.StdioClientTransport({
    command: join(root, 'bin/tavlin-mcp'),
    env: serverEnv(dir),
    stderr: 'pipe',
  });
  const client = new sdk.Client({ name: 'tavlin-tests', version: '1.0.0' });
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
                        'choose_open_panel_bundle', 'inspect_open_panel', 'scroll', 'drag', 'find_elements', 'wait_for',
                        'list_menus', 'press_menu', 'get_clipboard', 'set_clipboard', 'doctor']) {
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

    // Numbered and scaled for a model: the image sent is the annotated copy, at the size
    // the cache records for later pixel clicks.
    assert.equal(byName.get_app_state.inputSchema.properties.max_dimension.maximum, 16384);
    const seen = await client.callTool({ name: 'get_app_state', arguments: { app: 'Scribe', annotate: true, max_dimension: 600 } });
    assert.equal(seen.isError, false);
    assert.match(seen.content[0].text, /\nAnnotated screenshot: .*\.annotated\.png\n/);
    const numbered = Buffer.from(seen.content.find((c) => c.type === 'image').data, 'base64');
    assert.deepEqual(numbered, readFileSync(seen.structuredContent.annotated_screenshot_path));
    assert.deepEqual([numbered.readUInt32BE(16), numbered.readUInt32BE(20)], [600, 427]);

    const click = await client.callTool({ name: 'click', arguments: { app: 'Scribe', element_index: 6 } });
    assert.equal(click.isError, false);
    assert.deepEqual(click.structuredContent.screen_point, { x: 154, y: 128 });
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

// One pinned SDK release per protocol version; each speaks only its newest version, so
// connecting at all shows the server agreed to it.
const matrix = [
  { protocol: '2024-11-05', pkg: 'sdk-2024-11-05' },
  { protocol: '2025-03-26', pkg: 'sdk-2025-03-26' },
  { protocol: '2025-06-18', pkg: 'sdk-2025-06-18' },
  { protocol: '2025-11-25', pkg: '@modelcontextprotocol/sdk' },
];

for (const { protocol, pkg } of matrix) {
  test(`an SDK client of protocol ${protocol} gets annotated tools and valid structured results`, async () => {
    const sdk = {
      ...(await import(`${pkg}/client/index.js`)),
      ...(await import(`${pkg}/client/stdio.js`)),
    };
    const types = await import(`${pkg}/types.js`);
    assert.equal(types.LATEST_PROTOCOL_VERSION, protocol);
    const dir = mkdtempSync(join(tmpdir(), 'tavlin-mcp-'));
    const { client } = await connect(dir, sdk);
    try {
      const { tools } = await client.listTools();
      assert.equal(tools.length, 21);
      const ajv = new Ajv({ strict: false });
      const validators = {};
      for (const tool of tools) {
        assert.equal(typeof tool.annotations.readOnlyHint, 'boolean', tool.name);
        assert.equal(typeof tool.annotations.destructiveHint, 'boolean', tool.name);
        validators[tool.name] = ajv.compile(tool.outputSchema);
      }
      const byName = Object.fromEntries(tools.map((t) => [t.name, t]));
      for (const name of ['list_apps', 'get_app_state', 'inspect_open_panel', 'find_elements', 'wait_for', 'list_menus',
                          'get_clipboard', 'doctor']) {
        assert.equal(byName[name].annotations.readOnlyHint, true, name);
        assert.equal(byName[name].annotations.idempotentHint, true, name);
      }
      for (const name of ['click', 'type_text', 'press_key', 'drag', 'background_paste_clipboard', 'set_value',
                          'perform_secondary_action', 'choose_open_panel_path', 'choose_open_panel_bundle',
                          'press_menu', 'set_clipboard']) {
        assert.equal(byName[name].annotations.destructiveHint, true, name);
        assert.equal(byName[name].annotations.readOnlyHint, false, name);
      }

      const calls = [
        ['list_apps', {}],
        ['get_app_state', { app: 'Scribe' }],
        ['get_app_state', { app: 'Scribe', format: 'plugin-json' }],
        ['get_app_state', { app: 'Scribe', format: 'json' }],
        ['get_app_state', { app: 'Scribe', format: 'json', annotate: true, max_dimension: 0 }],
        ['click', { app: 'Scribe', element_index: 6 }],
        ['click', { app: 'Scribe', x: 10, y: 10 }],
        ['scroll', { app: 'Scribe', element_index: 12, direction: 'down' }],
        ['set_value', { app: 'Scribe', element_index: 10, value: 'budget' }],
        ['perform_secondary_action', { app: 'Scribe', element_index: 8, action: 'AXShowMenu' }],
        ['type_text', { app: 'Scribe', text: 'hi' }],
        ['press_key', { app: 'Scribe', key: 'cmd+s' }],
        ['drag', { app: 'Scribe', from_x: 0, from_y: 0, to_x: 30, to_y: 0 }],
        ['background_paste_clipboard', { app: 'Scribe', screen_x: 400, screen_y: 300 }],
        ['activate_app', { app: 'Scribe' }],
        ['get_app_state', { app: 'Scribe', format: 'plugin-json', changes: true }],
        ['press_key', { app: 'Scribe', key: 'tab', observe: true }],
        ['find_elements', { app: 'Scribe', role: 'AXButton', interactive: true }],
        ['wait_for', { app: 'Scribe', text: 'Bold', timeout: 1 }],
        ['wait_for', { app: 'Scribe', window_title: 'Meeting', timeout: 0 }],
        ['list_menus', { app: 'Scribe', depth: 3 }],
        ['press_menu', { app: 'Scribe', path: 'Format > Font > Bigger' }],
        ['get_clipboard', {}],
        ['set_clipboard', { text: 'Pasted by the agent' }],
        ['get_clipboard', {}],
        ['doctor', {}],
      ];
      for (const [name, args] of calls) {
        const result = await client.callTool({ name, arguments: args });
        const what = `${name} ${JSON.stringify(args)}`;
        assert.equal(result.isError, false, `${what}: ${result.content?.[0]?.text}`);
        assert.ok(validators[name](result.structuredContent), `${what}: ${ajv.errorsText(validators[name].errors)}`);
        const text = result.content[0].text;
        if (!text.startsWith('Computer AI Use state')) {
          const parsed = JSON.parse(text);
          assert.deepEqual(name === 'list_apps' ? { apps: parsed } : parsed, result.structuredContent, what);
        } else {
          assert.equal(result.structuredContent.app_state, text);
        }
      }

      // A value outside the schema: a tool result under 2025-11-25, an invalid-params error before.
      const wrong = { name: 'click', arguments: { app: 'Scribe', element_index: 6, mouse_button: 'Right' } };
      if (protocol === '2025-11-25') {
        const result = await client.callTool(wrong);
        assert.equal(result.isError, true);
        assert.match(result.content[0].text, /mouse_button.*must be one of: left, right, middle/);
      } else {
        await assert.rejects(client.callTool(wrong), (e) => e.code === -32602);
      }
    } finally {
      await client.close();
      rmSync(dir, { recursive: true, force: true });
    }
  });
}

test('the MCP Inspector CLI lists the tools and calls one', async () => {
  const dir = mkdtempSync(join(tmpdir(), 'tavlin-mcp-'));
  try {
    const env = serverEnv(dir);
    // Run from its build folder: it looks for its package.json relative to the working folder.
    const build = join(dirname(fileURLToPath(import.meta.url)), 'node_modules/@modelcontextprotocol/inspector-cli/build');
    const run = async (...args) => {
      const { stdout } = await promisify(execFile)(
        process.execPath,
        ['cli.js', '--cli', ...Object.entries(env).flatMap(([k, v]) => ['-e', `${k}=${v}`]),
         join(root, 'bin/tavlin-mcp'), ...args],
        { cwd: build, env: { ...process.env, ...env }, timeout: 60000 },
      );
      return JSON.parse(stdout.slice(stdout.indexOf('{')));
    };
    const { tools } = await run('--method', 'tools/list');
    assert.equal(tools.length, 21);
    const apps = await run('--method', 'tools/call', '--tool-name', 'list_apps');
    assert.equal(apps.isError, false);
    assert.equal(apps.structuredContent.apps[0].name, 'Scribe');
  } finally {
    rmSync(dir, { recursive: true, force: true });
  }
});
