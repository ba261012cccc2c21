"""Nets, nodes, findings, beliefs and tables."""

import math
import pathlib
import tempfile
import unittest
import warnings

import numpy as np
import talora
from common import CLINIC, NetCase, two_nodes


class Reading(NetCase):
    def test_written_nets_are_read_again(self):
        with tempfile.TemporaryDirectory() as folder:
            for name, password in (("a.dne", None), ("b.tala", None), ("c.tala", "open sesame")):
                path = pathlib.Path(folder) / name
                self.net.Write(path, password=password)
                again = self.app.ReadBNet(path, password=password)
                self.assertEqual([n.Name for n in again], [n.Name for n in self.net], name)
                np.testing.assert_array_equal(again["XRay"].Table, self.net["XRay"].Table)
            with self.assertRaises(talora.TaloraError) as caught:
                self.app.ReadBNet(path)
            self.assertLess(caught.exception.number, 0)

    def test_nets_of_other_programs(self):
        net = two_nodes(self.app)
        net["A"].Title = "The first"
        with tempfile.TemporaryDirectory() as folder:
            for row in talora.formats():
                path = pathlib.Path(folder) / f"net.{row['extensions'][0]}"
                losses = net.write(path, format=None if row["name"] in ("DNE", "TALA") else row["name"])
                told = "names of nodes and states" in [loss["what"] for loss in losses]
                self.assertEqual(told, row["name"] == "UAI", losses)
                if row["read"]:
                    np.testing.assert_allclose([n.Table for n in talora.read(path)][1], net["B"].Table, atol=1e-7)
        stream = self.app.NewMemoryStream("x")
        stream.Contents = "BAYES 1 2 1 1 0 2 0.25 0.75"
        self.app.ReadBNet(stream)
        self.assertEqual((stream.Format, stream.Losses), ("UAI", []))

    def test_sources(self):
        text = CLINIC.read_bytes()
        stream = self.app.NewMemoryStream("x.dne")
        stream.Contents = text
        for source in (CLINIC, str(CLINIC), text, bytearray(text), stream):
            self.assertEqual(len(self.app.ReadBNet(source)), 8)
        self.assertEqual(stream.Contents, text)

    def test_errors_carry_the_record(self):
        broken = CLINIC.read_bytes().replace(b"kind = NATURE", b"kind = NATURAL", 1)
        with warnings.catch_warnings(record=True) as given, self.assertRaises(talora.TaloraError) as caught:
            warnings.simplefilter("always")
            self.app.ReadBNet(broken[: len(broken) // 2])
        error = caught.exception
        self.assertTrue(error.text and error.severity >= 5 and error.function == "ReadNet_bn", vars(error))
        self.assertGreater(error.line, 0)
        with warnings.catch_warnings(record=True) as given:
            warnings.simplefilter("always")
            self.app.ReadBNet(CLINIC.read_bytes().replace(b"visual", b"vizual").replace(b"comment", b"komment"))
        for warning in given:
            self.assertTrue(issubclass(warning.category, talora.TaloraWarning))
            self.assertTrue(warning.filename.endswith("test_nets.py"), warning.filename)

    def test_missing_file(self):
        with self.assertRaises(talora.TaloraError):
            self.app.ReadBNet("/no/such/file.dne")


class Structure(NetCase):
    def test_mapping(self):
        net = self.net
        self.assertIn("XRay", net)
        self.assertNotIn("Xray", net)
        self.assertNotIn(3, net)
        with self.assertRaises(KeyError):
            net["Xray"]
        self.assertEqual([node.Name for node in net], [node.Name for node in net.Nodes])
        self.assertIs(net, net["XRay"].BNet)
        self.assertEqual(net["XRay"], net.Node["XRay"])
        self.assertEqual(len({net["XRay"], net["XRay"], net["Smoker"]}), 2)
        self.assertIsNone(net.Node("Nowhere"))

    def test_building(self):
        net = two_nodes(self.app)
        a, b = net["A"], net["B"]
        self.assertEqual([n.Name for n in b.parents], ["A"])
        self.assertTrue(a.IsAncestor(b) and not b.IsAncestor("A"))
        self.assertEqual(b.states, ["high", "low"])
        b.StateName["low"] = "lower"
        self.assertEqual(b.StateName(1), "lower")
        self.assertAlmostEqual(b.beliefs["high"], 0.2 * 0.9 + 0.8 * 0.3, 6)
        with self.assertRaises(talora.TaloraError):
            net.NewNode("A", 2)
        with self.assertRaises(talora.TaloraError):
            net.NewNode("C", "yes,yes")
        self.assertNotIn("C", net)
        b.DeleteLink("A")
        self.assertEqual(b.Table.shape, (2,))

    def test_fields_and_text(self):
        node = self.net["XRay"]
        node.UserField["note"] = b"a\0b"
        node.Title = 'Größe "<&>'
        self.assertEqual(node.UserField["note"], b"a\0b")
        self.assertEqual(node.NthUserField[0], ("note", b"a\0b"))
        self.assertIsNone(node.UserField["other"])
        again = self.app.ReadBNet(self._written())
        self.assertEqual(again["XRay"].Title, 'Größe "<&>')
        with self.assertRaises(ValueError):
            node.Title = "a\0b"

    def _written(self):
        stream = self.app.NewMemoryStream("x.dne")
        self.net.Write(stream)
        return stream.Contents

    def test_undo(self):
        self.net.NumUndos = 10
        with self.net.undo_group("two names"):
            self.net["XRay"].Name = "Ray"
            self.net["Smoker"].Name = "Smokes"
        self.assertEqual(self.net.NthUndo[0], "two names")
        with self.assertRaises(RuntimeError), self.net.undo_group():
            self.net["Ray"].Name = "Raygun"
            raise RuntimeError
        self.assertIn("Ray", self.net)
        self.assertTrue(self.net.Undo())
        self.assertIn("XRay", self.net)

    def test_lists(self):
        nodes = self.net.Nodes
        nodes.Remove(0)
        nodes.Add(self.net["XRay"], 0)
        self.assertEqual((nodes.Count, nodes.IndexOf(self.net["XRay"]), nodes[0]), (8, 0, self.net["XRay"]))
        self.assertEqual(len(self.net.Nodes), 8)
        self.assertIn("Smoker", nodes)
        copies = two_nodes(self.app).CopyNodes([self.net["Smoker"], self.net["LungCancer"]])
        self.assertEqual([n.Name for n in copies[1].Parents], ["Smoker"])


class Findings(NetCase):
    def test_every_kind(self):
        net = self.net
        node = net["XRay"]
        rows = (
            ("Abnormal", "Abnormal", [1, 0]),
            (1, "Normal", [0, 1]),
            (np.int64(1), "Normal", [0, 1]),
            (1.0, "Normal", [0, 1]),
            ({"Normal": 0.5}, {"Abnormal": 0, "Normal": 0.5}, [0, 1]),
            ([0.25, 0.5], {"Abnormal": 0.25, "Normal": 0.5}, [0.25, 0.5]),
        )
        for given, found, likelihood in rows:
            node.finding = given
            weights = node.Likelihood / node.Likelihood.max()
            np.testing.assert_allclose(weights, np.array(likelihood) / max(likelihood), err_msg=str(given))
            self.assertEqual(node.finding, found, given)
        for nothing in (None, math.nan):
            node.finding = nothing
            self.assertFalse(node.HasFinding)
        for wrong, kind in (("Bogus", ValueError), (0.5, ValueError), ([1, 2, 3], ValueError), (7, talora.TaloraError)):
            node.finding = [0.25, 0.5]
            with self.assertRaises(kind):
                node.finding = wrong
            self.assertEqual(node.finding, {"Abnormal": 0.25, "Normal": 0.5}, wrong)

    def test_as_a_mapping(self):
        net = self.net
        net.findings = {"XRay": "Abnormal", "Smoker": "Yes"}
        self.assertEqual(dict(net.findings), {"Smoker": "Yes", "XRay": "Abnormal"})
        del net.findings["XRay"]
        with self.assertRaises(KeyError):
            del net.findings["XRay"]
        self.assertEqual(list(net.findings), ["Smoker"])
        with self.assertRaises(KeyError):
            net.findings = {"Nobody": 1}
        self.assertEqual(list(net.findings), ["Smoker"])
        net.findings.clear()
        self.assertEqual(net.FindingsProbability, 1)

    def test_beliefs(self):
        net = self.net
        before = net["Tuberculosis"].Beliefs
        self.assertEqual((before.dtype, before.shape), (np.float32, (2,)))
        net.findings["XRay"] = "Abnormal"
        after = net["Tuberculosis"].Beliefs
        self.assertAlmostEqual(before[0], 0.0104, 6)
        self.assertAlmostEqual(after[0], 0.092411, 5)
        few = net.Nodes[1:3].QueryBeliefs()
        np.testing.assert_allclose(few[0], after, atol=1e-6)
        self.assertEqual(set(net.beliefs()), {node.Name for node in net})
        parts, logarithms = net.Nodes.BeliefsOfCases([[0, 0], [-1, -1]], ["XRay", "Tuberculosis"])
        place = net.Nodes.IndexOf(net["Tuberculosis"])
        np.testing.assert_allclose(parts[place], [[1, 0], before], atol=1e-6)
        self.assertEqual(logarithms[1], 0)
        np.testing.assert_allclose([sum(row.values()) for row in net.beliefs().values()], 1, atol=1e-5)
        with self.assertRaises(talora.FindingError) as caught:
            net["XRay"].EnterFinding("Normal")
        self.assertEqual(caught.exception.number, -3310)

    def test_most_probable(self):
        net = self.net
        net.findings["XRay"] = "Abnormal"
        best, second = (net.GetMostProbableCondition(nth) for nth in (0, 1))
        self.assertGreater(best.LogProbability, second.LogProbability)
        self.assertEqual(best["XRay"], "Abnormal")
        best.Enter()
        self.assertAlmostEqual(net.LogFindingsProbability, best.LogProbability, 5)
        net.RetractFindings()
        few = net.Nodes[:2].GetMostProbableCondition()
        self.assertEqual(len(few), 2)


class Tables(NetCase):
    def test_arrays(self):
        net = two_nodes(self.app)
        node = net["B"]
        table = node.Table
        self.assertEqual((table.shape, table.dtype), ((2, 2), np.float32))
        table[0] = 7  # a copy
        self.assertAlmostEqual(node.Table[0, 0], 0.9, 6)
        node.Probs["yes"] = [0.5, 0.5]
        node.Probs[{"A": "no"}] = [0.25, 0.75]
        np.testing.assert_array_equal(node.Table, [[0.5, 0.5], [0.25, 0.75]])
        np.testing.assert_array_equal(node.Probs["no"], [0.25, 0.75])
        for wrong in ([[0.5, 0.6], [1, 0]], [1, 0], [[1, 0, 0], [0, 1, 0]]):
            with self.assertRaises((talora.TaloraError, ValueError)):
                node.Table = wrong
        node.Table = [[math.nan, math.nan], [0, 0]]
        self.assertTrue(np.isnan(node.Table[0]).all() and (node.Table[1] == 0).all())
        self.assertTrue(node.HasTable and not node.HasCompleteTable)

    def test_by_names(self):
        table = self.net["Dyspnoea"].table
        first = dict(zip(table.states, self.net["Dyspnoea"].Table[0, 0].tolist()))
        row = table[table.parent_states[0][0], table.parent_states[1][0]]
        for state, prob in first.items():
            self.assertAlmostEqual(row[state], prob, 6)
        self.assertEqual(len(list(table.rows())), 4)
        self.net["Dyspnoea"].table = {
            key: {state: 1 / len(table.states) for state in table.states} for key, _ in table.rows()
        }
        self.assertTrue((self.net["Dyspnoea"].Table == 0.5).all())
        smoker = self.net["Smoker"]
        smoker.table = {"Yes": 0.25, "No": 0.75}
        self.assertEqual(smoker.table(), {"Yes": 0.25, "No": 0.75})

    def test_frames(self):
        frame = self.net["Dyspnoea"].table.to_frame()
        swapped = frame[frame.columns[::-1]].iloc[::-1]
        before = self.net["Dyspnoea"].Table
        self.net["Dyspnoea"].table = swapped
        np.testing.assert_array_equal(self.net["Dyspnoea"].Table, before)

    def test_functions_and_equations(self):
        net = self.app.NewBNet("Sum")
        x = net.NewNode("x", 3)
        x.Levels = [0, 1, 2]
        y = net.NewNode("y", 5)
        y.Levels = [0, 1, 2, 3, 4]
        y.AddLink(x)
        y.Equation = "y (x) = 2 * x"
        self.assertEqual(y.CheckEquation(), (-1, ""))
        self.assertNotEqual(y.CheckEquation("y (x) = 2 * ")[1], "")
        y.EquationToTable()
        x.Table = [0.25, 0.5, 0.25]
        self.assertEqual(y.FuncState[2], 4)
        self.assertEqual(y.table["#1"]["#2"], 1)
        mean, deviation = y.ExpectedValue
        self.assertAlmostEqual(mean, 2, 5)
        self.assertAlmostEqual(deviation, math.sqrt(2), 5)
        x.finding = 2
        self.assertEqual(x.Finding, 2)
        self.assertEqual(self.app.CalcFormula("a ^ 2 + 1", {"a": 3}), 10)


if __name__ == "__main__":
    unittest.main()
