// Plays the computer for the phone's page: a moving picture, a tone, a folder with one file. What it was
// sent is in `agent.controls` and `agent.signals`.
import { fromBase64 } from "/bytes.js";
import { Conversation, SignalError, topicOf } from "/envelope.js";
import { makeIdentity } from "/identity.js";
import { RealtimeChannel } from "/realtime.js";
import { decodePhoneControl, encodeAgentControl, encodeAudioPacket, encodeFileFrame } from "/wire.js";

const macName = "Ada's computer";
export const fileSize = 3_000_001;
export const fileByte = (index) => (index * 31 + (index >> 8)) & 255;

const agent = (window.agent = {
  controls: [],
  signals: [],
  locked: false,
  taken: false, // another phone is connected
  rejects: null, // a Rejection for the next hello
  session: null,

  async start(relay, raw, phoneKey, phoneID) {
    this.identity = await makeIdentity(Uint8Array.from(raw));
    this.phone = { id: phoneID, publicKey: fromBase64(phoneKey) };
    this.channel = new RealtimeChannel(relay, topicOf(this.identity.id));
    this.channel.onBroadcast = (envelope) => this.received(envelope);
    const joined = new Promise((resolve) => (this.channel.onJoined = resolve));
    this.channel.start();
    await joined;
  },

  async received(envelope) {
    const talk = await Conversation.begin(this.identity, this.phone, envelope.session);
    let name, members;
    try {
      [name, members] = talk.open(envelope);
    } catch (error) {
      if (error instanceof SignalError) return;
      throw error;
    }
    this.signals.push(name);
    const reply = (...signal) => this.channel.send(talk.seal(...signal));
    if (name === "probe") reply(...(this.locked ? ["standby", { macName }] : ["here", { macName, busy: this.taken }]));
    if (name === "unlock") {
      this.locked = false;
      reply("unlocked", { until: Math.floor(Date.now() / 1000) + 3600 });
    }
    if (name === "offer") {
      if (this.locked) return reply("standby", { macName });
      this.session = new FakeSession(envelope.session, reply);
      this.session.accept(members.sdp);
    }
    if (this.session?.name !== envelope.session) return;
    if (name === "candidate") this.session.candidate(members._0);
    if (name === "bye") this.session.end();
  },

  say(name, members) {
    this.session.control.send(encodeAgentControl(name, members));
  },
});

class FakeSession {
  waiting = [];
  ended = false;

  constructor(name, reply) {
    this.name = name;
    this.peer = new RTCPeerConnection();
    this.peer.onicecandidate = ({ candidate }) => candidate?.candidate && reply("candidate", {
      _0: { sdp: candidate.candidate, sdpMid: candidate.sdpMid, sdpMLineIndex: candidate.sdpMLineIndex },
    });
    this.peer.ondatachannel = ({ channel }) => {
      channel.binaryType = "arraybuffer";
      if (channel.label === "files" || channel.label === "audio") return (this[channel.label] = channel);
      this.control = channel;
      channel.onmessage = ({ data }) => this.controlled(...decodePhoneControl(data));
    };
    this.reply = reply;
  }

  async accept(sdp) {
    this.offered = sdp;
    await this.peer.setRemoteDescription({ type: "offer", sdp });
    const [video] = this.peer.getTransceivers();
    const [track] = picture().getVideoTracks();
    await video.sender.replaceTrack(track);
    video.direction = "sendonly";
    await this.peer.setLocalDescription();
    this.reply("answer", { sdp: this.peer.localDescription.sdp });
    for (const candidate of this.waiting.splice(0)) this.candidate(candidate);
  }

  candidate(one) {
    if (!this.peer.remoteDescription) return this.waiting.push(one);
    this.peer.addIceCandidate({ candidate: one.sdp, sdpMid: one.sdpMid, sdpMLineIndex: one.sdpMLineIndex });
  }

  async controlled(name, members) {
    agent.controls.push([name, members]);
    if (name === "hello") {
      if (agent.rejects) return agent.say("rejected", { _0: agent.rejects });
      agent.say("welcome", {
        _0: {
          macName, screenWidth: 1280, screenHeight: 800, videoWidth: 640, videoHeight: 400,
          displays: [{ id: 1, name: "Left", width: 1280, height: 800 }, { id: 2, name: "Right", width: 1280, height: 800 }],
          displayID: 1, protocolVersion: 2,
        },
      });
      agent.say("frontApp", { bundleID: "org.example.editor", name: "Editor" });
      this.play();
    }
    if (name === "ping") agent.say("pong", members);
    if (name === "listDirectory") {
      const path = members._0 ?? "/home/ada";
      const entries = path === "/home/ada"
        ? [{ name: "Belgeler", isDirectory: true, size: 0 }, { name: "picture.raw", isDirectory: false, size: fileSize, modified: 10 }]
        : [];
      agent.say("directory", { _0: { path, parent: path === "/home/ada" ? "/home" : "/home/ada", entries } });
    }
    if (name === "fetchFile") this.send(members.id);
  }

  async send(id) {
    const bytes = Uint8Array.from({ length: fileSize }, (_, i) => fileByte(i));
    this.files.bufferedAmountLowThreshold = 1 << 16;
    // Its own place for the file is nobody's business; only the last part may count.
    this.files.send(encodeFileFrame({ id, start: { name: "../../etc/picture.raw", size: fileSize } }));
    for (let at = 0; at < bytes.length; at += 65_536) {
      if (this.files.bufferedAmount > 1 << 20) await new Promise((resolve) => (this.files.onbufferedamountlow = resolve));
      this.files.send(encodeFileFrame({ id, data: bytes.subarray(at, at + 65_536) }));
    }
    this.files.send(encodeFileFrame({ id, end: {} }));
  }

  // A tone, 20 ms a packet.
  play() {
    let sequence = 0, time = 0;
    const encoder = new AudioEncoder({
      output: (chunk) => {
        const opus = new Uint8Array(chunk.byteLength);
        chunk.copyTo(opus);
        ++sequence;
        if (this.audio?.readyState === "open") this.audio.send(encodeAudioPacket({ sequence, opus }));
      },
      error: console.error,
    });
    encoder.configure({ codec: "opus", sampleRate: 48_000, numberOfChannels: 2, bitrate: 96_000, opus: { frameDuration: 20_000 } });
    this.tone = setInterval(() => {
      const data = new Float32Array(1920);
      for (let i = 0; i < 960; ++i) data[2 * i] = data[2 * i + 1] = Math.sin(((time + i) * 2 * Math.PI * 440) / 48_000) / 4;
      encoder.encode(new AudioData({ format: "f32", sampleRate: 48_000, numberOfFrames: 960, numberOfChannels: 2, timestamp: (time / 48) * 1000, data }));
      time += 960;
    }, 20);
  }

  end() {
    clearInterval(this.tone);
    this.peer.close();
    this.ended = true;
  }
}

// Green on the left, and a bar that moves on the right.
function picture() {
  const canvas = document.getElementById("picture");
  const paint = canvas.getContext("2d");
  let tick = 0;
  setInterval(() => {
    paint.fillStyle = "#008000";
    paint.fillRect(0, 0, 320, 400);
    paint.fillStyle = "#202020";
    paint.fillRect(320, 0, 320, 400);
    paint.fillStyle = "#e0e0e0";
    paint.fillRect(320, (tick++ * 8) % 400, 320, 24);
  }, 100);
  return canvas.captureStream(10);
}
