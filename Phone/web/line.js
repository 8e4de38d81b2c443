// The line to one computer through the relay: is it there, may it be unlocked, and the signals of sessions.
import { Conversation, SignalError, topicOf } from "./envelope.js";
import { RealtimeChannel } from "./realtime.js";

const repeatTime = 3_000; // broadcasts may be lost
const tries = 3;

// What is known of the computer.
export const Presence = Object.freeze({
  unknown: "unknown", // the relay was not asked yet
  offline: "offline", // the relay does not answer
  silent: "silent", // the computer does not
  here: "here",
  busy: "busy", // another phone is connected; a new one takes its place
  standby: "standby", // has to be unlocked first
});

export class AgentLine {
  presence = Presence.unknown;
  onPresence = () => {}; // (presence)

  #identity;
  #agent;
  #channel;
  #conversations = new Map(); // session string -> { conversation, onSignal }
  #asking = null;
  #questions = new Set(); // that wait for their answer

  // agent: { id, publicKey, name }, relay: { url, key }. Throws TypeError when that is no relay.
  constructor(identity, agent, relay) {
    this.#identity = identity;
    this.#agent = agent;
    this.#channel = new RealtimeChannel(relay, topicOf(agent.id));
    this.#channel.onBroadcast = (envelope) => this.#received(envelope);
    this.#channel.onJoined = (joined) => {
      if (!joined) return this.#set(Presence.offline);
      for (const askNow of this.#questions) askNow();
      this.ask();
    };
  }

  start() {
    this.#channel.start();
  }

  stop() {
    this.#channel.stop();
    this.#conversations.clear();
    this.#set(Presence.unknown);
  }

  hurry() {
    this.#channel.hurry();
  }

  // Asks whether the computer is there; resolves to what was found out. Several askers share one question.
  ask() {
    this.#asking ??= this.#exchange("probe")
      .then((answer) => this.#set(this.#presenceOf(answer)))
      .finally(() => (this.#asking = null));
    return this.#asking;
  }

  // Unlocks a computer in standby. Resolves to the time in milliseconds until which it is open, Infinity when
  // it needs no unlocking, undefined when it did not answer.
  async unlock() {
    const answer = await this.#exchange("unlock");
    if (!answer) return undefined;
    const [name, members] = answer;
    if (name !== "unlocked") this.#set(this.#presenceOf(answer));
    return name === "unlocked" ? members.until * 1000 : Infinity;
  }

  // A conversation under a session string of its own: { send(name, members), close() }. onSignal gets
  // (name, members) of every signal that the computer sends in it.
  async converse(onSignal, session = crypto.randomUUID()) {
    const conversation = await Conversation.begin(this.#identity, this.#agent, session);
    this.#conversations.set(session, { conversation, onSignal });
    return {
      session,
      send: (name, members) => this.#channel.send(conversation.seal(name, members)),
      close: () => this.#conversations.delete(session),
    };
  }

  // A question, repeated until something is answered. undefined when nothing was.
  async #exchange(question) {
    let answered;
    const answer = new Promise((resolve) => (answered = resolve));
    const isAnswer = question === "probe" ? ["here", "standby"] : ["unlocked", "here"];
    const talk = await this.converse((name, members) => isAnswer.includes(name) && answered([name, members]));
    let timer;
    let left = tries;
    const askNow = () => {
      clearTimeout(timer);
      if (left-- === 0) return answered(undefined);
      // What waits for the relay would be stale when it gets there.
      if (this.#channel.joined) talk.send(question);
      timer = setTimeout(askNow, repeatTime);
    };
    askNow();
    this.#questions.add(askNow);
    try {
      return await answer;
    } finally {
      clearTimeout(timer);
      this.#questions.delete(askNow);
      talk.close();
    }
  }

  #presenceOf(answer) {
    if (!answer) return this.#channel.joined ? Presence.silent : Presence.offline;
    const [name, members] = answer;
    return name === "standby" ? Presence.standby : members.busy ? Presence.busy : Presence.here;
  }

  #set(presence) {
    if (this.presence !== presence) {
      this.presence = presence;
      this.onPresence(presence);
    }
    return presence;
  }

  #received(envelope) {
    const talk = this.#conversations.get(envelope.session);
    if (!talk) return;
    try {
      talk.onSignal(...talk.conversation.open(envelope));
    } catch (error) {
      if (!(error instanceof SignalError)) throw error;
    }
  }
}
