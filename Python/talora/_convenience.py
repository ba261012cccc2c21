"""What the classes of _core offer to those who think in names: properties in lower case.

Names in capitals are those of the automation interface: states are numbers, beliefs and tables arrays. The
same word in lower case speaks by names: node.Finding is a number, node.finding a name; node.Beliefs is an
array, node.beliefs a dict."""

import contextlib
import math
import numbers
from collections.abc import Mapping, MutableMapping

import numpy as np

from . import _core, _display
from ._nodes import Condition
from ._tables import Table, named, set_table, table_of


class Findings(MutableMapping):
    """The findings of a net by names of nodes: net.findings["XRay"] = "Abnormal", del net.findings["XRay"].

    A finding is given as the name or number of a state, as a value of a continuous node, or as a likelihood:
    a dict by states, or a sequence; None and nan take it back."""

    __slots__ = ("_net",)

    def __init__(self, net):
        self._net = net

    def __getitem__(self, name):
        node = name if isinstance(name, _core.BNode) else self._net[name]
        if not node.HasFinding:
            raise KeyError(name)
        return node.finding

    def __setitem__(self, name, value):
        enter(name if isinstance(name, _core.BNode) else self._net[name], value)

    def __delitem__(self, name):
        node = name if isinstance(name, _core.BNode) else self._net[name]
        if not node.HasFinding:
            raise KeyError(name)
        node.RetractFindings()

    def __iter__(self):
        return iter([node.Name for node in self._net if node.HasFinding])

    def __len__(self):
        return sum(node.HasFinding for node in self._net)

    def clear(self):
        self._net.RetractFindings()

    def __repr__(self):
        return f"<findings: {dict(self)}>"


def enter(node, value):
    """Enters a finding of whatever kind the value is, in place of those that the node has."""
    if value is None or (isinstance(value, numbers.Real) and math.isnan(value)):
        node.RetractFindings()
        return
    if isinstance(value, (bool, np.bool_)):
        value = _state_of_bool(node, bool(value))
    if isinstance(value, str):
        node._replace_finding(state=value)
    elif isinstance(value, numbers.Real):
        _enter_number(node, value)
    elif isinstance(value, Mapping):
        weights = np.zeros(len(node), np.float32)
        names = node.StateNames
        for state, weight in value.items():
            weights[names.index(state) if isinstance(state, str) else state] = weight
        node._replace_finding(likelihood=weights)
    else:
        node._replace_finding(likelihood=np.asarray(value, np.float32))


def _enter_number(node, value):
    discrete = node.Type == _core.DISCRETE_TYPE
    if not discrete or node.NumberLevels > 0:
        node._replace_finding(value=float(value))
    elif float(value).is_integer():
        node._replace_finding(state=int(value))
    else:
        raise ValueError(f"node '{node.Name}' is discrete, and {value} is no number of a state")


def _state_of_bool(node, value):
    for name in node.StateNames:
        if name.lower() == str(value).lower():
            return name
    raise ValueError(f"node '{node.Name}' has no state '{value}' (it has: {', '.join(node.StateNames)})")


def _finding(node):
    """The finding: a state's name, a value, a dict of weights by states; None if there is none."""
    if not node.HasFinding:
        return None
    value = node.ValueEntered
    if not math.isnan(value):
        return value
    state = node.Finding
    if state >= 0:
        return node.StateNames[state]
    return named(node.StateNames, node.Likelihood)


def _set_findings(net, findings):
    with_nodes = [(net[name] if isinstance(name, str) else name, value) for name, value in findings.items()]
    net.RetractFindings()
    for node, value in with_nodes:
        enter(node, value)


def _all_beliefs(net, nodes=None):
    """The beliefs of nodes (all with states, unless said otherwise), after compiling and updating if need be:
    {node: {state: belief}}."""
    chosen = net._nodes_arg(nodes)
    if nodes is None:
        net.UpdateBeliefs()
        asked = (_core.NATURE_NODE, _core.DECISION_NODE)
        chosen = [node for node in chosen if len(node) > 0 and node.Kind in asked]
    return {node.Name: node.beliefs for node in chosen}


def _score(net, cases, nodes, whole=False):
    """The beliefs of nodes for each case of a frame (or another source of cases) as a DataFrame with columns
    "P(NODE=STATE)" beside those of the cases. What a case says of the nodes themselves is left out unless
    whole=True."""
    import io

    import pandas

    app = net.Environ
    if not isinstance(cases, _core.Caseset):
        cases = _core.Caseset(app, cases)
    output = app.NewMemoryStream("beliefs.cas")
    cases.WriteBeliefs(net._nodes_arg(nodes), output, "whole" if whole else None)
    lines = [line for line in output.Contents.splitlines(keepends=True) if line.strip() and not line.startswith(b"//")]
    delimiter = "," if b"," in lines[0] else "\t" if b"\t" in lines[0] else " "
    return pandas.read_csv(io.BytesIO(b"".join(lines)), sep=delimiter, na_values=["*"])


@contextlib.contextmanager
def _undo_group(net, description=None):
    """`with net.undo_group("..."):` makes what is done inside one step; an exception takes it back."""
    net.OpenUndoGroup(description)
    try:
        yield net
    except BaseException:
        net.AbortUndoGroup()
        raise
    finally:
        net.CloseUndoGroup()


def _most_probable_condition(net, nth=0):
    """The nth most probable configuration of all nodes given the findings, 0 the most probable: a Condition
    with the logarithm of its probability. Findings and beliefs stay as they are."""
    return Condition._made(*net._most_probable(nth))


def _add_nodes_for_columns(net, manager, tables, columns=None, condition=None):
    """Adds a node for each column of SELECT columns FROM tables WHERE condition; gives the node of each
    column."""
    return manager._add_nodes_for_columns(net, tables, columns, condition)


def _net_repr(net):
    if net._is_deleted:
        return "<BNet, deleted>"
    findings = len(Findings(net))
    parts = [f"{len(net)} nodes"]
    if findings:
        parts.append(f"{findings} findings" if findings > 1 else "1 finding")
    if net.Compiled:
        parts.append("compiled")
    return f"<BNet {net.Name}: {', '.join(parts)}>"


def _node_repr(node):
    if node._is_deleted:
        return "<BNode, deleted>"
    states = node.StateNames
    shown = ", ".join(states[:6]) + (", ..." if len(states) > 6 else "")
    finding = node.finding
    tail = "" if finding is None else f", finding {finding!r}"
    return f"<BNode {node.Name}: {shown or 'continuous'}{tail}>"


def install():
    """Adds all this to the classes."""
    net, node = _core.BNet, _core.BNode
    net.nodes = property(lambda self: self.Nodes, doc="All nodes, as Nodes.")
    net.name = property(lambda self: self.Name, lambda self, name: setattr(self, "Name", name), doc="As Name.")
    net.findings = property(Findings, _set_findings, doc=Findings.__doc__)
    net.beliefs = _all_beliefs
    net.score = _score
    net.undo_group = _undo_group
    net.GetMostProbableCondition = _most_probable_condition
    net.AddNodesForColumns = _add_nodes_for_columns
    net.__repr__ = _net_repr
    net._repr_html_ = _display.net_html

    node.name = property(lambda self: self.Name, lambda self, name: setattr(self, "Name", name), doc="As Name.")
    node.states = property(
        lambda self: self.StateNames,
        lambda self, names: setattr(self, "StateNames", names),
        doc="Names of the states, as StateNames.",
    )
    node.parents = property(lambda self: self.Parents, doc="The parents, as Parents.")
    node.children = property(lambda self: self.Children, doc="The children, as Children.")
    node.finding = property(_finding, enter, doc=_finding.__doc__)
    node.beliefs = property(
        lambda self: named(self.StateNames, self.Beliefs), doc="The beliefs by names of states."
    )
    node.table = property(table_of, set_table, doc=Table.__doc__)
    node.__repr__ = _node_repr
    node._repr_html_ = _display.node_html
