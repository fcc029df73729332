// Keys that work anywhere on the page.
import { useEffect } from "../view.js";

/** Where a key press writes or chooses something, it is no shortcut. */
const takesKeys = "input:not([type=checkbox]):not([type=range]):not([type=radio]), textarea, dialog";
const takesLetters = `${takesKeys}, select`;

/**
 * @typedef {object} Shortcut
 * @property {string} key as KeyboardEvent.key has it, in lower case
 * @property {boolean} [control] with Ctrl, or Command on a Mac
 * @property {boolean} [shift]
 */

/**
 * @param {KeyboardEvent} event
 * @param {Shortcut} shortcut
 */
function isPressed(event, { key, control = false, shift = false }) {
  const { ctrlKey, metaKey, altKey, shiftKey } = event;
  const hasModifiers = (ctrlKey || metaKey) === control && !altKey && (!control || shiftKey === shift);
  return event.key.toLowerCase() === key && hasModifiers;
}

/**
 * Calls what belongs to the shortcut that is pressed, unless the key writes into a field. A key that is held down counts
 * once, but for those with Ctrl.
 *
 * @param {(Shortcut & {press: () => void})[]} shortcuts
 */
export function useShortcuts(shortcuts) {
  useEffect(() => {
    const listen = (/** @type {KeyboardEvent} */ event) => {
      const pressed = shortcuts.find((shortcut) => isPressed(event, shortcut));
      if (pressed === undefined || (event.repeat && !pressed.control)) return;
      const isElsewhere =
        event.target instanceof Element &&
        event.target.closest(pressed.control ? takesKeys : takesLetters) !== null;
      if (isElsewhere || document.querySelector("dialog[open]") !== null) return;
      event.preventDefault();
      pressed.press();
    };
    addEventListener("keydown", listen);
    return () => removeEventListener("keydown", listen);
  });
}
