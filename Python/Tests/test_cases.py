"""Case sets, frames, learning, testing, sensitivity, random cases."""

import importlib.util
import math
import pathlib
import sqlite3
import tempfile
import unittest

import numpy as np
import talora
from common import NetCase, two_nodes

HAS_PANDAS = importlib.util.find_spec("pandas") is not None


class Cases(NetCase):
    def setUp(self):
        super().setUp()
        self.two = two_nodes(self.app)

    def test_columns(self):
        rows = {
            "A": ["yes", "no", None, "no"],
            "B": np.array([0, 1, 1, 0]),
            "NumCases": [1.0, 2.5, 1, 1],
        }
        cases = self.app.NewCaseset(rows)
        self.assertEqual((len(cases), cases.TotalWeight, cases.CountSources), (4, 5.5, 1))
        self.two["A"].DeleteTables()
        learner = self.app.NewLearner()
        learner.LearnCPTs([self.two["A"]], cases)
        np.testing.assert_allclose(self.two["A"].Table, [1 / 4.5, 3.5 / 4.5], atol=1e-6)
        self.assertEqual(learner.NumCases, 4)

    def test_entries_of_every_kind(self):
        net = self.app.NewBNet("Kinds")
        net.NewNode("D", "yes,no")
        net.NewNode("C").SetLevels(2, [0, 1.5, 3])
        columns = {"D": ["no", math.nan, (0.25, 1.0), True, 1], "C": [0.1, 2, math.nan, 1e-3, 3]}
        stream = self.app.NewMemoryStream("x.cas")
        stream.Contents = talora._frames.case_bytes({**columns, "D": columns["D"][:3] + ["yes", 1]})
        found = []
        while net.ReadFindings(stream):
            found.append((net["D"].finding, net["C"].finding))
        self.assertEqual(
            found, [("no", 0.1), (None, 2.0), ({"yes": 0.25, "no": 1.0}, None), ("yes", 0.001), ("no", 3.0)]
        )
        for wrong in ({"D": ["a\nb"]}, {"D": [{"yes": 1}]}, {"D": [1], "C": [1, 2]}):
            with self.assertRaises((ValueError, TypeError)):
                self.app.NewCaseset(wrong)

    @unittest.skipUnless(HAS_PANDAS, "pandas is not installed")
    def test_frames(self):
        import pandas

        frame = pandas.DataFrame({"A": ["yes", "no", None], "B": pandas.Categorical(["high", "low", "low"])})
        cases = talora.Caseset(self.app, frame)
        self.assertEqual(len(cases), 3)
        scored = self.two.score(frame[["B"]], ["A"])
        self.assertEqual(len(scored), 3)
        self.two.findings["B"] = "high"
        self.assertAlmostEqual(scored["P(A=yes)"][0], self.two["A"].beliefs["yes"], 4)
        for value, row in zip(frame["A"], frame.to_dict("records")):
            self.two.findings = row
            self.assertEqual(self.two["A"].finding, value)

    def test_files(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "clinic.cas"
            generator = self.app.NewRandomGenerator(7)
            self.net.RandomGenerator = generator
            self.assertEqual(self.net.WriteRandomCases(path, 500, percent_missing=5), 500)
            cases = self.app.NewCaseset([path, path], "twice")
            self.assertEqual((len(cases), cases.SourceDegree[1], cases.Name), (1000, 1, "twice"))
            whole = pathlib.Path(folder) / "whole.cas"
            cases.Write(whole)
            self.assertEqual(len(self.app.NewCaseset(whole)), 1000)
            with self.assertRaises(talora.TaloraError):
                len(self.app.NewCaseset(pathlib.Path(folder) / "none.cas"))

    def test_databases(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "clinic.db"
            database = sqlite3.connect(path)
            database.execute("create table patients (Smoking text, Cancer text)")
            database.executemany("insert into patients values (?, ?)", 3 * [("yes", "yes")] + 7 * [("no", "no")])
            database.commit()
            database.close()
            try:
                manager = self.app.NewDatabaseManager(f"Driver=SQLite3;Database={path}")
            except talora.TaloraError as error:
                self.skipTest(f"no ODBC driver for SQLite here: {error}")
            net = self.app.NewBNet("Patients")
            net.AddNodesForColumns(manager, "patients", "Smoking,Cancer")
            cases = self.app.NewCaseset()
            cases.AddDBCases(manager, net, "patients", "Smoking,Cancer")
            self.app.NewLearner().LearnCPTs(net, cases)
            np.testing.assert_allclose(sorted(net["Smoking"].Beliefs), [0.3, 0.7], atol=0.1)
            with self.assertRaises(talora.TaloraError):
                net.AddNodesForColumns(manager, "visits")


class Learning(NetCase):
    def test_em_finds_tables_again(self):
        stream = self.app.NewMemoryStream("x.cas")
        self.net.RandomGenerator = self.app.NewRandomGenerator(3)
        self.net.WriteRandomCases(stream, 3000, percent_missing=10)
        copy = self.net.Copy("Learned")
        for node in copy:
            node.DeleteTables()
        learner = talora.Learner(self.app, "EM")
        learner.MaxIterations = 15
        with self.assertWarns(talora.TaloraWarning):  # there are no tables to start from
            learner.LearnCPTs(copy, self.app.NewCaseset(stream))
        np.testing.assert_allclose(copy["Smoker"].Table, self.net["Smoker"].Table, atol=0.05)
        self.assertEqual(len(learner.LogLikelihoods), learner.NumIterations)
        self.assertTrue((np.diff(learner.LogLikelihoods) > -1e-3).all())
        with self.assertRaises(ValueError):
            talora.Learner(self.app, "guessing")

    def test_revising(self):
        net = two_nodes(self.app)
        net["A"].Experience[None] = 10
        net.findings["A"] = "yes"
        net.Nodes[:1].ReviseCPTsByFindings()
        self.assertEqual(net["A"].Experience(), 11)
        self.assertGreater(net["A"].Table[0], 0.2)


class Testing(NetCase):
    def test_figures(self):
        net = two_nodes(self.app)
        tester = talora.NetTester([net["A"]])
        rows = {"A": ["yes", "yes", "no", "no"], "B": ["high", "low", "low", "high"]}
        tester.TestWithCaseset(rows)
        self.assertEqual(tester.NumberCases(), (4, 4, 0))
        confusion = tester.Confusion()
        self.assertEqual((confusion.shape, confusion.sum()), ((2, 2), 4))
        self.assertAlmostEqual(tester.ErrorRate(), 1 - np.trace(confusion) / 4)
        beliefs = {}
        for state in ("high", "low"):
            net.findings["B"] = state
            beliefs[state] = net["A"].beliefs
        losses = [-math.log(beliefs[b][a]) for a, b in zip(rows["A"], rows["B"])]
        self.assertAlmostEqual(tester.LogLoss("A"), np.mean(losses), 4)
        self.assertEqual(tester.RocPoints("yes")[-1, 1:].tolist(), [1, 1])
        self.assertEqual(tester.Calibration("yes").sum(0).tolist(), [4, 2])
        self.assertIn("A", tester.Report())
        with self.assertRaises(talora.TaloraError):
            tester.StateMeasure("yes", "luck")
        tester.Clear()
        self.assertTrue(math.isnan(tester.ErrorRate()))

    def test_sensitivity(self):
        measurer = talora.Sensitivity(self.net["LungCancer"])
        own = measurer.MutualInfo("LungCancer")
        self.assertTrue(own > measurer.MutualInfo("TbOrCancer") > measurer.MutualInfo("Smoker") > 0)
        change = measurer.BeliefChange("XRay", 0)
        self.assertTrue(change.least <= 0 <= change.greatest and change.expected >= 0)
        self.assertIn("<table", measurer._repr_html_())
        few = talora.Sensitivity(self.net["LungCancer"], ["XRay"], talora.ENTROPY_SENSV)
        with self.assertRaises(talora.TaloraError) as caught:
            few.BeliefChange("XRay", 0)
        self.assertEqual(caught.exception.number, -2523)


class Randomness(NetCase):
    def test_same_seed_same_numbers(self):
        first, second = (self.app.NewRandomGenerator(42) for _ in range(2))
        np.testing.assert_array_equal(first.DrawUniform(5), second.DrawUniform(5))
        self.assertEqual(first.State, second.State)
        for count in (-1, 1 << 60):
            with self.assertRaises(ValueError):
                first.DrawUniform(count)
        with self.assertRaises(talora.TaloraError):
            self.app.NewRandomGenerator("x1")

    def test_random_case(self):
        self.net.findings["XRay"] = "Abnormal"
        self.net.GenerateRandomCase(["Smoker", "LungCancer"])
        self.assertEqual(set(self.net.findings), {"XRay", "Smoker", "LungCancer"})


if __name__ == "__main__":
    unittest.main()
