/**
 * The shapes that the model's modules share. Documents of the service are typed as they should be; every reader checks
 * what it takes, because a document may have missing members or members of other types.
 *
 * Times are milliseconds since 1970, as Date.now() gives them.
 *
 * @typedef {"en" | "zh"} Language
 *
 * ---- documents of the service ----
 *
 * @typedef {object} StatusDocument answer of GET /api/v1/status; members that the model reads
 * @property {{available: boolean, volume: number, muted: boolean, error_code: number}} render
 * @property {{bypass: boolean, bypass_all: boolean, enhance_strength: number}} footstep
 * @property {boolean} control_bridge_available
 * @property {EffectReport} apo_diagnostics
 * @property {{elevated: boolean, clsid_registered: boolean, protected_audio_dg_disabled: boolean,
 *   apo_dll_present: boolean, algorithm_present: boolean, apo_dll_path: string, render_clsid: string}} apo_host
 * @property {{running: boolean, process_id: number, apo_loaded: boolean, algorithm_loaded: boolean,
 *   apo_module_path: string, error_code: number}} audio_engine
 * @property {{endpoint_id: string, bound: boolean, fx_key_present: boolean, error_code: number,
 *   chain: string[]}} apo_binding
 *
 * @typedef {object} EffectReport
 * @property {boolean} available
 * @property {number} initialize_stage
 * @property {number} initialize_hresult signed
 * @property {number} lock_stage
 * @property {number} lock_hresult signed
 * @property {number} lock_count
 * @property {number} last_algorithm_error
 * @property {boolean} applied_valid
 * @property {boolean} applied_bypass
 * @property {boolean} applied_bypass_all
 * @property {number} applied_strength
 * @property {number} total_processed_blocks of the whole machine
 *
 * @typedef {object} DevicesDocument answer of GET /api/v1/devices
 * @property {PlaybackDevice[]} render
 * @property {Device[]} capture
 * @property {string} default_render_endpoint_id
 * @property {string} default_capture_endpoint_id
 * @property {string} selected_render_endpoint_id
 * @property {string} selected_capture_endpoint_id
 * @property {number} error_code signed; 0 for none
 *
 * @typedef {object} Device
 * @property {string} id
 * @property {string} name
 * @property {boolean} is_default
 * @property {boolean} is_selected
 * @property {number} peak 0 to 1
 * @property {string[]} sessions programs that play or record
 *
 * @typedef {Device & {apo_bound: boolean}} PlaybackDevice
 *
 * @typedef {object} EqualizerDocument answer of GET /api/v1/render/effects/eq
 * @property {boolean} bypass
 * @property {number} fade_ms
 * @property {{type: number, freq_hz: number, gain_db: number, q: number}[]} bands
 *
 * ---- what the page knows besides ----
 *
 * @typedef {object} Link how the page reaches the service; client_queue.js makes it
 * @property {"first" | "answering" | "waiting" | "gone" | "refused" | "noToken"} state
 *   first: the first looks are not complete; waiting: a request has had no answer for more than a second;
 *   gone: the service cannot be reached; refused: it answered 401; noToken: the address has no token
 * @property {number} since when this state began; for waiting, when the oldest unanswered request was sent
 *
 * @typedef {object} Action the last add, remove or restart; null before the first
 * @property {"add" | "remove" | "restart"} kind a restart is an add to a device that already has the effect
 * @property {string} endpointId
 * @property {boolean} restartsAudio whether a restart of Windows audio was asked for
 * @property {number} startedAt
 * @property {number | null} endedAt null while it is under way
 * @property {ActionResult | null} result null while it is under way
 * @property {boolean} [hadEffect] whether the device had the effect before it; not given where that is not known
 * @property {EngineMark} [engine] the engine before it
 *
 * @typedef {object} ActionResult
 * @property {number} status of HTTP; 0 when no answer came
 * @property {string} error the service's error text; empty for none
 * @property {boolean} audioRestarted
 * @property {number} restartError signed; 0 for none
 * @property {string} restartDetail the service's text
 *
 * @typedef {object} Memory what verdict() takes as its memory
 * @property {Kept} kept
 * @property {Observation | null} seen null: judge by the two status documents and the device list only
 *
 * @typedef {object} Kept what the page keeps in browser storage; memory.js reads and writes it
 * @property {Record<string, string>} added names of the devices that were seen with the effect, by id; a device that
 *   the person removed the effect from is not in it
 * @property {EngineMark | null} engine the engine before the last add or remove that restarted audio
 * @property {RestartMark | null} restartPending an add without a restart
 * @property {{processId: number, endpointIds: string[]} | null} removalPending devices from which the effect was removed
 *   without a restart, and the process of the engine that ran then and may still have the effect
 * @property {LastSettings | null} lastSettings
 * @property {number | null} lastStrength the last strength above 0
 * @property {boolean} comparing the person pressed "Hear the original" on this page
 * @property {Language | null} language the person's choice
 * @property {PresetRef | null} preset the chosen one
 * @property {EqualizerDocument | null} unsent an equalizer setting that the page showed and could not send
 * @property {Matching | null} matching
 * @property {[preset: string, trim: number][]} trims the output trim, in decibels, that was set when a preset was saved
 * @property {Tie[]} ties the newest last
 * @property {boolean} offersTies
 * @property {string | null} chosenDevice the device that was the chosen one when a preset was last offered
 * @property {string | null} offeredDevice the device whose preset is offered and not yet answered
 *
 * @typedef {object} Tie a preset that the person uses with a device
 * @property {string} id of the device
 * @property {string} device its name
 * @property {string} preset
 * @property {boolean} starter
 *
 * @typedef {object} EngineMark
 * @property {number} processId 0: no engine ran, or it was unknown
 * @property {boolean} known whether the processes could be listed
 * @property {number} lockCount streams that the effect had locked
 * @property {"add" | "remove" | "restart"} kind
 * @property {string} endpointId
 *
 * @typedef {EngineMark & {effectLoaded?: boolean | undefined}} EngineBefore with whether the engine had loaded the effect
 *
 * @typedef {object} RestartMark
 * @property {string} endpointId
 * @property {number} processId of the engine at that time; 0: none ran
 *
 * @typedef {object} PresetRef the preset that was loaded or saved last
 * @property {string} name of the service's preset, or of a starter in presets.js
 * @property {boolean} starter
 * @property {EqualizerDocument} saved its setting, as it was then
 *
 * @typedef {object} Matching the output trim while two settings are compared at one loudness
 * @property {number} trimBefore in decibels; to be put back
 * @property {number} trimDb what was set in its place
 *
 * @typedef {object} LastSettings
 * @property {{bypass: boolean, bypass_all: boolean, enhance_strength: number}} footstep
 * @property {string} preset name of the chosen preset; empty for none
 * @property {boolean} [starter] the name is that of a starter
 * @property {boolean} presetChanged the bands have been edited since the preset was loaded or saved
 * @property {EqualizerDocument | null} equalizer
 *
 * @typedef {object} Observation what the page has seen since it was opened or shown; observation.js makes it
 * @property {unknown} now the last status document
 * @property {number} nowAt
 * @property {unknown} before the one before it; null when there is none or it is too old to compare
 * @property {number} beforeAt
 * @property {unknown} devices
 * @property {number} devicesAt
 * @property {unknown} equalizer
 * @property {Record<string, number>} peaks when each playback device last had a peak above 0
 * @property {number | null} soundSince since when the chosen device has had sound without a break
 * @property {number | null} differsSince since when the effect's report has differed from the settings
 * @property {number | null} stillSince since when the block count has not moved
 * @property {number | null} worksSince since when each verdict has been "works"
 * @property {number | null} checkingSince since when each verdict has been "checking"
 * @property {{id: string, name: string} | null} chosen the chosen device when it was last in the list
 *
 * ---- the verdict ----
 *
 * @typedef {object} Sentence a text of the language tables
 * @property {string} key
 * @property {Values} values
 *
 * @typedef {Record<string, unknown>} Values raw values by placeholder; a value may itself be a Sentence
 *
 * @typedef {object} Button
 * @property {"retryRestart" | "retryChange" | "add" | "addLater" | "addAgain" | "restart" | "unmute" | "turnOn" | "stopBypassing"
 *   | "backToVelmora" | "setStrength" | "copyReport" | "useDevice" | "openHelp"} id
 * @property {string} key
 * @property {Values} values what the request needs, and what the label shows
 *
 * @typedef {object} Check one line of the evidence
 * @property {"installed" | "added" | "engine" | "loaded" | "processing" | "applied"} id
 * @property {"yes" | "no" | "unknown"} state
 * @property {Sentence} text
 * @property {Record<string, unknown>} raw the members of the documents that it rests on
 *
 * @typedef {"expired" | "gone" | "checking" | "waiting" | "restarting" | "restartFailed" | "notInstalled"
 *   | "fileMissing" | "noDevice" | "deviceGone" | "noEffects" | "needsAdmin" | "refused" | "goneAgain" | "notAdded"
 *   | "restartPending" | "removalPending" | "engineKept" | "muted" | "off" | "bypassed" | "original" | "strengthZero" | "couldNotStart"
 *   | "severalDevices" | "otherDevice" | "ready" | "works" | "unclear"} VerdictId
 *
 * @typedef {object} Verdict
 * @property {VerdictId} id
 * @property {"good" | "warning" | "bad" | "neutral"} tone
 * @property {Sentence} headline
 * @property {Sentence} detail
 * @property {Button[]} buttons at most two
 * @property {"shown" | "dimmed" | "hidden"} controls what happens to the page's controls
 * @property {Check[]} evidence
 * @property {number} [since] for "works": since when
 */

export {};
