// The page's script. What it shows comes from the report embedded in the page, and goes into the
// page as text alone: no text of a trace is ever read as markup.
"use strict";

const report = JSON.parse(element("report").textContent);

// ---- Words and numbers ----

const nbsp = "\u00a0";
const whole = new Intl.NumberFormat("en", { maximumFractionDigits: 0 });

function count(number) {
  return whole.format(number);
}

function counted(number, noun) {
  return `${count(number)} ${noun}${number === 1 ? "" : "s"}`;
}

function bytes(number) {
  const units = ["B", "KiB", "MiB", "GiB", "TiB", "PiB"];
  let unit = 0;
  while (Math.abs(number) >= (unit === 0 ? 1024 : 1023.5) && unit + 1 < units.length) {
    number /= 1024;
    unit++;
  }
  const digits = unit === 0 ? 0 : number < 9.995 ? 2 : number < 99.95 ? 1 : 0;
  return `${number.toFixed(digits)}${nbsp}${units[unit]}`;
}

function amount({ bytes: size, blocks }) {
  return `${bytes(size)} in ${counted(blocks, "block")}`;
}

function percent(part, all) {
  if (!all) {
    return "–";
  }
  const value = (100 * part) / all;
  return (part && value < 0.1 ? "<0.1" : value.toFixed(1)) + `${nbsp}%`;
}

function duration(milliseconds) {
  const seconds = Math.floor(milliseconds / 1000);
  const minutes = Math.floor(seconds / 60);
  const two = (number) => String(number).padStart(2, "0");
  if (milliseconds < 1000) {
    return `${milliseconds}${nbsp}ms`;
  }
  if (minutes < 1) {
    return `${seconds}.${Math.floor((milliseconds % 1000) / 100)}${nbsp}s`;
  }
  if (minutes < 60) {
    return [minutes, "min", two(seconds % 60), "s"].join(nbsp);
  }
  return [Math.floor(minutes / 60), "h", two(minutes % 60), "min"].join(nbsp);
}

function moment(at) {
  return at.milliseconds === undefined
    ? `after ${counted(at.event, "event")}`
    : `after ${duration(at.milliseconds)}`;
}

function fileAndLine({ file = "", line }) {
  return line ? `${file}:${line}` : file;
}

function lastName(path) {
  return path.slice(path.lastIndexOf("/") + 1);
}

// "libplugin.so+0x1234" names its module already.
function whereabouts(frame) {
  const parts = frame.function === undefined ? [] : [fileAndLine(frame)];
  if (frame.module && !(frame.function ?? "").startsWith(`${frame.module}+0x`)) {
    parts.push(frame.module);
  }
  return parts.filter(Boolean).join(", ");
}

function frameName(frame) {
  return frame.function ?? (fileAndLine(frame) || frame.module || "unknown");
}

// The frame that a reader looks for: the innermost one that is not the library's own.
function siteOf(stack) {
  return stack.find((frame) => !frame.library) ?? stack[0];
}

function processName(process) {
  const name = process.command ? process.command.replace(/^\S*\//, "") : process.input;
  return process.pid ? `${name} (${process.pid})` : name;
}

// ---- Elements ----

function element(id) {
  return document.getElementById(id);
}

// Children are elements or texts; nothing is parsed.
function make(tag, attributes = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

function makeSvg(tag, attributes, ...children) {
  const made = document.createElementNS("http://www.w3.org/2000/svg", tag);
  for (const [name, value] of Object.entries(attributes)) {
    made.setAttribute(name, value);
  }
  made.append(...children);
  return made;
}

function number(value, text, attributes = {}) {
  return make("data", { value, ...attributes }, text);
}

function makeFrame(frame) {
  const where = whereabouts(frame);
  return [make("code", {}, frameName(frame)), where && make("span", { class: "note" }, ` ${where}`)];
}

function makeFacts(facts) {
  const list = make("dl", { class: "facts" });
  for (const [name, ...values] of facts) {
    list.append(make("dt", {}, name), make("dd", {}, ...values));
  }
  return list;
}

// A group of radio buttons that looks like one switch.
function fillSwitch(fieldset, choices, chosen, onChange) {
  for (const [value, text] of choices) {
    const input = make("input", { type: "radio", name: fieldset.id, value });
    input.checked = value === chosen;
    input.addEventListener("change", () => onChange(value));
    fieldset.append(make("label", {}, input, text));
  }
}

// Buttons that show more of a list that is shown in part.
function fillMore(place, shown, all, onMore) {
  place.replaceChildren();
  if (shown < all) {
    const step = Math.min(400, all - shown);
    const some = make("button", { type: "button" }, `Show ${count(step)} more`);
    const rest = make("button", { type: "button" }, `Show all ${count(all)}`);
    some.addEventListener("click", () => onMore(shown + step));
    rest.addEventListener("click", () => onMore(all));
    place.append(...(step < all - shown ? [some, rest] : [rest]));
  }
}

// ---- Summary ----

function showSummary() {
  const { totals, processes } = report;
  const names = [...new Set(processes.map((process) => process.command || process.input))];
  const more = names.length > 3 ? ` and ${names.length - 3} more` : "";
  element("subject").textContent = names.slice(0, 3).join(", ") + more;
  document.title = `${names[0] ? lastName(names[0].split(" ")[0]) : "nothing"} – vek-trace`;

  const figure = (id, name, value, text, ...notes) => {
    const group = make("div", {}, make("dt", {}, name), make("dd", {}, number(value, text, { id })));
    for (const note of notes.filter(Boolean)) {
      group.append(make("dd", { class: "note" }, note));
    }
    element("figures").append(group);
  };
  const { live, peak } = totals;
  figure("figure-live", "Live at the end", live.bytes, bytes(live.bytes),
    `in ${counted(live.blocks, "block")}`,
    report.suppressed.blocks && `${bytes(report.suppressed.bytes)} of it suppressed`);
  figure("figure-peak", processes.length > 1 ? "Sum of the peaks" : "Peak", peak.bytes,
    bytes(peak.bytes), `in ${counted(peak.blocks, "block")}`,
    (processes.length > 1 ? "highest " : "") + moment(peak));
  figure("figure-allocations", "Allocations", totals.allocations, count(totals.allocations),
    `${bytes(totals.total.bytes)} ever`,
    totals.resizes && `and ${counted(totals.resizes, "resize")}`);
  figure("figure-releases", "Releases", totals.releases, count(totals.releases));
  figure("figure-failed", "Failed requests", totals.failed, count(totals.failed));
  figure("figure-refused", "Refused", totals.refused, count(totals.refused),
    "in the error state");
  figure("figure-faults", "Faults", totals.faults, count(totals.faults));
  showEndings();
}

function showEndings() {
  const endings = new Map();
  for (const { ended } of report.processes) {
    if (ended) {
      endings.set(ended, (endings.get(ended) ?? 0) + 1);
    }
  }
  const all = report.processes.length;
  const group = make("div", {}, make("dt", {}, "Processes"),
    make("dd", {}, number(all, count(all), { id: "figure-processes" })));
  for (const [ended, times] of endings) {
    group.append(make("dd", { class: "note" }, all > 1 ? `${count(times)} ${ended}` : ended));
  }
  element("figures").append(group);
}

// Shows a section and adds it to the list of contents.
function open(id, name, size) {
  element(id).hidden = false;
  const title = size === undefined ? name : `${name} (${count(size)})`;
  element("contents").append(make("a", { href: `#${id}` }, title));
}

// ---- The chart ----

const chart = {
  series: [],
  axis: "event",
  width: 0,
  height: 0,
  left: 64,
  bottom: 24,
  top: 20,
  right: 12,
};

function showChart() {
  chart.series = report.processes
    .filter((process) => process.moments.length > 0)
    .sort((one, other) => other.totals.peak.bytes - one.totals.peak.bytes)
    .map((process, index) => ({ process, index, shown: index < 6 }));
  if (chart.series.length === 0) {
    return;
  }
  open("run", "Run");
  const timed = chart.series.filter(({ process }) => process.totals.milliseconds !== undefined);
  if (timed.length > 0) {
    chart.axis = "milliseconds";
    fillSwitch(element("run-axis"), [["milliseconds", "Time"], ["event", "Events"]], chart.axis,
      (axis) => {
        chart.axis = axis;
        drawChart();
      });
  } else {
    element("run-axis").remove();
  }
  for (const series of chart.series) {
    element("run-legend").append(makeLegend(series));
  }
  const place = element("run-chart");
  place.addEventListener("pointermove", (event) => {
    moveCursor(event.clientX - place.getBoundingClientRect().left);
  });
  place.addEventListener("pointerleave", () => moveCursor());
  place.addEventListener("blur", () => moveCursor());
  place.addEventListener("keydown", onChartKey);
  window.addEventListener("resize", drawChart);
  drawChart();
}

function makeLegend(series) {
  const { process, index } = series;
  const box = make("input", { type: "checkbox" });
  box.checked = series.shown;
  box.addEventListener("change", () => {
    series.shown = box.checked;
    drawChart();
  });
  series.value = make("span", { class: "value" });
  const label = make("label", { class: `series-${index % 6}` },
    chart.series.length > 1 ? box : "", make("span", { class: "swatch" }),
    make("span", {}, processName(process)), series.value);
  return label;
}

function shownSeries() {
  return chart.series.filter(
    ({ shown, process }) => shown && process.moments[0][chart.axis] !== undefined);
}

function drawChart() {
  const place = element("run-chart");
  chart.width = place.clientWidth;
  chart.height = place.clientHeight;
  const shown = shownSeries();
  const largest = (key) =>
    shown.reduce((most, { process: { moments } }) =>
      moments.reduce((value, each) => Math.max(value, each[key]), most), 1);
  const { left, right, top, bottom, width, height } = chart;
  chart.xMax = largest(chart.axis);
  chart.yMax = largest("bytes") * 1.04;
  chart.x = (value) => left + ((width - left - right) * value) / chart.xMax;
  chart.y = (value) => height - bottom - ((height - bottom - top) * value) / chart.yMax;
  const svg = makeSvg("svg", { viewBox: `0 0 ${width} ${height}`, "aria-hidden": "true" });
  drawAxes(svg);
  for (const series of shown) {
    svg.append(...drawSeries(series, shown.length === 1));
  }
  drawPeak(svg, shown);
  chart.cursor = makeSvg("g", {});
  svg.append(chart.cursor);
  place.replaceChildren(svg);
  moveCursor();
}

function drawAxes(svg) {
  const { left, right, bottom, width, height, x, y } = chart;
  for (const value of ticks(chart.yMax, height / 50, byteStep)) {
    svg.append(
      makeSvg("line", { class: "grid", x1: left, x2: width - right, y1: y(value), y2: y(value) }),
      makeSvg("text", { x: left - 8, y: y(value) + 4, "text-anchor": "end" }, shortBytes(value)));
  }
  const [step, format] = chart.axis === "event" ? [decimalStep, count] : [timeStep, shortTime];
  for (const value of ticks(chart.xMax, (width - left) / 110, step)) {
    svg.append(
      makeSvg("text", { x: x(value), y: height - bottom + 18, "text-anchor": "middle" },
        value === 0 && chart.axis === "event" ? "0 events" : format(value)));
  }
}

function drawSeries({ process: { moments }, index }, filled) {
  const { x, y, axis } = chart;
  const points = moments.map((at) => `${x(at[axis]).toFixed(1)},${y(at.bytes).toFixed(1)}`);
  const base = y(0).toFixed(1);
  const group = makeSvg("g", { class: `series-${index % 6}` });
  if (filled) {
    const [first, last] = [moments[0], moments[moments.length - 1]];
    group.append(makeSvg("polygon", {
      class: "area",
      points: `${x(first[axis])},${base} ${points.join(" ")} ${x(last[axis])},${base}`,
    }));
  }
  group.append(makeSvg("polyline", { class: "line", points: points.join(" ") }));
  return [group];
}

// Marks the peak of every process and writes the highest one's figures.
function drawPeak(svg, shown) {
  let highest;
  for (const { process: { moments }, index } of shown) {
    const peak = moments.reduce((most, each) => (each.bytes > most.bytes ? each : most));
    svg.append(makeSvg("circle", {
      class: `dot series-${index % 6}`, cx: chart.x(peak[chart.axis]), cy: chart.y(peak.bytes), r: 4,
    }));
    highest = !highest || peak.bytes > highest.bytes ? peak : highest;
  }
  if (highest) {
    drawLabel(svg, "peak-label", highest[chart.axis], chart.y(highest.bytes) - 9,
      `Peak ${bytes(highest.bytes)}`);
    element("run-chart").setAttribute("aria-label",
      `Live bytes over the run; the peak is ${bytes(highest.bytes)} ${moment(highest)}`);
  }
}

// Keeps the text between the chart's edges.
function drawLabel(svg, kind, value, y, text) {
  const x = chart.x(value);
  const anchor = x < 120 ? "start" : x > chart.width - 120 ? "end" : "middle";
  svg.append(makeSvg("text", { class: kind, x, y, "text-anchor": anchor }, text));
}

function ticks(most, wanted, stepFrom) {
  const step = stepFrom(most / Math.max(2, wanted));
  return Array.from({ length: Math.floor(most / step) + 1 }, (_, index) => index * step);
}

function byteStep(least) {
  return 2 ** Math.max(0, Math.ceil(Math.log2(least)));
}

function decimalStep(least) {
  const power = 10 ** Math.max(0, Math.floor(Math.log10(least)));
  return power * ([1, 2, 5].find((digit) => digit * power >= least) ?? 10);
}

function timeStep(least) {
  const nice = [1, 2, 5, 10, 15, 30].flatMap((step) => [step * 1000, step * 60000]);
  nice.push(...[1, 2, 3, 6, 12, 24].map((hours) => hours * 3600000));
  nice.sort((one, other) => one - other);
  return least < 1000 ? decimalStep(least)
    : nice.find((step) => step >= least) ?? 86400000 * decimalStep(least / 86400000);
}

function shortBytes(value) {
  return bytes(value).replace(/\.0+\s/, nbsp);
}

function shortTime(value) {
  return value === 0 ? "0 s" : duration(value).replace(/\.0(?=\ss)|\s00\s(s|min)$/, "");
}

// The index of the last moment that is not after `value`.
function momentAt(moments, value) {
  let low = 0;
  let high = moments.length - 1;
  while (low < high) {
    const middle = Math.ceil((low + high) / 2);
    if (moments[middle][chart.axis] <= value) {
      low = middle;
    } else {
      high = middle - 1;
    }
  }
  return low;
}

// Shows the values below the pointer; without a position, those of the peak.
function moveCursor(position) {
  const inside = position !== undefined;
  const span = chart.width - chart.left - chart.right;
  const at = inside && Math.min(1, Math.max(0, (position - chart.left) / span)) * chart.xMax;
  chart.position = position;
  chart.cursor.replaceChildren();
  if (inside) {
    const x = chart.x(at);
    chart.cursor.append(makeSvg("line",
      { class: "cursor", x1: x, x2: x, y1: chart.top, y2: chart.height - chart.bottom }));
    const text = chart.axis === "event" ? `${count(Math.round(at))} events`
      : duration(Math.round(at));
    drawLabel(chart.cursor, "cursor-label", at, chart.height - chart.bottom + 18, text);
  }
  const shown = shownSeries();
  for (const series of chart.series) {
    const { moments, totals } = series.process;
    if (series.process.moments[0][chart.axis] === undefined) {
      series.value.textContent = "has no times: shown over events";
      continue;
    }
    if (!inside || !shown.includes(series)) {
      series.value.textContent =
        `peak ${bytes(totals.peak.bytes)} ${moment(totals.peak)}, ${bytes(totals.live.bytes)} at the end`;
      continue;
    }
    const found = moments[momentAt(moments, at)];
    series.value.textContent = `${amount(found)} ${moment(found)}`;
    chart.cursor.append(makeSvg("circle", {
      class: `dot series-${series.index % 6}`,
      cx: chart.x(found[chart.axis]), cy: chart.y(found.bytes), r: 3.5,
    }));
  }
}

function onChartKey(event) {
  const steps = { ArrowLeft: -1, ArrowRight: 1, PageUp: -10, PageDown: 10 };
  const [start, end] = [chart.left, chart.width - chart.right];
  if (event.key in steps) {
    const step = (steps[event.key] * (end - start)) / 200;
    moveCursor(Math.min(end, Math.max(start, (chart.position ?? start) + step)));
  } else if (event.key === "Home" || event.key === "End") {
    moveCursor(event.key === "Home" ? start : end);
  } else if (event.key === "Escape") {
    moveCursor();
  } else {
    return;
  }
  event.preventDefault();
}

// ---- The flame graph ----

const measures = [["live", "Live at the end"], ["at_peak", "At the peak"], ["total", "All"]];
const flame = { root: undefined, focus: undefined, measure: "live", search: "", hues: new Map() };

function showCalls() {
  const nodes = report.calls.map((call, index) => ({ ...call, index, children: [] }));
  for (const node of nodes.slice(1)) {
    node.parent = nodes[node.parent];
    node.depth = (node.parent.depth ?? 0) + 1;
    node.parent.children.push(node);
  }
  if (nodes.length < 2) {
    return;
  }
  open("calls", "Calls");
  nodes[0].depth = 0;
  flame.root = flame.focus = nodes[0];
  flame.measure = nodes[0].live.bytes ? "live" : "total";
  fillSwitch(element("calls-measure"), measures, flame.measure, (measure) => {
    flame.measure = measure;
    drawCalls();
  });
  element("calls-search").addEventListener("input", (event) => {
    flame.search = event.target.value.trim().toLowerCase();
    drawCalls();
  });
  element("calls-reset").addEventListener("click", () => zoom(flame.root));
  const graph = element("calls-graph");
  graph.addEventListener("click", ({ target }) => target.node && zoom(target.node));
  graph.addEventListener("pointerover", ({ target }) => target.node && describe(target.node));
  graph.addEventListener("focusin", ({ target }) => target.node && describe(target.node));
  graph.addEventListener("pointerleave", () => describe(flame.focus));
  graph.addEventListener("keydown", onFlameKey);
  window.addEventListener("resize", drawCalls);
  drawCalls();
}

function weight(node) {
  return node[flame.measure].bytes;
}

function zoom(node) {
  flame.focus = weight(node) > 0 ? node : flame.root;
  drawCalls();
  flame.focus.box.focus({ preventScroll: true });
}

// The focus has the whole width, its callers stand above it. Nodes too narrow to see are left out,
// so that a tree of any size has at most some elements for each of the graph's rows.
function drawCalls() {
  const graph = element("calls-graph");
  const least = 1.5 / Math.max(200, graph.clientWidth);
  const boxes = [];
  let deepest = 0;
  const add = (node, from, share) => {
    boxes.push(makeBox(node, from, share));
    deepest = Math.max(deepest, node.depth);
  };
  for (let node = flame.focus.parent; node; node = node.parent) {
    add(node, 0, 1);
    boxes[boxes.length - 1].classList.add("above");
  }
  const pending = [[flame.focus, 0, 1]];
  while (pending.length > 0) {
    const [node, from, share] = pending.pop();
    add(node, from, share);
    let start = from;
    const children = [...node.children].sort((one, other) => weight(other) - weight(one));
    for (const child of children) {
      const part = (share * weight(child)) / (weight(node) || 1);
      if (part < least) {
        break;
      }
      pending.push([child, start, part]);
      start += part;
    }
  }
  graph.replaceChildren(...boxes);
  graph.style.height = `${(deepest + 1) * 1.4375}rem`;
  flame.focus.box.tabIndex = 0;
  element("calls-reset").disabled = flame.focus === flame.root;
  showFound();
  describe(flame.focus);
}

function makeBox(node, from, share) {
  const box = make("div", { role: "treeitem", "aria-level": node.depth + 1, tabindex: -1 });
  const width = share * element("calls-graph").clientWidth;
  if (width > 28) {
    box.textContent = node.parent ? node.function : "all";
  } else {
    box.className = "narrow";
    box.setAttribute("aria-label", node.function ?? "all");
  }
  box.classList.toggle("root", !node.parent);
  box.classList.toggle("found", matches(node));
  box.style.left = `${(from * 100).toFixed(3)}%`;
  box.style.width = `${(share * 100).toFixed(3)}%`;
  box.style.top = `${node.depth * 1.4375}rem`;
  box.style.setProperty("--hue", hue(node.module));
  box.style.setProperty("--tone", tone(node.function ?? ""));
  box.node = node;
  node.box = box;
  return box;
}

// A module has a colour, a function a shade of it.
function hue(module = "") {
  const hues = [32, 205, 150, 275, 345, 62, 180, 310];
  if (!flame.hues.has(module)) {
    flame.hues.set(module, hues[flame.hues.size % hues.length]);
  }
  return flame.hues.get(module);
}

function tone(text) {
  let sum = 0;
  for (let index = 0; index < text.length; index++) {
    sum = (sum * 31 + text.charCodeAt(index)) % 65521;
  }
  return (sum % 7) - 3;
}

function matches(node) {
  return flame.search !== "" && node.parent !== undefined
    && `${node.function}\n${node.module ?? ""}`.toLowerCase().includes(flame.search);
}

// Counts what is below a match once, also if the functions match again further in.
function showFound() {
  let sum = 0;
  const pending = flame.search ? [flame.root] : [];
  while (pending.length > 0) {
    const node = pending.pop();
    if (matches(node)) {
      sum += weight(node);
    } else {
      pending.push(...node.children);
    }
  }
  element("calls-found").textContent = flame.search
    ? `${bytes(sum)} found, ${percent(sum, weight(flame.root))}` : "";
}

function describe(node) {
  const numbers = node[flame.measure];
  const share = [`${percent(numbers.bytes, weight(flame.root))} of all`];
  if (flame.focus !== flame.root && node !== flame.focus) {
    share.push(`${percent(numbers.bytes, weight(flame.focus))} of the zoomed function`);
  }
  const name = node.parent ? node.function : "All calls";
  element("calls-details").replaceChildren(
    make("strong", { class: node.parent ? "code" : "" }, name),
    node.module ? make("span", { class: "note" }, ` ${node.module}`) : "", make("br"),
    number(numbers.bytes, amount(numbers), { id: "calls-bytes" }), `, ${share.join(", ")}`);
}

function onFlameKey(event) {
  const { node } = event.target;
  const drawn = (other) => other?.box?.isConnected;
  let next;
  if (!node) {
    return;
  } else if (event.key === "Enter" || event.key === " ") {
    zoom(node);
  } else if (event.key === "Escape") {
    zoom(flame.root);
  } else if (event.key === "ArrowUp") {
    next = node.parent;
  } else if (event.key === "ArrowDown") {
    next = node.children.filter(drawn).sort((one, other) => weight(other) - weight(one))[0];
  } else if (event.key === "ArrowLeft" || event.key === "ArrowRight") {
    const boxes = [...element("calls-graph").children]
      .filter((box) => box.node.depth === node.depth)
      .sort((one, other) => parseFloat(one.style.left) - parseFloat(other.style.left));
    const step = event.key === "ArrowLeft" ? -1 : 1;
    next = boxes[boxes.indexOf(node.box) + step]?.node;
  } else {
    return;
  }
  event.preventDefault();
  if (drawn(next)) {
    node.box.tabIndex = -1;
    next.box.tabIndex = 0;
    next.box.focus();
  }
}

// ---- The table ----

const columns = [
  { id: "place", name: "Place", value: (row) => frameName(siteOf(row.frames)).toLowerCase() },
  { id: "live", name: "Live at the end", value: (row) => row.live.bytes, show: bytes, bar: true },
  { id: "live-blocks", name: "Blocks", value: (row) => row.live.blocks, show: count,
    width: "medium" },
  { id: "peak", name: "At the peak", value: (row) => row.at_peak.bytes, show: bytes,
    width: "medium" },
  { id: "share", name: "Of the peak", value: (row) => row.at_peak.bytes,
    show: (value) => percent(value, report.totals.peak.bytes), width: "medium" },
  { id: "total", name: "Bytes ever", value: (row) => row.total.bytes, show: bytes, width: "wide" },
  { id: "count", name: "Blocks ever", value: (row) => row.total.blocks, show: count,
    width: "wide" },
  { id: "short-lived", name: "Short-lived", value: (row) => row.short_lived, show: count,
    width: "wide" },
];
const table = { rows: report.rows, sort: report.sort, descending: true, limit: 100, search: "" };

function showRows() {
  if (report.rows.length === 0) {
    return;
  }
  const names = { site: "Sites", function: "Functions", file: "Files", module: "Modules",
    stack: "Stacks" };
  element("rows-title").textContent = names[report.by];
  open("rows", names[report.by], report.rows.length);
  if (report.recordings > 1) {
    columns.push({ id: "growing", name: "Growing on", value: (row) => row.growing,
      show: (value, row) => `${value} of ${row.recordings}`, width: "wide" });
  }
  const head = make("tr");
  for (const column of columns) {
    column.head = make("th", { scope: "col", class: column.width ?? "" });
    const button = make("button", { type: "button" }, column.name);
    button.addEventListener("click", () => sortBy(column));
    column.head.append(button);
    head.append(column.head);
  }
  element("rows-table").tHead.append(head);
  for (const row of report.rows) {
    row.text = [...row.frames.flatMap((frame) => [frame.function, fileAndLine(frame), frame.module]),
      ...row.through].join("\n").toLowerCase();
  }
  element("rows-search").addEventListener("input", (event) => {
    table.search = event.target.value.trim().toLowerCase();
    table.limit = 100;
    drawRows();
  });
  drawRows();
}

function sortBy(column) {
  table.descending = table.sort === column.id ? !table.descending : column.id !== "place";
  table.sort = column.id;
  table.limit = Math.min(table.limit, 500);
  const sign = table.descending ? -1 : 1;
  const { value } = column;
  table.rows = [...report.rows].sort((one, other) => {
    const [first, second] = [value(one), value(other)];
    return first < second ? -sign : first > second ? sign : 0;
  });
  drawRows();
}

function drawRows() {
  for (const { id, head } of columns) {
    if (id === table.sort) {
      head.setAttribute("aria-sort", table.descending ? "descending" : "ascending");
    } else {
      head.removeAttribute("aria-sort");
    }
  }
  const found = table.rows.filter((row) => row.text.includes(table.search));
  const most = report.rows.reduce((value, row) => Math.max(value, row.live.bytes), 1);
  const lines = found.slice(0, table.limit).map((row) => makeRow(row, most));
  element("rows-table").tBodies[0].replaceChildren(...lines);
  element("rows-found").textContent = table.search
    ? `${count(found.length)} of ${count(report.rows.length)}` : "";
  fillMore(element("rows-more"), table.limit, found.length, (limit) => {
    table.limit = limit;
    drawRows();
  });
}

function makeRow(row, most) {
  const line = make("tr", { class: row.suppressed ? "row suppressed" : "row" });
  const frame = siteOf(row.frames);
  const place = make("button", { type: "button", class: "place", "aria-expanded": false },
    frameName(frame));
  line.append(make("td", {}, place, make("span", { class: "where" }, whereabouts(frame))));
  for (const { id, value, show, width, bar } of columns.slice(1)) {
    const cell = make("td", { class: width ?? "" },
      number(value(row), show(value(row), row), { class: id }));
    if (bar && value(row)) {
      const stripe = make("span", { class: "bar" });
      stripe.style.width = `${(100 * value(row)) / most}%`;
      cell.append(stripe);
    }
    line.append(cell);
  }
  line.addEventListener("click", () => toggle(line, place, row));
  return line;
}

function toggle(line, place, row) {
  if (window.getSelection().toString() !== "") {
    return; // the click ended a selection of text
  }
  const opened = place.getAttribute("aria-expanded") === "true";
  place.setAttribute("aria-expanded", !opened);
  if (opened) {
    line.nextSibling.remove();
  } else {
    line.after(make("tr", { class: "more" },
      make("td", { colspan: columns.length }, makeFacts(rowFacts(row)))));
  }
}

function rowFacts(row) {
  const facts = [
    ["Live at the end", amount(row.live)],
    ["At the peak",
      `${amount(row.at_peak)}, ${percent(row.at_peak.bytes, report.totals.peak.bytes)} of the peak`],
    ["Ever", amount(row.total)],
  ];
  if (row.smallest !== undefined) {
    const mean = Math.round(row.total.bytes / row.total.blocks);
    facts.push(["Sizes",
      `smallest ${bytes(row.smallest)}, mean ${bytes(mean)}, largest ${bytes(row.largest)}`]);
    facts.push(["Short-lived",
      `${counted(row.short_lived, "block")}, ${percent(row.short_lived, row.total.blocks)}`]);
  }
  if (row.frames.length > 1) {
    const [name, first] = report.by === "stack" ? ["Stack", 0] : ["Inlined by", 1];
    const frames = row.frames.slice(first).map((frame) => make("li", {}, ...makeFrame(frame)));
    facts.push([name, make("ol", {}, ...frames)]);
  }
  if (row.through.length > 0) {
    const through = row.through.map((name) => make("li", {}, make("code", {}, name)));
    facts.push(["Through", make("ul", {}, ...through)]);
  }
  const chains = { cut: "cut at code without unwind tables",
    limited: "limited by the depth of the recording" };
  if (row.chain in chains) {
    facts.push(["Call chain", chains[row.chain]]);
  }
  if (row.failed || row.refused) {
    facts.push(["Without a block", `${count(row.failed)} failed, ${count(row.refused)} refused`]);
  }
  if (report.recordings > 1) {
    facts.push(["Recordings", `${row.recordings} have it, it grows on ${row.growing}`]);
  }
  return row.suppressed ? [...facts, ["Suppressed", "yes"]] : facts;
}

// ---- Faults ----

// What happened, and what its places did: who allocated, who released first, who then.
const faultWords = {
  "released-twice": ["Released twice", "allocated by", "released first by", "released again by"],
  "resized-after-release":
    ["Resized after its release", "allocated by", "released by", "resized by"],
  "released-unknown": ["Released without having been allocated", "", "", "released by"],
  "resized-unknown": ["Resized without having been allocated", "", "", "resized by"],
  "allocated-while-live":
    ["Allocated while live", "allocated first by", "released by", "allocated again by"],
  "impossible-size": ["Impossible size", "", "", "requested by"],
};

function showFaults(limit = 100) {
  if (report.faults.length === 0) {
    return;
  }
  element("faults-list").replaceChildren(...report.faults.slice(0, limit).map(makeFault));
  fillMore(element("faults-more"), limit, report.faults.length, showFaults);
}

function makeFault(fault) {
  const [title, ...words] = faultWords[fault.kind];
  const times = fault.count > 1 ? ` ${count(fault.count)} times, first in ` : " in ";
  const size = fault.kind === "impossible-size" ? count(fault.bytes) + " bytes"
    : fault.bytes === undefined ? "" : bytes(fault.bytes);
  const what = [`line ${count(fault.first_line)} of ${fault.input}`,
    fault.block && `block ${fault.block}`, size];
  const note = make("span", { class: "note" }, times + what.filter(Boolean).join(", "));
  const places = [fault.allocated, fault.released_first, fault.again];
  const facts = places
    .map((stack, index) => stack && [words[index], makeStack(stack)])
    .filter(Boolean);
  return make("article", {}, make("h3", {}, title, note), makeFacts(facts));
}

// The site, and the rest on demand.
function makeStack(stack) {
  const site = siteOf(stack);
  if (stack.length === 1) {
    return make("span", {}, ...makeFrame(site));
  }
  const frames = stack.map((frame) => make("li", {}, ...makeFrame(frame)));
  return make("details", {}, make("summary", {}, ...makeFrame(site)), make("ol", {}, ...frames));
}

// ---- Processes and missing symbols ----

function showProcesses() {
  if (report.processes.length === 0) {
    return;
  }
  open("processes", "Processes", report.processes.length);
  element("processes-list").append(...report.processes.map(makeProcess));
}

function makeProcess(process) {
  const { totals } = process;
  const unit = process.kind === "recording" ? "event" : "line";
  const facts = [];
  if (process.ended || process.broken) {
    const why = process.broken && make("span", { class: "alarm" }, process.broken);
    facts.push(["End", process.ended ?? "", process.ended && why ? "; " : "", why ?? ""]);
  }
  facts.push(["Input", `${process.input}, ${counted(process.lines, unit)}`]);
  if (process.start !== undefined) {
    const start = new Date(process.start * 1000).toISOString().slice(0, 19).replace("T", " ");
    facts.push(["Start", `${start} UTC`]);
  }
  facts.push(["Live at the end", amount(totals.live)],
    ["Peak", `${amount(totals.peak)}, ${moment(totals.peak)}`],
    ["Calls", `${counted(totals.allocations, "allocation")}, ${counted(totals.resizes, "resize")}, ` +
      counted(totals.releases, "release")]);
  if (process.foreign_lines > 0) {
    const lines = process.first_foreign.map(({ number: line, text }) => `${count(line)}: ${text}`);
    facts.push(["No trace lines", number(process.foreign_lines, count(process.foreign_lines),
      { class: "foreign" }), lines.length < process.foreign_lines ? ", the first:" : ":",
      make("pre", {}, lines.join("\n"))]);
  }
  if (process.torn !== undefined) {
    facts.push(["Torn last line", make("pre", {}, process.torn)]);
  }
  if (process.missing_numbers > 0) {
    facts.push(["Missing lines", `${count(process.missing_numbers)}, by their numbers`]);
  }
  if (process.notes.length > 0) {
    facts.push(["Notes", make("ul", {}, ...process.notes.map((note) => make("li", {}, note)))]);
  }
  return make("article", {}, make("h3", {}, processName(process)), makeFacts(facts));
}

function showMissing() {
  if (report.missing.length === 0) {
    return;
  }
  open("missing", "Missing symbols", report.missing.length);
  for (const { path, problem, build_id: id } of report.missing) {
    const note = id && !problem.includes(id) ? `${problem}; build-id ${id}` : problem;
    element("missing-list").append(make("dt", {}, make("code", {}, path)),
      make("dd", { class: "note" }, note));
  }
}

showSummary();
showChart();
showCalls();
showRows();
if (report.faults.length > 0) {
  open("faults", "Faults", report.faults.length);
}
showFaults();
showProcesses();
showMissing();
document.body.dataset.ready = "yes";
