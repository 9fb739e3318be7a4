"""The pages of `tavlox report` in a real browser: what is drawn is what was recorded, what is typed filters, what is dragged
zooms, hostile names are text, and the console is silent. With TAVLOX_PICTURES=FOLDER the pictures of the README are made."""
import base64
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
        self.output_of("report", "long.tavlox", "-o", "full.html", "--full")
        self.assertGreater((self.folder / "full.html").stat().st_size, 3 * 8 * 4 / 3 * count)

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

    def test_plots_are_arranged_as_one_chooses(self):
        self.record(hot="t [s],v [V],i [A],w [V]\n0,-1,1,5\n1,10,20,5\n2,100,3,5\n", cold="t [s],v [V]\n0,2\n2,4\n")
        self.report("s")
        press = lambda text: self.run_in_page(f"[...document.querySelectorAll('button')].find((button) => button.textContent === '{text}').click()")
        titles = lambda: self.run_in_page("panels.map((panel) => panel.element.querySelector('h3').textContent)")
        for text, expected in [("by signal", ["v [V]", "i [A]", "w [V]"]), ("side by side", ["v · hot [V]", "i · hot [A]", "w · hot [V]", "v · cold [V]"]),
                               ("overlaid", ["v [V]", "i [A]", "w [V]"]), ("by unit", ["V", "A"]), ("two units each", ["V and A"])]:
            press(text)
            self.browser.settle()
            self.assertEqual(titles(), expected)
        # One time axis, and an axis of values for each unit.
        ranges = self.run_in_page("panels[0].graph.yAxisRanges()")
        self.assertEqual([low < least and most < high for (low, high), (least, most) in zip(ranges, [(-1, 100), (1, 20)])], [True, True])
        self.assertTrue(ranges[1][1] < 40, ranges)
        press("by signal")
        self.browser.settle()
        press("log")
        self.browser.settle()
        self.assertEqual(self.run_in_page("[panels[0].isLog, panels[0].graph.yAxisRange()[0] > 0, panels[0].rows()[0].slice(1).map(String)]"),
                         [True, True, ["NaN", "2"]])
        middle = self.run_in_page("panels[0].graph.toDomCoords(1, 10)[1] - panels[0].graph.toDomCoords(1, 100)[1]")
        self.assertAlmostEqual(middle, self.run_in_page("panels[0].graph.toDomCoords(1, 1)[1] - panels[0].graph.toDomCoords(1, 10)[1]"), places=3)
        colours = []
        # Whatever else is chosen, values stay logarithmic where they are.
        for _ in range(3):
            colours.append(self.run_in_page("[getComputedStyle(document.body).backgroundColor, panels[0].colour(0)].join()"))
            self.assert_drawn(1, [[1, 20]])
            self.click("#theme")
        self.assertEqual([len(set(colours)), self.run_in_page("panels[0].isLog")], [2, True])
        # Printed, everything is light and no wider than the paper; afterwards it is as it was.
        self.click("#theme")
        self.click("#theme")
        self.assertEqual(self.run_in_page("document.documentElement.dataset.theme"), "dark")
        self.run_in_page("addEventListener('beforeprint', () => { window.printed = [document.documentElement.dataset.theme, panels[0].plot.clientWidth <= 660]; })")
        self.assertTrue(base64.b64decode(self.browser.call("Page.printToPDF")["data"]).startswith(b"%PDF"))
        self.assertEqual(self.run_in_page("[...window.printed, document.documentElement.dataset.theme, panels[0].plot.clientWidth > 660]"),
                         ["light", True, "dark", True])

    def test_a_run_that_cannot_be_read_is_named_and_the_others_are_shown(self):
        self.record()
        self.write_package("s.tavlox", {**self.parts(), "session/data/1.csv": b"time [s],v(out) [V],i(r1) [A]\n0,0,0\n0.1,x,1\n"})
        _, errors = self.run_program("report", "s.tavlox", "-o", "s.html", exit_code=1)
        self.assertEqual(errors.count("[samples:part:NotANumber]"), 1)
        self.browser.open(self.folder / "s.html")
        self.assertEqual(self.run_in_page("panels.map((panel) => panel.labels.join())"), ["cold"])
        self.assertIn("Samples that cannot be readhot", self.run_in_page("byId('facts').textContent"))

    def test_the_page_is_used_without_mouse_and_sight(self):
        self.record(hot="t [s],v [V]\n0,0\n1,10\n2,-5\n3,1\n")
        self.report("s")
        self.run_in_page("panels[0].plot.focus()")
        for key, cursor in [("ArrowRight", 0), ("ArrowRight", 1), ("a", 1), ("ArrowRight", 2), ("b", 2), ("ArrowLeft", 1)]:
            self.browser.key(key)
            self.assertEqual(self.run_in_page("view.cursor"), cursor, key)
        self.assertEqual(self.run_in_page("byId('live').textContent"), "1 s: hot 10 V")
        self.assertEqual(self.run_in_page("[...panels[0].readings.rows[1].cells].map((cell) => cell.textContent)"),
                         ["hot", "10", "10", "−5", "−15"])
        for key, window in [("+", [0.5, 2]), ("-", [0, 3]), ("+", [0.5, 2]), ("0", [0, 3])]:
            self.browser.key(key)
            self.assertEqual(self.run_in_page("[view.from, view.to]"), window, key)
        self.browser.key("Escape")
        self.assertEqual(self.run_in_page("[view.cursor, view.a, view.b]"), [None, None, None])
        # Whatever takes the focus has a name in the tree that screen readers get.
        tree = self.browser.call("Accessibility.getFullAXTree")["nodes"]
        focusable = [node for node in tree if any(p["name"] == "focusable" and p["value"]["value"] for p in node.get("properties", []))]
        self.assertGreater(len(focusable), 20)
        self.assertEqual([node["role"] for node in focusable if not node["name"].get("value") and node["role"]["value"] != "RootWebArea"], [])
        # What is saved: a picture of the plot, and the table of what is seen.
        self.run_in_page("saveAs = (name, blob) => { window.saved = blob.arrayBuffer().then((bytes) => [name, blob.type, [...new Uint8Array(bytes)]]); }")
        self.run_in_page("setWindow(1, 2)")
        for text, name, kind, begin in [("CSV", "s.tavlox-v.csv", "text/csv", "time [s],v · hot [V]\r\n1,10\r\n2,-5\r\n".encode()),
                                        ("PNG", "s.tavlox-v.png", "image/png", b"\x89PNG")]:
            self.run_in_page(f"window.saved = null, [...document.querySelectorAll('.panel button')].find((button) => button.textContent === '{text}').click()")
            self.browser.wait_for("window.saved !== null")
            saved = self.run_in_page("window.saved")
            self.assertEqual([*saved[:2], bytes(saved[2][:len(begin)])], [name, kind, begin])

    def test_a_comparison_shows_where_two_recordings_differ(self):
        rows = [(i / 100, math.sin(i / 50)) for i in range(500)]
        table = lambda spike: "t [s],a [V],same,v [V]\n" + "".join(f"{t},{t},1,{v + (spike if t == 2.5 else 0):.6f}\n" for t, v in rows)
        self.record("a.tavlox", hot=table(0))
        self.record("b.tavlox", hot=table(3).replace(",a [V],", ",b [V],"))
        page = self.folder / "difference.html"
        output, errors = self.run_program("compare", "a.tavlox", "b.tavlox", "--abs", "0.1", "-o", page.name, exit_code=3)
        self.assertEqual((output.count("\n"), errors), (4, ""))
        self.browser.open(page)
        self.assertEqual(self.browser.asked_for, [page.as_uri()])
        self.assertEqual(self.run_in_page("panels.map((panel) => [panel.title, panel.labels.join()])"),
                         [["v", "A,B"], ["Difference of v", "B − A"], ["same", "A,B"], ["Difference of same", "B − A"]])
        self.assert_drawn(0, [[2.5, math.sin(5) + 3]])
        self.assert_drawn(1, [[0, 0], [2.5, 3], [4.99, 0]])
        self.assertRegex(self.run_in_page("panels[1].overlay.textContent"), r"^largest difference: (3$|3\.0{6}|2\.9{6})")
        self.assertEqual([row[1:5] for row in self.rows("Signals")],
                         [["a", "1", "no", "only in A"], ["b", "1", "no", "only in B"], ["same", "1", "yes", "equal"], ["v", "1", "no", "different"]])
        self.assertEqual(self.run_in_page("[...document.querySelectorAll('td.bad')].length"), 3)
        self.assertIn("different", self.run_in_page("byId('facts').textContent"))
        for words, identifier in [(["-o", page.name], "tavlox:cli:OutputFileExists"), (["-o", "b.tavlox", "--force"], "tavlox:cli:OutputIsFile")]:
            self.assertEqual(self.error_of("compare", "a.tavlox", "b.tavlox", *words)["identifier"], identifier)


if __name__ == "__main__":
    unittest.main()
