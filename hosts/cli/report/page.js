// The page as a whole: its head, what one chooses to see plotted, the toolbar, the tables, printing.

function showHead() {
  document.title = data.title;
  byId("kind").textContent = data.kind;
  byId("title").textContent = data.title;
  byId("subtitle").textContent = data.subtitle;
  byId("facts").append(...data.facts.map(([name, value]) => el("div", {}, el("dt", {}, name), el("dd", {}, cellText(value) || "–"))));
  byId("made").textContent = data.made;
  byId("theme").addEventListener("click", () => {
    theme = kThemes[(kThemes.indexOf(theme) + 1) % kThemes.length];
    showTheme();
    buildPanels();
  });
  prefersDark.addEventListener("change", () => { showTheme(); buildPanels(); });
}

// ---- what is plotted ----

function choice(set, key, shown, small) {
  const box = el("input", { type: "checkbox", onchange: () => { box.checked ? set.add(key) : set.delete(key); buildPanels(); } });
  box.checked = set.has(key);
  return el("label", { class: "choice" }, box, shown, small ? el("small", {}, small) : []);
}

/** A list of boxes to tick, of which those that match what is typed are shown. */
function choices(title, keys, set, describe) {
  const list = el("div");
  const show = (typed) => {
    const matches = matcher(typed), found = keys.filter((key) => matches(key.toLowerCase()));
    list.replaceChildren(...found.slice(0, kRowsAtATime).map((key) => choice(set, key, ...describe(key))));
    if (found.length > kRowsAtATime) list.append(el("small", {}, `and ${found.length - kRowsAtATime} more; type to find them`));
  };
  show("");
  const input = el("input", { type: "search", placeholder: "Type to filter", "aria-label": `Filter ${title} to plot`, oninput: () => show(input.value) });
  return el("fieldset", {}, el("legend", {}, title), keys.length > 6 ? input : [], list);
}

function showPicker() {
  groups.slice(0, 4).forEach((group) => view.groups.add(group));
  series.slice(0, kColours).forEach((name) => view.series.add(name));
  const curveOf = new Map(curves.map((curve) => [curve.group, curve]));
  byId("picker").append(
    choices(data.seriesTitle, series, view.series, (name) => [name]),
    choices("Signals", groups, view.groups, (group) => [curveOf.get(group).name, curveOf.get(group).unit]));
}

// ---- the toolbar ----

const fields = {};

function timeField(name, label, take) {
  fields[name] = el("input", {
    type: "text", inputmode: "decimal", "aria-label": label, title: label,
    onchange: (event) => {
      const text = event.target.value.trim().replace(",", ".");
      if (text === "") take(null);
      else if (Number.isFinite(Number(text))) take(Number(text));
      showToolbar();
    },
  });
  return fields[name];
}

function segments(label, key, options) {
  return el("span", { class: "tools", role: "group", "aria-label": label }, el("span", {}, label),
            options.map(([value, text]) => toggleButton(text, () => view[key] === value, () => { view[key] = value; buildPanels(); })));
}

function buildToolbar() {
  const button = (text, label, press) => el("button", { type: "button", "aria-label": label, title: label, onclick: press }, text);
  const marker = (which) => timeField(which, `Marker ${which.toUpperCase()}, in seconds`, (time) => { view[which] = time; showReadings(); });
  fields.difference = el("output", { "aria-label": "Difference of the markers" });
  byId("toolbar").append(
    segments("Plots", "by", [["signal", "by signal"], ["unit", "by unit"], ["units", "two units each"]]),
    series.length > 1 ? segments(data.seriesTitle, "runs", [["overlaid", "overlaid"], ["beside", "side by side"]]) : "",
    el("span", { class: "tools", role: "group", "aria-label": "Time range" }, el("span", {}, "Time [s]"),
       timeField("from", "From, in seconds", (time) => setWindow(time ?? view.span[0], view.to)),
       el("span", {}, "to"), timeField("to", "To, in seconds", (time) => setWindow(view.from, time ?? view.span[1])),
       button("+", "Zoom in", () => zoomBy(0.5)), button("−", "Zoom out", () => zoomBy(2)), button("All", "Show everything", showAll)),
    el("span", { class: "tools", role: "group", "aria-label": "Markers" }, el("span", {}, "Markers A"), marker("a"), el("span", {}, "B"), marker("b"),
       fields.difference, button("Clear", "Clear the markers", () => { view.a = view.b = null; showReadings(); })),
    el("span", { class: "hint" }, "Drag to zoom, with Shift to move, double-click for everything, Ctrl and wheel to zoom. A click sets marker A, with Shift marker B."));
}

function showToolbar() {
  const show = (name, value) => {
    if (document.activeElement !== fields[name]) fields[name].value = value === null ? "" : String(Number(value.toPrecision(12)));
  };
  for (const name of ["from", "to", "a", "b"]) show(name, view[name]);
  const apart = view.a === null || view.b === null ? null : view.b - view.a;
  fields.difference.textContent = apart === null ? "" : `B − A = ${timeText(apart)}` + (apart === 0 ? "" : ` (${shortNumber(1 / Math.abs(apart), 6)} Hz)`);
  for (const showPressed of pressables) showPressed();
}

// ---- printing: on paper everything is light, and no wider than the paper ----

function setPrinting(printing) {
  isPrinting = printing;
  showTheme();
  byId("panels").style.width = printing ? "660px" : "";
  buildPanels();
  // The picture of the page is taken as soon as this returns, before any frame.
  for (const panel of panels) panel.draw();
  showReadings();
}

addEventListener("beforeprint", () => setPrinting(true));
addEventListener("afterprint", () => setPrinting(false));
addEventListener("resize", () => {
  for (const panel of panels) panel.graph?.resize();
  drawSoon();
});

showTheme();
showHead();
byId("tables").append(...data.tables.map((table) => new DataTable(table).element));
if (curves.length > 0) {
  byId("plots-section").hidden = false;
  showPicker();
  buildToolbar();
  buildPanels();
}
