// The panels beside the picture: folders and downloads, and the clipboard.
import { Clipboard } from "./clipboard.js";
import { byID, element, icon, name, sizeText, toast } from "./dom.js";
import { Files, save } from "./files.js";
import { language, text } from "./texts.js";
import { dateOf } from "./wire.js";

const dates = new Intl.DateTimeFormat(language, { dateStyle: "medium" });

export class FilesPanel {
  #rows = new Map(); // download -> its row

  constructor(send) {
    this.files = new Files(send);
    this.files.onListing = (listing) => this.#show(listing);
    this.files.onDownload = (download) => this.#showDownload(download);
    this.files.onLoading = (loading) => loading && this.#note(text("loading"));
    byID("files-home").addEventListener("click", () => this.files.open());
    byID("files-up").addEventListener("click", () => this.files.open(this.files.listing.parent));
    this.forget();
  }

  opened() {
    if (!this.files.listing) this.files.open();
  }

  forget() {
    this.files.forget();
    this.#rows.clear();
    byID("files-list").replaceChildren();
    byID("download-list").replaceChildren();
    byID("downloads").hidden = true;
    byID("files-path").textContent = "";
    byID("files-up").disabled = true;
    this.#note("");
  }

  #note(message) {
    byID("files-note").textContent = message;
  }

  #show(listing) {
    this.#note(listing.error ?? (listing.entries.length ? "" : text("emptyFolder")));
    if (listing !== this.files.listing) return;
    byID("files-path").textContent = listing.path;
    byID("files-up").disabled = listing.parent === undefined;
    const base = listing.path.endsWith("/") ? listing.path : `${listing.path}/`;
    byID("files-list").replaceChildren(...listing.entries.map((entry) => this.#row(entry, base + entry.name)));
  }

  #row({ name: label, isDirectory, size, modified }, path) {
    const when = modified === undefined ? "" : dates.format(dateOf(modified));
    const row = element("button", {
      type: "button",
      class: isDirectory ? "entry folder" : "entry",
      title: when,
      onclick: () => (isDirectory ? this.files.open(path) : this.files.download(path)),
    }, icon(isDirectory ? "files" : "file"), element("span", {}, label),
      element("small", {}, isDirectory ? "" : sizeText(size)));
    if (!isDirectory) row.setAttribute("aria-label", `${text("download", label)}, ${sizeText(size)}`);
    return element("li", {}, row);
  }

  #showDownload(download) {
    byID("downloads").hidden = false;
    let row = this.#rows.get(download);
    if (!row) {
      row = this.#makeRow(download);
      this.#rows.set(download, row);
      byID("download-list").prepend(row.item);
    }
    row.label.textContent = download.name;
    row.bar.hidden = download.isOver;
    if (download.size > 0) row.bar.value = Math.min(1, download.received / download.size);
    row.cancel.hidden = download.isOver;
    row.keep.hidden = download.state !== "done";
    row.state.textContent = this.#stateText(download);
    if (download.state === "done") save(download);
  }

  #makeRow(download) {
    const label = element("span");
    const bar = element("progress", { max: 1 });
    const state = element("small");
    const cancel = element("button", { class: "round", type: "button", onclick: () => this.files.cancel(download) }, icon("close"));
    const keep = element("button", { class: "round", type: "button", onclick: () => save(download) }, icon("down"));
    name(cancel, text("cancelDownload", download.name));
    name(keep, text("saveAgain"));
    return { item: element("li", { class: "download" }, label, bar, state, cancel, keep), label, bar, state, cancel, keep };
  }

  #stateText({ state, received, size, error }) {
    switch (state) {
      case "done": return `${text("done")} · ${sizeText(received)}`;
      case "failed": return error || text("failed");
      case "cancelled": return text("cancelled");
      default: return size ? `${sizeText(received)} / ${sizeText(size)}` : sizeText(received);
    }
  }
}

export class ClipboardPanel {
  onNews = () => {}; // text came that nobody has seen yet

  constructor(send) {
    this.clipboard = new Clipboard(send);
    this.clipboard.onText = (copied, taken) => {
      byID("clip-there").value = copied;
      byID("clip-copy").disabled = false;
      toast(text(taken ? "clipboardCopied" : "clipboardNew"));
      if (!taken) this.onNews();
    };
    byID("clip-copy").addEventListener("click", async () => {
      if (await this.clipboard.copyHere()) return toast(text("clipboardCopied"));
      byID("clip-there").select(); // for the person to copy
    });
    byID("clip-take").addEventListener("click", async () => {
      const taken = await this.clipboard.takeHere();
      if (taken !== null) byID("clip-here").value = taken;
      byID("clip-here").focus();
    });
    byID("clip-send").addEventListener("click", () => {
      const given = this.clipboard.give(byID("clip-here").value);
      toast(text(given ? "clipboardSent" : "clipboardLong"), given ? "info" : "error");
    });
    this.forget();
  }

  forget() {
    this.clipboard.text = null;
    byID("clip-there").value = "";
    byID("clip-there").placeholder = text("clipboardNone");
    byID("clip-copy").disabled = true;
    byID("clip-here").value = "";
  }
}
