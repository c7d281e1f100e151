// Tables that can be sorted by the headings of their columns.

const firstRows = 500; // rows that are shown at first

/**
 * columns: [{title, value: row -> text or number, cell: row -> content (default: value), help}].
 * A column with `onlyIf` is shown if the condition holds for a row.
 */
function table(label, columns, rows, isSortable = true) {
  const shown = columns.filter(column => !column.onlyIf || rows.some(column.onlyIf));
  let order = [...rows];
  let sortedBy = null;
  let isDescending = false;
  let showsAll = rows.length <= firstRows;
  const body = make("tbody");
  const headings = shown.map(column => {
    const title = isSortable
      ? make("button", { type: "button", click: () => sort(column) }, column.title, make("span", { class: "arrow", "aria-hidden": "true" }))
      : column.title;
    return make("th", { scope: "col", class: isNumeric(column) ? "number" : null, title: column.help || null }, title);
  });
  const more = make("button", { type: "button", click: () => { showsAll = true; draw(); } }, `Show all ${number(rows.length)} rows`);
  // With many numbers, the headings are upright if the table would not fit into the window, see fitTables.
  const isDense = shown.filter(isNumeric).length > 4;
  const region = make("div", { class: "scroll", role: "group", tabindex: "0", "aria-label": label },
    make("table", { class: isDense && "counts dense" }, make("thead", {}, make("tr", {}, headings)), body), make("p", { class: "rest" }, more));

  function isNumeric(column) {
    return rows.length > 0 && typeof column.value(rows[0]) === "number";
  }

  function sort(column) {
    isDescending = sortedBy === column && !isDescending;
    sortedBy = column;
    const sign = isDescending ? -1 : 1;
    const keyed = rows.map(row => [column.value(row), row]);
    keyed.sort(([a], [b]) => sign * (typeof a === "number" ? a - b : compareNames(a, b)));
    order = keyed.map(([, row]) => row);
    draw();
  }

  function draw() {
    shown.forEach((column, i) => {
      if (column === sortedBy) headings[i].setAttribute("aria-sort", isDescending ? "descending" : "ascending");
      else headings[i].removeAttribute("aria-sort");
    });
    const visible = showsAll ? order : order.slice(0, firstRows);
    body.replaceChildren(...visible.map(row => make("tr", {}, shown.map((column, i) => {
      const content = column.cell ? column.cell(row) : column.value(row);
      const isHeading = i === 0;
      return make(isHeading ? "th" : "td", { scope: isHeading ? "row" : null, class: isNumeric(column) ? "number" : null },
        typeof content === "number" ? number(content) : content);
    }))));
    more.parentNode.hidden = showsAll;
    if (region.isConnected) fitTables(); // other rows may be wider
  }

  draw();
  return region;
}

/** Writes the headings of tables with many numbers horizontally where the window is wide enough. */
function fitTables() {
  for (const each of document.querySelectorAll("table.counts")) {
    each.classList.remove("dense");
    each.classList.toggle("dense", each.offsetWidth > each.parentNode.clientWidth);
  }
}
addEventListener("resize", fitTables);
