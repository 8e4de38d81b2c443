// Small helpers around the document.
import { text } from "./texts.js";

export const byID = (id) => document.getElementById(id);

// element("button", { class: "row", onclick: … }, child, "text", …)
export function element(name, attributes = {}, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key.startsWith("on")) made.addEventListener(key.slice(2), value);
    else if (value === true) made.setAttribute(key, "");
    else if (value !== false && value !== undefined && value !== null) made.setAttribute(key, value);
  }
  made.append(...children.filter((child) => child !== null && child !== undefined));
  return made;
}

const svg = "http://www.w3.org/2000/svg";

// One of the symbols in index.html.
export function icon(name) {
  const made = document.createElementNS(svg, "svg");
  const use = document.createElementNS(svg, "use");
  use.setAttribute("href", `#i-${name}`);
  made.setAttribute("class", "icon");
  made.setAttribute("aria-hidden", "true");
  made.append(use);
  return made;
}

// Fills in what index.html leaves to the dictionary: data-text, and data-name for accessible names.
export function translate(root) {
  for (const node of root.querySelectorAll("[data-text]")) node.textContent = text(node.dataset.text);
  for (const node of root.querySelectorAll("[data-name]")) name(node, text(node.dataset.name));
}

export function name(node, label) {
  node.setAttribute("aria-label", label);
  node.title = label;
}

export function toast(message, kind = "info") {
  const note = element("div", { class: `toast ${kind}` }, message);
  byID("toasts").append(note);
  setTimeout(() => note.remove(), kind === "error" ? 8_000 : 3_500);
}

// Asks in a dialog; resolves to a boolean.
export function ask(question, yes) {
  return new Promise((resolve) => {
    const answer = (given) => () => {
      dialog.close();
      resolve(given);
    };
    const dialog = element("dialog", { class: "small", oncancel: answer(false), onclose: () => dialog.remove() },
      element("p", {}, question),
      element("div", { class: "actions" },
        element("button", { class: "plain", type: "button", onclick: answer(false) }, text("cancel")),
        element("button", { class: "main", type: "button", onclick: answer(true) }, yes)));
    document.body.append(dialog);
    dialog.showModal();
  });
}

const units = ["B", "KB", "MB", "GB", "TB"];

export function sizeText(bytes) {
  let unit = 0;
  while (bytes >= 1000 && unit < units.length - 1) {
    bytes /= 1000;
    ++unit;
  }
  return `${bytes < 10 && unit ? bytes.toFixed(1) : Math.round(bytes)} ${units[unit]}`;
}
