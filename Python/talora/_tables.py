"""Tables with the names of what their entries are about."""

import itertools

import numpy as np


def named(names, row):
    """A dict of single-precision numbers as short decimal numbers: 0.0104, not 0.010399999096989632."""
    return {name: float(str(number)) for name, number in zip(names, row)}


class Table:
    """A conditional probability table with its names: node.table.

    array          shape (states of the parents ..., own states), float32; nan: not given
    parents        names of the parents, in order
    parent_states  names of their states, a list for each parent
    states         names of the node's states; for a node with a function of values: ["value"]
    name           of the node
    table["Smoker", "Abroad"] is a row by names, a dict by states; table() is the one of a node without parents."""

    def __init__(self, name, array, parents, parent_states, states):
        self.name, self.array, self.parents = name, array, parents
        self.parent_states, self.states = parent_states, states

    @property
    def shape(self):
        """The shape of the array."""
        return self.array.shape

    def __array__(self, dtype=None):
        return np.asarray(self.array, dtype)

    def __len__(self):
        return len(self.array)

    def rows(self):
        """(names of the parents' states, probabilities) of each row, the last parent varying fastest."""
        flat = self.array.reshape(-1, len(self.states))
        return zip(itertools.product(*self.parent_states), flat)

    def __getitem__(self, key):
        key = key if isinstance(key, tuple) else (key,)
        if len(key) != len(self.parents):
            raise KeyError(f"{len(self.parents)} parent states are wanted: {', '.join(self.parents)}")
        at = tuple(
            names.index(state) if isinstance(state, str) else state
            for names, state in zip(self.parent_states, key)
        )
        return named(self.states, self.array[at])

    def __call__(self, *key):
        return self[key]

    def to_frame(self):
        """A pandas DataFrame: a row for each combination of the parents' states, a column for each state."""
        import pandas

        index = pandas.MultiIndex.from_product(self.parent_states, names=self.parents) if self.parents else [self.name]
        return pandas.DataFrame(self.array.reshape(-1, len(self.states)), index=index, columns=self.states)

    def __repr__(self):
        lines = [f"<table of {self.name}" + (f" given {', '.join(self.parents)}" if self.parents else "") + ">"]
        most = 12
        heads = [*self.parents, *self.states]
        body = [
            [*names, *(_number(prob) for prob in row)] for names, row in itertools.islice(self.rows(), most)
        ]
        widths = [max(len(cell) for cell in column) for column in zip(heads, *body)]
        for line in [heads, *body]:
            lines.append("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip())
        count = self.array.size // max(len(self.states), 1)
        if count > most:
            lines.append(f"... {count} rows")
        return "\n".join(lines)

    def _repr_html_(self):
        from ._display import table_html

        return table_html(self)


def _number(value):
    return "?" if np.isnan(value) else f"{value:.6g}"


def table_of(node):
    """The table of a node, None if it has none. That of a function is worked out from it."""
    array, states = node.Table, node.StateNames
    parents = node.Parents
    if array is None:
        array, states = _function_array(node, parents)
        if array is None:
            return None
    return Table(
        node.Name, array, [parent.Name for parent in parents], [parent.StateNames for parent in parents], states
    )


def _function_array(node, parents):
    if not node.HasTable:
        return None, None
    shape = tuple(len(parent) for parent in parents)
    if len(node) == 0:
        values = np.empty((*shape, 1), np.float64)
        for at in np.ndindex(*shape):
            values[at] = node.FuncReal[list(at)]
        return values, ["value"]
    probs = np.zeros((*shape, len(node)), np.float32)
    for at in np.ndindex(*shape):
        state = node.FuncState[list(at)]
        probs[at] = np.eye(len(node), dtype=np.float32)[state] if state >= 0 else np.nan
    return probs, node.StateNames


def set_table(node, table):
    """Takes an array of that shape (or the entries in one dimension), a Table, a DataFrame as of to_frame, or a
    dict of rows by the parents' states; a row is a sequence, or a dict by states."""
    if isinstance(table, Table):
        node.Table = table.array
    elif hasattr(table, "columns") and hasattr(table, "to_numpy"):
        node.Table = _aligned(node, table)
    elif isinstance(table, dict):
        node.Table = _from_rows(node, table)
    else:
        node.Table = np.asarray(table, np.float32)


def _aligned(node, frame):
    states = node.StateNames
    if set(frame.columns) == set(states):
        frame = frame[states]
    parents = node.Parents
    if len(parents) and list(frame.index.names) == [parent.Name for parent in parents]:
        wanted = list(itertools.product(*(parent.StateNames for parent in parents)))
        frame = frame.loc[wanted if len(parents) > 1 else [names[0] for names in wanted]]
    return frame.to_numpy(np.float32).reshape(node._table_shape)


def _from_rows(node, rows):
    parents, states = node.Parents, node.StateNames
    if not parents:  # {state: probability}
        return np.array([rows[state] for state in states], np.float32)
    array = np.full(node._table_shape, np.nan, np.float32)
    names = [parent.StateNames for parent in parents]
    for key, row in rows.items():
        key = key if isinstance(key, tuple) else (key,)
        if len(key) != len(parents):
            raise ValueError(f"{len(parents)} parent states are wanted for each row")
        at = tuple(of.index(state) if isinstance(state, str) else state for of, state in zip(names, key))
        array[at] = [row[state] for state in states] if isinstance(row, dict) else row
    return array
