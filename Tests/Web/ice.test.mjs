import assert from "node:assert/strict";
import test from "node:test";
import { IceServers } from "../../Phone/web/ice.js";

const stun = ["stun:a:3478"];
const fallback = [{ urls: stun }];
const turn = { urls: ["turn:t"], username: "u", credential: "c" };
const account = (access, refresh = "r") => [200, { access_token: access, refresh_token: refresh, expires_in: 3600 }];

// Answers in turn; `asked` is "path token" of each request.
function begin(answers, { url = "https://relay/", session = null } = {}) {
  const asked = [];
  let kept = session;
  const scene = { time: 1000, asked, kept: () => kept };
  scene.ice = new IceServers({ url, key: "KEY" }, stun, { load: async () => kept, store: async (one) => (kept = one) }, {
    now: () => scene.time,
    fetch: async (address, { headers, method }) => {
      assert.equal(`${method} ${headers.apikey}`, "POST KEY");
      asked.push(`${address.replace("https://relay", "")} ${headers.Authorization ?? ""}`.trim());
      const answer = answers.shift();
      if (!answer) throw new TypeError("no network");
      return { status: answer[0], json: async () => answer[1] };
    },
  });
  return scene;
}

const signUp = "/auth/v1/signup", refresh = "/auth/v1/token?grant_type=refresh_token", ask = "/functions/v1/tarno-turn Bearer";

test("an account, then the project's servers behind one's own", async () => {
  const scene = begin([account("t1"), [200, { iceServers: [turn], ttl: 3600 }]]);
  const both = await Promise.all([scene.ice.servers(), scene.ice.servers()]);
  assert.deepEqual(both, [[...fallback, turn], [...fallback, turn]]);
  assert.deepEqual(scene.asked, [signUp, `${ask} t1`]);
});

test("how long they are used", async () => {
  for (const [ttl, seconds] of [[3600, 3000], [300, 60], [undefined, 3000]]) {
    const answer = [200, { iceServers: [turn], ttl }];
    const scene = begin([account("t1"), answer, account("t2"), answer]);
    await scene.ice.servers();
    scene.time += seconds - 1;
    await scene.ice.servers();
    assert.equal(scene.asked.length, 2, `${ttl}`);
    scene.time += 1;
    await scene.ice.servers();
    assert.equal(scene.asked.at(-1).split(" ")[0], ask.split(" ")[0], `${ttl}`);
  }
});

test("tokens are renewed in their last minute, and replaced when they are refused", async () => {
  const session = { accessToken: "t0", refreshToken: "r0", expiresAt: 1061 };
  const servers = [200, { iceServers: [turn] }];
  const rows = [
    [1061, [servers], [`${ask} t0`]],
    [1060, [account("t1"), servers], [refresh, `${ask} t1`]],
    [1060, [[400, {}], account("t1"), servers], [refresh, signUp, `${ask} t1`]],
    [2000, [[401, {}], account("t1"), servers], [`${ask} t0`, signUp, `${ask} t1`]],
  ];
  for (const [expiresAt, answers, asked] of rows) {
    const scene = begin(answers, { session: { ...session, expiresAt } });
    assert.deepEqual(await scene.ice.servers(), [...fallback, turn]);
    assert.deepEqual(scene.asked, asked);
  }
});

test("whatever fails leaves one's own servers", async () => {
  const rows = [
    [], [[422, {}]], [[200, {}]], [account("t1")], [account("t1"), [500, {}]], [account("t1"), [200, {}]],
    [account("t1"), [401, {}], account("t2"), [401, {}]],
  ];
  for (const answers of rows) assert.deepEqual(await begin(answers).ice.servers(), fallback);
  const signalingOnly = begin([], { url: "wss://relay/socket" });
  assert.deepEqual(await signalingOnly.ice.servers(), fallback);
  assert.deepEqual(signalingOnly.asked, []);
});
