// One WebRTC session with a computer: offers, says hello, and carries picture, sound, files and controls.
//
//   offering -> connecting -> greeting -> live <-> interrupted; all lead to ended, which is final.
import { decodeAudioPacket, decodeControl, decodeFileFrame, encodeControl, protocolVersion, WireError } from "./wire.js";

export const SessionState = Object.freeze({
  offering: "offering",
  connecting: "connecting",
  greeting: "greeting",
  live: "live",
  interrupted: "interrupted", // nothing arrives; it may come back
  ended: "ended",
});

// Why a session ended.
export const EndReason = Object.freeze({
  left: "left", // we wanted it
  bye: "bye", // the computer did
  locked: "locked", // it is in standby
  rejected: "rejected", // and says why
  silent: "silent", // it did not answer the offer
  noPath: "noPath", // no way between the two networks
  lost: "lost", // the connection broke
});

const maxMessage = 262_144; // bytes; a longer one would end the connection
const repeatOfferTime = 4_000;
const answerTime = 12_000;
const pathTime = 25_000;
const welcomeTime = 20_000;
const graceTime = 12_000; // the computer gives up after 10
const pingTime = 3_000;
const statisticsTime = 2_000;

const utf8 = new TextEncoder();

export class Session {
  state = null;
  welcome = null; // the newest
  reason = null; // of the end
  rejection = null;

  onState = () => {}; // (state)
  onControl = () => {}; // (name, members), the welcome included
  onFile = () => {}; // (frame)
  onAudio = () => {}; // (packet)
  onStream = () => {}; // (MediaStream)
  onStatistics = () => {}; // ({ roundTrip?: ms, relayed?: bool, fps?: number })

  #line;
  #talk = null;
  #peer = null;
  #control = null;
  #hello;
  #waiting = []; // candidates that came before the answer
  #hasAnswer = false;
  #timers = new Map();
  #pings = new Map();
  #pingNumber = 0;
  #statistics = {};

  // hello: { deviceID, deviceName, maxPixels }.
  constructor(line, hello) {
    this.#line = line;
    this.#hello = hello;
  }

  async start(iceServers) {
    this.#set(SessionState.offering);
    this.#talk = await this.#line.converse((name, members) => this.#signalled(name, members));
    if (this.state === SessionState.ended) return this.#talk.close();
    const peer = (this.#peer = new RTCPeerConnection({ iceServers: usable(iceServers), bundlePolicy: "max-bundle" }));
    peer.onicecandidate = ({ candidate }) => candidate?.candidate && this.#talk.send("candidate", {
      _0: { sdp: candidate.candidate, sdpMid: candidate.sdpMid, sdpMLineIndex: candidate.sdpMLineIndex ?? 0 },
    });
    peer.onconnectionstatechange = () => this.#connectionChanged(peer.connectionState);
    peer.ontrack = ({ receiver, track }) => {
      // Newest picture first: a remote screen is no film.
      if ("jitterBufferTarget" in receiver) receiver.jitterBufferTarget = 0;
      this.onStream(new MediaStream([track]));
    };
    this.#openChannels(peer);
    preferH264(peer.addTransceiver("video", { direction: "recvonly" }));
    try {
      await peer.setLocalDescription();
    } catch {
      return this.#end(EndReason.noPath);
    }
    if (this.state === SessionState.ended) return;
    const offer = { sdp: peer.localDescription.sdp };
    this.#talk.send("offer", offer);
    this.#after("offer", repeatOfferTime, () => this.#talk.send("offer", offer));
    this.#after("answer", answerTime, () => this.#end(EndReason.silent));
  }

  // A control; dropped while there is no channel for it, and when it is longer than a message may be.
  send(name, members) {
    const text = encodeControl(name, members);
    if (this.#control?.readyState !== "open" || 3 * text.length > maxMessage && utf8.encode(text).length > maxMessage) return;
    this.#control.send(text);
  }

  // Says goodbye; takes effect at once, so that a page which is being closed can call it.
  leave() {
    if (this.state === SessionState.ended) return;
    this.#talk?.send("bye");
    this.#end(EndReason.left);
  }

  // Ends one that is interrupted.
  giveUp() {
    if (this.state === SessionState.interrupted) this.#end(EndReason.lost);
  }

  #openChannels(peer) {
    const open = (label, options) => {
      const channel = peer.createDataChannel(label, options);
      channel.binaryType = "arraybuffer";
      return channel;
    };
    this.#control = open("control");
    this.#control.onopen = () => this.#greet();
    this.#control.onclose = () => this.#end(EndReason.lost);
    this.#control.onmessage = ({ data }) => this.#decoded(
      () => decodeControl(typeof data === "string" ? data : new TextDecoder().decode(data)),
      ([name, members]) => this.#controlled(name, members),
    );
    open("files").onmessage = ({ data }) => this.#decoded(() => decodeFileFrame(bytesOf(data)), this.onFile);
    // Late sound is no use.
    open("audio", { ordered: false, maxRetransmits: 0 }).onmessage = ({ data }) =>
      this.#decoded(() => decodeAudioPacket(bytesOf(data)), this.onAudio);
  }

  #decoded(decode, use) {
    let value;
    try {
      value = decode();
    } catch (error) {
      if (error instanceof WireError) return;
      throw error;
    }
    if (this.state !== SessionState.ended) use(value);
  }

  async #signalled(name, members) {
    if (name === "answer") {
      if (this.#hasAnswer || !this.#peer) return;
      this.#hasAnswer = true;
      this.#cancel("offer");
      this.#cancel("answer");
      this.#set(SessionState.connecting);
      this.#after("path", pathTime, () => this.#end(EndReason.noPath));
      try {
        await this.#peer.setRemoteDescription({ type: "answer", sdp: members.sdp });
      } catch {
        return this.#end(EndReason.noPath);
      }
      for (const candidate of this.#waiting.splice(0)) this.#add(candidate);
    } else if (name === "candidate") {
      if (this.#peer?.remoteDescription) this.#add(members._0);
      else if (this.#waiting.length < 256) this.#waiting.push(members._0);
    } else if (name === "standby") {
      this.#end(EndReason.locked);
    } else if (name === "bye") {
      this.#end(EndReason.bye);
    }
  }

  #add({ sdp, sdpMid, sdpMLineIndex }) {
    this.#peer.addIceCandidate({ candidate: sdp, sdpMid, sdpMLineIndex }).catch(() => {});
  }

  #greet() {
    this.#cancel("path");
    this.#set(SessionState.greeting);
    this.send("hello", { _0: { version: protocolVersion, ...this.#hello } });
    this.#after("welcome", welcomeTime, () => this.#end(EndReason.lost));
  }

  #controlled(name, members) {
    if (name === "welcome") {
      this.#cancel("welcome");
      this.welcome = members._0;
      if (this.state === SessionState.greeting) {
        this.#set(SessionState.live);
        this.#ping();
        this.#measure();
      }
    } else if (name === "rejected") {
      // While a session lives it means that the display which was asked for cannot be shown.
      if (this.state === SessionState.greeting) {
        this.rejection = members._0;
        return this.#end(EndReason.rejected);
      }
    } else if (name === "pong") {
      const sent = this.#pings.get(members._0);
      if (sent === undefined) return;
      this.#pings.clear();
      return this.#report({ roundTrip: performance.now() - sent });
    }
    this.onControl(name, members);
  }

  #connectionChanged(connection) {
    if (connection === "failed" || connection === "closed") {
      this.#end(this.welcome ? EndReason.lost : EndReason.noPath);
    } else if (connection === "disconnected" && this.state === SessionState.live) {
      this.#set(SessionState.interrupted);
      this.#after("grace", graceTime, () => this.#end(EndReason.lost));
    } else if (connection === "connected" && this.state === SessionState.interrupted) {
      this.#cancel("grace");
      this.#set(SessionState.live);
    }
  }

  #ping() {
    this.#pings.set(++this.#pingNumber, performance.now());
    this.send("ping", { _0: this.#pingNumber });
    this.#after("ping", pingTime, () => this.#ping());
  }

  async #measure() {
    const report = await this.#peer.getStats().catch(() => null);
    if (!report || this.state === SessionState.ended) return;
    const found = {};
    for (const entry of report.values()) {
      if (entry.type === "inbound-rtp" && entry.kind === "video") found.fps = entry.framesPerSecond ?? 0;
      if (entry.type === "transport" && entry.selectedCandidatePairId) {
        const pair = report.get(entry.selectedCandidatePairId);
        const types = [pair?.localCandidateId, pair?.remoteCandidateId].map((id) => report.get(id)?.candidateType);
        found.relayed = types.includes("relay");
      }
    }
    this.#report(found);
    this.#after("measure", statisticsTime, () => this.#measure());
  }

  #report(news) {
    Object.assign(this.#statistics, news);
    this.onStatistics(this.#statistics);
  }

  #end(reason) {
    if (this.state === SessionState.ended) return;
    this.reason = reason;
    for (const timer of this.#timers.values()) clearTimeout(timer);
    this.#timers.clear();
    this.#talk?.close();
    if (this.#peer) {
      this.#peer.onconnectionstatechange = this.#control.onclose = null;
      this.#peer.close();
    }
    this.#set(SessionState.ended);
  }

  #set(state) {
    if (this.state === state) return;
    this.state = state;
    this.onState(state);
  }

  #after(name, delay, step) {
    this.#cancel(name);
    this.#timers.set(name, setTimeout(step, delay));
  }

  #cancel(name) {
    clearTimeout(this.#timers.get(name));
    this.#timers.delete(name);
  }
}

function bytesOf(data) {
  if (typeof data === "string") throw new WireError("text where bytes belong");
  return new Uint8Array(data);
}

// One address that the browser does not take would keep it from using the others.
function usable(iceServers) {
  return iceServers.filter((server) => {
    try {
      new RTCPeerConnection({ iceServers: [server] }).close();
      return true;
    } catch {
      return false;
    }
  });
}

// Computers encode H.264 best; what stands first in the offer is what they send.
function preferH264(transceiver) {
  const codecs = globalThis.RTCRtpReceiver?.getCapabilities?.("video")?.codecs;
  if (!codecs || !transceiver.setCodecPreferences) return;
  const rank = ({ mimeType, sdpFmtpLine = "" }) =>
    mimeType !== "video/H264" ? 2 : sdpFmtpLine.includes("packetization-mode=1") ? 0 : 1;
  transceiver.setCodecPreferences([...codecs].sort((a, b) => rank(a) - rank(b)));
}
