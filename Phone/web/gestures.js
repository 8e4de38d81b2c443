// Fingers on glass as a trackpad: one moves the pointer, a tap clicks, a tap and then a press drags, a long
// press and a tap of two are the right button, two scroll, and two that part or meet enlarge the picture.
//
// Fed with touches, calls its handlers. Times are in milliseconds; `clock` is for tests.

const slop = 8; // CSS pixels that a resting finger may wander
const longPress = 500;
const tapTime = 250;
const pinchSlop = 24; // change of the distance of two fingers that is no scrolling any more
const momentumStep = 16;
const momentumDecay = 0.95;

export class Gestures {
  // Handlers: move(dx, dy), button(name, down, clicks), scroll(dx, dy, phase), pinch(x, y, factor, dx, dy).
  constructor(handlers, { clock = globalThis, now = () => performance.now() } = {}) {
    Object.assign(this, handlers);
    this.clock = clock;
    this.now = now;
  }

  #fingers = new Map(); // id -> { x, y }
  #mode = null; // null, "undecided", "move", "drag", "two", "scroll", "pinch", "done"
  #start = null; // { x, y, time } of the first finger
  #timer;
  #lastTap = null; // { x, y, time, clicks }
  #span = 0;
  #velocity = { x: 0, y: 0, time: 0 };

  down(id, x, y) {
    this.#stopMomentum();
    this.#fingers.set(id, { x, y });
    if (this.#fingers.size === 1) {
      this.#start = { x, y, time: this.now() };
      this.#mode = "undecided";
      this.#timer = this.clock.setTimeout(() => this.#pressedLong(), longPress);
    } else if (this.#fingers.size === 2 && ["undecided", "move"].includes(this.#mode)) {
      this.clock.clearTimeout(this.#timer);
      this.#mode = "two";
      this.#start = { ...this.#middle(), time: this.now() };
      this.#span = this.#distance();
    }
  }

  moved(id, x, y) {
    const finger = this.#fingers.get(id);
    if (!finger) return;
    const before = this.#middle();
    const dx = x - finger.x, dy = y - finger.y;
    Object.assign(finger, { x, y });
    const far = Math.hypot(this.#middle().x - this.#start.x, this.#middle().y - this.#start.y) > slop;

    if (this.#mode === "undecided" && far) {
      this.clock.clearTimeout(this.#timer);
      const again = this.#followsTap();
      this.#mode = again ? "drag" : "move";
      if (again) this.button("left", true, this.#lastTap.clicks);
    }
    if (this.#mode === "move" || this.#mode === "drag") return this.move(dx, dy);

    if (this.#mode === "two") {
      if (Math.abs(this.#distance() - this.#span) > pinchSlop) {
        this.#mode = "pinch";
        this.#span = this.#distance();
      } else if (far) {
        this.#mode = "scroll";
        this.scroll(0, 0, "began");
      }
    }
    const middle = this.#middle();
    const mx = middle.x - before.x, my = middle.y - before.y;
    if (this.#mode === "scroll") {
      this.#measure(mx, my);
      this.scroll(mx, my, "changed");
    } else if (this.#mode === "pinch") {
      const span = this.#distance();
      this.pinch(middle.x, middle.y, span / this.#span, mx, my);
      this.#span = span;
    }
  }

  up(id) {
    const finger = this.#fingers.get(id);
    if (!this.#fingers.delete(id)) return;
    this.clock.clearTimeout(this.#timer);
    const isQuick = this.now() - this.#start.time < tapTime;
    if (this.#mode === "undecided") {
      const clicks = this.#followsTap() ? this.#lastTap.clicks + 1 : 1;
      this.#click("left", clicks);
      this.#lastTap = { ...finger, time: this.now(), clicks };
    } else if (this.#mode === "drag") {
      this.button("left", false, 1);
    } else if (this.#mode === "two" && isQuick) {
      this.#click("right", 1);
    } else if (this.#mode === "scroll") {
      this.scroll(0, 0, "ended");
      this.#runOut();
    }
    this.#mode = this.#fingers.size ? "done" : null;
  }

  // The system took the fingers away: nothing is clicked, nothing stays pressed.
  cancel() {
    if (this.#mode === "drag") this.button("left", false, 1);
    if (this.#mode === "scroll") this.scroll(0, 0, "ended");
    this.clock.clearTimeout(this.#timer);
    this.#stopMomentum();
    this.#fingers.clear();
    this.#mode = null;
  }

  #pressedLong() {
    if (this.#mode !== "undecided") return;
    this.#mode = "done";
    this.#click("right", 1);
  }

  #click(name, clicks) {
    this.button(name, true, clicks);
    this.button(name, false, clicks);
  }

  #followsTap() {
    const tap = this.#lastTap;
    return tap !== null && this.#start.time - tap.time < tapTime &&
      Math.hypot(this.#start.x - tap.x, this.#start.y - tap.y) < 4 * slop;
  }

  #middle() {
    let x = 0, y = 0;
    for (const finger of this.#fingers.values()) {
      x += finger.x / this.#fingers.size;
      y += finger.y / this.#fingers.size;
    }
    return { x, y };
  }

  #distance() {
    const [a, b] = [...this.#fingers.values()];
    return Math.hypot(a.x - b.x, a.y - b.y);
  }

  // Pixels a millisecond, of late.
  #measure(dx, dy) {
    const time = this.now();
    const passed = Math.max(1, time - this.#velocity.time);
    const weight = passed > 100 ? 1 : 0.4;
    const mix = (old, way) => old * (1 - weight) + (way / passed) * weight;
    this.#velocity = { x: mix(this.#velocity.x, dx), y: mix(this.#velocity.y, dy), time };
  }

  #runOut() {
    let { x, y, time } = this.#velocity;
    this.#velocity = { x: 0, y: 0, time: 0 };
    if (this.now() - time > 60 || Math.hypot(x, y) < 0.2) return;
    const step = () => {
      x *= momentumDecay;
      y *= momentumDecay;
      if (Math.hypot(x, y) < 0.02) return this.#stopMomentum();
      this.scroll(x * momentumStep, y * momentumStep, "momentum");
      this.momentum = this.clock.setTimeout(step, momentumStep);
    };
    this.momentum = this.clock.setTimeout(step, momentumStep);
  }

  #stopMomentum() {
    if (this.momentum === undefined) return;
    this.clock.clearTimeout(this.momentum);
    this.momentum = undefined;
    this.scroll(0, 0, "momentumEnded");
  }
}
