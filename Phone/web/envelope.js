// Signals sealed for one receiver, as they travel through the relay.
import { chacha20poly1305 } from "./node_modules/@noble/ciphers/esm/chacha.js";
import { fromBase64, toBase64 } from "./bytes.js";
import { agree } from "./identity.js";
import { decodeSignal, encodeSignal } from "./signal.js";

export const maxAge = 120; // seconds that the clocks may differ and a message be under way

// `code`: "malformed", "notForUs", "unknownSender", "stale" or "undecryptable".
export class SignalError extends Error {
  constructor(code) {
    super(code);
    this.code = code;
  }
}

// Where an agent listens and its phones are heard.
export const topicOf = (agentID) => `orvel-${agentID}`;

const utf8 = new TextEncoder();
const fromUtf8 = new TextDecoder("utf-8", { fatal: true, ignoreBOM: true });

const associatedData = ({ from, to, session, sentAt }) =>
  utf8.encode(`${from}|${to}|${session}|${Math.trunc(sentAt)}`);

// What two devices say to each other under one session string. Deriving its key takes a promise; sealing
// and opening after that do not, so that a page which is being closed can still say goodbye.
export class Conversation {
  #key;

  // identity: { privateKey, id }, peer: { id, publicKey }. Throws when there is no secret with that peer.
  static async begin(identity, peer, session) {
    const shared = await agree(identity.privateKey, peer.publicKey);
    const input = await crypto.subtle.importKey("raw", shared, "HKDF", false, ["deriveBits"]);
    shared.fill(0);
    const bits = await crypto.subtle.deriveBits(
      { name: "HKDF", hash: "SHA-256", salt: utf8.encode(session), info: utf8.encode("orvel-signal-v1") },
      input,
      256,
    );
    return new Conversation(identity.id, peer.id, session, new Uint8Array(bits));
  }

  constructor(ownID, peerID, session, key) {
    Object.assign(this, { ownID, peerID, session });
    this.#key = key;
  }

  // An envelope: a plain object to be broadcast. `now` in milliseconds since 1970.
  seal(name, members, now = Date.now(), nonce = crypto.getRandomValues(new Uint8Array(12))) {
    const envelope = { from: this.ownID, to: this.peerID, session: this.session, sentAt: Math.round(now / 1000) };
    const sealed = chacha20poly1305(this.#key, nonce, associatedData(envelope))
      .encrypt(utf8.encode(encodeSignal(name, members)));
    const box = new Uint8Array(12 + sealed.length);
    box.set(nonce);
    box.set(sealed, 12);
    return { ...envelope, box: toBase64(box) };
  }

  // [name, members] of a received envelope. Everybody on the topic is heard, so most errors mean nothing.
  // The first check that fails decides. Throws SignalError.
  open(envelope, now = Date.now()) {
    const box = boxOf(envelope);
    if (envelope.to !== this.ownID) throw new SignalError("notForUs");
    if (envelope.from !== this.peerID) throw new SignalError("unknownSender");
    if (!(Math.abs(now / 1000 - envelope.sentAt) <= maxAge)) throw new SignalError("stale");
    try {
      const text = chacha20poly1305(this.#key, box.subarray(0, 12), associatedData(envelope))
        .decrypt(box.subarray(12));
      return decodeSignal(fromUtf8.decode(text));
    } catch {
      throw new SignalError("undecryptable");
    }
  }
}

function boxOf(envelope) {
  const isEnvelope =
    typeof envelope === "object" && envelope !== null && Number.isFinite(envelope.sentAt) &&
    ["from", "to", "session", "box"].every((name) => typeof envelope[name] === "string");
  const box = isEnvelope ? fromBase64(envelope.box) : undefined;
  if (!box) throw new SignalError("malformed");
  return box;
}
