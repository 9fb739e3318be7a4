// The plots: what is shown of which curves, and one panel for each plot. All panels have one time range, one cursor and
// the same two markers.

const kColours = 8;
const kDashes = [null, [7, 4], [2, 3], [9, 3, 2, 3]];

const view = {
  span: timeSpan(curves),  // all there is
  from: 0, to: 1,          // what is seen
  cursor: null, a: null, b: null,
  by: "signal",            // "signal", "unit" or "units": what each plot shows
  runs: "overlaid",        // "overlaid" or "beside"
  groups: new Set(), series: new Set(),
  logarithmic: new Set(),  // titles of plots
};
[view.from, view.to] = view.span;

const groups = [...new Set(curves.map((curve) => curve.group))];
const series = [...new Set(curves.map((curve) => curve.series))];
const unitName = (unit) => unit || "no unit";
let panels = [];

/** Shows this range in all plots, within what there is. */
function setWindow(from, to) {
  const [first, last] = view.span, least = (last - first) * 1e-9;
  let width = Math.min(Math.max(to - from, least), last - first);
  let begin = Math.max(first, Math.min(from, last - width));
  if (!Number.isFinite(begin + width)) return;
  [view.from, view.to] = [begin, begin + width];
  drawSoon();
}

function zoomBy(factor, around = (view.from + view.to) / 2) {
  setWindow(around - (around - view.from) * factor, around + (view.to - around) * factor);
}

function showAll() {
  for (const panel of panels) panel.valueRanges = null;
  setWindow(...view.span);
}

// Several changes between two frames are drawn once.
function drawSoon() {
  drawSoon.frame ??= requestAnimationFrame(() => {
    drawSoon.frame = null;
    for (const panel of panels) panel.draw();
    showReadings();
  });
}

function showReadings() {
  for (const panel of panels) panel.showReadings();
  showToolbar();
}

/** The curves of each plot, with its title and what tells the curves in it apart. */
function plannedPanels() {
  const chosen = curves.filter((curve) => view.groups.has(curve.group) && view.series.has(curve.series));
  const isOneSeries = new Set(chosen.map((curve) => curve.series)).size === 1;
  const units = [...new Set(chosen.map((curve) => curve.unit))];
  const keyOf = {
    signal: (curve) => curve.group + "\0" + (curve.below ?? ""),
    unit: (curve) => curve.unit,
    units: (curve) => String(units.indexOf(curve.unit) >> 1),
  }[view.by];
  const plans = new Map();
  for (const curve of chosen) {
    const key = keyOf(curve) + (view.runs === "beside" ? "\0" + curve.series : "");
    if (!plans.has(key)) plans.set(key, []);
    plans.get(key).push(curve);
  }
  return [...plans.values()].map((of) => {
    const isSignal = view.by === "signal", own = [...new Set(of.map((curve) => curve.unit))];
    const subject = isSignal ? of[0].below ?? of[0].name : own.map(unitName).join(" and ");
    return {
      curves: of, units: own, unit: isSignal ? of[0].unit : "",
      title: subject + (view.runs === "beside" && !isOneSeries ? " · " + of[0].series : ""),
      labels: of.map((curve) => isSignal ? curve.series : isOneSeries || view.runs === "beside" ? curve.name : curve.name + " · " + curve.series),
      // A run has one colour in all plots that show one signal.
      places: of.map((curve, i) => isSignal ? series.indexOf(curve.series) : i),
    };
  });
}

function buildPanels() {
  for (const panel of panels) panel.graph?.destroy();
  panels = plannedPanels().map((plan) => new Panel(plan));
  const columns = view.runs === "beside" ? Math.min(view.series.size, 4) : 1;
  byId("panels").style.setProperty("--columns", isPrinting ? 1 : Math.max(columns, 1));
  byId("panels").replaceChildren(...panels.map((panel) => panel.element));
  const note = byId("plots-note");
  note.hidden = panels.length > 0;
  note.textContent = "Nothing is chosen: tick a signal and a run.";
  drawSoon();
}

/** One plot with its title, its buttons and what is read off it. */
class Panel {
  constructor(plan) {
    Object.assign(this, plan);
    this.valueRanges = null;  // of each axis, where the reader zoomed into values
    const name = this.title + (this.unit ? ` [${this.unit}]` : "");
    this.canvas = el("div", { class: "canvas" });
    this.overlay = el("div", { "aria-hidden": "true" });
    this.plot = el("div", {
      class: "plot", tabindex: "0", role: "application", onkeydown: (event) => this.key(event),
      "aria-label": `Plot of ${name}. Left and right read samples, with Shift they move; plus, minus and 0 zoom; A and B set markers.`,
      onmousemove: (event) => this.point(event), onmouseleave: () => { view.cursor = null; showReadings(); },
    }, this.canvas, this.overlay);
    this.plot.addEventListener("wheel", (event) => this.wheel(event), { passive: false });
    this.readings = el("table", { class: "readout", "aria-label": "Values of " + name });
    const button = (text, press, label) => el("button", { type: "button", "aria-label": `${label} of ${name}`, onclick: press }, text);
    const log = button("log", () => {
      this.isLog ? view.logarithmic.delete(this.title) : view.logarithmic.add(this.title);
      this.valueRanges = null;
      log.setAttribute("aria-pressed", String(this.isLog));
      this.destroy();
      drawSoon();
    }, "Logarithmic values");
    log.setAttribute("aria-pressed", String(this.isLog));
    log.title = "Logarithmic values; those that are not above 0 are left out";
    this.element = el("figure", { class: "panel", "aria-label": name },
      el("figcaption", {}, el("h3", {}, this.title, this.unit ? el("span", { class: "unit" }, ` [${this.unit}]`) : []), this.reducedNote(),
         el("span", { class: "tools screen-only" }, log, button("PNG", () => this.savePicture(), "Picture"),
            button("CSV", () => this.saveTable(), "Table of the visible range"))),
      this.plot, this.readings);
  }

  /** Says that not every sample is in the page, where that is so. */
  reducedNote() {
    const reduced = this.curves.filter((curve) => curve.times.length < curve.count);
    if (reduced.length === 0) return [];
    const kept = reduced[0].times.length.toLocaleString("en"), count = reduced[0].count.toLocaleString("en");
    return el("span", { class: "reduced", title: "Of each short stretch of time the first, smallest, largest and last sample are kept" },
              `reduced: ${kept} of ${count} samples, every minimum and maximum among them`);
  }

  get isLog() {
    return view.logarithmic.has(this.title);
  }

  colour(i) {
    return styleColour("--c" + this.places[i] % kColours);
  }

  destroy() {
    this.graph?.destroy();
    this.graph = null;
  }

  /** What the drawing library gets: only what this range needs on so many pixels. */
  rows() {
    const indices = this.curves.map((curve) => shownSamples(curve, view.from, view.to, this.plot.clientWidth || 800));
    return mergedRows(this.curves, indices, (value) => Number.isFinite(value) && !(this.isLog && value <= 0) ? value : NaN);
  }

  options(file) {
    const [size, unit] = timeScale(Math.max(Math.abs(view.from), Math.abs(view.to)));
    const tick = (value) => `${shortNumber(Math.abs(value) < 1e-12 * size ? 0 : value / size, 9)} ${unit}`;
    const values = (axis) => ({
      axisLabelFormatter: (value) => shortNumber(value, 5), axisLabelWidth: 72, logscale: this.isLog,
      valueRange: this.valueRanges?.[axis] ?? null, pixelsPerLabel: 34,
    });
    const axes = { x: { axisLabelFormatter: tick, pixelsPerLabel: 90, axisLabelWidth: 84 }, y: values(0) };
    const perSeries = {};
    this.curves.forEach((curve, i) => {
      perSeries["c" + i] = {
        axis: this.units.indexOf(curve.unit) === 1 ? "y2" : "y", stepPlot: curve.held === true, color: this.colour(i),
        strokePattern: kDashes[Math.floor(this.places[i] / kColours) % kDashes.length],
      };
    });
    if (this.units.length > 1) axes.y2 = { ...values(1), drawGrid: false };
    return {
      file, labels: ["time", ...this.curves.map((_, i) => "c" + i)], dateWindow: [view.from, view.to], axes, series: perSeries,
      gridLineColor: styleColour("--grid"), axisLineColor: styleColour("--axis"),
      // Where single samples can be told apart they are shown.
      drawPoints: file.length < 150, pointSize: 2,
    };
  }

  draw() {
    if (!this.canvas.isConnected) return;
    const file = this.rows();
    this.isDrawing = true;
    if (file.length === 0) {
      this.destroy();
      this.canvas.replaceChildren(el("p", { class: "notice" }, "There are no samples to draw here."));
    } else if (this.graph) {
      this.graph.updateOptions(this.options(file));
    } else {
      this.canvas.replaceChildren();
      this.start(file);
    }
    this.isDrawing = false;
  }

  start(file) {
    const { file: rows, ...options } = this.options(file);
    this.graph = new Dygraph(this.canvas, rows, {
      ...options, legend: "never", connectSeparatedPoints: true, highlightCircleSize: 0, showLabelsOnHighlight: false,
      strokeWidth: 1.6, gridLineWidth: 1, axisLineWidth: 1, yRangePad: 8, axisLabelFontSize: 12, rightGap: 10,
      interactionModel: { ...Dygraph.defaultInteractionModel, dblclick: showAll },
      clickCallback: (event, time) => this.mark(event.shiftKey ? "b" : "a", this.snapped(time)),
      zoomCallback: (from, to, ranges) => {
        if (this.graph?.isZoomed("y")) this.valueRanges = ranges;
        setWindow(from, to);
      },
      drawCallback: (graph) => this.follow(graph),
    });
  }

  /** Takes over a range that was moved in the plot itself. */
  follow(graph) {
    if (this.isDrawing) return;
    const [from, to] = graph.xAxisRange();
    if (this.valueRanges) this.valueRanges = graph.yAxisRanges();
    if (from !== view.from || to !== view.to) setWindow(from, to);
  }

  // ---- reading off ----

  /** The time of the sample nearest to it, so that what is read off was recorded. */
  snapped(time) {
    const times = this.curves.map((curve) => nearestTime(curve, time)).filter((found) => found !== null);
    return times.length === 0 ? null : times.reduce((a, b) => Math.abs(b - time) < Math.abs(a - time) ? b : a);
  }

  timeUnder(event) {
    return this.graph.toDataXCoord(event.clientX - this.plot.getBoundingClientRect().left);
  }

  point(event) {
    if (!this.graph) return;
    view.cursor = this.snapped(Math.min(Math.max(this.timeUnder(event), view.from), view.to));
    showReadings();
  }

  mark(which, time) {
    view[which] = time;
    showReadings();
  }

  // The page scrolls with the wheel alone; with Ctrl it zooms, as in maps.
  wheel(event) {
    if (!event.ctrlKey || !this.graph) return;
    event.preventDefault();
    zoomBy(event.deltaY > 0 ? 1.25 : 0.8, this.timeUnder(event));
  }

  key(event) {
    const part = (view.to - view.from) / 10, sign = event.key === "ArrowLeft" ? -1 : 1;
    const actions = {
      ArrowLeft: () => event.shiftKey ? setWindow(view.from - part, view.to - part) : this.step(sign),
      ArrowRight: () => event.shiftKey ? setWindow(view.from + part, view.to + part) : this.step(sign),
      "+": () => zoomBy(0.5, view.cursor ?? undefined), "-": () => zoomBy(2, view.cursor ?? undefined), 0: showAll,
      a: () => this.mark("a", view.cursor), b: () => this.mark("b", view.cursor),
      Escape: () => { view.cursor = view.a = view.b = null; showReadings(); },
    };
    const action = actions[event.key.length === 1 ? event.key.toLowerCase() : event.key];
    if (!action || event.ctrlKey || event.metaKey || event.altKey) return;
    event.preventDefault();
    action();
  }

  /** Moves the cursor to the next drawn sample and says what is there: with the keyboard nothing else would. */
  step(sign) {
    const times = [...new Set(this.curves.flatMap((curve) =>
      shownSamples(curve, view.from, view.to, this.plot.clientWidth).map((i) => curve.times[i])))].sort((a, b) => a - b);
    const now = view.cursor ?? (sign > 0 ? -Infinity : Infinity);
    const next = sign > 0 ? times.find((time) => time > now && time >= view.from)
                          : times.findLast((time) => time < now && time <= view.to);
    if (next === undefined || next < view.from || next > view.to) return;
    view.cursor = next;
    showReadings();
    byId("live").textContent = timeText(next) + ": " + this.curves.map((curve, i) =>
      `${this.labels[i]} ${shortNumber(valueAt(curve, next))} ${curve.unit}`).join("; ");
  }

  showReadings() {
    const stops = [["cursor", view.cursor], ["A", view.a], ["B", view.b]].filter(([name, time]) => name === "cursor" || time !== null);
    const isBoth = view.a !== null && view.b !== null;
    const heading = (text) => el("th", { scope: "col" }, text);
    this.readings.replaceChildren(
      el("thead", {}, el("tr", {}, el("th", {}),
        stops.map(([name, time]) => heading(time === null ? "" : (name === "cursor" ? "" : name + ": ") + timeText(time))),
        isBoth ? heading("B − A") : [])),
      el("tbody", {}, this.curves.map((curve, i) => {
        const swatch = el("span", { class: "swatch", style: `border-color: ${this.colour(i)}` });
        const values = stops.map(([, time]) => time === null ? null : valueAt(curve, time));
        const difference = isBoth && values.at(-1) !== null && values.at(-2) !== null ? values.at(-1) - values.at(-2) : null;
        const cells = values.map((value, k) => stops[k][1] === null ? "" : shortNumber(value));
        return el("tr", {}, el("th", { scope: "row" }, swatch, this.labels[i]), cells.map((text) => el("td", {}, text)),
                  isBoth ? el("td", {}, shortNumber(difference)) : []);
      })));
    this.showOverlay();
  }

  /** The lines of the cursor, the markers and the place that the page points at, and a dot on each curve. */
  showOverlay() {
    this.overlay.replaceChildren();
    if (!this.graph) return;
    const area = this.graph.getArea();
    const line = (kind, time, text) => {
      const x = time === null ? NaN : this.graph.toDomXCoord(time);
      if (!(x >= area.x && x <= area.x + area.w)) return;
      const isRight = x > area.x + area.w * 0.75;
      const element = el("div", { class: `line ${kind}${isRight ? " before" : ""}` }, text ? el("span", {}, text) : []);
      Object.assign(element.style, { left: x + "px", height: area.h + "px" });
      this.overlay.append(element);
    };
    this.curves.forEach((curve) => curve.mark && line("mark", curve.mark.time, curve.mark.text));
    line("marker", view.a, "A");
    line("marker", view.b, "B");
    line("", view.cursor, "");
    if (view.cursor === null) return;
    this.curves.forEach((curve, i) => {
      const value = valueAt(curve, view.cursor);
      const [x, y] = this.graph.toDomCoords(view.cursor, value, this.units.indexOf(curve.unit) === 1 ? 1 : 0);
      if (value === null || !(y >= 0 && y <= area.h)) return;
      const dot = el("div", { class: "dot" });
      Object.assign(dot.style, { left: x + "px", top: y + "px", background: this.colour(i) });
      this.overlay.append(dot);
    });
  }

  // ---- taking it along ----

  get fileName() {
    return [data.title, this.title].join("-");
  }

  /** The plot as it is seen, with title and legend, at the screen's own resolution. */
  savePicture() {
    const source = this.canvas.querySelector("canvas"), scale = source.width / source.clientWidth;
    const lines = this.labels.length, head = 34, width = source.clientWidth, height = source.clientHeight + head + 20 * lines + 8;
    const canvas = el("canvas", { width: width * scale, height: height * scale }), ink = canvas.getContext("2d");
    ink.scale(scale, scale);
    ink.fillStyle = styleColour("--ground");
    ink.fillRect(0, 0, width, height);
    const write = (text, x, y, font, colour) => {
      [ink.font, ink.fillStyle, ink.textBaseline] = [font + " system-ui, sans-serif", styleColour(colour), "middle"];
      ink.fillText(text, x, y);
    };
    write(this.title + (this.unit ? ` [${this.unit}]` : ""), 8, 16, "600 15px", "--text");
    ink.drawImage(source, 0, head, width, source.clientHeight);
    const origin = source.getBoundingClientRect();
    // The axes' labels are elements beside the canvas.
    for (const label of this.canvas.querySelectorAll(".dygraph-axis-label")) {
      const range = document.createRange();
      range.selectNodeContents(label);
      const box = range.getBoundingClientRect();
      write(label.textContent, box.left - origin.left, box.top - origin.top + box.height / 2 + head, "12px", "--soft");
    }
    this.labels.forEach((label, i) => {
      const y = head + source.clientHeight + 20 * i + 8;
      ink.fillStyle = this.colour(i);
      ink.fillRect(8, y - 1, 18, 3);
      write(label, 32, y, "13px", "--text");
    });
    canvas.toBlob((blob) => saveAs(this.fileName + ".png", blob), "image/png");
  }

  /** What the page carries of the visible range, digit for digit. */
  tableText() {
    const field = (text) => /[",\r\n]/.test(text) ? `"${text.replaceAll('"', '""')}"` : text;
    const indices = this.curves.map((curve) => {
      const begin = firstFrom(curve.times, view.from), end = firstAfter(curve.times, view.to);
      return Array.from({ length: Math.max(0, end - begin) }, (_, i) => begin + i);
    });
    const names = this.curves.map((curve) => curve.label + (curve.unit ? ` [${curve.unit}]` : ""));
    const rows = mergedRows(this.curves, indices, (value) => Number.isNaN(value) ? "nan" : value);
    return [["time [s]", ...names].map(field), ...rows].map((row) => row.join(",") + "\r\n").join("");
  }

  saveTable() {
    const isReduced = this.curves.some((curve) => curve.times.length < curve.count);
    saveAs(this.fileName + (isReduced ? "-reduced" : "") + ".csv", new Blob([this.tableText()], { type: "text/csv" }));
  }
}
