import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import test from "node:test";
import { decodeSignal, encodeSignal } from "../../Phone/web/signal.js";
import {
  dateOf, decodeAudioPacket, decodeControl, decodeFileFrame, decodePhoneControl, encodeAgentControl,
  encodeAudioPacket, encodeControl, encodeFileFrame, safeFileName, WireError,
} from "../../Phone/web/wire.js";
import { hex } from "./vectors.mjs";

const document = readFileSync(new URL("../../Docs/Protocol.md", import.meta.url), "utf8");

// The lines of the code blocks that begin with this fence, below a heading.
function examples(heading, fence) {
  const section = document.slice(document.indexOf(`\n${heading}\n`)).slice(heading.length + 2).split(/\n##+ /)[0];
  return [...section.matchAll(new RegExp(`\n\`\`\`${fence}\n([^]*?)\`\`\``, "g"))].flatMap((block) => block[1].trim().split("\n"));
}

test("the protocol's examples are read, and written the same", () => {
  const rows = [
    [examples("### From the phone", "json"), decodePhoneControl, encodeControl, 17],
    [examples("### From the agent", "json"), decodeControl, encodeAgentControl, 8],
    [examples("### Messages", "json signal"), decodeSignal, encodeSignal, 9],
  ];
  for (const [lines, decode, encode, least] of rows) {
    assert.ok(lines.length >= least, `${lines.length} examples`);
    for (const line of lines) {
      if (line.includes("18446744073709551615")) continue; // more digits than a number has here
      assert.equal(encode(...decode(line)), line);
    }
  }
});

test("controls that are none are refused", () => {
  const rows = [
    "", "null", "[]", '"welcome"', "{}", '{"textFocus":{"_0":true},"pong":{"_0":1}}', '{"hello":{}}', '{"toString":{}}',
    '{"pong":{"_0":-1}}', '{"pong":{"_0":1.5}}', '{"pong":{"_0":"1"}}', '{"pong":null}', '{"textFocus":{"_0":1}}',
    '{"textFocus":{}}', '{"rejected":{"_0":"never"}}', '{"clipboard":{"_0":null}}', '{"frontApp":{"name":"a"}}',
    '{"directory":{"_0":{"path":"/"}}}', '{"directory":{"_0":{"path":"/","entries":[{"name":"a"}]}}}',
    '{"welcome":{"_0":{"macName":"a","screenWidth":1,"screenHeight":1,"videoWidth":1.5,"videoHeight":1}}}',
    '{"welcome":{"_0":{"macName":"a","screenWidth":1,"screenHeight":1,"videoWidth":2,"videoHeight":2,"displays":[{}]}}}',
  ];
  for (const text of rows) assert.throws(() => decodeControl(text), WireError, text);
  assert.throws(() => decodeControl("{}"), { message: "Invalid number of keys found, expected one." });
});

test("what is optional may be null, and what is unknown is left out", () => {
  const welcome = { macName: "a", screenWidth: 1, screenHeight: 1, videoWidth: 2, videoHeight: 2 };
  assert.deepEqual(decodeControl(JSON.stringify({ welcome: { _0: welcome, more: 1 } })), ["welcome", { _0: welcome }]);
  assert.equal(encodeControl("listDirectory", { _0: undefined }), '{"listDirectory":{}}');
  const [, { _0 }] = decodeControl('{"directory":{"_0":{"path":"/","parent":null,"entries":[],"error":null}}}');
  assert.equal(_0.parent, null);
  assert.equal(dateOf(10).toISOString(), "2001-01-01T00:00:10.000Z");
});

test("no control leaves that the computer would end the session for", () => {
  const rows = [
    ["move", { dx: NaN, dy: 0 }], ["moveTo", { x: 0, y: Infinity }], ["key", { code: 65536, down: true, modifiers: 0 }],
    ["key", { code: 0, down: true, modifiers: 256 }], ["button", { _0: "middle", down: true, clicks: 1 }],
    ["scroll", { dx: 0, dy: 0, phase: "over" }], ["text", {}], ["welcome", {}],
  ];
  for (const [name, members] of rows) assert.throws(() => encodeControl(name, members), TypeError, name);
});

test("signals that are none are refused", () => {
  const rows = [
    "", "null", "[]", '"probe"', "{}", '{"probe":{},"bye":{}}', '{"Probe":{}}', '{"hello":{}}', '{"probe":null}',
    '{"probe":[]}', '{"here":{"macName":"Mac"}}', '{"here":{"macName":"Mac","busy":1}}', '{"standby":{"macName":null}}',
    '{"unlocked":{"until":"1"}}', '{"unlocked":{"until":1e999}}', '{"offer":{"sdp":1}}',
    '{"candidate":{"sdp":"","sdpMLineIndex":0}}', '{"candidate":{"_0":{"sdp":""}}}',
    '{"candidate":{"_0":{"sdp":"","sdpMLineIndex":2147483648}}}', '{"candidate":{"_0":{"sdp":"","sdpMLineIndex":0.5}}}',
    '{"candidate":{"_0":{"sdp":"","sdpMid":0,"sdpMLineIndex":0}}}', '{"bye":{}} {}',
  ];
  for (const text of rows) assert.throws(() => decodeSignal(text), WireError, text);
});

const utf8 = (text) => new TextEncoder().encode(text);
const joined = (header, body) => Uint8Array.of(...hex(header), ...(typeof body === "string" ? utf8(body) : body));

test("each step of a download", () => {
  const rows = [
    [{ id: 7, start: { name: 'résumé "1".pdf', size: 300 } }, joined("01 00000007", '{"name":"résumé \\"1\\".pdf","size":300}')],
    [{ id: 0x01020304, data: hex("7B00FF") }, joined("02 01020304", hex("7B00FF"))],
    [{ id: 1, data: hex("") }, hex("02 00000001")],
    [{ id: 0xffffffff, end: {} }, joined("03 FFFFFFFF", "{}")],
    [{ id: 9, end: { error: "İptal edildi." } }, joined("03 00000009", '{"error":"İptal edildi."}')],
  ];
  for (const [frame, bytes] of rows) {
    assert.deepEqual(encodeFileFrame(frame), bytes);
    assert.deepEqual(decodeFileFrame(bytes), frame);
  }
  assert.deepEqual(decodeFileFrame(joined("03 00000001", '{"error":null,"more":1}')), { id: 1, end: {} });
  const bad = [
    hex(""), hex("02"), hex("03 000000"), hex("00 00000001 7B7D"), hex("04 00000001 7B7D"), hex("01 00000001"),
    joined("01 00000001", '{"name":"a"}'), joined("01 00000001", '{"name":null,"size":1}'),
    joined("01 00000001", '{"name":"a","size":1.5}'), joined("03 00000001", "[]"), joined("03 00000001", '{"error":1}'),
    joined("01 00000001", hex("FF")),
  ];
  for (const bytes of bad) assert.throws(() => decodeFileFrame(bytes), WireError);
});

test("packets of sound", () => {
  const bytes = hex("00000001 fc01");
  assert.deepEqual(decodeAudioPacket(bytes), { sequence: 1, opus: hex("fc01") });
  assert.deepEqual(encodeAudioPacket({ sequence: 1, opus: hex("fc01") }), bytes);
  // Not at the beginning of its buffer.
  assert.equal(decodeAudioPacket(hex("ff fffffffe 01").subarray(1)).sequence, 0xfffffffe);
  assert.throws(() => decodeAudioPacket(hex("00000001")), WireError);
});

test("a download names no place", () => {
  const rows = [
    ["notes.txt", "notes.txt"], ["/etc/passwd", "passwd"], ["..\\..\\boot.ini", "boot.ini"], ["a/..", "download"],
    ["", "download"], ["/", "download"], ["..", "download"], ["ş\u0000ı.txt", "şı.txt"], ["a\u202egpj.exe", "agpj.exe"],
  ];
  for (const [name, safe] of rows) assert.equal(safeFileName(name), safe, name);
});
