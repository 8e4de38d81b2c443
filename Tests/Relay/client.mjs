// The hosted service's own client library on a topic: node client.mjs URL KEY TOPIC VSN
// Prints "joined", then each broadcast as "EVENT JSON"; answers each with {"echo":…} and ends after
// the one that says {"last":true}.
import { RealtimeClient } from "@supabase/realtime-js";
import WebSocket from "ws";

const [url, key, topic, vsn] = process.argv.slice(2);
const client = new RealtimeClient(url, { params: { apikey: key }, vsn, transport: WebSocket });
const channel = client.channel(topic, { config: { broadcast: { self: false, ack: true } } });

channel.on("broadcast", { event: "*" }, async ({ event, payload }) => {
  console.log(`${event} ${JSON.stringify(payload)}`);
  const status = await channel.send({ type: "broadcast", event: "signal", payload: { echo: payload } });
  if (status !== "ok") fail(`sending: ${status}`);
  if (payload.last) {
    console.log(`left ${await client.removeChannel(channel)}`);
    await client.disconnect();
    process.exit(0); // the library keeps a timer for ten seconds
  }
});
channel.subscribe((status, error) => {
  if (status === "SUBSCRIBED") console.log("joined");
  else if (status !== "CLOSED") fail(`${status} ${error}`);
});
setTimeout(() => fail("too late"), 20_000).unref();

function fail(why) {
  console.log(`failed ${why}`);
  process.exit(1);
}
