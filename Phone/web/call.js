// What a person wants when they choose a computer: to be connected, until they leave. Asks, has it unlocked,
// makes sessions one after the other when they break.
import { Presence } from "./line.js";
import { EndReason, Session, SessionState } from "./session.js";

export const Phase = Object.freeze({
  asking: "asking",
  locked: "locked", // waits for unlock()
  unlocking: "unlocking",
  connecting: "connecting",
  live: "live",
  interrupted: "interrupted",
  waiting: "waiting", // for the next attempt; `why` says what went wrong
  over: "over", // for good; `why` says why
});

const delays = [1_000, 2_000, 4_000, 8_000, 15_000];
// Attempts for which a computer that is in use may be so by our own session, of which it has not noticed the
// end; after them another phone has taken our place, and is not driven away again without being asked.
const ownBusyTries = 4;

export class Call {
  phase = null;
  why = null; // a Presence, an EndReason or a Rejection
  session = null;

  onPhase = () => {}; // (phase, why)
  onSession = () => {}; // (session), before it starts: install its callbacks there

  #line;
  #hello;
  #iceServers;
  #failures = 0;
  #busyTries = 0;
  #wasLive = false;
  #timer;

  constructor(line, hello, iceServers) {
    this.#line = line;
    this.#hello = hello;
    this.#iceServers = iceServers;
  }

  // A person wants it: another phone has to make room.
  start() {
    this.#busyTries = 0;
    this.#wasLive = false;
    return this.#ask({ mayTakeOver: true });
  }

  async #ask({ mayTakeOver }) {
    clearTimeout(this.#timer);
    this.#set(Phase.asking);
    const presence = await this.#line.ask();
    if (this.phase !== Phase.asking) return;
    if (presence === Presence.standby) this.#set(Phase.locked);
    else if (presence === Presence.here || (presence === Presence.busy && mayTakeOver)) await this.#connect();
    else if (presence === Presence.busy && ++this.#busyTries === ownBusyTries) this.#over(presence);
    else this.#wait(presence);
  }

  // From locked only. The caller has made sure that it is the phone's owner who asks.
  async unlock() {
    if (this.phase !== Phase.locked) return;
    this.#set(Phase.unlocking);
    const until = await this.#line.unlock();
    if (this.phase !== Phase.unlocking) return;
    if (until === undefined) this.#wait(Presence.silent);
    else await this.#connect();
  }

  // Does not wait for the next attempt.
  hurry() {
    this.#line.hurry();
    if (this.phase === Phase.waiting) this.#ask({ mayTakeOver: !this.#wasLive });
  }

  leave() {
    this.#over(EndReason.left);
  }

  send(name, members) {
    this.session?.send(name, members);
  }

  async #connect() {
    this.#set(Phase.connecting);
    const servers = await this.#iceServers.servers();
    if (this.phase !== Phase.connecting) return;
    const session = (this.session = new Session(this.#line, this.#hello));
    session.onState = (state) => this.#sessionChanged(session, state);
    this.onSession(session);
    await session.start(servers);
  }

  #sessionChanged(session, state) {
    if (session !== this.session || this.phase === Phase.over) return;
    if (state === SessionState.live) {
      this.#failures = this.#busyTries = 0;
      this.#wasLive = true;
      this.#set(Phase.live);
    } else if (state === SessionState.interrupted) {
      this.#set(Phase.interrupted);
      this.#askAboutSession(session);
    } else if (state === SessionState.ended) {
      this.session = null;
      const { reason, rejection } = session;
      if (reason === EndReason.rejected) this.#over(rejection);
      else if (reason === EndReason.bye) this.#over(reason);
      else if (reason === EndReason.locked) this.#set(Phase.locked);
      else this.#wait(reason);
    }
  }

  // A computer that is not in use has ended the session already: no need to hope for it.
  async #askAboutSession(session) {
    const presence = await this.#line.ask();
    if (presence === Presence.here || presence === Presence.standby) session.giveUp();
  }

  #wait(why) {
    const delay = delays[Math.min(this.#failures++, delays.length - 1)];
    this.#set(Phase.waiting, why);
    this.#timer = setTimeout(() => this.#ask({ mayTakeOver: !this.#wasLive }), delay);
  }

  #over(why) {
    if (this.phase === Phase.over) return;
    clearTimeout(this.#timer);
    this.#set(Phase.over, why);
    this.session?.leave();
    this.session = null;
  }

  #set(phase, why = null) {
    this.phase = phase;
    this.why = why;
    this.onPhase(phase, why);
  }
}
