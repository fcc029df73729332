// Volume, and every device with its level, its programs and whether the effect is on it.
import { devicesFacts } from "../model/facts.js";
import { percent, plainName, shortDeviceName } from "../model/format.js";
import { heldPeak, noPeak } from "../model/peak_hold.js";
import { programFile } from "../model/programs.js";
import { resultSentence } from "../model/reasons.js";
import { html } from "../view.js";
import { Slider } from "./controls.js";

/**
 * @typedef {import("../view.js").Translate} Translate
 * @typedef {import("../app/sound_actions.js").Sound} Sound
 * @typedef {import("../app/session.js").Session} Session
 * @typedef {import("../model/facts.js").DeviceFacts} DeviceFacts
 */

/**
 * @param {Translate} t
 * @param {string[]} sessions
 */
function programNames(t, sessions) {
  const names = sessions.map((name) => {
    const [, id] = /^pid (\d+)$/.exec(name) ?? [];
    if (id !== undefined) return t("devices.unnamedProgram", { id });
    return name === "system" ? t("devices.systemSounds") : plainName(programFile(name));
  });
  return [...new Set(names)];
}

/** @param {{label: string, peak: number | undefined, held: number}} props */
function Meter({ label, peak = 0, held }) {
  const shown = Math.min(1, Math.max(0, peak));
  return html`<div
    class="meter"
    role="meter"
    aria-label=${label}
    aria-valuemin="0"
    aria-valuemax="1"
    aria-valuenow=${shown}
    aria-valuetext=${percent(shown)}
  >
    <span style=${`width: ${shown * 100}%`}></span>
    ${held > 0 && html`<i style=${`left: ${held * 100}%`}></i>`}
  </div>`;
}

/**
 * @param {{t: Translate, sound: Sound, device: DeviceFacts, kind: "device" | "microphone", isChosen: boolean,
 *   name: string}} props
 */
function DeviceRow({ t, sound, device, kind, isChosen, name }) {
  const { id, isDefault, peak, sessions, hasEffect } = device;
  const programs = programNames(t, sessions);
  const held = heldPeak(sound.view.holds.get(id) ?? noPeak, Date.now());
  const isPlayback = kind === "device";
  const [some, none] = isPlayback
    ? ["devices.playing", "devices.nothingPlays"]
    : ["devices.recording", "devices.nothingRecords"];
  const effectKey = hasEffect ? "devices.withEffect" : "devices.withoutEffect";
  return html`<li data-device=${id}>
    <div class="what">
      <h4><bdi>${name}</bdi></h4>
      <p class="muted tags">
        ${isChosen && html`<b>${t("devices.chosen")}</b>`}
        ${isDefault && html`<span>${t("devices.default")}</span>`}
        ${isPlayback && hasEffect !== undefined && html`<span>${t(effectKey)}</span>`}
      </p>
      <${Meter} label=${t("devices.peak", { device: name })} peak=${peak} held=${held} />
      <p class="muted"><bdi>${programs.length > 0 ? t(some, { programs }) : t(none)}</bdi></p>
    </div>
    <div class="row">
      ${
        !isChosen &&
        html`<button
          type="button"
          class="button"
          aria-label=${t("devices.choose", { device: name })}
          onClick=${() => sound.choose(kind, id)}
        >
          ${t("devices.chooseShort")}
        </button>`
      }
      ${
        isPlayback &&
        hasEffect === true &&
        html`<button
          type="button"
          class="button"
          aria-label=${t("devices.removeFrom", { device: name })}
          onClick=${() => sound.ask({ kind: "remove", endpointId: id, name })}
        >
          ${t("devices.remove")}
        </button>`
      }
      ${
        isPlayback &&
        hasEffect === false &&
        html`<button
          type="button"
          class="button"
          aria-label=${t("devices.addTo", { device: name })}
          onClick=${() => sound.ask({ kind: "add", endpointId: id, name })}
        >
          ${t("devices.add")}
        </button>`
      }
    </div>
  </li>`;
}

/** @param {{t: Translate, sound: Sound, kind: "device" | "microphone", devices: DeviceFacts[], chosen: string}} props */
function DeviceList({ t, sound, kind, devices, chosen }) {
  const title = kind === "device" ? "devices.playback" : "devices.microphones";
  const none = kind === "device" ? "devices.none" : "devices.noMicrophone";
  return html`<section aria-labelledby=${`list-${kind}`}>
    <h3 id=${`list-${kind}`}>${t(title)}</h3>
    ${devices.length === 0 && html`<p class="muted">${t(none)}</p>`}
    <ul class="devices">
      ${devices.map(
        (device) =>
          html`<${DeviceRow}
            key=${device.id}
            t=${t}
            sound=${sound}
            kind=${kind}
            device=${device}
            name=${plainName(device.name)}
            isChosen=${device.id === chosen}
          />`,
      )}
    </ul>
  </section>`;
}

/** @param {{t: Translate, sound: Sound, session: Session}} props */
export function DevicesCard({ t, sound, session }) {
  const { playback, microphones, errorCode } = devicesFacts(session.state.seen.devices);
  const chosenId = sound.chosenDevice();
  const chosen = playback.find(({ id }) => id === chosenId);
  const name =
    chosen === undefined
      ? ""
      : shortDeviceName(
          chosen.name,
          playback.map((device) => device.name),
        );
  const { volume, muted } = sound.sound();
  const programs = programNames(
    t,
    (chosen?.sessions ?? []).filter((one) => one !== "system"),
  );
  const facts = [
    name && t("devices.volumeSummary", { device: name, volume }),
    muted && t("devices.muted"),
    programs.length > 0 && t("devices.playing", { programs }),
  ];
  const isOpen = sound.view.devicesAreOpen;
  // A machine without a microphone, or without a default device, is listed whole.
  const isIncomplete = errorCode !== undefined && errorCode !== 0 && errorCode !== (0x80070490 | 0);
  return html`<details
    class="card"
    open=${isOpen}
    onToggle=${(/** @type {{currentTarget: HTMLDetailsElement}} */ { currentTarget }) =>
      sound.unfold("devicesAreOpen", currentTarget.open)}
  >
    <summary>
      <h2>${t("devices.title")}</h2>
      <span class="muted"><bdi>${facts.filter(Boolean).join(" · ")}</bdi></span>
    </summary>
    ${
      isOpen &&
      html`
        <div class="volume">
          <${Slider}
            label=${t("devices.volume")}
            name="volume"
            value=${volume}
            format=${percent}
            disabled=${volume === undefined}
            onInput=${sound.setVolume}
          />
          <label class="choice">
            <input
              type="checkbox"
              name="mute"
              checked=${muted === true}
              disabled=${muted === undefined}
              onChange=${(/** @type {{currentTarget: HTMLInputElement}} */ { currentTarget }) =>
                sound.setMuted(currentTarget.checked)}
            />
            ${t("devices.mute")}
          </label>
        </div>
        ${isIncomplete && html`<p class="bad-text">${t("devices.trouble", { result: resultSentence(errorCode) })}</p>`}
        <${DeviceList} t=${t} sound=${sound} kind="device" devices=${playback} chosen=${chosenId} />
        ${chosen !== undefined && html`<p class="muted">${t("devices.pinned", { device: name })}</p>`}
        <${DeviceList}
          t=${t}
          sound=${sound}
          kind="microphone"
          devices=${microphones}
          chosen=${sound.chosenMicrophone()}
        />
      `
    }
  </details>`;
}

/**
 * The choice of the playback device in the header.
 *
 * @param {{t: Translate, sound: Sound, session: Session}} props
 */
export function DeviceSelect({ t, sound, session }) {
  const { playback, selectedId } = devicesFacts(session.state.seen.devices);
  const chosen = sound.chosenDevice();
  if (playback.length === 0 && !selectedId) return null;
  const isGone = chosen !== "" && playback.every(({ id }) => id !== chosen);
  const { added } = session.state.kept;
  const goneName = Object.hasOwn(added, chosen) ? added[chosen] : "";
  return html`<select
    class="device"
    aria-label=${t("header.device")}
    onChange=${(/** @type {{currentTarget: HTMLSelectElement}} */ { currentTarget }) =>
      sound.choose("device", currentTarget.value)}
  >
    ${
      isGone &&
      html`<option key="gone" value=${chosen} selected>
        ${t("header.deviceGone", { device: plainName(goneName || t("header.unknownDevice")) })}
      </option>`
    }
    ${playback.map(
      ({ id, name }) =>
        html`<option key=${id} value=${id} selected=${id === chosen}>${plainName(name)}</option>`,
    )}
  </select>`;
}
