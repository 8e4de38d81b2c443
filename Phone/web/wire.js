// What phone and agent say once they are connected: controls as JSON, file frames and audio packets as
// bytes. Values in, bytes out, and back; nothing here knows of channels.
//
// A decoder throws WireError at whatever is not what it expects; the caller drops that message.

export class WireError extends Error {}

const utf8 = new TextEncoder();
const fromUtf8 = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true });

// Checks of one value. `optional` also takes null, which means the same as absence.
const is = {
  string: (v) => typeof v === "string",
  bool: (v) => typeof v === "boolean",
  number: (v) => typeof v === "number" && Number.isFinite(v),
  integer: (v) => Number.isInteger(v),
  int32: (v) => Number.isInteger(v) && v >= -(2 ** 31) && v < 2 ** 31,
  uint32: (v) => Number.isInteger(v) && v >= 0 && v < 2 ** 32,
  // Larger numbers than a double holds lose digits; this phone makes none.
  uint64: (v) => Number.isInteger(v) && v >= 0 && v <= 2 ** 64,
  oneOf: (...values) => (v) => values.includes(v),
  list: (shape) => (v) => Array.isArray(v) && v.every((item) => fits(shape, item)),
  record: (shape) => (v) => fits(shape, v),
};

const optional = (check) => Object.assign((v) => v === undefined || v === null || check(v), { optional: true });

export const check = { ...is, optional };

const isObject = (v) => typeof v === "object" && v !== null && !Array.isArray(v);

function fits(shape, value) {
  return isObject(value) && Object.entries(shape).every(([name, good]) => good(value[name]));
}

// The members of `shape` alone, without those that are absent.
function only(shape, value) {
  const kept = {};
  for (const name of Object.keys(shape)) {
    if (value[name] !== undefined && value[name] !== null) kept[name] = value[name];
  }
  return kept;
}

// Reads an object with exactly one member, a case of `cases`: { name: shape }.
// Returns [name, members].
export function decodeCase(cases, text) {
  let value;
  try {
    value = JSON.parse(text);
  } catch {
    throw new WireError("no JSON");
  }
  if (!isObject(value)) throw new WireError("no object");
  const names = Object.keys(value);
  if (names.length !== 1) throw new WireError("Invalid number of keys found, expected one.");
  const [name] = names;
  const shape = Object.hasOwn(cases, name) ? cases[name] : undefined;
  if (!shape) throw new WireError("unknown case");
  if (!fits(shape, value[name])) throw new WireError(`bad ${name}`);
  return [name, only(shape, value[name])];
}

// { name: members } as text. What was not made for the wire throws: it is our mistake.
export function encodeCase(cases, name, members = {}) {
  const shape = cases[name];
  if (!shape || !fits(shape, members)) throw new TypeError(`not a ${name}: ${Object.keys(members)}`);
  return JSON.stringify({ [name]: only(shape, members) });
}

export const MouseButton = Object.freeze({ left: "left", right: "right" });
export const ScrollPhase = Object.freeze({
  began: "began",
  changed: "changed",
  ended: "ended",
  momentum: "momentum",
  momentumEnded: "momentumEnded",
});
export const Modifiers = Object.freeze({ shift: 1, control: 2, option: 4, command: 8, function: 16 });
export const Rejection = Object.freeze({
  pinRequired: "pinRequired",
  wrongPin: "wrongPin",
  versionMismatch: "versionMismatch",
  phoneOutdated: "phoneOutdated",
  permissionsMissing: "permissionsMissing",
});
export const protocolVersion = 2;

const hello = {
  version: is.integer,
  deviceID: is.string,
  deviceName: is.string,
  pin: optional(is.string),
  maxPixels: is.integer,
  publicKey: optional(is.string),
};

const welcome = {
  macName: is.string,
  screenWidth: is.number,
  screenHeight: is.number,
  videoWidth: is.integer,
  videoHeight: is.integer,
  agentKey: optional(is.string),
  displays: optional(is.list({ id: is.uint32, name: is.string, width: is.number, height: is.number })),
  displayID: optional(is.uint32),
  protocolVersion: optional(is.integer),
  agentVersion: optional(is.string),
};

const directory = {
  path: is.string,
  parent: optional(is.string),
  entries: is.list({ name: is.string, isDirectory: is.bool, size: is.integer, modified: optional(is.number) }),
  error: optional(is.string),
};

const fromPhone = {
  hello: { _0: is.record(hello) },
  move: { dx: is.number, dy: is.number },
  moveTo: { x: is.number, y: is.number },
  button: { _0: is.oneOf(...Object.values(MouseButton)), down: is.bool, clicks: is.integer },
  scroll: { dx: is.number, dy: is.number, phase: is.oneOf(...Object.values(ScrollPhase)) },
  key: {
    code: (v) => Number.isInteger(v) && v >= 0 && v <= 65535,
    down: is.bool,
    modifiers: (v) => Number.isInteger(v) && v >= 0 && v <= 255,
  },
  text: { _0: is.string },
  requestKeyframe: {},
  ping: { _0: is.uint64 },
  selectDisplay: { _0: is.uint32 },
  audio: { _0: is.bool },
  listDirectory: { _0: optional(is.string) },
  fetchFile: { id: is.uint32, path: is.string },
  cancelFetch: { _0: is.uint32 },
  clipboard: { _0: is.string },
};

const fromAgent = {
  welcome: { _0: is.record(welcome) },
  rejected: { _0: is.oneOf(...Object.values(Rejection)) },
  pong: { _0: is.uint64 },
  directory: { _0: is.record(directory) },
  frontApp: { bundleID: is.string, name: is.string },
  textFocus: { _0: is.bool },
  clipboard: { _0: is.string },
};

// encodeControl("move", { dx: 1, dy: 0 }) as text for the control channel.
export const encodeControl = (name, members) => encodeCase(fromPhone, name, members);

// [name, members] of a control that an agent sends.
export const decodeControl = (text) => decodeCase(fromAgent, text);

// For whoever plays the agent.
export const encodeAgentControl = (name, members) => encodeCase(fromAgent, name, members);
export const decodePhoneControl = (text) => decodeCase(fromPhone, text);

const viewOf = (bytes) => new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength);

// { sequence, opus }: one packet of sound; `opus` is a view into `bytes`.
export function decodeAudioPacket(bytes) {
  if (bytes.length < 5) throw new WireError("short audio packet");
  return { sequence: viewOf(bytes).getUint32(0), opus: bytes.subarray(4) };
}

export function encodeAudioPacket({ sequence, opus }) {
  const bytes = new Uint8Array(4 + opus.length);
  viewOf(bytes).setUint32(0, sequence);
  bytes.set(opus, 4);
  return bytes;
}

const startShape = { name: is.string, size: is.integer };
const endShape = { error: optional(is.string) };

function decodeJson(shape, bytes) {
  let value;
  try {
    value = JSON.parse(fromUtf8.decode(bytes));
  } catch {
    throw new WireError("no JSON in a file frame");
  }
  if (!fits(shape, value)) throw new WireError("bad file frame");
  return only(shape, value);
}

// A step of a download: { id, start: { name, size } }, { id, data: bytes } or { id, end: { error? } }.
// `data` is a view into `bytes`.
export function decodeFileFrame(bytes) {
  if (bytes.length < 5) throw new WireError("short file frame");
  const id = viewOf(bytes).getUint32(1);
  const body = bytes.subarray(5);
  switch (bytes[0]) {
    case 1: return { id, start: decodeJson(startShape, body) };
    case 2: return { id, data: body };
    case 3: return { id, end: decodeJson(endShape, body) };
    default: throw new WireError("unknown step of a download");
  }
}

export function encodeFileFrame({ id, start, data, end }) {
  const body = data ?? utf8.encode(JSON.stringify(start ? only(startShape, start) : only(endShape, end)));
  const bytes = new Uint8Array(5 + body.length);
  bytes[0] = start ? 1 : data ? 2 : 3;
  viewOf(bytes).setUint32(1, id);
  bytes.set(body, 5);
  return bytes;
}

// Dates count from 2001-01-01 00:00:00 UTC, in seconds.
export const dateOf = (seconds) => new Date((seconds + 978307200) * 1000);

// The last component of what an agent calls a file, so that a download cannot name a place.
export function safeFileName(name) {
  const last = name.split(/[/\\]/).pop().replace(/[\u0000-\u001f\u007f\u202a-\u202e\u2066-\u2069]/g, "").trim();
  return last === "" || last === "." || last === ".." ? "download" : last;
}
