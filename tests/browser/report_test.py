"""The pages of `tavlox report` in a real browser: what is drawn is what was recorded, what is typed filters, what is dragged
zooms, hostile names are text, and the console is silent. With TAVLOX_PICTURES=FOLDER the pictures of the README are made."""
import csv
import json
import math
import os
import re
import unittest
from pathlib import Path

from browser import Browser
from program import SOURCES, ProgramTest

EXAMPLES = {
    "rc_filter": ("Two-stage RC low-pass, three cases", ["nominal", "hot", "worst_case"]),
    "traffic": ("Three vehicles at a signalled crossing", ["free", "congested"]),
}

# Whether the plot shows the last curve of a panel at a time and a value, and how much of the plot has its colour.
INK = """((p, points) => {
  const panel = panels[p], last = panel.curves.length - 1, drawn = panel.canvas.querySelector("canvas");
  const scale = drawn.width / drawn.clientWidth, canvas = drawn.cloneNode();
  const ink = canvas.getContext("2d", { willReadFrequently: true });
  ink.drawImage(drawn, 0, 0);
  const colour = [1, 3, 5].map((i) => parseInt(panel.colour(last).slice(i, i + 2), 16));
  const count = (x, y, width, height) => {
    const { data } = ink.getImageData(x, y, width, height);
    let found = 0;
    for (let i = 0; i < data.length; i += 4)
      found += data[i + 3] > 100 && colour.every((value, k) => Math.abs(data[i + k] - value) < 24);
    return found;
  };
  const isThere = ([time, value]) => {
    const [x, y] = panel.graph.toDomCoords(time, value).map((place) => Math.round(place * scale));
    return count(x - 2, y - 2, 5, 5) > 0;
  };
  return { missing: points.filter((point) => !isThere(point)),
           share: count(0, 0, canvas.width, canvas.height) / (canvas.width * canvas.height) };
})"""


def table_of(path):
    """The columns of a table by their headings."""
    with open(path, newline="") as file:
        headings, *rows = csv.reader(file)
    return dict(zip(headings, zip(*([float(cell) for cell in row] for row in rows))))


class ReportTest(ProgramTest):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.close)

    def tearDown(self):
        said, self.browser.said = self.browser.said, []
        self.assertEqual(said, [])

    def report(self, name, *options):
        """Opens the page that is made of the package, which asks for no other file."""
        page = self.folder / f"{name}.html"
        self.output_of("report", f"{name}.tavlox", "-o", page.name, *options)
        self.browser.open(page)
        self.assertEqual(self.browser.asked_for, [page.as_uri()])
        return page

    def report_example(self, name):
        description, runs = EXAMPLES[name]
        tables = [SOURCES / "examples" / name / f"{run}.csv" for run in runs]
        self.output_of("record", f"{name}.tavlox", *map(str, tables), "--description", description)
        self.output_of("add", f"{name}.tavlox", str(SOURCES / "examples" / name / "README.md"))
        self.report(name)
        return tables

    def run_in_page(self, script):
        return self.browser.run(script)

    def click(self, selector):
        self.run_in_page(f"document.querySelector({json.dumps(selector)}).click()")
        self.browser.settle()

    def rows(self, title):
        return self.run_in_page(f"""[...document.querySelectorAll('section[aria-label="{title}"] tbody tr')]
                                    .map((row) => [...row.cells].map((cell) => cell.textContent))""")

    def assert_drawn(self, panel, points):
        drawn = self.run_in_page(f"{INK}({panel}, {json.dumps(points)})")
        self.assertEqual(drawn["missing"], [], f"panel {panel}")
        self.assertTrue(0 < drawn["share"] < 0.25, f"panel {panel}: {drawn['share']}")

    def plot_box(self):
        return self.run_in_page("(({x, y, width, height}) => ({x, y, width, height}))"
                                "(panels[0].canvas.getBoundingClientRect())")

    def test_examples_are_drawn_as_recorded(self):
        pictures = os.environ.get("TAVLOX_PICTURES")
        for name, (description, runs) in EXAMPLES.items():
            with self.subTest(name):
                last = table_of(self.report_example(name)[-1])
                times, *_ = last.values()
                titles = self.run_in_page("panels.map((panel) => panel.curves[0].group)")
                self.assertEqual(titles, [*last][1:5])
                for panel, title in enumerate(titles):
                    self.assert_drawn(panel, [*zip(times, last[title])][::len(times) // 40])
                shown = self.run_in_page("document.body.innerText")
                for text in (description, "README.md", f"{name}.tavlox", *runs):
                    self.assertIn(text, shown)
                if pictures:
                    self.browser.picture(Path(pictures) / f"report_{name}.png", "#plots-section")

    def test_tables_filter_sort_and_unfold(self):
        self.report_example("traffic")
        self.assertEqual(len(self.rows("Signals")), 18)
        self.browser.type('input[aria-label="Filter Signals"]', "M/s SPEED")
        self.assertEqual([row[1:4:2] for row in self.rows("Signals")], [[f"{car} speed", "m/s"] for car in "abcabc"])
        self.assertEqual([row[1] for row in self.rows("Runs")], ["1", "2"])
        for order in (["congested", "free"], ["free", "congested"]):
            self.click('section[aria-label="Runs"] th:nth-of-type(3) button')
            self.assertEqual([row[2] for row in self.rows("Runs")], order)
        self.click('section[aria-label="Runs"] td button')
        self.assertGreaterEqual(self.run_in_page("document.querySelectorAll('.fields dt').length"), 29)
        self.browser.type('#picker input[type="search"]', "acc")
        self.assertEqual(self.run_in_page("[...document.querySelectorAll('#picker fieldset')].at(-1).querySelectorAll('label').length"), 3)
        self.assertEqual(self.run_in_page("panels.length"), 4)
        self.run_in_page("[...document.querySelectorAll('#picker fieldset')].at(-1).querySelector('input[type=checkbox]').click()")
        self.assertEqual(self.run_in_page("panels.map((panel) => panel.curves[0].name)"), ["a position", "a speed", "b position"])

    def test_plots_zoom_pan_and_are_read_off_together(self):
        times, positions = [*table_of(self.report_example("traffic")[-1]).values()][:2]
        box = self.plot_box()
        middle = box["y"] + box["height"] / 2
        at = lambda share: (box["x"] + 100 + (box["width"] - 120) * share, middle)
        window = lambda: self.run_in_page("panels.map((panel) => panel.graph.xAxisRange())")
        self.browser.drag(at(0.25), at(0.5))
        first, *others = window()
        self.assertTrue(126 < first[0] < first[1] < 286.7, first)
        self.assertEqual(others, [first] * len(others))
        inside = [(time, value) for time, value in zip(times, positions) if first[0] <= time <= first[1]]
        self.assert_drawn(0, inside[::20])
        # The table of the visible range is what was recorded in it; the other run has ended or is beside.
        rows = [row for row in csv.reader(self.run_in_page("panels[0].tableText()").splitlines()[1:]) if row[2]]
        self.assertEqual([(float(row[0]), float(row[2])) for row in rows], inside)
        self.browser.drag(at(0.5), at(0.4), modifiers=8)
        moved = window()[0]
        self.assertGreater(moved[0], first[0])
        self.assertAlmostEqual(moved[1] - moved[0], first[1] - first[0], places=6)
        self.run_in_page("panels[0].plot.focus()")
        self.browser.key("0")
        self.assertEqual(window(), [[126, 286.7]] * 4)
        self.run_in_page("[panels[0].mark('a', 130), panels[0].mark('b', 140.5)]")
        self.assertIn("10.5 s", self.run_in_page("document.querySelector('#toolbar output').textContent"))
        apart = positions[times.index(140.5)] - positions[times.index(130)]
        self.assertIn(f"{apart:.7g}", self.run_in_page("panels[0].readings.rows[2].cells[4].textContent"))

    def test_no_spike_of_a_long_run_is_lost(self):
        count, spike = 1_000_000, 654_321
        with open(self.folder / "long.csv", "w") as table:
            table.write("time [s],wave [V],saw [V]\n")
            for i in range(count):
                value = {spike: 5, spike + 1: -5}.get(i, math.sin(i / 1e5))
                table.write(f"{i / 1000},{value:.6g},{i % 1000}\n")
        self.output_of("record", "long.tavlox", "long.csv")
        page = self.report("long")
        self.assertLess(page.stat().st_size, 5_000_000)
        points = [[spike / 1000, 5], [spike / 1000, -5]]
        self.assert_drawn(0, points)
        self.assertRegex(self.run_in_page("panels[0].element.textContent"), "reduced: [0-9,]+ of 1,000,000 samples")
        self.run_in_page("setWindow(654.3, 654.4)")
        self.browser.settle()
        self.assert_drawn(0, [[spike / 1000, 5], [(spike + 1) / 1000, -5]])
        self.assertEqual(self.rows("Recorded samples")[0][3:6], ["1000000", "−5", "5"])

    def test_what_a_package_says_is_text(self):
        names = ["<script>alert(1)</script>", "</script><img src=x onerror=alert(2)>", "a\u2028b\u2029c", "@SCRIPT@ & <!--", "日本語"]
        heading = ",".join(["time [s]", *names])
        values = ["0,1,2,3,4,nan", "1,nan,2,3,inf,5", "2,3,2,3,4,5"]
        self.record("hostile.tavlox", **{"<b>run": "\n".join([heading, *values, ""])})
        self.output_of("describe", "hostile.tavlox", "</title><script>document.title = 'taken'</script>")
        page = self.report("hostile", "--full").read_bytes().decode()
        self.assertIn('<meta charset="utf-8">', page[:200])
        self.assertNotIn("sourceMappingURL", page)
        data = re.search(r'<script type="application/json" id="data">(.*?)</script>', page, re.DOTALL)[1]
        self.assertFalse(re.search("[<\u2028\u2029]", data))

        def no_constant(text):
            raise AssertionError(f"{text} is no JSON")

        self.assertEqual([curve["name"] for curve in json.loads(data, parse_constant=no_constant)["curves"]], names)
        self.assertEqual(self.run_in_page("[document.scripts.length, document.images.length, document.title]"), [3, 0, "hostile.tavlox"])
        self.assertEqual([row[1] for row in self.rows("Signals")], names)
        shown = self.run_in_page("document.body.textContent")
        for text in ("<b>run", "</title><script>document.title"):
            self.assertIn(text, shown)
        self.assertEqual(self.run_in_page("panels[0].curves.map((curve) => [...curve.times, curve.values.length])"), [[0, 1, 2, 3]])


if __name__ == "__main__":
    unittest.main()
