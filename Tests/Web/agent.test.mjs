// The page in a browser and the agent as it was built, through the relay as it was built: everything between
// a person at the page and a program on the computer's desktop is real.
import assert from "node:assert/strict";
import { randomBytes } from "node:crypto";
import { existsSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import test, { after, before } from "node:test";
import { launch, openPhone, serve } from "./browser.mjs";
import { Computer, missing, until } from "./computer.mjs";

const bounded = { timeout: 15_000 };
const skip = existsSync(process.env.ORVEL_BROWSER ?? "/usr/bin/chromium") ? missing("xterm") : "no chromium here";
const options = { skip, timeout: 45_000 };
const green = [0, 96, 64], blue = [32, 48, 112];
const colour = (parts) => `#${Buffer.from(parts).toString("hex")}`;

// In the terminal: reports one click in pixels, takes a line and shows it on another ground, and
// takes lines from then on.
const listener = `
cd "$1"
stty -echo eol M
printf '\\033[?9;1016h'
dd bs=64 count=1 of=click 2>/dev/null
printf '\\033[?9;1016l'
stty echo eol ^-
printf '\\n  Who is there? '
IFS= read -r line
printf '%s\\n' "$line" >line
printf '\\033]11;${colour(blue)}\\007\\n  Hello, %s!\\n\\n  ' "$line"
exec cat >rest
`;

let computer, site, browser, context, identity;
const file = randomBytes(3_000_001);

before(async () => {
  if (skip) return;
  computer = new Computer();
  [site, browser] = await Promise.all([serve(), launch(), computer.start({ sound: true })]);
  writeFileSync(join(computer.home, "Tatil fotoğrafı.jpg"), file);
  computer.run("xterm", ["-geometry", "200x100+0+0", "-fa", "Monospace", "-fs", "22", "-b", "0", "+sb", "-bw", "0",
    "-bg", colour(green), "-fg", "white", "-e", "sh", "-c", listener, "sh", computer.scratch]);
  identity = await computer.pair();
  context = await browser.newContext({ locale: "en", viewport: { width: 1280, height: 800 }, acceptDownloads: true });
  context.setDefaultTimeout(15_000);
}, { timeout: 45_000 });

after(async () => {
  await browser?.close();
  site?.stop();
  const status = await computer?.stop();
  if (!skip) assert.equal(status, 0, computer.agent?.errors); // and no finding of the sanitizers
});

const written = (name) => {
  const path = join(computer.scratch, name);
  return existsSync(path) ? readFileSync(path, "utf8") : "";
};
const phase = (page, wanted) =>
  page.waitForFunction((one) => document.getElementById("desk").dataset.phase === one, wanted, bounded);

// Connects as a person does, from the list of computers. `from` is the agent's first line about it.
async function connected() {
  const opened = await openPhone(context, site.url, identity);
  const answers = new Map();
  opened.page.on("response", (response) => answers.set(new URL(response.url()).pathname, response.status()));
  const from = computer.agent.lines.length;
  await opened.page.getByRole("button", { name: "Connect to Desk" }).click();
  await phase(opened.page, "live");
  return { ...opened, answers, from };
}

// Near the bottom, where the terminal shows nothing but its ground.
const shows = (page, wanted) => page.waitForFunction((parts) => {
  const video = document.getElementById("screen");
  const canvas = Object.assign(document.createElement("canvas"), { width: 64, height: 40 });
  const paint = canvas.getContext("2d");
  paint.drawImage(video, 0, 0, 64, 40);
  const pixel = paint.getImageData(32, 36, 1, 1).data;
  return parts.every((part, i) => Math.abs(part - pixel[i]) < 16);
}, wanted, bounded);

test("a session from its first click to its end", options, async (t) => {
  const { page, complaints, hosts, answers, from } = await connected();
  const { name, internet } = await computer.status("connected", from);
  assert.ok(name && internet);
  for (const [path, status] of [["/auth/v1/signup", 200], ["/functions/v1/tarno-turn", 200]]) assert.equal(answers.get(path), status);
  assert.equal(await page.locator("#computer-name").textContent(), "Desk");

  await t.test("the picture is the computer's, in its size", async () => {
    await shows(page, green);
    const size = await page.evaluate(() => [document.getElementById("screen").videoWidth, document.getElementById("screen").videoHeight]);
    assert.deepEqual(size, [1280, 800]);
  });

  await t.test("a click arrives where it was made", async () => {
    const { x, y, width, height } = await page.locator("#screen").boundingBox();
    await page.mouse.click(x + width * 0.75, y + height * 0.5);
    await until(() => written("click"), "the click");
    const [, ...place] = /^\x1b\[<0;(\d+);(\d+)M$/.exec(written("click")) ?? [];
    assert.ok(Math.hypot(place[0] - 960, place[1] - 400) < 4, JSON.stringify(written("click")));
  });

  await t.test("typed text arrives, and the picture shows what it did", async () => {
    await page.keyboard.type("Ayşe & Çağrı, €5");
    await page.keyboard.press("Enter");
    await until(() => written("line"), "the line");
    assert.equal(written("line"), "Ayşe & Çağrı, €5\n");
    await shows(page, blue);
  });

  if (process.env.ORVEL_SCREENSHOTS) {
    mkdirSync(process.env.ORVEL_SCREENSHOTS, { recursive: true });
    await page.screenshot({ path: join(process.env.ORVEL_SCREENSHOTS, "web-session.png") });
  }

  await t.test("what the computer plays is heard", { skip: computer.hasSound ? false : "no sound server here" }, async () => {
    const tone = new Int16Array(2 * 48_000 * 5).map((_, i) => 16_000 * Math.sin(2 * Math.PI * 1000 * ((i >> 1) / 48_000)));
    writeFileSync(join(computer.scratch, "tone.raw"), tone);
    const player = computer.run("pacat", ["--format=s16le", "--rate=48000", "--channels=2", join(computer.scratch, "tone.raw")]);
    await page.waitForFunction(async () => {
      const { desk } = await import("/app.js");
      desk.sound.onStatistics = (news) => (window.sound = news);
      return window.sound?.played > 24_000;
    }, undefined, bounded);
    // Decoded once more, for its pitch.
    const crossings = await page.evaluate(async () => {
      const { desk } = await import("/app.js");
      const signs = [];
      return new Promise((resolve, reject) => {
        const decoder = new AudioDecoder({
          error: reject,
          output: (data) => {
            const plane = new Float32Array(data.numberOfFrames);
            data.copyTo(plane, { planeIndex: 0, format: "f32-planar" });
            for (const value of plane) if (Math.abs(value) > 0.1) signs.push(value > 0);
            if (signs.length > 36_000) resolve(signs.slice(-24_000).filter((one, i, all) => i && one !== all[i - 1]).length / 24_000);
          },
        });
        decoder.configure({ codec: "opus", sampleRate: 48_000, numberOfChannels: 2 });
        let time = 0;
        desk.sound.add = ({ opus }) => decoder.state === "configured" && signs.length <= 36_000 &&
          decoder.decode(new EncodedAudioChunk({ type: "key", timestamp: (time += 20_000), data: opus }));
      });
    });
    // Two in a period; small values were left out.
    assert.ok(crossings > 2 / 48 && crossings < 2.6 / 48, String(crossings * 48));
    await page.evaluate(async () => delete (await import("/app.js")).desk.sound.add);
    await player.stop();
  });

  await t.test("a file arrives whole", async () => {
    await page.getByRole("button", { name: "Files" }).click();
    const download = page.waitForEvent("download");
    await page.getByRole("button", { name: /Download Tatil fotoğrafı.jpg/ }).click();
    const got = await download;
    assert.equal(got.suggestedFilename(), "Tatil fotoğrafı.jpg");
    assert.ok(file.equals(readFileSync(await got.path())));
    await page.getByRole("button", { name: "Files" }).click();
  });

  await t.test("a browser that is stopped for eight seconds does not lose the session", async () => {
    const devTools = await browser.newBrowserCDPSession();
    const { processInfo } = await devTools.send("SystemInfo.getProcessInfo");
    const renderers = processInfo.filter(({ type }) => type === "renderer").map(({ id }) => id);
    assert.ok(renderers.length);
    const before = computer.agent.lines.length;
    for (const id of renderers) process.kill(id, "SIGSTOP");
    try {
      // The time itself is what is tested: the network's own clocks run meanwhile.
      await new Promise((resolve) => setTimeout(resolve, 8_000));
    } finally {
      for (const id of renderers) process.kill(id, "SIGCONT");
    }
    await page.keyboard.type("still here");
    await page.keyboard.press("Enter");
    await until(() => written("rest") === "still here\n", () => `the second line: ${written("rest")}`);
    await phase(page, "live");
    assert.ok(!computer.agent.lines.slice(before).some((line) => line.includes("\"status\"")), "it is the same session");
  });

  await t.test("closing the page ends it at once", async () => {
    const before = computer.agent.lines.length;
    await page.close({ runBeforeUnload: true });
    await computer.status("waiting", before, 5_000);
  });
  assert.deepEqual(complaints, []);
  assert.deepEqual([...hosts].sort(), [site.url, computer.project.url].map((url) => new URL(url).host).sort());
});

test("in standby one session is let in after each unlocking", options, async () => {
  const { page, complaints } = await openPhone(context, site.url, identity);
  computer.act("setRemoteAccess", { _0: "standby" });
  const connect = page.getByRole("button", { name: "Connect to Desk" });
  const before = computer.agent.lines.length;
  const unlock = (pick, what) => computer.agent.event((event) => event.unlock && pick(event.unlock), what, before);
  await connect.click();
  await page.getByText("Desk is in standby").waitFor();
  await page.getByRole("button", { name: "Unlock" }).click();
  await page.getByRole("dialog").getByRole("button", { name: "Unlock" }).click();
  await phase(page, "live");
  const left = (await unlock(({ until: end }) => end, "being unlocked")) - Date.now() / 1000;
  assert.ok(left > 3500 && left <= 3601, String(left));
  await page.getByRole("button", { name: "Leave" }).click();
  assert.ok(await unlock(({ until: end, name }) => end === undefined && name, "being locked again"));
  await connect.click();
  await page.getByText("Desk is in standby").waitFor();
  await page.getByRole("button", { name: "Back" }).click();
  assert.deepEqual(complaints, []);
  await page.close();
});

test("a browser that is killed lets go of everything, and of a computer in standby", { ...options, timeout: 90_000 }, async () => {
  const doomed = await launch();
  try {
    const { page } = await openPhone(await doomed.newContext({ locale: "en" }), site.url, identity);
    const window = computer.run("xev", ["-geometry", "1280x800+0+0", "-event", "button", "-event", "keyboard"]);
    const seen = (wanted) => until(() => window.lines.findLast((line) => /^(Button|Key)/.test(line))?.startsWith(wanted),
      () => `${wanted}: ${window.lines.join("\n")}`, 40_000);
    computer.act("setRemoteAccess", { _0: "standby" });
    const before = computer.agent.lines.length;
    await page.getByRole("button", { name: "Connect to Desk" }).click();
    await page.getByRole("button", { name: "Unlock" }).click();
    await page.getByRole("dialog").getByRole("button", { name: "Unlock" }).click();
    await phase(page, "live");
    const { x, y, width, height } = await page.locator("#screen").boundingBox();
    await page.mouse.move(x + width / 2, y + height / 2);
    await page.mouse.down();
    await seen("ButtonPress");
    await page.keyboard.down("ArrowLeft");
    await seen("KeyPress");

    const devTools = await doomed.newBrowserCDPSession();
    const { processInfo } = await devTools.send("SystemInfo.getProcessInfo");
    for (const { id } of processInfo) {
      try { process.kill(id, "SIGKILL"); } catch { /* gone with another one */ }
    }
    // Nothing tells the computer: it has to notice the silence, and to wait whether it ends.
    const locked = ({ unlock }) => unlock && unlock.until === undefined;
    await computer.agent.event(locked, "being locked again", before, 40_000);
    await computer.status("waiting", before);
    const released = () => ["Button", "Key"].every((kind) => window.lines.findLast((line) => line.startsWith(kind))?.startsWith(`${kind}Release`));
    await until(released, () => `being let go: ${window.lines.join("\n")}`);
    await window.stop();
  } finally {
    await doomed.close();
  }
});
