// Tables that one can sort and filter. Of long ones only some rows are in the page at a time; sorting and filtering go
// through all of them. What is not worth a column is folded below its row.

const kRowsAtATime = 200;

function cellText(value) {
  if (value === null || value === undefined) return "";
  if (typeof value === "number") return shortNumber(value, 9);
  if (typeof value === "object") return JSON.stringify(value);
  return String(value);
}

/** Numbers by size, texts as people order them ("run 2" before "run 10"), what is missing last. */
function compareCells(a, b) {
  const isNoneA = a === null || a === "", isNoneB = b === null || b === "";
  if (isNoneA || isNoneB) return isNoneA - isNoneB;
  if (typeof a === "number" && typeof b === "number") return a - b;
  return compareCells.collator.compare(cellText(a), cellText(b));
}
compareCells.collator = new Intl.Collator(undefined, { numeric: true });

/** A table of the page: `fields` name the values of each row, `columns` those fields that have a column. */
class DataTable {
  constructor({ title, fields, columns, rows, bad }) {
    Object.assign(this, { title, fields, rows, bad });
    this.columns = columns.map((name) => fields.indexOf(name));
    this.folded = fields.map((_, i) => i).filter((i) => !this.columns.includes(i));
    this.order = rows.map((_, i) => i);
    this.sortedBy = null;
    this.isDescending = false;
    this.limit = kRowsAtATime;
    this.numeric = this.columns.map((c) => rows.length > 0 && rows.every((row) => row[c] === null || typeof row[c] === "number"));
    this.build();
    this.show();
  }

  build() {
    this.count = el("span", { class: "count", role: "status" });
    const input = el("input", {
      type: "search", class: "screen-only", placeholder: "Type to filter", "aria-label": "Filter " + this.title,
      oninput: () => { this.filter(input.value); },
    });
    this.headings = this.columns.map((c, i) =>
      el("th", { scope: "col", class: this.numeric[i] ? "number" : null },
         el("button", { type: "button", onclick: () => this.sort(c) }, this.fields[c])));
    this.body = el("tbody");
    this.more = el("p", { class: "more screen-only" },
                   el("button", { type: "button", onclick: () => { this.limit *= 5; this.show(); } }, "Show more"));
    const fold = this.folded.length > 0 ? [el("th", { class: "screen-only" }, el("span", { class: "for-readers" }, "All fields"))] : [];
    const table = el("table", { "aria-label": this.title }, el("thead", {}, el("tr", {}, fold, this.headings)), this.body);
    this.element = el("section", { "aria-label": this.title },
                      el("div", { class: "table-head" }, el("h2", {}, this.title), this.count, this.rows.length > 1 ? input : []),
                      el("div", { class: "scroll", tabindex: "0", role: "group", "aria-label": this.title + ", table" }, table), this.more);
  }

  sort(column) {
    this.isDescending = this.sortedBy === column && !this.isDescending;
    this.sortedBy = column;
    const sign = this.isDescending ? -1 : 1;
    this.order.sort((a, b) => sign * compareCells(this.rows[a][column], this.rows[b][column]) || a - b);
    this.show();
  }

  filter(typed) {
    const matches = matcher(typed);
    // Made once, at the first letter: lower-case texts of what the columns show.
    this.texts ??= this.rows.map((row) => this.columns.map((c) => cellText(row[c])).join("\t").toLowerCase());
    this.chosen = typed.trim() === "" ? null : new Set(this.texts.map((text, i) => matches(text) ? i : -1));
    this.limit = kRowsAtATime;
    this.show();
  }

  show() {
    const found = this.chosen ? this.order.filter((i) => this.chosen.has(i)) : this.order;
    const shown = found.slice(0, this.limit);
    this.body.replaceChildren(...shown.map((i) => this.row(this.rows[i])));
    const all = found.length < this.rows.length ? `${found.length} of ${this.rows.length}` : `${this.rows.length}`;
    this.count.textContent = shown.length < found.length ? `${all}, the first ${shown.length} shown` : all;
    this.more.hidden = shown.length === found.length;
    this.headings.forEach((heading, i) => {
      const isSorted = this.columns[i] === this.sortedBy;
      heading.firstChild.textContent = this.fields[this.columns[i]] + (isSorted ? (this.isDescending ? " ▼" : " ▲") : "");
      isSorted ? heading.setAttribute("aria-sort", this.isDescending ? "descending" : "ascending") : heading.removeAttribute("aria-sort");
    });
  }

  row(values) {
    const cells = this.columns.map((c, i) =>
      el("td", { class: this.numeric[i] ? "number" : values[c] === this.bad ? "bad" : null }, cellText(values[c])));
    if (this.folded.length === 0) return el("tr", {}, cells);
    const button = el("button", { type: "button", "aria-expanded": "false", "aria-label": "All fields of " + cellText(values[this.columns[0]]) }, "▸");
    const row = el("tr", {}, el("td", { class: "fold screen-only" }, button), cells);
    button.addEventListener("click", () => this.unfold(row, button, values));
    return row;
  }

  unfold(row, button, values) {
    const isOpen = button.getAttribute("aria-expanded") === "true";
    button.setAttribute("aria-expanded", String(!isOpen));
    button.textContent = isOpen ? "▸" : "▾";
    if (isOpen) return row.nextSibling.remove();
    const fields = this.fields.map((name, i) => el("div", {}, el("dt", {}, name), el("dd", {}, cellText(values[i]) || "–")));
    row.after(el("tr", {}, el("td", { colspan: String(this.columns.length + 1) }, el("dl", { class: "fields" }, fields))));
  }
}
