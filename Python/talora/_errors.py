"""Exceptions and warnings that carry the engine's error records."""

import logging
import os
import sys
import warnings

_log = logging.getLogger("talora")
_HERE = os.path.dirname(os.path.abspath(__file__))

WARNING_SEVERITY = 4
ERROR_SEVERITY = 5
MEMORY_CONDITION, ABORTED_CONDITION, FILE_CONDITION, FINDING_CONDITION = 0x08, 0x20, 0x80, 0x200


class _Record:
    """What an error record says, the same for errors and warnings."""

    number = 0
    severity = ERROR_SEVERITY
    text = ""
    function = ""
    file = ""
    line = -1
    conditions = 0
    disposition = 0
    fix_status = 0
    sub_errors = ()
    others = ()

    def _fill(self, record):
        for name, value in record.items():
            setattr(self, name, value)
        self.sub_errors = tuple(make(sub) for sub in record.get("sub_errors", ()))
        return self

    def __reduce__(self):
        return (_rebuild, (type(self), str(self), dict(self.__dict__)))


def _rebuild(kind, text, attributes):
    made = kind(text)
    made.__dict__.update(attributes)
    return made


class TaloraError(_Record, Exception):
    """A call of the engine failed; the object is what it was before the call.

    number      negative, unique to its message
    severity    5 an error, 6 an internal error
    text        the message (str() adds number and function)
    function    the engine's function that was running
    file, line  the file that was being read and the line or position in it; '' and -1 if none
    conditions  MEMORY_CONDITION and so on, added up
    sub_errors  further records that belong to this one
    others      what else the call reported, oldest first
    """


class DeletedError(TaloraError, ReferenceError):
    """The net, node or Application of an object has been deleted."""


class TaloraMemoryError(TaloraError, MemoryError):
    """There was not enough memory, or it would have been more than Application.MemoryUsageLimit."""


class HaltedError(TaloraError):
    """A handler or the halt flag stopped the call."""


class FindingError(TaloraError, ValueError):
    """Findings contradict one another or the model."""


class TaloraWarning(_Record, UserWarning):
    """Something is noteworthy; the result of the call stands. Attributes as of TaloraError."""


_DELETED = {-5143, -5144, -5184, -5146, -5626}


def _kind(record):
    if record["severity"] < ERROR_SEVERITY:
        return TaloraWarning
    if record["number"] in _DELETED:
        return DeletedError
    for condition, kind in (
        (MEMORY_CONDITION, TaloraMemoryError),
        (ABORTED_CONDITION, HaltedError),
        (FINDING_CONDITION, FindingError),
    ):
        if record["conditions"] & condition:
            return kind
    return TaloraError


def make(record):
    """The exception or warning for a record."""
    return _kind(record)(f"{record['text']} ({record['number']})")._fill(record)


def _users_level():
    """How many frames of this package stand above the caller's own code."""
    level, frame = 1, sys._getframe(1)
    while frame is not None and os.path.dirname(os.path.abspath(frame.f_code.co_filename)) == _HERE:
        level, frame = level + 1, frame.f_back
    return level - 1


def deliver(records):
    """Raises the newest error among the records of a call; warns of warnings, logs the rest."""
    made = [make(record) for record in records]
    errors = [item for item in made if item.severity >= ERROR_SEVERITY]
    for item in made:
        if item.severity == WARNING_SEVERITY:
            warnings.warn(item, stacklevel=_users_level() + 1)
        elif item.severity < WARNING_SEVERITY:
            _log.info("%s", item)
    if errors:
        worst = errors[-1]
        worst.others = tuple(item for item in made if item is not worst)
        raise worst
