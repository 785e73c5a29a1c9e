"""What a car tells, as plain values: they print, compare, and become dictionaries by `to_dict`."""

from __future__ import annotations

import dataclasses
from typing import Any, Generic, Iterable, List, Optional, TypeVar, Union

from . import _html

_value = dataclasses.dataclass(frozen=True)


class _Value:
    def to_dict(self) -> dict[str, Any]:
        """All of it, down to lists, texts and numbers."""
        return dataclasses.asdict(self)  # type: ignore[call-overload]


@_value
class ControlUnit(_Value):
    """A control unit of the car."""

    id: str  #: as it stands on the bus: "7E8", "10", "18DAF110"
    name: str
    protocol: str = dataclasses.field(default="", repr=False)

    def __str__(self) -> str:
        return f"{self.id} ({self.name})"


@_value
class Reading(_Value):
    """One value. A number is a float, None where it is not finite; anything else is a text."""

    name: str
    value: Union[float, str, None]
    unit: str  #: empty for plain numbers and texts
    pid: str  #: two hexadecimal digits, or the name of a calculated value
    time: Optional[float] = None  #: when it came, in seconds since 1970; None within sections


@_value
class Sensor(_Value):
    """A value that a control unit offers."""

    pid: str
    name: str
    unit: str
    numeric: bool
    lowest: Optional[float]  #: the ends of the range; None where it is open
    highest: Optional[float]


@_value
class Outcome(_Value):
    """What came of one question: "read", "refused", "no answer", "unusable", "not offered" or "not read"."""

    state: str
    reason: str = ""  #: why the control unit refused


@_value
class Meaning(_Value):
    """One text of a trouble code, and the makes that have it in these words."""

    text: str
    makes: List[str]


@_value
class Code(_Value):
    """A trouble code with all its texts."""

    code: str
    system: str
    meanings: List[Meaning]

    @property
    def text(self) -> str:
        """The first of its texts."""
        return self.meanings[0].text if self.meanings else ""

    def __str__(self) -> str:
        return f"{self.code} {self.text}"

    def _repr_html_(self) -> str:
        return _html.codes([self])


@_value
class Amount(_Value):
    """A number with its unit."""

    value: Optional[float]
    unit: str


@_value
class Section(_Value):
    """What one control unit tells of one matter. What it did not tell is None, or an empty list."""

    control_unit: ControlUnit
    #: "complete", "partial", "no answer", "refused", "unusable", "not offered", "not listed" or "not read"
    state: str
    reason: str  #: a sentence; empty where all is there

    @property
    def has_content(self) -> bool:
        """Whether anything was told."""
        return self.state in ("complete", "partial")


@_value
class Codes(Section):
    """Trouble codes, and the indicator lamp (MIL)."""

    lamp: Optional[bool]
    count: Optional[int]  #: confirmed codes as the unit counts them beside the lamp
    distance: Optional[Amount]  #: since the fault if the lamp is on, else since codes were cleared
    run_time: Optional[Amount]
    confirmed: Optional[List[Code]]
    pending: Optional[List[Code]]
    permanent: Optional[List[Code]]
    lamp_outcome: Outcome
    confirmed_outcome: Outcome
    pending_outcome: Outcome
    permanent_outcome: Outcome

    def _repr_html_(self) -> str:
        return _html.faults([self])


@_value
class FreezeFrame(_Value):
    """What was measured when a fault came."""

    number: int
    code: Code
    readings: List[Reading]
    failures: int  #: values that the unit names but did not give


@_value
class FreezeFrames(Section):
    frames: List[FreezeFrame]


@_value
class Monitor(_Value):
    name: str
    status: str  #: "complete", "incomplete", "disabled" (in this driving cycle) or "not available"


@_value
class Monitors(Section):
    """Readiness monitors."""

    since_reset: Optional[List[Monitor]]
    this_cycle: Optional[List[Monitor]]  #: None, too, where the unit does not offer it
    since_reset_outcome: Outcome
    this_cycle_outcome: Outcome

    @property
    def incomplete(self) -> Optional[List[str]]:
        """Names of the monitors that have not run to their end since codes were cleared."""
        if self.since_reset is None:
            return None
        return [monitor.name for monitor in self.since_reset if monitor.status == "incomplete"]


@_value
class Test(_Value):
    id: str
    name: str
    value: Optional[float]
    minimum: Optional[float]  #: None if there is no such limit
    maximum: Optional[float]
    unit: str
    result: str  #: "passed", "failed" or "no result"


@_value
class TestGroup(_Value):
    """The tests of one monitor, component or oxygen sensor."""

    id: str
    name: str
    tests: List[Test]


@_value
class Tests(Section):
    """Results of on-board monitoring."""

    groups: List[TestGroup]


@_value
class OxygenTests(Tests):
    """Oxygen sensor tests of cars before CAN; the groups are the sensors."""

    monitor_complete: Optional[bool]


@_value
class Info(Section):
    """What identifies car and software."""

    vin: Optional[str]
    vin_check_digit_fits: Optional[bool]  #: None where the VIN has not the form of a North American one
    model_year: Optional[int]
    calibrations: Optional[List[str]]
    verification_numbers: Optional[List[str]]  #: of the calibrations (CVN)
    serial_number: Optional[str]  #: of the engine
    approval_number: Optional[str]
    vin_outcome: Outcome
    calibrations_outcome: Outcome
    verification_numbers_outcome: Outcome
    serial_number_outcome: Outcome
    approval_number_outcome: Outcome


@_value
class Counter(_Value):
    name: str
    count: Optional[float]


@_value
class Counters(Section):
    """In-use performance counters."""

    counters: List[Counter]


@_value
class Routine(_Value):
    id: int
    name: str
    instructions: str


@_value
class Routines(Section):
    """The test routines that may be started."""

    routines: List[Routine]


@_value
class RoutineOutcome(_Value):
    result: str  #: "accepted", "refused", "too short" or "no answer"
    reason: str


@_value
class Values(Section):
    """One reading of each live value."""

    readings: List[Reading]
    silent: List[str]  #: what did not come


@_value
class Summary(Section):
    """A few counts."""

    confirmed: Optional[int]
    count: Optional[int]
    pending: Optional[int]
    complete: Optional[int]  #: readiness monitors
    incomplete: Optional[int]
    freeze_frame: Optional[bool]
    confirmed_outcome: Outcome
    pending_outcome: Outcome
    monitors_outcome: Outcome
    freeze_frame_outcome: Outcome


@_value
class ClearOutcome(_Value):
    """What a control unit answered when it was to clear."""

    control_unit: ControlUnit
    result: str  #: "acknowledged", "refused" or "no answer"
    reason: str


@_value
class LinkInfo(_Value):
    """The way to the car."""

    link: str
    simulated: bool
    adapter: str
    description: str
    identifier: str
    protocol: str
    voltage: Optional[float]  #: at the adapter


@_value
class Device(_Value):
    """A link on which an adapter may be."""

    link: str
    name: str  #: what the device says of itself; empty if nothing
    problem: str = ""  #: why it cannot be used, as far as that is known


@_value
class MissingRequest(_Value):
    """A request to which a replayed trace has no answer."""

    request: str  #: as it went to the adapter
    count: int  #: how often it was sent


@_value
class OfferedItem(_Value):
    id: str
    name: str


@_value
class OfferedService(_Value):
    number: str
    title: str
    told: bool  #: whether the unit has told what it offers
    items: List[OfferedItem]


@_value
class Identity(_Value):
    """A control unit as it was found when the connection opened."""

    id: str
    name: str
    description: str
    standard: str
    ignition: str
    services: List[OfferedService]


@_value
class Finding(_Value):
    tone: str  #: "note", "good", "caution" or "bad"
    text: str


@_value
class Verdict(_Value):
    """What a report comes to."""

    tone: str
    headline: str
    findings: List[Finding]


@_value
class UnitReport(_Value):
    """All that one control unit tells."""

    identity: Identity
    info: Info
    codes: Codes
    freeze_frames: FreezeFrames
    monitors: Monitors
    tests: Tests
    oxygen_tests: OxygenTests
    counters: Counters
    routines: Routines
    values: Values


@_value
class Report(_Value):
    """All that a car tells."""

    time: float  #: in seconds since 1970
    unit_system: str
    link: LinkInfo
    verdict: Verdict
    broken_off: str  #: why reading ended early; empty if it did not
    units: List[UnitReport]

    @property
    def complete(self) -> bool:
        return not self.broken_off

    def _repr_html_(self) -> str:
        return _html.report(self)


_Item = TypeVar("_Item", bound=_Value)


class Sections(List[_Item], Generic[_Item]):
    """A list of values of one kind, one for each control unit or code, which notebooks show as a table."""

    def to_dicts(self) -> list[dict[str, Any]]:
        return [item.to_dict() for item in self]

    def _repr_html_(self) -> str:
        return _html.listing(self)


def sections(items: Iterable[_Item]) -> Sections[_Item]:
    return Sections(items)
