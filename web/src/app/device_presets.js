// Offers the preset that a person uses with a device when that device becomes the chosen one.
import { devicesFacts } from "../model/facts.js";
import { shortDeviceName } from "../model/format.js";
import { shownName } from "../model/presets.js";
import { endOffer, isOf, offeredTie, takeChosenDevice, tie, tieOf } from "../model/ties.js";

/**
 * @typedef {import("./session.js").Session} Session
 * @typedef {import("./equalizer_actions.js").Equalizer} Equalizer
 * @typedef {import("./preset_actions.js").Presets} Presets
 */

/**
 * @param {Session} session
 * @param {Equalizer} equalizer
 * @param {Presets} presets
 */
export function createDevicePresets(session, equalizer, presets) {
  const { state } = session;

  session.watchers.add((kind) => {
    const device = kind === "devices" ? chosen() : undefined;
    if (device !== undefined) session.keep(takeChosenDevice(state.kept, device, equalizer.preset()));
  });

  /** The chosen device, where it is connected. */
  function chosen() {
    const { playback, selectedId } = devicesFacts(state.seen.devices);
    const device = playback.find(({ id }) => id === selectedId);
    return device === undefined ? undefined : { id: device.id, name: device.name };
  }

  /** @param {{name: string, starter: boolean}} preset */
  const label = ({ name, starter }) => (starter ? { key: `starter.${name}`, values: {} } : shownName(name));

  /** Whether the chosen preset is the one for the chosen device. */
  function isTied() {
    const device = chosen();
    const found = device === undefined ? null : tieOf(state.kept.ties, device);
    return found !== null && isOf(found, equalizer.preset());
  }

  return {
    /** @returns {{preset: unknown, device: string} | null} what is offered, in words */
    offer() {
      const device = chosen();
      const offered = device === undefined ? null : offeredTie(state.kept, device, equalizer.preset());
      if (device === undefined || offered === null) return null;
      const { preset: name, starter } = offered;
      const { isListed, names } = presets.view;
      if (!starter && (!isListed || !names.includes(name))) return null;
      return { preset: label({ name, starter }), device: nameOf(device) };
    },
    /** @param {boolean} wanted */
    answer(wanted) {
      const device = chosen();
      const answered = device === undefined ? null : offeredTie(state.kept, device, equalizer.preset());
      session.keep(endOffer(state.kept));
      if (!wanted || answered === null) return;
      if (answered.starter) presets.useStarter(answered.preset);
      else presets.use(answered.preset);
    },
    /** @returns {{device: string, isTied: boolean} | null} null where no preset or no device is chosen */
    tied() {
      const device = chosen();
      if (device === undefined || equalizer.preset() === null) return null;
      return { device: nameOf(device), isTied: isTied() };
    },
    /** Ties the chosen preset to the chosen device, or unties it. */
    toggle() {
      const device = chosen();
      const preset = equalizer.preset();
      if (device === undefined || preset === null) return;
      session.begin();
      const key = isTied() ? "tie.removed" : "tie.added";
      session.keep(tie(state.kept, device, isTied() ? null : preset));
      session.say("info", key, { preset: label(preset), device: nameOf(device) });
    },
    offers: () => state.kept.offersTies,
    /** Switches the offers on or off. */
    toggleOffers() {
      session.begin();
      session.keep({ ...endOffer(state.kept), offersTies: !state.kept.offersTies });
    },
  };

  /** @param {{name: string}} device */
  function nameOf({ name }) {
    return shortDeviceName(
      name,
      devicesFacts(state.seen.devices).playback.map((one) => one.name),
    );
  }
}

/** @typedef {ReturnType<typeof createDevicePresets>} DevicePresets */
