// This browser as a phone: its identity, the computers it knows and the settings, kept between visits.
import { agree, deviceID, ImportError, makeIdentity } from "./identity.js";
import * as store from "./store.js";

// The agents' own two, unless somebody wants others or none.
const publicStun = ["stun:stun.cloudflare.com:3478", "stun:stun.l.google.com:19302"];

function ownName() {
  const { userAgent = "", userAgentData } = globalThis.navigator ?? {};
  const brand = userAgentData?.brands?.find(({ brand: one }) => !/Not.?A|Chromium/i.test(one))?.brand ??
    /Firefox|Edg|Chrome|Safari/.exec(userAgent)?.[0] ?? "Browser";
  const system = userAgentData?.platform || /iPhone|iPad|Android|Mac OS X|Windows|Linux/.exec(userAgent)?.[0];
  return system ? `${brand} (${system})` : brand;
}

export class Phone {
  identity = null; // { privateKey, publicKey, id }
  agents = []; // [{ id, publicKey, name }]
  owner = null; // see owner.js
  settings = { relay: null, stun: publicStun, deviceName: ownName(), places: false, swapped: false };

  onChange = () => {};

  // Rejects when the browser's storage cannot be used.
  async load() {
    const [identity, agents, settings, owner] =
      await Promise.all(["identity", "agents", "settings", "owner"].map(store.load));
    this.identity = identity ?? null;
    this.agents = agents ?? [];
    Object.assign(this.settings, settings);
    this.owner = owner ?? null;
    this.onChange();
  }

  get hello() {
    const { width = 1280, height = 720 } = globalThis.screen ?? {};
    const pixels = Math.max(width, height) * (globalThis.devicePixelRatio ?? 1);
    return {
      deviceID: this.identity.id,
      deviceName: this.settings.deviceName,
      maxPixels: Math.min(3840, Math.max(960, Math.round(pixels))),
    };
  }

  account = { load: () => store.load("account"), store: (session) => store.keep("account", session) };

  // Would this replace another identity?
  async isOther({ raw }) {
    return Boolean(raw && this.identity && (await makeIdentity(raw)).id !== this.identity.id);
  }

  // What readImport found. Computers are added to those of the same identity.
  async import({ raw, agents = [], relay, stun, deviceName }) {
    const identity = raw ? await makeIdentity(raw) : this.identity;
    if (!identity) throw new ImportError("noIdentity");
    raw?.fill(0);
    for (const { publicKey, name } of agents) {
      // There are keys with which nothing is secret.
      await agree(identity.privateKey, publicKey).catch(() => { throw new ImportError("badAgent", name); });
    }
    const known = identity.id === this.identity?.id ? this.agents : [];
    const merged = new Map([...known, ...agents].map((agent) => [agent.id, agent]));
    merged.delete(await deviceID(identity.publicKey)); // not itself
    this.identity = identity;
    this.agents = [...merged.values()];
    if (relay) this.settings.relay = relay;
    if (stun) this.settings.stun = stun;
    if (deviceName) this.settings.deviceName = deviceName;
    await store.keep("identity", identity);
    await store.keep("agents", this.agents);
    await store.keep("settings", this.settings);
    this.onChange();
  }

  async change(settings, owner = this.owner) {
    if (settings.relay?.url !== this.settings.relay?.url) await store.drop("account");
    Object.assign(this.settings, settings);
    this.owner = owner;
    await store.keep("settings", this.settings);
    await store.keep("owner", owner);
    this.onChange();
  }

  // A computer may have been given another name.
  async rename(id, name) {
    const agent = this.agents.find((one) => one.id === id);
    if (!agent || agent.name === name) return;
    agent.name = name;
    await store.keep("agents", this.agents);
  }

  async forget() {
    await store.dropAll();
    this.identity = this.owner = null;
    this.agents = [];
    this.settings = { ...this.settings, relay: null, stun: publicStun, deviceName: ownName() };
    this.onChange();
  }
}
