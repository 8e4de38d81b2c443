// The page: chooses what is shown and connects the parts. Importing this module starts it; other scripts
// reach the running page by its exports.
import { Desk } from "./desk.js";
import { byID, element, icon, toast, translate } from "./dom.js";
import { ImportForm, SettingsForm } from "./forms.js";
import { IceServers } from "./ice.js";
import { readImport } from "./identity.js";
import { AgentLine, Presence } from "./line.js";
import { Phone } from "./phone.js";
import { language, text } from "./texts.js";

const lookAgain = 60_000;

// In somebody else's page, clicks might be lured onto this one.
if (top !== self) throw new Error("not to be embedded");

document.documentElement.lang = language;
translate(document);

export const phone = new Phone();
export const desk = new Desk();
const importForm = new ImportForm(phone);
const settingsForm = new SettingsForm(phone);
const lines = new Map(); // agent ID -> AgentLine
let iceServers = null;
let closing = false;

// The fragment may bring a relay for somebody who has none yet: #relay=URL&key=KEY, and the computer to
// connect to: #connect=ID.
const wishes = new URLSearchParams(location.hash.slice(1));
const suggestedRelay = wishes.has("relay") ? { url: wishes.get("relay"), key: wishes.get("key") ?? "local" } : undefined;

function show(view) {
  document.body.dataset.view = view;
  byID("home").hidden = view !== "home";
  byID("desk").hidden = view !== "desk";
}

function showHome() {
  show("home");
  byID("welcome").hidden = phone.identity !== null;
  byID("known").hidden = phone.identity === null;
  byID("no-computers").hidden = phone.agents.length > 0;
  byID("computers").replaceChildren(...phone.agents.map(cardOf));
  if (!closing) for (const line of lines.values()) line.start();
}

function cardOf(agent) {
  const presence = element("span", {});
  const show = (state) => {
    presence.className = `presence ${state}`;
    presence.textContent = text(state);
  };
  const line = lines.get(agent.id);
  show(line?.presence ?? Presence.unknown);
  if (line) line.onPresence = show;
  return element("li", {}, element("button", {
    class: "computer",
    type: "button",
    "aria-label": text("connect", agent.name || agent.id),
    disabled: !line,
    onclick: () => connect(agent.id),
  }, icon("computer"), element("span", {}, element("strong", {}, agent.name || agent.id), element("small", {}, agent.id)), presence));
}

// New lines for what the phone knows now.
function renew() {
  desk.leave();
  for (const line of lines.values()) line.stop();
  lines.clear();
  const { relay, stun } = phone.settings;
  iceServers = relay && new IceServers(relay, stun, phone.account);
  if (phone.identity && relay) {
    for (const agent of phone.agents) lines.set(agent.id, new AgentLine(phone.identity, agent, relay));
  }
  showHome();
}

// Opens a computer that the phone knows, and its line alone.
export function connect(id) {
  const agent = phone.agents.find((one) => one.id === id);
  const line = lines.get(id);
  if (!agent || !line) return;
  for (const [other, one] of lines) if (other !== id) one.stop();
  line.start();
  show("desk");
  const { places, swapped } = phone.settings;
  desk.open({ ...agent }, line, { hello: phone.hello, iceServers, owner: phone.owner, places, swapped });
}

// Takes an identity, as the import dialog does: JSON texts or files' bytes. Throws ImportError.
export async function importPhone(...pieces) {
  await phone.import(await readImport(pieces));
}

desk.onLeft = showHome;
desk.onNamed = (id, name) => phone.rename(id, name);
phone.onChange = renew;
byID("welcome-import").addEventListener("click", () => importForm.open(suggestedRelay));
byID("open-import").addEventListener("click", () => importForm.open(suggestedRelay));
byID("open-settings").addEventListener("click", () => settingsForm.open());

addEventListener("online", () => {
  for (const line of lines.values()) line.hurry();
  desk.hurry();
});
document.addEventListener("visibilitychange", () => {
  if (document.visibilityState !== "visible") return;
  for (const line of lines.values()) line.hurry();
  desk.hurry();
});
// Without a goodbye the computer would wait for this page for a while.
addEventListener("pagehide", () => {
  closing = true;
  desk.leave();
  for (const line of lines.values()) line.stop();
});
addEventListener("pageshow", ({ persisted }) => {
  closing = false;
  if (persisted) showHome();
});
setInterval(() => {
  if (document.visibilityState !== "visible" || document.body.dataset.view !== "home") return;
  for (const line of lines.values()) line.ask();
}, lookAgain);

try {
  await phone.load();
} catch {
  showHome();
  toast(text("storage"), "error");
}
if (wishes.has("connect")) connect(wishes.get("connect"));
