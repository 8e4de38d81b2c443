// The page and the agent where nothing but a TURN server leads from one to the other.
import assert from "node:assert/strict";
import { existsSync } from "node:fs";
import test from "node:test";
import { launch, openPhone, serve } from "./browser.mjs";
import { Computer, missing } from "./computer.mjs";

const skip = existsSync(process.env.ORVEL_BROWSER ?? "/usr/bin/chromium") ? missing("turnserver") : "no chromium here";

test("a session through a TURN server alone", { skip, timeout: 45_000 }, async (t) => {
  const computer = new Computer();
  t.after(() => computer.stop());
  const site = await serve();
  t.after(() => site.stop());
  const browser = await launch();
  t.after(() => browser.close());
  await computer.start({ turn: true, defaults: { relayOnly: true } });
  const context = await browser.newContext({ locale: "en" });
  context.setDefaultTimeout(15_000);
  await context.addInitScript(() => {
    globalThis.RTCPeerConnection = class extends RTCPeerConnection {
      constructor(configuration) {
        super({ ...configuration, iceTransportPolicy: "relay" });
        globalThis.peer = this;
      }
    };
  });
  const { page, complaints } = await openPhone(context, site.url, await computer.pair());
  const from = computer.agent.lines.length;
  await page.getByRole("button", { name: "Connect to Desk" }).click();
  await computer.status("connected", from, 20_000);
  await page.waitForFunction(() => document.getElementById("screen").videoWidth === 1280);
  await page.getByTitle("Through a TURN server").waitFor();
  const own = await page.evaluate(async () => {
    const all = [...(await globalThis.peer.getStats()).values()];
    const pair = all.find(({ type, nominated, state }) => type === "candidate-pair" && nominated && state === "succeeded");
    return all.find(({ id }) => id === pair.localCandidateId).candidateType;
  });
  assert.equal(own, "relay");
  const users = computer.turn.lines.map((line) => /user <(\d+:[^>]+)>: incoming packet ALLOCATE processed, success/.exec(line)?.[1]);
  assert.equal(new Set(users.filter(Boolean)).size, 2, "both have an address there, each with an account of its own");
  await page.close({ runBeforeUnload: true });
  await computer.status("waiting", from);
  assert.deepEqual(complaints, []);
});
