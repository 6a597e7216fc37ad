// Drives the server with the public SDK's client, against a running application.
//
//   node sdk.mjs PROGRAM             the whole session; exit status 0 if all went as it should
//   node sdk.mjs PROGRAM hold        makes a hold, prints its id, and stays
//   node sdk.mjs PROGRAM release ID  tries to end that hold and prints the tool's result
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { once } from "node:events";
import { setTimeout as pause } from "node:timers/promises";
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StdioClientTransport } from "@modelcontextprotocol/sdk/client/stdio.js";

const [program, role, id] = process.argv.slice(2);

async function connect() {
  const client = new Client({ name: "tovi-test", version: "1" });
  await client.connect(
    new StdioClientTransport({ command: program, args: ["mcp"], env: { ...process.env }, stderr: "inherit" }),
  );
  return client;
}

async function call(client, name, args = {}) {
  const result = await client.callTool({ name, arguments: args });
  assert.equal(result.content.length, 1);
  assert.equal(result.content[0].type, "text");
  const reply = JSON.parse(result.content[0].text);
  assert.equal(result.isError, reply.ok === false, name);
  return reply;
}

const makeHold = async (client) => (await call(client, "tovi_keep_awake", { reason: "SDK" })).hold.id;
const run = (...words) => execFileSync(process.execPath, [process.argv[1], program, ...words], { encoding: "utf8" });
const status = () => JSON.parse(execFileSync(program, ["status", "--json"], { encoding: "utf8" }));
const held = (hold) => status().holds.some((entry) => entry.id === hold);

const checks = {
  async "the handshake tells who is there"(client) {
    assert.deepEqual(client.getServerVersion(), { name: "tovi", version: "1.0" });
    assert.deepEqual(client.getServerCapabilities(), { tools: {} });
    assert.match(client.getInstructions(), /^Tovi keeps this Mac awake/);
    await client.ping();
  },

  async "every tool is listed in a form that the client accepts"(client) {
    const { tools } = await client.listTools();
    assert.equal(tools.length, 16);
    assert.deepEqual(tools.find((tool) => tool.name === "tovi_keep_awake").inputSchema.required, ["reason"]);
  },

  async "tools that only read succeed"(client) {
    for (const name of ["tovi_status", "tovi_settings", "tovi_energy", "tovi_get_config", "tovi_setup_prompt"]) {
      assert.equal((await call(client, name)).ok, true, name);
    }
  },

  async "a setting that is made stays made"(client) {
    assert.equal((await call(client, "tovi_set_setting", { key: "preset", value: "full_speed" })).ok, true);
    assert.equal((await call(client, "tovi_get_config")).config.preset, "speed");
    assert.equal((await call(client, "tovi_set_setting", { key: "nonsense", value: "1" })).ok, false);
  },

  async "an unknown tool is an error of the protocol"(client) {
    await assert.rejects(client.callTool({ name: "tovi_fly", arguments: {} }), { code: -32602 });
  },

  async "a session ends its own hold"(client) {
    const hold = await makeHold(client);
    assert.ok(held(hold));
    assert.equal((await call(client, "tovi_release", { hold_id: hold })).released, 1);
    assert.ok(!held(hold));
  },

  async "a session can't end another's hold"(client) {
    const hold = await makeHold(client);
    assert.deepEqual(JSON.parse(run("release", hold)), {
      ok: false,
      error: `no hold ${hold} made by this session`,
    });
    assert.ok(held(hold));
    await call(client, "tovi_release");
  },

  async "a hold ends when its client is killed"() {
    const other = spawn(process.execPath, [process.argv[1], program, "hold"], { stdio: ["ignore", "pipe", "inherit"] });
    const hold = String((await once(other.stdout, "data"))[0]).trim();
    assert.ok(held(hold));
    other.kill("SIGKILL");
    for (let tries = 0; tries < 50 && held(hold); ++tries) await pause(200);
    assert.ok(!held(hold));
  },

  async "the end of input, or of a reader, ends the server with 0"() {
    // A sanitizer's look for leaks is no part of the program, and a busy computer none of its doing: the best of three.
    const env = { ...process.env, ASAN_OPTIONS: `${process.env.ASAN_OPTIONS ?? ""}:detect_leaks=0` };
    const best = { stdin: Infinity, stdout: Infinity };
    for (const end of ["stdin", "stdout", "stdin", "stdout", "stdin", "stdout"]) {
      const server = spawn(program, ["mcp"], { stdio: ["pipe", "pipe", "inherit"], env });
      server.stdin.write('{"jsonrpc": "2.0", "id": "one", "method": "ping"}\n');
      assert.equal(String((await once(server.stdout, "data"))[0]), '{"id":"one","jsonrpc":"2.0","result":{}}\n');
      const before = performance.now();
      if (end === "stdin") server.stdin.end();
      else server.stdout.destroy();
      assert.deepEqual(await once(server, "exit"), [0, null], end);
      best[end] = Math.min(best[end], performance.now() - before);
    }
    assert.ok(best.stdin < 100 && best.stdout < 100, `${best.stdin} and ${best.stdout} ms`);
  },
};

const client = await connect();
if (role === "hold") {
  console.log(await makeHold(client));
} else if (role === "release") {
  console.log(JSON.stringify(await call(client, "tovi_release", { hold_id: id })));
  await client.close();
} else {
  for (const [name, check] of Object.entries(checks)) {
    try {
      await check(client);
      console.log(`ok: ${name}`);
    } catch (error) {
      process.exitCode = 1;
      console.log(`FAILED: ${name}\n${error.stack}`);
    }
  }
  await client.close();
}
