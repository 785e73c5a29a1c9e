"""Where an adapter may be."""

from __future__ import annotations

import dataclasses
import os
import re
from pathlib import Path

from . import _core

_PORTS = ("ttyUSB", "ttyACM", "rfcomm", "ttyS")


@dataclasses.dataclass(frozen=True)
class Device:
    """A link on which an adapter may be."""

    link: str
    name: str  #: what the device says of itself; empty if nothing
    problem: str = ""  #: why it cannot be used, as far as that is known


def devices(bluetooth: bool = False, seconds: float = 13) -> list[Device]:
    """Serial ports, at once; with `bluetooth` also the Bluetooth devices that show up in so many seconds.

    Where Bluetooth cannot be used, one device without a link tells why.
    """
    found = _serial_ports()
    if bluetooth:
        near, problem = _core.bluetooth(seconds)
        found += [Device(link, name or address) for link, name, address in near]
        if problem:
            found.append(Device("", "Bluetooth", problem))
    return found


def _serial_ports() -> list[Device]:
    names = {}
    by_id = Path("/dev/serial/by-id")
    for entry in by_id.iterdir() if by_id.is_dir() else ():
        names[entry.resolve()] = entry.name
    ports = []
    for path in Path("/dev").iterdir():
        match = re.fullmatch(r"([A-Za-z]+)(\d+)", path.name)
        if match and match[1] in _PORTS and (match[1] != "ttyS" or _has_chip(path.name)):
            ports.append((_PORTS.index(match[1]), int(match[2]), path))
    return [Device(f"serial:{path}", names.get(path, ""), _problem(path)) for _, _, path in sorted(ports)]


def _has_chip(port: str) -> bool:
    """The kernel makes ttyS nodes where there is no chip behind them; those are of type 0."""
    try:
        return Path(f"/sys/class/tty/{port}/type").read_text().strip() != "0"
    except OSError:
        return False


def _problem(path: Path) -> str:
    if os.access(path, os.R_OK | os.W_OK):
        return ""
    try:
        return f"You may not open it; it belongs to the group {path.group()}."
    except (KeyError, OSError):
        return "You may not open it."
