// A relay for a test: topics, joins, broadcasts to the others, heartbeats. Nothing else of the service.
// ORVEL_TEST_RELAY is the address of a real one to be used instead.
import { WebSocketServer } from "ws";

export async function startRelay() {
  const real = process.env.ORVEL_TEST_RELAY;
  if (real) return { url: real, interrupt: () => {}, stop: () => {} };
  const server = new WebSocketServer({ host: "127.0.0.1", port: 0, path: "/realtime/v1/websocket" });
  await new Promise((resolve) => server.once("listening", resolve));
  const joined = new Map(); // socket -> topics
  server.on("connection", (socket) => {
    joined.set(socket, new Set());
    socket.on("close", () => joined.delete(socket));
    socket.on("message", (data) => {
      const { topic, event, payload, ref } = JSON.parse(data);
      const say = (to, message) => to.send(JSON.stringify({ topic, ...message }));
      if (event === "phx_join") joined.get(socket).add(topic);
      if (event === "phx_join" || event === "heartbeat") {
        return say(socket, { event: "phx_reply", ref, payload: { status: "ok", response: {} } });
      }
      for (const [other, topics] of joined) {
        if (event === "broadcast" && other !== socket && topics.has(topic)) say(other, { event, ref: null, payload });
      }
    });
  });
  return {
    url: `http://127.0.0.1:${server.address().port}`,
    // Breaks every connection; clients come again.
    interrupt: () => { for (const socket of server.clients) socket.terminate(); },
    stop: () => {
      for (const socket of server.clients) socket.terminate();
      return new Promise((resolve) => server.close(resolve));
    },
  };
}
