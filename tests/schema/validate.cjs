// Validates documents against the schemas of docs/schema.
//
//     node validate.cjs VALIDATOR_FOLDER SCHEMA_FOLDER [--damage] < LINES
//
// Each line of standard input is {"schema": NAME, "call": TEXT, "document": TEXT}; instead of "document", "file" names
// a file with the text. The schema "any" accepts a document
// of any command. Prints a line for each invalid document, and ends with status 1 if there is one. With --damage, the
// documents are valid; each is changed in many places, by removing a key or adding one, and every change must be
// rejected.
"use strict";
const crypto = require("crypto");
const fs = require("fs");
const path = require("path");

const [validatorFolder, schemaFolder, mode] = process.argv.slice(2);
const { Ajv2020 } = require(path.resolve(validatorFolder, "node_modules/ajv/dist/2020.js"));

const ajv = new Ajv2020({ strict: true, allErrors: false });
const names = fs.readdirSync(schemaFolder).filter((name) => name.endsWith(".json"));
for (const name of names) {
  const schema = JSON.parse(fs.readFileSync(path.join(schemaFolder, name), "utf8"));
  if (!ajv.validateSchema(schema)) throw new Error(name + ": " + ajv.errorsText());
  ajv.addSchema(schema);
}
const documents = names.filter((name) => name !== "records.json" && name !== "import-lines.json");
ajv.addSchema({ $id: "any.json", anyOf: documents.map((name) => ({ $ref: name })) });

let failures = 0;
let checks = 0;
let tooLong = 0;
function fail(entry, reason) {
  ++failures;
  if (failures <= 20) console.log(`${entry.schema}: ${reason}: ${entry.call}`);
}

function objectsOf(value, found = []) {
  if (value === null || typeof value !== "object") return found;
  if (!Array.isArray(value)) found.push(value);
  for (const member of Object.values(value)) objectsOf(member, found);
  return found;
}

function damage(entry, document, validate) {
  // Equal objects are tried once.
  const seen = new Set();
  for (const object of objectsOf(document)) {
    const keys = Object.keys(object);
    if (seen.has(keys.join())) continue;
    seen.add(keys.join());
    for (const key of keys) {
      const former = object[key];
      delete object[key];
      ++checks;
      if (validate(document)) fail(entry, `accepts a document without the key "${key}"`);
      object[key] = former;
      object[key] = { wrong: former };
      ++checks;
      if (validate(document)) fail(entry, `accepts another type for the key "${key}"`);
      object[key] = former;
    }
    object.another = "";
    ++checks;
    if (validate(document)) fail(entry, `accepts an additional key beside "${keys[0]}"`);
    delete object.another;
  }
  if (!validate(document)) fail(entry, "the undamaged document is invalid");
}

// Longer documents differ from shorter ones only in the number of their elements.
const maxBytes = 32 << 20;

function* entries() {
  const known = new Set();
  for (const line of fs.readFileSync(0, "utf8").split("\n")) {
    if (line === "") continue;
    const entry = JSON.parse(line);
    if (entry.file !== undefined) {
      if (fs.statSync(entry.file).size > maxBytes) {
        ++tooLong;
        continue;
      }
      entry.document = fs.readFileSync(entry.file, "utf8");
    }
    // A file has all lines of an import.
    const texts = entry.file !== undefined && entry.schema === "import-lines"
      ? entry.document.split("\n").filter((text) => text !== "") : [entry.document];
    for (const document of texts) {
      const hash = crypto.createHash("sha256").update(entry.schema).update(document).digest("hex");
      if (known.has(hash)) continue;
      known.add(hash);
      yield { schema: entry.schema, call: entry.call, document };
    }
  }
}

for (const entry of entries()) {
  const validate = ajv.getSchema(entry.schema + ".json");
  if (!validate) {
    fail(entry, "there is no such schema");
    continue;
  }
  let document;
  try {
    document = JSON.parse(entry.document);
  } catch (error) {
    fail(entry, "not a JSON document");
    continue;
  }
  if (mode === "--damage") {
    damage(entry, document, validate);
    continue;
  }
  ++checks;
  if (!validate(document)) fail(entry, ajv.errorsText(validate.errors));
}
console.log(`${checks} checks, ${failures} failures, ${tooLong} documents too long`);
process.exit(failures > 0 ? 1 : 0);
