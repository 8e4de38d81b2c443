// Keys and bytes that the tests of the program itself use, too.
export const hex = (text) => Uint8Array.from(text.replaceAll(" ", "").match(/../g) ?? [], (two) => parseInt(two, 16));

export const lowKey = hex("0102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f20");
export const highKey = hex("404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f");
// The agent's of Docs/Protocol.md.
export const documentKey = hex("4142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f60");

// From lowKey, an agent, to highKey, a phone, made by another implementation.
export const foreignEnvelope = {
  from: "vkup75ydwufsff7u",
  to: "m7fc77lp5hx2wplw",
  session: "3F2504E0-4F89-41D3-9A0C-0305E82C3301",
  sentAt: 1731715200,
  box: "AAECAwQFBgcICQoLEi7HXz4wIBnJA6cvo0chaNcQ/y9CscO5o2AyD2zpJqVy1k6LlKBdOwk4K+BNIQ9s+Z695onfQhdOE6tOk1coupVlU3S6irFaqnQ=",
};
export const foreignMessage = ["here", { macName: "Ayşe'nin bilgisayarı", busy: false }];
