"""The options of the library, and of one connection."""

from __future__ import annotations

import ctypes
import enum
import operator
from typing import Mapping, Optional, Tuple

from ._errors import ErrorCode, check, error
from ._library import before_start, is_started, load, setup_lock, started


class Option(enum.IntEnum):
    """What can be set: whole numbers, in the unit that the name ends with; switches are 0 or 1.

    The first block is of the process; the second of a connection, or what connections made later begin with.
    """

    DISCOVERY = 1
    """Before the library is set up: an option of init()."""
    CHECK_XML = 2
    """Before the library is set up: an option of init()."""
    DROP_BAD_ANSWERS = 3
    CHECK_SENDER = 4
    MAX_ROUTES = 5
    KEEP_ROUTES = 6
    ALL_ADAPTERS = 7
    DISCOVERY_RETRY_MS = 8
    FILE_DROP_UNOPENED = 9
    FILE_TOTAL_MS = 10
    FILE_WORKERS = 11

    WRITE_STALL_MS = 32
    CLOSE_WAIT_MS = 33
    HEADER_WAIT_MS = 34
    BODY_WAIT_MS = 35
    JITTER_PERCENT = 36
    RECONNECT_MAX_SEC = 37
    MAX_BODY = 38
    DEAD_PEER_MS = 39
    FOLLOW_ROUTE = 40


OptionValues = Mapping[Option, int]
_Networks = Tuple[Optional[str], Optional[str]]

_INT64_MIN, _INT64_MAX = -(2**63), 2**63 - 1

# What was chosen; None until then. Under setup_lock.
_is_protected: Optional[bool] = None
_networks: _Networks = (None, None)


def set_option(option: Option, value: int) -> None:
    """Sets an option now.

    Raises ZelError: ErrorCode.TOO_LATE for one that must be given to init(), ErrorCode.PARAM for a value out of range.
    """
    started()
    set_of(0, option, value)


def get_option(option: Option) -> int:
    """What an option is now."""
    started()
    return get_of(0, option)


def set_of(handle: int, option: Option, value: int) -> None:
    # ctypes would cut a number that is too long; so the library refuses it.
    given = max(_INT64_MIN, min(operator.index(value), _INT64_MAX))
    check(load().libzelx_setOption(handle, option, given))


def get_of(handle: int, option: Option) -> int:
    value = ctypes.c_int64()
    check(load().libzelx_getOption(handle, option, ctypes.byref(value)))
    return value.value


def choose(protect: Optional[bool], options: OptionValues, networks: _Networks) -> None:
    """For the library to begin with; or, when it has begun, a change of what can still be changed."""
    with setup_lock:
        if is_started():
            _change(protect, options, networks)
        else:
            _prepare(protect is not False, options, networks)


def _prepare(protect: bool, options: OptionValues, networks: _Networks) -> None:
    global _is_protected, _networks
    earlier = {option: get_of(0, option) for option in Option}
    try:
        _set_all(protect, options, networks)
    except BaseException:
        _restore(earlier)
        raise
    _is_protected, _networks = protect, networks


def _set_all(protect: bool, options: OptionValues, networks: _Networks) -> None:
    library = load()
    if protect:
        check(library.libzelx_protect())
    for option, value in options.items():
        set_of(0, option, value)
    if networks != (None, None):
        check(library.libzelx_setNetworks(*(text if text is None else text.encode() for text in networks)))


def _restore(earlier: OptionValues) -> None:
    for option, value in earlier.items():
        load().libzelx_setOption(0, option, value)


def _change(protect: Optional[bool], options: OptionValues, networks: _Networks) -> None:
    if protect not in (None, _is_protected) or networks not in ((None, None), _networks):
        raise error(ErrorCode.TOO_LATE)
    for option, value in options.items():
        if get_of(0, option) != value:
            set_of(0, option, value)


def _prepare_default() -> None:
    if _is_protected is None:
        _prepare(True, {}, (None, None))


before_start(_prepare_default)
