// SPDX-License-Identifier: MIT
// The page's scripts are joined in the order base, chart, calls, rows, report. What they show comes
// from the report embedded in the page, and goes into the page as text alone: no text of a trace is
// ever read as markup. This one has the report, words and numbers, elements.
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

function inputName({ input }) {
  return input === "-" ? "standard input" : input;
}

function processName(process) {
  const name = process.command ? process.command.replace(/^\S*\//, "") : inputName(process);
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

// Replaces the children of a place. An argument for each would be too many for large reports.
function fill(place, children) {
  place.replaceChildren();
  for (const child of children) {
    place.append(child);
  }
}

function number(value, text, attributes = {}) {
  return make("data", { value, ...attributes }, text);
}

function makeFrame(frame) {
  const where = whereabouts(frame);
  return [make("code", {}, frameName(frame)), make("span", { class: "note" }, ` ${where}`)];
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

// Shows a section and adds it to the list of contents.
function open(id, name, size) {
  element(id).hidden = false;
  const title = size === undefined ? name : `${name} (${count(size)})`;
  element("contents").append(make("a", { href: `#${id}` }, title));
}
