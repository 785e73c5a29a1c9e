"""Simulated cars, for tests without one."""

from __future__ import annotations

from types import TracebackType
from typing import Iterable, Optional, Type, Union

from . import _core


def vehicles() -> list[str]:
    """The built-in vehicles. Those that break rules, each in its own way, are called "odd/..."."""
    return _core.vehicles()


class Simulator:
    """A simulated adapter in a simulated car, at `link` until it is stopped, or to the end of its with block.

    vehicle: one of `vehicles()`, or a vehicle file
    faults: what goes wrong, as "kind[:amount or text][@first[-[last]]]": "latency:20", "close@30", "error:BUS ERROR@12".
        Exchanges with the adapter count from 0.
    adapter: what adapter it is, as `velmara-sim --list` shows them
    latency: milliseconds that the car takes to answer
    port: of TCP on this computer; 0 picks a free one
    """

    def __init__(
        self,
        vehicle: str = "petrol-can11",
        faults: Union[str, Iterable[str]] = (),
        *,
        adapter: str = "elm15",
        latency: int = 0,
        port: int = 0,
    ) -> None:
        self.vehicle = vehicle
        wanted = [faults] if isinstance(faults, str) else list(faults)
        self._core = _core.Simulation(vehicle, wanted, adapter, latency, port)

    def __enter__(self) -> Simulator:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.stop()

    def __repr__(self) -> str:
        return f"<velmara.Simulator {self.vehicle!r} at {self.link!r}>"

    @property
    def link(self) -> str:
        """What `connect` takes."""
        return self._core.link

    def ignition(self, on: bool) -> None:
        """Switches the ignition; with it off no control unit answers."""
        self._core.ignition(on)

    def stop(self) -> None:
        """Ends it; whoever is connected loses the link."""
        self._core.stop()
