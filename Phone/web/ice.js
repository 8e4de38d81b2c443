// The STUN and TURN servers of a session: those of the settings, and the project's with an anonymous account
// of its own. Whatever fails leaves the ones of the settings.

const refreshMargin = 60; // seconds before its end a token is renewed
const credentialMargin = 600; // seconds before their end credentials are no longer used

export class IceServers {
  #relay;
  #stun;
  #account; // { load(), store(session) }: where the anonymous account is kept
  #fetch;
  #now;
  #cached = null;
  #inFlight = null;

  constructor(relay, stun, account, { fetch = globalThis.fetch.bind(globalThis), now = () => Date.now() / 1000 } = {}) {
    this.#relay = relay;
    this.#stun = stun;
    this.#account = account;
    this.#fetch = fetch;
    this.#now = now;
  }

  // Never rejects.
  async servers() {
    if (this.#cached?.until > this.#now()) return this.#cached.servers;
    this.#inFlight ??= this.#load().finally(() => (this.#inFlight = null));
    return this.#inFlight;
  }

  async #load() {
    const fallback = this.#stun.map((url) => ({ urls: [url] }));
    // The address of a websocket alone means signaling and nothing more.
    if (!/^https?:/.test(this.#relay.url)) return fallback;
    try {
      const { iceServers, ttl } = await this.#credentials();
      const servers = [...fallback, ...iceServers];
      const use = Number.isFinite(ttl) ? Math.max(ttl - credentialMargin, 60) : 3000;
      this.#cached = { servers, until: this.#now() + use };
      return servers;
    } catch {
      return fallback;
    }
  }

  async #credentials() {
    for (let attempt = 0; ; ++attempt) {
      const token = await this.#accessToken();
      const response = await this.#post("/functions/v1/tarno-turn", undefined, 5_000, {
        Authorization: `Bearer ${token}`,
      });
      if (response.status === 401 && attempt === 0) {
        await this.#account.store(null);
        continue;
      }
      if (response.status !== 200) throw new Error(`status ${response.status}`);
      const body = await response.json();
      if (!Array.isArray(body.iceServers)) throw new Error("no servers");
      return body;
    }
  }

  async #accessToken() {
    const session = await this.#account.load();
    if (session?.expiresAt - refreshMargin > this.#now()) return session.accessToken;
    const grants = [["/auth/v1/signup", {}]];
    if (session) grants.unshift(["/auth/v1/token?grant_type=refresh_token", { refresh_token: session.refreshToken }]);
    for (const [path, body] of grants) {
      const response = await this.#post(path, body, 8_000);
      if (response.status !== 200) continue;
      const reply = await response.json();
      if (typeof reply.access_token !== "string" || typeof reply.refresh_token !== "string") continue;
      await this.#account.store({
        accessToken: reply.access_token,
        refreshToken: reply.refresh_token,
        expiresAt: reply.expires_at ?? this.#now() + (reply.expires_in ?? 3600),
      });
      return reply.access_token;
    }
    throw new Error("no account");
  }

  #post(path, body, timeout, headers = {}) {
    const init = {
      method: "POST",
      headers: { apikey: this.#relay.key, ...headers },
      credentials: "omit",
      referrerPolicy: "no-referrer",
      signal: AbortSignal.timeout(timeout),
    };
    if (body) {
      init.headers["Content-Type"] = "application/json";
      init.body = JSON.stringify(body);
    }
    return this.#fetch(this.#relay.url.replace(/\/+$/, "") + path, init);
  }
}
