"""Every example of the Python manual page and of Examples/python runs; types, names and drawings are in order."""

import ast
import contextlib
import doctest
import html.parser
import importlib.util
import inspect
import io
import math
import os
import pathlib
import re
import runpy
import shutil
import subprocess
import sys
import tempfile
import unittest

import talora
from common import CLINIC, EXAMPLES, NetCase

ROOT = EXAMPLES.parent


class NumbersNearly(doctest.OutputChecker):
    """Takes numbers that agree to five digits: the last bits depend on the order of sums."""

    NUMBER = re.compile(r" *-?\d+\.\d*(?:e-?\d+)? *")

    def check_output(self, want, got, flags):
        first, second = (self.NUMBER.sub("#", text) for text in (want, got))
        pairs = zip(self.NUMBER.findall(want), self.NUMBER.findall(got))
        near = all(math.isclose(float(a), float(b), rel_tol=1e-5) for a, b in pairs)
        return near and super().check_output(first, second, flags)


class Manual(unittest.TestCase):
    @unittest.skipUnless(importlib.util.find_spec("pandas"), "pandas is not installed")
    def test_examples_of_the_page(self):
        text = (ROOT / "Docs/python.md").read_text()
        names, parser = {}, doctest.DocTestParser()
        runner = doctest.DocTestRunner(NumbersNearly(), optionflags=doctest.NORMALIZE_WHITESPACE, verbose=False)
        before = os.getcwd()
        with tempfile.TemporaryDirectory() as folder, contextlib.redirect_stdout(io.StringIO()) as output:
            shutil.copy(CLINIC, folder)
            os.chdir(folder)
            try:
                for block in re.findall(r"```python\n(.*?)```", text, re.S):
                    if ">>>" in block:
                        test = parser.get_doctest(block, names, "python.md", "python.md", 0)
                        runner.run(test, out=output.write, clear_globs=False)
                        names.update(test.globs)
                    else:
                        exec(compile(block, "python.md", "exec"), names)
            finally:
                os.chdir(before)
        self.assertEqual(runner.failures, 0, output.getvalue())
        self.assertGreater(runner.tries, 40)

    def test_worked_examples(self):
        for path in sorted((EXAMPLES / "python").glob("*.py")):
            with self.subTest(path.name), contextlib.redirect_stdout(io.StringIO()) as output:
                runpy.run_path(str(path), run_name="__main__")
                self.assertIn("Rain", output.getvalue())

    def test_functions_of_the_header_are_reached(self):
        done = subprocess.run([sys.executable, ROOT / "Scripts/python-coverage.py"], capture_output=True, text=True)
        self.assertEqual(done.returncode, 0, done.stdout)


class Types(unittest.TestCase):
    def test_stubs_are_complete(self):
        stub = ast.parse((pathlib.Path(talora.__file__).parent / "__init__.pyi").read_text())
        classes = {item.name: item for item in stub.body if isinstance(item, ast.ClassDef)}
        at_top = {item.name for item in stub.body if isinstance(item, (ast.ClassDef, ast.FunctionDef))}
        at_top |= {item.target.id for item in stub.body if isinstance(item, ast.AnnAssign)}
        self.assertEqual(set(talora.__all__) - at_top, set())
        for name in talora.__all__:
            kind = getattr(talora, name)
            if not isinstance(kind, type) or issubclass(kind, (Exception, tuple)):
                continue
            there = {member for member in vars(kind) if not member.startswith("_") and member.isidentifier()}
            told = {item.name for item in classes[name].body if isinstance(item, ast.FunctionDef)}
            told |= {item.target.id for item in classes[name].body if isinstance(item, ast.AnnAssign)}
            self.assertEqual(there - told, set(), f"not in the stub of {name}")
            self.assertEqual({m for m in told if not m.startswith("_")} - there - {"delay", "show"} - _assigned(kind), set(), name)

    def test_everything_is_documented(self):
        for name in talora.__all__:
            kind = getattr(talora, name)
            if not isinstance(kind, type):
                continue
            self.assertTrue(kind.__doc__, name)
            for member, value in vars(kind).items():
                if not member.startswith("_") and (callable(value) or isinstance(value, property)):
                    text = inspect.getdoc(getattr(kind, member)) or ""
                    self.assertTrue(text.strip(), f"{name}.{member} has no docstring")
                    self.assertNotIn("talora_py::", text, f"{name}.{member}")


def _assigned(kind):
    """Attributes that instances get when they are made."""
    return {
        talora.Condition: {"Nodes", "States", "LogProbability"},
        talora.Table: {"name", "array", "parents", "parent_states", "states"},
    }.get(kind, set())


class Collector(html.parser.HTMLParser):
    """Text and tags of a piece of HTML; what is opened must be closed."""

    def __init__(self):
        super().__init__()
        self.tags, self.open, self.text = set(), [], ""

    def handle_starttag(self, tag, attributes):
        self.tags.add(tag)
        self.open.append(tag)

    def handle_endtag(self, tag):
        assert self.open.pop() == tag, (tag, self.open)

    def handle_startendtag(self, tag, attributes):
        self.tags.add(tag)

    def handle_data(self, data):
        self.text += data


def read(source):
    collector = Collector()
    collector.feed(source)
    collector.close()
    assert collector.open == [], collector.open
    return collector


class Display(NetCase):
    def test_texts_are_escaped(self):
        evil = '<script>alert("1")</script>&\''
        net = self.net
        net.Title = evil
        node = net["XRay"]
        node.Title, node.StateTitle[0] = evil, "<img src=x>"
        for shown in (net, node, node.table, net.GetMostProbableCondition(), talora.Sensitivity(node)):
            page = read(shown._repr_html_())
            self.assertFalse(page.tags & {"script", "img"}, repr(shown))
        self.assertIn(evil[:20], read(net._repr_html_()).text)

    def test_looking_changes_nothing(self):
        net = self.net
        net.Uncompile()
        net.findings["XRay"] = "Abnormal"
        self.assertIn("9.2%", read(net._repr_html_()).text)
        self.assertFalse(net.Compiled)

    def test_odd_nets(self):
        app = self.app
        empty = app.NewBNet("Empty")
        cyclic = app.NewBNet("Big")
        for number in range(60):
            node = cyclic.NewNode(f"n{number}", 2)
            for parent in range(max(0, number - 2), number):
                node.AddLink(f"n{parent}")
        continuous = app.NewBNet("Mixed")
        continuous.NewNode("c")
        continuous.NewNode("u").Kind = talora.UTILITY_NODE
        for net in (empty, cyclic, continuous):
            self.assertIn(net.Name, read(net._repr_html_()).text)
        many = app.NewBNet("Many")
        for number in range(300):
            many.NewNode(f"n{number}", 2)
        self.assertIn("too many", read(many._repr_html_()).text)


if __name__ == "__main__":
    unittest.main()
