// SPDX-License-Identifier: MIT
// The summary, faults, processes and missing symbols; at the end, what shows the whole page.

// ---- Summary ----

function showSummary() {
  const { totals, processes } = report;
  const names = [...new Set(processes.map((process) => process.command ?? inputName(process)))];
  const more = names.length > 3 ? ` and ${names.length - 3} more` : "";
  element("subject").textContent = names.slice(0, 3).join(", ") + more;
  document.title = `${names[0] ? lastName(names[0].split(" ")[0]) : "nothing"} – vek-trace`;

  const figure = (id, name, value, text, ...notes) => {
    const group = make("div", {}, make("dt", {}, name),
      make("dd", {}, number(value, text, { id })));
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

// ---- Faults ----

// What happened, and what its places did: who allocated, who released first, who then.
const faultWords = {
  released_twice: ["Released twice", "allocated by", "released first by", "released again by"],
  resized_after_release:
    ["Resized after its release", "allocated by", "released by", "resized by"],
  released_unknown: ["Released without having been allocated", "", "", "released by"],
  resized_unknown: ["Resized without having been allocated", "", "", "resized by"],
  allocated_while_live:
    ["Allocated while live", "allocated first by", "released by", "allocated again by"],
  impossible_size: ["Impossible size", "", "", "requested by"],
};

function showFaults(limit = 100) {
  if (report.faults.length === 0) {
    return;
  }
  fill(element("faults-list"), report.faults.slice(0, limit).map(makeFault));
  fillMore(element("faults-more"), limit, report.faults.length, showFaults);
}

function makeFault(fault) {
  const [title, ...words] = faultWords[fault.kind];
  const times = fault.count > 1 ? ` ${count(fault.count)} times, first in ` : " in ";
  const size = fault.kind === "impossible_size" ? count(fault.bytes) + " bytes"
    : fault.bytes === undefined ? "" : bytes(fault.bytes);
  const what = [`line ${count(fault.first_line)} of ${inputName(fault)}`,
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
  fill(element("processes-list"), report.processes.map(makeProcess));
}

function makeProcess(process) {
  const { totals } = process;
  const unit = process.kind === "recording" ? "event" : "line";
  const facts = [];
  if (process.ended || process.broken) {
    const why = process.broken && make("span", { class: "alarm" }, process.broken);
    facts.push(["End", process.ended ?? "", process.ended && why ? "; " : "", why ?? ""]);
  }
  facts.push(["Input", `${inputName(process)}, ${counted(process.lines, unit)}`]);
  if (process.start !== undefined) {
    const start = new Date(process.start * 1000).toISOString().slice(0, 19).replace("T", " ");
    facts.push(["Start", `${start} UTC`]);
  }
  facts.push(["Live at the end", amount(totals.live)],
    ["Peak", `${amount(totals.peak)}, ${moment(totals.peak)}`],
    ["Calls", [counted(totals.allocations, "allocation"), counted(totals.resizes, "resize"),
      counted(totals.releases, "release")].join(", ")]);
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
