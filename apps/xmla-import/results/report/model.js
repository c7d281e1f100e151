// The result, and what can be computed from it.

const nothing = { hierarchies: [], measures: [], sapVariables: [], errors: [], warnings: [] };

/** True for a warning that servers cause in almost every cube, and that needs no action: a note. */
const isNote = text => text.startsWith("[62012] ");

/** True for a line that adds to the error before it. */
const completesAnError = text => /^(the failed request was|the server says:) /.test(text);

/** Adds to each cube its address in this page, its notes, its dimensions and its counts. */
function prepare(result, about) {
  if (about.command === "diff") return { cubes: [], diff: result, errors: result.errors, warnings: result.warnings };
  const cubes = about.command === "cube" ? [result] : result.cubes;
  const addresses = new Map();
  for (const cube of cubes) {
    Object.entries(nothing).forEach(([key, value]) => (cube[key] = cube[key] || value));
    const address = "#/cube/" + [cube.dataSource, cube.catalog, cube.cube].map(encodeURIComponent).join("/");
    const before = addresses.get(address) || 0;
    addresses.set(address, before + 1);
    cube.address = before === 0 ? address : `${address}/~${before + 1}`;
    cube.notes = cube.warnings.filter(isNote);
    cube.warnings = cube.warnings.filter(text => !isNote(text));
    cube.dimensions = dimensionsOf(cube);
    cube.counts = countsOf(cube);
    cube.isEmpty = cube.hierarchies.length + cube.measures.length + cube.sapVariables.length === 0;
  }
  const own = about.command === "cube" ? nothing : result;
  return { cubes, provider: result.provider || null, errors: own.errors, warnings: own.warnings, notes: [] };
}

/** The hierarchies of each dimension, both in the server's order. */
function dimensionsOf(cube) {
  const dimensions = new Map();
  for (const hierarchy of cube.hierarchies) {
    const name = hierarchy.dimensionUniqueName;
    if (!dimensions.has(name)) dimensions.set(name, { name, kind: hierarchy.dimensionType, hierarchies: [] });
    dimensions.get(name).hierarchies.push(hierarchy);
  }
  return [...dimensions.values()];
}

function countsOf(cube) {
  let levels = 0;
  let properties = 0;
  for (const hierarchy of cube.hierarchies) {
    levels += hierarchy.levels.length;
    for (const level of hierarchy.levels) properties += level.memberProperties.length;
  }
  return {
    dimensions: cube.dimensions.length, hierarchies: cube.hierarchies.length, levels, properties,
    measures: cube.measures.length, variables: cube.sapVariables.length,
    errors: cube.errors.length, warnings: cube.warnings.length,
  };
}

const countNames = {
  dimensions: ["dimension", "dimensions"], hierarchies: ["hierarchy", "hierarchies"], levels: ["level", "levels"],
  properties: ["property", "properties"], measures: ["measure", "measures"], variables: ["variable", "variables"],
};

function countsText(counts) {
  const parts = Object.entries(countNames).filter(([key]) => counts[key] > 0)
    .map(([key, names]) => counted(counts[key], ...names));
  return parts.join(", ") || "no hierarchies and no measures";
}

function stateOf(cube) {
  if (cube.errors.length === 0) return { word: "complete", mark: "✓" };
  return cube.isEmpty ? { word: "not read", mark: "✗" } : { word: "incomplete", mark: "!" };
}

function hierarchyAddress(cube, hierarchy) {
  return `${cube.address}/hierarchy/${encodeURIComponent(hierarchy.externalName)}`;
}

/** The word for an enumerator. A code without an enumerator is a number in the result. */
function wordOf(enumerator) {
  if (typeof enumerator === "number") return `code ${enumerator}`;
  const entry = words[enumerator];
  if (entry) return entry[0];
  return enumerator.startsWith("kDimension") ? "" : enumerator; // an ordinary dimension has no word
}

function explained(enumerator) {
  const entry = words[enumerator];
  return make("span", { title: entry ? entry[1] : null }, wordOf(enumerator));
}

const unknown = -1;
const defaultLength = 128;
const textTypes = ["VXCharData", "VXVarCharData", "VXLongVarCharData"];

/** The data type with precision and scale, in the words of the text format. */
function typeOf(unit) {
  const type = typeof unit.type === "number" ? `code ${unit.type}` : unit.type.replace(/^VX/, "").replace(/Data$/, "");
  const { precision, scale } = unit;
  const isScaleUnknown = scale === unknown;
  const isPrecisionUnknown = precision === unknown || (isScaleUnknown && precision === 65535);
  const isDefault = precision === defaultLength;
  if (isPrecisionUnknown && (isScaleUnknown || scale === 0)) return type + "(?)";
  if (isDefault && (isScaleUnknown || scale === 0)) return type;
  if (precision === 0 && scale === 0 && textTypes.includes(unit.type)) return type + "(no limit)";
  const first = isPrecisionUnknown || isDefault ? "?" : precision;
  return `${type}(${first}${scale === 0 ? "" : isScaleUnknown ? ", ?" : ", " + scale})`;
}

// What a message is about, by its number.
const messageKinds = {
  46066: "Reading was cancelled",
  46100: "A reply could not be read",
  62010: "The server is of another kind than configured",
  62011: "Virtual hierarchies were skipped",
  62012: "Hierarchies of measures were skipped: measures are listed separately",
  62013: "Hierarchies with an unsupported structure were skipped",
  64203: "The server refused a request",
};

/** Groups messages by kind: [{title, lines: [{text, cube}]}], the largest group first. */
function messageGroups(key) {
  const groups = new Map();
  const add = (text, cube) => {
    const found = /^\[(\d+)\]/.exec(text);
    const title = (found && messageKinds[found[1]]) || "Other messages";
    if (!groups.has(title)) groups.set(title, { title, lines: [] });
    groups.get(title).lines.push({ text, cube });
  };
  for (const text of model[key]) add(text, null);
  for (const cube of model.cubes) for (const text of cube[key]) add(text, cube);
  return [...groups.values()].sort((a, b) => b.lines.length - a.lines.length);
}
