#!/usr/bin/env python3
"""Tests of the talora command, as a user runs it.

    CommandTest.py COMMAND [unittest options]

Beliefs are compared with an enumeration of the joint distribution, made here from what the info
and table commands print, so the three commands vouch for one another.  With TALORA_CORPUS set,
published nets are compared with the results stored beside them.
"""
import gzip
import hashlib
import hmac
import itertools
import json
import math
import os
import pathlib
import pty
import re
import select
import shutil
import signal
import struct
import subprocess
import sys
import tempfile
import time
import unittest

sys.dont_write_bytecode = True
import read_tala

COMMAND = str(pathlib.Path(sys.argv.pop(1)).resolve())
ROOT = pathlib.Path(__file__).resolve().parents[2]
EXAMPLES = ROOT / "Examples"
CLINIC = EXAMPLES / "chest-clinic.dne"
CORPUS = os.environ.get("TALORA_CORPUS", "")
ENVIRONMENT = dict(os.environ, LC_ALL="C.UTF-8")


def talora(*arguments, stdin=b"", environment=ENVIRONMENT):
    return subprocess.run([COMMAND, *map(str, arguments)], input=stdin, capture_output=True, env=environment,
                          timeout=300)


def answer(*arguments, stdin=b""):
    """The JSON document of a command that is expected to succeed."""
    done = talora(*arguments, "--json", stdin=stdin)
    assert done.returncode == 0, f"{arguments}: {done.returncode} {done.stderr.decode(errors='replace')}"
    document = json.loads(done.stdout)
    assert document["ok"] is True
    return document


def net_text(body, head=""):
    return f"// ~->[DNET-1]->~\n\nbnet Trial {{\n{head}{body}}};\n".encode()


NODE_A = "node A {discrete = TRUE; states = (u, v); kind = NATURE; probs = (0.25, 0.75);};\n"


class Model:
    """A net as the command describes it, with its joint distribution by enumeration."""

    def __init__(self, path):
        self.nodes = {node["name"]: node for node in answer("info", path)["nodes"]}
        self.tables = {}
        for name in self.nodes:
            rows = answer("table", path, name)["rows"]
            self.tables[name] = {tuple(row["parent_states"]): row["probs"] for row in rows}

    def query(self, weights):
        """Beliefs and probability of findings; weights: node to one weight per state."""
        total = 0.0
        beliefs = {name: dict.fromkeys(node["states"], 0.0) for name, node in self.nodes.items()}
        for states in itertools.product(*(node["states"] for node in self.nodes.values())):
            configuration = dict(zip(self.nodes, states))
            p = 1.0
            for name, node in self.nodes.items():
                index = node["states"].index(configuration[name])
                p *= self.tables[name][tuple(configuration[parent] for parent in node["parents"])][index]
                p *= weights.get(name, {}).get(index, 1.0)
            total += p
            for name, state in configuration.items():
                beliefs[name][state] += p
        return {name: {s: p / total for s, p in row.items()} for name, row in beliefs.items()}, total


class BeliefsTest(unittest.TestCase):
    CASES = [
        # net, options, weights by state index (a state that is not named has weight 1)
        ("chest-clinic", [], {}),
        ("chest-clinic", ["-f", "Dyspnoea=Yes"], {"Dyspnoea": {1: 0}}),
        ("chest-clinic", ["-f", "XRay=#0", "-f", "Smoker=No"], {"XRay": {1: 0}, "Smoker": {0: 0}}),
        ("chest-clinic", ["--not", "TbOrCancer=No"], {"TbOrCancer": {1: 0}}),
        ("chest-clinic", ["--likelihood", "XRay=0.8,0.2"], {"XRay": {0: 0.8, 1: 0.2}}),
        ("chest-clinic", ["--likelihood=XRay=3,1", "-f", "Dyspnoea=Yes", "--not=Smoker=Yes"],
         {"XRay": {0: 3, 1: 1}, "Dyspnoea": {1: 0}, "Smoker": {0: 0}}),
        ("metastatic-cancer", ["-f", "SevereHeadaches=Present", "-f", "Coma=Absent"],
         {"SevereHeadaches": {1: 0}, "Coma": {0: 0}}),
        ("car-start", ["-f", "Start=No", "--not", "FuelMeter=Full"], {"Start": {0: 0}, "FuelMeter": {0: 0}}),
        ("car-start", ["-f", "Start=No", "--optimize", "0.1"], {"Start": {0: 0}}),
    ]

    def test_agree_with_enumeration(self):
        models = {}
        for net, options, weights in self.CASES:
            path = EXAMPLES / f"{net}.dne"
            with self.subTest(net=net, options=options):
                model = models.setdefault(net, Model(path))
                beliefs, probability = model.query(weights)
                document = answer("beliefs", path, *options)
                self.assertEqual(list(document["beliefs"]), list(model.nodes))
                self.assertAlmostEqual(document["probability_of_findings"], probability, delta=1e-5 * probability)
                self.assertAlmostEqual(document["log_probability_of_findings"], math.log(probability), delta=1e-5)
                for name, row in beliefs.items():
                    self.assertEqual(list(document["beliefs"][name]), list(row))
                    for state, p in row.items():
                        self.assertAlmostEqual(document["beliefs"][name][state], p, delta=1e-5, msg=name)
                # One node alone is found in another way.
                name = list(beliefs)[len(beliefs) // 2]
                document = answer("beliefs", path, "--node", name, *options)
                self.assertAlmostEqual(document["log_probability_of_findings"], math.log(probability), delta=1e-5)
                for state, p in beliefs[name].items():
                    self.assertAlmostEqual(document["beliefs"][name][state], p, delta=1e-5, msg=name)

    def test_agree_with_the_publications(self):
        for net, options, node, state, published in [
                ("chest-clinic", [], "Dyspnoea", "Yes", 0.436),
                ("car-start", ["-f", "Start=No"], "CleanSparkPlugs", "No", 0.58),
                ("car-start", ["-f", "Start=No"], "Fuel", "No", 0.29)]:
            with self.subTest(net=net, node=node):
                document = answer("beliefs", EXAMPLES / f"{net}.dne", "--node", node, *options)
                self.assertEqual(list(document["beliefs"]), [node])
                self.assertAlmostEqual(document["beliefs"][node][state], published, delta=0.005)

    def test_expected_values(self):
        body = ("node Dice {discrete = TRUE; states = (low, high); levels = (2, 10); kind = NATURE; "
                "probs = (0.25, 0.75);};\n" + NODE_A)
        document = answer("beliefs", "-", stdin=net_text(body))
        self.assertEqual(list(document["expected_values"]), ["Dice"])
        self.assertAlmostEqual(document["expected_values"]["Dice"]["mean"], 8, delta=1e-5)
        self.assertAlmostEqual(document["expected_values"]["Dice"]["sd"], math.sqrt(12), delta=1e-5)
        document = answer("beliefs", "-", "--value", "Dice=10", stdin=net_text(body))
        self.assertEqual(document["beliefs"]["Dice"], {"low": 0, "high": 1})

    def test_saved_findings_stand_unless_told_otherwise(self):
        body = NODE_A.replace("};", "evidence = v;};")
        for options, expected in [([], 1.0), (["--no-saved-findings"], 0.75)]:
            document = answer("beliefs", "-", *options, stdin=net_text(body))
            self.assertAlmostEqual(document["beliefs"]["A"]["v"], expected, delta=1e-6)

    def test_findings_from_a_case_file(self):
        with tempfile.TemporaryDirectory() as folder:
            cases = pathlib.Path(folder) / "a.cas"
            cases.write_text("IDnum,A\n1,u\n2,*\n3,{1;3}\n")
            for number, expected in [(1, 0.25), (2, 1.0), (3, 2.5)]:
                document = answer("beliefs", "-", "--findings", cases, "--case", number, stdin=net_text(NODE_A))
                self.assertAlmostEqual(document["probability_of_findings"], expected, delta=1e-6)
            missing = talora("beliefs", "-", "--findings", cases, "--case", 4, stdin=net_text(NODE_A))
            self.assertEqual(missing.returncode, 1)
            self.assertIn(b"has no case 4", missing.stderr)

    def test_findings_that_contradict_one_another(self):
        done = talora("beliefs", CLINIC, "-f", "Tuberculosis=Yes", "-f", "TbOrCancer=No", "--json")
        document = json.loads(done.stdout)
        self.assertEqual(done.returncode, 1)
        self.assertIs(document["ok"], False)
        self.assertTrue(document["messages"])
        self.assertIsNone(document.get("log_probability_of_findings"))

    def test_bars(self):
        text = talora("beliefs", CLINIC, "-f", "Smoker=Yes").stdout.decode()
        self.assertIn("Findings: Smoker = Yes", text)
        self.assertIn("█", text)
        plain = talora("beliefs", CLINIC, environment=dict(ENVIRONMENT, LC_ALL="C")).stdout.decode()
        self.assertTrue(plain.isascii())
        self.assertRegex(plain, r"No +99\.00 %  #{40,}\n")


class SensitivityTest(unittest.TestCase):
    @staticmethod
    def measures(model, weights, query, varying):
        """Mutual information in bits and reduction of belief variance, by enumeration."""
        beliefs, total = model.query(weights)
        info = variance = 0.0
        for t, state in enumerate(model.nodes[varying]["states"]):
            others = {i: 0.0 for i in range(len(model.nodes[varying]["states"])) if i != t}
            if beliefs[varying][state] == 0:
                continue
            given = model.query({**weights, varying: others})[0][query]
            for s, p in beliefs[query].items():
                both = given[s] * beliefs[varying][state]
                if both > 0:
                    info += both * math.log2(given[s] / p)
                variance += both * (given[s] - p) ** 2
        return info, variance

    def test_agree_with_enumeration(self):
        model = Model(CLINIC)
        for options, weights in [([], {}), (["-f", "Dyspnoea=Yes"], {"Dyspnoea": {1: 0}})]:
            document = answer("sensitivity", CLINIC, "--query", "LungCancer", *options)
            self.assertEqual({row["node"] for row in document["rows"]}, set(model.nodes) - {"LungCancer"})
            info, variance = self.measures(model, weights, "LungCancer", "LungCancer")
            self.assertAlmostEqual(document["entropy"], info, delta=1e-6)
            self.assertAlmostEqual(document["belief_variance"], variance, delta=1e-6)
            for row in document["rows"]:
                if row["node"] in weights:
                    self.assertAlmostEqual(row["mutual_info"], 0)
                    continue
                with self.subTest(node=row["node"], options=options):
                    info, variance = self.measures(model, weights, "LungCancer", row["node"])
                    self.assertAlmostEqual(row["mutual_info"], info, delta=1e-6)
                    self.assertAlmostEqual(row["variance_of_beliefs"], variance, delta=1e-6)
                    self.assertIsNone(row["variance_of_real"])

    def test_values_with_an_open_end(self):
        body = (NODE_A + "node Depth {discrete = FALSE; levels = (0, 2, INFINITY); kind = NATURE; "
                "parents = (A); probs = ((1, 0), (0, 1));};\n")
        asked = ["sensitivity", "-", "--query", "Depth"]
        self.assertIsNone(answer(*asked, stdin=net_text(body))["rows"][0]["variance_of_real"])
        bounded = answer(*asked, "--upper", "10", stdin=net_text(body))
        # The values are 1 and 6, with probabilities 0.25 and 0.75.
        self.assertAlmostEqual(bounded["rows"][0]["variance_of_real"], 0.25 * 0.75 * 25, delta=1e-5)

    def test_report(self):
        text = talora("sensitivity", CLINIC, "--query", "LungCancer", "--vary", "XRay", "--report").stdout.decode()
        self.assertIn("Sensitivity of 'LungCancer' to a finding at another node:", text)
        self.assertIn("\nSensitivity of 'LungCancer' to findings at 'XRay':\n", text)
        document = answer("sensitivity", CLINIC, "--query", "LungCancer", "--vary", "XRay", "--report")
        self.assertIn(document["report"], text)


class CompileTest(unittest.TestCase):
    def test_tree_is_consistent(self):
        for net in ["chest-clinic", "metastatic-cancer", "car-start"]:
            with self.subTest(net=net):
                path = EXAMPLES / f"{net}.dne"
                nodes = {node["name"]: node for node in answer("info", path)["nodes"]}
                document = answer("compile", path, "--report")
                cliques = document["cliques"]
                self.assertEqual(sorted(document["elimination_order"]), sorted(nodes))
                self.assertTrue(document["report"])
                for index, clique in enumerate(cliques):
                    size = math.prod(len(nodes[name]["states"]) for name in clique["members"])
                    self.assertEqual((clique["index"], clique["size"]), (index, size))
                    self.assertEqual(clique["joined_to"] is None, index == 0)
                    for name in clique["home_of"]:
                        self.assertLessEqual({name, *nodes[name]["parents"]}, set(clique["members"]))
                homes = [name for clique in cliques for name in clique["home_of"]]
                self.assertEqual(sorted(homes), sorted(nodes))
                self.assertEqual(document["sum_clique_sizes"], sum(clique["size"] for clique in cliques))

    def test_findings_make_it_smaller(self):
        before, after = (answer("compile", CLINIC, *options) for options in ([], ["-f", "Smoker=Yes"]))
        self.assertLess(after["sum_under_findings"], before["sum_under_findings"])


class TableTest(unittest.TestCase):
    def test_rows(self):
        document = answer("table", CLINIC, "Dyspnoea")
        self.assertEqual(document["parents"], ["TbOrCancer", "Bronchitis"])
        self.assertEqual(document["rows"][1], {"parent_states": ["Yes", "No"], "probs": [0.7, 0.3]})
        self.assertRegex(talora("table", CLINIC, "XRay").stdout.decode(), r"\nYes +0\.98 +0\.02\nNo ")

    def test_rows_that_are_not_numbers(self):
        body = NODE_A + ("node B {discrete = TRUE; states = (x, y); kind = NATURE; parents = (A); "
                         "probs = ((@undef, @undef), (0.5, 0.5));};\n"
                         "node C {discrete = TRUE; states = (x, y); kind = NATURE;};\n")
        rows = answer("table", "-", "B", stdin=net_text(body))["rows"]
        self.assertEqual([row["probs"] for row in rows], [[None, None], [0.5, 0.5]])
        self.assertIsNone(answer("table", "-", "C", stdin=net_text(body))["rows"])


class ConvertTest(unittest.TestCase):
    def test_examples_stay_byte_for_byte(self):
        for path in sorted(EXAMPLES.glob("*.dne")):
            with self.subTest(net=path.name), tempfile.TemporaryDirectory() as folder:
                original = path.read_bytes()
                self.assertEqual(talora("convert", "-", "-", stdin=original).stdout, original)
                copy = pathlib.Path(folder) / "copy.dne"
                self.assertEqual(talora("convert", path, copy).returncode, 0)
                self.assertEqual(copy.read_bytes(), original)
                self.assertEqual(os.listdir(folder), ["copy.dne"])

    def test_failure_leaves_nothing_behind(self):
        with tempfile.TemporaryDirectory() as folder:
            self.assertEqual(talora("convert", CLINIC, f"{folder}/none/x.dne").returncode, 1)
            self.assertEqual(talora("convert", f"{folder}/missing.dne", f"{folder}/x.dne").returncode, 1)
            self.assertEqual(os.listdir(folder), [])


class ForeignFormatsTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_every_command_reads_every_format(self):
        before = answer("beliefs", CLINIC)["beliefs"]
        for row in answer("formats")["formats"]:
            if not row["written"] or row["name"] in ("TALA", "UAI"):
                continue
            path = self.folder / f"net.{row['name'].lower()}"
            self.assertTrue(answer("convert", CLINIC, path, "--to", row["name"])["ok"] or row["name"] == "DNE")
            if not row["read"]:
                continue
            self.assertTrue(answer("info", path)["format"].startswith(row["name"]), row["name"])
            for node, states in answer("beliefs", path)["beliefs"].items():
                for mine, theirs in zip(states.values(), before[node].values()):
                    self.assertAlmostEqual(mine, theirs, delta=1e-6)

    def test_losses_are_told_and_refused_when_strict(self):
        net = net_text("node A {kind = DECISION; discrete = TRUE; states = (x, y);};\n"
                       "node B {kind = NATURE; discrete = TRUE; states = (x, y); parents = (A);\n"
                       "probs = ((0.5, 0.5), (1, 0)); numcases = (3, 4);};\n")
        path = self.folder / "net.bif"
        losses = {row["what"]: row for row in answer("convert", "-", path, stdin=net)["losses"]}
        self.assertEqual(losses["decision and utility nodes"]["severity"], "changes answers")
        self.assertEqual(losses["experience"], {"severity": "loses information", "what": "experience",
                                                "nodes": ["B"], "instead": "left out"})
        path.unlink()
        self.assertEqual(talora("convert", "-", path, "--strict", stdin=net).returncode, 1)
        self.assertFalse(path.exists())


class BinaryFilesTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def test_other_programs_read_them(self):
        for path in sorted(EXAMPLES.glob("*.dne")):
            with self.subTest(net=path.name):
                original = path.read_bytes()
                packed = self.folder / "net.tala"
                self.assertEqual(talora("convert", path, packed).returncode, 0)
                text, fields = read_tala.read_tala(packed.read_bytes())
                self.assertEqual(text, original)
                self.assertEqual(fields["encrypt"], "N")
                payload = packed.read_bytes()[packed.read_bytes().index(b"\x1f\x8b"):]
                unpacked = subprocess.run(["gzip", "-dc"], input=payload, capture_output=True)
                self.assertEqual((unpacked.returncode, unpacked.stdout), (0, original))
                self.assertEqual(talora("convert", packed, "-").stdout, original)
                self.assertEqual(talora("convert", "-", "-", stdin=packed.read_bytes()).stdout, original)


    def encrypted(self, password):
        (self.folder / "password").write_text(password + "\n")
        packed = self.folder / "secret.tala"
        done = talora("convert", CLINIC, packed, "--password-file", self.folder / "password")
        self.assertEqual((done.returncode, done.stderr), (0, b""))
        return packed

    def test_password_from_a_file(self):
        packed = self.encrypted("open sesame")
        self.assertEqual(packed.stat().st_mode & 0o777, 0o600)
        with_password = ["--password-file", self.folder / "password"]
        done = talora("convert", packed, "-", *with_password)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, CLINIC.read_bytes(), b""))
        self.assertEqual(len(answer("info", packed, *with_password)["nodes"]), 8)
        again = self.folder / "again.tala"
        self.assertEqual(talora("convert", packed, again, *with_password).returncode, 0)
        self.assertIn(b"// encrypt = G", again.read_bytes())
        (self.folder / "password").write_text("Open Sesame")
        done = talora("info", packed, *with_password)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"-6859: password is wrong or file is corrupted", done.stderr)

    @staticmethod
    def shown_at(terminal):
        if not select.select([terminal], [], [], 60)[0]:
            raise TimeoutError
        return os.read(terminal, 1000)

    def test_password_at_the_terminal(self):
        packed = self.encrypted("open sesame")
        # Without a terminal the message says what is missing.
        done = subprocess.run([COMMAND, "info", packed], capture_output=True, start_new_session=True, timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"-6858: no password entered", done.stderr)
        self.assertIn(b"--password-file", done.stderr)
        for typed, status in [(b"open sesame\n", 0), (b"wrong\n", 1), (b"\x04", 1), (b"\x03", 1)]:
            with self.subTest(typed=typed):
                child, terminal = pty.fork()
                if child == 0:
                    os.execv(COMMAND, [COMMAND, "info", str(packed)])
                shown = b""
                try:
                    while b"Enter password: " not in shown:
                        shown += self.shown_at(terminal)
                    os.write(terminal, typed)
                    while piece := self.shown_at(terminal):
                        shown += piece
                except TimeoutError:
                    os.kill(child, signal.SIGKILL)
                except OSError:  # the other side is closed
                    pass
                os.close(terminal)
                self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), status, shown)
                self.assertEqual(b"Dyspnoea" in shown, status == 0)
                self.assertNotIn(b"sesame", shown)

    @unittest.skipUnless(shutil.which("openssl"), "the openssl command is not here")
    def test_cipher_is_the_documented_one(self):
        """Decrypts a file with Python's hashes and the openssl command, as Docs/binary-format.md says."""
        password = b"open sesame"
        data = self.encrypted(password.decode()).read_bytes()
        line_end = data.index(b"\r\n") + 2
        block = line_end + int(data.split(b" ")[2]) + read_tala.BLOCK_SIZE
        length, iterations, salt, nonce = struct.unpack_from("<II16s12s", data, block)
        self.assertEqual((length, iterations), (64, 600000))
        master = hashlib.pbkdf2_hmac("sha256", password, salt, iterations)
        derive = lambda label: hmac.new(master, label, hashlib.sha256).digest()
        self.assertEqual(data[block + 48:block + 64], derive(b"Talora key check")[:16])
        counter = nonce + (2).to_bytes(4, "big")
        done = subprocess.run(["openssl", "enc", "-d", "-aes-256-ctr", "-K", derive(b"Talora cipher").hex(),
                               "-iv", counter.hex()], input=data[block + length:-16], capture_output=True)
        self.assertEqual(gzip.decompress(done.stdout), CLINIC.read_bytes())


class EquationTest(unittest.TestCase):
    def test_formulas(self):
        self.assertEqual(answer("calc", "x ^ 2 + sin(30 deg)", "x=3")["value"], 9.5)
        self.assertIsNone(answer("calc", "1 / 0")["value"])
        self.assertEqual(talora("calc", "--functions").stdout.decode(),
                         (ROOT / "Docs" / "equation-functions.md").read_text())

    def test_tables(self):
        equation = "P (XRay | TbOrCancer) = (XRay == Abnormal) == TbOrCancer ? 0.75 : 0.25"
        done = talora("equation", CLINIC, "XRay", "--set", equation, "-o", "-")
        rows = answer("table", "-", "XRay", stdin=done.stdout)["rows"]
        self.assertEqual([row["probs"] for row in rows], [[0.75, 0.25], [0.25, 0.75]])


class LearnTest(unittest.TestCase):
    def test_counts_prior_and_iterations(self):
        with tempfile.TemporaryDirectory() as folder:
            net, cases, out = (pathlib.Path(folder, name) for name in ("n.dne", "c.cas", "out.dne"))
            net.write_bytes(net_text(NODE_A))
            cases.write_text("A NumCases\nu 3\nv 5\n* 2\n")

            def learned(*options):
                document = answer("learn", net, "--cases", cases, "-o", out, *options)
                self.assertEqual(document["cases"], 3)
                return document, answer("table", out, "A")["rows"][0]["probs"][0]

            document, probs = learned()
            self.assertEqual(document["iterations"], [])
            self.assertAlmostEqual(probs, 3 / 8, 6)
            self.assertAlmostEqual(learned("--prior", 8, "--degree", 2)[1], (2 + 6) / (8 + 16), 6)
            document, probs = learned("--method", "em", "--tolerance", "1e-13")
            self.assertAlmostEqual(probs, 3 / 8, 6)
            self.assertAlmostEqual(document["iterations"][0]["minus_log_likelihood"],
                                   -3 * math.log(0.25) - 5 * math.log(0.75), 4)
            self.assertIsNone(document["iterations"][0]["change"])
            self.assertLess(document["iterations"][-1]["change"], 1e-5)


class TestAndScoreTest(unittest.TestCase):
    NET = net_text("node A {discrete = TRUE; states = (u, v); kind = NATURE; probs = (0.25, 0.75);};\n"
                   "node B {discrete = TRUE; states = (p, q); kind = NATURE; parents = (A);\n"
                   "probs = ((1, 0), (0.5, 0.5));};\n")

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.net, self.cases, self.out = (pathlib.Path(folder.name, name) for name in ("n.dne", "c.cas", "out"))
        self.net.write_bytes(self.NET)
        self.cases.write_text("IDnum NumCases A B\n1 1 u p\n2 3 v q\n3 2 * q\n")

    def test_figures_and_report(self):
        figures = answer("test", self.net, "--cases", self.cases, "--node", "A")["nodes"]["A"]
        self.assertEqual(figures["cases"], 4)
        self.assertEqual(figures["cases_read"], 6)
        self.assertEqual(figures["confusion"], [[0, 1], [0, 3]])
        self.assertEqual(figures["auroc"], 1)
        self.assertAlmostEqual(figures["log_loss"], -math.log(0.4) / 4, 6)
        self.assertIsNone(figures["real"])
        report = talora("test", self.net, "--cases", self.cases, "--node", "A").stdout.decode()
        self.assertIn("\nError rate = 25%\n", report)
        # Without B nothing is known.
        figures = answer("test", self.net, "--cases", self.cases, "--node", "A", "--unobserved", "B")["nodes"]["A"]
        self.assertAlmostEqual(figures["quadratic_loss"], (0.625 + 1 - 0.5 + 3 * (0.625 + 1 - 1.5)) / 4, 6)

    def test_scored_files(self):
        self.assertEqual(answer("score", self.net, "--cases", self.cases, "--node", "A", "-o", self.out)["cases"], 3)
        self.assertEqual(self.out.read_text().splitlines()[2:4],
                         ["IDnum NumCases A B P(A=u) P(A=v)", "1 1 u p 0.4 0.6"])
        lines = talora("score", self.net, "--cases", "-", "--jsonl", "-o", "-", stdin=self.cases.read_bytes()).stdout
        rows = [json.loads(line) for line in lines.splitlines()]
        self.assertEqual([row["id"] for row in rows], [1, 2, 3])
        self.assertEqual(rows[2]["beliefs"], {"A": {"u": 0, "v": 1}, "B": {"p": 0, "q": 1}})
        # An impossible case is named, has no beliefs, and stops nothing.
        self.cases.write_text("A B\nu q\nv q\n")
        done = talora("score", self.net, "--cases", self.cases, "--jsonl", "-o", "-")
        self.assertEqual(done.returncode, 0)
        self.assertIsNone(json.loads(done.stdout.splitlines()[0])["beliefs"])
        self.assertIn("case 1 on line 2", done.stderr.decode())


class UsageTest(unittest.TestCase):
    CASES = [
        # arguments, exit status, what standard error must mention
        ([], 2, "Usage"),
        (["belief", CLINIC], 2, "no command 'belief'"),
        (["beliefs"], 2, "NET"),
        (["beliefs", CLINIC, "extra"], 2, "extra"),
        (["beliefs", CLINIC, "--frobnicate"], 2, "--frobnicate"),
        (["beliefs", CLINIC, "-f"], 2, "NODE=STATE"),
        (["beliefs", CLINIC, "-f", "Smoker"], 2, "NODE=STATE"),
        (["beliefs", CLINIC, "-f", "=Yes"], 2, "NODE=STATE"),
        (["beliefs", CLINIC, "--likelihood", "XRay=0.5,much"], 2, "'much' is not a number"),
        (["beliefs", CLINIC, "--likelihood", "XRay=0.5,"], 2, "not a number"),
        (["beliefs", CLINIC, "--optimize", "-1"], 2, "--optimize"),
        (["beliefs", CLINIC, "-f", b"\xff\xfeX=Yes"], 2, "not text"),
        (["convert", CLINIC, "-", "--json"], 2, "standard output"),
        (["beliefs", "no-such-file.dne"], 1, "no-such-file.dne"),
        (["beliefs", CLINIC, "-f", "Smokr=Yes"], 1, "did you mean 'Smoker'"),
        (["beliefs", CLINIC, "-f", "Smoker=Maybe"], 1, "Yes, No"),
        (["beliefs", CLINIC, "-f", "Smoker=#2"], 1, "#2"),
        (["beliefs", CLINIC, "-f", "Smoker=#-3"], 1, "#-3"),
        (["beliefs", CLINIC, "-f", "Smoker=#99999999999"], 1, "99999999999"),
        (["beliefs", CLINIC, "--likelihood", "XRay=1,2,3"], 1, "2 states"),
        (["beliefs", CLINIC, "-f", "Smoker=Yes", "-f", "Smoker=No"], 1, "error -"),
        (["beliefs", CLINIC, "--findings", "x.cas"], 1, "'x.cas' does not exist"),
        (["beliefs", CLINIC, "--node", "Nobody"], 1, "Nobody"),
        (["table", CLINIC, "Nobody"], 1, "Nobody"),
        (["calc", "2 * (3 + y)"], 1, "unknown name 'y'\n    2 * (3 + y)\n             ^"),
        (["calc", "x", "x=1,5"], 2, "'x=1,5'"),
        (["equation", CLINIC, "Smoker", "-o", "-"], 1, "doesnt have a defining equation"),
        (["info", ROOT / "README.md"], 1, "error -"),
        (["info", CLINIC, "--password-file", "no-such-file"], 1, "no-such-file"),
    ]

    def test_exit_status_and_reason(self):
        for arguments, status, mention in self.CASES:
            with self.subTest(arguments=arguments):
                command = [COMMAND, *(a if isinstance(a, bytes) else str(a) for a in arguments)]
                done = subprocess.run(command, capture_output=True, env=ENVIRONMENT)
                text = done.stderr.decode(errors="replace")
                self.assertEqual(done.returncode, status, text)
                self.assertIn(mention, text)
                self.assertIn("talora: error", text)
                if "--json" in arguments:
                    continue
                self.assertEqual(done.stdout, b"")
                if arguments:
                    document = json.loads(subprocess.run([*command, "--json"], capture_output=True).stdout)
                    self.assertIs(document["ok"], False)
                    self.assertEqual(document["messages"][-1]["severity"], "error")

    def test_help_and_version(self):
        for arguments, mention in [(["--help"], "Examples:"), (["beliefs", "--help"], "--likelihood"),
                                   (["--version"], "Talora 6.01")]:
            done = talora(*arguments)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.assertIn(mention, done.stdout.decode())

    def test_full_disk_is_a_failure(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([COMMAND, "info", CLINIC], stdout=full, stderr=subprocess.PIPE)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"could not write to standard output", done.stderr)


class MessagesTest(unittest.TestCase):
    def test_warnings_say_where(self):
        text = net_text(NODE_A, head="foo = 3;\n")
        with tempfile.NamedTemporaryFile(suffix=".dne") as file:
            file.write(text)
            file.flush()
            done = talora("info", file.name)
            self.assertEqual(done.returncode, 0)
            lines = done.stderr.decode().splitlines()
            self.assertEqual(len(lines), 1)
            self.assertTrue(lines[0].startswith("talora: warning -3291: "), lines)
            self.assertIn("foo", lines[0])
            self.assertIn(f", on line 4, in file '{file.name}'", lines[0])
            message = answer("info", file.name)["messages"][0]
            self.assertEqual({key: message[key] for key in ("number", "severity", "function", "file", "line")},
                             {"number": -3291, "severity": "warning", "function": "ReadNet_bn",
                              "file": file.name, "line": 4})
            self.assertEqual(talora("info", file.name, "--quiet").stderr, b"")

    def test_hostile_text_does_not_reach_the_terminal(self):
        titles = [b"\x1b]0;owned\x07", b"\x1b[2J", b"\xff\xc3\x28", b"\xc2\x9b31m", b"\xe2\x80\xae"]
        for title in titles:
            with self.subTest(title=title):
                text = net_text(NODE_A, head='title = "TITLE";\n\x01\n').replace(b"TITLE", title)
                for arguments in (["info", "-"], ["beliefs", "-"]):
                    done = talora(*arguments, stdin=text)
                    shown = (done.stdout + done.stderr).decode()
                    self.assertFalse(any(ord(c) < 32 and c != "\n" or 0x7f <= ord(c) < 0xa0 or ord(c) == 0x202e
                                         for c in shown), shown)
                    json.loads(talora(*arguments, "--json", stdin=text).stdout.decode())

    def test_interrupt_halts(self):
        net = pathlib.Path(CORPUS or "none") / "nets" / "andes.dne"
        if not net.exists():
            self.skipTest("TALORA_CORPUS has no net large enough")
        job = subprocess.Popen([COMMAND, "compile", net, "--optimize", "300", "--json"], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE)
        time.sleep(1.5)
        job.send_signal(signal.SIGINT)
        output, _ = job.communicate(timeout=60)
        self.assertEqual(job.returncode, 1)
        self.assertIs(json.loads(output)["ok"], False)


class CorpusTest(unittest.TestCase):
    NETS = ["asia", "cancer", "earthquake", "survey", "sachs", "child", "insurance", "alarm", "win95pts", "hepar2"]

    def test_beliefs_of_published_nets(self):
        if not CORPUS:
            self.skipTest("TALORA_CORPUS is not set")
        largest = 0.0
        for name in self.NETS:
            stored = json.loads((pathlib.Path(CORPUS) / "oracles" / f"{name}.beliefs.json").read_text())
            # One query of each kind.
            queries = {query["id"].split("_")[0]: query for query in stored["queries"]}
            for query in queries.values():
                with self.subTest(net=name, query=query["id"]):
                    largest = max(largest, self.compare(name, query))
        print(f"largest error of a belief: {largest:.1e}", file=sys.stderr)

    def compare(self, name, query):
        options = [f"-f{node}={state}" for node, state in query.get("findings", {}).items()]
        for node, weights in query.get("likelihood", {}).items():
            options.append(f"--likelihood={node}=" + ",".join(map(repr, weights)))
        for node, states in query.get("not", {}).items():
            options += [f"--not={node}={state}" for state in states]
        done = talora("beliefs", pathlib.Path(CORPUS) / "nets" / f"{name}.dne", *options, "--json")
        document = json.loads(done.stdout)
        if query.get("impossible"):
            self.assertEqual(done.returncode, 1)
            return 0.0
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertAlmostEqual(document["log_probability_of_findings"], query["log_prob"],
                               delta=1e-4 * max(1, abs(query["log_prob"])))
        largest = 0.0
        for node, stored in query["beliefs"].items():
            found = list(document["beliefs"][node].values())
            expected = list(stored.values()) if isinstance(stored, dict) else stored
            self.assertEqual(len(found), len(expected))
            largest = max([largest, *(abs(p - q) for p, q in zip(found, expected))])
        self.assertLess(largest, 1e-4)
        return largest


unittest.main()
