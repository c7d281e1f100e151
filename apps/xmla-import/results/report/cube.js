// The page of one cube.

const unitColumns = [
  { title: "Name", value: unit => unit.name || unit.externalName, cell: unit => nameOf(unit.name || unit.externalName) },
  { title: "Name on the server", value: unit => unit.externalName, cell: unit => nameOf(unit.externalName) },
  { title: "Type", value: typeOf },
  {
    title: "Empty values", value: unit => (unit.nullable ? "allowed" : "not allowed"), onlyIf: unit => unit.nullable !== 1,
  },
];

const measureColumns = [
  ...unitColumns.slice(0, 2),
  { title: "Aggregation", value: unit => wordOf(unit.aggrType), cell: unit => explained(unit.aggrType) },
  ...unitColumns.slice(2),
];

const propertyColumns = [
  ...unitColumns,
  {
    title: "Attribute hierarchy", value: unit => unit.tamarindAttributeHierarchyName,
    cell: unit => unit.tamarindAttributeHierarchyName && nameOf(unit.tamarindAttributeHierarchyName),
    onlyIf: unit => unit.tamarindAttributeHierarchyName !== "",
  },
  { title: "Generation", value: unit => unit.tamarindGenerationNumber, onlyIf: unit => unit.tamarindGenerationNumber !== 0 },
  { title: "Kind of property", value: unit => unit.tamarindPropertyType, onlyIf: unit => unit.tamarindPropertyType !== 0 },
  {
    title: "Use", value: unit => wordOf(unit.dimPropType) || String(unit.dimPropType),
    onlyIf: unit => unit.dimPropType !== "kDimPropNone",
  },
];

const optionalName = key => ({ value: row => row[key], cell: row => row[key] && nameOf(row[key]), onlyIf: row => row[key] !== "" });

const variableColumns = [
  { title: "Caption", value: row => row.caption || row.name, cell: row => nameOf(row.caption || row.name) },
  { title: "Name on the server", value: row => row.name, cell: row => nameOf(row.name) },
  { title: "The user enters", value: row => wordOf(row.type), cell: row => explained(row.type) },
  { title: "How many", value: row => wordOf(row.selectionType), cell: row => explained(row.selectionType) },
  { title: "Required", value: row => wordOf(row.entryType), cell: row => explained(row.entryType) },
  { title: "Of dimension", ...optionalName("referenceDimension") },
  { title: "Of hierarchy", ...optionalName("referenceHierarchy") },
  { title: "Default", ...optionalName("defaultLow") },
  { title: "Default to", ...optionalName("defaultHigh") },
  { title: "Own default", ...optionalName("overrideDefaultLow") },
  { title: "Own default to", ...optionalName("overrideDefaultHigh") },
];

/** `part` is what to scroll to: "measures", "variables", or an external name of a hierarchy. */
function cubePage(cube, part) {
  const state = stateOf(cube);
  const page = make("div");
  const hierarchies = new Map();
  fill(page, {}, [
    make("h1", { tabindex: "-1" }, nameOf(cube.cube)),
    make("p", { class: "place" }, cube.dataSource ? ["Data source ", nameOf(cube.dataSource), ", catalog "] : "Catalog ",
      nameOf(cube.catalog), " ", badge(state)),
    make("p", {}, countsText(cube.counts)),
    messageBox("Errors: parts of this cube are missing", cube.errors, "error", true),
    messageBox("Warnings", cube.warnings, "warning", false),
    messageBox("Notes: nothing to do", cube.notes, "note", false)]);
  if (cube.hierarchies.length > 0) {
    page.append(drawing(cube), make("h2", {}, "Dimensions and hierarchies"), make("p", { class: "buttons" },
      make("button", { type: "button", click: () => setAll(true) }, "Expand all"),
      make("button", { type: "button", click: () => setAll(false) }, "Collapse all")));
    for (const dimension of cube.dimensions) {
      page.append(make("h3", {}, nameOf(dimension.name), " ", make("small", { title: (words[dimension.kind] || [])[1] || null }, wordOf(dimension.kind))));
      for (const hierarchy of dimension.hierarchies) {
        const details = hierarchyDetails(cube, hierarchy);
        if (!hierarchies.has(hierarchy.externalName)) hierarchies.set(hierarchy.externalName, details);
        page.append(details);
      }
    }
  }
  const sections = {};
  if (cube.measures.length > 0) {
    page.append(sections.measures = make("h2", { tabindex: "-1" }, "Measures"), table("Measures", measureColumns, cube.measures));
  }
  if (cube.sapVariables.length > 0) {
    page.append(sections.variables = make("h2", { tabindex: "-1" }, "Variables"), table("Variables", variableColumns, cube.sapVariables));
  }

  function setAll(isOpen) {
    page.querySelectorAll("details.hierarchy").forEach(details => (details.open = isOpen));
  }

  let target = null;
  if (part) {
    const details = part.hierarchy === undefined ? null : hierarchies.get(part.hierarchy);
    if (details) details.open = true;
    target = details ? details.querySelector("summary") : sections[part.section] || null;
  }
  return { title: cube.cube, content: [page], target };
}

function badge(state) {
  return make("span", { class: "badge " + state.word.replace(" ", "-") }, make("span", { "aria-hidden": "true" }, state.mark + " "), state.word);
}

function messageBox(title, lines, kind, isOpen) {
  if (lines.length === 0) return null;
  return make("details", { class: "messages " + kind, open: isOpen }, make("summary", {}, `${title} (${number(lines.length)})`),
    make("ul", {}, lines.slice(0, firstRows).map(line => make("li", {}, messageText(line)))),
    lines.length > firstRows ? make("p", {}, `${number(lines.length - firstRows)} more are in the result's other formats.`) : null);
}

/** The rows are made when the hierarchy is opened. */
function hierarchyDetails(cube, hierarchy) {
  const details = make("details", { class: "hierarchy" },
    make("summary", {}, make("strong", {}, nameOf(hierarchy.name || hierarchy.externalName)), " ",
      make("span", { class: "technical" }, nameOf(hierarchy.externalName)), " ",
      make("span", { class: "facts" }, explained(hierarchy.hierarchyType), ", ", explained(hierarchy.memberType), ", ",
        counted(hierarchy.levels.length, "level", "levels"))));
  details.addEventListener("toggle", () => {
    if (details.open) details.fillIn();
  });
  details.fillIn = () => {
    if (details.children.length > 1) return;
    details.append(make("p", { class: "link" }, make("a", { href: hierarchyAddress(cube, hierarchy) }, "Link to this hierarchy")));
    for (const [title, values] of [["Default member", [hierarchy.defaultMember]], ["Other names", hierarchy.alternateHierarchyNames],
      ["User-defined attributes", hierarchy.udas]]) {
      const given = values.filter(value => value !== "");
      if (given.length > 0) details.append(make("p", {}, title + ": ", given.map((value, i) => [i > 0 ? ", " : null, nameOf(value)])));
    }
    if (hierarchy.levels.length === 0) details.append(make("p", {}, "No levels."));
    else details.append(table("Levels", levelColumns, hierarchy.levels, false));
    for (const level of hierarchy.levels)
      if (level.memberProperties.length > 0)
        details.append(make("h4", {}, "Properties of level ", nameOf(levelName(level))), table("Properties", propertyColumns, level.memberProperties));
  };
  return details;
}

// The display name of an All level is its unique name, which says nothing more.
const levelName = level => (level.externalName.toLowerCase() === "(all)" ? "(All)" : level.name || level.externalName);

const levelColumns = [
  { title: "Level", value: level => level.number },
  { title: "Name", value: levelName, cell: level => nameOf(levelName(level)) },
  { title: "Name on the server", value: level => level.externalName, cell: level => nameOf(level.externalName) },
  { title: "Type", value: level => typeOf(level.unit) },
  { title: "Properties", value: level => level.memberProperties.length },
];
