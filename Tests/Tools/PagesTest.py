#!/usr/bin/env python3
"""Tests of the pages that the talora command writes with --html.

    PagesTest.py COMMAND [unittest options]

Every page is read as XML, so that nothing in it is left open or unescaped, and looked through for what it
must not have: scripts, addresses elsewhere, drawings that leave their view box, labels that overlap.
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as ElementTree

COMMAND = str(pathlib.Path(sys.argv.pop(1)).resolve())
EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "Examples"
CLINIC = EXAMPLES / "chest-clinic.dne"
SVG = "{http://www.w3.org/2000/svg}"
HTML = "{http://www.w3.org/1999/xhtml}"
FONT_SIZE = 12
LEAST_EM = 0.45  # of a character; a page must leave room for more, but no font needs less on average

NET = '''// ~->[DNET-1]->~

bnet Trial {title = "TEXT";
node A {title = "TEXT"; discrete = TRUE; states = (u, v); kind = NATURE; probs = (0.25, 0.75);};
node A_node_whose_name_is_long__ {discrete = TRUE; states = (u, v, w); levels = (-1e300, 3, 1e300);
  statetitles = ("TEXT", "", ""); title = "TEXT"; kind = NATURE; parents = (A); probs = ((0.5, 0.5, 0), (0.1, 0.2, 0.7));};
};
'''
HOSTILE = [b"<script>alert(1)</script>", b"</title></style><img src=x onerror=alert(1)>", b"' onload='x' \\\" <!--",
           b"]]> &lt; &bogus; <?php", b"\x01\x1b[2J\x07", b"\xff\xc3\x28\xed\xa0\x80", b"\xef\xbf\xbf \xe2\x80\xae",
           "é 漢字 😀".encode()]


def talora(*arguments, stdin=b""):
    return subprocess.run([COMMAND, *map(str, arguments)], input=stdin, capture_output=True, timeout=300)


def numbers(text):
    return [float(number) for number in re.split(r"[ ,]+", text.strip())]


def extent(text):
    """Left, baseline and right of a text, if narrow."""
    content = (text.text or "") + "".join(child.tail or "" for child in text)
    x, width = float(text.get("x")), LEAST_EM * FONT_SIZE * len(content)
    styles = text.get("class").split()
    left = x - width / 2 if "middle" in styles else x - width if "end" in styles else x
    return left, float(text.get("y")), left + width


class PageTest(unittest.TestCase):
    def page(self, *arguments, stdin=b""):
        done = talora(*arguments, "--html", "-", stdin=stdin)
        self.assertEqual(done.returncode, 0, done.stderr.decode(errors="replace"))
        return self.check(done.stdout)

    def check(self, page):
        """The page as a tree, after looking for what no page may have."""
        root = ElementTree.fromstring(page)
        self.assertEqual(root.tag, HTML + "html")
        for element in root.iter():
            name = element.tag.split("}")[1]
            self.assertNotIn(name, ("script", "link", "img", "iframe", "object", "image", "use", "foreignObject"))
            for key, value in element.attrib.items():
                self.assertFalse(key.startswith("on") or key in ("href", "src"), (name, key, value))
        self.assertNotRegex(page.decode().replace('="http://www.w3.org/', ""), r"url\(|@import|http:|https:")
        for drawing in root.iter(SVG + "svg"):
            if drawing.get("aria-hidden") != "true":
                self.check_drawing(drawing)
        return root

    def check_drawing(self, drawing):
        self.assertTrue(drawing.findtext(SVG + "title"))
        self.assertTrue(drawing.findtext(SVG + "desc"))
        left, top, width, height = numbers(drawing.get("viewBox"))
        texts = []
        for shape in drawing.iter():
            get = lambda key: float(shape.get(key))
            points = {"line": lambda: [(get("x1"), get("y1")), (get("x2"), get("y2"))],
                      "rect": lambda: [(get("x"), get("y")), (get("x") + get("width"), get("y") + get("height"))],
                      "circle": lambda: [(get("cx") + s * get("r"), get("cy") + s * get("r")) for s in (-1, 1)],
                      "polyline": lambda: list(zip(*[iter(numbers(shape.get("points")))] * 2)),
                      "text": lambda: []}.get(shape.tag[len(SVG):], list)()
            if shape.tag == SVG + "text" and shape.get("x"):
                texts.append(extent(shape))
                points = [(texts[-1][0], texts[-1][1]), (texts[-1][2], texts[-1][1] - 9)]
            for x, y in points:
                self.assertTrue(left <= x <= left + width and top <= y <= top + height,
                                ElementTree.tostring(shape))
            if shape.tag == SVG + "rect":
                self.assertTrue(get("width") >= 0 and get("height") >= 0, ElementTree.tostring(shape))
        for i, (left, base, right) in enumerate(texts):
            for other_left, other_base, other_right in texts[:i]:
                self.assertFalse(abs(base - other_base) < FONT_SIZE and left < other_right and other_left < right,
                                 ElementTree.tostring(drawing))

    @staticmethod
    def table(root, caption):
        for table in root.iter(HTML + "table"):
            if caption in (table.findtext(HTML + "caption") or ""):
                return [["".join(cell.itertext()) for cell in row] for row in table.iter(HTML + "tr")]
        raise AssertionError(f"no table '{caption}'")

    def charts(self, root):
        return {drawing.findtext(SVG + "title"): drawing for drawing in root.iter(SVG + "svg")
                if drawing.get("aria-hidden") != "true"}


class SensitivityTest(PageTest):
    def test_charts_show_what_the_answer_says(self):
        options = ["sensitivity", CLINIC, "--query", "LungCancer", "-f", "Smoker=Yes"]
        root = self.page(*options)
        charts = self.charts(root)
        self.assertEqual(list(charts), ["Present beliefs", "Mutual information", "Probability of Yes", "Probability of No"])
        document = json.loads(talora(*options, "--json").stdout)
        rows = sorted(document["rows"], key=lambda row: -row["mutual_info"])
        bars = [bar for bar in charts["Mutual information"].iter(SVG + "rect") if bar.get("class") == "bar"]
        self.assertEqual([bar.findtext(SVG + "title").split(":")[0] for bar in bars[:3]], [row["node"] for row in rows[:3]])
        for bar, row in zip(bars, rows):
            share = float(bar.get("width")) / float(bars[0].get("width"))
            self.assertAlmostEqual(share, row["mutual_info"] / rows[0]["mutual_info"], delta=1e-3)
        self.assertEqual([row[0] for row in self.table(root, "Sensitivity of")][1:4], [row["node"] for row in rows[:3]])

    def test_ranges_are_what_findings_lead_to(self):
        def belief(*options):
            return json.loads(talora("beliefs", CLINIC, "--json", *options).stdout)["beliefs"]["LungCancer"]["Yes"]

        root = self.page("sensitivity", CLINIC, "--query", "LungCancer", "--vary", "XRay")
        tornado = self.charts(root)["Probability of Yes"]
        less, more = [next(bar for bar in tornado.iter(SVG + "rect") if bar.get("class") == side) for side in ("less", "more")]
        low, now, high = sorted([belief(), belief("-f", "XRay=#0"), belief("-f", "XRay=#1")])
        self.assertEqual(less.findtext(SVG + "title"), f"XRay: {low:.4g} – {high:.4g}")
        ratio = float(less.get("width")) / (float(less.get("width")) + float(more.get("width")))
        self.assertAlmostEqual(ratio, (now - low) / (high - low), delta=1e-3)

    def test_hostile_text(self):
        for text in HOSTILE:
            for query in ("A", "A_node_whose_name_is_long__"):
                with self.subTest(text=text, query=query):
                    self.page("sensitivity", "-", "--query", query, stdin=NET.encode().replace(b"TEXT", text))


class ConfigurationsTest(PageTest):
    def test_best_and_those_after_it(self):
        for options, count in [([], 1), (["--nth", "5"], 6), (["--nth", "60"], 51), (["--node", "XRay", "--nth", "1"], 2)]:
            with self.subTest(options=options):
                command = ["mpe", CLINIC, "-f", "Dyspnoea=Yes", *options]
                root = self.page(*command)
                document = json.loads(talora(*command, "--json").stdout)
                rows = self.table(root, "Configuration ")
                self.assertEqual({row[0]: row[1] for row in rows[1:]}, document["configuration"])
                if count == 1:
                    self.assertEqual(self.charts(root), {})
                    continue
                bars = [bar for bar in self.charts(root)["Probabilities of configurations"].iter(SVG + "rect")
                        if bar.get("class") == "bar"]
                widths = [float(bar.get("width")) for bar in bars]
                self.assertEqual(len(widths), count)
                self.assertEqual(widths, sorted(widths, reverse=True))
                self.assertAlmostEqual(float(self.table(root, "The best")[-1][2]), document["probability"],
                                       delta=1e-3 * document["probability"])

    def test_hostile_text(self):
        for text in HOSTILE:
            with self.subTest(text=text):
                self.page("mpe", "-", "--nth", "2", stdin=NET.encode().replace(b"TEXT", text))


class TestingTest(PageTest):
    CASES = b"""// ~->[CASE-1]->~

IDnum\tSmoker\tBronchitis\tXRay\tDyspnoea\tLungCancer
1\tYes\tYes\tNormal\tYes\tNo
2\tNo\tNo\tAbnormal\tYes\tYes
3\tYes\tNo\tNormal\tNo\tNo
4\tNo\tYes\tNormal\tYes\tNo
5\tYes\tYes\tAbnormal\tNo\tYes
6\tNo\tNo\tNormal\tNo\t*
7\tYes\t*\tAbnormal\tYes\tNo
"""

    def test_tables_and_curves_show_what_the_answer_says(self):
        with tempfile.NamedTemporaryFile(suffix=".cas") as file:
            file.write(self.CASES)
            file.flush()
            command = ["test", CLINIC, "--cases", file.name, "--node", "LungCancer"]
            root = self.page(*command)
            figures = json.loads(talora(*command, "--json").stdout)["nodes"]["LungCancer"]
        scores = dict(zip(*self.table(root, "Scores")))
        self.assertAlmostEqual(float(scores["Cases"]), figures["cases"])
        for heading, field in [("Error rate", "error_rate"), ("Logarithmic loss", "log_loss"),
                               ("Quadratic loss", "quadratic_loss"), ("Spherical payoff", "spherical_payoff")]:
            self.assertAlmostEqual(float(scores[heading]), figures[field], delta=1e-3)
        matrix = [[float(entry) for entry in row[1:-1]] for row in self.table(root, "Confusion matrix")[1:]]
        self.assertEqual(matrix, figures["confusion"])
        charts = self.charts(root)
        self.assertEqual(list(charts), ["ROC curves", "Calibration"])
        curve = numbers(next(charts["ROC curves"].iter(SVG + "polyline")).get("points"))
        xs, ys = curve[::2], curve[1::2]
        self.assertEqual((xs, ys), (sorted(xs), sorted(ys, reverse=True)))
        corner, end = (xs[0], ys[0]), (xs[-1], ys[-1])
        area = sum((x1 - x0) * ((y0 + y1) / 2 - corner[1]) for x0, x1, y0, y1 in zip(xs, xs[1:], ys, ys[1:]))
        area /= (end[0] - corner[0]) * (end[1] - corner[1])
        self.assertAlmostEqual(area, figures["auroc"], delta=1e-3)
        # As many dots as tenths of belief, one at least for each state; and the surprises of both states.
        self.assertGreaterEqual(len(list(charts["Calibration"].iter(SVG + "circle"))), 2)
        self.assertEqual([row[0] for row in self.table(root, "Surprises")], ["State", "Yes", "No"])

    def test_nodes_without_cases_and_hostile_text(self):
        with tempfile.NamedTemporaryFile(suffix=".cas") as file:
            file.write(b"// ~->[CASE-1]->~\n\nIDnum\tA\n1\tu\n2\tv\n")
            file.flush()
            for text in HOSTILE:
                with self.subTest(text=text):
                    self.page("test", "-", "--cases", file.name, "--node", "A", "--node", "A_node_whose_name_is_long__",
                              stdin=NET.encode().replace(b"TEXT", text))


class FilesTest(PageTest):
    def test_a_page_is_written_beside_the_answer(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "page.html"
            plain = talora("mpe", CLINIC)
            done = talora("mpe", CLINIC, "--html", path)
            self.assertEqual((done.returncode, done.stdout), (0, plain.stdout))
            self.check(path.read_bytes())
            document = json.loads(talora("mpe", CLINIC, "--html", path, "--json").stdout)
            self.assertIs(document["ok"], True)
            self.assertEqual(os.listdir(folder), ["page.html"])

    def test_failures(self):
        with tempfile.TemporaryDirectory() as folder:
            for arguments, status in [(["mpe", CLINIC, "--html", folder + "/none/page.html"], 1),
                                      (["mpe", CLINIC, "--html", folder], 1),
                                      (["mpe", CLINIC, "--html", "-", "--json"], 2),
                                      (["sensitivity", CLINIC, "--query", "Nobody", "--html", folder + "/p.html"], 1)]:
                with self.subTest(arguments=arguments):
                    done = talora(*arguments)
                    self.assertEqual(done.returncode, status)
                    self.assertIn(b"talora: error", done.stderr)
            self.assertEqual(os.listdir(folder), [])


unittest.main()
