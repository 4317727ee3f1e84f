"""Reads tests/requests.txt, which tells its own form in its first lines."""

import os
import shlex
from dataclasses import dataclass, field
from urllib.parse import urlsplit

TABLE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../requests.txt")


@dataclass
class Request:
    method: str
    address: str
    body: str = ""
    headers: dict = field(default_factory=dict)  # values by name, in the order of sending


@dataclass
class Row:
    command: list  # its words
    requests: list = field(default_factory=list)
    headers: dict = field(default_factory=dict)  # that all its requests have besides
    reason: str = ""  # why nothing is sent


def read_table():
    """Every row; its requests have all of their headers."""
    rows, headers_at = [], {}
    for title, lines in _paragraphs():
        if title.startswith("headers at "):
            listed = dict(line.split(": ", 1) for line in lines)
            headers_at.update({host: listed for host in title.split()[2:]})
        else:
            rows.append(_read_row(title, lines, headers_at))
    return rows


def _paragraphs():
    """Each line at the margin, and the indented ones below it."""
    found = []
    with open(TABLE, encoding="utf-8") as table:
        for line in table.read().splitlines():
            if line.startswith(" "):
                found[-1][1].append(line.strip())
            elif line and not line.startswith("#"):
                found.append((line, []))
    return found


def _read_row(title, lines, headers_at):
    row = Row(shlex.split(title))
    for line in lines:
        word, _, rest = line.partition(" ")
        if word == "->":
            row.requests.append(Request(*rest.split(" ", 1)))
        elif word == "with":
            name, value = rest.split(": ", 1)
            (row.requests[-1] if row.requests else row).headers[name] = value
        elif line.startswith("nothing is sent: "):
            row.reason = line.partition(": ")[2]
        elif line.startswith("{") or row.requests[-1].body:
            row.requests[-1].body += line
        else:
            row.requests[-1].address += line
    for request in row.requests:
        common = headers_at.get(urlsplit(request.address).hostname, {})
        request.headers = {**common, **row.headers, **request.headers}
        if request.body:
            request.headers.setdefault("Content-Type", "application/json")
    return row
