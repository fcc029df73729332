// The texts of the Help page in English. Titles of verdicts, errors and results are those that the pages show, in en.js.
// A text whose key ends in "steps" has a line for each step.
/** @type {Record<string, string>} */
export const helpEn = {
  "help.intro": "Search for a sentence that Velmora showed you, or pick a topic.",
  "help.contents": "Contents",
  "help.find": "Find a sentence you saw",
  "help.findHint": "Words or a whole message, in English or Chinese",
  "help.found": "Entries found: {count}",
  "help.foundNone": "Nothing found. Try fewer words, or look through the contents.",
  "help.showAll": "Show everything",
  "help.cause": "Why",
  "help.remedy": "What to do",
  "help.sent": "Velmora's control service sends:",
  "help.forms": "Also shown as:",
  "help.more": "More about this",
  "help.whatIsThis": "What does this mean?",
  "help.newTab": "(opens another tab)",
  "help.sample.device": "Speakers",
  "help.sample.otherDevice": "the other device",
  "help.see.refused": "Steps for a device that refuses changes",

  // ---- first sound ----
  "help.start": "First sound in five steps",
  "help.start.steps":
    "In Velmora's folder, double-click start.cmd; if Velmora is already running, double-click stop.cmd first. Answer y when the window asks whether to start as administrator. Adding Velmora to a device needs these rights; listening does not.\nYour browser opens the page. If it does not, open the address shown after “Open:” in the Velmora window.\nOn the Sound page, check the device at the top. It must be the one that you listen on.\nChoose Add and restart audio. Sound stops for a few seconds in all programs.\nPlay something and switch Velmora on. The first line then says “You are hearing Velmora”. Press O to hear the difference.",
  "help.start.text":
    "Do this once. The first line of the Sound page always says what is missing; “More about this” beside it leads to the explanation here.",

  // ---- controls ----
  "help.controls": "What each control does",
  "help.controls.sound": "Sound page",
  "help.controls.equalizer": "Sound page: equalizer",
  "help.controls.devices": "Sound page: volume and devices",
  "help.controls.advanced": "Advanced page",
  "help.hear": "The first line",
  "help.hear.text":
    "It says whether you hear Velmora. If you don't, it names the one thing to do. “How do you know?” shows what that rests on. It can say yes only while sound plays on the chosen device.",
  "help.device": "Device, at the top",
  "help.device.text":
    "The playback device that Velmora works with. At first it is the Windows default. Choosing another one changes nothing in Windows or in other programs, and holds until Velmora ends.",
  "help.enhancement": "Velmora On or Off",
  "help.enhancement.text":
    "Switches the enhancement. The equalizer has its own switch. If the strength is 0 %, switching on sets it to its last value, or to 50 %.",
  "help.strength": "Strength",
  "help.strength.text": "How much of the enhancement you hear, from 0 % (none) to 100 %.",
  "help.original": "Hear the original",
  "help.original.text":
    "Lets the sound through unchanged, without enhancement and equalizer, until you press it again. The key O does the same.",
  "help.lastSettings": "Use your last settings",
  "help.lastSettings.text":
    "The effect forgets its settings when the PC restarts. This browser keeps your last ones and offers them here. Nothing changes until you choose this button.",
  "help.language": "Language",
  "help.language.text": "Switches the pages between English and Chinese. This browser remembers your choice.",
  "help.equalizer": "Equalizer On or Off",
  "help.equalizer.text":
    "Switches the 15 bands. The first edit or preset switches the equalizer on if it is off.",
  "help.curve": "Curve",
  "help.curve.text":
    "Shows what the equalizer does from 20 Hz to 20 kHz. Each dot is a band in use. Drag a dot sideways for the frequency and up or down for the gain. Hold Shift, or turn the wheel over the dot, to change Q. Double-click a dot to flatten its band. The faint second curve is what you compare with.",
  "help.bands": "Fields of a band",
  "help.bands.text":
    "Type is the shape, such as a peak or a shelf. Frequency is where it acts, gain how much it lifts or lowers, and Q how narrow it is. Fields take a number, with or without its unit. An empty or impossible field goes back to its last value.",
  "help.addBand": "Add band, Flatten",
  "help.addBand.text":
    "Add band puts the next free band into use. Flatten sets a band back, so that it changes nothing.",
  "help.clip": "“May clip”",
  "help.clip.text":
    "The curve and the output trim together go above full scale, so loud sound may distort. Lower the output by the amount that is offered, or switch the limiter on.",
  "help.undo": "Undo and redo",
  "help.undo.text":
    "Take back equalizer changes, presets and imports one by one, and bring them back. A drag is one step. The steps last until you reload or close the page.",
  "help.compare": "A and B",
  "help.compare.text":
    "Two equalizer settings to compare. Edit one, switch to the other, and listen. The key C switches between them.",
  "help.loudness": "Same loudness for A and B",
  "help.loudness.text":
    "The louder setting often seems better. This lowers the louder one through the output trim and says by how much. The trim goes back when you switch it off.",
  "help.presets": "Presets",
  "help.presets.text":
    "Equalizer settings under a name. The first ones are part of the page. Saving one makes a copy of your own. Revert goes back to what was saved. Rename and Delete work on your own presets; a deleted preset can be brought back until you do something else. Before anything is replaced, the page asks. Names may have letters, digits, spaces, - and _; upper and lower case make no difference. This browser remembers the output trim that belongs to a preset. Under More, “Keep for …” ties a preset to the chosen device: the page offers it when you choose that device again. Reset to flat can be undone.",
  "help.import": "Import",
  "help.import.text":
    "Takes an equalizer setting from a file or from text: Velmora's own form, parametric filters, or a GraphicEQ line. A preview shows the curve and every line that is not used, with the reason. Nothing changes until you choose Use this setting.",
  "help.export": "Export",
  "help.export.text":
    "Saves the setting as a file or copies it: in Velmora's own form, or as text for other equalizers. The page lists what the text cannot carry.",
  "help.volume": "Volume and mute",
  "help.volume.text":
    "Windows' own volume and mute of the chosen device, for all programs. Changes made elsewhere show here too.",
  "help.devices": "Playback devices",
  "help.devices.text":
    "Every connected device with its level, the programs that play on it, and whether Velmora is added to it. “Use here” makes it the device that Velmora works with.",
  "help.add": "Add to this device, Remove from this device",
  "help.add.text":
    "Adding makes Windows run Velmora on the device. Removing undoes that. Both need administrator rights and take effect when Windows audio restarts: at once, or later if you choose so.",
  "help.restart": "Restart audio",
  "help.restart.text":
    "Windows reads the effects of a device when its audio starts. Restarting stops all sound for a few seconds, recordings and calls too. The page names the programs that play and asks first.",
  "help.microphones": "Microphones",
  "help.microphones.text":
    "Connected microphones with their level, for information. Velmora does not change what they record.",
  "help.outputTrim": "Output trim",
  "help.outputTrim.text":
    "Makes everything after the effect louder or quieter, from -60 to +20 dB. 0 dB changes nothing.",
  "help.maskTime": "Time smoothing",
  "help.maskTime.text":
    "From 0 to 0.95. Higher values make the enhancement calmer and slower; lower ones let it follow the sound faster.",
  "help.maskFrequency": "Frequency smoothing",
  "help.maskFrequency.text":
    "Evens out the enhancement between neighbouring frequencies. It sounds softer and less sharply cut.",
  "help.limiter": "Limiter",
  "help.limiter.text": "Holds peaks below the ceiling, so that loud sound does not distort.",
  "help.limiterCeiling": "Limiter ceiling",
  "help.limiterCeiling.text": "The level that the limiter lets nothing exceed, from -12 to 0 dB.",
  "help.stereoLink": "Stereo link",
  "help.stereoLink.text":
    "How left and right are treated together: three modes, 0, 1 and 2. What each mode does is up to the effect's algorithm; choose by ear.",
  "help.fade": "Equalizer fade",
  "help.fade.text":
    "How long the equalizer takes to move to a new setting, from 1 to 200 ms. Longer is smoother.",
  "help.captures": "Captures",
  "help.captures.text":
    "Records the sound at four points inside the effect, to find faults. Choose a length and start while sound plays. Stop ends it early. Export writes four WAV files in place of the last ones. Download puts them into one ZIP file; while it runs, Velmora answers nothing else.",
  "help.diagnostics": "Diagnostics",
  "help.diagnostics.text":
    "Everything that Velmora knows about the effect, its installation, Windows audio and the chosen device. Use it to look for a fault.",
  "help.report": "Copy report",
  "help.report.text":
    "Copies the first line, versions, devices and values, so that you can send them to somebody who helps you. It contains no password and no link.",
  "help.account": "Account",
  "help.account.text":
    "At the end of the Advanced page, if Velmora was started with an account service. Register, or sign in by user name or QR code. Only one device can be signed in at a time: a sign-in on another one ends the session here. Velmora starts signed out.",
  "help.account.primary": "Free the primary computer",
  "help.account.primary.text":
    "An account has one primary computer. Free it before you move to another PC, then sign in there. The session here goes on.",
  "help.account.referrer": "Referrer",
  "help.account.referrer.text":
    "If somebody referred you, enter their ID once. The field disappears when a referrer is set. Your own ID and invitation link are for others to use.",

  // ---- verdicts ----
  "help.verdicts": "What the first line says",
  "help.verdict.expired.cause":
    "Each start of Velmora makes a new link, and only the newest works. An old bookmark or a tab from yesterday has an old one.",
  "help.verdict.expired.remedy":
    "Double-click start.cmd: it opens the page of the Velmora that is running. Or open the address shown after “Open:” in the Velmora window. A bookmark of it works only until Velmora ends.",
  "help.verdict.gone.cause": "The Velmora window was closed, or the program has ended.",
  "help.verdict.gone.remedy":
    "Double-click start.cmd: it starts Velmora again and opens the page. Sound that plays keeps its effect meanwhile.",
  "help.verdict.checking.cause": "The page has just been opened, or two answers do not fit together yet.",
  "help.verdict.checking.remedy": "Wait a few seconds. If it stays, reload the page.",
  "help.verdict.waiting.cause":
    "Velmora does one thing at a time, and something has kept it busy for more than a second: another page, another program, an audio restart, a download, or the account service.",
  "help.verdict.waiting.remedy":
    "Wait a moment. After 10 seconds, close other browser tabs and programs that use Velmora. If that does not help, start Velmora again.",
  "help.verdict.restarting.cause":
    "An add, a remove or a restart is under way. Windows stops its audio services and starts them again.",
  "help.verdict.restarting.remedy":
    "Wait. It usually takes a few seconds. At worst, Windows audio takes 20 seconds, and each service that depends on it 10 more. Do not close the Velmora window meanwhile: Windows audio would stay stopped.",
  "help.verdict.restartFailed.cause":
    "The change was made, but Windows did not stop or start its audio. The message has the reason that Windows gave.",
  "help.verdict.restartFailed.remedy":
    "Choose Try again. If there is no sound at all, restart the PC: the change then takes effect too.",
  "help.verdict.notInstalled.cause":
    "Windows does not know the effect. It was never installed, or it was uninstalled.",
  "help.verdict.notInstalled.remedy": "Run Velmora's installer again, then reload the page.",
  "help.verdict.fileMissing.cause":
    "A file of the effect was deleted, moved or put into quarantine by a virus scanner.",
  "help.verdict.fileMissing.remedy":
    "Look at your virus scanner's list of blocked files. Then run Velmora's installer again.",
  "help.verdict.noDevice.cause": "Windows has no playback device that is connected and enabled.",
  "help.verdict.noDevice.remedy":
    "Connect speakers or headphones. If they are connected, open Settings, System, Sound in Windows and enable them. The page notices by itself.",
  "help.verdict.deviceGone.cause":
    "The device was unplugged, switched off, or disabled in Windows. Wireless headphones may be out of range.",
  "help.verdict.deviceGone.remedy": "Connect it again, or choose another device at the top of the page.",
  "help.verdict.noEffects.cause":
    "The device's driver does not support effects. This is so with some virtual and some wireless devices.",
  "help.verdict.noEffects.remedy":
    "Choose another device. A newer driver from the device's maker may support effects.",
  "help.verdict.needsAdmin.cause":
    "Windows lets only administrators change the effects of a device, and Velmora was started without these rights.",
  "help.verdict.needsAdmin.remedy":
    "Double-click stop.cmd, then start.cmd, and answer y when the window asks whether to start as administrator. Try again on the page that opens. If you have no administrator's password, ask the person who looks after the PC.",
  "help.verdict.refused.cause":
    "Velmora has administrator rights, but Windows still refuses the change: the device's settings belong to the system, a security program guards them, or the device has just gone.",
  "help.verdict.refused.remedy":
    "Check that the device is connected and try again. If it is refused again, follow the steps for a device that refuses changes.",
  "help.verdict.goneAgain.cause":
    "This browser has seen Velmora on the device before. Something has removed it since: often a driver update, sometimes Windows or another sound program.",
  "help.verdict.goneAgain.remedy":
    "Choose Add again. If it happens after every start, look for a program of the device's maker that manages its sound.",
  "help.verdict.notAdded.cause": "Velmora is installed, but not added to this device yet.",
  "help.verdict.notAdded.remedy":
    "Choose Add and restart audio. If you are in a call or record something, choose Add, restart later.",
  "help.verdict.restartPending.cause": "Velmora was added, and Windows audio has not restarted since.",
  "help.verdict.restartPending.remedy":
    "Choose Restart audio when a pause of a few seconds does no harm. Restarting the PC does the same.",
  "help.verdict.engineKept.cause":
    "Windows audio was restarted, but it still works with the effects that it had before.",
  "help.verdict.engineKept.remedy": "Restart the PC, then play something.",
  "help.verdict.muted.cause": "The device is muted in Windows, or its volume is 0 %.",
  "help.verdict.muted.remedy": "Choose Unmute. From a volume of 0 %, it sets 20 %.",
  "help.verdict.off.cause": "Both the enhancement and the equalizer are off.",
  "help.verdict.off.remedy": "Choose Turn on, or switch the equalizer on.",
  "help.verdict.bypassed.cause":
    "Another page or program lets the sound through unchanged. Your settings are kept.",
  "help.verdict.bypassed.remedy": "Choose Stop bypassing.",
  "help.verdict.original.cause": "You pressed Hear the original, or the key O.",
  "help.verdict.original.remedy": "Choose Back to Velmora, or press O again.",
  "help.verdict.strengthZero.cause":
    "The enhancement is on at strength 0 %, where it changes nothing, and the equalizer is off.",
  "help.verdict.strengthZero.remedy": "Choose Set to 50 %, or move the strength slider.",
  "help.verdict.couldNotStart.cause":
    "Sound plays on the device, but not through Velmora as set. The line below names the reason; each has an entry here.",
  "help.verdict.couldNotStart.remedy":
    "Stop the sound, wait a few seconds and play again. If that does not help, restart Windows audio, then the PC. If it stays, choose Copy report and pass it on.",
  "help.verdict.severalDevices.cause":
    "Sound plays on several devices with Velmora. The effect counts for all of them together.",
  "help.verdict.severalDevices.remedy": "Play on one device only.",
  "help.verdict.otherDevice.cause":
    "Sound plays, but not on the device that is chosen here. Windows or the program has chosen another one.",
  "help.verdict.otherDevice.remedy":
    "Choose Use {device} here. Or choose the wanted device in Windows or in the program that plays.",
  "help.verdict.ready.cause": "Everything is set up, and no sound plays on the device.",
  "help.verdict.ready.remedy":
    "Play something. If you hear sound and it still says this, the sound plays past Windows' mixer or on a device that Windows does not list.",
  "help.verdict.works.cause":
    "Sound plays on the device, goes through Velmora, and your settings are applied.",
  "help.verdict.works.remedy":
    "Nothing. If you hear no difference, press O to compare, raise the strength, or try a preset.",
  "help.verdict.unclear.cause":
    "A part of what Velmora needs to know could not be read. The line below says which part.",
  "help.verdict.unclear.remedy":
    "Open “How do you know?” to see what is known. Reload the page. If it stays, start Velmora again as administrator.",
  "help.verdict.removalPending.cause":
    "Velmora was removed from the device, and Windows audio has not restarted since. What was already loaded may go on working.",
  "help.verdict.removalPending.remedy":
    "Choose Restart audio when a pause of a few seconds does no harm. Restarting the PC does the same. To keep Velmora on the device, choose Add again.",

  // ---- why it could not start ----
  "help.reasons": "Why Velmora could not start",
  "help.reason.engine.cause":
    "Windows plays sound through audiodg.exe, which does not run. Some programs play past it.",
  "help.reason.engine.remedy":
    "In the program that plays, switch off exclusive or direct output. Then stop and start the sound.",
  "help.reason.notLoaded.cause":
    "Windows has not loaded Velmora for this sound. Enhancements may be switched off for the device, or Windows does not accept the effect's file.",
  "help.reason.notLoaded.remedy":
    "In Windows, open Settings, System, Sound, the device, and switch audio enhancements on. Then stop and start the sound. If that does not help, run Velmora's installer again.",
  "help.reason.algorithmNotLoaded.cause":
    "fse.dll or its data could not be loaded. The equalizer works without it, the enhancement does not.",
  "help.reason.algorithmNotLoaded.remedy": "Run Velmora's installer again, then restart Windows audio.",
  "help.reason.initialize.cause": "Windows started the effect, and the effect reported a failure.",
  "help.reason.initialize.remedy":
    "Look up the code in brackets below. Restart Windows audio. If it stays, run Velmora's installer again.",
  "help.reason.format.cause": "The device runs in a format that the effect does not take.",
  "help.reason.format.remedy":
    "In Windows, open the device's properties, Advanced, and choose another format, such as 24 bit, 48000 Hz. Switch spatial sound off to try.",
  "help.reason.lock.cause": "The effect was started, but could not get ready for this sound.",
  "help.reason.lock.remedy":
    "Stop and start the sound, then restart Windows audio. If it stays, try another format in the device's properties.",
  "help.reason.algorithm.cause":
    "The enhancement itself reports an error. The number is for those who look for the fault.",
  "help.reason.algorithm.remedy":
    "Stop and start the sound. If it comes back, choose Copy report and pass it on.",
  "help.reason.differs.cause":
    "The effect works with other settings than those on the page. It may belong to another version.",
  "help.reason.differs.remedy":
    "Change the strength once. If it stays, restart Windows audio. If Velmora was updated, restart the PC.",
  "help.reason.notApplied.cause": "The effect runs, but has not said that it uses any settings.",
  "help.reason.notApplied.remedy":
    "Stop and start the sound, then restart Windows audio. If Velmora was updated, restart the PC.",
  "help.reason.still.cause":
    "The device plays, but the effect counts no sound. The program may play in exclusive mode, past all effects.",
  "help.reason.still.remedy":
    "In the program that plays, switch off exclusive or direct output. Then stop and start the sound.",
  "help.reason.hangs.cause": "The effect has begun to start and has not finished.",
  "help.reason.hangs.remedy": "Restart Windows audio. If it stays, restart the PC.",

  // ---- errors ----
  "help.errors": "Error messages",
  "help.errors.use": "Pages and settings",
  "help.errors.presets": "Presets",
  "help.errors.import": "Importing",
  "help.errors.captures": "Captures",
  "help.errors.devices": "Devices and volume",
  "help.errors.change": "Adding, removing and restarting",
  "help.errors.account": "Account",
  "help.error.invalidRequest.cause":
    "The request was incomplete or too large. Another program or a browser extension may have changed it.",
  "help.error.invalidRequest.remedy":
    "Reload the page and try again. If it stays, open the page in a private window without extensions.",
  "help.error.token.cause": "Velmora was started again since this link was made.",
  "help.error.token.remedy": "Open the address shown after “Open:” in the Velmora window.",
  "help.error.origin.cause": "The page was opened under another name or through another web page.",
  "help.error.origin.remedy":
    "Open the address exactly as the Velmora window shows it. It works on this PC only.",
  "help.error.route.cause": "Velmora was updated, and this page is from the version before.",
  "help.error.route.remedy": "Reload the page.",
  "help.error.range.cause":
    "A value is outside what the effect takes. The page does not send such values; another program or an old page has.",
  "help.error.range.remedy": "Reload the page and set the value again. Nothing has changed.",
  "help.error.bands.cause":
    "The equalizer setting is not complete. Another program has sent it, or its file was edited by hand.",
  "help.error.bands.remedy":
    "Reload the page. If it is a preset, save it again from the page. Nothing has changed.",
  "help.error.record.cause": "Velmora and the effect share a piece of memory, and it is not open.",
  "help.error.record.remedy": "Start Velmora again, as administrator.",
  "help.error.presetName.cause":
    "The name has a character that Velmora does not allow, a space at an end, or is too long. A Chinese character counts as 3 of 64 bytes.",
  "help.error.presetName.remedy": "Use letters, digits, spaces, - and _, and a shorter name.",
  "help.error.noPreset.cause":
    "The preset was deleted or renamed in another tab or in its folder, or its file is empty.",
  "help.error.noPreset.remedy": "Choose another preset. To keep the present setting, save it.",
  "help.error.presetFile.cause":
    "Windows did not let Velmora write the file: the folder is protected, the disk is full, or the name is reserved.",
  "help.error.presetFile.remedy":
    "Try another name. Then check the free space, and whether you may write to the presets' folder. A security program may guard it.",
  "help.error.noCapture.cause": "There are no exported files, or one of the four is missing.",
  "help.error.noCapture.remedy":
    "Start a capture while sound plays, export it, and wait until the files are ready.",
  "help.error.captureUnreadable.cause":
    "The effect is still writing, another program holds the file, or Velmora may not read it.",
  "help.error.captureUnreadable.remedy":
    "Wait a moment and download again. If it stays, close programs that have the file open, and export again.",
  "help.error.captureLarge.cause": "A file is larger than 4 GiB, which the ZIP file cannot hold.",
  "help.error.captureLarge.remedy": "Make a shorter capture, or copy the file from its folder.",
  "help.error.captureChanged.cause": "The effect wrote the file while Velmora read it.",
  "help.error.captureChanged.remedy": "Wait until the export is complete, then download again.",
  "help.error.deviceId.cause": "No device is chosen, and Windows has no default.",
  "help.error.deviceId.remedy": "Connect a device, then choose it at the top of the page.",
  "help.error.deviceMissing.cause": "The device was unplugged, switched off or disabled.",
  "help.error.deviceMissing.remedy": "Connect it again, or choose another one.",
  "help.error.deviceChoice.cause": "Windows could not list its devices, often while one is connecting.",
  "help.error.deviceChoice.remedy": "Wait a few seconds and choose the device again.",
  "help.error.volume.cause":
    "The device has gone, or its driver does not let Windows set its volume or mute.",
  "help.error.volume.remedy": "Check that it is connected. Otherwise use the buttons on the device.",
  "help.error.chainLocked.cause":
    "Velmora has no administrator rights; or the device's settings belong to the system or are guarded; or the device takes no effects.",
  "help.error.chainLocked.remedy":
    "Double-click stop.cmd, then start.cmd, and answer y when the window asks whether to start as administrator. If Velmora has these rights already, follow the steps for a device that refuses changes.",
  "help.error.chainUnreadable.cause":
    "The list of the device's effects is damaged or written in another form, by a driver or another program. It was left as it is, or the change could not be checked.",
  "help.error.chainUnreadable.remedy": "Reinstall the driver of the device, restart the PC and try again.",
  "help.error.chainUnwritable.cause":
    "Windows let Velmora open the device's settings but not change them. A security program may guard them.",
  "help.error.chainUnwritable.remedy":
    "Pause or set up the guarding program, or follow the steps for a device that refuses changes.",
  "help.error.chainReverted.cause":
    "The change was written, and another program changed it back at once: a sound manager of the device's maker, or a security program.",
  "help.error.chainReverted.remedy":
    "Close that program and try again. Add Velmora before you start it again.",
  "help.error.notPlayback.cause": "The chosen device is a microphone, or its ID is damaged.",
  "help.error.notPlayback.remedy": "Choose speakers or headphones.",
  "help.error.managerClosed.cause": "Velmora may not manage Windows' services.",
  "help.error.managerClosed.remedy":
    "Start Velmora as administrator, or restart the PC: the change takes effect then too.",
  "help.error.audioLocked.cause":
    "Velmora has no administrator rights, or the Windows audio service is not installed.",
  "help.error.audioLocked.remedy": "Start Velmora as administrator and choose Try again. Or restart the PC.",
  "help.error.audioKeepsRunning.cause":
    "Windows refused to stop its audio: another service depends on it, or it is just starting or stopping.",
  "help.error.audioKeepsRunning.remedy": "Wait half a minute and choose Try again. Or restart the PC.",
  "help.error.audioStopsSlowly.cause": "Windows audio took longer than 10 seconds to stop.",
  "help.error.audioStopsSlowly.remedy":
    "Close programs that play or record, then choose Try again. If there is no sound, restart the PC.",
  "help.error.audioNotStarted.cause": "Windows audio stopped and could not be started.",
  "help.error.audioNotStarted.remedy":
    "Choose Try again. If there is no sound, restart the PC. The result in the message says why.",
  "help.error.audioStartsSlowly.cause": "Windows audio took longer than 10 seconds to start.",
  "help.error.audioStartsSlowly.remedy":
    "Wait half a minute: it may be running already. If there is no sound, choose Try again or restart the PC.",
  "help.error.accountFields.cause": "A field is empty.",
  "help.error.accountFields.remedy": "Fill in the field and try again.",
  "help.error.accountState.cause": "The page lost track of the sign-in.",
  "help.error.accountState.remedy": "Begin the sign-in again.",
  "help.error.accountSignIn.cause": "Nobody is signed in here, or the session has ended in the meantime.",
  "help.error.accountSignIn.remedy": "Sign in, then try again.",
  "help.error.accountMissing.cause": "Velmora was started without the address of an account service.",
  "help.error.accountMissing.remedy":
    "Velmora works without an account. To use one, start it with --account-service and the address.",
  "help.error.accountAddress.cause": "The address behind --account-service is not complete.",
  "help.error.accountAddress.remedy":
    "Start Velmora with an address that begins with https://. Check it with the account's provider.",
  "help.error.accountUnreachable.cause":
    "The account service did not answer in time, or the network, a proxy or a firewall is in the way. The number is the system's.",
  "help.error.accountUnreachable.remedy":
    "Check that other pages open in the browser. Check the PC's date and time. Try again in a few minutes.",
  "help.error.accountStatus.cause":
    "The account service refused without giving a reason. The number is its status: 401 and 403 concern name and password, 429 means too many attempts, 500 and above a fault on its side.",
  "help.error.accountStatus.remedy":
    "Check what you entered. From 429 on, wait some minutes before you try again.",
  "help.error.accountActionRefused.cause":
    "The account service did not do it and gave no reason. The number is its status.",
  "help.error.accountActionRefused.remedy":
    "Check the ID if you entered one. Sign in again and try once more.",
  "help.error.accountUnreadable.cause":
    "Something other than the expected answer came: from a sign-in page of a hotel network, a wrong address, or a fault of the account service.",
  "help.error.accountUnreadable.remedy":
    "Open any page in the browser to see whether the network asks for a sign-in. Then try again.",
  "help.error.accountElsewhere.cause":
    "Only one device can be signed in. Your sign-in here ends the session on the other one.",
  "help.error.accountElsewhere.remedy":
    "Nothing. If you do not know the other device, change the account's password.",

  // ---- what the pages say when something fails ----
  "help.message.notDone.cause": "The part after the colon is the reason.",
  "help.message.notDone.remedy":
    "Search here for the part after the colon. If there is none, reload the page and try again. If it stays, choose Copy report and pass it on.",
  "help.message.unsent.cause": "Velmora did not answer when the change was made: it was busy or had stopped.",
  "help.message.unsent.remedy":
    "Choose Use it now to send it, or Discard it. If Velmora has stopped, double-click start.cmd.",
  "help.message.changedElsewhere.cause":
    "The equalizer is open in another tab, or another program changes it.",
  "help.message.changedElsewhere.remedy": "Nothing. To avoid this, change the equalizer in one page only.",
  "help.message.notKept.cause":
    "The browser does not let this page store anything. Private windows and some settings for cookies do that.",
  "help.message.notKept.remedy":
    "Open the page in a normal window, and allow site data for 127.0.0.1 in the browser's settings. Everything else works without it.",
  "help.message.copyByHand.cause": "The browser refused access to the clipboard.",
  "help.message.copyByHand.remedy":
    "Select the text and press Ctrl+C. To avoid this, allow the clipboard for 127.0.0.1 in the browser's settings.",
  "help.message.presetWriting.cause":
    "Velmora could not write, read back or delete the preset's file. Another program uses it, it is write-protected, or the control service did not answer.",
  "help.message.presetWriting.remedy":
    "Close programs that use the presets' folder, such as an editor or a backup, and check that the file is not write-protected. Then try again. If the preset is saved under two names, delete the one that you do not need.",
  "help.message.presetNaming.cause":
    "A preset is a file, and Windows does not allow every name. A name needs at least one character and at most 64 bytes, has no space at its ends, and is none that Windows reserves, such as NUL or COM1.",
  "help.message.presetNaming.remedy": "Use letters, digits, spaces, - and _, and a shorter name.",
  "help.message.presetListing.cause":
    "Velmora could not read the presets' folder, or did not answer. The part after the colon is the reason.",
  "help.message.presetListing.remedy":
    "Choose Try again. If it stays, check that the presets' folder exists and that you may read it.",
  "help.message.presetReading.cause":
    "The preset's file is empty, damaged, or holds something other than an equalizer setting. Another program may have written it.",
  "help.message.presetReading.remedy":
    "Choose another preset. To use this name again, save the present setting under it.",
  "help.message.presetForeign.cause":
    "Another program or person has put this file into the presets' folder, under a name that presets cannot have.",
  "help.message.presetForeign.remedy":
    "Rename the file in the presets' folder: letters, digits, spaces, - and _, and 64 bytes at most.",
  "help.message.presetGone.cause":
    "The preset was deleted or renamed in another tab, by another program or in its folder.",
  "help.message.presetGone.remedy": "To keep the present setting, save it. Otherwise choose another preset.",
  "help.message.importFile.cause":
    "The page takes one file or one text at a time. A file must be text, such as .txt or .json, and 1 MiB at most.",
  "help.message.importFile.remedy":
    "Choose another file. If it opens in a text editor, copy the text and paste it here.",
  "help.message.importNothing.cause":
    "The text has no line that the import knows, or its JSON is damaged or not a setting of the equalizer.",
  "help.message.importNothing.remedy":
    "Export the setting again from the program that it comes from, as parametric filters or as a GraphicEQ line. For JSON, use a file that Velmora has exported.",
  "help.message.importLines.cause":
    "The reason is beside each line: the import does not know the line, a value in it is missing or outside its range, or the equalizer has no room for it. All other lines are used.",
  "help.message.importLines.remedy":
    "Look at the preview. If the lines matter, correct them in the text; the preview follows. Otherwise choose Use this setting.",
  "help.message.captureSilent.cause":
    "The effect runs only while sound plays on a device with Velmora, and it takes commands only then.",
  "help.message.captureSilent.remedy":
    "Play something on a device with Velmora until the first line says “You are hearing Velmora”. Keep it playing while you record and export.",
  "help.message.captureMissing.cause":
    "The effect did not write all four files. No sound went through it, the disk is full, or it writes to another folder than the one that Velmora reads.",
  "help.message.captureMissing.remedy":
    "Play something on a device with Velmora and export again. Check the free disk space. If that does not help, start Velmora without --capture-directory.",
  "help.message.captureGone.cause":
    "The files were ready, and since then at least one was deleted, moved or changed: by a person, another program or another export.",
  "help.message.captureGone.remedy":
    "Put the files back and wait: the page looks again each second. Or choose Export again while the effect still has the recording.",
  "help.message.captureOld.cause":
    "The export did not remove the earlier files, most likely because a program has them open.",
  "help.message.captureOld.remedy": "Close programs that use the files, such as a player, and export again.",
  "help.message.captureElsewhere.cause":
    "The effect serves all pages and programs. One of them has started, stopped or exported a recording.",
  "help.message.captureElsewhere.remedy":
    "If the recording is yours, export it here. Otherwise wait until the other one is finished: a new recording replaces it.",
  "help.message.captureBroken.cause":
    "Velmora or the browser ended the download before it was complete. Nothing was kept, so that no damaged file is left.",
  "help.message.captureBroken.remedy":
    "Choose Download again. If it breaks off each time, export again, or copy the files from their folder.",
  "help.message.captureUnwritable.cause":
    "The disk is full, the folder is write-protected, or the drive was removed.",
  "help.message.captureUnwritable.remedy": "Free some space or choose another folder, then download again.",
  "help.message.devicesTrouble.cause":
    "Windows did not report every device, often while one is connecting. The code in brackets says why.",
  "help.message.devicesTrouble.remedy":
    "Wait a few seconds: the page looks again. If it stays, search here for the code, and restart Windows audio.",
  "help.message.accountOver.cause":
    "Nobody confirmed the sign-in within the time allowed, ten minutes at most.",
  "help.message.accountOver.remedy":
    "Sign in again, or choose Get a new code, and confirm it on your phone at once.",
  "help.message.accountDenied.cause": "The sign-in was refused on the phone, or by the account service.",
  "help.message.accountDenied.remedy":
    "If you refused it by mistake, sign in again. If you did not begin it, change the account's password.",
  "help.message.accountIncomplete.cause":
    "The account service answered, but its answer was not usable: that is a fault of the account service.",
  "help.message.accountIncomplete.remedy":
    "Sign in by user name, or wait some minutes and try again. If it stays, ask the account's provider.",
  "help.message.accountEnded.cause":
    "Only one device can be signed in at a time. A sign-in on another device ended this session, or the session expired.",
  "help.message.accountEnded.remedy":
    "Sign in again to use the account here. If you do not know the other device, change the password.",

  // ---- results of Windows ----
  "help.results": "Windows error codes",
  "help.results.text":
    "Some messages end with an error code in brackets: a number such as 5, or a code that begins with 0x. Diagnostics and the report also show it as a long number with a minus sign. Search for any of these here.",
  "help.result.access.cause": "Windows refused access.",
  "help.result.access.remedy":
    "Start Velmora as administrator. If it is so already, a security program or the device's settings refuse it.",
  "help.result.missing.cause": "A device, a file or a setting was not there.",
  "help.result.missing.remedy":
    "Connect the device. If it is connected, reinstall its driver; for Velmora's own files, run its installer again.",
  "help.result.disk.cause":
    "A file or folder could not be written or found as named: it is write-protected, in use, the disk is full, or Windows does not take the name.",
  "help.result.disk.remedy": "Check the free space and the folder. Try another name.",
  "help.result.memory.cause": "The PC had too little free memory.",
  "help.result.memory.remedy": "Close some programs, or restart the PC.",
  "help.result.partial.cause": "Windows was just changing what Velmora read, or lets it see only a part.",
  "help.result.partial.remedy":
    "Nothing, if it passes: the page looks again. If it stays, start Velmora as administrator.",
  "help.result.setting.cause": "A setting in the registry is damaged or has another form than expected.",
  "help.result.setting.remedy": "Reinstall the driver of the device, then restart the PC.",
  "help.result.file.cause": "A program file is missing, damaged or made for another kind of Windows.",
  "help.result.file.remedy": "Run Velmora's installer again.",
  "help.result.signature.cause": "Windows could not confirm who made the file.",
  "help.result.signature.remedy":
    "Get Velmora's installer from its maker again and run it. Install the updates of Windows.",
  "help.result.busy.cause":
    "The service is just starting or stopping, or others that need it are still running.",
  "help.result.busy.remedy": "Wait half a minute and try again. Or restart the PC.",
  "help.result.slow.cause": "The service did not answer Windows in time. The PC may be very busy.",
  "help.result.slow.remedy": "Wait half a minute and try again. Or restart the PC.",
  "help.result.running.cause": "Something else had started the service already.",
  "help.result.running.remedy": "Play something. If there is no sound, try again.",
  "help.result.disabled.cause": "The Windows audio service, or one that it needs, is disabled.",
  "help.result.disabled.remedy":
    "As administrator, open Services in Windows. Set the startup type of Windows Audio to Automatic and start it. Do the same for the services on its tab Dependencies.",
  "help.result.dependency.cause":
    "A service that this one needs did not start. It may be disabled or damaged, or the PC may be very busy.",
  "help.result.dependency.remedy":
    "Restart the PC. If it stays, open Services in Windows as administrator, open Windows Audio, and look at its tab Dependencies: each service there must run and must not be disabled.",
  "help.result.uninstalled.cause": "A service is missing, damaged or about to be removed.",
  "help.result.uninstalled.remedy":
    "Restart the PC. If it stays, repair Windows through Settings, System, Recovery.",
  "help.result.stopped.cause": "The Windows audio service does not run.",
  "help.result.stopped.remedy": "Choose Restart audio, or restart the PC.",
  "help.result.crashed.cause": "The Windows audio service ended because of a fault.",
  "help.result.crashed.remedy":
    "Restart the PC. If it happens again right after Velmora was added, remove Velmora from the device and pass the report on.",
  "help.result.shutdown.cause": "The PC is about to shut down or restart.",
  "help.result.shutdown.remedy": "Wait until the PC has restarted, then try again.",
  "help.result.network.cause":
    "The account service could not be reached or answered with something else. The network, a proxy, a firewall, or a wrong date of the PC can be the reason.",
  "help.result.network.remedy":
    "Check that other pages open in the browser, and the PC's date and time. Try again in a few minutes.",
  "help.result.component.cause": "A part of the effect or of Windows audio is not registered with Windows.",
  "help.result.component.remedy": "Run Velmora's installer again, then restart the PC.",
  "help.result.unsupported.cause": "The device or its driver cannot do this.",
  "help.result.unsupported.remedy": "Update the driver, or choose another device.",
  "help.result.unspecified.cause":
    "Windows gave no further reason. After a restart of audio it means that it took longer than 10 seconds; after an add, that the change did not last.",
  "help.result.unspecified.remedy": "Wait half a minute and try again. Or restart the PC.",
  "help.result.pending.cause": "The effect has begun to start and has not finished.",
  "help.result.pending.remedy": "Wait a few seconds. If it stays, restart Windows audio.",
  "help.result.deviceKind.cause": "A microphone was used as a playback device, or the reverse.",
  "help.result.deviceKind.remedy": "Choose the device again.",
  "help.result.deviceLost.cause": "The device was unplugged, switched off, or its driver was updated.",
  "help.result.deviceLost.remedy": "Connect it again, or choose another device.",
  "help.result.format.cause": "The device and the effect could not agree on a format.",
  "help.result.format.remedy":
    "In Windows, open the device's properties, Advanced, and choose another format, such as 24 bit, 48000 Hz.",
  "help.result.exclusive.cause":
    "A program plays in exclusive mode. Windows then runs no effects for the device.",
  "help.result.exclusive.remedy": "In that program, switch off exclusive or direct output.",
  "help.result.stream.cause": "Windows audio was busy or not ready for this sound.",
  "help.result.stream.remedy": "Stop and start the sound. If that does not help, restart Windows audio.",
  "help.result.effect.cause":
    "Windows and the effect did not agree on how the effect is used. That is a fault of the effect or of the driver.",
  "help.result.effect.remedy":
    "Restart Windows audio, then the PC. If it stays, choose Copy report and pass it on.",

  // ---- a device that refuses changes ----
  "help.refused": "When a device refuses changes",
  "help.refused.text":
    "Go through these steps in order and stop as soon as adding works. They need an administrator. On a PC of your work or school, ask those who look after it.",
  "help.refused.steps":
    "Double-click stop.cmd, then start.cmd, and answer y when the window asks whether to start as administrator. On the page that opens, add Velmora again.\nClose sound managers of the device's maker and try again. If a security program reports that it blocked Velmora, allow it there.\nUpdate the device's driver through Windows Update or its maker's page. Restart the PC and try again.\nIf it is still refused, the settings of this device belong to the system, and administrators may only read them. An administrator can change that for this device, as below.",
  "help.refused.rights": "Permission for one device",
  "help.refused.rights.text":
    "This changes who may write to the settings of this device only. Change nothing else, give the permission to nobody but administrators, and take it back at the end.",
  "help.refused.rights.steps":
    "On the Advanced page, open Diagnostics and note the ID of the chosen device. You need its last part, with the braces.\nOpen Registry Editor (regedit) as administrator and go to {path}. Open the key with this last part, then its key FxProperties.\nChoose File, Export and save the selected branch. This file brings the settings back if anything goes wrong.\nRight-click FxProperties and choose Permissions, Advanced. Note what is listed.\nChoose Add, Select a principal, and enter Administrators. Under Show advanced permissions, tick Set Value. Leave all other entries as they are. Choose OK.\nIf Windows does not let you change this, close the window. The device's maker or the person who looks after the PC has to help.\nAdd Velmora on the Sound page.\nGo back to Permissions, Advanced and remove the entry that you added. To remove Velmora from the device later, repeat these steps.",

  // ---- removing ----
  "help.remove": "Remove everything",
  "help.remove.text":
    "First take Velmora off the devices, then uninstall it. The other way round, devices keep a reference to an effect that is gone.",
  "help.remove.steps":
    "Double-click stop.cmd, then start.cmd, and answer y when the window asks whether to start as administrator.\nOn the Sound page, open Volume and devices. Choose Remove from this device for every device with Velmora, and Remove, restart later for all but the last one. Connect devices that are not listed and remove it there too.\nLet Windows audio restart with the last one, or restart the PC.\nEnd Velmora: double-click stop.cmd. Not while Windows audio restarts.\nUninstall the effect in Windows: Settings, Apps, Installed apps.",
  "help.remove.stays": "What stays",
  "help.remove.stays.text":
    "Presets and captures stay in their folders until you delete them: {presets} and {captures}, unless Velmora was started with other folders. The registry keeps an empty key, {key}. The browser keeps your last settings for this page until you clear its site data for 127.0.0.1. Files that you downloaded stay where they are.",
  "help.remove.end": "Only end Velmora",
  "help.remove.end.text":
    "Double-click stop.cmd. Ctrl+C in the Velmora window, or closing it, does the same. These pages stop; the effect stays on your devices. When you start Velmora again, the page offers your last settings if the effect has lost them. Do not end it while Windows audio restarts: all sound would stay off until the PC restarts.",

  // ---- keys ----
  "help.keys": "Keys",
  "help.keys.text":
    "The keys O and C work anywhere on the Sound page, except while you write in a field or a question is open. The browser's own keys keep working.",
  "help.keys.key": "Key",
  "help.keys.does": "What it does",
  "help.keys.original": "Hear the original, and back",
  "help.keys.slot": "Switch between the equalizer settings A and B",
  "help.keys.undo": "Undo an equalizer change",
  "help.keys.redo": "Redo it",
  "help.keys.next": "To the next control; with Shift to the one before",
  "help.keys.press": "Press a button, flip a switch",
  "help.keys.enter": "Take over what is in a field",
  "help.keys.escape": "Cancel a drag, close a question, take back what was typed into a field",
  "help.keys.dotFrequency": "On a dot: lower or raise the frequency; with Shift in larger steps",
  "help.keys.dotGain": "On a dot: raise or lower the gain by 0.1 dB; with Shift by 1 dB",
  "help.keys.dotPage": "On a dot: raise or lower the gain by 3 dB",
  "help.keys.dotQ": "On a dot: make the band narrower or wider",
  "help.keys.dotFlat": "On a dot: flatten the band",
  "help.keys.dotType": "On a dot: the next type; with Shift the one before",

  // ---- privacy ----
  "help.privacy": "Privacy",
  "help.privacy.sends": "What Velmora sends",
  "help.privacy.sends.text":
    "Nothing leaves this PC, unless Velmora was started with an account service. The pages come from Velmora itself and load nothing from the internet. Only programs on this PC can reach Velmora.",
  "help.privacy.account": "With an account service",
  "help.privacy.account.text":
    "Velmora sends what you enter to sign in, register or name a referrer, and a fingerprint of this PC that cannot be turned back into its identifier. While you are signed in, it asks every few minutes whether the session still holds. When Velmora ends, it reports that too. With an address that begins with https:// this is encrypted; with http:// it can be read on the way. Neither Velmora nor the page keeps your password.",
  "help.privacy.browser": "What the browser keeps",
  "help.privacy.browser.text":
    "Your last settings, the chosen preset, output trims and presets that you keep for devices, the names of these devices and of those with Velmora, whether a restart is pending, when a recording began, and your language. No password and no account. The browser's history has the link; it is worthless once Velmora has ended.",
  "help.privacy.captures": "What captures contain",
  "help.privacy.captures.text":
    "All sound that was played on the device: music, videos, and the voices of others in a call. Captures start only when you start them. The four files stay on this PC until the next export or until you delete them. Listen to them before you pass them on.",
  "help.privacy.report": "What a report contains",
  "help.privacy.report.text":
    "Versions, values, and the names of your devices. Names of programs and presets are left out, and paths in a user's folder are cut. It contains no password, no link and no account. Velmora sends it to nobody: it is copied, and you decide who gets it.",
};
