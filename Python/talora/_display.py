"""How nets, nodes and tables look in a notebook: inline SVG and HTML, everything escaped."""

import html
import itertools

import numpy as np

_FONT = "font-family:system-ui,Helvetica,Arial,sans-serif"
_INK, _FAINT, _LINE, _BAR, _FOUND = "#1f2933", "#616e7c", "#9aa5b1", "#4c8bbf", "#c2571a"
_FILLS = {1: "#eef4f9", 2: "#f3f3f3", 3: "#e6f2e8", 4: "#fdf3dc", 5: "#ffffff", 6: "#f6e9f3"}

_MOST_WITH_BELIEFS = 40
_MOST_DRAWN = 250
_MOST_STATES = 8
_MOST_ROWS = 60


def _safe(text):
    """Text that may stand in HTML and SVG, also between double quotes."""
    text = str(text).encode("utf-8", "replace").decode("utf-8")
    return html.escape("".join(c if c >= " " else " " for c in text), quote=True)


def _cut(text, most):
    return text if len(text) <= most else text[: most - 1] + "\u2026"


def _width(text, size):
    """About how wide a text is in a sans-serif font, rather too wide than too narrow."""
    wide = sum(0.72 if c.isupper() or c in "mw@%_" else 0.32 if c in "ijl.,:;'|! " else 0.6 for c in text)
    return size * wide


# ---- The layout: layers from parents to children, ordered to keep links short.  A link over several layers
# has a bend in each of them, a tuple in place of a name, so that it runs between the boxes. ----

_MOST_BENDS = 2000


def _layers(names, links):
    """Layers of names so that links point downwards; links that close a cycle are passed over."""
    parents = {name: [] for name in names}
    children = {name: [] for name in names}
    for parent, child in links:
        parents[child].append(parent)
        children[parent].append(child)
    waiting = {name: len(parents[name]) for name in names}
    depth = {name: 0 for name in names}
    ready = [name for name in names if waiting[name] == 0]
    for name in ready:
        for child in children[name]:
            depth[child] = max(depth[child], depth[name] + 1)
            waiting[child] -= 1
            if waiting[child] == 0:
                ready.append(child)
    for name in reversed(ready):  # roots come down to just above their first child
        if not parents[name] and children[name]:
            depth[name] = max(min(depth[child] for child in children[name]) - 1, 0)
    layers = [[] for _ in range(max(depth.values(), default=0) + 1)]
    for name in names:
        layers[depth[name]].append(name)
    return [layer for layer in layers if layer]


def _chains(layers, links):
    """For each link the names and bends that it runs through; adds the bends to the layers."""
    level = {name: index for index, layer in enumerate(layers) for name in layer}
    spans = sum(max(level[child] - level[parent] - 1, 0) for parent, child in links)
    chains = []
    for parent, child in links:
        between = range(level[parent] + 1, level[child]) if spans <= _MOST_BENDS else ()
        bends = [(parent, child, index) for index in between]
        for bend in bends:
            layers[bend[2]].append(bend)
        chains.append([parent, *bends, child])
    return chains


def _neighbours(chains):
    above, below = {}, {}
    for chain in chains:
        for upper, lower in zip(chain, chain[1:]):
            above.setdefault(lower, []).append(upper)
            below.setdefault(upper, []).append(lower)
    return above, below


def _order(layers, above, below):
    """Sorts each layer by where the neighbours in the next layers stand."""
    place = {}

    def take_places(layer):
        for index, name in enumerate(layer):
            place[name] = (index + 0.5) / len(layer)

    for layer in layers:
        take_places(layer)
    for sweep in range(10):
        near = above if sweep % 2 == 0 else below
        for layer in layers if sweep % 2 == 0 else reversed(layers):
            layer.sort(key=lambda n: np.mean([place[m] for m in near[n]]) if n in near else place[n])
            take_places(layer)


def _wrapped(layers, widths, most):
    """Layers too wide for a page are broken into rows."""
    rows = []
    for layer in layers:
        row, width = [], 0
        for name in layer:
            if row and width + widths[name] > most:
                rows.append(row)
                row, width = [], 0
            width += widths[name] + (_gap(row[-1], name) if row else 0)
            row.append(name)
        rows.append(row)
    return rows


def _gap(one, other):
    """Between two neighbours of a row: links need less room than boxes."""
    return 22 if isinstance(one, str) and isinstance(other, str) else 9


def _centres(rows, widths, above, below):
    """Where each name stands: as near to the middle of its neighbours as the others in its row allow."""
    centre = {}
    for row in rows:
        apart = [(widths[a] + widths[b]) / 2 + _gap(a, b) for a, b in zip(row, row[1:])]
        places = np.cumsum([0, *apart])
        centre.update(zip(row, places - places[-1] / 2))
    for sweep in range(12):
        for row in rows if sweep % 2 == 0 else reversed(rows):
            wanted = []
            for name in row:
                near = above.get(name, []) + below.get(name, [])
                wanted.append(np.mean([centre[other] for other in near]) if near else centre[name])
            apart = [(widths[a] + widths[b]) / 2 + _gap(a, b) for a, b in zip(row, row[1:])]
            left, right = wanted[:], wanted[:]
            for i, gap in enumerate(apart):
                left[i + 1] = max(left[i + 1], left[i] + gap)
            for i in range(len(apart) - 1, -1, -1):
                right[i] = min(right[i], right[i + 1] - apart[i])
            for name, one, other in zip(row, left, right):
                centre[name] = (one + other) / 2
    return centre


# ---- Boxes ----


class _Box:
    """A node as it is drawn."""

    def __init__(self, node, beliefs, compact):
        self.kind = node.Kind
        self.name = node.Name
        self.title = node.Title or node.Name
        self.finding = node.Finding
        self.found = node.HasFinding
        self.rows = []
        if not compact and beliefs is not None:
            labels = [node.StateLabel(i) for i in range(len(beliefs))]
            self.rows = list(itertools.islice(zip(labels, beliefs), _MOST_STATES))
        self.more = 0 if compact or beliefs is None else max(len(beliefs) - _MOST_STATES, 0)
        self.label_width = max((_width(_cut(label, 16), 11.5) for label, _ in self.rows), default=0) + 8
        head = 1.08 * _width(_cut(self.title, 26), 12) + 20
        self.width = max(head, 70, self.label_width + 114 if self.rows else 0)
        self.height = 24 + 15 * (len(self.rows) + (self.more > 0)) + (5 if self.rows else 0)

    def svg(self, x, y):
        corner = {3: 1, 4: 12}.get(self.kind, 5)
        edge = _FOUND if self.found else _LINE
        parts = [
            f'<g transform="translate({x:.1f},{y:.1f})"><title>{_safe(self.name)}</title>',
            f'<rect width="{self.width:.1f}" height="{self.height}" rx="{corner}" fill="{_FILLS.get(self.kind, "#ffffff")}" '
            f'stroke="{edge}" stroke-width="{1.6 if self.found else 1}"/>',
            f'<text x="{self.width / 2:.1f}" y="16" text-anchor="middle" font-weight="600" '
            f'font-size="12" fill="{_INK}">{_safe(_cut(self.title, 26))}</text>',
        ]
        for index, (label, belief) in enumerate(self.rows):
            parts.append(self._row(index, label, belief))
        if self.more:
            top = 24 + 15 * len(self.rows)
            parts.append(
                f'<text x="8" y="{top + 11}" font-size="10" fill="{_FAINT}">\u2026 {self.more} more states</text>'
            )
        return "".join(parts) + "</g>"

    def _row(self, index, label, belief):
        top = 24 + 15 * index
        start, full = self.label_width + 4, self.width - self.label_width - 58
        is_found = index == self.finding
        bar = _FOUND if is_found else _BAR
        weight = ' font-weight="600"' if is_found else ""
        return (
            f'<text x="8" y="{top + 10}" font-size="10.5" fill="{_INK}"{weight}>{_safe(_cut(label, 16))}</text>'
            f'<rect x="{start:.1f}" y="{top + 2}" width="{full:.1f}" height="10" rx="2" fill="#dde5ec"/>'
            f'<rect x="{start:.1f}" y="{top + 2}" width="{full * max(0.0, min(1.0, belief)):.1f}" height="10" rx="2" fill="{bar}"/>'
            f'<text x="{self.width - 7:.1f}" y="{top + 11}" text-anchor="end" font-size="10" '
            f'fill="{_FAINT}">{_percent(belief)}</text>'
        )


def _percent(belief):
    """A belief as it is read at a glance; 0 and 100 only where they are exact."""
    if 0 < belief < 0.0005:
        return "<0.1%".replace("<", "&lt;")
    if 0.9995 <= belief < 1:
        return "&gt;99.9%"
    return f"{100 * belief:.1f}%"


def _arc(chain, centre, top, bottom):
    """A link from the lower edge of the parent, through its bends, to the upper edge of the child."""
    x, y = centre[chain[0]], bottom[chain[0]]
    path = f"M{x:.1f},{y:.1f}"
    for name in chain[1:]:
        to_x, to_y = centre[name], top[name] - (2 if name is chain[-1] else 0)
        bend = max(abs(to_y - y) / 2, 18)
        path += f" C{x:.1f},{y + bend:.1f} {to_x:.1f},{to_y - bend:.1f} {to_x:.1f},{to_y:.1f}"
        if name is not chain[-1]:
            path += f" V{bottom[name]:.1f}"
        x, y = to_x, bottom[name]
    return f'<path d="{path}" fill="none" stroke="{_LINE}" stroke-width="1.2" marker-end="url(#talora-arrow)"/>'


def _drawing(boxes, links):
    layers = _layers(list(boxes), links)
    chains = _chains(layers, links)
    above, below = _neighbours(chains)
    _order(layers, above, below)
    widths = {name: boxes[name].width if name in boxes else 2 for layer in layers for name in layer}
    rows = _wrapped(layers, widths, 1400)
    centre = _centres(rows, widths, above, below)
    margin, gap_y, y = 8, 42, 8
    start = min((centre[name] - widths[name] / 2 for name in widths), default=0) - margin
    width = max((centre[name] + widths[name] / 2 for name in widths), default=60) - start + margin
    top, bottom = {}, {}
    for row in rows:
        height = max((boxes[name].height for name in row if name in boxes), default=0)
        for name in row:
            centre[name] -= start
            top[name], bottom[name] = y, y + (boxes[name].height if name in boxes else height)
        y += height + gap_y
    height = y - gap_y + margin
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width:.0f} {height:.0f}" width="{width:.0f}" '
        f'style="{_FONT};max-width:100%;height:auto;background:#ffffff" role="img">',
        '<defs><marker id="talora-arrow" viewBox="0 0 8 8" refX="6" refY="4" markerWidth="7" markerHeight="7" '
        f'orient="auto"><path d="M0,0.8 L7,4 L0,7.2 Z" fill="{_LINE}"/></marker></defs>',
    ]
    parts += [_arc(chain, centre, top, bottom) for chain in chains]
    parts += [box.svg(centre[name] - box.width / 2, top[name]) for name, box in boxes.items()]
    return "".join(parts) + "</svg>"


# ---- Nets and nodes ----


def _beliefs_of(net, nodes):
    """Beliefs by node, without compiling the net; and why there are none, if so."""
    from . import _core, _errors

    asked = [n for n in nodes if n.Kind in (_core.NATURE_NODE, _core.DECISION_NODE) and len(n) > 0]
    if not asked:
        return {}, ""
    try:
        if net.Compiled:
            return {n.Name: n.Beliefs for n in asked}, ""
        return {n.Name: b for n, b in zip(asked, net._query_beliefs(asked, False)[0])}, ""
    except _errors.TaloraError as error:
        return {}, error.text


def net_html(net):
    """A net as inline SVG: nodes with belief bars (up to 40 nodes), links, findings in another colour."""
    if net._is_deleted:
        return "<i>BNet, deleted</i>"
    nodes = list(net)
    head = f'<div style="{_FONT};font-size:13px;color:{_INK};margin:2px 0 6px"><b>{_safe(net.Title or net.Name)}</b>'
    head += f' <span style="color:{_FAINT}">{len(nodes)} node{"" if len(nodes) == 1 else "s"}</span>'
    if len(nodes) > _MOST_DRAWN:
        return head + f' <span style="color:{_FAINT}">\u2013 too many to draw</span></div>'
    compact = len(nodes) > _MOST_WITH_BELIEFS
    beliefs, why = ({}, "") if compact else _beliefs_of(net, nodes)
    if why:
        head += f' <span style="color:{_FOUND}">\u2013 no beliefs: {_safe(_cut(why, 200))}</span>'
    boxes = {node.Name: _Box(node, beliefs.get(node.Name), compact) for node in nodes}
    links = [(parent.Name, node.Name) for node in nodes for parent in node.Parents if parent.Name in boxes]
    drawing = _drawing(boxes, links) if boxes else ""
    style = "background:#ffffff;padding:4px;border-radius:4px;overflow-x:auto"
    return f'<div style="{style}">{head}</div>{drawing}</div>'


def node_html(node):
    """A node as a box with its beliefs."""
    if node._is_deleted:
        return "<i>BNode, deleted</i>"
    beliefs, _ = _beliefs_of(node.BNet, [node])
    return _drawing({node.Name: _Box(node, beliefs.get(node.Name), False)}, [])


# ---- Tables ----

_TABLE = f'style="{_FONT};border-collapse:collapse;font-size:12px;color:{_INK};background:#ffffff"'
_CELL = "padding:2px 9px;border:1px solid #d5dde5;"


def table_html(table):
    """A table as HTML; entries are shaded by their size."""
    heads = [f'<th style="{_CELL}text-align:left;background:#eef1f4">{_safe(name)}</th>' for name in table.parents]
    heads += [f'<th style="{_CELL}text-align:right;background:#dfe9f2">{_safe(state)}</th>' for state in table.states]
    lines, previous = [], None
    for names, row in itertools.islice(table.rows(), _MOST_ROWS):
        cells, changed = [], False
        for index, name in enumerate(names):
            changed = changed or previous is None or previous[index] != name
            shown = _safe(name) if changed else ""
            cells.append(f'<td style="{_CELL}text-align:left">{shown}</td>')
        cells += [_entry(value, table.states == ["value"]) for value in row]
        lines.append("<tr>" + "".join(cells) + "</tr>")
        previous = names
    count = table.array.size // max(len(table.states), 1)
    more = f'<tr><td colspan="{len(heads)}" style="{_CELL}color:{_FAINT}">\u2026 {count} rows in all</td></tr>'
    caption = f'<caption style="text-align:left;padding:2px 0 5px;color:{_INK}"><b>{_safe(table.name)}</b>'
    if table.parents:
        caption += f" given {_safe(', '.join(table.parents))}"
    body = "".join(lines) + (more if count > _MOST_ROWS else "")
    return f"<table {_TABLE}>{caption}</caption><thead><tr>{''.join(heads)}</tr></thead><tbody>{body}</tbody></table>"


def _entry(value, is_value):
    if np.isnan(value):
        return f'<td style="{_CELL}text-align:right;color:{_FAINT}">?</td>'
    shade = "" if is_value else f"background:rgba(76,139,191,{0.35 * min(max(float(value), 0), 1):.2f});"
    return f'<td style="{_CELL}text-align:right;{shade}">{value:.6g}</td>'


def pairs_html(pairs):
    """Names and states as a table of two columns."""
    rows = "".join(
        f'<tr><td style="{_CELL}text-align:left">{_safe(name)}</td><td style="{_CELL}text-align:left">{_safe(state)}</td></tr>'
        for name, state in pairs
    )
    return f"<table {_TABLE}><tbody>{rows}</tbody></table>"
