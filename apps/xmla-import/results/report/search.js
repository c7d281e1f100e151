// Search over all names of the result.

const firstMatches = 200;
let index = null;

/** [{text, kind, record, cube, address}], with the text in lower case. */
function buildIndex() {
  const entries = [];
  const add = (kind, record, cube, address) =>
    entries.push({ text: `${record.name}\n${record.externalName}`.toLowerCase(), kind, record, cube, address });
  for (const cube of model.cubes) {
    add("cube", { name: cube.cube, externalName: cube.cube }, cube, cube.address);
    for (const { name, hierarchies } of cube.dimensions) {
      add("dimension", { name, externalName: name }, cube, hierarchyAddress(cube, hierarchies[0]));
      for (const hierarchy of hierarchies) {
        const address = hierarchyAddress(cube, hierarchy);
        add("hierarchy", hierarchy, cube, address);
        for (const level of hierarchy.levels) {
          add("level", level, cube, address);
          for (const property of level.memberProperties) add("property", property, cube, address);
        }
      }
    }
    for (const measure of cube.measures) add("measure", measure, cube, cube.address + "/measures");
    for (const variable of cube.sapVariables)
      add("variable", { name: variable.caption, externalName: variable.name }, cube, cube.address + "/variables");
  }
  return entries;
}

function search(query) {
  index = index || buildIndex();
  const wanted = query.toLowerCase();
  return index.filter(entry => entry.text.includes(wanted));
}

function searchPage(query) {
  const matches = search(query);
  const shown = matches.slice(0, firstMatches);
  const kinds = {};
  for (const { kind } of matches) kinds[kind] = (kinds[kind] || 0) + 1;
  const plural = kind => kind.replace(/y$/, "ie") + "s";
  const summary = Object.entries(kinds).map(([kind, count]) => counted(count, kind, plural(kind))).join(", ");
  return {
    title: `Search: ${query}`,
    content: [
      make("h1", { tabindex: "-1" }, "Search for ", nameOf(query)),
      make("p", { role: "status" }, matches.length === 0
        ? "Nothing found. The search looks for a part of a display name or of a server's name, in upper or lower case."
        : `${number(matches.length)} found: ${summary}.` +
          (matches.length > shown.length ? ` The first ${firstMatches} are shown; type more to find fewer.` : "")),
      make("ul", { class: "matches" }, shown.map(({ kind, record, cube, address }) =>
        make("li", {}, make("span", { class: "kind" }, kind), " ",
          make("a", { href: address }, nameOf(record.name || record.externalName)), " ",
          record.name && record.name !== record.externalName ? make("span", { class: "technical" }, nameOf(record.externalName)) : null,
          kind === "cube" ? [" in ", nameOf(cube.catalog)] : [" in ", nameOf(cube.cube)]))),
    ],
  };
}
