// The Mac's virtual key codes, which every computer takes for the places of keys, by the names that browsers
// give to those places (KeyboardEvent.code).
export const keyCodes = Object.freeze({
  Backquote: 50, Digit1: 18, Digit2: 19, Digit3: 20, Digit4: 21, Digit5: 23, Digit6: 22, Digit7: 26, Digit8: 28,
  Digit9: 25, Digit0: 29, Minus: 27, Equal: 24, Backspace: 51,
  Tab: 48, KeyQ: 12, KeyW: 13, KeyE: 14, KeyR: 15, KeyT: 17, KeyY: 16, KeyU: 32, KeyI: 34, KeyO: 31, KeyP: 35,
  BracketLeft: 33, BracketRight: 30, Backslash: 42, Enter: 36, NumpadEnter: 36,
  CapsLock: 57, KeyA: 0, KeyS: 1, KeyD: 2, KeyF: 3, KeyG: 5, KeyH: 4, KeyJ: 38, KeyK: 40, KeyL: 37,
  Semicolon: 41, Quote: 39,
  IntlBackslash: 10, KeyZ: 6, KeyX: 7, KeyC: 8, KeyV: 9, KeyB: 11, KeyN: 45, KeyM: 46, Comma: 43, Period: 47,
  Slash: 44, Space: 49,
  Escape: 53, F1: 122, F2: 120, F3: 99, F4: 118, F5: 96, F6: 97, F7: 98, F8: 100, F9: 101, F10: 109, F11: 103,
  F12: 111,
  Home: 115, PageUp: 116, Delete: 117, End: 119, PageDown: 121,
  ArrowLeft: 123, ArrowRight: 124, ArrowDown: 125, ArrowUp: 126,
});
