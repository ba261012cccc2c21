"""Talora: Bayesian belief networks and decision networks.

    import talora

    net = talora.ReadBNet("chest-clinic.dne")
    net.findings["XRay"] = "Abnormal"
    print(net["Tuberculosis"].beliefs)

Names in capitals are those of the automation interface, the same words in lower case speak by names of
states and nodes. An undefined number is nan, an infinite one inf."""

import threading as _threading

from . import _core, _convenience
from ._core import *  # noqa: F401,F403  the constants
from ._core import (
    Application,
    BNet,
    BNode,
    Caseset,
    DatabaseManager,
    Learner,
    NetTester,
    RandomGenerator,
    Sensitivity,
    Streamer,
)
from ._convenience import Findings
from ._errors import DeletedError, FindingError, HaltedError, TaloraError, TaloraMemoryError, TaloraWarning
from ._nodes import BNodes, CaseRead, Change, Condition
from ._progress import Meter
from ._tables import Table

_convenience.install()

_default = None
_default_lock = _threading.Lock()


def DefaultApplication():
    """The Application that ReadBNet and NewBNet of this module use; made when it is first asked for."""
    global _default
    with _default_lock:
        if _default is None:
            _default = Application()
        return _default


def ReadBNet(source, control=_core.NO_WINDOW, password=None):
    """Reads a net into the default Application; see Application.ReadBNet."""
    return DefaultApplication().ReadBNet(source, control, password)


def read(path, password=None):
    """Reads a net of any format into the default Application; the format is told by the contents."""
    return DefaultApplication().ReadBNet(path, _core.NO_WINDOW, password)


def formats():
    """The formats of net files: a list of dictionaries with name, extensions, about, read and written."""
    return _core._formats()


def NewBNet(name="Untitled"):
    """Makes a net in the default Application; see Application.NewBNet."""
    return DefaultApplication().NewBNet(name)


def _add_constructors():
    """Methods of an Application for what is otherwise made from its class."""

    def NewNodeList(self, nodes=()):
        """A BNodes of some nodes."""
        return BNodes(nodes)

    Application.NewNodeList = NewNodeList
    for kind in (Application, BNet, BNode, Caseset, DatabaseManager, Learner, NetTester, RandomGenerator, Sensitivity, Streamer):
        kind.__module__ = __name__


_add_constructors()

_constants = [name for name in vars(_core) if name.isupper() and not name.startswith("_")]
__all__ = [
    "Application",
    "BNet",
    "BNode",
    "BNodes",
    "CaseRead",
    "Caseset",
    "Change",
    "Condition",
    "DatabaseManager",
    "DefaultApplication",
    "DeletedError",
    "FindingError",
    "Findings",
    "HaltedError",
    "Learner",
    "Meter",
    "NetTester",
    "NewBNet",
    "RandomGenerator",
    "ReadBNet",
    "Sensitivity",
    "Streamer",
    "Table",
    "TaloraError",
    "TaloraMemoryError",
    "TaloraWarning",
    *_constants,
    "formats",
    "read",
]
