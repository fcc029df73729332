// Controls that several cards use.
import { html, useEffect, useLayoutEffect, useRef, useState } from "../view.js";

/** @typedef {import("../view.js").Children} Children */

/**
 * A switch with its state in words.
 *
 * @param {{label: string, words: [off: string, on: string], checked: boolean, onChange: (on: boolean) => void,
 *   class?: string, describedBy?: string, disabled?: boolean}} props
 */
export function Switch({
  label,
  words,
  checked,
  onChange,
  class: className = "",
  describedBy,
  disabled = false,
}) {
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  // A click moves the browser's own state, also where the page then decides otherwise.
  useLayoutEffect(() => {
    if (input.current !== null) input.current.checked = checked;
  });
  return html`<label class="switch ${className}">
    <input
      ref=${input}
      type="checkbox"
      role="switch"
      aria-label=${label}
      aria-describedby=${describedBy}
      disabled=${disabled}
      onChange=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) => onChange(currentTarget.checked)}
    />
    <span class="state" aria-hidden="true">${words[Number(checked)]}</span>
  </label>`;
}

/**
 * A slider with its label and value. While it is dragged it shows where it is; a poll never moves it below a finger.
 *
 * @param {{label: string, name: string, value: number | undefined, format: (value: number | undefined) => string,
 *   onInput: (value: number) => void, disabled?: boolean}} props value 0 to 1; undefined is unknown
 */
export function Slider({ label, name, value, format, onInput, disabled = false }) {
  const [held, setHeld] = useState(/** @type {number | null} */ (null));
  const release = () => setHeld(null);
  const shown = held ?? value;
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  useLayoutEffect(() => {
    if (input.current !== null) input.current.value = String(shown ?? 0);
  });
  // A drag that ends outside the window sends no change where nothing has moved.
  useEffect(() => {
    addEventListener("pointerup", release);
    addEventListener("pointercancel", release);
    return () => {
      removeEventListener("pointerup", release);
      removeEventListener("pointercancel", release);
    };
  }, []);
  return html`<div class="slider">
    <label for=${name}>${label}</label>
    <input
      ref=${input}
      id=${name}
      type="range"
      min="0"
      max="1"
      step="0.01"
      disabled=${disabled}
      aria-valuetext=${format(shown)}
      onPointerDown=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) =>
        setHeld(currentTarget.valueAsNumber)}
      onInput=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) => {
        const moved = currentTarget.valueAsNumber;
        setHeld((before) => (before === null ? null : moved));
        onInput(moved);
      }}
    />
    <output for=${name}>${format(shown)}</output>
  </div>`;
}

/**
 * A field for a number, which shows the value with its unit. What is no number within the range goes back to the last
 * value and sends nothing.
 *
 * @param {{label: string, value: number | undefined, minimum: number, maximum: number,
 *   format: (value: number) => string, parse: (text: string, shown: string) => number | undefined,
 *   onChange: (value: number) => void, name?: string, ariaLabel?: string, describedBy?: string,
 *   disabled?: boolean}} props
 */
export function NumberField({
  label,
  value,
  minimum,
  maximum,
  format,
  parse,
  onChange,
  name,
  ariaLabel,
  describedBy,
  disabled = false,
}) {
  const [draft, setDraft] = useState(/** @type {string | null} */ (null));
  const shown = value === undefined ? "" : format(value);
  const commit = () => {
    const parsed = draft === null ? undefined : parse(draft, shown);
    setDraft(null);
    if (draft === shown || parsed === undefined || parsed < minimum || parsed > maximum) return;
    onChange(parsed);
  };
  const input = useRef(/** @type {HTMLInputElement | null} */ (null));
  useLayoutEffect(() => {
    const text = draft ?? shown;
    if (input.current !== null && input.current.value !== text) input.current.value = text;
  });
  return html`<label class="labelled">
    <span>${label}</span>
    <input
      ref=${input}
      class="field number"
      type="text"
      inputmode="decimal"
      autocomplete="off"
      spellcheck=${false}
      name=${name}
      aria-label=${ariaLabel}
      aria-describedby=${describedBy}
      disabled=${disabled}
      onInput=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) => setDraft(currentTarget.value)}
      onBlur=${commit}
      onKeyDown=${(/** @type {KeyboardEvent} */ { key }) => {
        if (key === "Enter") commit();
        if (key === "Escape") setDraft(null);
      }}
    />
  </label>`;
}

/**
 * A question in front of the page. It opens as it is drawn, and closes by a button or Escape.
 *
 * @param {{title: string, children: Children, onCancel: () => void}} props
 */
export function Dialog({ title, children, onCancel }) {
  const dialog = useRef(/** @type {HTMLDialogElement | null} */ (null));
  useEffect(() => {
    const opener = document.activeElement;
    const element = dialog.current;
    element?.showModal();
    return () => {
      // While it is open, nothing outside can take the focus.
      element?.close();
      if (opener instanceof HTMLElement && opener.isConnected) opener.focus({ preventScroll: true });
    };
  }, []);
  return html`<dialog
    ref=${dialog}
    aria-labelledby="dialog-title"
    onCancel=${(/** @type {Event} */ event) => {
      event.preventDefault();
      onCancel();
    }}
  >
    <h2 id="dialog-title">${title}</h2>
    ${children}
  </dialog>`;
}
