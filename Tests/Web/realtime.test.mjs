import assert from "node:assert/strict";
import test from "node:test";
import { RealtimeChannel, websocketOf } from "../../Phone/web/realtime.js";
import { VirtualTime } from "./virtual-time.mjs";

const topic = "realtime:orvel-a";

function begin() {
  const clock = new VirtualTime();
  const sockets = [];
  class FakeSocket {
    sent = [];
    readyState = 0;
    constructor(url) {
      this.url = url;
      sockets.push(this);
    }
    open() {
      this.readyState = 1;
      this.onopen({});
    }
    send(text) { this.sent.push(JSON.parse(text)); }
    close() { this.readyState = 3; }
    say(event, ref, payload, on = topic) {
      this.onmessage({ data: JSON.stringify({ topic: on, event, ref, payload }) });
    }
    accept() {
      this.open();
      this.say("phx_reply", this.sent.at(-1).ref, { status: "ok", response: {} });
    }
    drop() { this.onclose({}); }
  }
  const channel = new RealtimeChannel({ url: "https://relay", key: "KEY" }, "orvel-a", { WebSocket: FakeSocket, clock });
  const heard = [];
  channel.onJoined = (joined) => heard.push(joined);
  channel.onBroadcast = (payload) => heard.push(payload);
  channel.start();
  return { clock, sockets, channel, heard };
}

test("joins, waits with what is sent before, beats", () => {
  const { clock, sockets: [socket], channel, heard } = begin();
  assert.equal(socket.url, "wss://relay/realtime/v1/websocket?apikey=KEY&vsn=1.0.0");
  channel.send({ early: 1 });
  socket.accept();
  channel.send({ late: 1 });
  const broadcast = (ref, payload) => ({
    topic, event: "broadcast", payload: { type: "broadcast", event: "signal", payload }, ref, join_ref: "1",
  });
  assert.deepEqual(socket.sent, [
    {
      topic, event: "phx_join", ref: "1", join_ref: "1",
      payload: {
        config: { broadcast: { self: false, ack: false }, presence: { key: "" }, private: false }, access_token: "KEY",
      },
    },
    broadcast("2", { early: 1 }),
    broadcast("3", { late: 1 }),
  ]);
  clock.pass(25_000);
  assert.deepEqual(socket.sent.at(-1), { topic: "phoenix", event: "heartbeat", payload: {}, ref: "4" });
  socket.say("broadcast", null, { type: "broadcast", event: "any", payload: { a: 1 } });
  assert.deepEqual(heard, [true, { a: 1 }]);
});

test("nonsense changes nothing", () => {
  const { sockets, heard } = begin();
  sockets[0].accept();
  sockets[0].say("phx_reply", "1", { status: "ok" }); // again
  sockets[0].say("phx_close", "0", {}); // of an older join
  sockets[0].say("broadcast", null, { payload: "text" });
  sockets[0].say("broadcast", null, null);
  sockets[0].say("broadcast", null, { payload: {} }, "realtime:orvel-b");
  for (const data of ["", "{", "[]", "null", "1", new ArrayBuffer(3), `"${"a".repeat(600_000)}"`]) sockets[0].onmessage({ data });
  assert.deepEqual(heard, [true]);
  assert.equal(sockets.length, 1);
});

test("comes again after 1, 2, 4 … 30 seconds, and after a join after 1", () => {
  const { clock, sockets, heard } = begin();
  for (const wait of [1, 2, 4, 8, 16, 30, 30]) {
    const before = sockets.length;
    sockets.at(-1).drop();
    clock.pass(wait * 1000 - 1);
    assert.equal(sockets.length, before, `${wait} s`);
    clock.pass(1);
    assert.equal(sockets.length, before + 1, `${wait} s`);
  }
  sockets.at(-1).accept();
  sockets.at(-1).drop();
  clock.pass(1000);
  sockets.at(-1).accept();
  sockets.at(-2).drop(); // an old one disturbs nothing
  assert.deepEqual(heard, [true, false, true]);
});

test("gives a connection up that says nothing", () => {
  const unanswered = [
    ["never opens", 30_000, () => {}],
    ["no answer to the join", 30_000, (socket) => socket.open()],
    ["a refused join", 0, (socket) => { socket.open(); socket.say("phx_reply", "1", { status: "error" }); }],
    ["silent after the join", 90_000, (socket) => socket.accept()],
    ["a crashed channel", 0, (socket) => { socket.accept(); socket.say("phx_error", "1", {}); }],
  ];
  for (const [name, after, prepare] of unanswered) {
    const { clock, sockets } = begin();
    prepare(sockets[0]);
    clock.pass(after + 999);
    assert.equal(sockets.length, 1, name);
    clock.pass(1);
    assert.equal(sockets.length, 2, name);
  }
});

test("stops for good, and hurries when told", () => {
  const { clock, sockets, channel, heard } = begin();
  sockets[0].drop();
  channel.hurry();
  assert.equal(sockets.length, 2);
  sockets[1].accept();
  channel.stop();
  channel.hurry();
  clock.pass(100_000);
  assert.equal(sockets.length, 2);
  assert.deepEqual(heard, [true, false]);
});

test("addresses of relays", () => {
  assert.equal(websocketOf("http://h:1/x?y#z", "k&"), "ws://h:1/realtime/v1/websocket?apikey=k%26&vsn=1.0.0");
  assert.equal(websocketOf("ws://h:1/own/path", "k"), "ws://h:1/own/path?apikey=k&vsn=1.0.0");
  for (const bad of ["", "relay", "ftp://h", "javascript:1"]) assert.throws(() => websocketOf(bad, "k"), TypeError, bad);
});
