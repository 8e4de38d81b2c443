// Where the computer's picture lies on the stage: fitted into it, then enlarged and shifted by hand.
// All lengths are CSS pixels of the stage, whose top left corner is 0, 0.
export const maxZoom = 6;

export class View {
  zoom = 1;
  x = 0; // shift of the picture's centre from the stage's
  y = 0;

  constructor(stage = { width: 1, height: 1 }, picture = { width: 16, height: 9 }) {
    this.resize(stage, picture);
  }

  resize(stage, picture = this.picture) {
    this.stage = stage;
    this.picture = picture;
    this.#settle();
  }

  // The picture as it is shown.
  get rectangle() {
    const fit = Math.min(this.stage.width / this.picture.width, this.stage.height / this.picture.height) || 1;
    const width = this.picture.width * fit * this.zoom;
    const height = this.picture.height * fit * this.zoom;
    return {
      left: (this.stage.width - width) / 2 + this.x,
      top: (this.stage.height - height) / 2 + this.y,
      width,
      height,
    };
  }

  // A place on the stage as one in the picture, both from 0 to 1.
  toPicture(x, y) {
    const shown = this.rectangle;
    const within = (v) => Math.min(1, Math.max(0, v));
    return { x: within((x - shown.left) / shown.width), y: within((y - shown.top) / shown.height) };
  }

  // Enlarges by a factor; what is at x, y stays there.
  zoomAt(x, y, factor) {
    const before = this.rectangle;
    const zoom = Math.min(maxZoom, Math.max(1, this.zoom * factor));
    const real = zoom / this.zoom;
    this.zoom = zoom;
    this.x += (before.left + before.width / 2 - x) * (real - 1);
    this.y += (before.top + before.height / 2 - y) * (real - 1);
    this.#settle();
  }

  pan(dx, dy) {
    this.x += dx;
    this.y += dy;
    this.#settle();
  }

  // Shifts the picture so far that a place in it (0 to 1) is on the stage, with a margin.
  show(place, margin = 40) {
    const shown = this.rectangle;
    const by = (at, size) => Math.max(margin - at, 0) + Math.min(size - margin - at, 0);
    this.pan(
      by(shown.left + place.x * shown.width, this.stage.width),
      by(shown.top + place.y * shown.height, this.stage.height),
    );
  }

  // Neither side shows more of nothing than it has to.
  #settle() {
    const shown = this.rectangle;
    const within = (shift, size, room) => {
      const most = Math.max(0, (size - room) / 2);
      return Math.min(most, Math.max(-most, shift));
    };
    this.x = within(this.x, shown.width, this.stage.width);
    this.y = within(this.y, shown.height, this.stage.height);
  }
}
