// Validates files against the official schema of CycloneDX 1.5, without additional properties. Prints each error.
// Usage: node validate.js FILE...
"use strict";
const fs = require("fs");
const { Validation } = require("@cyclonedx/cyclonedx-library");

async function main(files) {
    const validator = new Validation.JsonStrictValidator("1.5");
    for (const file of files) {
        const errors = await validator.validate(fs.readFileSync(file, "utf8"));
        if (errors !== null) {
            errors.forEach((error) => console.error(`${file}: ${error.instancePath}: ${error.message}`));
            process.exitCode = 1;
        }
    }
}

main(process.argv.slice(2)).catch((error) => {
    console.error(error);
    process.exitCode = 1;
});
