// The key that makes this browser a phone that computers know.
import { fromBase64, toBase32 } from "./bytes.js";

// `code` names a text of texts.js.
export class ImportError extends Error {
  constructor(code, detail = "") {
    super(`${code} ${detail}`.trim());
    this.code = code;
    this.detail = detail;
  }
}

// The 16 characters that name a public key.
export async function deviceID(publicKey) {
  const digest = await crypto.subtle.digest("SHA-256", publicKey);
  return toBase32(new Uint8Array(digest, 0, 10));
}

// RFC 8410: what stands before the 32 bytes of an X25519 private key.
const pkcs8Header = Uint8Array.from("302e020100300506032b656e04220420".match(/../g), (hex) => parseInt(hex, 16));
const basePoint = Uint8Array.of(9, ...new Uint8Array(31));

// { privateKey, publicKey, id } of 32 raw bytes. The private key is a CryptoKey that can be used but not
// read again, not even by this page. Throws ImportError where the browser cannot do it.
export async function makeIdentity(raw) {
  if (raw?.length !== 32) throw new ImportError("notAKey");
  if (!globalThis.crypto?.subtle) throw new ImportError("insecurePage");
  const pkcs8 = new Uint8Array([...pkcs8Header, ...raw]);
  try {
    const privateKey = await crypto.subtle.importKey("pkcs8", pkcs8, { name: "X25519" }, false, ["deriveBits"]);
    const publicKey = await agree(privateKey, basePoint);
    return { privateKey, publicKey, id: await deviceID(publicKey) };
  } catch {
    throw new ImportError("browserTooOld");
  } finally {
    pkcs8.fill(0);
  }
}

// X25519 (RFC 7748). Throws when the peer's key is one with which there is no secret.
export async function agree(privateKey, publicKey) {
  const peer = await crypto.subtle.importKey("raw", publicKey, { name: "X25519" }, false, []);
  return new Uint8Array(await crypto.subtle.deriveBits({ name: "X25519", public: peer }, privateKey, 256));
}

// What a person hands over, piece by piece: the files of a paired phone's state folder (`identity`, 32 raw
// bytes, and `agents.json`), or one JSON document with the same in it:
//   {"identity":"base64","agents":[{"publicKey":"base64","name":"…"}],"relay":{"url":"…","key":"…"}}
// Pieces are strings or bytes. Returns { raw?, agents?, relay?, stun?, deviceName? } with what was there;
// agents are checked and are [{ id, publicKey, name }]. Throws ImportError.
export async function readImport(pieces) {
  const found = {};
  for (const piece of pieces) Object.assign(found, await readPiece(piece));
  if (Object.keys(found).length === 0) throw new ImportError("nothingToImport");
  return found;
}

async function readPiece(piece) {
  if (piece instanceof Uint8Array) {
    if (piece.length === 32) return { raw: piece };
    piece = new TextDecoder().decode(piece);
  }
  const text = piece.trim();
  if (text === "") return {};
  const key = fromBase64(text);
  if (key?.length === 32) return { raw: key };
  let value;
  try {
    value = JSON.parse(text);
  } catch {
    throw new ImportError("notAKey");
  }
  if (typeof value !== "object" || value === null) throw new ImportError("notAKey");

  const found = {};
  const secret = value.identity ?? value.privateKey;
  if (secret !== undefined) {
    found.raw = fromBase64(secret);
    if (found.raw?.length !== 32) throw new ImportError("notAKey");
  }
  if (value.agents !== undefined) {
    if (!Array.isArray(value.agents)) throw new ImportError("badAgent");
    found.agents = await Promise.all(value.agents.map(readAgent));
  }
  if (typeof value.relay?.url === "string") {
    found.relay = { url: value.relay.url, key: typeof value.relay.key === "string" ? value.relay.key : "local" };
  }
  if (Array.isArray(value.stun)) found.stun = value.stun.filter((url) => typeof url === "string");
  if (typeof value.deviceName === "string") found.deviceName = value.deviceName;
  return found;
}

async function readAgent(agent) {
  const name = typeof agent?.name === "string" ? agent.name : "";
  const publicKey = fromBase64(agent?.publicKey);
  if (publicKey?.length !== 32) throw new ImportError("badAgent", name);
  const id = await deviceID(publicKey);
  // An ID that belongs to another key: the file is damaged, or somebody has been at it.
  if (agent.id !== undefined && agent.id !== id) throw new ImportError("badAgent", name);
  return { id, publicKey, name };
}
