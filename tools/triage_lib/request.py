"""A command line of the host, in words. It is taken apart as the module does it."""
from __future__ import annotations

import functools
from collections.abc import Iterable

from .model import Request

LONGEST_KEPT = 4096  # characters of a command line that is not taken apart anew when it comes again
_PRODUCTS = {"antivirus": "the anti-virus", "antispyware": "the anti-spyware", "firewall": "the firewall"}
_MODES = ("av", "as", "fw", "svc")  # the first one that is present counts
_ACTIONS = {
    "svc": ("update", "register", "unregister"),
    "av": ("enable", "disable", "update", "upgrade"),
    "as": ("enable", "disable"),
    "fw": ("enable",),
}
_VALUES = {"state": ("on", "off", "snoozed"), "signatures": ("up_to_date", "out_of_date")}
_ASKED = {
    "enable": "switch the protection on",
    "disable": "switch the protection off",
    "update": "update the suite",
    "upgrade": "upgrade the suite",
}


def tokens(text: str) -> list[str]:
    """Blanks separate, unless they stand in quotes; two quotes in a row are one that is meant. Behind a blank a token begins, be it
    an empty one."""
    found: list[str] = []
    token: list[str] | None = None
    quoted = False
    at = 0
    while at < len(text):
        character = text[at]
        if not quoted and character in " \t\r\n":
            while text[at + 1:at + 2] and text[at + 1] in " \t\r\n":
                at += 1
            if token is not None:
                found.append("".join(token))
            token = []
        elif character == '"' and text[at + 1:at + 2] != '"':
            quoted = not quoted
        else:
            at += character == '"'
            token = token or []
            token.append(character)
        at += 1
    if token is not None:
        found.append("".join(token))
    return found


def _list(words: list[str]) -> str:
    return " and ".join(filter(None, (", ".join(words[:-1]), words[-1]))) if words else ""


def _slashed(names: Iterable[str]) -> str:
    return ", ".join("/" + name for name in names)


def _told(action: str, products: list[str], state: str, signatures: str) -> str:
    if not action:
        return f"nothing: none of the actions {_slashed(_ACTIONS['svc'])} is there"
    if not products:
        return f"nothing: none of the products {_slashed(_PRODUCTS)} is there"
    names = _list([_PRODUCTS[product] for product in products])
    if action == "update":
        news = f"“{state}”" + (f", signatures “{signatures}”" if products != ["firewall"] else "")
        return f"tell Security Center about {names}: {news}"
    return f"{action} {names} {'with' if action == 'register' else 'from'} Security Center"


def _asked(mode: str, present: list[str]) -> str:
    product = {"av": "anti-virus", "as": "anti-spyware", "fw": "firewall"}[mode]
    if not present:
        return f"nothing: none of the actions {_slashed(_ACTIONS[mode])} is there"
    return f"Security Center asks the {product} to " + _list([_ASKED[action] for action in present])


def describe(command_line: str) -> Request:
    return _describe_again(command_line) if len(command_line) < LONGEST_KEPT else _describe(command_line)


@functools.lru_cache(256)
def _describe_again(command_line: str) -> Request:
    return _describe(command_line)


def _describe(command_line: str) -> Request:
    switches: dict[str, str] = {}
    wrong: list[str] = []
    given: list[tuple[str, str]] = []
    for token in tokens(command_line)[1:]:
        if token.startswith("/"):
            name, _, value = token[1:].partition(":")
            switches[name.lower()] = value
            given.append((name.lower(), token))
        elif token:
            wrong.append(token)
    mode = next((name for name in _MODES if name in switches), None)
    if mode is None:
        return Request(None, None, (), None, None, "nothing: none of the modes /svc, /av, /as, /fw is there", tuple(wrong))
    present = [action for action in _ACTIONS[mode] if action in switches]
    action = present[0] if present else ""
    products = [product for product in _PRODUCTS if product in switches] if mode == "svc" else []
    state, signatures = switches.get("state"), switches.get("signatures")
    checked = {"state": state} if products == ["firewall"] else {"state": state, "signatures": signatures}
    for name, token in given:
        bad_value = mode == "svc" and action == "update" and name in checked and switches[name] not in _VALUES[name]
        known = name in (*_ACTIONS[mode], *_MODES) or (mode == "svc" and name in (*_PRODUCTS, *_VALUES))
        if bad_value or not known:
            wrong.append(token)
    if mode == "svc":
        words = _told(action, products, state or "", signatures or "")
    else:
        words = _asked(mode, [name for name in present if not (name == "disable" and "enable" in present)])
    return Request(mode, action or None, tuple(products), state, signatures, words, tuple(wrong))
