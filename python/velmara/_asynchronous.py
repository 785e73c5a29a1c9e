"""The same for asyncio: what waits runs on a thread of the event loop's executor."""

from __future__ import annotations

import asyncio
import threading
from types import TracebackType
from typing import Any, AsyncIterator, Callable, Generator, Optional, Type, TypeVar

from ._car import Car, Path, Progress, Watch
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
)

_Result = TypeVar("_Result")


class connect_async:
    """`connect` for asyncio: `async with velmara.connect_async("demo:") as car`, or `car = await ...`.

    Takes what `connect` takes. `progress` is called on the event loop.
    """

    def __init__(
        self,
        link: str = "demo:",
        *,
        protocol: str = "",
        unit_system: str = "metric",
        progress: Progress = None,
        trace: Path = "",
    ) -> None:
        self._link = link
        self._protocol = protocol
        self._unit_system = unit_system
        self._progress = progress
        self._trace = trace
        self._car: Optional[AsyncCar] = None

    async def _connect(self) -> AsyncCar:
        car = AsyncCar(await asyncio.to_thread(Car, self._unit_system))
        try:
            await car._run(car._car._open, self._link, self._protocol, _on_loop(self._progress), self._trace)
        except BaseException:
            await car.close()
            raise
        return car

    def __await__(self) -> Generator[Any, None, AsyncCar]:
        return self._connect().__await__()

    async def __aenter__(self) -> AsyncCar:
        self._car = await self._connect()
        return self._car

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        if self._car is not None:
            await self._car.close()


class AsyncWatch(AsyncIterator[Reading]):
    """`Watch` for asyncio. It begins with the first reading that is waited for."""

    def __init__(self, car: AsyncCar, begin: Callable[[], Watch]) -> None:
        self._car = car
        self._begin = begin
        self._watch: Optional[Watch] = None

    async def __anext__(self) -> Reading:
        if self._watch is None:
            self._watch = await self._car._run(self._begin)
        try:
            reading = await asyncio.to_thread(self._watch._core.next)
        except asyncio.CancelledError:
            self.stop()
            raise
        if reading is None:
            raise StopAsyncIteration
        return reading

    def stop(self) -> None:
        if self._watch is not None:
            self._watch.stop()


class AsyncCar:
    """`Car` for asyncio: what waits is to be awaited. A task that is cancelled calls off what the car does for it."""

    def __init__(self, car: Car) -> None:
        self._car = car

    async def _run(self, work: Callable[..., _Result], *args: Any, **options: Any) -> _Result:
        if "progress" in options:
            options["progress"] = _on_loop(options["progress"])
        threads: list[int] = []

        def call() -> _Result:
            threads.append(threading.get_ident())
            try:
                return work(*args, **options)
            finally:
                threads.clear()

        try:
            return await asyncio.to_thread(call)
        except asyncio.CancelledError:
            while own := list(threads):  # until it has heard of it, as it may be about to ask
                self._car._core.cancel(own[0])
                await asyncio.sleep(0.01)
            raise

    async def __aenter__(self) -> AsyncCar:
        return self

    async def __aexit__(
        self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: Optional[TracebackType]
    ) -> None:
        await self.close()

    def __repr__(self) -> str:
        return repr(self._car).replace("Car", "AsyncCar", 1)

    @property
    def link(self) -> str:
        return self._car.link

    @property
    def adapter(self) -> str:
        return self._car.adapter

    @property
    def protocol(self) -> str:
        return self._car.protocol

    @property
    def units(self) -> list[ControlUnit]:
        return self._car.units

    async def connected(self) -> bool:
        return await self._run(lambda: self._car.connected)

    async def link_info(self) -> LinkInfo:
        return await self._run(self._car.link_info)

    async def missing_requests(self) -> Sections[MissingRequest]:
        return await self._run(self._car.missing_requests)

    async def sensors(self, unit: Optional[str] = None) -> list[Sensor]:
        return await self._run(self._car.sensors, unit)

    async def read(self, pid: str, *, unit: Optional[str] = None) -> Reading:
        return await self._run(self._car.read, pid, unit=unit)

    async def read_all(self, *pids: str, unit: Optional[str] = None) -> Sections[Reading]:
        return await self._run(self._car.read_all, *pids, unit=unit)

    def watch(
        self, *pids: str, unit: Optional[str] = None, fast: bool = False, seconds: Optional[float] = None
    ) -> AsyncWatch:
        return AsyncWatch(self, lambda: self._car.watch(*pids, unit=unit, fast=fast, seconds=seconds))

    async def codes(
        self, unit: Optional[str] = None, *, make: str = "", progress: Progress = None
    ) -> Sections[Codes]:
        return await self._run(self._car.codes, unit, make=make, progress=progress)

    async def freeze_frames(
        self, unit: Optional[str] = None, *, make: str = "", progress: Progress = None
    ) -> Sections[FreezeFrames]:
        return await self._run(self._car.freeze_frames, unit, make=make, progress=progress)

    async def monitors(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Monitors]:
        return await self._run(self._car.monitors, unit, progress=progress)

    async def tests(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Tests]:
        return await self._run(self._car.tests, unit, progress=progress)

    async def oxygen_tests(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[OxygenTests]:
        return await self._run(self._car.oxygen_tests, unit, progress=progress)

    async def info(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Info]:
        return await self._run(self._car.info, unit, progress=progress)

    async def counters(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Counters]:
        return await self._run(self._car.counters, unit, progress=progress)

    async def summary(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Summary]:
        return await self._run(self._car.summary, unit, progress=progress)

    async def values(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Values]:
        return await self._run(self._car.values, unit, progress=progress)

    async def routines(
        self, unit: Optional[str] = None, *, progress: Progress = None
    ) -> Sections[Routines]:
        return await self._run(self._car.routines, unit, progress=progress)

    async def report(
        self, unit: Optional[str] = None, *, make: str = "", live: bool = True, progress: Progress = None
    ) -> Report:
        return await self._run(self._car.report, unit, make=make, live=live, progress=progress)

    async def clear_codes(self) -> Sections[ClearOutcome]:
        return await self._run(self._car.clear_codes)

    async def run_routine(self, id: int, *, unit: Optional[str] = None) -> RoutineOutcome:
        return await self._run(self._car.run_routine, id, unit=unit)

    def cancel(self) -> None:
        self._car.cancel()

    async def close(self) -> None:
        await asyncio.shield(asyncio.to_thread(self._car.close))


def _on_loop(progress: Progress) -> Progress:
    """The same, but called on the event loop."""
    if progress is None:
        return None
    loop = asyncio.get_running_loop()
    return lambda words: loop.call_soon_threadsafe(progress, words) and None
