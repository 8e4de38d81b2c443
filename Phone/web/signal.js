// What phone and agent say to each other before they are connected, as JSON.
import { check, decodeCase, encodeCase } from "./wire.js";

const cases = {
  probe: {},
  here: { macName: check.string, busy: check.bool },
  standby: { macName: check.string },
  unlock: {},
  unlocked: { until: check.number }, // seconds since 1970
  offer: { sdp: check.string },
  answer: { sdp: check.string },
  candidate: {
    _0: check.record({ sdp: check.string, sdpMid: check.optional(check.string), sdpMLineIndex: check.int32 }),
  },
  bye: {},
};

export const encodeSignal = (name, members) => encodeCase(cases, name, members);

// [name, members]; throws WireError.
export const decodeSignal = (text) => decodeCase(cases, text);
