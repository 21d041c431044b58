"use strict";
// Shows the day that stands in the page as JSON. Texts in it come from devices and anybody else: they
// become text nodes, never markup, and what cannot be seen in them is made visible.
(() => {
const day = JSON.parse(document.getElementById("record").textContent);

// --- texts and elements -----------------------------------------------------------------------

const INVISIBLE = /[\p{Cc}\p{Cf}\p{Cs}\p{Zl}\p{Zp}]/gu;
const LONG = 300;   // characters of a text that are shown at once
const BRIEF = 60;   // where there is little room

const byId = (id) => document.getElementById(id);
const visible = (text, kept = "") => String(text).replace(INVISIBLE, (sign) => kept.includes(sign) ?
  sign : "⟨U+" + sign.codePointAt(0).toString(16).toUpperCase().padStart(4, "0") + "⟩");

/** An element with attributes (a function listens to the event of that name) and children. */
function make(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (typeof value === "function") element.addEventListener(key, value);
    else if (value === true) element.setAttribute(key, "");
    else if (value !== false && value != null) element.setAttribute(key, value);
  }
  element.append(...children.flat().filter((child) => child != null));
  return element;
}

/** A text that somebody else has written, cut where it is long. */
function brief(text, length = BRIEF) {
  const signs = [...visible(text)];
  return make("bdi", {}, signs.length > length ? signs.slice(0, length).join("") + "…" : signs.join(""));
}

/** The same with a button that shows the rest. */
function foreign(text, kept = "") {
  const signs = [...visible(text, kept)];
  const shown = make("bdi", {class: "foreign"}, signs.slice(0, LONG).join(""));
  if (signs.length <= LONG) return shown;
  const label = `… ${count(signs.length - LONG, "more character")}`;
  const button = make("button", {type: "button", class: "more", "aria-expanded": "false", click: () => {
    const isOpen = button.getAttribute("aria-expanded") === "true";
    button.setAttribute("aria-expanded", String(!isOpen));
    button.textContent = isOpen ? label : "less";
    shown.textContent = (isOpen ? signs.slice(0, LONG) : signs).join("");
  }}, label);
  return make("span", {}, shown, " ", button);
}

/** What is looked up by a foreign text must not find what every object has. */
const table = (entries) => Object.assign(Object.create(null), entries);
const group = (number) => String(number).replace(/\B(?=(\d{3})+(?!\d))/g, "\u202F");
const count = (number, what, several = what + "s") => `${group(number)} ${number === 1 ? what : several}`;
const seconds = (at) => at === null ? "–" : `${at.toFixed(1)} s`;

function duration(took) {
  if (took === null || took === undefined) return "–";
  return took < 1 ? `${(took * 1000).toFixed(1)} ms` : `${took.toFixed(2)} s`;
}

function facts(pairs) {
  return make("dl", {}, pairs.filter(([, value]) => value !== null && value !== undefined && value !== "")
    .map(([name, value]) => make("div", {}, make("dt", {}, brief(name)),
      make("dd", {}, value instanceof Node ? value : foreign(value)))));
}

// --- health: never by colour alone ------------------------------------------------------------

const SIGNS = table({OK: "✓", Warning: "!", Critical: "✕"});
const ORDER = ["Critical", "Warning", "Unknown", "OK"];
const knownHealth = (health) => health in SIGNS ? health : "Unknown";
const classOf = (health) => "health-" + knownHealth(health).toLowerCase();
const worst = (healths) => ORDER.find((one) => healths.some((health) => knownHealth(health) === one));

function badge(health) {
  return make("span", {class: "badge " + classOf(health), role: "img", "aria-label": knownHealth(health)},
    SIGNS[health] || "?");
}

// --- what the reports say ---------------------------------------------------------------------

const isObject = (value) => typeof value === "object" && value !== null && !Array.isArray(value);
const member = (value, name) => isObject(value) && Object.hasOwn(value, name) ? value[name] : undefined;
const textOf = (value) => typeof value === "string" ? value :
  typeof value === "number" || typeof value === "boolean" ? String(value) : "";
const listOf = (value) => Array.isArray(value) ? value : [];

function documentOf(payload) {
  try {
    const value = JSON.parse(payload);
    return isObject(value) ? value : null;
  } catch {
    return null;
  }
}

/** Under which a part is known, here and in the changes: its number as programs write it. */
function nameOf(data) {
  const oem = member(data, "Oem");
  return [member(data, "DurableName"), member(data, "WWPN"), member(oem, "DeviceName"),
    member(data, "SerialNumber"), member(oem, "Description"), member(data, "Model")]
    .map(textOf).find((name) => name !== "" && name !== "NotAvailable") || "";
}
const keyOf = (name) => name.toLowerCase().replace(/^0x/, "").replace(/:/g, "");

const places = new Map(Object.entries(day.places));
function placeOf(code) {
  const words = places.get(code);
  return words ? words.long : "";
}
function placeFacts(code) {
  if (code === "") return [];
  const words = places.get(code) || {};
  const isDrawn = inventories.length > 0 && words.long;
  return [["Location code", code], ["Place", isDrawn ? make("a", {href: "#inventory",
    click: () => byId("racks").querySelector(`[data-code="${code}"]`)?.click()}, words.long) : words.long],
    ["Label", words.short === "none" ? "" : words.short]];
}

const moments = day.moments.map((moment, index) => ({...moment, id: `m${index + 1}`}));
const reports = moments.filter((moment) => moment.kind === "report");
for (const report of reports) {
  report.document = documentOf(report.payload);
  report.bytes = new TextEncoder().encode(report.payload).length;
  report.kind = report.command === "WriteInventory" ? "inventory" : "event";
  const details = member(report.document, "VariableData");
  report.data = member(details, "Data");
  report.part = report.kind === "event" ? nameOf(report.data) : "";
  report.place = textOf(member(report.document, "PhysicalLocation"));
}
const taken = (report) => !report.refused;
const events = reports.filter((report) => report.kind === "event");
const inventories = reports.filter((report) => report.kind === "inventory" && taken(report) &&
  member(report.document, "HostDataCollection"));
const end = Math.max(1, ...moments.map((moment) => moment.at || 0));
const parts = new Map();  // by key: name, moments
for (const moment of moments) {
  if (!moment.part) continue;
  const key = keyOf(moment.part);
  if (!parts.has(key)) parts.set(key, {name: moment.part, moments: []});
  parts.get(key).moments.push(moment);
  if (moment.kind === "event") parts.get(key).name = moment.part;  // as it is reported
}

/** The last change of an event's part before it. */
function changeBefore(event) {
  const known = event.part ? parts.get(keyOf(event.part)).moments : [];
  return known.slice(0, known.indexOf(event)).findLast((moment) => moment.kind === "change");
}

// --- head -------------------------------------------------------------------------------------

function showHead() {
  const host = reports.map((report) => textOf(member(report.document, "HostName")) ||
    textOf(member(member(member(member(report.document, "HostDataCollection"), "Oem"), "HostOSInfo"),
      "HostName"))).findLast((name) => name !== "");
  const title = byId("title");
  title.replaceChildren("A day of ", host ? brief(host) : "a server");
  document.title = title.textContent;
  byId("subtitle").textContent =
    `${count(events.length, "event")} and ${count(inventories.length, "inventory", "inventories")} in ` +
    `${group(Math.round(end))} seconds`;
  byId("source").replaceChildren("Made from ", brief(day.name), " by sim/report. This file needs no network.");
}

function showVerdict() {
  const broken = moments.filter((moment) => moment.kind === "violation").length;
  const rules = broken === 0 ? "No rule of the transport was broken." :
    `${count(broken, "rule")} of the transport ${broken === 1 ? "was" : "were"} broken.`;
  const {result, faults, expected} = day.verdict || {result: "", faults: [], expected: []};
  const isWell = result === "passed" && broken === 0;
  const health = isWell ? "OK" : day.verdict || broken > 0 ? "Critical" : "Unknown";
  const words = !day.verdict ? "Nobody has judged this day." :
    isWell && expected.length > 0 ? `Passed: each of the ${expected.length} expected events came, once and ` +
      "in order, and the last inventory agrees with the server." :
      isWell ? "Passed: what was reported agrees with what was done to the server." :
        `Failed: ${count(faults.length, "fault")}.`;
  const box = make("div", {class: "verdict " + classOf(health)}, badge(health),
    make("div", {}, make("p", {}, make("strong", {}, words), " ", rules),
      faults.length > 0 ? make("ul", {}, faults.map((fault) => make("li", {}, foreign(fault)))) : null,
      expected.length > 0 ? expectedEvents(expected, isWell) : null));
  byId("verdict").append(box);
}

function expectedEvents(expected, areAllThere) {
  const came = events.filter(taken);
  return make("details", {}, make("summary", {}, count(expected.length, "expected event")),
    make("ol", {}, expected.map((event, index) => make("li", {}, foreign(event), " ",
      areAllThere && came[index] ? make("span", {}, "came at ", linkTo(came[index], seconds(came[index].at))) :
        null))));
}

function showFigures() {
  const frames = reports.reduce((sum, report) => sum + (report.frames || 0), 0);
  const bytes = reports.reduce((sum, report) => sum + report.bytes, 0);
  const of = (...kinds) => moments.filter((moment) => kinds.includes(moment.kind)).length;
  for (const [number, what] of [
    [of("change"), "changes"], [events.length, "events"],
    [inventories.length, "inventories"], [frames, "frames"], [Math.round(bytes / 1024), "KiB reported"],
    [reports.filter((report) => report.refused || report.unanswered).length, "failed reports"],
    [of("violation"), "broken rules"]]) {
    byId("figures").append(make("li", {}, make("strong", {}, group(number)), " ", what));
  }
}

// --- the time line ----------------------------------------------------------------------------

const KINDS = [  // name, kinds of moments, lane of the strip
  ["Story", ["told", "service"], null],
  ["Changes", ["change"], "The server"],
  ["Events", ["event"], "Events"],
  ["Inventories", ["inventory"], "Inventories"],
  ["Controller", ["order", "struck", "bell"], "Controller"],
  ["Faults", ["violation", "unreadable"], "Faults"]];
const SIDES = table({change: "left", service: "left"});
const WORDS = table({change: "Change", order: "Order to the controller", struck: "The order strikes",
  bell: "Door bell answered", violation: "Broken rule", unreadable: "Unreadable line of the record",
  service: "Service"});

function linkTo(moment, words) {
  return make("a", {href: "#" + moment.id, click: () => reveal(moment)}, words);
}

function pretty(report) {
  try {
    return report.document ? JSON.stringify(report.document, null, 2) : report.payload;
  } catch {
    return report.payload;  // too deep for that
  }
}

const FIRST_PART = 33, LATER_PART = 57, MOST_CELLS = 120;

/** One cell a frame, filled as far as the payload fills it. */
function frameCells(report) {
  const frames = report.frames || 0, sent = report.bytes + 1;  // a NUL ends it
  if (frames !== 1 + Math.ceil(Math.max(0, sent - FIRST_PART) / LATER_PART)) {
    return make("span", {}, count(frames, "frame"));
  }
  const cells = make("span", {class: "cells", "aria-hidden": "true"});
  for (let index = 0; index < Math.min(frames, MOST_CELLS); ++index) {
    const room = index === 0 ? FIRST_PART : LATER_PART;
    const before = index === 0 ? 0 : FIRST_PART + (index - 1) * LATER_PART;
    const fill = make("span", {class: "fill"});
    fill.style.width = `${Math.min(100, (sent - before) / room * 100)}%`;
    cells.append(make("span", {class: index === 0 ? "cell first" : "cell"}, fill));
  }
  return make("span", {}, `${count(frames, "frame")}, ${count(report.bytes, "byte")} and a NUL, in ` +
    `${duration(report.took)} `, cells, frames > MOST_CELLS ? " …" : null);
}

function reportTitle(report) {
  if (report.kind === "inventory") return [make("strong", {}, "Inventory")];
  const id = textOf(member(report.document, "ID"));
  return [report.health ? badge(report.health) : null,
    make("strong", {}, brief(id || report.command), " ", brief(report.meaning || "")),
    report.part ? make("span", {class: "name"}, brief(report.part, 40)) : null];
}

function reportCard(report) {
  const fate = report.refused ? "refused by the controller" : report.unanswered ?
    "taken, but its sender did not learn so" : report.document === null ? "cannot be read" : "";
  const body = make("div", {class: "body"});
  const fold = make("details", {class: "card", toggle: () => {
    if (fold.open && !body.hasChildNodes()) body.append(...reportBody(report));
  }}, make("summary", {}, make("span", {class: "headline"}, reportTitle(report)),
    fate ? make("span", {class: "fate"}, fate) : null,
    make("span", {class: "quiet"}, placeOf(report.place),
      placeOf(report.place) ? " · " : "", count(report.frames || 0, "frame"))), body);
  return fold;
}

function reportBody(report) {
  const details = member(report.document, "VariableData");
  const cause = report.kind === "event" ? changeBefore(report) : undefined;
  const shown = facts([
    ["Part", report.part], ["Says", textOf(member(details, "EventInfo"))], ...placeFacts(report.place),
    ["Change before", cause ? make("span", {}, linkTo(cause, brief(cause.text)), cause.at === null ||
      report.at === null ? "" : `, ${seconds(report.at - cause.at)} before`) : null],
    ["Host's time", textOf(member(report.document, "EventTime"))],
    ["Sent by", textOf(member(report.document, "Source"))], ["Frames", frameCells(report)]]);
  const which = inventories.indexOf(report);
  return [shown, which < 0 ? null : make("p", {}, make("a", {href: "#inventory", click: () => {
    byId("which").value = which;
    showInventory();
  }}, "Look at this inventory"), which === 0 ? null : make("span", {}, " · ", make("a", {href: "#difference",
    click: () => {
      byId("from").value = which - 1;
      byId("to").value = which;
      showDifference();
    }}, "What changed since the one before"))),
  make("p", {class: "quiet"}, report.document ? "The record as it came:" :
    "What came is no JSON object:"),
  make("pre", {tabindex: "0", role: "region", "aria-label": "The record as it came"},
    foreign(pretty(report), "\n"))].filter((part) => part !== null);
}

const tone = (moment) => moment.health ? `${moment.kind} ${classOf(moment.health)}` : moment.kind;

function noteCard(moment) {
  return make("div", {class: "card"}, make("span", {class: "quiet"}, WORDS[moment.kind]),
    make("span", {class: moment.kind === "service" ? "" : "code"}, foreign(moment.text)),
    moment.part ? make("span", {class: "name"}, brief(parts.get(keyOf(moment.part)).name, 40)) : null);
}

function showLine() {
  const line = byId("line");
  for (const moment of moments) {
    const time = make("span", {class: "time"}, seconds(moment.at));
    moment.element = moment.kind === "told" ?
      make("li", {id: moment.id, class: "told"}, make("h3", {}, time, " ", foreign(moment.text))) :
      make("li", {id: moment.id, class: `${SIDES[moment.kind] || "right"} ${tone(moment)}`}, time,
        "payload" in moment ? reportCard(moment) : noteCard(moment));
    moment.wanted = visible([moment.text, moment.payload, moment.meaning, moment.part,
      placeOf(moment.place || "")].join(" ")).toLowerCase();
    line.append(moment.element);
  }
}

// --- the strip: the whole day at a glance; for the eye, since the list below says it all --------

function showStrip() {
  const strip = byId("strip");
  strip.setAttribute("role", "img");
  strip.setAttribute("aria-label", `The ${group(Math.round(end))} seconds of the day at a glance; the time ` +
    "line below tells the same.");
  const left = (at) => `${at / end * 100}%`;
  for (const [, kinds, name] of KINDS) {
    const marked = moments.filter((moment) => kinds.includes(moment.kind) && moment.at !== null);
    if (name === null || marked.length === 0) continue;
    const lane = make("div", {class: "lane"});
    for (const moment of marked) {
      const mark = make("a", {class: `mark ${tone(moment)}`, href: "#" + moment.id, tabindex: "-1",
        title: `${seconds(moment.at)} ${visible(moment.meaning || moment.text || "Inventory").slice(0, 100)}`,
        click: () => reveal(moment)});
      mark.style.left = left(moment.at);
      lane.append(mark);
    }
    strip.append(make("span", {class: "lane-name"}, name), lane);
  }
  const step = [1, 2, 5, 10, 20, 30, 60, 120, 300, 600, 1800, 3600, 7200, 21600].find((one) =>
    end / one <= 10) || 86400;
  const axis = make("div", {class: "axis"});
  for (let at = 0; at <= end; at += step) {
    const tick = make("span", {}, `${at} s`);
    tick.style.left = left(at);
    axis.append(tick);
  }
  strip.append(make("span", {}), axis);
}

// --- filter -----------------------------------------------------------------------------------

function showFilter() {
  for (const [name, kinds] of KINDS) {
    if (!moments.some((moment) => kinds.includes(moment.kind))) continue;
    byId("kinds").append(make("label", {}, make("input", {type: "checkbox", checked: true, name, change: filter}),
      " ", name));
  }
  byId("part").append(make("option", {value: ""}, "all"), ...[...parts].sort(([a], [b]) => a < b ? -1 : 1)
    .map(([key, part]) => make("option", {value: key}, visible(part.name).slice(0, BRIEF))));
  byId("part").addEventListener("change", filter);
  byId("text").addEventListener("input", filter);
  byId("filter").addEventListener("submit", (event) => event.preventDefault());
  const unfold = byId("unfold");
  unfold.addEventListener("click", () => {
    const folds = [...byId("line").querySelectorAll("details")];
    const open = folds.some((fold) => !fold.open);
    unfold.textContent = open ? "Fold all" : "Unfold all";
    for (const fold of folds) fold.open = open;
  });
  filter();
}

function filter() {
  const unwanted = new Set(KINDS.filter(([name]) => {
    const box = byId("kinds").querySelector(`input[name="${name}"]`);
    return box !== null && !box.checked;
  }).flatMap(([, kinds]) => kinds));
  const part = byId("part").value;
  const text = byId("text").value.toLowerCase();
  let shown = 0, chapter = null;
  for (const moment of moments) {
    const isWanted = !unwanted.has(moment.kind) && moment.wanted.includes(text) &&
      (part === "" || keyOf(moment.part || "") === part);
    moment.element.hidden = !isWanted;
    if (moment.kind === "told") chapter = moment;
    else if (isWanted && chapter !== null && !unwanted.has("told")) chapter.element.hidden = false;
  }
  for (const moment of moments) shown += !moment.element.hidden;
  byId("shown").textContent = shown === moments.length ? `all ${count(shown, "line")}` :
    `${group(shown)} of ${count(moments.length, "line")}`;
}

/** Whoever follows a link to a moment wants to see it, whatever the filter says. */
function reveal(moment) {
  if (!moment.element.hidden) return;
  for (const box of byId("kinds").querySelectorAll("input")) box.checked = true;
  byId("part").value = "";
  byId("text").value = "";
  filter();
}

// --- the inventory as a rack ------------------------------------------------------------------

const SLOTS = table({drive_slot: 4, lan: 4, pcie_slot: 17});  // how many a chassis has, where it has a fixed number
const NONE = -1;                                       // the only one of its kind has no number
const BAYS = ["drive_slot", "pcie_slot", "lan"];       // from the left; all else follows
const SECTIONS = table({StorageControllers: "Storage controller", Drives: "Drive", Volumes: "Volume",
  EthernetDevices: "Ethernet adapter", FibreChannelDevice: "Fibre Channel port"});
const LISTED = ["Controller", "Drive", "Volume", "EthernetDevice"];  // what the inventory lists, in events' words
const sectionWord = (name) => SECTIONS[name] || name;

/** All parts of an inventory: section, name, place, condition, record. */
function partsOf(inventory) {
  const collection = member(inventory.document, "HostDataCollection");
  return Object.entries(collection).flatMap(([section, list]) => listOf(list).filter(isObject)
    .map((record) => {
      const status = member(record, "Status");
      return {section, record, name: nameOf(record), health: textOf(member(status, "Health")),
        state: textOf(member(status, "State")),
        code: textOf(member(member(record, "Oem"), "PhysicalLocation"))};
    }));
}

/** Of kinds that no inventory lists (Fibre Channel ports): as their last event before it told them. */
function partsOfEvents(inventory) {
  const told = new Map();
  for (const event of events) {
    const type = textOf(member(member(event.document, "VariableData"), "Type"));
    if (event.part === "" || LISTED.includes(type) || event.at > inventory.at) continue;
    told.set(keyOf(event.part), {section: type, record: event.data, name: event.part, health: event.health,
      state: "", code: event.place, isOnlyAnEvents: true});
  }
  return [...told.values()];
}

/** Where a code leads, from its long form: "rack1/chassis_u2/cpu0/pcie_slot3". */
function stepsOf(code) {
  const [rack, box, ...inside] = placeOf(code).split("/");
  const numbered = (step) => /^(.*?)(\d*)$/.exec(step || "");
  const [, kind, number] = numbered(inside.at(-1) || "chassis");
  return {rack: numbered(rack)[2], unit: Number(numbered(box)[2]), kind, number: number === "" ? NONE : Number(number)};
}

const chip = () => make("span", {class: "chip"}, "changed");

function bay(kind, number, residents) {
  const words = kind.replaceAll("_", " ") + (number === NONE ? "" : ` ${number}`);
  const health = worst(residents.map((part) => part.health));
  const button = make("button", {type: "button", class: `bay ${kind} ${classOf(health)}`, "aria-pressed": "false",
    "data-code": residents[0].code, click: () => choose(button, words, residents)},
  number === NONE ? null : make("span", {class: "number"}, String(number)), badge(health),
  make("span", {class: "visually-hidden"}, words, ": "),
  residents.some((part) => part.isChanged) ? chip() : null,
  ...residents.slice(0, 2).map((part) => make("span", {class: "who"}, brief(part.name, 24))),
  residents.length > 2 ? make("span", {class: "who"}, `and ${residents.length - 2} more`) : null);
  return button;
}

function loose(part) {
  const button = make("button", {type: "button", class: "bay loose " + classOf(part.health), "aria-pressed": "false",
    click: () => choose(button, sectionWord(part.section), [part])},
  badge(part.health), make("span", {class: "visually-hidden"}, brief(sectionWord(part.section)), ": "),
  part.isChanged ? chip() : null, make("span", {class: "who"}, brief(part.name, 40)),
  make("span", {class: "quiet"}, brief(part.state, 24)));
  return button;
}

function choose(button, words, residents) {
  for (const other of byId("server").querySelectorAll("[aria-pressed=true]")) other.setAttribute("aria-pressed", "false");
  button.setAttribute("aria-pressed", "true");
  const code = residents[0].code;
  byId("details").replaceChildren(make("h3", {}, brief(words)), facts(code === "" ? [] : [["Location code", code], ["Place", placeOf(code)]]),
    ...residents.map((part) => {
      const told = parts.has(keyOf(part.name)) ? parts.get(keyOf(part.name)).moments : [];
      return make("article", {}, make("h4", {}, badge(part.health), " ", brief(sectionWord(part.section)), " ",
        brief(part.name)),
      part.isOnlyAnEvents ? make("p", {class: "quiet"}, "No inventory lists it: this is what its last event said.") : null,
      facts(flat(part.record).filter(([path]) => !path.endsWith("PhysicalLocation"))),
      told.length === 0 ? null : make("div", {}, make("p", {class: "quiet"}, "On this day:"),
        make("ul", {}, told.map((moment) => make("li", {}, linkTo(moment, seconds(moment.at)), " ",
          brief(moment.meaning || moment.text || ""))))));
    }));
}

/** Members of a record as ["Oem.Slot", "3"]. */
function flat(value, path = "", depth = 0) {
  const entries = Array.isArray(value) ? value.map((one, index) => [index, one]) : Object.entries(value);
  return entries.flatMap(([name, one]) => {
    const here = path === "" ? String(name) : `${path}.${name}`;
    if (Array.isArray(one) && one.every((item) => textOf(item) !== "")) return [[here, one.map(textOf).join(", ")]];
    if (typeof one === "object" && one !== null && depth < 8) return flat(one, here, depth + 1);
    return [[here, textOf(one) || (typeof one === "object" && one !== null ? "…" : "")]];
  });
}

function drawUnit(unit, kinds) {
  const names = [...kinds.keys()].sort((a, b) => (BAYS.indexOf(a) + 1 || 9) - (BAYS.indexOf(b) + 1 || 9));
  return make("li", {class: "unit"}, make("span", {class: "u"}, unit === 0 ? "" : `U${unit}`),
    make("div", {class: "chassis"}, names.map((kind) => {
      const numbers = kinds.get(kind);
      const slots = Math.max(SLOTS[kind] || 0, ...[...numbers.keys()].map((number) => number + 1));
      const shown = SLOTS[kind] ? [...Array(slots).keys()] : [...numbers.keys()].sort((a, b) => a - b);
      return make("div", {class: "bays " + kind, role: "group", "aria-label": kind.replaceAll("_", " ")},
        make("span", {class: "kind", "aria-hidden": "true"}, kind.replaceAll("_", " ")),
        make("div", {class: "row"}, shown.map((number) => numbers.has(number) ?
          bay(kind, number, numbers.get(number)) :
          make("span", {class: "bay empty " + kind, "aria-hidden": "true"}, String(number)))));
    })));
}

function drawRack(rack, units) {
  const list = make("ol", {class: "rack"});
  let above = null;
  for (const unit of [...units.keys()].sort((a, b) => b - a)) {
    const gap = above === null ? 0 : above - unit - 1;
    if (gap > 0) list.append(make("li", {class: "gap"}, `${count(gap, "unit")} without a report`));
    list.append(drawUnit(unit, units.get(unit)));
    above = unit;
  }
  return make("div", {role: "group", "aria-label": `Rack ${rack}`}, make("h3", {}, `Rack ${rack}`), list);
}

function showInventory() {
  const which = Number(byId("which").value), inventory = inventories[which];
  const racks = new Map(), elsewhere = new Map();
  const same = (part) => `${part.section} ${part.name}`;
  const changed = new Set(which === 0 ? [] :
    differences(identified(inventories[which - 1]), identified(inventory)).map((row) => same(row.part)));
  for (const part of [...partsOf(inventory), ...partsOfEvents(inventory)]) {
    part.isChanged = changed.has(same(part));
    const steps = stepsOf(part.code);
    if (placeOf(part.code) === "") {
      const where = part.section === "Volumes" ? "Volumes" : places.size === 0 ? sectionWord(part.section) + "s" :
        "Place not known";
      elsewhere.set(where, [...elsewhere.get(where) || [], part]);
      continue;
    }
    const deeper = (map, key, fresh) => map.get(key) || map.set(key, fresh).get(key);
    const units = deeper(racks, steps.rack, new Map());
    const kinds = deeper(units, steps.unit, new Map());
    deeper(deeper(kinds, steps.kind, new Map()), steps.number, []).push(part);
  }
  const collection = member(inventory.document, "HostDataCollection");
  byId("racks").replaceChildren(
    ...[...racks].sort(([a], [b]) => a - b).map(([rack, units]) => drawRack(rack, units)),
    ...[...elsewhere].map(([where, list]) => make("div", {role: "group", "aria-label": visible(where)},
      make("h3", {}, brief(where)), make("div", {class: "row"}, list.map(loose)))),
    make("details", {}, make("summary", {}, "The host itself"), facts(flat(member(collection, "Oem") || {}))));
  byId("details").replaceChildren(make("p", {class: "quiet"},
    "Choose a place to see who is there. The arrow keys go from one to the next." + (changed.size === 0 ? "" :
      " What differs from the inventory before is marked as changed.")));
}

/** To the nearest place in the direction of an arrow key. */
function walk(event) {
  const direction = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]}[event.key];
  if (!direction || !event.target.matches("button.bay")) return;
  const centre = (element) => {
    const box = element.getBoundingClientRect();
    return [box.x + box.width / 2, box.y + box.height / 2];
  };
  const [x, y] = centre(event.target);
  let best = null, least = Infinity;
  for (const other of byId("racks").querySelectorAll("button.bay")) {
    const [dx, dy] = [centre(other)[0] - x, centre(other)[1] - y];
    const ahead = dx * direction[0] + dy * direction[1];
    const aside = Math.abs(dx * direction[1]) + Math.abs(dy * direction[0]);
    if (ahead > 1 && ahead + 3 * aside < least) [best, least] = [other, ahead + 3 * aside];
  }
  if (best !== null) best.focus();
  event.preventDefault();
}

// --- what changed -----------------------------------------------------------------------------

/** Parts by what makes them themselves; two of one name stay two. */
function identified(inventory) {
  const found = new Map();
  for (const part of partsOf(inventory)) {
    let key = `${part.section} ${part.name}`;
    while (found.has(key)) key += "'";
    found.set(key, part);
  }
  const oem = member(member(inventory.document, "HostDataCollection"), "Oem");
  if (isObject(oem)) found.set("host", {section: "Host", name: "", record: oem, health: ""});
  return found;
}

function differences(before, after) {
  const rows = [];
  for (const [key, part] of before) {
    if (!after.has(key)) rows.push({part, what: "is gone", before: part.state, after: ""});
  }
  for (const [key, part] of after) {
    if (!before.has(key)) {
      rows.push({part, what: "is new", before: "", after: part.state});
      continue;
    }
    const old = new Map(flat(before.get(key).record)), fresh = new Map(flat(part.record));
    for (const path of new Set([...old.keys(), ...fresh.keys()])) {
      if (old.get(path) === fresh.get(path)) continue;
      rows.push({part, what: path, before: old.get(path) || "", after: fresh.get(path) || ""});
    }
  }
  return rows;
}

function showDifference() {
  const [from, to] = [byId("from"), byId("to")].map((select) => inventories[Number(select.value)]);
  const rows = differences(identified(from), identified(to));
  byId("changes").replaceChildren(rows.length === 0 ? make("p", {}, "Nothing: both tell the same.") :
    make("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": "What changed"}, make("table", {},
      make("caption", {}, count(rows.length, "difference")),
      make("thead", {}, make("tr", {}, ["Part", "What", "Before", "After"].map((name) =>
        make("th", {scope: "col"}, name)))),
      make("tbody", {}, rows.map((row) => make("tr", {class: row.what.startsWith("is ") ? "whole" : ""},
        make("th", {scope: "row"}, brief(sectionWord(row.part.section)), " ", brief(row.part.name, 40)),
        make("td", {}, brief(row.what)), make("td", {class: "old"}, condition(row.before)),
        make("td", {class: "new"}, condition(row.after))))))));
}

const condition = (value) => value in SIGNS ?
  make("span", {}, badge(value), " ", value) : value === "" ? make("span", {class: "quiet"}, "–") : foreign(value);

// --- frames -----------------------------------------------------------------------------------

function showFrames() {
  const most = Math.max(1, ...reports.map((report) => report.frames || 0));
  byId("wire").append(make("div", {class: "scroll", tabindex: "0", role: "region", "aria-label": "Frames"},
    make("table", {}, make("caption", {}, count(reports.length, "report")),
      make("thead", {}, make("tr", {}, ["At", "Report", "Bytes", "Frames", "Took"].map((name) =>
        make("th", {scope: "col", class: name === "Report" ? "" : "figure"}, name)), make("td", {}))),
      make("tbody", {}, reports.map((report) => {
        const bar = make("span", {class: "bar " + report.kind});
        bar.style.width = `${(report.frames || 0) / most * 100}%`;
        return make("tr", {}, make("td", {class: "figure"}, linkTo(report, seconds(report.at))),
          make("th", {scope: "row"}, report.kind === "inventory" ? "Inventory" :
            [brief(textOf(member(report.document, "ID")) || report.command), " ", brief(report.meaning || "")],
          report.refused ? make("span", {class: "fate"}, "refused") : null),
          make("td", {class: "figure"}, group(report.bytes)), make("td", {class: "figure"}, group(report.frames || 0)),
          make("td", {class: "figure"}, duration(report.took)), make("td", {class: "bars"}, bar));
      })))));
}

// --- all of it --------------------------------------------------------------------------------

showHead();
showVerdict();
showFigures();
showLine();
showStrip();
showFilter();
showFrames();
if (inventories.length === 0) {
  byId("server").replaceChildren(make("p", {}, "No inventory has come that can be read."));
  byId("difference").hidden = true;
} else {
  inventories.forEach((inventory, index) => {
    for (const id of ["which", "from", "to"]) byId(id).append(make("option", {value: index}, seconds(inventory.at)));
  });
  byId("which").value = byId("to").value = inventories.length - 1;
  byId("from").value = 0;
  byId("which").addEventListener("change", showInventory);
  for (const id of ["from", "to"]) byId(id).addEventListener("change", showDifference);
  byId("racks").addEventListener("keydown", walk);
  showInventory();
  showDifference();
}
document.documentElement.classList.add("ready");
})();
