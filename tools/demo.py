"""A trader's day, step by step. Runs inside the sandbox: everyone outside is a stand-in.

demo.py [--full]: of each answer the facts that matter; with --full the answer itself as well.
Exit status 1, and the step's name, when an answer is not what the story needs.
"""

from __future__ import annotations

import json
import os
import re
import shutil
import signal
import subprocess
import sys
import textwrap
import time
from decimal import Decimal
from typing import Any, List

# What is told of an answer, by command, or by command and exchange. {a.b.0.c} is a member of the
# answer, or of its body where it has one; {a.*.c} the sum over a list. {a=b} is told as well, and
# the story breaks off when the member is not b, as it does when there is none.
FACTS = {
    "validate": "{status=valid_trade_ready}, can read {can_read=true}, can trade {can_trade=true}, "
                "saved {credentials_saved=true}",

    "balance bybit": "equity {result.list.0.totalEquity} USDT, "
                     "available {result.list.0.totalAvailableBalance}",
    "balance okx": "equity {data.0.details.0.eq} USDT, available {data.0.details.0.availEq}",
    "balance gate": "equity {total} USDT, available {available}",
    "balance bingx": "equity {data.balance.equity} USDT, available {data.balance.availableMargin}",
    "balance kucoin": "equity {data.accountEquity} USDT, available {data.availableBalance}",
    "balance bitget": "equity {data.0.accountEquity} USDT, available {data.0.available}",

    "place-open bybit": "leverage set ({leverage.retMsg=OK}), order {place.result.orderId}",
    "place-open okx": "leverage {leverage.data.0.lever=5}, order {place.data.0.ordId}",
    "place-open gate": "leverage {leverage.leverage=5}, order {place.id}: {place.status=open}, "
                       "{place.size} @ {place.price}",
    "place-close bybit": "order {result.orderId}",
    "place-close okx": "order {data.0.ordId}",
    "cancel-order gate": "order {id}: {status=finished}, {finish_as=cancelled}",
    "get-position bybit": "{result.list.0.side=Buy} {result.list.0.size=0.1} "
                          "@ {result.list.0.avgPrice=49800}, "
                          "leverage {result.list.0.leverage=5}, "
                          "unrealised profit {result.list.0.unrealisedPnl} USDT",
    "get-position okx": "{data.0.posSide=short} {data.0.pos=10} contracts "
                        "@ {data.0.avgPx=50000}, leverage {data.0.lever=5}, "
                        "unrealised profit {data.0.upl} USDT",
    "close-report bybit": "order {order.result.list.0.orderStatus=Filled} "
                          "@ {order.result.list.0.avgPrice}, "
                          "fees {closed_pnl.result.list.0.openFee} and "
                          "{closed_pnl.result.list.0.closeFee}, "
                          "profit after them {closed_pnl.result.list.0.closedPnl} USDT",
    "close-report okx": "order {order.data.0.state=filled} @ {order.data.0.avgPx}, "
                        "fees {positions_history.data.0.fee}, "
                        "profit after them {positions_history.data.0.realizedPnl} USDT",
    "funding bybit": "{result.list.*.funding} USDT in all",

    "claim-token": "{status=pending_signature} by the wallet {wallet}",
    "update-check": "{current_version} here, {latest_version} there: "
                    "update available {update_available=true}, channel {channel}",
    "update-download": "downloaded {downloaded=true}: {latest_file}",
}

SIX = ("bybit", "okx", "gate", "bingx", "kucoin", "bitget")
# How an exchange says that it carried something out. Gate has no member for that.
SUCCESS = {"bybit": "{retCode=0}", "okx": "{code=0}", "bingx": "{code=0}",
           "kucoin": "{code=200000}", "bitget": "{code=00000}"}

BOLD, DIM, PLAIN = "\033[1m", "\033[2m", "\033[0m"
SWITCHES = "http://sandbox.control/"
PLACEHOLDER = re.compile(r"\{([^{}=]+)(?:=([^{}]*))?\}")


class StoryBroken(Exception):
    """Why an answer is not what the story needs, and the answer."""


def tell_the_day(stage: "Stage") -> None:
    stage.write("A trader's day with morvane-connector. The exchanges, the relay and the\n"
                "download host are stand-ins; the program and its tools are not.")
    stage.chapter("A key is proved live before it is kept")
    for exchange in SIX:
        passphrase = " demo-passphrase" if exchange in ("okx", "kucoin", "bitget") else ""
        stage.connector(
            f"validate {exchange} demo-{exchange}-key demo-{exchange}-secret{passphrase}")
    stage.chapter("With a wrong secret it is not; the key that was kept stays")
    stage.connector("validate gate demo-gate-key wrong-secret",
                    "{status=invalid}, saved {credentials_saved=false}: {reason}", exits=2)

    stage.chapter("Six exchanges, six balances")
    for exchange in SIX:
        stage.connector(f"balance {exchange}")

    stage.chapter("Short on one exchange, at 50000; the long one rests below the price")
    stage.connector("place-open okx BTC_USDT sell 10 50000 5")
    opened = stage.connector("place-open bybit BTC_USDT buy 0.1 49800 5")
    order_status = f"order-status bybit BTC_USDT {find(opened, 'place.result.orderId')}"
    order = "order {result.list.0.orderStatus=%s} {result.list.0.qty=0.1} @ {result.list.0.price}"
    stage.connector(order_status, order % "New")
    stage.chapter("The price dips, and somebody sells to us")
    stage.switch("mark/BTC/49800")
    stage.connector(order_status, order % "Filled")
    stage.connector("get-position bybit BTC_USDT")
    stage.connector("get-position okx BTC_USDT")

    stage.chapter("An order that nobody takes is cancelled")
    waiting = stage.connector("place-open gate ETH_USDT buy 3 2000 5")
    stage.connector(f"cancel-order gate ETH_USDT {find(waiting, 'place.id')}")

    stage.chapter("Wherever the price goes, one leg earns what the other loses. Both are closed")
    stage.switch("mark/BTC/51000")
    long_close = find(stage.connector("place-close bybit BTC_USDT buy 0.1 51000"), "result.orderId")
    short_close = find(stage.connector("place-close okx BTC_USDT sell 10 51000"), "data.0.ordId")
    long_report = stage.connector(f"close-report bybit BTC_USDT {long_close}")
    short_report = stage.connector(f"close-report okx BTC_USDT {short_close}")
    funding = stage.connector("funding bybit BTC_USDT 480")

    stage.chapter("Pairing: claim a token of the platform, the wallet's owner signs, ask again")
    stage.connector("claim-token demo-bind-token")
    stage.connector("bind-status", "{bindState=pending_signature}")
    stage.switch("authorize")
    stage.connector("bind-status", "{bindState=authorized}")
    stage.connector("status", "{connector_health=ready}, paired {paired=true}, "
                              "owner {owner_wallet}")

    stage.chapter("A newer release is out")
    stage.connector("update-check")
    stage.connector("update-download")

    sum_up(stage, long_report, short_report, funding)


def sum_up(stage: "Stage", long_report: Any, short_report: Any, funding: Any) -> None:
    closed, history = "closed_pnl.result.list.0.", "positions_history.data.0."
    long_fees = number(long_report, closed + "openFee") + number(long_report, closed + "closeFee")
    long_profit = number(long_report, closed + "closedPnl") + long_fees
    short_profit = number(short_report, history + "pnl")
    fees = number(short_report, history + "fee") - long_fees
    funded = number(funding, "result.list.*.funding")
    stage.chapter("What the day brought")
    for name, amount in (("long on bybit", long_profit), ("short on okx", short_profit),
                         ("fees", fees), ("funding at bybit, 8 hours", funded),
                         ("altogether", long_profit + short_profit + fees + funded)):
        stage.write(f"    {name:<26}{amount:>+9.2f} USDT")
    stage.chapter("Next")
    stage.write("    ./dev sandbox       a shell in this world, for a day of your own")
    stage.write("    ./dev demo --full   this day with every answer in full")
    stage.write("    README.md           with keys of your own")


class Stage:
    """Where the day is played: runs commands, tells what matters of their answers."""

    def __init__(self, full: bool) -> None:
        self.step = ""
        self._full = full
        self._terminal = sys.stdout.isatty()
        self._styled = (self._terminal and not os.environ.get("NO_COLOR")
                        and os.environ.get("TERM") != "dumb")
        self._width = min(100, shutil.get_terminal_size().columns) if self._terminal else 100

    def chapter(self, title: str) -> None:
        if self._terminal:
            time.sleep(1.2)
        self.write("")
        self.write(f"# {title}", DIM)

    def connector(self, line: str, facts: str = "", exits: int = 0) -> Any:
        """Runs the command, tells the facts and gives the answer. It must exit with `exits`."""
        self.write(f"$ morvane-connector {line}", BOLD)
        words = line.split()
        self.step = line
        answer = read(self._run(["morvane-connector", *words], exits))
        refuse_refusal(words, answer)
        facts = facts or FACTS.get(" ".join(words[:2])) or FACTS[words[0]]
        self.write(fill_in(facts, answer), indent=4)
        return answer

    def switch(self, path: str) -> None:
        """Turns one of the sandbox's own switches."""
        self.step = SWITCHES + path
        self.write(f"$ curl -sf {self.step}", BOLD)
        self.write(self._run(["curl", "-sf", self.step]).strip(), indent=4)

    def write(self, text: str, style: str = "", indent: int = 0) -> None:
        """No line is wider than the terminal or 100 columns; what is longer goes on indented."""
        for line in text.splitlines() or [""]:
            margin = " " * indent
            for part in textwrap.wrap(line, self._width, break_on_hyphens=False,
                                      initial_indent=margin,
                                      subsequent_indent=margin + "  ") or [""]:
                print(f"{style}{part}{PLAIN}" if style and self._styled else part, flush=True)

    def _run(self, argv: List[str], exits: int = 0) -> str:
        done = subprocess.run(argv, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, encoding="utf-8", errors="replace")
        if self._full:
            self.write(done.stdout, DIM)
        if done.returncode != exits:
            raise StoryBroken(f"exit status {done.returncode}, not {exits}", done.stdout)
        return done.stdout


def read(text: str) -> Any:
    """The members of an answer, or of its body where it has one: of JSON, or of key=value lines."""
    if not text.startswith("{"):
        return dict(line.partition("=")[::2] for line in text.splitlines())
    try:
        answer = json.loads(text)
    except ValueError:
        raise StoryBroken("the answer is no JSON", text)
    return answer.get("body", answer)


def refuse_refusal(words: List[str], answer: Any) -> None:
    """Fails unless the exchange carried out the command, or both parts of it."""
    if words[0] == "validate" or len(words) < 2 or words[1] not in SUCCESS:
        return
    parts = answer.values() if words[0] in ("place-open", "close-report") else [answer]
    for part in parts:
        fill_in(SUCCESS[words[1]], part)


def find(answer: Any, path: str) -> str:
    """The text of a member; of many, the sum."""
    found = [answer]
    for name in path.split("."):
        found = [child for value in found for child in children(value, name)]
    if not found:
        raise StoryBroken(f"there is no {path}", json.dumps(answer))
    if "*" in path:
        return str(sum(Decimal(value) for value in found if value))
    return str(found[0]).lower() if isinstance(found[0], bool) else str(found[0])


def number(answer: Any, path: str) -> Decimal:
    return Decimal(find(answer, path))


def children(value: Any, name: str) -> List[Any]:
    if isinstance(value, list):
        return value if name == "*" else value[int(name):][:1] if name.isdigit() else []
    return [value[name]] if isinstance(value, dict) and name in value else []


def fill_in(facts: str, answer: Any) -> str:
    def fill(place: "re.Match[str]") -> str:
        path, expected = place.groups()
        value = find(answer, path)
        if expected is not None and value != expected:
            raise StoryBroken(f"{path} is {value!r}, not {expected!r}", json.dumps(answer))
        return value.replace(os.environ["HOME"], "~")
    return PLACEHOLDER.sub(fill, facts)


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
    except StoryBroken as broken:
        reason, answer = broken.args
        stage.write(answer)
        stage.write(f"The story breaks off at '{stage.step}': {reason}.")
        return 1
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except KeyboardInterrupt:
        sys.exit(130)
