// SPDX-License-Identifier: MIT
// The flame graph of the calls.

const measures = [["live", "Live at the end"], ["at_peak", "At the peak"], ["total", "All"]];
const flame = { root: undefined, focus: undefined, measure: "live", search: "", hues: new Map() };

function showCalls() {
  const nodes = report.calls.map((call) => ({ ...call, depth: 0, children: [] }));
  for (const node of nodes.slice(1)) {
    node.parent = nodes[node.parent];
    node.depth = node.parent.depth + 1;
    node.parent.children.push(node);
  }
  if (nodes.length < 2) {
    return;
  }
  open("calls", "Calls");
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
  const width = Math.max(200, graph.clientWidth);
  const least = 1.5 / width;
  const boxes = [];
  let deepest = 0;
  const add = (node, from, share) => {
    boxes.push(makeBox(node, from, share, share * width > 28));
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
  fill(graph, boxes);
  graph.style.height = `${(deepest + 1) * 1.4375}rem`;
  flame.focus.box.tabIndex = 0;
  element("calls-reset").disabled = flame.focus === flame.root;
  showFound();
  describe(flame.focus);
}

function makeBox(node, from, share, hasText) {
  const box = make("div", { role: "treeitem", "aria-level": node.depth + 1, tabindex: -1 });
  if (hasText) {
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
      for (const child of node.children) {
        pending.push(child);
      }
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
