"""The page of `--html`: one file that needs nothing else, made of what is in page/ and the data.

All texts in the data come from files that somebody sent. They stand in the page as JSON in which no "<" occurs, so that nothing in
them ends the element or begins a comment, and the scripts show them as text only. The page's own policy forbids whatever is not here:
other scripts and styles, and every request.
"""
from __future__ import annotations

import base64
import hashlib
import json
import pathlib
import re
from collections.abc import Iterator
from typing import Any

BEGIN = b"<!DOCTYPE html>"  # of every page

_FOLDER = pathlib.Path(__file__).resolve().parent / "page"
_SCRIPTS = ("document", "times", "records", "address", "groups", "runs", "dumps", "timeline", "lists", "keys")  # one after the other


def _part(name: str) -> str:
    return (_FOLDER / name).read_text(encoding="utf-8")


def _source(text: str) -> str:
    """The name under which the policy allows an element with this content."""
    return "'sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode() + "'"


def _json(value: Any) -> str:
    # ASCII only: half of a surrogate pair, as damaged text has it, could not be written as UTF-8.
    return json.dumps(value, separators=(",", ":"), allow_nan=False).replace("<", "\\u003c")


def _data(data: dict[str, Any]) -> Iterator[str]:
    """The object member by member, and lists item by item: many runs are never all in memory once more as text."""
    before = "{"
    for name, value in data.items():
        yield f"{before}{_json(name)}:"
        before = ","
        if isinstance(value, list):
            yield "["
            for index, item in enumerate(value):
                yield ("," if index else "") + _json(item)
            yield "]"
        else:
            yield _json(value)
    yield "}" if data else "{}"


def pieces(data: dict[str, Any]) -> Iterator[str]:
    """The page, bit by bit; docs/triage.md describes the data."""
    style, script = _part("page.css"), "\n".join(_part(f"{name}.js") for name in _SCRIPTS)
    policy = "; ".join(("default-src 'none'", f"style-src {_source(style)}", f"script-src {_source(script)}", "base-uri 'none'",
                        "form-action 'none'", "require-trusted-types-for 'script'"))
    values = {"policy": policy, "style": style, "script": script}
    for index, piece in enumerate(re.split(r"\{(policy|style|data|script)\}", _part("page.html"))):
        if index % 2 == 0:
            yield piece
        elif piece == "data":
            yield from _data(data)
        else:
            yield values[piece]

