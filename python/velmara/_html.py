"""Tables for notebooks. Texts of cars and adapters are not to be trusted."""

from __future__ import annotations

import html
import unicodedata
from typing import TYPE_CHECKING, Any, Iterable, Sequence

if TYPE_CHECKING:
    from . import values

_TONES = {"good": "#1a7f37", "caution": "#9a6700", "bad": "#cf222e"}


def text(value: Any) -> str:
    """Text for a page. What is invisible or turns the direction of writing becomes visible."""
    if value is None:
        return "&ndash;"
    shown = "".join(
        f"\\u{ord(letter):04X}" if unicodedata.category(letter) in ("Cc", "Cf", "Zl", "Zp", "Cs") else letter
        for letter in str(value)
    )
    return html.escape(shown)


def _table(heads: Sequence[str], rows: Iterable[Sequence[Any]]) -> str:
    head = "".join(f"<th>{text(cell)}</th>" for cell in heads)
    body = "".join("<tr>" + "".join(f"<td>{text(cell)}</td>" for cell in row) + "</tr>" for row in rows)
    return f"<table><thead><tr>{head}</tr></thead><tbody>{body}</tbody></table>"


def _rows(code: values.Code) -> Iterable[Sequence[Any]]:
    plain = len(code.meanings) == 1
    for meaning in code.meanings:
        yield code.code, meaning.text, "" if plain else ", ".join(meaning.makes)


def codes(found: Iterable[values.Code]) -> str:
    return _table(("Code", "Text", "Makes"), (row for code in found for row in _rows(code)))


def faults(found: Iterable[values.Codes]) -> str:
    rows: list[Sequence[Any]] = []
    for unit in found:
        title = str(unit.control_unit)
        lamp = {True: "on", False: "off", None: None}[unit.lamp]
        rows.append((title, "lamp", lamp, "", ""))
        for kind in ("confirmed", "pending", "permanent"):
            listed = getattr(unit, kind)
            if not listed:
                rows.append((title, kind, "none" if listed is not None else None, "", ""))
            rows.extend((title, kind, *row) for code in listed or () for row in _rows(code))
    return _table(("Control unit", "Kind", "Code", "Text", "Makes"), rows)


def report(told: values.Report) -> str:
    color = _TONES.get(told.verdict.tone, "inherit")
    lines = [f'<p style="color:{color}"><b>{text(told.verdict.headline)}</b></p>', "<ul>"]
    lines += [f"<li>{text(finding.text)}</li>" for finding in told.verdict.findings]
    lines += ["</ul>", faults(unit.codes for unit in told.units)]
    if told.broken_off:
        lines.append(f"<p>{text(told.broken_off)}</p>")
    return "".join(lines)


def listing(items: Sequence[Any]) -> str:
    """Trouble codes as such, anything else field by field."""
    if not items:
        return _table(("none",), ())
    kind = type(items[0]).__name__
    if kind == "Codes":
        return faults(items)
    if kind == "Code":
        return codes(items)
    heads = list(items[0].__dataclass_fields__)
    return _table(heads, ([getattr(item, head) for head in heads] for item in items))
