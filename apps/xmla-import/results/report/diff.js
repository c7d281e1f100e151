// The page of a comparison.

const classExplanations = {
  breaking: "something is gone, or has another type, aggregation, structure or number: queries and reports can fail",
  addition: "did not exist before",
  cosmetic: "display names, order and messages",
};

function diffPage() {
  const { changes, compared, found } = model.diff;
  const shown = new Set(Object.keys(found));
  const list = make("div");
  const status = make("p", { role: "status" });
  const boxes = Object.entries(found).map(([severity, count]) => make("label", { title: classExplanations[severity] },
    make("input", {
      type: "checkbox", checked: true, disabled: count === 0,
      change: event => { shown[event.target.checked ? "add" : "delete"](severity); draw(); },
    }), " ", changeBadge(severity), ` ${number(count)}`));

  function draw() {
    const visible = changes.filter(change => shown.has(change.class));
    const groups = new Map();
    for (const change of visible) {
      const [place, rest] = splitAtCube(change.path);
      const key = JSON.stringify(place);
      if (!groups.has(key)) groups.set(key, { place, rows: [] });
      groups.get(key).rows.push({ ...change, rest });
    }
    status.textContent = changes.length === 0 ? "There are no differences."
      : `${number(visible.length)} of ${counted(changes.length, "change", "changes")} shown.`;
    list.replaceChildren(...[...groups.values()].flatMap(({ place, rows }) => [
      make("h2", {}, place.length > 0 ? pathText(place) : "The document"),
      table("Changes", [
        { title: "Class", value: row => row.class, cell: row => changeBadge(row.class) },
        { title: "Where", value: row => row.rest.map(part => part.name).join(), cell: row => pathText(row.rest) },
        { title: "Change", value: row => row.what, cell: changeText },
        { title: "Kind of change", value: row => row.id, cell: row => make("code", {}, row.id) },
      ], rows)]));
  }

  draw();
  return {
    title: "Changes",
    content: [
      make("h1", { tabindex: "-1" }, "Changes"),
      make("dl", { class: "facts" }, [["Old", nameOf(model.diff.old)], ["New", nameOf(model.diff.new)],
        ["Compared", Object.entries(compared).filter(([, count]) => count > 0).map(([records, count]) => `${number(count)} ${records.replace("dataS", "data s")}`).join(", ") || "nothing"],
        ["Compared on", [make("time", { datetime: about.created }, readableDate(about.created))]],
        ["Compared with", `xmla-import ${about.version}`],
      ].map(([name, value]) => [make("dt", {}, name), make("dd", {}, value)])),
      messageBox("Errors", model.errors, "error", true),
      messageBox("Warnings", model.warnings, "warning", true),
      changes.length > 0 ? make("fieldset", {}, make("legend", {}, "Show"), boxes) : null,
      status, list],
  };
}

function changeBadge(severity) {
  return make("span", { class: "badge " + severity, title: classExplanations[severity] }, severity);
}

function splitAtCube(path) {
  const end = path.findIndex(part => part.kind === "cube") + 1;
  return [path.slice(0, end), path.slice(end)];
}

function pathText(path) {
  return path.map((part, i) => [i > 0 ? ", " : null, part.kind, " ", nameOf(part.name)]);
}

function changeText({ what, before, after, remark }) {
  const hasValues = before !== "" || after !== "";
  const valueOf = text => (text === "" ? make("span", { class: "none" }, "(empty)") : bounded(make("bdi"), wordFor(text)));
  return [what, hasValues ? [": ", valueOf(before), " → ", valueOf(after)] : null, remark ? [make("br"), make("small", {}, messageText(remark))] : null];
}

/** The word for an enumerator; other texts are unchanged. */
function wordFor(text) {
  if (words[text]) return words[text][0];
  return /^VX\w+Data$/.test(text) ? text.slice(2, -4) : text;
}
