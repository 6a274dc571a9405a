// SPDX-License-Identifier: MIT
// The table of sites, or of what else the report groups by.

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
    width: "widest" },
  { id: "short-lived", name: "Short-lived", value: (row) => row.short_lived, show: count,
    width: "widest" },
];
const table = { rows: report.rows, sort: report.sort, descending: true, limit: 100, search: "" };

function showRows() {
  if (report.rows.length === 0) {
    return;
  }
  const titles = { site: "Sites", function: "Functions", file: "Files", module: "Modules",
    stack: "Stacks" };
  element("rows-title").textContent = titles[report.by];
  open("rows", titles[report.by], report.rows.length);
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
    const names = row.frames.flatMap((each) => [each.function, fileAndLine(each), each.module]);
    row.text = [...names, ...row.through].join("\n").toLowerCase();
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
  fill(element("rows-table").tBodies[0], lines);
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
  const share = percent(row.at_peak.bytes, report.totals.peak.bytes);
  const facts = [
    ["Live at the end", amount(row.live)],
    ["At the peak", `${amount(row.at_peak)}, ${share} of the peak`],
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
  } else if (row.growing) {
    facts.push(["Growing", "more is live at the end than before the middle of the run"]);
  }
  return row.suppressed ? [...facts, ["Suppressed", "yes"]] : facts;
}
