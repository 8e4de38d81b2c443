import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import test from "node:test";
import { webcrypto } from "node:crypto";
import { hex, documentKey, foreignEnvelope, foreignMessage, highKey, lowKey } from "./vectors.mjs";

globalThis.crypto ??= webcrypto; // of old versions
const { Conversation, SignalError, topicOf } = await import("../../Phone/web/envelope.js");
const { agree, deviceID, ImportError, makeIdentity, readImport } = await import("../../Phone/web/identity.js");
const { fromBase64, toBase64 } = await import("../../Phone/web/bytes.js");

const sent = foreignEnvelope.sentAt * 1000;
const agent = await makeIdentity(lowKey);
const phone = await makeIdentity(highKey);
const talk = (session = foreignEnvelope.session, own = phone, peer = agent) => Conversation.begin(own, peer, session);

const errorOf = (conversation, envelope, now = sent) => {
  try {
    assert.deepEqual(conversation.open(envelope, now), foreignMessage);
    return null;
  } catch (error) {
    if (!(error instanceof SignalError)) throw error;
    return error.code;
  }
};

test("device IDs", async () => {
  assert.equal(agent.id, "vkup75ydwufsff7u");
  assert.equal(phone.id, "m7fc77lp5hx2wplw");
  assert.equal(await deviceID(hex("")), "4oymiquy7qobjgx3");
  assert.equal(topicOf(agent.id), "orvel-vkup75ydwufsff7u");
  assert.equal(Buffer.from(agent.publicKey).toString("hex"), "07a37cbc142093c8b755dc1b10e86cb426374ad16aa853ed0bdfc0b2b86d1c7c");
});

test("the private key cannot be read again", async () => {
  assert.equal(agent.privateKey.extractable, false);
  for (const format of ["pkcs8", "jwk"]) await assert.rejects(crypto.subtle.exportKey(format, agent.privateKey));
});

test("opens what another implementation sealed, and seals the same", async () => {
  const conversation = await talk();
  assert.equal(errorOf(conversation, foreignEnvelope), null);
  const nonce = fromBase64(foreignEnvelope.box).slice(0, 12);
  const other = await talk(foreignEnvelope.session, agent, phone);
  assert.deepEqual(other.seal(...foreignMessage, sent + 499, nonce), foreignEnvelope);
  assert.equal(other.seal(...foreignMessage, sent + 500).sentAt, foreignEnvelope.sentAt + 1);
  assert.equal(errorOf(conversation, other.seal(...foreignMessage, sent)), null);
});

test("the protocol's example", async () => {
  const document = readFileSync(new URL("../../Docs/Protocol.md", import.meta.url), "utf8");
  const example = JSON.parse(/```json envelope\n(.*)\n```/.exec(document)[1]);
  const documentAgent = await makeIdentity(documentKey);
  const conversation = await Conversation.begin(documentAgent, agent, example.session);
  assert.deepEqual(conversation.open(example, example.sentAt * 1000), ["probe", {}]);
});

test("the first check that fails decides", async () => {
  const conversation = await talk();
  const box = fromBase64(foreignEnvelope.box);
  const flipped = (index) => ({ box: toBase64(box.map((byte, i) => (i === (index + box.length) % box.length ? byte ^ 1 : byte))) });
  const rows = [
    ["as sent", {}, null],
    ["just in time", {}, null, 120_000],
    ["just not too early", {}, null, -120_000],
    ["late", {}, "stale", 120_001],
    ["early", {}, "stale", -120_001],
    ["for another", { to: "aaaaaaaaaaaaaaaa" }, "notForUs"],
    ["from another", { from: "aaaaaaaaaaaaaaaa" }, "unknownSender"],
    ["for and from another", { to: foreignEnvelope.from, from: foreignEnvelope.to }, "notForUs"],
    ["from another and late", { from: "a" }, "unknownSender", 121_000],
    ["sent a second later", { sentAt: foreignEnvelope.sentAt + 1 }, "undecryptable"],
    ["with a fraction that does not count", { sentAt: foreignEnvelope.sentAt + 0.5 }, null],
    ["sent when time ends", { sentAt: 1e300 }, "stale"],
    ["sent at no time", { sentAt: null }, "malformed"],
    ["in another session", { session: "3F2504E0-4F89-41D3-9A0C-0305E82C3302" }, "undecryptable"],
    ["no box", { box: "" }, "undecryptable"],
    ["too short for a box", { box: toBase64(box.slice(0, 27)) }, "undecryptable"],
    ["nothing in the box", { box: toBase64(box.slice(0, 28)) }, "undecryptable"],
    ["changed nonce", flipped(0), "undecryptable"],
    ["changed text", flipped(20), "undecryptable"],
    ["changed tag", flipped(-1), "undecryptable"],
    ["a box with a space", { box: foreignEnvelope.box.replace("AAEC", "AA C") }, "malformed"],
    ["a box without padding", { box: foreignEnvelope.box.replace("=", "") }, "malformed"],
  ];
  for (const [name, damage, expected, lateBy = 0] of rows) {
    assert.equal(errorOf(conversation, { ...foreignEnvelope, ...damage }, sent + lateBy), expected, name);
  }
  for (const nothing of [null, 1, "", [], {}]) assert.equal(errorOf(conversation, nothing), "malformed");
});

test("there is no secret with a key of small order", async () => {
  for (const point of ["00".repeat(32), `01${"00".repeat(31)}`]) {
    await assert.rejects(agree(phone.privateKey, hex(point)));
  }
});

test("what a person may hand over", async () => {
  const key = toBase64(highKey);
  const agents = [{ id: agent.id, publicKey: toBase64(agent.publicKey), name: "Desk", host: "::1", port: 1, lastUsed: 0 }];
  const known = [{ id: agent.id, publicKey: agent.publicKey, name: "Desk" }];
  const utf8 = (value) => new TextEncoder().encode(JSON.stringify(value));
  const rows = [
    [[highKey, utf8({ agents })], { raw: highKey, agents: known }],
    [[` ${key}\n`], { raw: highKey }],
    [[JSON.stringify({ identity: key, agents, relay: { url: "wss://a" }, stun: ["stun:a"], deviceName: "b" })],
      { raw: highKey, agents: known, relay: { url: "wss://a", key: "local" }, stun: ["stun:a"], deviceName: "b" }],
  ];
  for (const [pieces, found] of rows) assert.deepEqual(await readImport(pieces), found);
  const refused = [
    [[], "nothingToImport"],
    [["{}"], "nothingToImport"],
    [["my phone"], "notAKey"],
    [[new Uint8Array(31)], "notAKey"],
    [['{"identity":"AAAA"}'], "notAKey"],
    [['{"agents":[{"publicKey":"AAAA"}]}'], "badAgent"],
    [[JSON.stringify({ agents: [{ ...agents[0], id: phone.id }] })], "badAgent"],
  ];
  for (const [pieces, code] of refused) {
    await assert.rejects(readImport(pieces), (error) => error instanceof ImportError && error.code === code, code);
  }
});
