"""What deleted objects, threads, handlers, interrupts and odd orders of destruction lead to."""

import gc
import os
import pickle
import random
import subprocess
import sys
import threading
import time
import unittest
import warnings

import numpy as np
import talora
from common import CLINIC, NetCase, two_nodes


class Lifetimes(NetCase):
    def test_deleted_things_raise(self):
        net, node = self.net, self.net["XRay"]
        tester, measurer = talora.NetTester([node]), talora.Sensitivity(node)
        other = net["Smoker"]
        other.Delete()
        replacement = net.NewNode("Smoker", 2)
        self.assertNotEqual(other, replacement)
        uses = [lambda: other.Name, lambda: other.Beliefs, lambda: replacement.AddLink(other), lambda: other.finding]
        net_uses = [
            lambda: node.Name,
            lambda: net.Name,
            lambda: len(net),
            lambda: net["XRay"],
            lambda: node.Table,
            lambda: tester.ErrorRate(),
            lambda: measurer.MutualInfo(node),
            lambda: net.Nodes,
            lambda: list(net),
        ]
        for use in uses:
            self.assertRaises(talora.DeletedError, use)
        net.Delete()
        net.Delete()
        for use in uses + net_uses:
            self.assertRaises(talora.DeletedError, use)
        self.assertIn("deleted", repr(net) + net._repr_html_())
        self.assertIn("deleted", repr(node) + node._repr_html_())
        self.assertEqual(self.app.BNets, [])

    def test_closed_application(self):
        node, generator = self.net["XRay"], self.app.NewRandomGenerator()
        stream, cases = self.app.NewMemoryStream("x"), self.app.NewCaseset()
        self.app.Quit()
        for use in (lambda: node.Name, generator.DrawUniform, lambda: stream.Name, lambda: len(cases), lambda: self.app.Version):
            self.assertRaises(talora.DeletedError, use)
        self.assertIn("closed", repr(self.app))

    def test_parents_stay_as_long_as_needed(self):
        for _ in range(80):  # more than environments may be open at a time
            node = talora.Application().ReadBNet(CLINIC)["XRay"]
            gc.collect(0)
            self.assertAlmostEqual(sum(node.Beliefs), 1, 5)
        self.assertEqual(node.BNet.Environ.GetBNet(0), node.BNet)

    def test_nets_go_with_their_last_user(self):
        before = len(self.app.BNets)
        for _ in range(200):
            self.app.ReadBNet(CLINIC)
        self.assertEqual(len(self.app.BNets), before)
        with self.app.NewBNet("Inside") as net:
            self.assertIs(self.app.GetBNet("Inside"), net)
        self.assertIsNone(self.app.GetBNet("Inside"))

    def test_undo_brings_the_same_node_back(self):
        self.net.NumUndos = 5
        node = self.net["XRay"]
        node.Delete()
        self.assertRaises(talora.DeletedError, lambda: node.Name)
        self.net.Undo()
        self.assertEqual(self.net["XRay"].Name, "XRay")

    def test_any_order_of_destruction(self):
        shuffle = random.Random(1)
        for _ in range(30):
            app = talora.Application()
            net = app.ReadBNet(CLINIC)
            net.RandomGenerator = app.NewRandomGenerator(1)
            learner = app.NewLearner("EM")
            learner.RandomGen = net.RandomGenerator
            things = [app, net, learner, net["XRay"], net.Nodes, talora.NetTester([net["XRay"]])]
            things += [talora.Sensitivity(net["XRay"]), app.NewCaseset(), app.NewMemoryStream(), net.findings, net["XRay"].Probs]
            del app, net, learner
            shuffle.shuffle(things)
            while things:
                things.pop()

    def test_arrays_outlive_everything(self):
        arrays = [self.net["XRay"].Beliefs, self.net["XRay"].Table, self.net["XRay"].Likelihood]
        copies = [array.copy() for array in arrays]
        self.net.Uncompile()
        self.net.Delete()
        for array, copy in zip(arrays, copies):
            np.testing.assert_array_equal(array, copy)

    def test_errors_can_be_pickled(self):
        try:
            self.net["XRay"].EnterFinding(7)
        except talora.TaloraError as error:
            again = pickle.loads(pickle.dumps(error))
            self.assertEqual((again.number, str(again), type(again)), (error.number, str(error), type(error)))


class Handlers(NetCase):
    def test_exceptions_of_handlers(self):
        class Stop(Exception):
            pass

        def stop(title, fraction):
            raise Stop(title)

        self.app.ProgressHandler = stop
        with self.assertRaises(Stop):
            self.net.WriteRandomCases(self.app.NewMemoryStream("x.cas"), 1e9)
        self.assertEqual(self.net["XRay"].beliefs["Abnormal"] > 0, True)
        self.app.ProgressHandler = lambda title, fraction: False
        self.assertLess(self.net.WriteRandomCases(self.app.NewMemoryStream("x.cas"), 1e9), 1e9)

    def test_halt_flag_stays_until_withdrawn(self):
        timer = threading.Timer(0.2, lambda: setattr(self.app, "HaltFlag", True))
        timer.start()
        self.assertLess(self.net.WriteRandomCases(self.app.NewMemoryStream("x.cas"), 1e9), 1e9)
        timer.join()
        self.assertTrue(self.app.HaltFlag)
        self.app.HaltFlag = False
        self.assertEqual(self.net.WriteRandomCases(self.app.NewMemoryStream("x.cas"), 10), 10)

    def test_handlers_may_call_back(self):
        seen = []

        def look(title, fraction):
            seen.append((title, fraction, self.net["XRay"].Name))
            with self.assertRaises(RuntimeError):
                self.net.Delete()
            with self.assertRaises(RuntimeError):
                self.app.Quit()
            return len(seen) < 3

        self.app.ProgressHandler = look
        self.net.WriteRandomCases(self.app.NewMemoryStream("x.cas"), 1e9)
        self.assertGreaterEqual(len(seen), 3)
        self.assertTrue(all(name == "XRay" for _, _, name in seen))

    def test_password_and_message(self):
        stream = self.app.NewMemoryStream("x.tala")
        self.net.Write(stream, password="secret")
        asked = []
        self.app.PasswordHandler = lambda question: asked.append(question) or "secret"
        self.assertEqual(len(self.app.ReadBNet(stream.Contents)), 8)
        self.assertEqual(len(asked), 1)
        texts = []
        self.app.MessageHandler = lambda text, number, severity: texts.append((text, number))
        self.app.PrintToMessagesWindow("hello")
        self.assertEqual(texts, [("hello", 0)])

    def test_questions(self):
        net = two_nodes(self.app)
        asked = []

        def answer(question, answers, default):
            asked.append(answers)
            return "Add State"

        self.app.QuestionHandler = answer
        self.app.NewLearner().LearnCPTs(net, {"A": ["maybe", "yes"], "B": ["low", "low"]})
        self.assertIn("Skip All", asked[0])
        self.assertIn("maybe", net["A"].states)


class Threads(NetCase):
    def test_nets_of_their_own_and_a_shared_one(self):
        failures = []
        warnings.simplefilter("ignore", talora.TaloraWarning)  # of nodes without tables, while they are there

        def work(seed):
            try:
                own = self.app.ReadBNet(CLINIC)
                for step in range(40):
                    own.findings["XRay"] = step % 2
                    expected = own["Tuberculosis"].Beliefs
                    self.net["Smoker"].finding = (seed + step) % 2
                    self.assertAlmostEqual(float(sum(self.net["LungCancer"].Beliefs)), 1, 5)
                    np.testing.assert_array_equal(own["Tuberculosis"].Beliefs, expected)
                    node = self.net.NewNode(f"n{seed}_{step}", 2)
                    node.Delete()
            except BaseException as error:
                failures.append(error)

        threads = [threading.Thread(target=work, args=(seed,)) for seed in range(6)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])

    def test_interpreter_runs_during_long_work(self):
        done = threading.Event()
        self.app.ProgressHandler = lambda title, fraction: not done.is_set()
        thread = threading.Thread(
            target=lambda: self.net.WriteRandomCases(self.app.NewMemoryStream("x.cas"), 1e9)
        )
        thread.start()
        time.sleep(0.2)
        other = two_nodes(talora.Application())
        self.assertAlmostEqual(sum(other["B"].beliefs.values()), 1, 5)
        done.set()
        thread.join(60)
        self.assertFalse(thread.is_alive())

    def test_deleting_while_others_use_it(self):
        net, raised = self.app.ReadBNet(CLINIC), []

        def work():
            try:
                while True:
                    net["XRay"].finding = 1
                    net["Smoker"].Beliefs
            except talora.DeletedError as error:
                raised.append(error)

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        time.sleep(0.05)
        net.Delete()
        for thread in threads:
            thread.join(60)
        self.assertEqual(len(raised), 4)


class Interrupts(unittest.TestCase):
    def test_ctrl_c_halts_long_work(self):
        script = f"""
import os, signal, sys, threading, time
sys.path.insert(0, {os.path.dirname(os.path.dirname(talora.__file__))!r})
import talora
app = talora.Application()
net = app.ReadBNet({str(CLINIC)!r})
threading.Timer(0.3, lambda: os.kill(os.getpid(), signal.SIGINT)).start()
try:
    net.WriteRandomCases(app.NewMemoryStream("x.cas"), 1e9)
except KeyboardInterrupt:
    print("halted", app.HaltFlag, round(sum(net["XRay"].beliefs.values()), 3), flush=True)
"""
        done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True, timeout=120)
        self.assertEqual(done.stdout, "halted False 1.0\n", done.stderr)


if __name__ == "__main__":
    unittest.main()
