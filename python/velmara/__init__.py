"""Vehicle diagnostics over ELM327-class adapters.

    import velmara

    with velmara.connect("demo:") as car:
        print(car.read("0C"))
        for code in car.codes()[0].confirmed or ():
            print(code)
"""

from __future__ import annotations

from . import _core, values
from ._asynchronous import AsyncCar, AsyncWatch, connect_async
from ._car import Car, Watch, connect
from .errors import (
    Cancelled,
    Error,
    FileExists,
    LinkFailed,
    LinkLost,
    NoAdapter,
    NoData,
    NotAFile,
    NoVehicle,
    Unusable,
)
from ._simulator import Simulator, vehicles
from .values import Code, ControlUnit, Device, Reading, Report, Sections

__all__ = [
    "AsyncCar", "AsyncWatch", "Cancelled", "Car", "Code", "ControlUnit", "Device", "Error", "FileExists", "LinkFailed",
    "LinkLost", "NoAdapter", "NoData", "NoVehicle", "NotAFile", "Reading", "Report", "Sections", "Simulator",
    "Unusable", "Watch", "connect", "connect_async", "devices", "lookup", "protocols", "search", "values", "vehicles",
]  # fmt: skip


def lookup(code: str, make: str = "") -> Code:
    """What a trouble code means: all its texts, or first of all those of one make.

    A code that no make knows has a text that says so. Raises `Unusable` for what is no code or no make.
    """
    return _core.lookup(code, make)


def search(*words: str, make: str = "") -> Sections[Code]:
    """The trouble codes whose text has all these words, in any case; of one make, or of all."""
    split = [word for text in words for word in text.lower().split()]
    if not split:
        raise Unusable("There is no word to look for.")
    return values.sections(_core.search(split, make))


def devices(bluetooth: bool = False, seconds: float = 13) -> Sections[Device]:
    """Where an adapter may be: serial ports, at once; with `bluetooth` also the Bluetooth devices, classic and Low
    Energy, that show up in so many seconds, those first that offer a serial stream.

    Where Bluetooth cannot be used, one device without a link tells why.
    """
    return values.sections(_core.devices(bluetooth, seconds))


def protocols() -> list[str]:
    """The names that `connect` takes as `protocol`."""
    return _core.protocols()
