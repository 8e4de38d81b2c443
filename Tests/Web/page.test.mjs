// The whole page in a browser, against a computer that another page plays.
import assert from "node:assert/strict";
import { existsSync, mkdirSync } from "node:fs";
import { readFile } from "node:fs/promises";
import test, { after, before } from "node:test";
import { launch, openPhone, serve } from "./browser.mjs";
import { startRelay } from "./relay.mjs";
import { highKey, lowKey } from "./vectors.mjs";

const agentID = "vkup75ydwufsff7u", phoneID = "m7fc77lp5hx2wplw";
const bounded = { timeout: 15_000 };
const skip = existsSync(process.env.ORVEL_BROWSER ?? "/usr/bin/chromium") ? false : "no chromium here";
const options = { skip, timeout: 60_000 };

let relay, site, browser, context, computer, identity;

before(async () => {
  if (skip) return;
  [relay, site, browser] = await Promise.all([startRelay(), serve(), launch()]);
  context = await browser.newContext({ locale: "en", viewport: { width: 1000, height: 700 }, acceptDownloads: true });
  context.setDefaultTimeout(15_000);
  await context.grantPermissions(["clipboard-read", "clipboard-write"], { origin: site.url });
  computer = await context.newPage();
  await computer.goto(`${site.url}/test/agent.html`);
  await computer.waitForFunction(() => window.agent);
  const keys = await computer.evaluate(async ([low, high]) => {
    const { makeIdentity } = await import("/identity.js");
    const { toBase64 } = await import("/bytes.js");
    const keyOf = async (raw) => toBase64((await makeIdentity(Uint8Array.from(raw))).publicKey);
    return { agent: await keyOf(low), phone: await keyOf(high) };
  }, [[...lowKey], [...highKey]]);
  await computer.evaluate((args) => window.agent.start(...args), [{ url: relay.url, key: "local" }, [...lowKey], keys.phone, phoneID]);
  identity = JSON.stringify({
    identity: Buffer.from(highKey).toString("base64"),
    agents: [{ id: agentID, publicKey: keys.agent, name: "Desk" }],
    // The websocket alone: no account and no ICE servers.
    relay: { url: `${relay.url.replace("http", "ws")}/realtime/v1/websocket`, key: "local" },
    stun: ["stun:nobody:99999"], // no address: left out
    deviceName: "Test phone",
  });
});

after(async () => {
  await browser?.close();
  await relay?.stop();
  site?.stop();
});

// What the computer was sent since the last call, without the moves and pings in between.
async function controls(wanted) {
  await computer.waitForFunction(
    (count) => window.agent.controls.filter(([name]) => !["ping", "moveTo"].includes(name)).length >= count, wanted, bounded);
  return computer.evaluate(() => {
    const all = window.agent.controls.splice(0);
    return all.filter(([name]) => name !== "ping");
  });
}
const without = (list, name) => list.filter(([one]) => one !== name);

const phase = (page, wanted) =>
  page.waitForFunction((one) => document.getElementById("desk").dataset.phase === one, wanted, bounded);

async function connected() {
  const opened = await openPhone(context, site.url, identity);
  await opened.page.getByRole("button", { name: "Connect to Desk" }).click();
  await phase(opened.page, "live");
  await computer.evaluate(() => window.agent.controls.splice(0));
  return opened;
}

test("a person brings an identity and sees the computer", options, async () => {
  const { page, complaints } = await openPhone(context, site.url);
  await page.getByRole("button", { name: "Import a paired phone" }).click();
  const { agents, relay: { url } } = JSON.parse(identity);
  const file = (name, buffer) => ({ name, mimeType: "application/octet-stream", buffer });
  const dialog = page.getByRole("dialog");
  await dialog.locator("#import-files").setInputFiles([file("identity", Buffer.from("too short"))]);
  await dialog.getByLabel("Relay address").fill(url);
  await dialog.getByRole("button", { name: "Import", exact: true }).click();
  await dialog.getByText("This is not a phone's identity.").waitFor();
  await dialog.locator("#import-files").setInputFiles([
    file("identity", Buffer.from(highKey)), file("agents.json", Buffer.from(JSON.stringify({ agents }))),
  ]);
  await dialog.getByRole("button", { name: "Import", exact: true }).click();
  await page.getByText("Ready").waitFor(); // the computer was asked

  // It is still there the next time, and cannot be read.
  await page.reload();
  await page.getByText("Ready").waitFor();
  assert.equal(await page.evaluate(async () => (await (await import("/store.js")).load("identity")).privateKey.extractable), false);
  await page.getByRole("button", { name: "Settings" }).click();
  await page.getByRole("button", { name: "Forget everything" }).click();
  await page.getByRole("dialog").last().getByRole("button", { name: "Forget everything" }).click();
  await page.getByText("Make this browser one of your phones").waitFor();
  assert.equal(await page.evaluate(async () => (await import("/store.js")).load("identity")), undefined);
  assert.deepEqual(complaints, []);
  await page.close();
});

test("a whole session", options, async (t) => {
  const { page, complaints, hosts } = await connected();
  await page.waitForFunction(() => document.getElementById("screen").videoWidth === 640, undefined, bounded);

  await t.test("the picture is the computer's", async () => {
    await page.waitForFunction(() => {
      const video = document.getElementById("screen");
      const canvas = Object.assign(document.createElement("canvas"), { width: 64, height: 40 });
      const paint = canvas.getContext("2d");
      paint.drawImage(video, 0, 0, 64, 40);
      const [r, g, b] = paint.getImageData(10, 20, 1, 1).data;
      return g > 90 && r < 60 && b < 60;
    }, undefined, bounded);
    assert.equal(await page.locator("#front-app").textContent(), "Editor");
    assert.match(await page.title(), /Orvel/);
    const offer = await computer.evaluate(() => window.agent.session.offered);
    const h264 = /a=rtpmap:(\d+) H264/.exec(offer)?.[1];
    if (h264) assert.match(offer, new RegExp(`m=video \\d+ \\S+ ${h264} `)); // asked for first
  });

  const box = await page.locator("#screen").boundingBox();
  const at = (x, y) => [box.x + x * box.width, box.y + y * box.height];
  const near = (members, x, y) => Math.hypot(members.x - x, members.y - y) < 0.005;

  await t.test("pointer, buttons and wheel", async () => {
    await page.mouse.move(...at(0.25, 0.5));
    await page.mouse.down();
    await page.mouse.move(...at(0.75, 0.5));
    await page.mouse.up();
    const drag = await controls(2);
    assert.deepEqual(drag.map(([name]) => name), ["moveTo", "button", "moveTo", "button"]);
    assert.ok(near(drag[0][1], 0.25, 0.5) && near(drag[2][1], 0.75, 0.5), JSON.stringify(drag));
    assert.deepEqual([drag[1][1], drag[3][1]], [{ _0: "left", down: true, clicks: 1 }, { _0: "left", down: false, clicks: 1 }]);

    await page.mouse.dblclick(...at(0.5, 0.5));
    assert.deepEqual(without(await controls(4), "moveTo").map(([, { down, clicks }]) => [down, clicks]),
      [[true, 1], [false, 1], [true, 2], [false, 2]]);
    await page.mouse.click(...at(0.1, 0.1), { button: "right" });
    assert.deepEqual(without(await controls(2), "moveTo").map(([, { _0, down }]) => [_0, down]), [["right", true], ["right", false]]);

    await page.mouse.wheel(3, 40);
    assert.deepEqual(await controls(3), [
      ["scroll", { dx: 0, dy: 0, phase: "began" }],
      ["scroll", { dx: -3, dy: -40, phase: "changed" }],
      ["scroll", { dx: 0, dy: 0, phase: "ended" }],
    ]);

    // Enlarged, what is under the pointer stays there.
    await page.mouse.move(...at(0.25, 0.5));
    await page.keyboard.down("Control");
    await page.mouse.wheel(0, -200);
    await page.keyboard.up("Control");
    await page.waitForFunction((width) => document.getElementById("screen").clientWidth > 2 * width, box.width, bounded);
    await page.mouse.click(...at(0.25, 0.5));
    const [[, place]] = (await controls(2)).filter(([name]) => name === "moveTo").slice(-1);
    assert.ok(near(place, 0.25, 0.5), JSON.stringify(place));
    await page.keyboard.down("Control");
    await page.mouse.wheel(0, 400);
    await page.keyboard.up("Control");
    await page.waitForFunction((width) => Math.abs(document.getElementById("screen").clientWidth - width) < 2, box.width, bounded);
  });

  await t.test("keys and text", async () => {
    await page.keyboard.type("aŞ ");
    await page.keyboard.press("Enter");
    await page.keyboard.press("Control+Shift+ArrowLeft");
    await page.keyboard.insertText("çöğüş 👋");
    await page.keyboard.press("Control+Alt+Home"); // a way out for who has no mouse; nothing is sent
    assert.equal(await page.evaluate(() => document.activeElement.id), "tool-keyboard");
    const key = (code, modifiers = 0) => [true, false].map((down) => ["key", { code, down, modifiers }]);
    assert.deepEqual(await controls(8), [
      ["text", { _0: "a" }], ["text", { _0: "Ş" }], ["text", { _0: " " }], ...key(36), ...key(123, 3), ["text", { _0: "çöğüş 👋" }],
    ]);
  });

  await t.test("a text field raises the keyboard, and a modifier of its row counts once", async () => {
    const tool = page.getByRole("button", { name: "Keyboard" });
    await computer.evaluate(() => window.agent.say("textFocus", { _0: true }));
    await page.locator("#keys").waitFor();
    assert.equal(await tool.getAttribute("aria-pressed"), "true");
    assert.deepEqual(await page.evaluate(() => [document.activeElement.id, document.activeElement.inputMode]), ["typing", "text"]);
    await page.getByRole("button", { name: "Command, for the next key" }).click();
    await page.keyboard.type("ca");
    assert.deepEqual(await controls(3), [
      ["key", { code: 8, down: true, modifiers: 8 }], ["key", { code: 8, down: false, modifiers: 8 }], ["text", { _0: "a" }],
    ]);
    await computer.evaluate(() => window.agent.say("textFocus", { _0: false }));
    await page.locator("#keys").waitFor({ state: "hidden" });
    assert.equal(await tool.getAttribute("aria-pressed"), "false");
  });

  await t.test("the clipboard goes both ways", async () => {
    await page.evaluate(() => navigator.clipboard.writeText("from here"));
    await page.keyboard.press("Control+v");
    assert.deepEqual(await controls(3), [
      ["clipboard", { _0: "from here" }], ["key", { code: 9, down: true, modifiers: 2 }], ["key", { code: 9, down: false, modifiers: 2 }],
    ]);
    await page.bringToFront();
    await computer.evaluate(() => window.agent.say("clipboard", { _0: "from there" }));
    await page.waitForFunction(async () => (await navigator.clipboard.readText()) === "from there", undefined, bounded);
    await page.getByRole("button", { name: "Clipboard" }).click();
    assert.equal(await page.getByLabel("Copied on the computer").inputValue(), "from there");
    await page.getByLabel("Text for the computer's clipboard").fill("iki\nsatır");
    await page.getByRole("button", { name: "Put there" }).click();
    assert.deepEqual(await controls(1), [["clipboard", { _0: "iki\nsatır" }]]);
  });

  await t.test("a file arrives whole, under its last name", async () => {
    await page.getByRole("button", { name: "Files" }).click();
    const download = page.waitForEvent("download");
    await page.getByRole("button", { name: /Download picture.raw/ }).click();
    const file = await download;
    assert.equal(file.suggestedFilename(), "picture.raw");
    const bytes = await readFile(await file.path());
    assert.equal(bytes.length, 3_000_001);
    assert.ok(bytes.every((byte, i) => byte === ((i * 31 + (i >> 8)) & 255)));
    await page.getByText("Done").waitFor();
    await page.getByRole("button", { name: "Belgeler" }).click();
    await page.getByText("This folder is empty.").waitFor();
    assert.deepEqual(await controls(3), [
      ["listDirectory", {}], ["fetchFile", { id: 1, path: "/home/ada/picture.raw" }], ["listDirectory", { _0: "/home/ada/Belgeler" }],
    ]);
  });

  await t.test("the sound is decoded and played", async () => {
    await page.waitForFunction(async () => {
      const { desk } = await import("/app.js");
      desk.sound.onStatistics = (news) => (window.sound = news);
      return desk.sound.decoded > 24_000 && window.sound?.played > 12_000;
    }, undefined, bounded);
    await page.getByRole("button", { name: "Sound is on" }).click();
    assert.deepEqual(await controls(1), [["audio", { _0: false }]]);
  });

  await t.test("another display, and what it costs to get there", async () => {
    await page.getByLabel("Display").selectOption("Right");
    assert.deepEqual(await controls(1), [["selectDisplay", { _0: 2 }]]);
    await page.getByText(/^\d+ ms$/).waitFor();
  });

  if (process.env.ORVEL_SCREENSHOTS) {
    mkdirSync(process.env.ORVEL_SCREENSHOTS, { recursive: true });
    await page.screenshot({ path: `${process.env.ORVEL_SCREENSHOTS}/session.png` });
  }

  await t.test("closing the page says goodbye", async () => {
    await page.close({ runBeforeUnload: true });
    await computer.waitForFunction(() => window.agent.signals.at(-1) === "bye" && window.agent.session.ended, undefined, bounded);
  });
  assert.deepEqual(complaints, []);
  assert.deepEqual([...hosts].sort(), [site.url, relay.url].map((url) => new URL(url).host).sort());
});

test("what is held is let go, and a broken connection comes back", options, async () => {
  const { page, complaints } = await connected();
  await page.locator("#stage").hover();
  await page.mouse.down();
  await page.keyboard.down("ArrowUp");
  await page.evaluate(() => dispatchEvent(new Event("blur")));
  await page.locator("#typing").blur();
  const held = without(await controls(4), "moveTo").map(([name, { down }]) => `${name} ${down}`);
  assert.deepEqual(held, ["button true", "key true", "button false", "key false"]);

  await page.mouse.up();
  await page.keyboard.up("ArrowUp");
  relay.interrupt(); // the session itself does not need it
  await computer.evaluate(() => (window.agent.signals = []));
  await computer.evaluate(() => {
    window.agent.session.control.close();
    window.agent.session.end();
  });
  await computer.waitForFunction(() => window.agent.signals.includes("offer"), undefined, bounded);
  await phase(page, "live");
  await page.getByRole("button", { name: "Leave" }).click();
  await computer.waitForFunction(() => window.agent.session.ended, undefined, bounded);
  await page.getByRole("button", { name: "Connect to Ada's computer" }).waitFor(); // as it calls itself
  assert.deepEqual(complaints, []);
  await page.close();
});

test("a computer in standby is unlocked by its owner only; one that refuses says why", options, async () => {
  // Authenticators know pages by name only.
  const { page, complaints } = await openPhone(context, site.url.replace("127.0.0.1", "localhost"), identity);
  const devTools = await context.newCDPSession(page);
  await devTools.send("WebAuthn.enable");
  const { authenticatorId } = await devTools.send("WebAuthn.addVirtualAuthenticator", {
    options: { protocol: "ctap2", transport: "internal", hasUserVerification: true, isUserVerified: true, automaticPresenceSimulation: true },
  });
  const verifies = (isUserVerified) => devTools.send("WebAuthn.setUserVerified", { authenticatorId, isUserVerified });
  const unlocks = () => computer.evaluate(() => window.agent.signals.filter((name) => name === "unlock").length);
  await computer.evaluate(() => Object.assign(window.agent, { locked: true, rejects: "pinRequired", signals: [] }));

  await page.getByRole("button", { name: "Connect to Desk" }).click();
  await page.getByText("Desk is in standby").waitFor();
  const unlock = page.getByRole("button", { name: "Unlock" });
  await unlock.click();
  await page.getByRole("dialog").getByRole("button", { name: "Cancel" }).click();
  await page.getByRole("button", { name: "Back" }).click();

  await page.getByRole("button", { name: "Settings" }).click();
  await page.getByLabel("Ask for fingerprint, face or PIN").check();
  await page.getByRole("button", { name: "Save" }).click();
  await page.locator("#settings").waitFor({ state: "hidden" });
  await page.getByRole("button", { name: "Connect to Desk" }).click();
  await verifies(false);
  await unlock.click();
  await page.getByText("The computer stays locked.").waitFor();
  assert.equal(await unlocks(), 0);
  await verifies(true);
  await unlock.click();
  await page.getByText(/does not know this phone any more/).waitFor();
  assert.equal(await unlocks(), 1);
  await computer.evaluate(() => (window.agent.rejects = null));
  assert.deepEqual(complaints, []);
  await page.close();
});

test("on a phone's screen, in Turkish: taps, and another phone that takes the computer", options, async () => {
  const phone = await browser.newContext({ locale: "tr-TR", viewport: { width: 390, height: 780 }, hasTouch: true, isMobile: true });
  const { page, complaints } = await openPhone(phone, site.url, identity);
  await page.getByRole("button", { name: "Desk ile bağlan" }).tap();
  await phase(page, "live");
  await computer.evaluate(() => window.agent.controls.splice(0));
  await page.locator("#stage").tap();
  assert.deepEqual(await controls(2), [true, false].map((down) => ["button", { _0: "left", down, clicks: 1 }]));
  const bar = await page.locator("#bar").boundingBox();
  assert.deepEqual([bar.x, bar.width, bar.y + bar.height], [0, 390, 780]);

  // Everything within reach of a thumb, with the keyboard's row as well.
  await page.getByRole("button", { name: "Klavye" }).tap();
  await page.getByRole("button", { name: "Sekme" }).tap();
  await page.getByRole("button", { name: "Dosyalar" }).tap();
  await page.getByRole("button", { name: "Belgeler" }).tap();
  await page.getByText("Bu klasör boş.").waitFor();
  await page.locator("#files").getByRole("button", { name: "Kapat" }).tap();
  assert.deepEqual((await controls(4)).map(([name]) => name), ["key", "key", "listDirectory", "listDirectory"]);

  // The computer ends this session because it has another one.
  await computer.evaluate(() => {
    window.agent.taken = true;
    window.agent.session.control.close();
  });
  await page.getByText("Ada's computer başka bir telefonla kullanılıyor.").first().waitFor();
  assert.equal(await page.locator("#desk").getAttribute("data-phase"), "waiting");
  await computer.evaluate(() => (window.agent.taken = false));
  assert.deepEqual(complaints, []);
  await phone.close();
});
