"""One car, and all that it tells."""

import gc
import math
import sys
import threading
import time
import weakref

import pytest
import velmara

UNITS = ["7E8 (ECM)", "7E9 (TCM)", "7EB (FPCM)"]


def test_connection(car):
    assert car.link == "demo:petrol-can11" and car.connected
    assert car.adapter == "ELM327 v1.5" and car.protocol == "ISO 15765-4 (CAN 11/500)"
    assert [str(unit) for unit in car.units] == UNITS
    assert car.link_info().simulated and 10 < car.link_info().voltage < 16
    assert "ELM327 v1.5" in repr(car)
    with pytest.raises(velmara.Unusable, match="one at a time.*car.close()"):
        velmara.connect("demo:")
    assert car.connected


def test_one_value(car):
    speed = car.read("0c")
    assert repr(speed).startswith(f"Reading(name='Engine RPM', value={speed.value!r}, unit='rpm', pid='0C'")
    assert 500 < speed.value < 8000 and abs(speed.time - time.time()) < 5
    assert isinstance(car.read("03").value, str)  # a text
    assert {own.pid for own in car.read_all("0C", "voltage", "0D")} == {"0C", "voltage", "0D"}
    assert car.read("0D", unit="TCM").pid == "0D"
    for wrong, kind in [("XX", velmara.Unusable), ("AA", velmara.NoData)]:
        with pytest.raises(kind):
            car.read(wrong)
    with pytest.raises(velmara.NoData, match='no control unit ".nobody".*It has 7E8'):
        car.read("0C", unit="\0nobody")
    for wrong in (-5, 256):
        with pytest.raises(velmara.Unusable, match="from 0 to 255"):
            car.run_routine(wrong)
    offered = {sensor.pid: sensor for sensor in car.sensors()}
    assert offered["0C"].unit == "rpm" and offered["0C"].numeric and not offered["03"].numeric


def test_sections(car):
    codes = car.codes()
    assert [str(own.control_unit) for own in codes] == UNITS
    assert [code.code for code in codes[0].confirmed] == ["P0171", "P0420", "P0301"]
    assert [code.code for code in codes[1].confirmed] == ["P0700"] and codes[2].confirmed == []
    assert codes[0].lamp and codes[0].count == 3 and codes[0].distance.value == 42
    assert codes[2].permanent is None and codes[2].permanent_outcome.state == "no answer"
    assert "P0420" in codes._repr_html_()
    assert car.codes("TCM") == codes[1:2] and car.codes("TCM")[0].to_dict()["confirmed"][0]["code"] == "P0700"

    frame = car.freeze_frames("ECM")[0].frames[0]
    assert frame.code.code == "P0171" and any(own.pid == "0C" for own in frame.readings)
    assert car.monitors("ECM")[0].incomplete == ["Evaporative System"]
    tests = [test for group in car.tests("ECM")[0].groups for test in group.tests]
    assert {test.result for test in tests} == {"passed", "failed", "no result"}
    info = car.info("ECM")[0]
    assert len(info.vin) == 17 and info.vin_check_digit_fits and len(info.calibrations) == len(info.verification_numbers)
    summary = car.summary()[0]
    assert (summary.confirmed, summary.pending, summary.incomplete, summary.freeze_frame) == (3, 1, 1, True)
    assert car.counters("ECM")[0].counters[0].count >= 0
    assert not car.oxygen_tests("ECM")[0].has_content  # ended with CAN
    assert car.routines("ECM")[0].state in ("complete", "not offered")


def test_report_and_progress(car):
    told = []
    report = car.report(live=False, progress=told.append)
    assert told[0].startswith("7E8 (ECM): ") and told[-1].startswith("7EB (FPCM): ")
    assert report.complete and report.verdict.headline == "4 faults stored, lamp on"
    assert report.units[0].codes.confirmed == car.codes("7E8")[0].confirmed
    assert report.units[0].values.state == "not read"
    assert report.to_dict()["units"][0]["identity"]["id"] == "7E8"
    assert "4 faults stored" in report._repr_html_()

    def refuse(words):
        raise ZeroDivisionError(words)

    with pytest.raises(ZeroDivisionError):
        car.report(progress=refuse)
    assert car.connected


def test_watch(car):
    watch = car.watch("0C", "0D", "consumption", "AA", fast=True)
    got = [reading for _, reading in zip(range(30), watch)]
    assert {reading.pid for reading in got} == {"0C", "0D", "consumption"} and watch.missing == ["AA"]
    assert watch.pace == "grouped"
    assert [reading.time for reading in got] == sorted(reading.time for reading in got)
    # Other calls come in between, of other units, too; then it goes on.
    assert car.codes("TCM")[0].confirmed
    assert car.read("0D").pid == "0D"  # of the first unit again
    after = time.time()
    assert next(reading for reading in watch if reading.time > after)
    assert time.time() - after < 10
    # Another watch ends it.
    other = car.watch("05")
    assert all(reading.pid != "05" for reading in watch)
    assert next(other).pid == "05"
    other.stop()
    assert all(reading.pid == "05" for reading in other)
    with pytest.raises(velmara.NoData, match="does not list AA"):
        car.watch("AA")
    for never in (math.nan, math.inf, -1.0, 1e300):
        with pytest.raises(velmara.Unusable, match="number of seconds"):
            car.watch("0C", seconds=never)
    assert list(car.watch("0C", seconds=0)) == []


def test_watch_as_table(car):
    pytest.importorskip("pandas")
    table = car.watch("0C", "0D", seconds=0.5).to_pandas()
    assert list(table.columns) == ["Engine RPM [rpm]", "Vehicle Speed Sensor [km/h]"]
    assert len(table) > 3 and table["Engine RPM [rpm]"].between(500, 8000).all()
    assert table.index.is_monotonic_increasing and table.index.name == "time"
    with pytest.raises(velmara.Unusable, match="seconds"):
        car.watch("0C").to_pandas()


def test_progress_cannot_ask_the_car(car):
    problems = []

    def ask(words):
        try:
            car.read("0C")
        except velmara.Unusable as problem:
            problems.append(problem.message)

    car.codes("ECM", progress=ask)
    assert "busy with another call" in problems[0]
    assert car.read("0C").value > 0


def test_threads_take_turns(car):
    results, problems = [], []

    def work(pid):
        try:
            results.extend(car.read(pid).pid for _ in range(10))
            results.append(len(car.codes("ECM")))
            velmara.lookup("P0420")
        except BaseException as problem:
            problems.append(problem)

    watch = car.watch("11")
    threads = [threading.Thread(target=work, args=[pid]) for pid in ("0C", "0D", "05", "0C")]
    for thread in threads:
        thread.start()
    # The interpreter is free while they wait: this thread gets on.
    turns = 0
    while any(thread.is_alive() for thread in threads):
        turns += 1
        next(watch)
    assert not problems and turns > 10
    assert len(results) == 44 and results.count("0C") == 20
    watch.stop()


def test_other_threads_can_call_off(car):
    raised = []

    def work():
        try:
            car.report()
        except velmara.Error as error:
            raised.append(error)

    thread = threading.Thread(target=work)
    thread.start()
    while thread.is_alive():  # whether it is queued or under way
        car.cancel()
        thread.join(0.01)
    assert isinstance(raised[0], velmara.Cancelled)
    assert car.read("0C").value > 0


def test_nothing_is_kept(car):
    """References: of what is read, of callbacks, and of watches that are dropped."""

    class Listener:
        def __call__(self, words):
            self.words = words

    def round_of_work():
        listener = Listener()
        car.codes("ECM", progress=listener)
        watch = car.watch("0C")
        next(watch)
        return weakref.ref(listener), weakref.ref(watch)

    def counts():
        gc.collect()
        return len(gc.get_objects()), sys.getrefcount(velmara.values.Reading), sys.getrefcount(None)

    for _ in range(2):
        assert [reference() for reference in round_of_work()] == [None, None]
    before = counts()
    for _ in range(5):
        round_of_work()
    after = counts()
    assert all(abs(new - old) < 20 for new, old in zip(after, before)), (before, after)
