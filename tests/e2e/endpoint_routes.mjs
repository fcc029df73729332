// The endpoint routes: what is asked of them and what they answer.
import { answerBytes, devicesDocument, jsonDocument, refusalBytes } from "./harness.mjs";

/** @typedef {import("./harness.mjs").Service} Service */

export const devices = "/api/v1/devices";
export const renderChoice = "/api/v1/devices/render";
export const captureChoice = "/api/v1/devices/capture";
export const volume = "/api/v1/render/volume";
export const mute = "/api/v1/render/mute";

export const noId = refusalBytes(400, "Bad Request", "endpoint_id must be a non-empty string");
export const noSuchEndpoint = refusalBytes(404, "Not Found", "active endpoint not found for this direction");
export const notSelected = refusalBytes(503, "Service Unavailable", "Windows endpoint selection failed");
export const noVolume = refusalBytes(503, "Service Unavailable", "Windows endpoint volume update failed");
export const noMute = refusalBytes(503, "Service Unavailable", "Windows endpoint mute update failed");

/** @param {any} found */
export const listAnswer = (found) => answerBytes(200, "OK", jsonDocument, devicesDocument(found));
/** @param {Service} service */
export const list = (service) => service.ask("GET", devices);
// The id goes out byte by byte, as it is given.
/** @param {Service} service @param {string} route @param {any} id */
export const choose = (service, route, id) => service.ask("PUT", route, JSON.stringify({ endpoint_id: id }));
/** @param {Service} service @param {any} level */
export const setVolume = (service, level) => service.ask("PUT", volume, `{"volume":${level}}`);
/** @param {Service} service @param {any} muted */
export const setMute = (service, muted) => service.ask("PUT", mute, `{"muted":${muted}}`);
