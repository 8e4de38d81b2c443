// Bytes as text and back.

// Standard base64 with padding, exactly; undefined for anything else.
export function fromBase64(text) {
  if (typeof text !== "string" || text.length % 4 !== 0 || !/^[A-Za-z0-9+/]*={0,2}$/.test(text)) return undefined;
  return Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
}

export function toBase64(bytes) {
  let text = "";
  for (const byte of bytes) text += String.fromCharCode(byte);
  return btoa(text);
}

const alphabet = "abcdefghijklmnopqrstuvwxyz234567";

// RFC 4648 base32 in lower case, without padding.
export function toBase32(bytes) {
  let text = "", bits = 0, held = 0;
  for (const byte of bytes) {
    held = (held << 8) | byte;
    for (bits += 8; bits >= 5; bits -= 5) text += alphabet[(held >> (bits - 5)) & 31];
    held &= (1 << bits) - 1;
  }
  if (bits > 0) text += alphabet[(held << (5 - bits)) & 31];
  return text;
}
