"""A trader's day, step by step. Runs inside the sandbox: everyone outside is a stand-in.

demo.py [--full]: of each answer what matters; with --full the answer itself as well.
Exit status 1, and the step's name, when an answer is not what the story needs.
"""

from __future__ import annotations

import os
import shutil
import signal
import subprocess
import sys
import textwrap
import time
from decimal import Decimal
from typing import Any, List

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "../examples"))
import answers  # noqa: E402

BOLD, DIM, RED, GREEN, PLAIN = "\033[1m", "\033[2m", "\033[31m", "\033[32m", "\033[0m"
SWITCHES = "http://sandbox.control/"
SECURITY = "/usr/bin/security"  # a Mac's way to its keychain
CHAPTERS = 9
WIDTH = 80
SIZE = Decimal("0.1")  # of each leg, in BTC; ten contracts of 0.01 on OKX


class StoryBroken(Exception):
    """Why an answer is not what the story needs, and the answer."""


def tell_the_day(stage: "Stage") -> None:
    stage.write("A trader's day with morvane-connector. The exchanges, the relay and the\n"
                "download host are stand-ins; the program and its tools are not.")
    keep_keys(stage)
    show_where_they_went(stage)
    show_balances(stage)
    short = open_short(stage)
    long = open_long(stage)
    cancel_an_order(stage)
    close_both(stage, long, short)
    pair_and_update(stage)
    show_what_left(stage)
    stage.write("\nNext:")
    stage.write("./dev sandbox       a shell in this world, for a day of your own\n"
                "./dev demo --full   this day with every answer in full\n"
                "README.md           with keys of your own", indent=4)


def keep_keys(stage: "Stage") -> None:
    stage.chapter("A key is proved live before it is kept")
    stage.command("morvane-connector validate EXCHANGE KEY SECRET [PASSPHRASE]")
    stage.write(f"{'exchange':10}{'status':20}{'reads':8}{'trades':8}kept", DIM, 4)
    for name in answers.UNITS:
        phrase = " demo-passphrase" if name in ("okx", "kucoin", "bitget") else ""
        found = stage.connector(f"validate {name} demo-{name}-key demo-{name}-secret{phrase}",
                                quiet=True)
        row = f"{name:10}{found['status']:20}{found['can_read']:8}{found['can_trade']:8}"
        stage.expect(found["credentials_saved"] == "true", "the key was not kept")
        stage.write(row + stage.colour("yes", GREEN), indent=4)
    stage.write("With a wrong secret it is not; the key that was kept stays:")
    found = stage.connector("validate gate demo-gate-key wrong-secret", exits=2)
    stage.expect(found["credentials_saved"] == "false", "a wrong key was kept")
    stage.write(stage.colour("not kept: ", RED) + f"{found['status']}, "
                + " ".join(found["reason"].split()), indent=4)


def show_where_they_went(stage: "Stage") -> None:
    stage.chapter("Where the keys went: nowhere but here")
    stage.command("ls -l ~/.morvane-connector/vault")
    listing = stage.run(["ls", "-l", os.path.expanduser("~/.morvane-connector/vault")])
    stage.write("\n".join(line for line in listing.splitlines() if line.startswith("-")),
                indent=4)
    if ".vault" in listing:
        stage.write("This machine has no keychain that takes them: each is a file that only\n"
                    "its owner can read. On a Mac they are in the login keychain.", indent=4)
    else:
        for name in answers.UNITS:
            item = f"find-generic-password -s morvane.connector.{name} -a {name}"
            stage.run([SECURITY, *item.split()])
        stage.write("Only their names: the six keys are items of the keychain.", indent=4)


def show_balances(stage: "Stage") -> None:
    stage.chapter("Six exchanges, six balances")
    stage.command("morvane-connector balance EXCHANGE")
    stage.write(f"{'exchange':10}{'equity USDT':>12}{'available':>12}", DIM, 4)
    for name in answers.UNITS:
        money = answers.balance(name, stage.connector(f"balance {name}", quiet=True))
        stage.write(f"{name:10}{money.equity:>12.2f}{money.available:>12.2f}", indent=4)


def open_short(stage: "Stage") -> answers.Position:
    stage.chapter("Short on OKX at 50000; the answer is lost, and found again")
    stage.switch("lose/okx")
    answer = stage.connector("place-open okx BTC_USDT sell 10 50000 5")
    stage.expect(answer.get("reason") == "http_failed", "the answer is not lost")
    stage.write(stage.colour("error: http_failed", RED) + ", and nobody knows whether it is there",
                indent=4)
    stage.write("Never send it again before you have looked:")
    return stage.position("okx", "short")


def open_long(stage: "Stage") -> answers.Position:
    stage.chapter("Long on Bybit: the order rests below the price until somebody sells")
    body = stage.connector("place-open bybit BTC_USDT buy 0.1 49800 5")
    order_id = answers.placed_id("bybit", body["place"])
    stage.write(f"order {order_id}", indent=4)
    stage.order("bybit", order_id, "open")
    stage.switch("mark/BTC/49800")
    stage.order("bybit", order_id, "filled")
    return stage.position("bybit", "long")


def cancel_an_order(stage: "Stage") -> None:
    stage.chapter("An order that nobody takes is cancelled")
    body = stage.connector("place-open gate ETH_USDT buy 3 2000 5")
    order = answers.order("gate", body["place"])
    stage.write(f"order {order.id}: {order.state}", indent=4)
    order = answers.order("gate", stage.connector(f"cancel-order gate ETH_USDT {order.id}"))
    stage.expect(order.state == "cancelled", "the order is not cancelled")
    stage.write(f"order {order.id}: {order.state}", indent=4)


def close_both(stage: "Stage", long: answers.Position, short: answers.Position) -> None:
    stage.chapter("Wherever the price goes, one leg earns what the other loses")
    stage.switch("mark/BTC/51000")
    closings = []
    for name, leg in (("bybit", "buy 0.1"), ("okx", "sell 10")):
        order_id = answers.placed_id(name, stage.connector(
            f"place-close {name} BTC_USDT {leg} 51000"))
        closing = answers.closing(name, stage.connector(
            f"close-report {name} BTC_USDT {order_id}"), order_id)
        stage.write(f"profit {closing.profit:+.2f}, fees {closing.fees:+.2f} USDT", indent=4)
        closings.append(closing)
    funded = answers.funding("bybit", stage.connector("funding bybit BTC_USDT 480"), "BTC_USDT")
    stage.write(f"{funded:+.4f} USDT, booked before today: not of these trades", indent=4)

    profit, fees = map(sum, zip(*closings))
    spread = short.average - long.average
    stage.expect(profit == spread * SIZE, "the profit is not the spread times the size")
    stage.write("What the day brought:")
    trades = (f"sold at {short.average:.0f}, bought at {long.average:.0f}: "
              f"{spread:.0f} x {SIZE} BTC")
    for name, amount in ((trades, profit), ("fees of the four orders", fees),
                         ("altogether", profit + fees)):
        stage.write(f"{name:45}{amount:>+9.2f} USDT", indent=4)


def pair_and_update(stage: "Stage") -> None:
    stage.chapter("Pairing: claim the platform's token, sign with the wallet, ask again")
    stage.connector("claim-token demo-bind-token")
    stage.switch("authorize")
    answer = stage.connector("bind-status")
    stage.expect(answer.get("bindState") == "authorized", "the binding is not authorized")
    stage.write(f"{answer['bindState']}: wallet {answer['wallet']}", indent=4)
    found = stage.connector("update-download")
    stage.expect(found.get("downloaded") is True, "there is no download")
    stage.write(f"{found['current_version']} here, {found['latest_version']} downloaded: "
                f"{os.path.basename(found['latest_file'])}", indent=4)


def show_what_left(stage: "Stage") -> None:
    """Says that no secret was sent because the sandbox, which knows them all, looked for them."""
    stage.chapter("What left this machine, as those outside recorded it")
    head, *rows = (line.split() for line in stage.switch("requests").splitlines())
    stage.expect(head == ["host", "requests", "key", "secret", "passphrase"] and len(rows) >= 8,
                 "the record is not understood")
    for host, *counts in rows:
        stage.expect(counts[2] == "0", f"{host} was sent a secret")
        if host.endswith(".example"):
            stage.expect(counts[1:] == ["0", "0", "0"], f"{host} was sent a part of a key")
    stage.write(stage.colour("No request held a secret", GREEN)
                + ": it signs, and stays. Keys go to exchanges alone,\n"
                "and passphrases where an exchange wants them in the open; the "
                "relay and the\ndownload host were sent neither.")


class Stage:
    """Where the day is played: runs commands, tells what matters of their answers."""

    def __init__(self, full: bool) -> None:
        self.step = self.last = ""
        self._chapter = 0
        self._full = full
        self._terminal = sys.stdout.isatty()
        self.styled = (self._terminal and not os.environ.get("NO_COLOR")
                        and os.environ.get("TERM") != "dumb")
        self._width = min(WIDTH, shutil.get_terminal_size().columns) if self._terminal else WIDTH

    def chapter(self, title: str) -> None:
        if self._terminal:
            time.sleep(1.2)
        self._chapter += 1
        self.write("")
        self.write(f"{self._chapter}/{CHAPTERS} {title}", BOLD)

    def command(self, line: str) -> None:
        if len(line) + 2 > self._width:
            line = " \\\n      ".join(line.rsplit(" ", 1))
        for part in f"$ {line}".splitlines():
            print(part, flush=True)

    def connector(self, line: str, exits: int = 0, quiet: bool = False) -> Any:
        """Runs the command, which must exit with `exits`; gives its lines, or its body or JSON."""
        if not quiet or self._full:
            self.command(f"morvane-connector {line}")
        self.step = line
        text = self.run(["morvane-connector", *line.split()], exits)
        if not text.startswith("{"):
            return dict(row.partition("=")[::2] for row in text.splitlines())
        try:
            answer = answers.read(text)
        except ValueError:
            raise StoryBroken("the answer is no JSON", text)
        return answer.get("body", answer)

    def position(self, exchange: str, side: str) -> answers.Position:
        """The position, which must be there, and have the size of a leg."""
        body = self.connector(f"get-position {exchange} BTC_USDT")
        held = answers.positions(exchange, body, "BTC_USDT")
        self.expect([one.side for one in held] == [side], f"there is no {side}")
        one = held[0]
        self.write(f"{one.side} {one.quantity} {answers.UNITS[exchange]} at {one.average}, "
                   f"leverage {one.leverage}, profit so far {one.unrealised:+.2f} USDT", indent=4)
        return one

    def order(self, exchange: str, order_id: str, state: str) -> None:
        body = self.connector(f"order-status {exchange} BTC_USDT {order_id}")
        order = answers.order(exchange, body)
        self.expect(order.state == state, f"the order is not {state}")
        self.write(f"{order.state}: {order.filled} of {order.quantity} at {order.price}", indent=4)

    def switch(self, path: str) -> str:
        """Turns one of the sandbox's own switches."""
        self.step = SWITCHES + path
        self.command(f"curl -sf {self.step}")
        text = self.run(["curl", "-sf", self.step], answer=True).strip()
        self.write(text, indent=4)
        return text

    def expect(self, truth: bool, otherwise: str) -> None:
        if not truth:
            raise StoryBroken(otherwise, self.last)

    def colour(self, text: str, style: str) -> str:
        return f"{style}{text}{PLAIN}" if self.styled else text

    def write(self, text: str, style: str = "", indent: int = 0) -> None:
        """No line is wider than the terminal or 80 columns; what is longer goes on indented."""
        margin = " " * indent
        colours = sum(map(len, (RED, PLAIN))) if "\033" in text else 0
        for line in text.splitlines() or [""]:
            parts = textwrap.wrap(line, self._width + colours, break_on_hyphens=False,
                                  replace_whitespace=False, initial_indent=margin,
                                  subsequent_indent=margin + "  ") or [""]
            for part in parts:
                print(self.colour(part, style) if style else part, flush=True)

    def run(self, argv: List[str], exits: int = 0, answer: bool = False) -> str:
        """What it prints; `answer`: which is shown as it is anyway."""
        done = subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, encoding="utf-8", errors="replace")
        self.last = done.stdout.replace(os.environ["HOME"], "~")
        if self._full and not answer:
            self.write(self.last, DIM)
        if done.returncode != exits:
            raise StoryBroken(f"exit status {done.returncode}, not {exits}", self.last)
        return done.stdout


def main(arguments: List[str]) -> int:
    if arguments not in ([], ["--full"]):
        sys.exit("usage: ./dev demo [--full]")
    # Outside the sandbox these commands would speak to the real exchanges.
    switches = subprocess.run(["curl", "-s", SWITCHES], stdout=subprocess.PIPE).stdout
    if b"/authorize" not in switches:
        sys.exit("This is no sandbox. Run: ./dev demo")
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # for ./dev demo | head
    stage = Stage(full=bool(arguments))
    try:
        tell_the_day(stage)
    except (StoryBroken, answers.Refused, *answers.UNREADABLE) as broken:
        told = isinstance(broken, StoryBroken)
        stage.write(broken.args[1] if told else stage.last)
        stage.write(f"The story breaks off at '{stage.step}': "
                    f"{broken.args[0] if told else repr(broken)}.")
        return 1
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(130)
