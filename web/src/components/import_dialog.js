// Import: a file, a dropped or a pasted text, and what would become of it, before anything is applied.
import { checkText, dropHandlers, readGiven } from "../app/transfer.js";
import { axisRange, curveFrequencies, pathOf, settingCurve, yOf } from "../model/curve.js";
import { readImport } from "../model/import/read.js";
import { html, useEffect, useRef, useState } from "../view.js";
import { Dialog } from "./controls.js";
import { Icon } from "./icon.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../app/transfer.js").Given} Given
 * @typedef {import("../app/transfer.js").Read} Read
 * @typedef {import("../model/types.js").Sentence} Sentence
 * @typedef {import("../model/equalizer.js").Setting} Setting
 * @typedef {import("../model/import/read.js").Import} Import
 *
 * @typedef {{name: string, result: Import} | {name: string, error: Sentence}} Shown `name` of the file; empty for a text
 */

/** More lines than these are counted only. */
const mostListed = 200;

/** A text is read once typing pauses for so long. */
const pauseMs = 150;

const frequencies = curveFrequencies(300);
const [curveWidth, curveHeight] = [600, 120];

/** @param {number} db */
const twoDigits = (db) => String(Number(db.toFixed(2)));

/** @param {{t: Translate, setting: Setting, rate: number}} props */
function CurvePicture({ t, setting, rate }) {
  const curve = settingCurve(setting, rate, frequencies);
  const range = axisRange(setting, curve);
  const zero = yOf(0, range, curveHeight);
  const path = pathOf(frequencies, curve.sum, { width: curveWidth, height: curveHeight, range });
  return html`<figure class="import-curve">
    <svg viewBox="0 0 ${curveWidth} ${curveHeight}" preserveAspectRatio="none" aria-hidden="true">
      <line x1="0" x2=${curveWidth} y1=${zero} y2=${zero} />
      <path d=${path} />
    </svg>
    <figcaption class="muted">${t("import.curve", { range: String(range) })}</figcaption>
  </figure>`;
}

/** @param {{t: Translate, result: Import}} props */
function DroppedList({ t, result: { dropped, kind } }) {
  if (dropped.length === 0) return kind !== "none" && html`<p>${t("import.nothingDropped")}</p>`;
  const say = (/** @type {Sentence} */ { key, values }) => t(key, values);
  return html`<h3 id="import-dropped">${t("import.dropped", { count: dropped.length })}</h3>
    <div class="import-dropped" role="region" aria-labelledby="import-dropped" tabindex="0">
      <ul>
        ${dropped.slice(0, mostListed).map(
          ({ line, text, reason }, index) =>
            html`<li key=${index}>
              <b>${t("import.line", { line })}</b> <code dir="auto">${text}</code>
              <span>${say(reason)}</span>
            </li>`,
        )}
      </ul>
      ${dropped.length > mostListed && html`<p>${t("import.more", { count: dropped.length - mostListed })}</p>`}
    </div>`;
}

/** @param {{t: Translate, value: number, checked: boolean, onChange: (checked: boolean) => void}} props */
function PreampOffer({ t, value, checked, onChange }) {
  return html`<label class="check">
    <input
      type="checkbox"
      checked=${checked}
      onChange=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) => onChange(currentTarget.checked)}
    />
    <span>${t("import.preamp", { value })}</span>
  </label>`;
}

/**
 * What becomes of the equalizer's own switch.
 *
 * @param {Setting | null} setting that would be used
 * @param {Setting | undefined} present
 * @returns {string[]} keys of the texts
 */
function switchTexts(setting, present) {
  if (setting === null) return [];
  const isOff = present?.bypass === true;
  if (setting.bypass) return [isOff ? "import.staysOff" : "import.switchesOff"];
  return isOff ? ["import.switchesOn"] : [];
}

/**
 * What the text gives, and what it would do.
 *
 * @param {{t: Translate, sound: Sound, result: Import, wantsTrim: boolean, onWantsTrim: (wanted: boolean) => void}} props
 */
function Preview({ t, sound, result, wantsTrim, onWantsTrim }) {
  const { setting, taken, total, kind, preampDb, fit, notes } = result;
  const { equalizer } = sound;
  const isFound = setting !== null || preampDb !== null;
  const paragraphs = [
    ...(isFound ? [] : [t("import.nothing")]),
    ...(kind === "none" || total === 0 ? [] : [t(`import.taken.${kind}`, { taken, total })]),
    ...(fit === undefined
      ? []
      : [t("import.fit", { maximum: twoDigits(fit.maximumDb), rms: twoDigits(fit.rmsDb) })]),
    ...notes.map(({ key, values }) => t(key, values)),
    ...switchTexts(setting, equalizer.setting()).map((key) => t(key)),
  ];
  return html`<section class="import-preview" aria-labelledby="import-preview">
    <h3 id="import-preview">${t("import.preview")}</h3>
    ${setting !== null && html`<${CurvePicture} t=${t} setting=${setting} rate=${equalizer.rate()} />`}
    ${paragraphs.map((text) => html`<p key=${text}>${text}</p>`)}
    ${
      preampDb !== null &&
      setting !== null &&
      html`<${PreampOffer} t=${t} value=${preampDb} checked=${wantsTrim} onChange=${onWantsTrim} />`
    }
    <${DroppedList} t=${t} result=${result} />
  </section>`;
}

/**
 * @param {Sound} sound
 * @param {Read} read
 * @param {string} name
 * @returns {Shown}
 */
function show(sound, read, name) {
  if ("error" in read) return { name, error: read.error };
  return { name, result: readImport(read.text, undefined, { rate: sound.equalizer.rate() }) };
}

/**
 * Reads what is given, the last one if several follow each other.
 *
 * @param {Sound} sound
 */
function useReader(sound) {
  const [shown, setShown] = useState(/** @type {Shown | null} */ (null));
  // A text that has not been read yet: what is shown is of one before.
  const [isPending, setIsPending] = useState(false);
  const latest = useRef(0);
  const timer = useRef(0);
  useEffect(
    () => () => {
      ++latest.current;
      clearTimeout(timer.current);
    },
    [],
  );
  const take = async (/** @type {Given} */ given) => {
    const own = ++latest.current;
    clearTimeout(timer.current);
    const read = await readGiven(given);
    if (own !== latest.current) return;
    setShown(show(sound, read, given instanceof File ? given.name : ""));
    setIsPending(false);
  };
  const type = (/** @type {string} */ text) => {
    ++latest.current;
    clearTimeout(timer.current);
    setIsPending(true);
    timer.current = window.setTimeout(() => {
      setShown(text.trim() === "" ? null : show(sound, checkText(text), ""));
      setIsPending(false);
    }, pauseMs);
  };
  return { shown, isPending, take, type };
}

/**
 * @param {{t: Translate, onText: (text: string) => void, onGiven: (given: Given) => void,
 *   area: {current: HTMLTextAreaElement | null}}} props
 */
function Sources({ t, onText, onGiven, area }) {
  const chooser = useRef(/** @type {HTMLInputElement | null} */ (null));
  return html`<div class="row">
      <button type="button" class="button" autofocus onClick=${() => chooser.current?.click()}>
        ${t("import.choose")}
      </button>
      <input
        ref=${chooser}
        type="file"
        hidden
        accept=".json,.txt,text/plain,application/json"
        onChange=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) => {
          const file = currentTarget.files?.[0];
          if (file !== undefined) onGiven(file);
          // The same file may be chosen again once it has been edited.
          currentTarget.value = "";
        }}
      />
    </div>
    <label class="labelled">
      <span>${t("import.paste")}</span>
      <textarea
        ref=${area}
        class="report"
        rows="4"
        spellcheck=${false}
        autocomplete="off"
        placeholder=${t("import.pastePlaceholder")}
        onInput=${(/** @type {{currentTarget: HTMLTextAreaElement}} */ { currentTarget }) => onText(currentTarget.value)}
      ></textarea>
    </label>`;
}

/**
 * @param {{t: Translate, sound: Sound, given?: Given}} props `given`: what was dropped on the page
 */
export function ImportDialog({ t, sound, given }) {
  const { shown, isPending, take, type } = useReader(sound);
  const [isOver, setIsOver] = useState(false);
  const [wantsTrim, setWantsTrim] = useState(true);
  const area = useRef(/** @type {HTMLTextAreaElement | null} */ (null));
  const takeGiven = (/** @type {Given} */ one) => {
    if (area.current !== null) area.current.value = typeof one === "string" ? one.slice(0, 1 << 20) : "";
    setWantsTrim(true);
    take(one);
  };
  useEffect(() => {
    if (given !== undefined) takeGiven(given);
  }, []);
  const result = shown !== null && "result" in shown ? shown.result : null;
  const { setting = null, preampDb = null } = result ?? {};
  const use = () => {
    sound.ask(null);
    if (setting !== null)
      sound.equalizer.load(setting, null, wantsTrim ? (preampDb ?? undefined) : undefined);
    else if (preampDb !== null) sound.equalizer.setTrim(preampDb);
  };
  const useText =
    setting === null && preampDb !== null ? t("import.useTrim", { value: preampDb }) : t("import.use");
  return html`<${Dialog} title=${t("import.title")} onCancel=${() => sound.ask(null)}>
    <div class="import ${isOver ? "over" : ""}" ...${dropHandlers(takeGiven, setIsOver)}>
      <p>${t("import.intro")}</p>
      <${Sources} t=${t} area=${area} onText=${type} onGiven=${takeGiven} />
      <div role="status">
        ${shown !== null && shown.name !== "" && html`<p class="import-name" dir="auto">${shown.name}</p>`}
        ${
          shown !== null &&
          "error" in shown &&
          html`<p class="row import-error">
            <${Icon} name="bad" /><span>${t(shown.error.key, shown.error.values)}</span>
          </p>`
        }
      </div>
      ${
        result !== null &&
        html`<${Preview}
          t=${t}
          sound=${sound}
          result=${result}
          wantsTrim=${wantsTrim}
          onWantsTrim=${setWantsTrim}
        />`
      }
      <div class="row">
        <button type="button" class="button" onClick=${() => sound.ask(null)}>${t("import.cancel")}</button>
        <button
          type="button"
          class="button primary"
          disabled=${isPending || (setting === null && preampDb === null)}
          onClick=${use}
        >
          ${useText}
        </button>
      </div>
    </div>
  <//>`;
}
