// The two dialogs: importing a paired phone, and the settings.
import { ask, byID, toast } from "./dom.js";
import { ImportError, readImport } from "./identity.js";
import { canAsk, enrol } from "./owner.js";
import { websocketOf } from "./realtime.js";
import { text } from "./texts.js";

function checkRelay(url, key) {
  try {
    websocketOf(url, key);
  } catch {
    throw new ImportError("badRelay");
  }
  return { url, key };
}

const valueOf = (id) => byID(id).value.trim();

export class ImportForm {
  #chosen = []; // bytes

  // `phone` takes what was read (see Phone.import); `relay()` is the present one.
  constructor(phone) {
    this.phone = phone;
    byID("import-files").addEventListener("change", ({ target }) => this.#choose(target.files));
    const drop = byID("import-drop");
    for (const [type, over] of [["dragover", true], ["dragleave", false], ["drop", false]]) {
      drop.addEventListener(type, (event) => {
        event.preventDefault();
        drop.classList.toggle("over", over);
        if (type === "drop") this.#choose(event.dataTransfer.files);
      });
    }
    byID("import-do").addEventListener("click", () => this.#import());
    byID("import").addEventListener("close", () => this.#clear());
  }

  open(suggested = {}) {
    this.#clear();
    const relay = this.phone.settings.relay;
    byID("import-relay").value = relay?.url ?? suggested.url ?? "";
    byID("import-key").value = relay?.key ?? suggested.key ?? "";
    byID("import").showModal();
  }

  async #choose(files) {
    this.#chosen = await Promise.all([...files].map(async (file) => new Uint8Array(await file.arrayBuffer())));
    byID("import-chosen").textContent = [...files].map((file) => file.name).join(", ");
  }

  async #import() {
    byID("import-error").textContent = "";
    try {
      const found = await readImport([...this.#chosen, byID("import-paste").value]);
      if (valueOf("import-relay")) found.relay = { url: valueOf("import-relay"), key: valueOf("import-key") || "local" };
      if (found.relay) checkRelay(found.relay.url, found.relay.key);
      if (await this.phone.isOther(found) && !(await ask(text("importReplace"), text("importDo")))) return;
      await this.phone.import(found);
      byID("import").close();
      toast(text("imported", String(this.phone.agents.length)));
    } catch (error) {
      byID("import-error").textContent =
        error instanceof ImportError ? text(error.code, error.detail) : text("storage");
    }
  }

  // The key stays in no field.
  #clear() {
    for (const bytes of this.#chosen) bytes.fill(0);
    this.#chosen = [];
    byID("import-paste").value = byID("import-files").value = byID("import-error").textContent = "";
    byID("import-chosen").textContent = text("importNone");
  }
}

export class SettingsForm {
  constructor(phone) {
    this.phone = phone;
    byID("settings-save").addEventListener("click", () => this.#save());
    byID("forget").addEventListener("click", async () => {
      if (!(await ask(text("forgetSure"), text("forget")))) return;
      await this.phone.forget();
      byID("settings").close();
    });
  }

  async open() {
    const { relay, stun, deviceName, places, swapped } = this.phone.settings;
    byID("set-relay").value = relay?.url ?? "";
    byID("set-key").value = relay?.key ?? "";
    byID("set-stun").value = stun.join(", ");
    byID("set-name").value = deviceName;
    byID("set-places").checked = places;
    byID("set-swapped").checked = swapped;
    byID("set-owner").checked = this.phone.owner !== null;
    byID("settings-error").textContent = "";
    const possible = this.phone.owner !== null || (await canAsk());
    byID("owner-row").hidden = byID("owner-hint").hidden = !possible;
    byID("settings").showModal();
  }

  async #save() {
    try {
      const relay = valueOf("set-relay") ? checkRelay(valueOf("set-relay"), valueOf("set-key") || "local") : null;
      const deviceName = valueOf("set-name") || this.phone.settings.deviceName;
      const owner = await this.#owner(deviceName);
      await this.phone.change({
        relay,
        stun: valueOf("set-stun").split(",").map((url) => url.trim()).filter((url) => /^(stun|turn)s?:/.test(url)),
        deviceName,
        places: byID("set-places").checked,
        swapped: byID("set-swapped").checked,
      }, owner);
      byID("settings").close();
    } catch (error) {
      byID("settings-error").textContent =
        error instanceof ImportError ? text(error.code, error.detail) : text("storage");
    }
  }

  async #owner(deviceName) {
    if (!byID("set-owner").checked) return null;
    if (this.phone.owner) return this.phone.owner;
    const enrolled = await enrol(deviceName);
    if (!enrolled) throw new ImportError("ownerDeclined");
    return enrolled;
  }
}
