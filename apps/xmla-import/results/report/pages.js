// The other pages: overview, list of cubes, messages, and the meaning of the words.

function overviewPage() {
  const sums = { catalogs: new Set(), sources: new Set() };
  for (const key of Object.keys(countNames)) sums[key] = 0;
  for (const cube of model.cubes) {
    sums.sources.add(cube.dataSource);
    sums.catalogs.add(cube.dataSource + "\n" + cube.catalog);
    for (const key of Object.keys(countNames)) sums[key] += cube.counts[key];
  }
  const incomplete = model.cubes.filter(cube => cube.errors.length > 0);
  const facts = [
    ["Server", model.provider && model.provider.name ? [nameOf(model.provider.name), model.provider.version ? [", version ", nameOf(model.provider.version)] : null] : "unknown"],
    ["Kind", about.kind || "unknown"],
    ["Read on", [make("time", { datetime: about.created }, readableDate(about.created)), about.seconds !== null ? `, in ${duration(about.seconds)}` : null]],
    ["Read with", `xmla-import ${about.version}`],
    ["State", about.isComplete ? "complete" : "incomplete"],
  ];
  const tiles = [[model.cubes.length === 1 ? "cube" : "cubes", model.cubes.length],
    [sums.sources.size === 1 ? "data source" : "data sources", sums.sources.size],
    [sums.catalogs.size === 1 ? "catalog with cubes" : "catalogs with cubes", sums.catalogs.size],
    ...Object.entries(countNames).map(([key, names]) => [sums[key] === 1 ? names[0] : names[1], sums[key]])];
  return {
    title: "Overview",
    content: [
      make("h1", { tabindex: "-1" }, "Overview"),
      make("dl", { class: "facts" }, facts.map(([name, value]) => [make("dt", {}, name), make("dd", {}, value)])),
      make("ul", { class: "tiles" }, tiles.filter(([, count]) => count > 0).map(([name, count]) =>
        make("li", {}, make("strong", {}, number(count)), " ", name))),
      messageBox("Errors", model.errors, "error", true),
      incomplete.length > 0 ? [make("h2", {}, "Incomplete cubes"),
        make("ul", {}, incomplete.map(cube => make("li", {}, make("a", { href: cube.address }, nameOf(cube.cube)), ": ",
          errorsText(cube))))] : null,
      warningSummary(),
      make("h2", {}, "Cubes"),
      cubeTable(),
    ],
  };
}

/** The number of errors of a cube, and the first one. */
function errorsText(cube) {
  const errors = cube.errors.filter(text => !completesAnError(text));
  return [counted(errors.length, "error", "errors"), ": ", messageText(cube.errors[0]), errors.length > 1 ? " …" : null];
}

function readableDate(text) {
  const date = new Date(text);
  return isNaN(date) ? text : new Intl.DateTimeFormat(undefined, { dateStyle: "long", timeStyle: "short" }).format(date);
}

function duration(seconds) {
  return seconds < 60 ? `${seconds.toFixed(1)} seconds` : `${Math.round(seconds / 60)} minutes`;
}

function warningSummary() {
  const groups = messageGroups("warnings");
  if (groups.length === 0) return null;
  return [make("h2", {}, "Warnings"),
    table("Warnings by kind", [
      { title: "What happened", value: group => group.title, cell: group => make("a", { href: "#/messages" }, group.title) },
      { title: "Messages", value: group => group.lines.length },
      { title: "Cubes", value: group => new Set(group.lines.map(line => line.cube)).size },
    ], groups)];
}

function cubeTable() {
  if (model.cubes.length === 0) return make("p", {}, "No cube was read.");
  const hasSources = new Set(model.cubes.map(cube => cube.dataSource)).size > 1;
  const count = key => ({ value: cube => cube.counts[key] });
  return table("Cubes", [
    { title: "Cube", value: cube => cube.cube, cell: cube => make("a", { href: cube.address }, nameOf(cube.cube)) },
    { title: "Catalog", value: cube => cube.catalog, cell: cube => nameOf(cube.catalog) },
    { title: "Data source", value: cube => cube.dataSource, cell: cube => nameOf(cube.dataSource), onlyIf: () => hasSources },
    { title: "State", value: cube => stateOf(cube).word, cell: cube => badge(stateOf(cube)) },
    { title: "Dimensions", ...count("dimensions") },
    { title: "Hierarchies", ...count("hierarchies") },
    { title: "Levels", ...count("levels") },
    { title: "Properties", ...count("properties") },
    { title: "Measures", ...count("measures") },
    { title: "Variables", ...count("variables"), onlyIf: cube => cube.counts.variables > 0 },
    { title: "Warnings", ...count("warnings") },
  ], model.cubes);
}

function messagesPage() {
  const part = (title, key) => {
    const groups = messageGroups(key);
    return [make("h2", {}, title), groups.length === 0 ? make("p", {}, "None.") : groups.map(group => [
      make("h3", {}, `${group.title} (${number(group.lines.length)})`),
      make("ul", { class: "long" }, group.lines.slice(0, firstRows).map(({ text, cube }) =>
        make("li", {}, cube ? [make("a", { href: cube.address }, nameOf(cube.cube)), ": "] : null, messageText(text)))),
      group.lines.length > firstRows
        ? make("p", {}, `${number(group.lines.length - firstRows)} more are on the pages of the cubes.`) : null,
    ])];
  };
  return { title: "Messages", content: [make("h1", { tabindex: "-1" }, "Messages"), part("Errors", "errors"), part("Warnings", "warnings"),
    model.cubes.some(cube => cube.notes.length > 0) ? part("Notes: nothing to do", "notes") : null] };
}

function wordsPage() {
  return {
    title: "Words",
    content: [make("h1", { tabindex: "-1" }, "Words in this report"),
      table("Words", [{ title: "Word", value: entry => entry[0] }, { title: "Meaning", value: entry => entry[1] }], about.legend, false)],
  };
}

function missingPage() {
  return {
    title: "Not found",
    content: [make("h1", { tabindex: "-1" }, "There is no such page"),
      make("p", {}, "The cube or hierarchy of this link is not in this report. Search for a part of its name, or start at the ",
        make("a", { href: "#/" }, "overview"), ".")],
  };
}
