import assert from "node:assert/strict";
import test from "node:test";
import { Gestures } from "../../Phone/web/gestures.js";
import { difference, makesText, modifiersOf, piecesOf } from "../../Phone/web/keyboard.js";
import { keyCodes } from "../../Phone/web/keycodes.js";
import { PacketOrder } from "../../Phone/web/sound.js";
import { languages } from "../../Phone/web/texts.js";
import { View } from "../../Phone/web/view.js";
import { VirtualTime } from "./virtual-time.mjs";

test("the places of keys", () => {
  const rows = [
    ["Backquote Digit1 Digit2 Digit3 Digit4 Digit5 Digit6 Digit7 Digit8 Digit9 Digit0 Minus Equal",
      [50, 18, 19, 20, 21, 23, 22, 26, 28, 25, 29, 27, 24]],
    ["KeyQ KeyW KeyE KeyR KeyT KeyY KeyU KeyI KeyO KeyP BracketLeft BracketRight Backslash",
      [12, 13, 14, 15, 17, 16, 32, 34, 31, 35, 33, 30, 42]],
    ["KeyA KeyS KeyD KeyF KeyG KeyH KeyJ KeyK KeyL Semicolon Quote", [0, 1, 2, 3, 5, 4, 38, 40, 37, 41, 39]],
    ["KeyZ KeyX KeyC KeyV KeyB KeyN KeyM Comma Period Slash", [6, 7, 8, 9, 11, 45, 46, 43, 47, 44]],
    ["F1 F2 F3 F4 F5 F6 F7 F8 F9 F10 F11 F12", [122, 120, 99, 118, 96, 97, 98, 100, 101, 109, 103, 111]],
    ["Enter Escape Backspace Tab Space CapsLock IntlBackslash", [36, 53, 51, 48, 49, 57, 10]],
    ["Home PageUp Delete End PageDown ArrowRight ArrowLeft ArrowDown ArrowUp", [115, 116, 117, 119, 121, 124, 123, 125, 126]],
  ];
  let count = 1; // and the keypad's Enter
  for (const [names, codes] of rows) {
    assert.deepEqual(names.split(" ").map((name) => keyCodes[name]), codes);
    count += codes.length;
  }
  assert.equal(Object.keys(keyCodes).length, count);
});

test("which keys make text", () => {
  const press = (key, held = {}) => ({ key, getModifierState: (name) => Boolean(held[name]), ...held });
  const rows = [
    ["a", {}, true, true], ["Ş", { shiftKey: true }, true, true], [" ", {}, true, true], ["Enter", {}, false, false],
    ["ArrowUp", {}, false, false], ["c", { ctrlKey: true }, false, false], ["c", { metaKey: true }, false, false],
    ["f", { altKey: true }, false, true], ["@", { altKey: true, ctrlKey: true, AltGraph: true }, true, true],
    ["Dead", {}, true, true], ["😀", {}, true, true], ["Shift", { shiftKey: true }, false, false],
  ];
  for (const [key, held, elsewhere, onMac] of rows) {
    assert.equal(makesText(press(key, held), false), elsewhere, key);
    assert.equal(makesText(press(key, held), true), onMac, `${key} on a Mac`);
  }
  assert.equal(modifiersOf({ shiftKey: true, ctrlKey: true, altKey: true, metaKey: true }), 15);
  assert.equal(modifiersOf({ ctrlKey: true }, { swapped: true }), 8);
  assert.equal(modifiersOf({ metaKey: true }, { swapped: true }), 2);
});

test("what an on-screen keyboard changed", () => {
  const rows = [
    ["", "a", 0, "a"], ["ab", "a", 1, ""], ["teh", "the ", 2, "he "], ["a😀", "a", 1, ""], ["👨‍👩‍👧", "", 1, ""], ["a", "a", 0, ""],
    ["ni hao", "你好", 6, "你好"],
  ];
  for (const [before, after, removed, added] of rows) {
    assert.deepEqual(difference(before, after), [removed, added], `${before} → ${after}`);
  }
});

test("a long text goes in pieces", () => {
  assert.deepEqual(piecesOf("abcde", 2), ["ab", "cd", "e"]);
  assert.deepEqual(piecesOf("a😀😀b", 2), ["a", "😀", "😀", "b"]);
  assert.deepEqual(piecesOf(""), []);
});

// Touches as "down 1 10 10", "wait 100"; what came of them as "button left true 1".
function gesture(script) {
  const clock = new VirtualTime();
  const done = [];
  const tell = (name) => (...values) => done.push([name, ...values.map((v) => (typeof v === "number" ? Math.round(v * 100) / 100 : v))].join(" "));
  const gestures = new Gestures({ move: tell("move"), button: tell("button"), scroll: tell("scroll"), pinch: tell("pinch") },
    { clock, now: clock.now });
  for (const step of script.split(", ")) {
    const [what, ...values] = step.split(" ");
    if (what === "wait") clock.pass(Number(values[0]));
    else gestures[what](...values.map(Number));
  }
  return done;
}

test("fingers", () => {
  const click = (name, clicks = 1) => [`button ${name} true ${clicks}`, `button ${name} false ${clicks}`];
  const rows = [
    ["a tap", "down 1 10 10, wait 50, up 1", click("left")],
    ["two taps", "down 1 10 10, up 1, wait 100, down 1 12 10, up 1", [...click("left"), ...click("left", 2)]],
    ["two taps apart", "down 1 10 10, up 1, wait 400, down 1 12 10, up 1", [...click("left"), ...click("left")]],
    ["a way", "down 1 10 10, moved 1 15 10, moved 1 30 10, moved 1 31 12, up 1", ["move 15 0", "move 1 2"]],
    ["a long press", "down 1 10 10, wait 500, moved 1 90 90, up 1", click("right")],
    ["a tap and a drag", "down 1 10 10, up 1, wait 50, down 1 10 10, moved 1 40 10, up 1",
      [...click("left"), "button left true 1", "move 30 0", "button left false 1"]],
    ["a tap of two", "down 1 10 10, down 2 90 10, wait 50, up 1, up 2", click("right")],
    ["two that rest", "down 1 10 10, down 2 90 10, wait 300, up 1, up 2", []],
    ["two down", "down 1 10 10, down 2 90 10, moved 1 10 30, moved 2 90 30, wait 100, up 1, up 2",
      ["scroll 0 0 began", "scroll 0 10 changed", "scroll 0 10 changed", "scroll 0 0 ended"]],
    ["two apart", "down 1 100 10, down 2 200 10, moved 2 300 10, moved 2 400 10, up 1, up 2",
      ["pinch 200 10 1 50 0", "pinch 250 10 1.5 50 0"]],
    ["taken away in a drag", "down 1 10 10, up 1, wait 50, down 1 10 10, moved 1 40 10, cancel",
      [...click("left"), "button left true 1", "move 30 0", "button left false 1"]],
    ["a finger that nobody knows", "moved 3 1 1, up 3", []],
  ];
  for (const [name, script, expected] of rows) assert.deepEqual(gesture(script), expected, name);
});

test("a scroll runs out, and stops under a finger", () => {
  const swipe = "down 1 10 10, down 2 90 10, wait 10, moved 1 10 50, moved 2 90 50, wait 10, moved 1 10 90, moved 2 90 90, up 1, up 2";
  const all = gesture(`${swipe}, wait 10000`);
  const momentum = all.filter((line) => line.endsWith(" momentum")).map((line) => Number(line.split(" ")[2]));
  assert.ok(momentum.length > 10);
  assert.ok(momentum.every((way, i) => way > 0 && (i === 0 || way <= momentum[i - 1])));
  assert.equal(all.at(-1), "scroll 0 0 momentumEnded");
  const stopped = gesture(`${swipe}, wait 50, down 1 10 10, wait 10000`);
  assert.equal(stopped.filter((line) => line.endsWith(" momentum")).length, 3);
  assert.ok(stopped.includes("scroll 0 0 momentumEnded"));
});

test("where the picture lies", () => {
  const view = new View({ width: 200, height: 200 }, { width: 400, height: 200 });
  assert.deepEqual(view.rectangle, { left: 0, top: 50, width: 200, height: 100 });
  assert.deepEqual(view.toPicture(100, 100), { x: 0.5, y: 0.5 });
  assert.deepEqual(view.toPicture(-5, 190), { x: 0, y: 1 });
  view.zoomAt(50, 100, 4);
  assert.deepEqual(view.toPicture(50, 100), { x: 0.25, y: 0.5 }); // stays under the fingers
  view.pan(1e6, 1e6);
  assert.deepEqual(view.toPicture(0, 0), { x: 0, y: 0 }); // its corner, nothing beyond
  view.show({ x: 1, y: 1 });
  assert.deepEqual(view.toPicture(200, 200), { x: 1, y: 1 });
  view.zoomAt(0, 0, 0.001);
  assert.deepEqual(view.rectangle, { left: 0, top: 50, width: 200, height: 100 });
});

test("packets of sound get into their order", () => {
  const rows = [
    ["in order", [1, 2, 3], "1 2 3"],
    ["exchanged", [1, 3, 2, 4], "1 2 3 4"],
    ["one lost", [1, 3, 4, 5, 6], "1 3+1 4 5 6"],
    ["one too late", [1, 3, 4, 5, 2, 6], "1 3+1 4 5 6"],
    ["twice", [1, 2, 2, 3], "1 2 3"],
    ["around zero", [4294967294, 0, 4294967295, 1], "4294967294 4294967295 0 1"],
    ["another sender", [5000, 5001, 1, 2], "5000 5001 1 2"],
  ];
  for (const [name, sequences, expected] of rows) {
    const out = [];
    const order = new PacketOrder(({ sequence }, gap) => out.push(gap ? `${sequence}+${gap}` : `${sequence}`));
    for (const sequence of sequences) order.add({ sequence });
    assert.equal(out.join(" "), expected, name);
  }
});

test("both languages say the same", () => {
  const holes = (texts) => Object.entries(texts).map(([name, text]) => `${name} ${(text.match(/\{\d\}/g) ?? []).sort()}`);
  assert.deepEqual(holes(languages.tr), holes(languages.en));
});
