"""What the tests share: where the examples are, and small nets."""

import pathlib
import unittest

import talora

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "Examples"
CLINIC = EXAMPLES / "chest-clinic.dne"


class NetCase(unittest.TestCase):
    """A test with an Application of its own and the clinic's net."""

    def setUp(self):
        self.app = talora.Application()
        self.net = self.app.ReadBNet(CLINIC)

    def tearDown(self):
        self.app.Quit()


def two_nodes(app):
    """A -> B, two states each, with tables."""
    net = app.NewBNet("Two")
    a, b = net.NewNode("A", "yes,no"), net.NewNode("B", ["high", "low"])
    b.AddLink(a)
    a.Table = [0.2, 0.8]
    b.Table = [[0.9, 0.1], [0.3, 0.7]]
    return net
