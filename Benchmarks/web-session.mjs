// A session between the agent and a browser, through the relay, all on this machine: how long until the first
// picture, how many of a busy screen's pictures arrive, and what many sessions leave behind in the agent.
// Runs inside ./orvel bench web. Arguments: sessions for the time (10) and for what is left behind (200).
import { spawnSync } from "node:child_process";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";
import { launch, openPhone, serve } from "../Tests/Web/browser.mjs";
import { Computer } from "../Tests/Web/computer.mjs";

const [timed = 10, many = 200] = process.argv.slice(2).map(Number);
const size = { width: 1920, height: 1080 };
const busySeconds = 10;
const restSeconds = 12; // the agent gives memory back ten seconds after the last session
const ticks = Number(spawnSync("getconf", ["CLK_TCK"]).stdout);
const sleep = (seconds) => new Promise((resolve) => setTimeout(resolve, seconds * 1_000));
const middle = (list) => [...list].sort((a, b) => a - b)[list.length >> 1];

// In the page: when the offer left, and when a picture first came out of the decoder.
function watchSession() {
  globalThis.RTCPeerConnection = class extends RTCPeerConnection {
    constructor(configuration) {
      super(configuration);
      globalThis.peer = this;
      this.addEventListener("track", ({ track }) => {
        if (track.kind !== "video") return;
        const sink = Object.assign(document.createElement("video"), { srcObject: new MediaStream([track]), muted: true });
        sink.requestVideoFrameCallback(() => { globalThis.firstPicture = performance.now(); sink.srcObject = null; });
        sink.play();
      });
    }
    setLocalDescription(description) {
      globalThis.offered ??= performance.now();
      return super.setLocalDescription(description);
    }
  };
}

const computer = new Computer();
const site = await serve();
const browser = await launch();
try {
  await computer.start({ size });
  const context = await browser.newContext({ locale: "en", viewport: { width: 1280, height: 800 } });
  context.setDefaultTimeout(30_000);
  await context.addInitScript(watchSession);
  const { page } = await openPhone(context, site.url, await computer.pair());

  const begin = async () => {
    await page.evaluate(() => { globalThis.offered = globalThis.firstPicture = undefined; });
    await page.getByRole("button", { name: "Connect to Desk" }).click();
    await page.waitForFunction(() => globalThis.firstPicture !== undefined);
  };
  const end = async () => {
    const from = computer.agent.lines.length;
    await page.getByRole("button", { name: "Leave" }).click();
    await computer.status("waiting", from);
  };
  const agentFile = (name) => readFileSync(`/proc/${computer.agent.pid}/${name}`, "utf8");
  const agentCpu = () => {
    const fields = agentFile("stat").replace(/^.*\) /, "").split(" ");
    return (Number(fields[11]) + Number(fields[12])) / ticks;
  };
  const received = () => page.evaluate(async () => {
    const all = [...(await globalThis.peer.getStats()).values()];
    return all.find(({ type, kind }) => type === "inbound-rtp" && kind === "video");
  });
  const look = (what) => {
    const status = agentFile("status");
    const number = (name) => Number(new RegExp(`${name}:\\s+(\\d+)`).exec(status)[1]);
    const descriptors = readdirSync(`/proc/${computer.agent.pid}/fd`).length;
    console.log(`${what.padEnd(24)} ${(number("VmRSS") / 1024).toFixed(1).padStart(7)} MB  ${number("Threads")} threads  ${descriptors} descriptors`);
  };

  const times = [];
  for (let i = 0; i < timed; ++i) {
    await begin();
    times.push(await page.evaluate(() => globalThis.firstPicture - globalThis.offered));
    await end();
  }
  console.log(`offer to the first decoded picture, 1080p, ${timed} sessions: median ${middle(times).toFixed(0)} ms, worst ${Math.max(...times).toFixed(0)}`);

  const drawing = computer.run(join(process.env.ORVEL_BUILD, "orvel-moving-screen"),
    ["--mode", "scroll", "--rate", "60", "--whole"]);
  await begin();
  let before = await received();
  for (const seconds of [5, busySeconds]) {
    const [cpuBefore, from] = [agentCpu(), performance.now()];
    await sleep(seconds);
    const now = await received();
    const passed = (performance.now() - from) / 1_000;
    const frames = now.framesDecoded - before.framesDecoded;
    console.log(`scrolling 1080p60, ${seconds} s: decoded ${(frames / passed).toFixed(1)}/s, dropped ${now.framesDropped - before.framesDropped}, ` +
      `lost packets ${now.packetsLost - before.packetsLost}, ${((now.bytesReceived - before.bytesReceived) * 8e-6 / passed).toFixed(1)} Mbit/s, ` +
      `the agent ${((agentCpu() - cpuBefore) / frames * 1e3).toFixed(1)} ms of CPU a picture`);
    before = now;
  }
  await end();
  await drawing.stop();

  look("before");
  for (let i = 1; i <= many; ++i) {
    await begin();
    await end();
    if (i === 1 || i % 50 === 0) look(`after ${i} session${i > 1 ? "s" : ""}`);
  }
  await sleep(restSeconds);
  look("at rest again");
} finally {
  await browser.close();
  site.stop();
  await computer.stop();
}
