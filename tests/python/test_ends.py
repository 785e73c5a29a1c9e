"""Losses, and ends at every moment. Most run in processes of their own."""

import asyncio
import math
import signal
import subprocess
import sys
import time

import pytest
import velmara

LINK_LOST_AT = 60  # exchanges; opening takes fewer


def run(program, **options):
    return subprocess.run([sys.executable, "-c", program], capture_output=True, text=True, timeout=90, **options)


def test_loss_and_closing():
    with velmara.Simulator() as simulator:
        car = velmara.connect(simulator.link, protocol="can11-500")
        watch = car.watch("0C")
        next(watch)
        simulator.stop()
        with pytest.raises(velmara.LinkLost, match="tcp:127.0.0.1:.* was lost"):
            for _ in watch:
                pass
        for call in (car.codes, car.report, car.clear_codes, lambda: car.read("0C"), lambda: car.watch("0C")):
            with pytest.raises(velmara.LinkLost):
                call()
        assert not car.connected
        car.close()
        car.close()
        assert list(watch) == [] and not car.connected
        with pytest.raises(velmara.Unusable, match="is closed"):
            car.read("0C")


def test_never_connected():
    car = velmara.Car()
    for call in (car.codes, car.report, car.clear_codes, lambda: car.read("0C"), lambda: car.watch("0C")):
        with pytest.raises(velmara.Unusable, match="is not connected"):
            call()
    assert not car.connected and "not connected" in repr(car)
    car.close()


def test_fork():
    """The car stays that of the parent; the child ends as any other."""
    forked = run(
        "import os, velmara\n"
        "with velmara.connect('demo:', protocol='can11-500') as car:\n"
        "    if os.fork() == 0:\n"
        "        try: car.read('0C')\n"
        "        except velmara.Unusable as unusable: print(unusable)\n"
        "        raise SystemExit(3)\n"
        "    print(os.waitstatus_to_exitcode(os.wait()[1]), car.read('0C').unit)"
    )
    assert "from which this one was forked" in forked.stdout and forked.stdout.endswith("\n3 rpm\n"), forked


def test_report_that_breaks_off():
    with velmara.Simulator(faults=f"close@{LINK_LOST_AT}") as simulator:
        with velmara.connect(simulator.link, protocol="can11-500") as car:
            report = car.report(live=False)
            assert not report.complete and "was lost" in report.broken_off and report.units[0].info.vin


def test_failures_of_opening():
    with velmara.Simulator() as simulator:
        simulator.ignition(False)
        with pytest.raises(velmara.NoVehicle, match="answers, but no vehicle does"):
            velmara.connect(simulator.link, protocol="can11-500")
    with velmara.Simulator(faults="silence@0-") as simulator:
        with pytest.raises(velmara.NoAdapter):
            velmara.connect(simulator.link)


MOMENTS = {
    "opening": "velmara.connect('demo:')",
    "reading": "car = velmara.connect('demo:', protocol='can11-500'); print(flush=True)\nwhile True: car.read('0C')",
    "watching": "car = velmara.connect('demo:', protocol='can11-500'); print(flush=True)\nfor _ in car.watch('0C'): pass",
    "report": "car = velmara.connect('demo:', protocol='can11-500'); print(flush=True)\nwhile True: car.report()",
    "waiting for another thread": """
import threading
car = velmara.connect('demo:', protocol='can11-500')
threading.Thread(target=lambda: [car.report() for _ in range(99)], daemon=True).start()
print(flush=True)
while True: car.codes()""",
    "asynchronous": """
import asyncio
async def work():
    async with velmara.connect_async('demo:', protocol='can11-500') as car:
        print(flush=True)
        async for reading in car.watch('0C'):
            pass
asyncio.run(work())""",
}


def start(program, *arguments):
    return subprocess.Popen([sys.executable, "-c", program, *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE)


def test_interrupt():
    """Ctrl-C raises KeyboardInterrupt at once, and the process ends in order: at several moments, side by side."""
    processes = {moment: start("import velmara\nprint(flush=True)\n" + own) for moment, own in MOMENTS.items()}
    for moment, process in processes.items():
        for _ in range(1 if moment == "opening" else 2):
            process.stdout.readline()
        time.sleep(0.3)  # into what it does
        started = time.monotonic()
        process.send_signal(signal.SIGINT)
        _, complaint = process.communicate(timeout=30)
        assert process.returncode == -signal.SIGINT, (moment, complaint)
        assert b"KeyboardInterrupt" in complaint and b"terminate" not in complaint, moment
        assert time.monotonic() - started < 5, moment


def test_car_lives_on_after_interrupt():
    done = run("""
import _thread, threading, velmara
with velmara.connect("demo:", protocol="can11-500") as car:
    threading.Timer(0.2, _thread.interrupt_main).start()
    try:
        car.report()
    except KeyboardInterrupt:
        print(car.read("0C").name)
""")
    assert done.stdout == "Engine RPM\n", done.stderr


ENDS = [
    "",  # the interpreter ends while a thread polls
    "car.close()",
    "del car, watch",
    "sys.exit(0)",
    "threading.Thread(target=car.report, daemon=True).start()",
    "car.close(); threading.Thread(target=velmara.connect, daemon=True).start(); time.sleep(0.5)",
]


def test_ending_while_polling():
    program = """
import sys, threading, time, velmara
car = velmara.connect("demo:", protocol="can11-500")
watch = car.watch("0C", "0D", fast=True)
threading.Thread(target=lambda own=watch: [0 for _ in own], daemon=True).start()
[car.read("05") for _ in range(3)]
"""
    processes = {end: start(program + end) for end in ENDS}
    for end, process in processes.items():
        _, complaint = process.communicate(timeout=60)
        assert process.returncode == 0 and b"Fatal" not in complaint and b"terminate" not in complaint, (end, complaint)


def test_asynchronous():
    async def work(link):
        told = []
        async with velmara.connect_async(link, protocol="can11-500", progress=told.append) as car:
            assert told[0].startswith("Opening tcp:") and [unit.name for unit in car.units] == ["ECM", "TCM", "FPCM"]
            first, codes = await asyncio.gather(car.read("0C"), car.codes("TCM"))
            assert first.unit == "rpm" and codes[0].confirmed[0].code == "P0700"
            count = 0
            async for reading in car.watch("0C", "0D", fast=True):
                assert not math.isnan(reading.value)
                count += 1
                if count == 10:
                    break
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(car.report(), 0.3)
            # Only its own work is called off.
            patient = asyncio.create_task(car.codes("ECM"))
            await asyncio.sleep(0)
            with pytest.raises(asyncio.TimeoutError):
                await asyncio.wait_for(car.report(), 0.3)
            assert (await patient)[0].has_content
            return car

    with velmara.Simulator() as simulator:
        car = asyncio.run(work(simulator.link))
        assert "closed" in repr(car)


def test_every_car():
    """The simulated cars, each in a process of its own and all at once, as they mostly wait. Those that break rules
    raise nothing but the errors of this package."""
    program = """
import sys, velmara
with velmara.connect("demo:" + sys.argv[1]) as car:
    if sys.argv[1].startswith("odd/"):
        if sys.argv[1] != "odd/groups":  # whose report takes most of a minute
            car.report(live=False)._repr_html_()
        try:
            next(car.watch(fast=True))
            car.read_all()
        except velmara.Error as error:
            print(error)
    else:
        watch = car.watch("0C", fast=True)
        assert 0 <= next(watch).value < 10000
        codes = car.codes()
        assert len(codes) == len(car.units) and any(own.has_content for own in codes)
        assert next(watch).pid == "0C"
        print(car.protocol)
"""
    processes = {name: start(program, name) for name in velmara.vehicles() if name != "odd/asleep"}
    protocols = set()
    for name, process in processes.items():
        said, complaint = process.communicate(timeout=170)
        assert process.returncode == 0, f"{name}: {complaint.decode()}"
        protocols |= {said.decode()} if not name.startswith("odd/") else set()
    assert len(protocols) == 9


def test_traces(tmp_path):
    file = tmp_path / "drive.trace"
    with velmara.connect("demo:", protocol="can11-500", trace=file) as car:
        codes = car.codes("ECM")
    with pytest.raises(velmara.FileExists, match="exists already"):
        velmara.connect("demo:", trace=file)
    with velmara.connect(f"replay:{file}@fast", protocol="can11-500") as car:
        assert car.codes("ECM") == codes and car.link_info().simulated and not car.missing_requests()
        with pytest.raises(velmara.NoData):
            car.read("0C")
        assert [own.request for own in car.missing_requests()] == ["010C"]


def test_trace_that_is_not_whole():
    """Where the disk is full, closing warns of it."""
    done = run("""
import resource, signal, sys, tempfile, velmara
signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
resource.setrlimit(resource.RLIMIT_FSIZE, (200, 200))
with velmara.connect("demo:", protocol="can11-500", trace=tempfile.mktemp()) as car:
    car.read("0C")
""")
    assert done.returncode == 0 and "RuntimeWarning: The trace is not whole." in done.stderr, done.stderr
