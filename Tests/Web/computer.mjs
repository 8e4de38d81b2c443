// A real computer for the page: an X server, the agent and the relay as they were built, each a process of its
// own. ORVEL_BUILD is where the programs are, else build/dev.
import { spawn, spawnSync } from "node:child_process";
import { createSocket } from "node:dgram";
import { once } from "node:events";
import { closeSync, existsSync, mkdirSync, mkdtempSync, openSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

const build = process.env.ORVEL_BUILD ?? fileURLToPath(new URL("../../build/dev", import.meta.url));
const programs = ["orvel-agent", "orvel-phone", "orvel-relay"].map((name) => join(build, name));
const [agentProgram, phoneProgram, relayProgram] = programs;

const turnServer = fileURLToPath(new URL("../../build/coturn/usr/bin/turnserver", import.meta.url));

const installed = (name) => (process.env.PATH ?? "").split(":").some((folder) => existsSync(join(folder, name)));

// What is missing here, or false. Of the tools "turnserver" is that of ./orvel setup.
export function missing(...tools) {
  const program = programs.find((path) => !existsSync(path));
  if (program) return `${program.split("/").pop()} is not built`;
  const tool = ["Xvfb", ...tools].find((name) => (name === "turnserver" ? !existsSync(turnServer) : !installed(name)));
  return tool ? `no ${tool} here` : false;
}

// Waits until `look` resolves to something, and resolves to that. `what` is for the error: a text, or a function
// that makes one.
export async function until(look, what, limit = 15_000) {
  for (const end = Date.now() + limit; ; ) {
    const found = await look();
    if (found) return found;
    if (Date.now() > end) throw new Error(`not seen: ${typeof what === "function" ? what() : what}`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}

// A program whose output is read line by line.
export class Program {
  lines = [];
  errors = "";
  #child;
  #ended;

  constructor(command, args, env, { extra = [] } = {}) {
    this.name = command.split("/").pop();
    this.#child = spawn(command, args, { env, stdio: ["pipe", "pipe", "pipe", ...extra] });
    this.#ended = new Promise((resolve) => {
      this.#child.on("error", (error) => { this.errors += error.message; resolve(-1); });
      this.#child.on("close", (code, signal) => resolve(code ?? signal));
    });
    let pending = "";
    this.#child.stdout.setEncoding("utf8").on("data", (chunk) => {
      const whole = (pending + chunk).split("\n");
      pending = whole.pop();
      this.lines.push(...whole);
    });
    this.#child.stderr.setEncoding("utf8").on("data", (chunk) => (this.errors += chunk));
    this.#child.stdin.on("error", () => {});
  }

  get pid() {
    return this.#child.pid;
  }

  get ended() {
    return this.#ended;
  }

  write(text) {
    this.#child.stdin.write(text);
  }

  // The first line from the `from`th on that is a JSON object of which `pick` makes something.
  event(pick, what, from = 0, limit) {
    const find = () => {
      for (const line of this.lines.slice(from)) {
        const picked = pick(JSON.parse(line));
        if (picked !== undefined && picked !== false && picked !== null) return { picked };
      }
    };
    return until(find, () => `${what} of ${this.name}: ${this.lines.slice(from).join(" ")} ${this.errors.slice(-2000)}`, limit)
      .then(({ picked }) => picked);
  }

  // Resolves to its exit status, or to the signal that it took.
  async stop() {
    this.#child.kill("SIGTERM");
    const insist = setTimeout(() => this.#child.kill("SIGKILL"), 5_000);
    const status = await this.#ended;
    clearTimeout(insist);
    return status;
  }
}

export class Computer {
  scratch = mkdtempSync(join(tmpdir(), "orvel-web-"));
  home = join(this.scratch, "home");
  #programs = []; // in the order in which they were started
  #env;

  // `defaults` are user defaults of the agent, `size` is the screen's. `sound` is to be had where a sound server is installed (hasSound);
  // `turn` starts a TURN server, which the relay then names. When it fails, what was started is still stopped by
  // stop().
  async start({ defaults = {}, sound = false, turn = false, size = { width: 1280, height: 800 } } = {}) {
    mkdirSync(this.home);
    this.#env = {
      ...process.env, HOME: this.home, TMPDIR: this.scratch, XDG_RUNTIME_DIR: this.scratch, LC_ALL: "C.UTF-8",
      // Nothing of the desktop on which the test is run.
      DBUS_SESSION_BUS_ADDRESS: "disabled:", DBUS_SYSTEM_BUS_ADDRESS: "disabled:", WAYLAND_DISPLAY: "", PULSE_SERVER: "none",
    };
    const displayFile = join(this.scratch, "display");
    const display = openSync(displayFile, "w");
    this.run("Xvfb", ["-displayfd", "3", "-screen", "0", `${size.width}x${size.height}x24`, "-noreset", "-nolisten", "tcp"], { extra: [display] });
    closeSync(display);
    const number = await until(() => /^\d+(?=\n)/.exec(readFileSync(displayFile, "utf8"))?.[0], "a display");
    this.#env.DISPLAY = `:${number}`;

    this.hasSound = sound && (await this.#startSound());

    this.relay = this.run(relayProgram, ["--port", "0", ...(turn ? await this.#startTurn() : [])]);
    const port = await this.relay.event(({ listening }) => listening?.port, "its port");
    this.project = { url: `http://127.0.0.1:${port}`, key: "local" };
    Object.assign(this.#env, { ORVEL_PROJECT_URL: this.project.url, ORVEL_PROJECT_KEY: this.project.key });

    const state = ["--state-dir", join(this.scratch, "agent")];
    for (const [key, value] of Object.entries(defaults)) {
      const { status, stderr } = spawnSync(agentProgram, [...state, "defaults", "write", key, JSON.stringify(value)], { env: this.#env });
      if (status !== 0) throw new Error(`cannot set ${key}: ${stderr}`);
    }
    this.agent = this.run(agentProgram, [...state, "--headless", "--no-advertise", "--bind", "127.0.0.1", "--port", "0", "--name", "Desk"]);
    this.id = (await this.agent.event(({ identity }) => identity, "its identity")).deviceID;
    await this.agent.event(({ relay: joined }) => joined === true, "the relay's channel");
  }

  // Starts a program on this computer's display.
  run(command, args, options) {
    const program = new Program(command, args, this.#env, options);
    this.#programs.push(program);
    return program;
  }

  async #startSound() {
    if (!["pulseaudio", "pactl", "pacat"].every(installed)) return false;
    const socket = join(this.scratch, "sound");
    this.run("pulseaudio", ["-n", "--daemonize=no", "--use-pid-file=no", "--exit-idle-time=-1", "--disallow-exit", "--log-target=stderr",
      "-L", `module-native-protocol-unix auth-cookie-enabled=0 socket=${socket}`, "-L", "module-null-sink sink_name=virtual rate=48000"]);
    this.#env.PULSE_SERVER = `unix:${socket}`;
    await until(() => spawnSync("pactl", ["info"], { env: this.#env }).status === 0, "a sound server");
    return true;
  }

  // Resolves to the relay's options for it.
  async #startTurn() {
    // It takes no port 0. Nobody else is given this one soon.
    const probe = createSocket("udp4").bind(0, "127.0.0.1");
    await once(probe, "listening");
    const { port } = probe.address();
    await new Promise((resolve) => probe.close(resolve));
    const [file, secretFile] = [join(this.scratch, "turn.conf"), join(this.scratch, "turn.secret")];
    writeFileSync(secretFile, "north\n");
    writeFileSync(file, `listening-ip=127.0.0.1
relay-ip=127.0.0.1
listening-port=${port}
realm=orvel
use-auth-secret
static-auth-secret=north
allow-loopback-peers
no-cli
no-tls
no-dtls
relay-threads=1
log-file=stdout
simple-log
verbose
new-log-timestamp
userdb=${this.scratch}/turn.db
pidfile=${this.scratch}/turn.pid
`);
    this.turn = this.run(turnServer, ["-c", file]);
    await until(() => this.turn.lines.some((line) => line.includes("UDP listener opened")), () => `a TURN server: ${this.turn.lines.join("\n")}`);
    return ["--turn", `turn:127.0.0.1:${port}`, "--turn-secret-file", secretFile];
  }

  // Pairs a phone as its owner does, who reads the digits here and types them there. Resolves to what the page
  // imports.
  async pair() {
    const state = join(this.scratch, "phone");
    const { port } = await this.agent.event(({ listening }) => listening, "its port");
    const before = this.agent.lines.length;
    const phone = this.run(phoneProgram, ["--state-dir", state, "--host", "127.0.0.1", "--port", String(port), "pair"]);
    phone.write(`${await this.agent.event(({ pairingCode }) => pairingCode, "digits", before)}\n`);
    const status = await phone.ended;
    if (status !== 0) throw new Error(`pairing failed: ${phone.errors}`);
    const known = JSON.parse(readFileSync(join(state, "agents.json"), "utf8"));
    const identity = readFileSync(join(state, "identity")).toString("base64");
    return JSON.stringify({ ...known, identity, relay: this.project, stun: [] });
  }

  // The agent's next status of this name, counted from its `from`th line.
  status(name, from = 0, limit) {
    return this.agent.event(({ status }) => status?.[name], `status ${name}`, from, limit);
  }

  // An action of the headless agent.
  act(name, payload = {}) {
    this.agent.write(`${JSON.stringify({ [name]: payload })}\n`);
  }

  // Resolves to the agent's exit status: the sanitizers' findings are in it.
  async stop() {
    let status;
    for (const program of this.#programs.reverse()) {
      const one = await program.stop();
      if (program === this.agent) status = one;
    }
    rmSync(this.scratch, { recursive: true, force: true });
    return status;
  }
}
