"""What needs no car."""

import ast
import inspect
import math
import pathlib
import subprocess
import sys

import pytest
import velmara
from velmara import _core, _html, errors, values

PACKAGE = pathlib.Path(velmara.__file__).parent


def signatures_of_stub(body):
    """Names in the stub with the names of their parameters; None for properties and classes."""
    found = {}
    for node in body:
        if isinstance(node, ast.ClassDef):
            found[node.name] = None
            found.update({f"{node.name}.{name}": own for name, own in signatures_of_stub(node.body).items()})
        elif isinstance(node, ast.FunctionDef):
            is_property = any(getattr(mark, "id", "") == "property" for mark in node.decorator_list)
            found[node.name] = None if is_property else [argument.arg for argument in node.args.args]
    return found


def signatures_of_module(owner):
    """The same of what is compiled, which tells its parameters in the first line of each docstring."""
    found = {}
    for name, member in vars(owner).items():
        if inspect.isclass(member):
            found[name] = None
            found.update({f"{name}.{inner}": own for inner, own in signatures_of_module(member).items()})
        elif isinstance(member, property):
            found[name] = None
        elif callable(member) and (name == "__init__" or not name.startswith("_")):
            line = member.__doc__.splitlines()[0]
            if not line.startswith(name + "("):  # what only the module itself makes
                continue
            inside = line[line.index("(") + 1 : line.rindex(") ->")]
            tree = ast.parse("def f(" + inside.replace("velmara._core.", "").replace("velmara::python::", "") + "): ...")
            found[name] = [argument.arg for argument in tree.body[0].args.args]
    return found


def test_stub_holds():
    stub = signatures_of_stub(ast.parse((PACKAGE / "_core.pyi").read_text()).body)
    assert stub == signatures_of_module(_core)


def test_all_that_is_public_is_typed():
    assert (PACKAGE / "py.typed").exists()
    for name in velmara.__all__:
        thing = getattr(velmara, name)
        members = [thing] if inspect.isfunction(thing) else list(vars(thing).values()) if inspect.isclass(thing) else []
        for member in members:
            member = member.fget if isinstance(member, property) else member
            if inspect.isfunction(member) and not member.__name__.startswith("__"):
                hints = member.__annotations__
                expected = [p for p in inspect.signature(member).parameters if p != "self"] + ["return"]
                assert all(p in hints for p in expected), f"{name}.{member.__name__}"


def test_async_car_has_what_the_car_has():
    def public(kind):
        return {
            name: list(inspect.signature(member).parameters.values()) if inspect.isfunction(member) else None
            for name, member in vars(kind).items()
            if not name.startswith("_")
        }

    plain, asynchronous = public(velmara.Car), public(velmara.AsyncCar)
    assert plain.pop("connected") is None and asynchronous.pop("connected") is not None  # has to ask
    assert plain == asynchronous


def test_codes():
    code = velmara.lookup("p0420")
    assert (code.code, code.system) == ("P0420", "Powertrain")
    assert code.text == "Catalyst System Efficiency Below Threshold Bank 1"
    assert code == velmara.lookup("P0420") and code != velmara.lookup("P0421")
    assert code.to_dict()["meanings"] == [{"text": code.text, "makes": ["Generic"]}]
    assert "Catalyst" in code._repr_html_()
    assert len(velmara.lookup("P1000").meanings) > len(velmara.lookup("P1000", make="ford").meanings) == 1

    found = velmara.search("catalyst", "Below threshold")
    assert code in found and all("catalyst" in own.to_dict()["meanings"][0]["text"].lower() for own in found)
    assert velmara.search("no such word") == []


@pytest.mark.parametrize(
    "call, words",
    [
        (lambda: velmara.lookup("P9"), '"P9" is not a trouble code.'),
        (lambda: velmara.lookup("P0300", make="nobody"), 'There is no make "nobody"'),
        (lambda: velmara.search(" "), "There is no word"),
        (lambda: velmara.connect("nonsense"), "nonsense"),
        (lambda: velmara.connect("demo:no-such-car"), "no-such-car"),
        (lambda: velmara.connect(protocol="morse"), "morse"),
        (lambda: velmara.connect(unit_system="parsec"), "unit system"),
        (lambda: velmara.Simulator("no-such-car"), "no-such-car"),
        (lambda: velmara.Simulator("/dev/zero"), "no file of text"),
        (lambda: velmara.connect(trace="/no/such/folder/trace"), "/no/such/folder"),
        (lambda: velmara.devices(bluetooth=True, seconds=math.nan), "number of seconds"),
        (lambda: velmara.Simulator(adapter="none"), '"none"'),
        (lambda: velmara.Simulator(faults="gremlins"), "gremlins"),
    ],
)
def test_wrong_input_is_said_in_words(call, words):
    with pytest.raises(velmara.Unusable, match=words):
        call()


def test_failures_have_classes():
    kinds = [kind for kind in vars(errors).values() if inspect.isclass(kind) and issubclass(kind, velmara.Error)]
    assert len(kinds) == 10 and all(kind.__name__ in velmara.__all__ for kind in kinds)
    error = velmara.NoData("It fails.", "Try again.")
    assert (str(error), error.message, error.advice) == ("It fails. Try again.", "It fails.", "Try again.")
    with pytest.raises(velmara.LinkFailed) as raised:
        velmara.connect("tcp:127.0.0.1:1")
    assert "tcp:127.0.0.1:1 cannot be opened" in raised.value.message


def test_pages_withstand_hostile_texts():
    evil = "<script>alert(1)</script>\x07\u202e&\"'"
    unit = values.ControlUnit("7E8", evil)
    outcome = values.Outcome("read")
    code = values.Code("P0300", evil, [values.Meaning(evil, [evil]), values.Meaning(evil, [])])
    codes = values.Codes(unit, "complete", evil, True, 1, None, None, [code], [], None, *[outcome] * 4)
    monitors = values.Monitors(unit, "complete", evil, [values.Monitor(evil, evil)], None, outcome, outcome)
    pages = [code._repr_html_(), codes._repr_html_()]
    pages += [values.Sections([own])._repr_html_() for own in (code, codes, monitors)] + [_html.text(evil)]
    for page in pages:
        assert "<script" not in page and "\x07" not in page and "\u202e" not in page
        assert "&lt;script&gt;" in page and "\\u202E" in page


def test_devices():
    for device in velmara.devices():
        assert device.link.startswith("serial:/dev/")
    found = velmara.devices(bluetooth=True, seconds=0.5)
    assert found[: len(velmara.devices())] == velmara.devices()
    assert all(device.link or device.problem for device in found)
    assert found.to_dicts() == [device.to_dict() for device in found]


def test_log(tmp_path):
    """In a process of its own, as a log belongs to the process."""
    program = """
import logging, velmara
logging.basicConfig(filename=%r, level=logging.DEBUG, format="%%(name)s %%(levelname)s %%(message)s")
try:
    velmara.connect("tcp:127.0.0.1:1")
except velmara.LinkFailed:
    pass
""" % str(tmp_path / "log")
    subprocess.run([sys.executable, "-c", program], check=True, timeout=60)
    lines = (tmp_path / "log").read_text().splitlines()
    assert all(line.startswith("velmara ") for line in lines)
    assert "velmara CRITICAL Failed to open connection" in lines
    assert lines[-1] == "velmara INFO Lib OBD cleanup done"  # none is lost at the end
