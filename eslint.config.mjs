// The rules of all JavaScript: tests, tools and pages. Prettier formats it; TypeScript checks its types (tsconfig.json).
import { readFileSync } from "node:fs";

import js from "@eslint/js";
import globals from "globals";

const ignored = readFileSync(new URL(".prettierignore", import.meta.url), "utf8")
  .split("\n")
  .filter((line) => line !== "" && !line.startsWith("#"));

// Field names of the API's documents are data. A variable that holds such a field may have its name.
const apiFields = [
  "algorithm_loaded",
  "apo_diagnostics",
  "apo_host",
  "bypass_all",
  "displaced_machine",
  "endpoint_id",
  "error_code",
  "fade_ms",
  "is_selected",
  "process_id",
  "usage_seconds",
];

export default [
  { ignores: ignored },
  js.configs.recommended,
  {
    languageOptions: { ecmaVersion: 2022, sourceType: "module" },
    linterOptions: { reportUnusedDisableDirectives: "error" },
    rules: {
      "array-callback-return": "error",
      camelcase: ["error", { properties: "never", ignoreDestructuring: true, allow: apiFields }],
      "default-case-last": "error",
      eqeqeq: "error",
      "no-constructor-return": "error",
      "no-else-return": "error",
      "no-self-compare": "error",
      "no-template-curly-in-string": "error",
      "no-throw-literal": "error",
      "no-unneeded-ternary": "error",
      "no-unused-vars": ["error", { args: "after-used", caughtErrors: "all" }],
      "no-useless-rename": "error",
      "no-useless-return": "error",
      "no-var": "error",
      "object-shorthand": "error",
      "prefer-const": "error",
      "prefer-template": "error",
    },
  },
  { files: ["**/*.mjs"], languageOptions: { globals: globals.node } },
  // A browser test has parts that run in the page.
  {
    files: ["web/**", "tests/browser/**", "benchmarks/*.mjs"],
    languageOptions: { globals: globals.browser },
  },
];
