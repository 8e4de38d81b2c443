// The view of one computer: its picture, and everything a person does with it.
import { Call, Phase } from "./call.js";
import { ask, byID, element, icon, name, toast } from "./dom.js";
import { Keyboard } from "./keyboard.js";
import { keyCodes } from "./keycodes.js";
import { isOwner } from "./owner.js";
import { ClipboardPanel, FilesPanel } from "./panels.js";
import { Screen } from "./screen.js";
import { Sound } from "./sound.js";
import { isText, text } from "./texts.js";
import { Modifiers } from "./wire.js";

// Keys that on-screen keyboards lack.
const softKeys = [
  ["esc", "keyEscape", "Escape"], ["tab", "keyTab", "Tab"],
  ["⌃", "modControl", Modifiers.control], ["⌥", "modOption", Modifiers.option],
  ["⌘", "modCommand", Modifiers.command], ["⇧", "modShift", Modifiers.shift],
  ["←", "keyLeft", "ArrowLeft"], ["↑", "keyUp", "ArrowUp"], ["↓", "keyDown", "ArrowDown"], ["→", "keyRight", "ArrowRight"],
  ["⌦", "keyDelete", "Delete"],
];

const panelNames = ["files", "clipboard"];

export class Desk {
  onLeft = () => {}; // the person went back
  onNamed = () => {}; // (id, name): what the computer calls itself

  #call = null;
  #agent = null;
  #owner = null; // how to ask whether it is the owner, null: the page asks itself
  #soundWanted = true;
  #wakeLock = null;
  #sticky = new Map(); // modifier -> its key

  constructor() {
    const send = (control, members) => this.#call?.send(control, members);
    this.screen = new Screen(byID("stage"), byID("screen"), send);
    this.keyboard = new Keyboard(byID("typing"), send);
    this.sound = new Sound();
    this.filesPanel = new FilesPanel(send);
    this.clipboardPanel = new ClipboardPanel(send);
    this.#listen();
  }

  get phase() {
    return this.#call?.phase ?? null;
  }

  // To be called while a click is handled, for the sake of the sound.
  open(agent, line, { hello, iceServers, owner, places, swapped }) {
    this.#agent = agent;
    this.#owner = owner;
    Object.assign(this.keyboard, { places, swapped });
    this.sound.prepare().catch(() => {});
    byID("computer-name").textContent = this.#name;
    byID("screen").setAttribute("aria-label", text("screen", this.#name));
    const call = (this.#call = new Call(line, hello, iceServers));
    call.onPhase = (phase, why) => this.#phaseChanged(phase, why);
    call.onSession = (session) => this.#use(session);
    call.start();
  }

  // At once: a page that is being closed calls it.
  leave() {
    if (!this.#call) return;
    this.keyboard.release();
    this.screen.release();
    const call = this.#call;
    this.#call = null;
    call.onPhase = () => {};
    call.leave();
    this.#reset();
    this.#openPanel(null);
    this.filesPanel.forget();
    this.clipboardPanel.forget();
    if (document.fullscreenElement) document.exitFullscreen();
    this.onLeft();
  }

  // The network is back, or the page is looked at again.
  hurry() {
    this.#call?.hurry();
    if (this.phase === Phase.live) this.#stayAwake();
  }

  get #name() {
    return this.#agent?.name || this.#agent?.id || "";
  }

  #listen() {
    const onClick = (id, step) => byID(id).addEventListener("click", step);
    onClick("leave", () => this.leave());
    onClick("veil-back", () => this.leave());
    onClick("veil-do", () => (this.phase === Phase.locked ? this.#unlock() : this.#call?.start()));
    onClick("tool-keyboard", () => this.keyboard.raise(!this.keyboard.raised));
    onClick("tool-sound", () => this.#switchSound(!this.#soundWanted));
    onClick("tool-full", () => this.#toggleFull());
    for (const panel of panelNames) onClick(`tool-${panel}`, () => this.#openPanel(byID(panel).hidden ? panel : null));
    for (const close of document.querySelectorAll(".panel-close")) close.addEventListener("click", () => this.#openPanel(null));
    byID("displays").addEventListener("change", (event) => {
      this.#call?.send("selectDisplay", { _0: Number(event.target.value) });
      this.keyboard.focus();
    });
    byID("stage").addEventListener("pointerdown", () => this.keyboard.focus());

    this.keyboard.onRaised = (raised) => {
      byID("tool-keyboard").setAttribute("aria-pressed", raised);
      byID("keys").hidden = !raised;
    };
    this.keyboard.onTools = () => byID("tool-keyboard").focus();
    this.keyboard.onSticky = (modifiers) => {
      for (const [modifier, key] of this.#sticky) key.setAttribute("aria-pressed", (modifiers & modifier) !== 0);
    };
    this.clipboardPanel.onNews = () => byID("tool-clipboard").classList.toggle("news", byID("clipboard").hidden);
    this.#makeSoftKeys();
    if (!Sound.possible) {
      byID("tool-sound").disabled = true;
      name(byID("tool-sound"), text("soundNever"));
    }
    byID("tool-full").hidden = !document.fullscreenEnabled;
    // What the on-screen keyboard leaves.
    for (const type of ["resize", "scroll"]) {
      globalThis.visualViewport?.addEventListener(type, () => {
        byID("desk").style.setProperty("--height", `${Math.round(visualViewport.height)}px`);
        byID("desk").style.setProperty("--top", `${Math.round(visualViewport.offsetTop)}px`);
      });
    }
  }

  #makeSoftKeys() {
    for (const [label, hint, what] of softKeys) {
      const isModifier = typeof what === "number";
      const key = element("button", {
        type: "button",
        "aria-pressed": isModifier ? "false" : null,
        // The text field keeps the focus, or the on-screen keyboard would go away.
        onpointerdown: (event) => event.preventDefault(),
        onmousedown: (event) => event.preventDefault(),
        onclick: () => (isModifier ? this.keyboard.toggleSticky(what) : this.keyboard.press(keyCodes[what])),
      }, label);
      name(key, text(hint));
      if (isModifier) this.#sticky.set(what, key);
      byID("keys").append(key);
    }
  }

  #use(session) {
    session.onStream = (stream) => this.screen.show(stream);
    session.onAudio = (packet) => this.sound.add(packet);
    session.onFile = (frame) => this.filesPanel.files.frame(frame);
    session.onControl = (control, members) => this.#controlled(control, members);
    session.onStatistics = ({ roundTrip, relayed }) => {
      const health = byID("health");
      health.textContent = roundTrip === undefined ? "" : `${Math.round(roundTrip)} ms`;
      health.title = relayed === undefined ? "" : text(relayed ? "relayed" : "direct");
    };
  }

  #controlled(control, members) {
    switch (control) {
      case "welcome": return this.#welcome(members._0);
      case "rejected": return toast(text("displayRefused"), "error");
      case "directory": return this.filesPanel.files.directory(members._0);
      case "clipboard": return this.clipboardPanel.clipboard.received(members._0);
      case "frontApp": return (byID("front-app").textContent = members.name || members.bundleID);
      case "textFocus": return this.keyboard.textFocus(members._0);
    }
  }

  #welcome(welcome) {
    this.#agent.name = welcome.macName || this.#agent.name;
    byID("computer-name").textContent = this.#name;
    this.onNamed(this.#agent.id, this.#name);
    this.screen.welcome(welcome);
    const displays = welcome.displays ?? [];
    byID("displays").hidden = displays.length < 2;
    byID("displays").replaceChildren(...displays.map(({ id, name: label }) =>
      element("option", { value: id, selected: id === welcome.displayID }, label)));
  }

  #phaseChanged(phase, why) {
    const who = this.#name;
    const isLive = phase === Phase.live;
    byID("desk").dataset.phase = phase;
    const isSession = isLive || phase === Phase.interrupted;
    for (const tool of ["keyboard", "files", "clipboard"]) byID(`tool-${tool}`).disabled = !isSession;
    if (!isSession && phase !== Phase.waiting) this.#openPanel(null);
    byID("veil").hidden = isLive;
    byID("veil").classList.toggle("still", [Phase.locked, Phase.over].includes(phase));
    byID("veil-title").textContent = text(phase, who);
    byID("veil-text").textContent = why ? text(`why_${why}`, who) : isText(`${phase}Text`) ? text(`${phase}Text`) : "";
    const action = { [Phase.locked]: "unlock", [Phase.waiting]: "retry", [Phase.over]: "retry" }[phase];
    byID("veil-do").hidden = !action;
    if (action) byID("veil-do").textContent = text(action);

    if (isLive) {
      if (!this.#soundWanted) this.#call.send("audio", { _0: false });
      this.keyboard.focus();
      this.#stayAwake();
      if (!byID("files").hidden) this.filesPanel.opened();
    } else if (phase === Phase.interrupted) {
      this.keyboard.release();
    } else {
      this.#reset();
    }
  }

  // Between two sessions nothing is held, playing or under way.
  #reset() {
    this.screen.clear();
    this.sound.reset();
    this.keyboard.release();
    this.keyboard.raise(false);
    this.filesPanel.files.ended();
    byID("health").textContent = byID("front-app").textContent = "";
    byID("displays").hidden = true;
    this.#wakeLock?.release().catch(() => {});
    this.#wakeLock = null;
  }

  async #unlock() {
    const allowed = this.#owner ? await isOwner(this.#owner) : await ask(text("unlockSure", this.#name), text("unlock"));
    if (allowed) this.#call?.unlock();
    else if (this.#owner) toast(text("notOwner"), "error");
  }

  #switchSound(wanted) {
    this.#soundWanted = this.sound.wanted = wanted;
    this.sound.prepare().catch(() => {});
    this.#call?.send("audio", { _0: wanted });
    const button = byID("tool-sound");
    button.setAttribute("aria-pressed", wanted);
    button.replaceChildren(icon(wanted ? "sound" : "mute"));
    name(button, text(wanted ? "soundOn" : "soundOff"));
    this.keyboard.focus();
  }

  #openPanel(wanted) {
    for (const panel of panelNames) {
      byID(panel).hidden = panel !== wanted;
      byID(`tool-${panel}`).setAttribute("aria-expanded", panel === wanted);
    }
    if (wanted === "files") this.filesPanel.opened();
    if (wanted === "clipboard") byID("tool-clipboard").classList.remove("news");
    if (wanted === null && this.phase === Phase.live) this.keyboard.focus();
  }

  async #toggleFull() {
    if (document.fullscreenElement) return document.exitFullscreen();
    await byID("desk").requestFullscreen();
    // Otherwise the browser keeps Escape, and Control with W, T and N.
    await navigator.keyboard?.lock?.().catch(() => {});
    this.keyboard.focus();
  }

  async #stayAwake() {
    if (this.#wakeLock && !this.#wakeLock.released) return;
    this.#wakeLock = await navigator.wakeLock?.request("screen").catch(() => null) ?? null;
  }
}
