// Timers that pass when they are told to: `clock` of what is under test.
export class VirtualTime {
  time = 0;
  #timers = new Map();
  #last = 0;

  setTimeout = (step, delay) => {
    this.#timers.set(++this.#last, { step, at: this.time + delay });
    return this.#last;
  };
  clearTimeout = (id) => this.#timers.delete(id);
  now = () => this.time;

  pass(milliseconds) {
    const end = this.time + milliseconds;
    for (;;) {
      const due = [...this.#timers].filter(([, { at }]) => at <= end).sort(([a, x], [b, y]) => x.at - y.at || a - b)[0];
      if (!due) break;
      this.time = due[1].at;
      this.#timers.delete(due[0]);
      due[1].step();
    }
    this.time = end;
  }
}
