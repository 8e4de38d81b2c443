// One subscription to a topic of the relay: broadcasts an object to everybody else on it and tells of what
// they broadcast. Phoenix channels over a websocket, serializer 1.0.0.
//
// It connects again by itself, 1, 2, 4, 8, 16, then 30 seconds after each failure; a join that succeeds
// begins that anew.

export const heartbeatTime = 25_000;
export const joinTime = 30_000; // the service may need 20 s for a join
export const silenceTime = 90_000; // heartbeats are answered: a connection on which nothing arrives has failed
export const firstBackoff = 1_000;
export const maxBackoff = 30_000;
const maxMessage = 512 << 10;

// The websocket of a relay: a project's address (http, https) or the websocket itself (ws, wss).
// Throws TypeError when it is neither.
export function websocketOf(address, key) {
  const url = new URL(address);
  const scheme = { "http:": "ws:", "https:": "wss:" }[url.protocol];
  if (scheme) {
    url.protocol = scheme;
    url.pathname = "/realtime/v1/websocket";
  } else if (url.protocol !== "ws:" && url.protocol !== "wss:") {
    throw new TypeError("not the address of a relay");
  }
  url.hash = "";
  url.search = new URLSearchParams({ apikey: key, vsn: "1.0.0" });
  return url.href;
}

export class RealtimeChannel {
  onJoined = () => {}; // (joined): exactly the changes
  onBroadcast = () => {}; // (payload): an object

  #socket = null;
  #ref = 0; // of the last message; never reset
  #joinRef = "";
  #joined = false;
  #stopped = true;
  #backoff = firstBackoff;
  #outbox = []; // waiting for a join
  #timers = {};

  constructor({ url, key }, topic, { WebSocket = globalThis.WebSocket, clock = globalThis } = {}) {
    this.url = websocketOf(url, key);
    this.key = key;
    this.topic = `realtime:${topic}`;
    Object.assign(this, { WebSocket, clock });
  }

  get joined() {
    return this.#joined;
  }

  start() {
    if (!this.#stopped) return;
    this.#stopped = false;
    this.#connect();
  }

  stop() {
    this.#stopped = true;
    this.#drop();
  }

  // The network may have come back: does not wait for the next attempt.
  hurry() {
    if (this.#stopped || this.#socket) return;
    this.#backoff = firstBackoff;
    this.#connect();
  }

  // Waits for a join when there is none; what was sent on a connection that then fails is lost.
  send(payload) {
    if (this.#joined) this.#broadcast(payload);
    else this.#outbox.push(payload);
  }

  #connect() {
    this.#cancel("reconnect");
    const socket = (this.#socket = new this.WebSocket(this.url));
    const ifCurrent = (step) => (event) => this.#socket === socket && step(event);
    socket.onopen = ifCurrent(() => {
      this.#joinRef = this.#push(this.topic, "phx_join", {
        config: { broadcast: { self: false, ack: false }, presence: { key: "" }, private: false },
        access_token: this.key,
      }, true);
      this.#beat();
    });
    socket.onmessage = ifCurrent(({ data }) => this.#handle(data));
    socket.onclose = socket.onerror = ifCurrent(() => this.#failed());
    this.#after("joining", joinTime, () => this.#failed());
    this.#listen();
  }

  #drop() {
    for (const name of Object.keys(this.#timers)) this.#cancel(name);
    const socket = this.#socket;
    this.#socket = null;
    socket?.close(1000);
    if (this.#joined) {
      this.#joined = false;
      this.onJoined(false);
    }
  }

  #failed() {
    this.#drop();
    if (this.#stopped || this.#socket) return; // whoever was told may have done something
    const wait = this.#backoff;
    this.#backoff = Math.min(2 * wait, maxBackoff);
    this.#after("reconnect", wait, () => this.#connect());
  }

  #push(topic, event, payload, isJoin = false) {
    const ref = String(++this.#ref);
    const message = { topic, event, payload, ref };
    if (isJoin) message.join_ref = ref;
    else if (topic === this.topic) message.join_ref = this.#joinRef;
    if (this.#socket?.readyState === 1) this.#socket.send(JSON.stringify(message));
    return ref;
  }

  #broadcast(payload) {
    this.#push(this.topic, "broadcast", { type: "broadcast", event: "signal", payload });
  }

  #beat() {
    this.#after("heartbeat", heartbeatTime, () => {
      this.#push("phoenix", "heartbeat", {});
      this.#beat();
    });
  }

  #listen() {
    this.#after("silence", silenceTime, () => this.#failed());
  }

  #handle(text) {
    this.#listen();
    if (typeof text !== "string" || text.length > maxMessage) return;
    let message;
    try {
      message = JSON.parse(text);
    } catch {
      return;
    }
    if (message?.topic !== this.topic) return;
    const { event, ref, payload } = message;
    if (event === "phx_reply" && ref === this.#joinRef) this.#joinAnswered(payload);
    else if (event === "phx_error" || (event === "phx_close" && this.#isOurs(ref))) this.#failed();
    else if (event === "broadcast" && typeof payload?.payload === "object" && payload.payload !== null) {
      this.onBroadcast(payload.payload);
    }
  }

  // A channel that was closed before this one came may be heard of late.
  #isOurs(ref) {
    return ref === null || ref === undefined || ref === this.#joinRef;
  }

  #joinAnswered(payload) {
    if (payload?.status !== "ok") return this.#failed();
    this.#cancel("joining");
    this.#backoff = firstBackoff;
    if (this.#joined) return;
    this.#joined = true;
    for (const waiting of this.#outbox.splice(0)) this.#broadcast(waiting);
    this.onJoined(true);
  }

  #after(name, delay, step) {
    this.#cancel(name);
    this.#timers[name] = this.clock.setTimeout(() => {
      delete this.#timers[name];
      step();
    }, delay);
  }

  #cancel(name) {
    this.clock.clearTimeout(this.#timers[name]);
    delete this.#timers[name];
  }
}
