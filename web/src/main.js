// The script of every page: draws the page that the document names.
import { openAdvancedPage } from "./pages/advanced.js";
import { openHelpPage } from "./pages/help.js";
import { openSoundPage } from "./pages/sound.js";
import style from "./style.css";

const pages = { index: openSoundPage, advanced: openAdvancedPage, help: openHelpPage };

document.head.append(Object.assign(document.createElement("style"), { textContent: style }));
pages[/** @type {keyof typeof pages} */ (document.documentElement.dataset.page)]();
