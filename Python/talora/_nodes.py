"""Lists of nodes, conditions, and small records that the classes of _core give back."""

from collections import namedtuple
from collections.abc import Mapping, MutableSequence

from ._core import BNode

CaseRead = namedtuple("CaseRead", "position id frequency")
CaseRead.__doc__ = """A case that was read: its position in the file, its IDnum (-1: none) and how often it occurred."""

Change = namedtuple("Change", "expected variance least greatest")
Change.__doc__ = """A change to be expected; parts that were not asked for are nan."""


class BNodes(MutableSequence):
    """An ordered list of nodes of one net, which may be changed like a Python list.

    nodes[0], nodes[1:3] and nodes["Smoking"] give entries; `in` takes a node or a name."""

    __slots__ = ("_nodes",)

    def __init__(self, nodes=()):
        self._nodes = [self._checked(node) for node in nodes]

    @staticmethod
    def _checked(node):
        if not isinstance(node, BNode):
            raise TypeError(f"a BNode is wanted, not {type(node).__name__}")
        return node

    def __len__(self):
        return len(self._nodes)

    def __getitem__(self, which):
        if isinstance(which, str):
            for node in self._nodes:
                if node.Name == which:
                    return node
            raise KeyError(which)
        if isinstance(which, slice):
            return BNodes(self._nodes[which])
        return self._nodes[which]

    def __setitem__(self, which, node):
        if isinstance(which, slice):
            self._nodes[which] = [self._checked(one) for one in node]
        else:
            self._nodes[which] = self._checked(node)

    def __delitem__(self, which):
        del self._nodes[which]

    def insert(self, index, node):
        self._nodes.insert(index, self._checked(node))

    def __contains__(self, which):
        if isinstance(which, str):
            return any(node.Name == which for node in self._nodes)
        return which in self._nodes

    def __eq__(self, other):
        return list(self) == list(other) if isinstance(other, (BNodes, list)) else NotImplemented

    __hash__ = None

    def __add__(self, other):
        return BNodes([*self, *other])

    def __repr__(self):
        return f"<BNodes: {_shortened([_name_of(node) for node in self._nodes])}>"

    # The names of the automation interface.

    @property
    def Count(self):
        """How many nodes there are."""
        return len(self._nodes)

    def Item(self, which):
        """The node at an index, or of a name."""
        return self[which]

    def Add(self, node, index=-1):
        """Inserts a node before the entry at an index; -1 at the end."""
        self.insert(len(self) if index == -1 else index, node)

    def Remove(self, index=-1):
        """Removes and returns the node at an index; -1 the last."""
        return self.pop(index)

    def IndexOf(self, node, start=0):
        """The index of a node from a start on, -1 if it is not there."""
        try:
            return self._nodes.index(node, start)
        except ValueError:
            return -1

    def Clear(self):
        """Removes all entries."""
        self._nodes.clear()

    def Copy(self):
        """A list with the same nodes."""
        return BNodes(self._nodes)

    @property
    def BNet(self):
        """The net of the nodes; None for an empty list."""
        return self._nodes[0].BNet if self._nodes else None

    def _net(self):
        if not self._nodes:
            raise ValueError("the list of nodes is empty")
        return self._nodes[0].BNet

    def QueryBeliefs(self, log_probability=False):
        """The beliefs of these nodes without compiling the net, which is far quicker for few nodes of a
        large net: a list with an array of shape (states,), float32, for each node.

        log_probability=True gives (list, natural logarithm of the probability of all findings)."""
        beliefs, logarithm = self._net()._query_beliefs(self._nodes, log_probability)
        return (beliefs, logarithm) if log_probability else beliefs

    def BeliefsOfCases(self, states, known=None):
        """The beliefs of these nodes under each row of a matrix of states, shape (cases, known nodes): the
        quickest way to many beliefs. known are the nodes of its columns, by themselves or by name; all nodes
        of this list if they are not given. Negative numbers mean not known. The findings of the net are
        neither used nor changed.

        Gives (beliefs, log_probabilities): a list with an array of shape (cases, states), float32, for each
        node; and the natural logarithm of the probability of each case, -inf and beliefs nan where the
        findings contradict one another."""
        columns = self._nodes if known is None else self._net()._nodes_arg(known)
        beliefs, logarithms = self._net()._beliefs_of_cases(columns, states, self._nodes)
        parts, first = [], 0
        for node in self._nodes:
            end = first + len(node.states)
            parts.append(beliefs[:, first:end])
            first = end
        return parts, logarithms

    def GetMostProbableCondition(self, nth=0):
        """The nth most probable condition of these nodes given the findings, 0 the most probable; the other
        nodes take the states that make the whole most probable."""
        return Condition._made(*self._net()._most_probable_setting(self._nodes, nth))

    def ReviseCPTsByFindings(self, degree=1.0):
        """Counts the findings of the net as one case for the tables of these nodes; a negative degree takes
        it back."""
        self._net()._revise_by_findings(self._nodes, degree)

    def ReviseCPTsByCaseFile(self, cases, degree=1.0):
        """The same for every case of a case file: a path or a Streamer."""
        self._net()._revise_by_case_file(self._nodes, cases, degree)


class Condition(Mapping):
    """States of some nodes: a mapping from names of nodes to names of states.

    Made by BNet.GetMostProbableCondition, or from nodes and their states: Condition(net, {"XRay": "Normal"})."""

    def __init__(self, net, states):
        self.Nodes = BNodes(net[name] if isinstance(name, str) else name for name in states)
        self.States = [
            _state_number(node, state) for node, state in zip(self.Nodes, states.values())
        ]
        self.LogProbability = float("nan")

    @classmethod
    def _made(cls, nodes, states, log_probability):
        condition = cls.__new__(cls)
        kept = [(node, state) for node, state in zip(nodes, states) if state >= 0]
        condition.Nodes = BNodes(node for node, _ in kept)
        condition.States = [state for _, state in kept]
        condition.LogProbability = log_probability
        return condition

    @property
    def Probability(self):
        """How probable it is together with the findings; nan for one that was not found by the engine."""
        from math import exp

        return exp(self.LogProbability)

    def MostProbable(self, nth=0):
        """The nth most probable condition of the same nodes given the findings of the net."""
        return self.Nodes.GetMostProbableCondition(nth)

    def Enter(self):
        """Enters the states as findings."""
        if self.States:
            self.Nodes.BNet._enter_all(list(zip(self.Nodes, self.States)))

    def __getitem__(self, name):
        for node, state in zip(self.Nodes, self.States):
            if node.Name == name or node == name:
                return node.StateNames[state]
        raise KeyError(name)

    def __iter__(self):
        return iter([node.Name for node in self.Nodes])

    def __len__(self):
        return len(self.Nodes)

    def __repr__(self):
        pairs = [f"{node.Name}={node.StateNames[state]}" for node, state in zip(self.Nodes, self.States)]
        return f"<Condition: {_shortened(pairs)}>"

    def _repr_html_(self):
        from ._display import pairs_html

        return pairs_html(self.items())


def _state_number(node, state):
    if not isinstance(state, str):
        return int(state)
    number = node.GetState(state)
    if number < 0 and state.startswith("#"):
        number = int(state[1:])
    if number < 0:
        raise ValueError(f"node '{node.Name}' has no state '{state}' (it has: {', '.join(node.StateNames)})")
    return number


def _name_of(node):
    return "(deleted)" if node._is_deleted else node.Name


def _shortened(words, most=10):
    shown = ", ".join(words[:most])
    return shown + (f", ... {len(words)} in all" if len(words) > most else "")
