"""What docs/python.md and the examples say, as it is."""

import csv
import importlib.util
import pathlib
import re
import subprocess
import sys

import velmara

TOP = pathlib.Path(__file__).resolve().parents[2]


def test_guide():
    """All Python of the guide, side by side from each block on that opens a link."""
    guide = (TOP / "docs" / "python.md").read_text()
    blocks = re.findall(r"^```python\n(.*?)^```$", guide, flags=re.M | re.S)
    assert len(blocks) > 8
    if "pandas" not in sys.modules and importlib.util.find_spec("pandas") is None:
        blocks = [block for block in blocks if "to_pandas" not in block]
    programs = [["import velmara\n"]]
    for block in blocks:
        if "connect" in block:
            programs.append(["import velmara\n"])
        programs[-1].append(block)
    pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.PIPE, "text": True}
    processes = [subprocess.Popen([sys.executable, "-c", "".join(program)], **pipes) for program in programs]
    said = ""
    for process, program in zip(processes, programs):
        out, complaint = process.communicate(timeout=90)
        assert process.returncode == 0, (program, complaint)
        said += out
    assert said.startswith("Opening demo:petrol-can11") and "ELM327 v1.5 ISO 15765-4 (CAN 11/500) ['ECM', " in said
    assert "Reading(name='Engine RPM'" in said and "Fuel consumption" in said
    assert re.search(r"^7E9 \(TCM\) \w+ \['P0700 ", said, flags=re.M)
    assert "4 faults stored, lamp on" in said and "tcp:127.0.0.1:1 cannot be opened" in said


def test_guide_names_what_there_is():
    guide = (TOP / "docs" / "python.md").read_text()
    for owner, prefix in ((velmara.Car, "car"), (velmara, "velmara")):
        for name in re.findall(rf"`{prefix}\.(\w+)", guide):
            assert hasattr(owner, name), name


def example(name):
    spec = importlib.util.spec_from_file_location(name, TOP / "examples" / "python" / f"{name}.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def test_log(tmp_path, capsys):
    file = tmp_path / "trip.csv"
    example("log").main(str(file), "1")
    rows = list(csv.DictReader(file.open()))
    assert {row["pid"] for row in rows} == {"0C", "0D", "05"} and all(float(row["value"]) >= 0 for row in rows)
    assert f"{len(rows)} readings are in" in capsys.readouterr().out


def test_readiness(capsys):
    assert not example("readiness").main("demo:petrol-can11", "demo:petrol-can29", "tcp:127.0.0.1:1")
    said = capsys.readouterr().out
    assert "demo:petrol-can11 " in said and "  7E8 (ECM): P0171 " in said
    assert "  7E8 (ECM): Evaporative System incomplete" in said
    assert "tcp:127.0.0.1:1 : NOT READY" in said


def test_plot():
    """Without a screen: the lines that would be drawn."""
    drawn = []
    with velmara.connect("demo:", protocol="can11-500") as car:
        example("plot").follow(car.watch("0C", "03", fast=True, seconds=2), lambda lines: drawn.append(dict(lines)))
    assert len(drawn) > 3 and list(drawn[-1]) == ["Engine RPM [rpm]"]
    times = [time for time, _ in drawn[-1]["Engine RPM [rpm]"]]
    assert times == sorted(times) and times[0] >= 0
