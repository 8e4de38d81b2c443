// Plays decoded sound as it comes, with a small store against what comes late. In the audio thread.
//
// In: { samples: [left, right] } (Float32Array each, 48 kHz), or { clear: true }.
// Out, four times a second: { played, missing, waiting } in frames.

const rate = 48_000;
const enough = 0.06 * rate; // begins to play
const tooMuch = 0.25 * rate; // drops down to `enough`: late sound stays late otherwise

class Player extends AudioWorkletProcessor {
  #queue = [];
  #at = 0; // in the first
  #waiting = 0;
  #playing = false;
  #played = 0;
  #missing = 0;
  #reported = 0;

  constructor() {
    super();
    this.port.onmessage = ({ data }) => {
      if (data.clear) return this.#drop(0);
      this.#queue.push(data.samples);
      this.#waiting += data.samples[0].length;
      if (this.#waiting > tooMuch) this.#drop(enough);
    };
  }

  process(_, [output]) {
    const [left, right = left] = output;
    if (!this.#playing && this.#waiting >= enough) this.#playing = true;
    if (this.#playing) this.#fill(left, right);
    if (currentFrame - this.#reported > rate / 4) {
      this.#reported = currentFrame;
      this.port.postMessage({ played: this.#played, missing: this.#missing, waiting: this.#waiting });
    }
    return true;
  }

  #fill(left, right) {
    let done = 0;
    while (done < left.length && this.#queue.length) {
      const [a, b] = this.#queue[0];
      const count = Math.min(left.length - done, a.length - this.#at);
      left.set(a.subarray(this.#at, this.#at + count), done);
      right.set(b.subarray(this.#at, this.#at + count), done);
      done += count;
      this.#advance(count);
    }
    this.#played += done;
    if (done < left.length) {
      this.#missing += left.length - done;
      this.#playing = false; // gathers some first
    }
  }

  #advance(count) {
    this.#waiting -= count;
    this.#at += count;
    if (this.#at === this.#queue[0][0].length) {
      this.#queue.shift();
      this.#at = 0;
    }
  }

  #drop(left) {
    while (this.#waiting > left) this.#advance(Math.min(this.#waiting - left, this.#queue[0][0].length - this.#at));
  }
}

registerProcessor("orvel-player", Player);
