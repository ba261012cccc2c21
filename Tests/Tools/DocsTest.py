#!/usr/bin/env python3
"""Runs the examples of the manual: those of README.md and of every page in Docs.

    DocsTest.py BUILD_FOLDER [unittest options]

Each page has a folder of its own, in which its examples run in their order, with the example nets in
Examples and the files named below (net.dne, patients.cas ...).  An example is a block between ``` marks,
or an indented one:

- sh: a block of which a line begins with "$ " shows commands and what they print, where "..." stands for
  any text; else every line that calls talora is run.  A command must end with status 0; "# fails" behind
  it says that it must not.
- A block with the name of a file behind its language becomes that file; what is to be done with it, sh
  blocks say.
- c and cpp without a file name are compiled inside a function that has the usual variables.
- python without a file name runs, the blocks of a page one after the other; sessions (>>>) must print what
  they show.  They are skipped where the Python module is not built, or pandas, if they mention it, not there.
- A block that begins with the header of a net is read as a net, one with that of a case file as cases.
"""
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
ROOT = pathlib.Path(__file__).resolve().parents[2]
GENERATED = {"functions", "messages.md", "equation-functions.md"}  # nothing to run in them
FENCE = re.compile(r"^```(\w*) *([\w/.-]*)[^\n]*\n(.*?)^```$", re.M | re.S)
INDENTED = re.compile(r"(?:^\n|\A)((?:    .*\n|\n(?=    ))+)", re.M)
WRAPPED = """#include <Talora.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
void Example (environ_vx* env, net_bn* net, node_bn* node, node_bn* parent, node_bn* child, stream_vx* file,
              caseset_cs* cases, learner_bn* learner, tester_bn* tester, nodelist_bn* nodes, dbmgr_cs* db,
              char* message, const state_bn* parent_states, node_bn* query,
              nodelist_bn* varying, node_bn* varying_node)
{
    (void) env, (void) net, (void) node, (void) parent, (void) child, (void) file, (void) cases, (void) learner;
    (void) tester, (void) nodes, (void) db, (void) message, (void) parent_states, (void) query, (void) varying, (void) varying_node;
    {
%s
    }
}
"""
PYTHON_PAGE = r"""import doctest, json, math, re, sys
class NumbersNearly(doctest.OutputChecker):  # the last bits of a number depend on the order of sums
    number = re.compile(r" *-?\d+\.\d*(?:e-?\d+)? *")
    def check_output(self, want, got, flags):
        pairs = zip(self.number.findall(want), self.number.findall(got))
        near = all(math.isclose(float(a), float(b), rel_tol=1e-5) for a, b in pairs)
        return near and super().check_output(*(self.number.sub("#", text) for text in (want, got)), flags)
names, failed = {"__name__": "page"}, 0
for number, text in enumerate(json.load(open("page.json")), 1):
    if text.startswith(">>> "):
        test = doctest.DocTestParser().get_doctest(text, names, f"block {number}", None, 0)
        runner = doctest.DocTestRunner(NumbersNearly(), optionflags=doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE)
        failed += runner.run(test, clear_globs=False).failed
        names.update(test.globs)
    else:
        exec(compile(text, f"block {number}", "exec"), names)
sys.exit(failed > 0)
"""
MORE_NODES = """
node Disease {states = (Present, Absent); kind = NATURE; parents = (Smoker); probs = ((0.3, 0.7), (0.1, 0.9));};
node Cough {states = (Yes, No); kind = NATURE; parents = (Disease); probs = ((0.8, 0.2), (0.2, 0.8));};
node Weight {discrete = FALSE; levels = (40, 60, 80, 100); kind = NATURE; probs = (0.3, 0.4, 0.3);};
node Dose {discrete = FALSE; levels = (0, 100, 150, 200, 300); kind = NATURE; parents = (Weight);
  equation = "P (Dose | Weight) = NormalDist (Dose, 2 * Weight, 15)";};
};
"""


def blocks(text):
    """Language, file and content of each block, in the order of the page."""
    found = [(match.start(), match[1], match[2], match[3]) for match in FENCE.finditer(text)]
    outside = FENCE.sub(lambda match: re.sub(r"[^\n]", "x", match[0]), text)
    for match in INDENTED.finditer(outside):
        found.append((match.start(), "indented", "", re.sub(r"^    ", "", match[1], flags=re.M)))
    return [block[1:] for block in sorted(found)]


def agrees(shown, printed):
    """Whether a text is as the page shows it, trailing blanks aside."""
    lines = [line.rstrip() for line in shown.strip("\n").split("\n")]
    pattern = "\n".join(".*?" if line == "..." else ".*?".join(map(re.escape, line.split("..."))) for line in lines)
    printed = "\n".join(line.rstrip() for line in printed.strip("\n").split("\n"))
    return re.fullmatch(pattern, printed, re.S) is not None


class Page:
    """A page, and the folder in which its examples run."""

    def __init__(self, path, work, environment, interpreter, has_pandas):
        self.path, self.work, self.environment = path, work, environment
        self.interpreter, self.has_pandas = interpreter, has_pandas  # the interpreter that has the module, or None
        self.python, self.count, self.skipped, self.complaints = [], 0, 0, []

    def run(self):
        for number, (language, name, text) in enumerate(blocks(self.path.read_text(encoding="utf-8")), 1):
            self.block = f"{self.path.relative_to(ROOT)}, block {number}"
            if name:
                self.write(name, text)
            elif language in ("sh", "console", "indented", "text") and re.search(r"^ *(\$ |talora |\./run \w)", text, re.M):
                self.shell(language, text)
            elif language in ("c", "cpp"):
                self.compile(language, text)
            elif language == "python":
                self.python.append(text)
            elif text.startswith("// ~->[DNET"):
                self.write(f"block{number}.dne", text)
                self.command(f"talora info block{number}.dne")
            elif text.startswith("// ~->[CASE") and "$" not in text:
                self.write(f"block{number}.cas", text)
        self.run_python()

    def complain(self, text):
        self.complaints.append(f"{self.block}: {text}")

    def write(self, name, text):
        path = self.work / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def command(self, command, shown=None):
        """Runs a command; shown is what it must print, if that matters."""
        command = command.replace("./run ", "talora ")
        must_fail = command.rstrip().endswith("# fails")
        if not self.interpreter and re.search(r"\bpython3?\b", command):
            self.skipped += 1
            return
        self.count += 1
        done = subprocess.run(["bash", "-c", command], cwd=self.work, env=self.environment, text=True, timeout=300,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if (done.returncode != 0) != must_fail:
            self.complain(f"'{command}' ended with {done.returncode}:\n{done.stdout[-1500:]}")
        elif shown is not None and not agrees(shown, done.stdout):
            self.complain(f"'{command}' printed\n{done.stdout[-3000:]}\nbut the page shows\n{shown}")

    def shell(self, language, text):
        if re.search(r"^\$ ", text, re.M):
            for match in re.finditer(r"^\$ ((?:.*\\\n)*.*)\n((?:(?!\$ ).*\n)*)", text, re.M):
                self.command(match[1], match[2] if match[2].strip() else None)
            return
        for line in re.sub(r"\s*\\\n\s*", " ", text).splitlines():
            line = line.strip()
            if not re.match(r"talora |\./run \w", line):
                if language in ("sh", "console") and line and not line.startswith("#"):
                    self.command(line)
                continue
            # Behind a wide gap stands what the command is for.
            self.command(re.split(r" {2,}(?![^']*'$)", line)[0])

    def compile(self, language, text):
        self.count += 1
        source = self.work / f"fragment.{language}"
        source.write_text(text if "main" in text else WRAPPED % text.replace("...;", ";"), encoding="utf-8")
        compiler = ["g++", "-std=c++20"] if language == "cpp" else ["gcc"]
        done = subprocess.run([*compiler, "-fsyntax-only", f"-I{ROOT / 'Include'}", source], text=True,
                              capture_output=True, timeout=300)
        if done.returncode != 0:
            self.complain(done.stderr[:1500])

    def run_python(self):
        if not self.python:
            return
        if not self.interpreter:
            self.skipped += len(self.python)
            return
        self.block = f"{self.path.relative_to(ROOT)}, python"
        if not self.has_pandas:
            self.python, all_blocks = [text for text in self.python if "pandas" not in text], self.python
            self.skipped += len(all_blocks) - len(self.python)
        if self.python:
            self.write("page.json", json.dumps(self.python))
            self.write("page.py", PYTHON_PAGE)
            self.command(f"env -u LD_LIBRARY_PATH {self.interpreter} page.py")


class DocsTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.work = pathlib.Path(cls.folder.name)
        prefix = cls.work / "prefix"
        subprocess.run(["cmake", "--install", BUILD, "--prefix", prefix], check=True, capture_output=True)
        library = next(prefix.rglob("libtalora.so.6")).parent
        cls.environment = dict(os.environ, PATH=f"{prefix / 'bin'}:{os.environ['PATH']}", COLUMNS="100",
                               LC_ALL="C", LD_LIBRARY_PATH=str(library), PYTHONPATH=str(BUILD / "Python"),
                               PYTHONDONTWRITEBYTECODE="1", PKG_CONFIG_PATH=str(library / "pkgconfig"),
                               CMAKE_PREFIX_PATH=str(prefix), CMAKE_GENERATOR="Ninja")
        cls.python = next((python for python in (sys.executable, "/usr/bin/python3") if cls.imports(python, "talora")),
                          None)
        cls.has_pandas = cls.python and cls.imports(cls.python, "pandas")
        cls.files = cls.work / "files"
        shutil.copytree(ROOT / "Examples", cls.files / "Examples", ignore=shutil.ignore_patterns("build*"))
        clinic = (ROOT / "Examples" / "chest-clinic.dne").read_text()
        (cls.files / "net.dne").write_text(re.sub(r"\};\s*\Z", MORE_NODES, clinic))
        shutil.copy(cls.files / "net.dne", cls.files / "old.dne")
        shutil.copy(ROOT / "Examples" / "chest-clinic.dne", cls.files)
        (cls.files / "secret.txt").write_text("open sesame\n")
        for seed, name in enumerate(["patients", "a", "b"]):
            cls.talora("simulate", "net.dne", "--cases", "300", "--seed", str(seed), "-o", name + ".cas", "--node", "Smoker",
                       *"--node Disease --node Cough --node LungCancer --node XRay --node Dyspnoea --node Bronchitis".split(),
                       *"--node Tuberculosis --node VisitToAsia --node TbOrCancer".split())
        cls.talora("simulate", "Examples/chest-clinic.dne", "--cases", "300", "--seed", "1", "-o", "clinic.cas")

    @classmethod
    def imports(cls, python, module):
        return shutil.which(python) and subprocess.run(["env", "-u", "LD_LIBRARY_PATH", python, "-c", f"import {module}"],
                                                       env=cls.environment, capture_output=True).returncode == 0

    @classmethod
    def talora(cls, *arguments):
        subprocess.run(["talora", *arguments], cwd=cls.files, env=cls.environment, check=True, capture_output=True)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def test_examples(self):
        pages = [ROOT / "README.md"] + sorted((ROOT / "Docs").rglob("*.md"))
        total = skipped = 0
        for path in pages:
            if GENERATED & set(path.relative_to(ROOT).parts):
                continue
            with self.subTest(page=str(path.relative_to(ROOT))):
                work = self.work / re.sub(r"\W", "_", str(path.relative_to(ROOT)))
                shutil.copytree(self.files, work)
                page = Page(path, work, self.environment, self.python, self.has_pandas)
                page.run()
                total, skipped = total + page.count, skipped + page.skipped
                if page.complaints:
                    self.fail("\n\n".join(page.complaints))
        print(f"{total} examples run", file=sys.stderr)
        if skipped:
            reason = "pandas is not installed" if self.python else "the module is not built (TALORA_PYTHON)"
            print(f"{skipped} examples in Python skipped: {reason}", file=sys.stderr)

    def test_links(self):
        """Every link to a file leads somewhere, and so does every place in a page that is linked to; every
        source file that is named exists."""
        for path in [ROOT / "README.md", ROOT / "CONTRIBUTING.md"] + sorted((ROOT / "Docs").rglob("*.md")):
            text = FENCE.sub("", path.read_text(encoding="utf-8"))
            for name in re.findall(r"`((?:Src|Include|Tools|Tests|Scripts|Docs)/[\w/-]+\.\w+)`", text):
                self.assertTrue((ROOT / name).exists(), f"{path.name}: {name}")
            for target in re.findall(r"(?<!`)\]\(([^)\s]+)\)", text):
                if re.match(r"https?:", target):
                    continue
                file, _, place = target.partition("#")
                other = (path.parent / file) if file else path
                with self.subTest(page=str(path.relative_to(ROOT)), link=target):
                    self.assertTrue(other.exists())
                    if place:
                        headings = re.findall(r"^#+ (.*)$", other.read_text(encoding="utf-8"), re.M)
                        anchors = [re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-") for heading in headings]
                        self.assertIn(place, anchors)


unittest.main()
