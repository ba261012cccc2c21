"""Progress of long operations, shown with tqdm where it is installed."""

import sys
import threading
import time

try:
    from tqdm import tqdm as _tqdm
except ImportError:
    _tqdm = None


def _in_notebook():
    shell = sys.modules.get("IPython")
    try:
        return shell is not None and "IPKernelApp" in shell.get_ipython().config
    except AttributeError:
        return False


def _bar_class():
    if _tqdm is None:
        return None
    if _in_notebook():
        try:
            from tqdm.notebook import tqdm

            return tqdm
        except ImportError:
            return _tqdm
    return _tqdm if sys.stderr is not None and sys.stderr.isatty() else None


class Meter:
    """The progress handler of an Application unless another is set: a tqdm bar for each job that takes longer
    than `delay` seconds, in a notebook or on a terminal. `show=True` shows it elsewhere, too."""

    def __init__(self, delay=1.0, show=None):
        self.delay = delay
        self.show = show
        self._bars = threading.local()

    def __call__(self, title, fraction):
        state = self._bars.__dict__
        if fraction < 0:
            bar = state.pop("bar", None)
            if bar is not None:
                bar.close()
            state.pop("start", None)
            return True
        now = time.monotonic()
        if state.get("title") != title or "start" not in state:
            if state.get("bar") is not None:
                state.pop("bar").close()
            state["title"], state["start"] = title, now
        bar = state.get("bar")
        if bar is None and now - state["start"] >= self.delay:
            kind = _tqdm if self.show else _bar_class()
            if kind is not None and self.show is not False:
                bar = state["bar"] = kind(
                    total=100, desc=title, leave=False, bar_format="{desc}: {percentage:3.0f}%|{bar}| {elapsed}<{remaining}"
                )
        if bar is not None:
            bar.update(100 * fraction - bar.n)
        return True
