"""A car, and what is watched of it."""

from __future__ import annotations

import atexit
import os
import warnings
import weakref
from types import TracebackType
from typing import TYPE_CHECKING, Any, Callable, Iterator, Optional, Type, Union

from . import _core, _log
from .errors import Unusable
from .values import (
    ClearOutcome,
    Codes,
    ControlUnit,
    Counters,
    FreezeFrames,
    Info,
    LinkInfo,
    MissingRequest,
    Monitors,
    OxygenTests,
    Reading,
    Report,
    RoutineOutcome,
    Routines,
    Sections,
    Sensor,
    Summary,
    Tests,
    Values,
    sections,
)

if TYPE_CHECKING:
    import pandas

_cars: weakref.WeakSet[Car] = weakref.WeakSet()

Progress = Optional[Callable[[str], None]]
Path = Union[str, "os.PathLike[str]"]


def connect(
    link: str = "demo:",
    *,
    protocol: str = "",
    unit_system: str = "metric",
    progress: Progress = None,
    trace: Path = "",
) -> Car:
    """Opens a link and finds adapter, car and control units, which takes seconds.

    link: "demo:", "demo:VEHICLE", "tcp:HOST:PORT", "serial:DEVICE", "serial:DEVICE@BAUD", "bt:ADDRESS", "ble:ADDRESS",
        or "replay:FILE", what a trace holds
    protocol: one of `protocols()`; empty to have all tried
    unit_system: "metric" or "imperial"
    progress: is given each phase in words
    trace: a new file, which records what goes over the link

    Raises what went wrong: `LinkFailed`, `NoAdapter`, `NoVehicle`, `LinkLost`; `Unusable` for a wrong link and where
    another car is connected; `FileExists`, `NotAFile` for the trace.
    """
    car = Car(unit_system)
    try:
        car._open(link, protocol, progress, trace)
    except BaseException:
        car.close()
        raise
    return car


class Watch(Iterator[Reading]):
    """Readings as they come. Ends after its seconds, by `stop`, and when the car is watched anew or closed.

    Raises `LinkLost`, and `NoData` where nothing comes for 20 seconds. Readings wait for you: up to 10,000, then the
    oldest are dropped and counted.
    """

    def __init__(self, car: Car, core: _core.Watch, ends: bool) -> None:
        self._car = car
        self._core = core
        self._ends = ends

    def __next__(self) -> Reading:
        reading = self._core.next()
        if reading is None:
            raise StopIteration
        return reading

    def stop(self) -> None:
        """Ends it; what has come already is still there."""
        self._core.stop()

    @property
    def sensors(self) -> list[Sensor]:
        """What the control unit offers."""
        return self._core.sensors

    @property
    def missing(self) -> list[str]:
        """What was wished for and is not offered."""
        return self._core.missing

    @property
    def pace(self) -> str:
        """How the car is asked: "single", "grouped", or why not grouped: "declined", "unavailable"."""
        return self._core.pace

    @property
    def dropped(self) -> int:
        return self._core.dropped

    def to_pandas(self) -> pandas.DataFrame:
        """Reads to the end, into a table with a column for each value and the time as its index.

        A row ends when one of its columns has a newer value, and bears the time of its first. Raises `Unusable` for a
        watch without an end, and ImportError without pandas.
        """
        import pandas

        if not self._ends:
            raise Unusable("A watch without an end makes no table.", "Give watch() its seconds.")
        columns: dict[tuple[str, str], str] = {}
        rows: list[dict[str, Any]] = []
        times: list[float] = []
        for reading in self:
            column = columns.setdefault((reading.pid, reading.name), _column(reading, columns))
            if not rows or column in rows[-1]:
                rows.append({})
                times.append(reading.time or 0.0)
            rows[-1][column] = reading.value
        index = pandas.to_datetime(times, unit="s", utc=True)
        return pandas.DataFrame(rows, columns=list(columns.values()), index=index.rename("time"))


def _column(reading: Reading, taken: dict[tuple[str, str], str]) -> str:
    unit = f" [{reading.unit}]" if reading.unit else ""
    name = reading.name + unit
    return name if name not in taken.values() else f"{reading.name} ({reading.pid}){unit}"


class Car:
    """A car that is connected, from `connect` until it is closed, or to the end of its with block.

    Any thread may call it; calls take turns. `unit` is a control unit, by identifier or name. Without it, values come
    from the one that was found first, and sections from all, one each. What a car does not tell is no exception: its
    section has a state and a reason. All calls raise `LinkLost` once the link is lost, `Unusable` after `close`, and
    `Cancelled` where `cancel` or `close` has called them off.
    """

    def __init__(self, unit_system: str = "metric") -> None:
        self._core = _core.Car(unit_system)
        self._link = LinkInfo("", False, "", "", "", "", None)
        self._units: list[ControlUnit] = []
        _cars.add(self)

    def _open(self, link: str, protocol: str, progress: Progress, trace: Path) -> None:
        _log.start()
        self._core.connect(link, protocol, progress, os.fspath(trace))
        self._link = self._core.link()
        self._units = self._core.units()

    def __enter__(self) -> Car:
        return self

    def __exit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        self.close()

    def __repr__(self) -> str:
        connected = f"{self.adapter}, {self.protocol}" if self._units else "not connected"
        state = "closed" if self._core.closed else connected
        return f"<velmara.Car {self.link!r}: {state}>"

    # What was found when the connection opened.

    @property
    def link(self) -> str:
        return self._link.link

    @property
    def adapter(self) -> str:
        return self._link.adapter

    @property
    def protocol(self) -> str:
        return self._link.protocol

    @property
    def units(self) -> list[ControlUnit]:
        return list(self._units)

    @property
    def connected(self) -> bool:
        """Whether the car can be asked: false, too, once the link is lost."""
        return self._core.is_connected()

    def link_info(self) -> LinkInfo:
        """All of the link, with the voltage at this moment."""
        return self._core.link()

    def missing_requests(self) -> Sections[MissingRequest]:
        """What was asked in vain of a trace that is replayed."""
        return sections(self._core.missing_requests())

    # Live values.

    def sensors(self, unit: Optional[str] = None) -> list[Sensor]:
        """What a control unit offers."""
        return self._core.sensors(unit)

    def read(self, pid: str, *, unit: Optional[str] = None) -> Reading:
        """One value: "0C" for a PID, or "consumption", "voltage", "power", "torque", "boost".

        The first of a PID that has several; `read_all` gives them all. Raises `NoData` where none comes.
        """
        return self._core.read([pid], unit)[0]

    def read_all(self, *pids: str, unit: Optional[str] = None) -> Sections[Reading]:
        """All values of these PIDs once, or of all that the unit offers. Those that do not come are missing."""
        return sections(self._core.read(list(pids), unit))

    def watch(
        self, *pids: str, unit: Optional[str] = None, fast: bool = False, seconds: Optional[float] = None
    ) -> Watch:
        """These PIDs, or all, over and over: without an end, or for so many seconds.

        fast: asks for several with one request, where car and protocol know that. Raises `NoData` where the unit offers
        none of them. There is one watch at a time: another one ends it. Other calls may come meanwhile.
        """
        return Watch(self, self._core.watch(list(pids), unit, fast, seconds), seconds is not None)

    # Sections, one for each control unit.

    def codes(
        self, unit: Optional[str] = None, *, make: str = "", progress: Progress = None
    ) -> Sections[Codes]:
        """Trouble codes, and the indicator lamp. `make` prefers the texts of one make."""
        return self._section("codes", unit, make, progress)

    def freeze_frames(
        self, unit: Optional[str] = None, *, make: str = "", progress: Progress = None
    ) -> Sections[FreezeFrames]:
        """What was measured when faults came."""
        return self._section("freeze_frames", unit, make, progress)

    def monitors(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Monitors]:
        """Readiness monitors."""
        return self._section("monitors", unit, "", progress)

    def tests(self, unit: Optional[str] = None, *, progress: Progress = None) -> Sections[Tests]:
        """Results of on-board monitoring."""
        return self._section("tests", unit, "", progress)

    def oxygen_tests(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[OxygenTests]:
        """Oxygen sensor tests, of cars before CAN."""
        return self._section("oxygen_tests", unit, "", progress)

    def info(self, unit: Optional[str] = None, *, progress: Progress = None) -> Sections[Info]:
        """VIN, calibrations and the like."""
        return self._section("info", unit, "", progress)

    def counters(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Counters]:
        """In-use performance counters."""
        return self._section("counters", unit, "", progress)

    def summary(self, unit: Optional[str] = None, *, progress: Progress = None) -> Sections[Summary]:
        """Counts of codes and monitors."""
        return self._section("summary", unit, "", progress)

    def values(self, unit: Optional[str] = None, *, progress: Progress = None) -> Sections[Values]:
        """All live values once, and which of them did not come."""
        return self._section("values", unit, "", progress)

    def routines(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Routines]:
        """The test routines that may be started."""
        return self._section("routines", unit, "", progress)

    def report(
        self, unit: Optional[str] = None, *, make: str = "", live: bool = True, progress: Progress = None
    ) -> Report:
        """All of it, with a verdict; live values take the longest. Where the link is lost on the way, the report is not
        `complete`."""
        return self._core.report(unit, make, live, progress)

    # What acts on the car.

    def clear_codes(self) -> Sections[ClearOutcome]:
        """Clears trouble codes and freeze frames of all control units; monitors start anew. Tells what each answered.

        After an exception it is not known whether codes were cleared.
        """
        return sections(self._core.clear_codes())

    def run_routine(self, id: int, *, unit: Optional[str] = None) -> RoutineOutcome:
        """Starts a test routine, which moves things in the car: ask those who stand beside it first."""
        return self._core.run_routine(id, unit)

    # Ends.

    def cancel(self) -> None:
        """Calls off what other threads wait for. The car stays connected."""
        self._core.cancel(0)

    def close(self) -> None:
        """Ends the connection. Harmless when repeated. Warns of a recorded trace that is not whole."""
        was_open = not self._core.closed
        self._core.close()
        if was_open and (failure := self._core.trace_failure()):
            warnings.warn(f"The trace is not whole. {failure}", RuntimeWarning, stacklevel=2)

    def _section(self, name: str, unit: Optional[str], make: str, progress: Progress) -> Sections[Any]:
        return sections(self._core.section(name, unit, make, progress))


@atexit.register
def _end() -> None:
    for car in list(_cars):
        car.close()
    _log.stop()
    _core.settle()
