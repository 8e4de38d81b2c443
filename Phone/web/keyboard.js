// Typing on the computer: keys by their place, text as text.
//
// A character that a key makes by itself or with Shift is sent as text, so that the computer types what is
// printed on *this* keyboard whatever its own layout is; everything else (Return, arrows, anything with
// Control, Alt or Command) is sent as a key. On-screen keyboards and input methods make text without keys:
// their edits of a hidden text field are followed.
import { keyCodes } from "./keycodes.js";
import { Modifiers } from "./wire.js";

const returnKey = 36, deleteKey = 51;

// What is in the text field when nothing was typed: on-screen keyboards tell of a deletion only when there
// is something to delete.
const filler = "\u200b".repeat(8);

const graphemes = typeof Intl.Segmenter === "function" ? new Intl.Segmenter(undefined, { granularity: "grapheme" }) : null;
const lengthOf = (text) => (graphemes ? [...graphemes.segment(text)].length : [...text].length);

// What has to be deleted at the end of `before`, and typed then, to have `after`: [characters, text].
export function difference(before, after) {
  const old = [...before], now = [...after];
  let same = 0;
  while (same < old.length && old[same] === now[same]) ++same;
  return [lengthOf(old.slice(same).join("")), now.slice(same).join("")];
}

export function modifiersOf(event, { swapped = false } = {}) {
  const control = swapped ? event.metaKey : event.ctrlKey;
  const command = swapped ? event.ctrlKey : event.metaKey;
  return (event.shiftKey ? Modifiers.shift : 0) | (control ? Modifiers.control : 0) |
    (event.altKey ? Modifiers.option : 0) | (command ? Modifiers.command : 0);
}

// Does this key press make a character that is to be sent as text? AltGraph and the Option key of a Mac
// make characters; Alt elsewhere makes shortcuts.
export function makesText(event, isMac = /^Mac|^iP/.test(globalThis.navigator?.platform ?? "")) {
  if (event.isComposing || event.key === "Process" || event.key === "Unidentified" || event.key === "Dead") return true;
  if ([...event.key].length !== 1) return false;
  if (event.getModifierState?.("AltGraph")) return true;
  if (event.ctrlKey || event.metaKey) return false;
  return !event.altKey || isMac;
}

export class Keyboard {
  onRaised = () => {}; // (raised): the on-screen keyboard is wanted or not
  onTools = () => {}; // Control+Alt+Home: somebody without a mouse wants this page's own buttons
  onSticky = () => {}; // (modifiers): that the next key or character is sent with
  swapped = false; // this keyboard's Control is the computer's Command, and the other way round
  places = false; // all keys by their place, as games want it

  #field;
  #send;
  #value = filler;
  #held = new Map(); // KeyboardEvent.code -> { code, modifiers }
  #paste = null; // a paste key that waits for this browser's clipboard
  #sticky = 0;
  #raised = false;
  #byFocus = false;
  #composing = false;

  // `field`: a textarea that is to have the focus during a session.
  constructor(field, send) {
    this.#field = field;
    this.#send = send;
    field.addEventListener("keydown", (event) => this.#keyDown(event));
    field.addEventListener("keyup", (event) => this.#keyUp(event));
    field.addEventListener("input", (event) => this.#edited(event));
    field.addEventListener("compositionstart", () => (this.#composing = true));
    field.addEventListener("compositionend", () => {
      this.#composing = false;
      this.#follow();
    });
    field.addEventListener("paste", (event) => this.#pasted(event));
    field.addEventListener("focus", () => this.#empty());
    field.addEventListener("blur", () => this.release());
    this.#empty();
  }

  get raised() {
    return this.#raised;
  }

  // Shows or hides the on-screen keyboard, by hand.
  raise(wanted) {
    this.#byFocus = false;
    this.#raise(wanted);
  }

  // A text field of the computer has the focus, or has not any more.
  textFocus(focused) {
    if (focused && !this.#raised) {
      this.#byFocus = true;
      this.#raise(true);
    } else if (!focused && this.#raised && this.#byFocus) {
      this.#raise(false);
    }
  }

  // Keys without an on-screen keyboard would never see the field.
  focus() {
    this.#field.focus({ preventScroll: true });
  }

  // A modifier for the next key alone.
  toggleSticky(modifier) {
    this.#sticky ^= modifier;
    this.onSticky(this.#sticky);
  }

  // Presses and releases a key.
  press(code, modifiers = 0) {
    modifiers |= this.#takeSticky();
    this.#send("key", { code, down: true, modifiers });
    this.#send("key", { code, down: false, modifiers });
  }

  // Lets go of every key.
  release() {
    for (const key of this.#held.values()) this.#send("key", { ...key, down: false });
    this.#held.clear();
    this.#paste = null;
  }

  #raise(wanted) {
    this.#raised = wanted;
    // "none" keeps the on-screen keyboard away while a real one may be used.
    this.#field.inputMode = wanted ? "text" : "none";
    if (wanted) {
      // One that has the focus already would not bring the keyboard up.
      this.#field.blur();
      this.focus();
      globalThis.navigator?.virtualKeyboard?.show?.();
    } else {
      globalThis.navigator?.virtualKeyboard?.hide?.();
    }
    this.onRaised(wanted);
  }

  #keyDown(event) {
    const code = keyCodes[event.code];
    const modifiers = modifiersOf(event, this);
    // Input methods and on-screen keyboards: their text comes as an edit.
    if (event.isComposing || event.keyCode === 229 || code === undefined) return;
    // What it does to characters is in them already.
    if (event.code === "CapsLock" && !this.places) return;
    if (event.code === "Home" && event.ctrlKey && event.altKey) {
      event.preventDefault();
      return this.onTools();
    }
    if (!this.places && makesText(event)) {
      if (!this.#sticky) return;
      event.preventDefault();
      return this.press(code, modifiers);
    }
    if (event.code === "KeyV" && (event.ctrlKey || event.metaKey) && !event.altKey) {
      // The browser tells what is on its clipboard right after this; the computer is to paste that.
      this.#paste = { code, modifiers };
      return;
    }
    event.preventDefault();
    this.#press(event.code, { code, modifiers: modifiers | this.#takeSticky() });
  }

  #keyUp(event) {
    if (event.code === "KeyV" && this.#paste) {
      this.press(this.#paste.code, this.#paste.modifiers); // nothing to paste here: the computer's own
      this.#paste = null;
    }
    const key = this.#held.get(event.code);
    if (key) {
      event.preventDefault();
      this.#held.delete(event.code);
      this.#send("key", { code: key.code, down: false, modifiers: key.modifiers });
    }
    // A Mac tells of no other key's release while Command is held.
    if (event.key === "Meta") this.release();
  }

  #press(name, key) {
    this.#held.set(name, key);
    this.#send("key", { code: key.code, down: true, modifiers: key.modifiers });
  }

  #pasted(event) {
    event.preventDefault();
    const text = event.clipboardData?.getData("text/plain") ?? "";
    if (this.#paste) {
      if (text) this.#send("clipboard", { _0: text });
      this.press(this.#paste.code, this.#paste.modifiers);
      this.#paste = null;
    } else if (text) {
      this.#type(text);
    }
  }

  #edited(event) {
    // Some keyboards compose every word; what is under way is typed already. Input methods that offer
    // choices are waited for where there is a real keyboard.
    const isTouch = globalThis.matchMedia?.("(pointer: coarse)").matches ?? false;
    if ((this.#composing || event.isComposing) && !isTouch) return;
    this.#follow();
  }

  #follow() {
    const value = this.#field.value;
    const [removed, added] = difference(this.#value, value);
    this.#value = value;
    for (let i = 0; i < removed; ++i) this.press(deleteKey);
    this.#type(added.replaceAll("\u200b", ""));
    if (!this.#composing && (value.length < filler.length || value.length > 200)) this.#empty();
  }

  #type(text) {
    if (text === "") return;
    const code = text.length === 1 && this.#sticky ? keyCodeOf(text) : undefined;
    if (code !== undefined) return this.press(code);
    if (text === "\n") return this.press(returnKey);
    this.#takeSticky();
    for (const piece of piecesOf(text)) this.#send("text", { _0: piece });
  }

  #takeSticky() {
    const sticky = this.#sticky;
    if (sticky) {
      this.#sticky = 0;
      this.onSticky(0);
    }
    return sticky;
  }

  #empty() {
    this.#value = this.#field.value = filler;
    this.#field.setSelectionRange?.(filler.length, filler.length);
  }
}

// A text as pieces that fit a message each; no character is torn apart.
export function piecesOf(text, most = 8192) {
  const pieces = [];
  for (let at = 0; at < text.length;) {
    let end = Math.min(at + most, text.length);
    const last = text.charCodeAt(end - 1);
    if (end < text.length && last >= 0xd800 && last < 0xdc00) --end;
    pieces.push(text.slice(at, end));
    at = end;
  }
  return pieces;
}

// The key of a letter or digit, for a modifier that was tapped before it.
function keyCodeOf(character) {
  const upper = character.toUpperCase();
  return keyCodes[`Key${upper}`] ?? keyCodes[`Digit${upper}`];
}
