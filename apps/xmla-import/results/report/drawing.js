// The drawing of a cube's structure: the cube in the centre, its dimensions around it, and their
// hierarchies outside, sized by their number of levels. It shows nothing that the lists of the page
// do not have, so it is one image for screen readers.

const labelLength = 26; // characters
const largestScale = 1.6; // pixels per unit
const smallestScale = 0.8; // labels stay readable; a narrow window scrolls

function drawing(cube) {
  const context = make("canvas").getContext("2d");
  const places = [];
  const count = cube.dimensions.reduce((sum, { hierarchies }) => sum + hierarchies.length + 0.5, 0);
  const name = shortened(cube.cube || "cube", labelLength);
  const box = Math.max(88, widthOf(name) + 16);
  const nearest = box / 2 + 111; // leaves room for the names of dimensions
  const outer = Math.max(nearest + 85, (count * 17) / (2 * Math.PI));
  const inner = Math.max(nearest, outer * 0.62);
  const edges = { left: -box / 2, right: box / 2, top: -30, bottom: 30 };
  let turn = 0;
  for (const dimension of cube.dimensions) {
    const width = dimension.hierarchies.length + 0.5;
    dimension.hierarchies.forEach((hierarchy, i) =>
      places.push({ hierarchy, dimension, angle: angleAt((turn + 0.75 + i) / count) }));
    places.push({ dimension, angle: angleAt((turn + width / 2) / count) });
    turn += width;
  }
  const lines = makeSVG("g", { class: "lines" });
  const nodes = makeSVG("g");
  for (const { hierarchy, dimension, angle } of places) {
    const middle = places.find(place => place.dimension === dimension && !place.hierarchy);
    if (hierarchy) {
      const from = point(middle.angle, inner);
      const to = point(angle, outer);
      lines.append(makeSVG("line", { x1: from.x, y1: from.y, x2: to.x, y2: to.y }));
      const radius = 3.5 + 1.6 * Math.min(hierarchy.levels.length, 7);
      const text = hierarchy.name || hierarchy.externalName;
      include(to, radius);
      include(point(angle, outer + radius + 5 + widthOf(shortened(text, labelLength))), 8);
      nodes.append(node(to, radius, hierarchyClass(hierarchy), label(text, angle, outer + radius + 5, labelLength),
        `${hierarchy.externalName}: ${counted(hierarchy.levels.length, "level", "levels")}`, hierarchyAddress(cube, hierarchy)));
    } else {
      const to = point(angle, inner);
      include(to, 8);
      lines.append(makeSVG("line", { x1: 0, y1: 0, x2: to.x, y2: to.y }));
      const hasLabel = dimension.hierarchies.length > 1;
      nodes.append(node(to, 6, "dimension", hasLabel ? label(dimension.name, angle, inner - 11, 14, true) : null,
        `${dimension.name} ${wordOf(dimension.kind)}`, null));
    }
  }
  const width = edges.right - edges.left + 8;
  const height = edges.bottom - edges.top + 8;
  const image = makeSVG("svg", { viewBox: `${edges.left - 4} ${edges.top - 4} ${width} ${height}`, role: "img",
    "aria-label": `Structure of the cube: ${countsText(cube.counts)}` },
    lines, nodes, makeSVG("g", { class: "centre" },
      makeSVG("rect", { x: -box / 2, y: -30, width: box, height: 60, rx: 8 }),
      makeSVG("text", { y: -4 }, name),
      makeSVG("text", { y: 14, class: "small" }, counted(cube.counts.measures, "measure", "measures"))));
  image.style.maxWidth = `${largestScale * width}px`; // texts of a small drawing are not huge
  image.style.minWidth = `${smallestScale * width}px`;
  image.style.maxHeight = `max(60rem, ${smallestScale * height}px)`;
  const region = make("div", { class: "scroll", role: "group", tabindex: "0", "aria-label": "Drawing" }, image);
  requestAnimationFrame(() => (region.scrollLeft = (region.scrollWidth - region.clientWidth) / 2)); // to the cube
  return make("figure", {}, region,
    make("figcaption", {}, "Centre: the cube. Squares: dimensions. Circles: hierarchies, larger with more levels; filled if " +
      "balanced, hollow if ragged, unbalanced or of unknown structure. A click on a hierarchy leads to it."));

  /** Of a bold text, see report.css. */
  function widthOf(text) {
    context.font = "bold 12px system-ui, sans-serif";
    return Math.ceil(context.measureText(text).width);
  }

  /** Extends the edges by a point with a margin. */
  function include({ x, y }, margin) {
    edges.left = Math.min(edges.left, x - margin);
    edges.right = Math.max(edges.right, x + margin);
    edges.top = Math.min(edges.top, y - margin);
    edges.bottom = Math.max(edges.bottom, y + margin);
  }

  function angleAt(part) {
    return 2 * Math.PI * part - Math.PI / 2;
  }

  function point(angle, radius) {
    return { x: round(radius * Math.cos(angle)), y: round(radius * Math.sin(angle)) };
  }

  function round(value) {
    return Math.round(value * 10) / 10;
  }

  /** A text along the ray with this angle, never upside down. It ends at the radius if `inside`. */
  function label(text, angle, radius, length, inside = false) {
    const isLeft = Math.cos(angle) < -1e-6;
    const degrees = round((angle * 180) / Math.PI + (isLeft ? 180 : 0));
    return makeSVG("text", {
      transform: `rotate(${degrees}) translate(${round(isLeft ? -radius : radius)} 4)`,
      "text-anchor": isLeft === inside ? "start" : "end",
    }, shortened(text, length));
  }

  function node(at, radius, kind, text, title, address) {
    const shape = kind === "dimension"
      ? makeSVG("rect", { x: at.x - radius, y: at.y - radius, width: 2 * radius, height: 2 * radius, rx: 2 })
      : makeSVG("circle", { cx: at.x, cy: at.y, r: radius });
    return makeSVG("g", { class: kind, click: address ? () => (location.hash = address) : null },
      makeSVG("title", {}, shortened(title, 200)), shape, text);
  }

  function hierarchyClass(hierarchy) {
    return hierarchy.hierarchyType === "kHierarchyFullyBalanced" ? "hierarchy balanced" : "hierarchy";
  }
}
