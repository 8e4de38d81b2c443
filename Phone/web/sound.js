// The computer's sound: Opus packets in, sound out. Packets come unordered and some not at all.

const rate = 48_000;
const packetTime = 20_000; // microseconds
const late = 2; // packets that a missing one is waited for

// Puts packets into their order and leaves out what came too late. `next(packet, gap)` gets each, and how
// many are missing before it.
export class PacketOrder {
  #expected = null;
  #early = new Map(); // sequence -> packet

  constructor(next) {
    this.next = next;
  }

  add(packet) {
    this.#expected ??= packet.sequence;
    const ahead = (packet.sequence - this.#expected) | 0; // numbers wrap at 2^32
    if (ahead < 0 && ahead > -1000) return;
    if (Math.abs(ahead) >= 1000) {
      // Another sender, or a long silence.
      this.#early.clear();
      this.#expected = packet.sequence;
    }
    this.#early.set(packet.sequence, packet);
    this.#release(0);
    while (this.#early.size > late) this.#release(this.#distance());
  }

  #distance() {
    return Math.min(...[...this.#early.keys()].map((sequence) => (sequence - this.#expected) >>> 0));
  }

  #release(gap) {
    this.#expected = (this.#expected + gap) >>> 0;
    for (let packet; (packet = this.#early.get(this.#expected)); gap = 0) {
      this.#early.delete(this.#expected);
      this.#expected = (this.#expected + 1) >>> 0;
      this.next(packet, gap);
    }
  }
}

export class Sound {
  onStatistics = () => {}; // ({ played, missing, waiting }) in frames, while there is sound
  decoded = 0; // frames so far

  #context = null;
  #player = null;
  #decoder = null;
  #order = null;
  #time = 0;
  #wanted = true;

  static get possible() {
    return "AudioDecoder" in globalThis && "AudioWorkletNode" in globalThis;
  }

  // To be called while the person's click is being handled: browsers make no sound before one.
  async prepare() {
    if (!Sound.possible || this.#context) return this.#context?.resume();
    const context = (this.#context = new AudioContext({ sampleRate: rate, latencyHint: "interactive" }));
    context.resume().catch(() => {});
    await context.audioWorklet.addModule(new URL("./sound-worklet.js", import.meta.url));
    this.#player = new AudioWorkletNode(context, "orvel-player", { numberOfInputs: 0, outputChannelCount: [2] });
    this.#player.port.onmessage = ({ data }) => this.onStatistics(data);
    this.#player.connect(context.destination);
  }

  set wanted(wanted) {
    this.#wanted = wanted;
    this.reset();
  }

  add(packet) {
    if (!this.#wanted || !this.#player) return;
    this.#order ??= new PacketOrder((next, gap) => this.#decode(next, gap));
    this.#order.add(packet);
  }

  // Another session: nothing of the last one is played.
  reset() {
    this.#order = null;
    if (this.#decoder?.state === "configured") this.#decoder.close();
    this.#decoder = null;
    this.#player?.port.postMessage({ clear: true });
  }

  #decode({ opus }, gap) {
    if (this.#decoder?.state !== "configured") this.#decoder = this.#makeDecoder();
    this.#time += (gap + 1) * packetTime;
    try {
      this.#decoder.decode(new EncodedAudioChunk({ type: "key", timestamp: this.#time, data: opus }));
    } catch {
      this.#decoder = null;
    }
  }

  #makeDecoder() {
    const decoder = new AudioDecoder({
      output: (data) => this.#play(data),
      error: () => {}, // it is closed then; the next packet gets a new one
    });
    decoder.configure({ codec: "opus", sampleRate: rate, numberOfChannels: 2 });
    return decoder;
  }

  #play(data) {
    const samples = [0, 1].map((channel) => {
      const plane = new Float32Array(data.numberOfFrames);
      data.copyTo(plane, { planeIndex: Math.min(channel, data.numberOfChannels - 1), format: "f32-planar" });
      return plane;
    });
    this.decoded += data.numberOfFrames;
    data.close();
    this.#player.port.postMessage({ samples }, samples.map((plane) => plane.buffer));
  }
}
