(() => {
"use strict";

const data = JSON.parse(document.getElementById("data").textContent);

// ------------------------------------------------------------------------------------------ elements

// Text of configurations becomes text nodes only, never markup.
function h(tag, attributes, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes || {})) {
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else if (value !== false && value !== null) element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return element;
}
const byId = (id) => document.getElementById(id);
const body = (section) => byId(section).querySelector(".body");
const number = (value) => value.toLocaleString("en");
const counted = (count, one, many = one + "s") => number(count) + " " + (count === 1 ? one : many);
const percent = (part, whole) => whole === 0 ? "0 %" : (100 * part / whole).toFixed(part * 10 < whole && part > 0 ? 1 : 0) + " %";

function bar(part, whole) {
  const inner = h("span", {class: part === 0 ? "none" : "", style: "width:" + (whole === 0 ? 0 : Math.min(100, 100 * part / whole)) + "%"});
  return h("span", {class: "bar", "aria-hidden": "true"}, inner);
}

// A column without a title draws the figure before it.
function columnHead([title, kind]) {
  return h("th", {scope: "col", class: kind || "", "aria-label": title ? null : "as a bar"}, title);
}

// Columns: [title, class]; cells: text or elements. The first cell of each row is its header.
function table(caption, columns, rows) {
  const head = h("tr", {}, columns.map(columnHead));
  const lines = rows.map((cells) => h("tr", {}, cells.map((cell, i) =>
    h(i === 0 ? "th" : "td", {scope: i === 0 ? "row" : null, class: columns[i][1] || ""}, cell))));
  return h("div", {class: "scroll"}, h("table", {}, h("caption", {}, caption), h("thead", {}, head), h("tbody", {}, lines)));
}

// --------------------------------------------------------------------------------------------- names

const letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
const letterOf = (list) => (list < 26 ? "" : letters[Math.floor(list / 26 - 1) % 26]) + letters[list % 26];
const implicitText = {"-1": "neighbour solicitation", "-2": "neighbour advertisement", "-3": "implicit deny"};
const listTitle = (list) => list.acl + " (" + list.family + (list.direction ? ", " + list.direction : "") + ")";
const place = (entry) => entry.file.split("/").pop() + (entry.line === 0 ? "" : ":" + entry.line);
const tableOf = (list) => list.family === "mac" ? "ingressMac" :
  (list.direction === "out" ? "egress" : "ingress") + (list.family === "ipv6" ? "V6" : "V4");
const tableTitle = (one) => (data.chips.length > 1 ? "chip " + one.chip + " " : "") + one.table;
const allTables = data.chips.flatMap((chip) => chip.tables.map((one) => ({...one, chip: chip.chip})));
const held = (list) => data.versions.reduce((sum, version) => sum +
  version.lists.filter((index) => data.lists[index] === list).length * version.chips.length * list.rows, 0);

// A line of a list, as a link that opens it.
function lineLink(list, entry, text) {
  return h("a", {href: "#line-" + list + "-" + entry}, text || place(data.lists[list].entries[entry]));
}

// ------------------------------------------------------------------------------------------ swatches

const style = () => getComputedStyle(document.documentElement);
function palette() {
  const css = style();
  const colour = (name) => css.getPropertyValue(name).trim();
  return {
    lists: Array.from({length: 8}, (_, i) => colour("--list-" + i)),
    free: colour("--free"), other: colour("--other"), text: colour("--on-fill"), card: colour("--page"), ink: colour("--ink"),
    mark: colour("--mark"),
  };
}

// Lists differ by colour and letter, versions of one list by pattern, deny from permit by the hole.
function paintCell(context, x, y, size, look, colours) {
  context.fillStyle = look.colour;
  context.fillRect(x, y, size, size);
  context.fillStyle = colours.card;
  // Bars along the edges leave the letter readable.
  const bar = Math.max(1.5, size / 7);
  if (look.pattern & 1) context.fillRect(x, y + size - 2 * bar, size, bar);
  if (look.pattern & 2) context.fillRect(x + bar, y, bar, size);
  if (look.hollow) {
    const edge = look.letter ? 1.5 : Math.max(2, Math.round(size / 5));
    context.fillRect(x + edge, y + edge, size - 2 * edge, size - 2 * edge);
  }
  if (look.letter) {
    context.fillStyle = look.hollow ? colours.ink : colours.text;
    context.font = "bold " + Math.round(size * (look.letter.length > 1 ? 0.55 : 0.75)) + "px sans-serif";
    context.textAlign = "center";
    context.textBaseline = "middle";
    context.fillText(look.letter, x + size / 2, y + size / 2 + 0.5);
  }
}

const repaints = [];
const repaintAll = () => repaints.forEach((repaint) => repaint());

function swatch(lookOf) {
  const canvas = h("canvas", {class: "swatch", width: "36", height: "36", "aria-hidden": "true"});
  const paint = () => {
    const context = canvas.getContext("2d");
    context.setTransform(2, 0, 0, 2, 0, 0);
    context.clearRect(0, 0, 18, 18);
    const colours = palette();
    paintCell(context, 1, 1, 16, lookOf(colours), colours);
  };
  paint();
  repaints.push(paint);
  return canvas;
}
const listSwatch = (index) => swatch((colours) => ({colour: colours.lists[index % 8], letter: letterOf(index)}));

// ----------------------------------------------------------------------------------------- in short

function drawHead() {
  const name = data.config.split("/").pop();
  document.title = name + ": access lists in the TCAM";
  byId("title").textContent = data.config;
  const used = allTables.reduce((sum, one) => sum + one.used, 0);
  byId("verdict").append(
    h("strong", {class: data.fits ? "good" : "bad"}, data.fits ? "✓ Fits." : "✗ Does not fit."),
    data.fits ? " " + counted(used, "row") + " in use on " + counted(data.chips.length, "chip") + "." : " Nothing would be written; this is why:");
  byId("reasons").append(...data.reasons.map((reason) => h("li", {}, reason)));
}

function figure(title, value, ...notes) {
  return h("dl", {class: "figure", style: "margin:0"}, h("dt", {}, title), h("dd", {}, value), notes.map((note) => h("dd", {}, note)));
}

function drawFigures() {
  const fullest = allTables.filter((one) => one.rows > 1).sort((a, b) =>
    (b.used + b.lack) / (b.rows - 1) - (a.used + a.lack) / (a.rows - 1))[0];
  const box = byId("figures");
  if (fullest) {
    box.append(figure("Fullest table", tableTitle(fullest) + " " + percent(fullest.used, fullest.rows - 1),
      number(fullest.used) + " of " + counted(fullest.rows - 1, "row") + (fullest.lack ? ", " + number(fullest.lack) + " lack" : "")));
  }
  const stuck = data.lists.filter((list) => list.room && !list.room.replaceable);
  const placed = data.lists.filter((list) => list.room);
  if (placed.length) {
    const largest = placed.filter((list) => list.room.replaceable).sort((a, b) => b.rows - a.rows)[0];
    box.append(figure("Can be replaced hitlessly", number(placed.length - stuck.length) + " of " + counted(placed.length, "list"),
      stuck.length ? "not " + stuck.slice(0, 3).map(listTitle).join(", ") + (stuck.length > 3 ? " and more" : "") :
        "the largest is " + largest.acl + ", " + counted(largest.rows, "row")));
  }
  if (data.costs.length) {
    const cost = data.costs[0];
    box.append(figure("Costliest line", counted(cost.rows, "row"), cost.acl + ", line " + cost.line));
  }
  if (data.findings) {
    box.append(figure("Findings", number(data.findings.length), data.findings.length ? "in " + counted(new Set(data.findings.map((f) => f.list)).size, "list") : "nothing odd"));
  }
  if (data.capture) {
    box.append(figure("Packets judged", number(data.capture.packets), number(data.capture.permit) + " permitted, " + number(data.capture.deny) + " denied"));
  }
}

// ------------------------------------------------------------------------------------------- tables

function replaceText(one) {
  const here = data.lists.filter((list) => list.room && tableOf(list) === one.table && held(list) > 0 &&
    data.versions.some((version) => version.chips.includes(one.chip) && version.lists.includes(data.lists.indexOf(list))));
  if (!here.length) return h("span", {class: "soft"}, data.fits ? "no list" : "");
  const able = here.filter((list) => list.room.replaceable).sort((a, b) => b.rows - a.rows);
  const stuck = here.length - able.length;
  const parts = [];
  if (able.length) parts.push("up to " + able[0].acl + ", " + counted(able[0].rows, "row"));
  if (stuck) parts.push(h("div", {class: "bad"}, "✗ " + counted(stuck, "list") + (stuck === 1 ? " has" : " have") + " no room"));
  return parts;
}

function drawTables() {
  const rows = allTables.map((one) => [
    tableTitle(one), number(Math.max(0, one.rows - 1)), number(one.used), number(one.free),
    [bar(one.used, one.rows - 1)], percent(one.used, one.rows - 1),
    one.lack ? h("span", {class: "bad"}, "✗ " + counted(one.lack, "row") + " lack") : replaceText(one)]);
  body("tables").append(table("Rows that lists can take; one more row of each table holds the default entry",
    [["Table"], ["Rows", "num"], ["Used", "num"], ["Free", "num"], [""], ["Share", "num"], ["Lists that can be replaced"]], rows));
}

// --------------------------------------------------------------------------------------------- maps

const [ROW, VERSION, LIST, ENTRY, PERMIT, LOG, KEY, COUNTER, COUNT, HITS] = Array(10).keys();
let mode = "list";

// "dst=0a142805/000000ff" as numbers and addresses that people know.
function fieldText(name, value, mask, family) {
  const none = /^0*$/.test(mask);
  if (family !== "mac" && (name === "dst" || name === "src")) {
    const split = family === "ipv4" ? (hex) => hex.match(/../g).map((two) => parseInt(two, 16)).join(".") :
      (hex) => hex.match(/.{4}/g).map((four) => four.replace(/^0{1,3}/, "")).join(":").replace(/(^|:)0(:0)+(:|$)/, "::");
    return [split(value), none ? "" : split(mask)];
  }
  if (name === "dst" || name === "src") {
    const split = (hex) => hex.match(/../g).join(":");
    return [split(value), none ? "" : split(mask)];
  }
  if (["dstL4", "srcL4", "proto", "ttl", "vlan"].includes(name)) {
    return [String(parseInt(value, 16)), none ? "" : "0x" + mask];
  }
  return ["0x" + value, none ? "" : "0x" + mask];
}
const fieldTitles = {aclId: "ACL id", flags: "flags", dstL4: "dst port", srcL4: "src port", proto: "protocol", ttl: "TTL",
  dst: "destination", src: "source", vlan: "VLAN", etherType: "EtherType"};

class RowMap {
  // `panel` tells about the cell that is pointed at or has the focus; all maps share it.
  constructor(one, panel) {
    this.one = one;
    this.family = one.table.endsWith("V4") ? "ipv4" : one.table.endsWith("V6") ? "ipv6" : "mac";
    this.cells = new Map(one.cells.map((cell) => [cell[ROW], cell]));
    this.cursor = one.cells.length ? one.cells[0][ROW] : 0;
    this.hottest = one.cells.reduce((most, cell) => Math.max(most, cell[HITS]), 1);
    this.patterns = this.versionPatterns();
    this.build(panel);
  }

  // The n-th version of a list in this table has pattern n.
  versionPatterns() {
    const seen = new Map();
    const patterns = new Map();
    for (const cell of this.one.cells) {
      const id = cell[LIST] + "/" + cell[VERSION];
      if (!patterns.has(id)) {
        patterns.set(id, (seen.get(cell[LIST]) || 0) % 4);
        seen.set(cell[LIST], (seen.get(cell[LIST]) || 0) + 1);
      }
    }
    return patterns;
  }

  build(panel) {
    const title = tableTitle(this.one);
    this.canvas = h("canvas", {"aria-hidden": "true"});
    // Two cells take turns, so that each step moves the focus and is announced.
    this.ends = [0, 1].map((i) => h("div", {class: "cursor", role: "gridcell", tabindex: i === 0 ? "0" : "-1", "aria-hidden": i === 0 ? null : "true"}));
    this.active = 0;
    this.line = h("div", {role: "row"}, this.ends);
    this.grid = h("div", {class: "grid", role: "grid", "aria-label": "Rows of " + title, "aria-rowcount": "1", "aria-colcount": String(this.one.rows),
      "aria-description": "Arrow keys move from row to row"}, this.canvas, this.line);
    this.panel = panel;
    const legend = h("ul", {class: "legend"}, this.legend());
    this.element = h("div", {class: "onemap", "data-table": title}, h("div", {class: "maphead"}, h("h3", {}, title),
      h("span", {class: "soft"}, number(this.one.used) + " of " + counted(Math.max(0, this.one.rows - 1), "row") + " used")), this.grid, legend);
    this.grid.addEventListener("keydown", (event) => this.key(event));
    this.grid.addEventListener("focusin", () => this.tell(this.cursor));
    this.canvas.addEventListener("pointermove", (event) => this.point(event));
    this.canvas.addEventListener("pointerleave", () => { this.hover = null; this.tell(this.cursor); });
    this.canvas.addEventListener("pointerdown", (event) => {
      const row = this.rowAt(event);
      if (row !== null) { event.preventDefault(); this.moveTo(row); }
    });
    repaints.push(() => this.paint());
  }

  legend() {
    const runs = [];
    for (const cell of this.one.cells) {
      const id = cell[LIST] + "/" + cell[VERSION];
      if (cell[LIST] >= 0 && !runs.some((run) => run.id === id)) runs.push({id, cell});
    }
    const items = runs.map(({id, cell}) => h("li", {}, swatch((colours) => ({colour: colours.lists[cell[LIST] % 8], letter: letterOf(cell[LIST]), pattern: this.patterns.get(id)})),
      data.lists[cell[LIST]].acl + (cell[VERSION] >= 0 ? ", id " + data.versions[cell[VERSION]].id + " " + data.versions[cell[VERSION]].kind : "")));
    items.push(h("li", {}, swatch((colours) => ({colour: colours.other})), "permits"), h("li", {}, swatch((colours) => ({colour: colours.other, hollow: true})), "denies"),
      h("li", {}, swatch((colours) => ({colour: colours.free})), "free"));
    return items;
  }

  // Lines of cells; a stretch of lines that are wholly free is one gap.
  layout() {
    const width = this.grid.clientWidth || 640;
    this.label = 52;
    const columns = Math.floor((width - this.label) / 14);
    this.columns = Math.max(16, Math.min(64, Math.floor(columns / 16) * 16));
    this.size = Math.max(8, Math.min(16, Math.floor((width - this.label) / this.columns)));
    const lineCount = Math.ceil(this.one.rows / this.columns);
    const taken = new Set(this.one.cells.map((cell) => Math.floor(cell[ROW] / this.columns)));
    this.stretches = [];
    let y = 0;
    for (let line = 0; line < lineCount; ++line) {
      let end = line;
      while (end < lineCount && !taken.has(end)) ++end;
      const gap = end - line >= 3;
      const from = line * this.columns;
      const to = Math.min(this.one.rows, (gap ? end : line + 1) * this.columns) - 1;
      const height = gap ? 26 : this.size;
      this.stretches.push({from, to, gap, y, height, line});
      y += height;
      if (gap) line = end - 1;
    }
    this.height = y;
    this.grid.setAttribute("aria-rowcount", String(lineCount));
    this.grid.setAttribute("aria-colcount", String(this.columns));
  }

  stretchOf(row) {
    return this.stretches.find((stretch) => row >= stretch.from && row <= stretch.to);
  }

  look(cell, colours, first) {
    const list = cell[LIST];
    const letter = first && list >= 0 ? letterOf(list) : "";
    if (mode === "hits") {
      const share = cell[HITS] === 0 ? 0 : 0.35 + 0.65 * Math.log1p(cell[HITS]) / Math.log1p(this.hottest);
      return {colour: share === 0 ? colours.other : "color-mix(in srgb, " + colours.mark + " " + Math.round(100 * share) + "%, " + colours.card + ")", hollow: share === 0, letter};
    }
    return {colour: list < 0 ? colours.other : colours.lists[list % 8], pattern: this.patterns.get(list + "/" + cell[VERSION]), hollow: cell[PERMIT] === 0, letter};
  }

  paint() {
    if (!this.grid.isConnected || this.one.rows === 0) return;
    this.layout();
    const ratio = Math.max(1, window.devicePixelRatio || 1);
    const width = this.label + this.columns * this.size;
    this.canvas.width = width * ratio;
    this.canvas.height = Math.max(1, this.height) * ratio;
    this.canvas.style.width = width + "px";
    this.canvas.style.height = this.height + "px";
    const context = this.canvas.getContext("2d");
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    const colours = palette();
    const soft = style().getPropertyValue("--soft").trim();
    for (const stretch of this.stretches) this.paintStretch(context, stretch, colours, soft);
    this.place();
  }

  paintStretch(context, stretch, colours, soft) {
    context.font = "11px sans-serif";
    context.textBaseline = "middle";
    context.fillStyle = soft;
    context.textAlign = "right";
    context.fillText(number(stretch.from), this.label - 8, stretch.y + stretch.height / 2);
    if (stretch.gap) {
      context.fillStyle = colours.free;
      context.fillRect(this.label, stretch.y + 2, this.columns * this.size - 1, stretch.height - 5);
      context.fillStyle = soft;
      context.textAlign = "left";
      context.fillText("rows " + number(stretch.from) + " to " + number(stretch.to) + " are free (" + number(stretch.to - stretch.from + 1) + ")", this.label + 10, stretch.y + stretch.height / 2 - 0.5);
      return;
    }
    for (let row = stretch.from; row <= stretch.to; ++row) {
      const x = this.label + (row - stretch.from) * this.size;
      const cell = this.cells.get(row);
      if (!cell) {
        context.fillStyle = colours.free;
        context.fillRect(x, stretch.y, this.size - 1, this.size - 1);
        continue;
      }
      const before = this.cells.get(row - 1);
      const first = !before || before[LIST] !== cell[LIST] || before[VERSION] !== cell[VERSION] || (row === stretch.from && stretch.line % 8 === 0);
      paintCell(context, x, stretch.y, this.size - 1, this.look(cell, colours, first), colours);
      if (before && (before[LIST] !== cell[LIST] || before[VERSION] !== cell[VERSION])) {
        context.fillStyle = colours.ink;
        context.fillRect(x - 1, stretch.y, 1.5, this.size - 1);
      }
    }
  }

  rowAt(event) {
    const box = this.canvas.getBoundingClientRect();
    const x = event.clientX - box.left - this.label;
    const y = event.clientY - box.top;
    const stretch = this.stretches.find((one) => y >= one.y && y < one.y + one.height);
    if (!stretch || x < 0 || x >= this.columns * this.size) return null;
    const row = stretch.gap ? stretch.from : stretch.from + Math.floor(x / this.size);
    return row > stretch.to ? null : row;
  }

  point(event) {
    const row = this.rowAt(event);
    if (row !== this.hover) {
      this.hover = row;
      this.tell(row === null ? this.cursor : row);
    }
  }

  key(event) {
    const stretch = this.stretchOf(this.cursor);
    const index = this.stretches.indexOf(stretch);
    const column = stretch.gap ? this.column || 0 : this.cursor - stretch.from;
    const down = (steps) => {
      const to = this.stretches[Math.max(0, Math.min(this.stretches.length - 1, index + steps))];
      return to.gap ? to.from : Math.min(to.from + column, to.to);
    };
    const moves = {
      ArrowRight: () => stretch.gap ? stretch.to + 1 : this.cursor + 1,
      ArrowLeft: () => this.cursor - 1,
      ArrowDown: () => down(1), ArrowUp: () => down(-1),
      PageDown: () => down(8), PageUp: () => down(-8),
      Home: () => event.ctrlKey ? 0 : stretch.from,
      End: () => event.ctrlKey ? this.one.rows - 1 : stretch.gap ? stretch.from : stretch.to,
    };
    if (event.key === "Enter") {
      const cell = this.cells.get(this.cursor);
      if (cell && cell[ENTRY] >= 0 && cell[LIST] >= 0) location.hash = "line-" + cell[LIST] + "-" + cell[ENTRY];
    } else if (moves[event.key]) {
      event.preventDefault();
      if (!stretch.gap) this.column = column;
      this.moveTo(moves[event.key]());
    }
  }

  moveTo(row) {
    row = Math.max(0, Math.min(this.one.rows - 1, row));
    const stretch = this.stretchOf(row);
    this.cursor = stretch.gap ? stretch.from : row;
    const old = this.ends[this.active];
    this.active = 1 - this.active;
    const fresh = this.ends[this.active];
    fresh.tabIndex = 0;
    fresh.removeAttribute("aria-hidden");
    this.place();
    fresh.focus();
    old.tabIndex = -1;
    old.setAttribute("aria-hidden", "true");
    fresh.scrollIntoView({block: "nearest"});
    this.tell(this.cursor);
  }

  place() {
    const stretch = this.stretchOf(this.cursor);
    const column = stretch.gap ? 0 : this.cursor - stretch.from;
    const end = this.ends[this.active];
    end.style.left = this.label + column * this.size + "px";
    end.style.top = stretch.y + "px";
    end.style.width = (stretch.gap ? this.columns * this.size : this.size) - 1 + "px";
    end.style.height = stretch.height - 1 + "px";
    end.setAttribute("aria-colindex", String(column + 1));
    this.line.setAttribute("aria-rowindex", String(Math.floor(this.cursor / this.columns) + 1));
    end.setAttribute("aria-label", this.summary(this.cursor));
  }

  // One sentence about a row.
  summary(row) {
    const stretch = this.stretchOf(row);
    if (stretch.gap) return "Rows " + stretch.from + " to " + stretch.to + ", free";
    const cell = this.cells.get(row);
    if (!cell) return "Row " + row + ", free";
    const action = (cell[PERMIT] ? "permit" : "deny") + (cell[LOG] ? " and log" : "");
    const hits = data.capture ? ", " + counted(cell[HITS], "hit") : "";
    if (cell[LIST] < 0) return "Row " + row + ", the default entry, " + action + hits;
    const list = data.lists[cell[LIST]];
    const entry = cell[ENTRY] >= 0 ? list.entries[cell[ENTRY]] : null;
    return "Row " + row + ", " + list.acl + ", " + (entry ? place(entry) + " " + entry.rule : implicitText[cell[ENTRY]]) + ", " + action + hits;
  }

  tell(row) {
    const stretch = this.stretchOf(row);
    const cell = stretch.gap ? null : this.cells.get(row);
    if (!cell) {
      this.panel.replaceChildren(h("h3", {}, tableTitle(this.one) + (stretch.gap ? ", rows " + number(stretch.from) + " to " + number(stretch.to) : ", row " + number(row))), h("p", {class: "soft"}, "free"));
      return;
    }
    this.panel.replaceChildren(h("h3", {}, tableTitle(this.one) + ", row " + number(row)), ...this.lineOf(cell), this.actionOf(cell), this.keyOf(cell));
  }

  lineOf(cell) {
    if (cell[LIST] < 0) return [h("p", {}, "The default entry: it drops what no list has.")];
    const list = data.lists[cell[LIST]];
    const version = cell[VERSION] >= 0 ? data.versions[cell[VERSION]] : null;
    const head = h("p", {}, listSwatch(cell[LIST]), " ", h("strong", {}, list.acl), version ? " under id " + version.id + ", " + version.kind : "");
    repaints.pop();
    if (cell[ENTRY] < 0) {
      const implicit = list.implicit.find((one) => one.origin === cell[ENTRY]);
      return [head, h("p", {class: "rule"}, implicit ? implicit.rule : implicitText[cell[ENTRY]])];
    }
    const entry = list.entries[cell[ENTRY]];
    return [head, h("p", {}, lineLink(cell[LIST], cell[ENTRY])), h("p", {class: "rule"}, entry.rule),
      entry.rows > 1 ? h("p", {class: "soft"}, "one of " + counted(entry.rows, "row") + " of the line") : null].filter(Boolean);
  }

  actionOf(cell) {
    const action = h("strong", {}, (cell[PERMIT] ? "permit" : "deny") + (cell[LOG] ? ", log" : ""));
    const counter = cell[COUNTER] >= 0 ? "counter " + cell[COUNTER] + ": " + number(cell[COUNT]) : "no counter of its own";
    return h("p", {}, action, " · " + counter + (data.capture ? " · " + counted(cell[HITS], "hit") : ""));
  }

  keyOf(cell) {
    const fields = cell[KEY].split(" ").filter(Boolean).map((field) => {
      const [name, rest] = field.split("=");
      const [value, mask] = rest.split("/");
      const [shown, ignored] = fieldText(name, value, mask, this.family);
      return h("tr", {}, h("th", {scope: "row"}, fieldTitles[name] || name), h("td", {class: "mono"}, shown), h("td", {class: "mono"}, ignored));
    });
    return h("table", {"aria-label": "What the row compares"}, h("thead", {}, h("tr", {}, h("th", {scope: "col"}, "Field"), h("th", {scope: "col"}, "Value"), h("th", {scope: "col"}, "Ignored bits"))), h("tbody", {}, fields));
  }
}

function drawMaps() {
  const shown = allTables.filter((one) => one.cells.some((cell) => cell[LIST] >= 0));
  const empty = allTables.filter((one) => !shown.includes(one));
  if (data.capture && shown.length) {
    const choice = (value, text) => h("label", {}, h("input", {type: "radio", name: "mode", value, checked: value === mode,
      onchange: () => { mode = value; repaintAll(); }}), " " + text);
    body("map").append(h("fieldset", {class: "modes"}, h("legend", {}, "Colour by"), choice("list", "list and action"), choice("hits", "hits (a hole: never hit)")));
  }
  const panel = h("div", {class: "panel", role: "region", "aria-label": "The row that is pointed at"});
  const maps = shown.map((one) => new RowMap(one, panel));
  if (maps.length) {
    body("map").append(h("div", {class: "mapbox"}, h("div", {}, maps.map((map) => map.element)), panel));
    maps.forEach((map) => map.paint());
    maps[0].tell(maps[0].cursor);
  }
  if (empty.length) {
    body("map").append(h("p", {class: "soft"}, data.fits ? "Without lists: " + empty.map(tableTitle).join(", ") + "." :
      "The configuration does not fit, so no rows were placed."));
  }
  let waiting = 0;
  window.addEventListener("resize", () => { clearTimeout(waiting); waiting = setTimeout(repaintAll, 100); });
  window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", repaintAll);
}

// ------------------------------------------------------------------------------------------ packets

function drawTraffic() {
  if (!data.capture) {
    byId("traffic").hidden = true;
    return;
  }
  const capture = data.capture;
  const lines = data.lists.flatMap((list, index) => list.entries.map((entry, at) => ({list: index, entry: at, hits: entry.hits})))
    .filter((line) => line.hits !== null);
  const hit = lines.filter((line) => line.hits > 0).sort((a, b) => b.hits - a.hits);
  body("traffic").append(h("p", {}, counted(capture.packets, "packet") + " of " + data.pcap + " entered " + capture.in + (capture.out ? " and left by " + capture.out : "") + ": " +
    number(capture.permit) + " permitted, " + number(capture.deny) + " denied. " + number(lines.length - hit.length) + " of " + counted(lines.length, "applied line") + " were never hit."));
  const shown = hit.slice(0, 15);
  if (shown.length) {
    body("traffic").append(table("The lines with most hits", [["Line"], ["List"], ["Rule"], ["Hits", "num"], ["Share"]], shown.map((line) => {
      const entry = data.lists[line.list].entries[line.entry];
      return [lineLink(line.list, line.entry), data.lists[line.list].acl, h("span", {class: "rule"}, entry.rule), number(line.hits), [bar(line.hits, shown[0].hits)]];
    })));
  }
}

// -------------------------------------------------------------------------------------------- lists

const kinds = {unreachable: ["unreachable", "bad"], removable: ["could go", "odd"], contradiction: ["order decides", "odd"], costlyRange: ["costly range", "odd"]};
const badge = (kind) => h("span", {class: "badge " + kinds[kind][1]}, kinds[kind][0]);
// Findings of each line, by "list/entry".
const findingsAt = new Map();
for (const finding of data.findings || []) {
  const at = finding.list + "/" + finding.entry;
  findingsAt.set(at, [...(findingsAt.get(at) || []), finding]);
}

function roomText(list) {
  if (!list.room) return "";
  if (list.room.replaceable) return "up to " + counted(list.room.rows, "row");
  return h("span", {class: "bad"}, "✗ " + (list.room.rows ? "only " + number(list.room.rows) : "no") + " rows, for " + list.room.limit);
}

class ListView {
  static chunk = 400;

  constructor(list, index) {
    this.list = list;
    this.index = index;
    this.hits = data.capture && list.direction;
    this.most = list.entries.reduce((most, entry) => Math.max(most, entry.hits || 0), 1);
    this.costly = list.entries.reduce((most, entry) => Math.max(most, entry.rows || 0), 1);
    this.order = list.entries.map((_, entry) => entry);
    const note = list.hasErrors ? "has lines that no row can express; not loaded" : list.direction ? counted(list.lines, "line") + ", " + counted(list.rows, "row") : counted(list.lines, "line") + ", not applied, so it takes no rows";
    this.inside = h("div", {class: "inside"});
    this.element = h("details", {id: "list-" + index, ontoggle: () => this.element.open && this.fill()},
      h("summary", {}, listSwatch(index), h("strong", {}, listTitle(list)), " ", h("span", {class: "soft"}, note)), this.inside);
  }

  fill() {
    if (this.rows) return;
    const columns = [["Line"], ["Rule"], ["Rows", "num"], [""]].concat(this.hits ? [["Hits", "num"], [""]] : []);
    this.rows = h("tbody");
    this.less = h("div", {class: "tools"});
    this.more = h("div", {class: "tools"});
    const filter = h("input", {type: "search", placeholder: "part of a rule", "aria-label": "Show only lines of " + this.list.acl + " with this text",
      oninput: () => this.filterIs(filter.value)});
    const implicit = h("tbody", {}, this.list.implicit.map((one) => h("tr", {}, h("td", {}, ""), h("td", {class: "rule soft"}, one.rule), h("td", {class: "num"}, "1"), h("td", {}, bar(1, this.costly)),
      this.hits ? [h("td", {class: "num"}, number(one.hits)), h("td", {}, bar(one.hits, this.most))] : [])));
    this.inside.append(this.list.entries.length > 20 ? h("div", {class: "tools"}, filter) : "", this.less,
      h("div", {class: "scroll"}, h("table", {}, h("caption", {}, "Lines of " + listTitle(this.list)), h("thead", {}, h("tr", {}, columns.map(columnHead))), this.rows, implicit)), this.more);
    this.show(0, ListView.chunk);
  }

  filterIs(text) {
    const wanted = text.trim().toLowerCase();
    this.order = this.list.entries.map((_, entry) => entry).filter((entry) => !wanted || this.list.entries[entry].rule.toLowerCase().includes(wanted));
    this.show(0, ListView.chunk);
  }

  // Draws the lines from the first up to the last one of this part; long lists are never drawn whole unasked.
  show(first, last) {
    this.first = Math.max(0, first);
    this.last = Math.min(this.order.length, last);
    this.rows.replaceChildren(...this.order.slice(this.first, this.last).map((entry) => this.row(entry)));
    this.offer();
  }

  offer() {
    const button = (text, act) => h("button", {type: "button", onclick: act}, text);
    const before = this.first;
    const behind = this.order.length - this.last;
    this.less.replaceChildren();
    this.more.replaceChildren();
    if (before > 0) {
      this.less.append(h("span", {class: "soft"}, counted(before, "line") + " before these"), button("Show " + number(Math.min(before, ListView.chunk)) + " of them", () => {
        this.rows.prepend(...this.order.slice(Math.max(0, before - ListView.chunk), before).map((entry) => this.row(entry)));
        this.first = Math.max(0, before - ListView.chunk);
        this.offer();
      }));
    }
    if (behind > 0) {
      this.more.append(h("span", {class: "soft"}, counted(behind, "line") + " behind these"), button("Show " + number(Math.min(behind, ListView.chunk)) + " of them", () => {
        this.rows.append(...this.order.slice(this.last, this.last + ListView.chunk).map((entry) => this.row(entry)));
        this.last = Math.min(this.order.length, this.last + ListView.chunk);
        this.offer();
      }), button("Show all", () => this.show(0, this.order.length)));
    }
  }

  row(at) {
    const entry = this.list.entries[at];
    const found = new Set((findingsAt.get(this.index + "/" + at) || []).map((finding) => finding.kind));
    const badges = [...found].map((kind) => h("a", {href: "#finding-" + this.index + "-" + at}, badge(kind)));
    return h("tr", {id: "line-" + this.index + "-" + at, tabindex: "-1"}, h("th", {scope: "row", class: "num"}, String(entry.line)), h("td", {class: "rule"}, entry.rule, badges.length ? h("div", {}, badges) : ""),
      h("td", {class: "num"}, entry.rows === null ? "" : number(entry.rows)), h("td", {}, entry.rows === null ? "" : bar(entry.rows, this.costly)),
      this.hits ? [h("td", {class: "num"}, number(entry.hits)), h("td", {}, bar(entry.hits, this.most))] : []);
  }

  open(entry) {
    this.element.open = true;
    this.fill();
    if (!this.order.includes(entry)) this.filterIs("");
    const at = this.order.indexOf(entry);
    if (at >= this.last || at < this.first) this.show(at - ListView.chunk / 2, at + ListView.chunk / 2);
  }
}

let views = [];
function drawLists() {
  const shared = (list) => data.versions.filter((version) => version.lists.includes(data.lists.indexOf(list)));
  const found = (index) => (data.findings || []).filter((finding) => finding.list === index).length;
  const columns = [["List"], ["Family"], ["Direction"], ["Lines", "num"], ["Rows", "num"], ["Versions", "num"], ["Rows held", "num"], ["A replacement may have"]].concat(data.findings ? [["Findings", "num"]] : []);
  body("lists").append(data.lists.length ? table("One line of this table for each list and direction", columns, data.lists.map((list, index) =>
    [h("span", {}, listSwatch(index), " ", h("a", {href: "#list-" + index}, list.acl)), list.family, list.direction || h("span", {class: "soft"}, "not applied"), number(list.lines),
      list.direction ? number(list.rows) : "", list.direction ? number(shared(list).reduce((sum) => sum + 1, 0)) : "", list.direction ? number(held(list)) : "", roomText(list)].concat(data.findings ? [number(found(index))] : []))) :
    h("p", {}, "The configuration has no access list."));
  views = data.lists.map((list, index) => new ListView(list, index));
  body("lists").append(...views.map((view) => view.element));
}

// ------------------------------------------------------------------------------------ costs, sharing

function drawCosts() {
  if (!data.costs.length) {
    body("costs").append(h("p", {}, "Every line takes one row."));
    return;
  }
  const most = data.costs[0].rows;
  const shown = data.costs.slice(0, 30);
  body("costs").append(table(shown.length < data.costs.length ? "The " + shown.length + " costliest of " + number(data.costs.length) + " lines with more than one row" : "Lines with more than one row",
    [["Line"], ["List"], ["Rule, and what its ports become (value/mask)"], ["Rows", "num"], [""]], shown.map((cost) => {
      const list = data.lists.findIndex((one) => one.acl === cost.acl && one.entries.some((entry) => entry.line === cost.line && entry.rule === cost.rule));
      const entry = list < 0 ? -1 : data.lists[list].entries.findIndex((one) => one.line === cost.line && one.rule === cost.rule);
      return [list < 0 ? place(cost) : lineLink(list, entry), cost.acl, [h("div", {class: "rule"}, cost.rule), h("div", {class: "rule soft"}, cost.expansion)], number(cost.rows), [bar(cost.rows, most)]];
    })));
}

function drawSharing() {
  if (!data.versions.length) {
    body("sharing").append(h("p", {}, "No list stands in a chip."));
    return;
  }
  const saved = data.versions.reduce((sum, version) => sum + version.saved, 0);
  body("sharing").append(table("Sharing saves " + counted(saved, "row"), [["Id", "num"], ["Kind"], ["Lists"], ["Interfaces"], ["Chips"], ["Rows held", "num"], ["Saved", "num"]],
    data.versions.map((version) => [String(version.id), version.kind, version.lists.filter((index) => index >= 0).map((index) => h("div", {}, listSwatch(index), " " + data.lists[index].acl + " (" + data.lists[index].family + ")")),
      version.interfaces.map((intf) => h("div", {}, intf)), version.chips.join(", "), number(version.rows), number(version.saved)])));
}

// ----------------------------------------------------------------------------------------- findings

function findingItem(finding, first) {
  const list = data.lists[finding.list];
  const entry = list.entries[finding.entry];
  const others = finding.others.slice(0, 5).map((other) => h("p", {}, finding.kind === "unreachable" ? "hidden by " : "wins over ", lineLink(finding.list, other), " ", h("span", {class: "rule"}, list.entries[other].rule)));
  const more = finding.others.length - others.length;
  return h("li", {id: first ? "finding-" + finding.list + "-" + finding.entry : null, tabindex: "-1"},
    h("p", {}, badge(finding.kind), lineLink(finding.list, finding.entry), " ", h("span", {class: "rule"}, entry.rule)),
    h("p", {class: "soft"}, finding.detail), others, more > 0 ? h("p", {class: "soft"}, "and " + counted(more, "more line")) : null);
}

function drawFindings() {
  if (!data.findings) {
    body("findings").append(h("p", {}, "Nobody looked: the report was made without lint."));
    return;
  }
  if (!data.findings.length) {
    body("findings").append(h("p", {}, h("span", {class: "good"}, "✓"), " Nothing odd in any list."));
    return;
  }
  const seen = new Set();
  data.lists.forEach((list, index) => {
    const here = data.findings.filter((finding) => finding.list === index);
    if (!here.length) return;
    const holder = h("ul", {class: "finding"});
    const tools = h("div", {class: "tools"});
    let shown = 0;
    const grow = (count) => {
      holder.append(...here.slice(shown, shown + count).map((finding) => {
        const at = finding.list + "/" + finding.entry;
        const first = !seen.has(at);
        seen.add(at);
        return findingItem(finding, first);
      }));
      shown = Math.min(here.length, shown + count);
      tools.replaceChildren();
      if (shown < here.length) tools.append(h("button", {type: "button", onclick: () => grow(here.length)}, "Show " + number(here.length - shown) + " more of " + list.acl));
    };
    grow(25);
    findingGrowers.set(index, () => grow(here.length));
    body("findings").append(h("h3", {style: "margin-top:1rem"}, listTitle(list), " ", h("span", {class: "soft"}, counted(here.length, "finding"))), holder, tools);
  });
}
const findingGrowers = new Map();

// -------------------------------------------------------------------------------------------- links

// Lines and findings may not be drawn yet when somebody follows a link to them.
function follow() {
  const [what, list, entry] = location.hash.slice(1).split("-");
  const view = views[Number(list)];
  if (!view) return;
  if (what === "list") view.element.open = true;
  else if (what === "line") view.open(Number(entry));
  else if (what === "finding" && !document.getElementById(location.hash.slice(1))) findingGrowers.get(Number(list))?.();
  else if (what !== "finding") return;
  document.querySelectorAll(".target").forEach((old) => old.classList.remove("target"));
  const target = document.getElementById(location.hash.slice(1));
  if (!target) return;
  target.classList.add("target");
  target.scrollIntoView({block: "center"});
  (what === "list" ? target.querySelector("summary") : target).focus({preventScroll: true});
}

function drawNav() {
  for (const section of document.querySelectorAll("main > section[id]")) {
    const title = section.querySelector("h2");
    if (title && !section.hidden) byId("nav").append(h("li", {}, h("a", {href: "#" + section.id}, title.textContent)));
  }
}

drawHead();
drawFigures();
drawTables();
drawMaps();
drawTraffic();
drawLists();
drawCosts();
drawSharing();
drawFindings();
drawNav();
window.addEventListener("hashchange", follow);
document.addEventListener("click", (event) => {
  const link = event.target.closest && event.target.closest("a[href^='#']");
  // A link to where the page already is changes no hash.
  if (link && link.getAttribute("href") === location.hash) follow();
});
// Paper cannot be clicked: short lists are printed whole.
let opened = [];
window.addEventListener("beforeprint", () => {
  opened = views.filter((view) => !view.element.open && view.list.entries.length <= ListView.chunk);
  opened.forEach((view) => view.open(0));
});
window.addEventListener("afterprint", () => opened.forEach((view) => { view.element.open = false; }));
if (location.hash) follow();
document.documentElement.dataset.drawn = "yes";
})();
