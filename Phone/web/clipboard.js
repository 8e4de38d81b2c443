// Text that was copied on the computer, and text for it.

export const maxText = 256 << 10; // of a data channel's message, with some room for the JSON around it

export class Clipboard {
  text = null; // what was copied on the computer last
  onText = () => {}; // (text, taken): taken when this device's clipboard has it already

  #send;

  constructor(send) {
    this.#send = send;
  }

  async received(text) {
    this.text = text;
    this.onText(text, await this.copyHere());
  }

  // Puts it on this device's clipboard. Browsers refuse that without a click, or in the background.
  async copyHere() {
    try {
      await navigator.clipboard.writeText(this.text ?? "");
      return true;
    } catch {
      return false;
    }
  }

  // false when it is too long.
  give(text) {
    if (new TextEncoder().encode(JSON.stringify(text)).length > maxText - 64) return false;
    this.#send("clipboard", { _0: text });
    return true;
  }

  // This device's text, where the browser lets the page see it.
  async takeHere() {
    try {
      return await navigator.clipboard.readText();
    } catch {
      return null;
    }
  }
}
