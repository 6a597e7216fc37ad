// A phone that others wrote: seals commands and opens replies with the runtime's WebCrypto, and speaks to the relay as
// the page does.
//
//   node interop.mjs RELAY KEY     prints what the laptop answered, one JSON object a line
import { webcrypto } from 'node:crypto';

const [relay, keyText] = process.argv.slice(2);
const raw = Buffer.from(keyText, 'base64url');
const encoder = new TextEncoder();

async function topic(label) {
  const digest = await webcrypto.subtle.digest('SHA-256', Buffer.concat([encoder.encode(label), raw]));
  return 'tovi-' + Buffer.from(digest).toString('hex').slice(0, 24);
}
const key = await webcrypto.subtle.importKey('raw', raw, 'AES-GCM', false, ['encrypt', 'decrypt']);
const gcm = (iv, name) => ({ name: 'AES-GCM', iv, additionalData: encoder.encode(name), tagLength: 128 });

async function seal(text, name) {
  const nonce = webcrypto.getRandomValues(new Uint8Array(12));
  const sealed = await webcrypto.subtle.encrypt(gcm(nonce, name), key, encoder.encode(text));
  return Buffer.concat([nonce, Buffer.from(sealed)]).toString('base64url');
}
async function open(text, name) {
  const bytes = Buffer.from(text, 'base64url');
  const plain = await webcrypto.subtle.decrypt(gcm(bytes.subarray(0, 12), name), key, bytes.subarray(12));
  return JSON.parse(new TextDecoder('utf-8', { fatal: true }).decode(plain));
}

const [cmd, reply] = [await topic('tovi/cmd/v1'), await topic('tovi/reply/v1')];
const stream = await fetch(`${relay}/${reply}/json?since=all`);
const commands = [
  { cmd: 'panel' },
  { cmd: 'mode', args: { mode: 'Grüße ☕' } },
  { cmd: 'status' },
];
for (const [index, command] of commands.entries()) {
  const message = JSON.stringify({ n: `n${index}`, t: Date.now() / 1000, ...command });
  await fetch(`${relay}/${cmd}`, { method: 'POST', body: await seal(message, cmd) });
}
let rest = '', seen = 0;
for await (const bytes of stream.body) {
  const lines = (rest + Buffer.from(bytes).toString()).split('\n');
  rest = lines.pop();
  for (const line of lines) {
    const frame = JSON.parse(line);
    if (frame.event !== 'message') continue;
    console.log(JSON.stringify(await open(frame.message, reply)));
    if (++seen === commands.length) process.exit(0);
  }
}
