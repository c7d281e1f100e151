// Which page is shown, and the keyboard.

let about;
let words;
let model;

function readData(id) {
  return JSON.parse(document.getElementById(id).textContent);
}

/** The page of an address: the part of the URL behind #. */
function pageOf(address) {
  let parts;
  try {
    parts = address.replace(/^#?\/?/, "").split("/").map(decodeURIComponent);
  } catch {
    return missingPage();
  }
  if (parts[0] === "") return homePage();
  if (parts[0] === "messages") return messagesPage();
  if (parts[0] === "words") return wordsPage();
  if (parts[0] === "search") return searchPage(parts.slice(1).join("/"));
  if (parts[0] !== "cube") return missingPage();
  const encoded = address.split("/");
  for (const length of [5, 6]) {
    const cube = cubesByAddress.get(encoded.slice(0, length).join("/"));
    const rest = parts.slice(length - 1);
    if (!cube || (length === 5 && /^~\d+$/.test(rest[0]))) continue;
    if (rest[0] === "hierarchy") return cubePage(cube, { hierarchy: rest[1] });
    return cubePage(cube, rest[0] ? { section: rest[0] } : null);
  }
  return missingPage();
}

function homePage() {
  if (model.diff) return diffPage();
  return about.command === "cube" ? cubePage(model.cubes[0], null) : overviewPage();
}

let cubesByAddress;
let isTyping = false;

function show() {
  const { title, content, target } = pageOf(location.hash);
  document.title = `${shortened(title, 80)} – ${baseTitle}`;
  const main = document.getElementById("page");
  main.replaceChildren(...[content].flat(Infinity).filter(child => child !== null && child !== undefined));
  fitTables();
  for (const link of document.querySelectorAll("nav a")) {
    if (link.getAttribute("href") === (location.hash || "#/")) link.setAttribute("aria-current", "page");
    else link.removeAttribute("aria-current");
  }
  if (isTyping) return;
  const start = target || main.querySelector("h1");
  if (target) target.scrollIntoView();
  else scrollTo(0, 0);
  if (hasShown) start.focus({ preventScroll: true });
  hasShown = true;
}

let hasShown = false;
let baseTitle;

function header() {
  const field = make("input", {
    type: "search", id: "search", placeholder: "Search all names", "aria-label": "Search all names", autocomplete: "off", spellcheck: "false",
    input: () => {
      isTyping = true;
      history.replaceState(null, "", field.value === "" ? "#/" : "#/search/" + encodeURIComponent(field.value.toWellFormed ? field.value.toWellFormed() : field.value));
      show();
      isTyping = false;
    },
  });
  document.addEventListener("keydown", event => {
    const isInField = /^(input|textarea|select)$/i.test(event.target.tagName);
    if (event.key === "/" && !isInField && !event.ctrlKey && !event.altKey && !event.metaKey) {
      event.preventDefault();
      field.focus();
    }
  });
  const homes = { cube: "Cube", diff: "Changes" };
  const links = [["#/", homes[about.command] || "Overview"], ["#/messages", "Messages"], ["#/words", "Words"]];
  return make("header", {},
    make("a", { class: "skip", href: "#page", click: event => { event.preventDefault(); document.querySelector("#page h1").focus(); } }, "Skip to the content"),
    make("nav", { "aria-label": "Pages" }, links.slice(0, model.diff ? 1 : undefined).map(([href, text]) => make("a", { href }, text))),
    model.diff ? null : make("form", { role: "search", submit: event => event.preventDefault() }, field));
}

// Closed hierarchies are printed, too, and closed again afterwards.
let openedForPrint = [];
addEventListener("beforeprint", () => {
  openedForPrint = [...document.querySelectorAll("details:not([open])")];
  for (const details of openedForPrint) {
    details.open = true;
    if (details.fillIn) details.fillIn();
  }
});
addEventListener("afterprint", () => {
  openedForPrint.forEach(details => (details.open = false));
  openedForPrint = [];
});

function start() {
  const notice = document.getElementById("notice");
  try {
    about = readData("about");
    words = about.words;
    model = prepare(readData("result"), about);
  } catch (error) {
    document.documentElement.className = "";
    notice.querySelector("p").textContent =
      "This browser could not read the data of the report: " + error.message +
      ". If the file is very large, import fewer cubes, or write ndjson or xlsx instead.";
    return;
  }
  baseTitle = document.title;
  cubesByAddress = new Map(model.cubes.map(cube => [cube.address, cube]));
  document.documentElement.className = "";
  notice.replaceWith(header(), make("main", { id: "page" }));
  addEventListener("hashchange", show);
  show();
  // The first search is as fast as the others.
  setTimeout(() => { index = index || buildIndex(); }, 200);
}

start();
