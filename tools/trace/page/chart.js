// SPDX-License-Identifier: MIT
// The chart of live bytes over the run, a line a process.

const chart = { series: [], axis: "event", left: 64, right: 12, top: 20, bottom: 24 };

function showChart() {
  chart.series = report.processes
    .filter((process) => process.moments.length > 0)
    .sort((one, other) => other.totals.peak.bytes - one.totals.peak.bytes)
    .map((process, index) => ({ process, index, shown: index < 6 }));
  if (chart.series.length === 0) {
    return;
  }
  open("run", "Run");
  if (chart.series.some(({ process }) => process.totals.milliseconds !== undefined)) {
    chart.axis = chart.series.some(hasFineTimes) ? "milliseconds" : "event";
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
  const follow = (event) => moveCursor(event.clientX - place.getBoundingClientRect().left);
  place.addEventListener("pointerdown", follow);
  place.addEventListener("pointermove", follow);
  place.addEventListener("pointerleave", ({ pointerType }) => {
    if (pointerType !== "touch") { // a finger leaves with each tap
      moveCursor();
    }
  });
  place.addEventListener("blur", () => moveCursor());
  place.addEventListener("keydown", onChartKey);
  window.addEventListener("resize", drawChart);
  drawChart();
}

// Over the times of a short run, its events would stand in a few heaps.
function hasFineTimes({ process: { moments } }) {
  const times = new Set(moments.map((at) => at.milliseconds));
  return times.size > Math.min(100, moments.length / 2);
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
  return make("label", { class: `series-${index % 6}` },
    chart.series.length > 1 ? box : "", make("span", { class: "swatch" }),
    make("span", {}, processName(process), series.value));
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
    svg.append(drawSeries(series, shown.length === 1));
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
  return group;
}

// Marks the peak of every process and writes the highest one's figures.
function drawPeak(svg, shown) {
  let highest;
  for (const { process: { moments }, index } of shown) {
    const peak = moments.reduce((most, each) => (each.bytes > most.bytes ? each : most));
    svg.append(makeDot(peak, index));
    highest = !highest || peak.bytes > highest.bytes ? peak : highest;
  }
  if (highest) {
    drawLabel(svg, "peak-label", highest[chart.axis], chart.y(highest.bytes) - 9,
      `Peak ${bytes(highest.bytes)}`);
    element("run-chart").setAttribute("aria-label",
      `Live bytes over the run; the peak is ${bytes(highest.bytes)} ${chartMoment(highest)}`);
  }
}

// The moment as the axis has it.
function chartMoment(at) {
  return moment(chart.axis === "event" ? { event: at.event } : at);
}

function makeDot(at, index) {
  return makeSvg("circle", {
    class: `dot series-${index % 6}`,
    cx: chart.x(at[chart.axis]),
    cy: chart.y(at.bytes),
    r: 4,
  });
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
      series.value.textContent = `peak ${bytes(totals.peak.bytes)} ${chartMoment(totals.peak)}, `
        + `${bytes(totals.live.bytes)} at the end`;
      continue;
    }
    const found = moments[momentAt(moments, at)];
    series.value.textContent = `${amount(found)} ${chartMoment(found)}`;
    chart.cursor.append(makeDot(found, series.index));
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
