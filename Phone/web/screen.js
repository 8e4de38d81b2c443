// The computer's picture, and the pointer on it: a mouse or pen points where it is, fingers work as a
// trackpad.
import { Gestures } from "./gestures.js";
import { View } from "./view.js";

const wheelRest = 150; // ms without a wheel event that end a scroll
const doubleClick = { time: 500, distance: 5 };
const linePixels = 20;
const buttonNames = { 0: "left", 2: "right" };
const buttonBits = { 0: 1, 1: 4, 2: 2 };

export class Screen {
  onPlaying = () => {}; // the first picture of a stream is there

  #stage;
  #video;
  #send;
  #view = new View();
  #pointer = null; // where the computer's pointer is, as far as we know: 0 to 1
  #size = { width: 1920, height: 1080 }; // of the computer's screen, in points
  #pendingMove = null;
  #held = new Map(); // button -> clicks
  #lastPress = null;
  #wheelTimer;
  #gestures;

  // `stage` takes the input and holds `video`; `send(name, members)` sends a control.
  constructor(stage, video, send) {
    this.#stage = stage;
    this.#video = video;
    this.#send = send;
    this.#gestures = new Gestures({
      move: (dx, dy) => this.#moveBy(dx, dy),
      button: (name, down, clicks) => this.#button(name, down, clicks),
      scroll: (dx, dy, phase) => this.#send("scroll", { dx, dy, phase }),
      pinch: (x, y, factor, dx, dy) => this.#pinch(x, y, factor, dx, dy),
    });
    this.#listen();
  }

  show(stream) {
    this.#video.srcObject = stream;
    this.#video.play().catch(() => {});
  }

  clear() {
    this.release();
    this.#video.srcObject = null;
    this.#pointer = null;
    this.#view = new View();
    this.#layOut();
  }

  welcome({ screenWidth, screenHeight }) {
    if (screenWidth > 0 && screenHeight > 0) this.#size = { width: screenWidth, height: screenHeight };
    this.#pointer = null;
  }

  // Lets go of every button.
  release() {
    this.#gestures.cancel();
    for (const name of [...this.#held.keys()]) this.#button(name, false, 1);
  }

  #listen() {
    const stage = this.#stage;
    const on = (type, step, options) => stage.addEventListener(type, step, options);
    on("pointerdown", (event) => this.#pointerDown(event));
    on("pointermove", (event) => this.#pointerMoved(event));
    on("pointerup", (event) => this.#pointerUp(event));
    on("pointercancel", (event) => this.#pointerCancelled(event));
    on("wheel", (event) => this.#wheel(event), { passive: false });
    on("contextmenu", (event) => event.preventDefault());
    on("dragstart", (event) => event.preventDefault());
    on("mousedown", (event) => event.preventDefault()); // the keyboard's field keeps the focus
    // Some browsers ignore touch-action where they scroll or select.
    on("touchstart", (event) => event.preventDefault(), { passive: false });
    this.#video.addEventListener("resize", () => this.#layOut());
    this.#video.addEventListener("playing", () => this.onPlaying());
    new ResizeObserver(() => this.#layOut()).observe(stage);
    window.addEventListener("blur", () => this.release());
  }

  #layOut() {
    const { clientWidth: width, clientHeight: height } = this.#stage;
    const { videoWidth, videoHeight } = this.#video;
    this.#view.resize({ width, height }, videoWidth ? { width: videoWidth, height: videoHeight } : undefined);
    const shown = this.#view.rectangle;
    Object.assign(this.#video.style, {
      left: `${shown.left}px`,
      top: `${shown.top}px`,
      width: `${shown.width}px`,
      height: `${shown.height}px`,
    });
  }

  #at(event) {
    const box = this.#stage.getBoundingClientRect();
    return { x: event.clientX - box.left, y: event.clientY - box.top };
  }

  #pointerDown(event) {
    const { x, y } = this.#at(event);
    // Not while a test or another script makes the events up: there is nothing to capture then.
    try {
      this.#stage.setPointerCapture(event.pointerId);
    } catch {}
    if (event.pointerType === "touch") return this.#gestures.down(event.pointerId, x, y);
    this.#press(event, true);
  }

  #pointerMoved(event) {
    const { x, y } = this.#at(event);
    if (event.pointerType === "touch") return this.#gestures.moved(event.pointerId, x, y);
    const place = this.#view.toPicture(x, y);
    this.#moveTo(place);
    if (this.#view.zoom > 1) {
      this.#view.show(place);
      this.#layOut();
    }
    // A button pressed or released while another is held comes as a move.
    if (event.button >= 0) this.#press(event, (event.buttons & buttonBits[event.button]) !== 0);
  }

  #pointerUp(event) {
    if (event.pointerType === "touch") return this.#gestures.up(event.pointerId);
    this.#press(event, false);
    for (const name of [...this.#held.keys()]) this.#button(name, false, this.#held.get(name));
  }

  #pointerCancelled(event) {
    if (event.pointerType === "touch") this.#gestures.cancel();
    else this.release();
  }

  #press(event, down) {
    const name = buttonNames[event.button];
    if (!name) return;
    event.preventDefault();
    const { x, y } = this.#at(event);
    this.#moveTo(this.#view.toPicture(x, y));
    if (!down) {
      if (this.#held.has(name)) this.#button(name, false, this.#held.get(name));
      return;
    }
    const last = this.#lastPress;
    const again = last?.name === name && event.timeStamp - last.time < doubleClick.time &&
      Math.hypot(x - last.x, y - last.y) < doubleClick.distance;
    const clicks = again ? last.clicks + 1 : 1;
    this.#lastPress = { name, x, y, time: event.timeStamp, clicks };
    this.#button(name, true, clicks);
  }

  #button(name, down, clicks) {
    this.#flushMove();
    if (down) this.#held.set(name, clicks);
    else this.#held.delete(name);
    this.#send("button", { _0: name, down, clicks });
  }

  // At most one position for each picture of this browser; a button flushes it.
  #moveTo(place) {
    if (this.#pointer && place.x === this.#pointer.x && place.y === this.#pointer.y) return;
    this.#pointer = place;
    if (!this.#pendingMove) requestAnimationFrame(() => this.#flushMove());
    this.#pendingMove = place;
  }

  #flushMove() {
    if (this.#pendingMove) this.#send("moveTo", this.#pendingMove);
    this.#pendingMove = null;
  }

  // A finger's way: slow is exact, fast is far.
  #moveBy(dx, dy) {
    if (this.#view.zoom > 1 && !this.#pointer) {
      // The pointer may be anywhere; what is enlarged is where it is wanted.
      const { width, height } = this.#view.stage;
      this.#moveTo(this.#view.toPicture(width / 2, height / 2));
      this.#flushMove();
    }
    const speed = Math.min(3, 1 + Math.hypot(dx, dy) / 12) * (1.4 / this.#view.zoom);
    const way = { dx: round(dx * speed), dy: round(dy * speed) };
    this.#send("move", way);
    if (!this.#pointer) return;
    const within = (v) => Math.min(1, Math.max(0, v));
    this.#pointer = {
      x: within(this.#pointer.x + way.dx / this.#size.width),
      y: within(this.#pointer.y + way.dy / this.#size.height),
    };
    if (this.#view.zoom > 1) {
      this.#view.show(this.#pointer);
      this.#layOut();
    }
  }

  #pinch(x, y, factor, dx, dy) {
    this.#view.zoomAt(x, y, factor);
    this.#view.pan(dx, dy);
    this.#layOut();
  }

  #wheel(event) {
    event.preventDefault();
    if (event.ctrlKey) {
      // Two fingers that part on a trackpad, too.
      const { x, y } = this.#at(event);
      return this.#pinch(x, y, Math.exp(-event.deltaY / 200), 0, 0);
    }
    // Browsers count downwards, the computer upwards.
    const unit = event.deltaMode === 1 ? linePixels : event.deltaMode === 2 ? this.#stage.clientHeight : 1;
    if (this.#wheelTimer === undefined) this.#send("scroll", { dx: 0, dy: 0, phase: "began" });
    clearTimeout(this.#wheelTimer);
    this.#send("scroll", { dx: -event.deltaX * unit || 0, dy: -event.deltaY * unit || 0, phase: "changed" });
    this.#wheelTimer = setTimeout(() => {
      this.#wheelTimer = undefined;
      this.#send("scroll", { dx: 0, dy: 0, phase: "ended" });
    }, wheelRest);
  }
}

const round = (v) => Math.round(v * 100) / 100;
