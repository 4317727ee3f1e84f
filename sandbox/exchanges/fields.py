"""The fields of an answer: a table of NAME=WORD, where NAME alone stands for NAME=NAME.

A WORD is a member of the record (or member.member), in the exchange's word for its value where it
has one, else a decimal as text and true and false as JSON's own; or

    -member      its negative
    #member      a number in JSON
    member?      empty text when it is 0
    'text'       that text; '' is a field that is empty on purpose
    0, true      that number or truth
"""

import json
from collections.abc import Mapping
from decimal import Decimal
from operator import attrgetter
from typing import Any


def row(table: str, record: Any, words: Mapping[Any, Any], unit_ms: int) -> dict[str, Any]:
    """`words` by the value that they stand for; a time as a number is in units of `unit_ms`.

    Raises AttributeError for a member that the record has not.
    """
    pairs = (field.partition("=") for field in table.split())
    return {name: _value(word or name, record, words, unit_ms) for name, _, word in pairs}


def plain(value: Decimal) -> str:
    """Decimal text without exponent and without needless zeros."""
    text = f"{value:.8f}".rstrip("0").rstrip(".")
    return "0" if text == "-0" else text


def _value(word: str, record: Any, words: Mapping[Any, Any], unit_ms: int) -> Any:
    if word[0] == word[-1] == "'":
        return word.strip("'")
    if word in ("true", "false") or word.isdecimal():
        return json.loads(word)
    value = attrgetter(word.strip("#-?"))(record)
    if word[-1] == "?" and not value:
        return ""
    if word[0] == "#":
        number = Decimal(value) / (unit_ms if word.endswith("_ms") else 1)
        return int(number) if number == int(number) else float(number)
    if word[0] == "-":
        return plain(-value)
    if isinstance(value, (str, bool)):
        return words.get(value, value)
    return plain(value) if isinstance(value, Decimal) else str(value)
