// One session of the page for the demo: STATE NAME PICTURE X Y TEXT. With the paired phone's state folder it
// connects to the computer of this name, looks at it for a while, clicks at a place (parts of the display),
// types, and saves a picture of the page. Prints what it saw as JSON.
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { launch, openPhone, serve } from "../Tests/Web/browser.mjs";

const [state, name, picture, x, y, text] = process.argv.slice(2);
const watched = 4_000; // ms
const known = JSON.parse(readFileSync(join(state, "agents.json"), "utf8"));
const relay = { url: process.env.ORVEL_PROJECT_URL, key: process.env.ORVEL_PROJECT_KEY };
const identity = readFileSync(join(state, "identity")).toString("base64");

const site = await serve();
const browser = await launch();
try {
  const context = await browser.newContext({ locale: "en", viewport: { width: 1280, height: 800 } });
  context.setDefaultTimeout(45_000);
  const { page } = await openPhone(context, site.url, JSON.stringify({ ...known, identity, relay, stun: [] }));
  await page.getByRole("button", { name: `Connect to ${name}` }).click();
  await page.waitForFunction(() => document.getElementById("desk").dataset.phase === "live");
  const decoded = () => page.evaluate(() => {
    const video = document.getElementById("screen");
    return { frames: video.getVideoPlaybackQuality().totalVideoFrames, width: video.videoWidth, height: video.videoHeight };
  });
  await page.waitForFunction(() => document.getElementById("screen").videoWidth > 0);
  const [begin, before] = [Date.now(), await decoded()];
  const screen = await page.locator("#screen").boundingBox();
  await page.mouse.click(screen.x + screen.width * x, screen.y + screen.height * y);
  await page.keyboard.type(text);
  await page.waitForTimeout(watched);
  const after = await decoded();
  const seconds = (Date.now() - begin) / 1000;
  await page.screenshot({ path: picture });
  await page.getByRole("button", { name: "Leave" }).click();
  if (!(after.frames > before.frames)) throw new Error("no picture was decoded");
  console.log(JSON.stringify({ ...after, frames: after.frames - before.frames, seconds }));
} finally {
  await browser.close();
  site.stop();
}
