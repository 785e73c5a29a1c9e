"""The library's log as that of the logger "velmara"."""

from __future__ import annotations

import logging
import threading
import traceback
from typing import Optional

from . import _core

logger = logging.getLogger("velmara")
logger.addHandler(logging.NullHandler())

_LEVELS = (logging.DEBUG, logging.INFO, logging.ERROR, logging.CRITICAL)
_thread: Optional[threading.Thread] = None


def _pump() -> None:
    while (message := _core.next_log()) is not None:
        level, text = message
        try:
            logger.log(_LEVELS[level], "%s", text)
        except Exception:  # of somebody's filter; what follows is still to be logged
            traceback.print_exc()


def start() -> None:
    """Forwards what the logger lets through at present. Called for each car."""
    global _thread
    level = next((i for i, own in enumerate(_LEVELS) if logger.isEnabledFor(own)), len(_LEVELS))
    _core.set_log_level(level)
    if _thread is None and level < len(_LEVELS):
        _thread = threading.Thread(target=_pump, name="velmara log", daemon=True)
        _thread.start()


def stop() -> None:
    """Waits until all has been logged."""
    _core.end_log()
    if _thread is not None:
        _thread.join()
