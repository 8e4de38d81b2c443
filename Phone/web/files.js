// The computer's folders and downloads from them.
import { safeFileName } from "./wire.js";

const pieceSize = 4 << 20; // bytes that are gathered before the browser may put them on its disk

// One download. `state`: "waiting", "running", "done", "failed" or "cancelled".
class Download {
  state = "waiting";
  size = 0; // as announced: for the progress bar, not to be believed
  received = 0;
  error = "";
  blob = null;
  #pieces = [];
  #gathered = 0;
  #whole = new Blob();

  constructor(id, path) {
    this.id = id;
    this.name = safeFileName(path);
  }

  get isOver() {
    return this.state !== "waiting" && this.state !== "running";
  }

  append(bytes) {
    this.received += bytes.length;
    this.#pieces.push(bytes);
    this.#gathered += bytes.length;
    if (this.#gathered >= pieceSize) this.#gather();
  }

  finish() {
    this.#gather();
    this.blob = this.#whole;
    this.state = "done";
  }

  fail(state, error = "") {
    this.state = state;
    this.error = error;
    this.#pieces = [];
    this.#whole = null;
  }

  #gather() {
    this.#whole = new Blob([this.#whole, ...this.#pieces]);
    this.#pieces = [];
    this.#gathered = 0;
  }
}

export class Files {
  listing = null; // the newest
  downloads = []; // in the order of their start

  onListing = () => {}; // (listing)
  onDownload = () => {}; // (download): something about it is new
  onLoading = () => {}; // (loading)

  #send;
  #lastID = 0;

  constructor(send) {
    this.#send = send;
  }

  // Lists a folder, without a path the home folder.
  open(path) {
    this.onLoading(true);
    this.#send("listDirectory", path === undefined ? {} : { _0: path });
  }

  directory(listing) {
    this.onLoading(false);
    // A folder that cannot be read leaves the person where they were, with the reason.
    if (!listing.error || !this.listing) this.listing = listing;
    this.onListing(listing);
  }

  download(path) {
    const download = new Download(++this.#lastID, path);
    this.downloads.push(download);
    this.#send("fetchFile", { id: download.id, path });
    this.onDownload(download);
    return download;
  }

  cancel(download) {
    if (download.isOver) return;
    this.#send("cancelFetch", { _0: download.id });
    download.fail("cancelled");
    this.onDownload(download);
  }

  frame({ id, start, data, end }) {
    const download = this.downloads.find((one) => one.id === id);
    if (!download || download.isOver) return;
    if (start) {
      download.state = "running";
      download.name = safeFileName(start.name);
      download.size = Math.max(0, start.size);
    } else if (data) {
      if (download.state !== "running") return;
      download.append(data);
    } else if (end.error !== undefined) {
      download.fail("failed", end.error);
    } else if (download.state === "running") {
      download.finish();
    } else {
      download.fail("failed");
    }
    this.onDownload(download);
  }

  // The session is over, and its downloads with it.
  ended() {
    for (const download of this.downloads.filter((one) => !one.isOver)) {
      download.fail("failed");
      this.onDownload(download);
    }
    this.onLoading(false);
  }

  forget() {
    this.listing = null;
    this.downloads = [];
  }
}

// Hands a finished download to the browser.
export function save({ blob, name }) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(blob);
  link.download = name;
  document.body.append(link);
  link.click();
  link.remove();
  setTimeout(() => URL.revokeObjectURL(link.href), 60_000);
}
