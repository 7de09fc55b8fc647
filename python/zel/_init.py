"""Setting the library up."""

from __future__ import annotations

from typing import Optional, Union

from ._library import started
from ._log import UNCHANGED, LogTarget, Unchanged, check_log, choose_log
from ._options import OptionValues, choose


def init(
    *,
    log: Union[LogTarget, Unchanged] = UNCHANGED,
    level: Optional[int] = None,
    protect: Optional[bool] = None,
    options: Optional[OptionValues] = None,
    peers: Optional[str] = None,
    adapters: Optional[str] = None,
) -> None:
    """Sets the library up; without this call the first one that needs the library does, with the defaults.

    `log` is where the library's log goes: a logging.Logger, STDOUT, or None for nowhere; without it it stays where it is,
    which is logging.getLogger("zel") in the beginning. `level` is one of logging's: below it no line is made, which costs
    next to nothing. Without it the logger's level at this moment counts, and for STDOUT it is DEBUG. A logger gets its lines on a thread of their own, a moment after what they tell of.

    A program is protected from the dangers of the library's first interface, unless `protect` is False: then everything is
    by the letter of that. `options` are single ones to set in either case, {zel.Option.WRITE_STALL_MS: 2000}. `peers` limits
    discovery to answers from networks, "10.0.0.0/8,192.168.1.0/24"; `adapters` to asking on adapters, "eth0,10.0.0.5".

    May be called again: what is given is changed from then on. A log goes elsewhere, and options are set that can still be. What cannot raises
    ZelError with ErrorCode.TOO_LATE; a value out of range, or networks that cannot be read, with ErrorCode.PARAM. When the
    first call raises, the library has not been set up.
    """
    check_log(log)
    choose(protect, options or {}, (peers, adapters))
    if log is not UNCHANGED or level is not None:
        choose_log(log, level)
    started()
