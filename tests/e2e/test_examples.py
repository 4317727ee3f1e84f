"""What lies in examples/: how they read answers, what they send, what they ask."""

import json
import os
import subprocess
import sys
from decimal import Decimal

from sandbox import Fault, hosts
from support import CONNECTOR, ConnectorTest, each

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples")
sys.path.insert(0, EXAMPLES)
import answers  # noqa: E402

KNOWN = tuple(answers.UNITS)

SYMBOL = "BTC_USDT"
FUNDED = {"bybit": Decimal("-0.059"), "gate": Decimal("-0.059"),
          "okx": Decimal("-0.959")}  # OKX looks back further than it is asked
QUANTITY = {"bybit": "0.01", "okx": "1", "gate": "100"}  # 0.01 BTC each
REFUSALS = {"bybit": "^110001 order not exists", "okx": "^51400 Cancellation failed",
            "gate": "^ORDER_NOT_FOUND order not found",
            "bingx": "^109421 order does not exist",
            "kucoin": "^10000[14] ", "bitget": "^40768 Order does not exist"}


def comparable(value):
    """Named values as a dictionary, numbers to the millionth."""
    if isinstance(value, list):
        return [comparable(one) for one in value]
    if hasattr(value, "_asdict"):
        value = value._asdict()
    if isinstance(value, dict):
        return {name: comparable(one) for name, one in value.items()}
    return value if value is None or isinstance(value, str) else f"{value:.6f}"


class Answers(ConnectorTest):
    """answers.py and answers.jq"""

    def setUp(self):
        super().setUp()
        self.store_keys(*KNOWN)

    def read(self, name, *command, about=None):
        """What both functions of that name make of the command's answer: the same."""
        text = self.answer(*command)
        more = [] if about is None else [about]
        called = name + "".join(f'("{one}")' for one in more)
        done = subprocess.run(
            ["jq", "-Rc", "-L", EXAMPLES, f'include "answers"; answer | {called}'],
            input=text, capture_output=True, encoding="utf-8", check=True)
        body = answers.read(text)["body"]
        document = body["place"] if command[0] == "place-open" else body
        found = getattr(answers, name)(command[1], document, *more)
        self.assertEqual(comparable(found),
                         comparable(json.loads(done.stdout, parse_float=Decimal)),
                         f"answers.py, then answers.jq, of {text}")
        return found

    def check_account(self, exchange):
        """Both read balance, positions and orders as the account has them."""
        account = self.box.account(exchange)
        self.assertEqual((account.equity, account.available),
                         self.read("balance", "balance", exchange))
        held = [(one.side, one.size, one.entry_price, one.leverage, one.unrealised)
                for one in account.held]
        self.assertEqual(held, self.read("positions", "get-position", exchange, SYMBOL,
                                         about=SYMBOL))
        for kept in account.orders.values():
            order = self.read("order", "order-status", exchange, SYMBOL, kept.id)
            self.assertEqual((kept.id, kept.state, kept.quantity, kept.filled,
                              kept.price, kept.average or None), order[:6])
            if order.fee is not None:  # KuCoin's orders do not tell it
                self.assertEqual(-kept.fee, order.fee)

    @each(*KNOWN)
    def test_accounts_and_refusals_are_read_as_the_exchange_has_them(self, exchange):
        self.check_account(exchange)
        why = self.read("refusal", "cancel-order", exchange, SYMBOL, "1")
        self.assertRegex(why, REFUSALS[exchange])

    @each(*answers.PLACED)
    def test_what_is_traded_is_read_as_the_account_has_it(self, exchange):
        account = self.box.account(exchange)
        trade = (exchange, SYMBOL, "sell", QUANTITY[exchange])
        opened = self.read("placed_id", "place-open", *trade, "55000", "5")
        account.fill(account.orders[opened], Decimal(55000))
        self.check_account(exchange)
        closed = self.read("placed_id", "place-close", *trade, "51000")
        report = self.read("closing", "close-report", exchange, SYMBOL, closed,
                           about=closed)
        booked = account.ledger[-1]
        self.assertEqual((None, -booked.fee) if exchange == "gate"
                         else (booked.profit, -booked.fees), report)
        funded = self.read("funding", "funding", exchange, SYMBOL, about=SYMBOL)
        self.assertEqual(FUNDED[exchange], funded)

class Scripts(ConnectorTest):
    """desk.py and pair_trade.py"""

    BYBIT_ORDERS = "/v5/order/create"
    OKX_ORDERS = "/api/v5/trade/order"

    def setUp(self):
        super().setUp()
        self.store_keys(*answers.PLACED)
        self.stand_in(**{"morvane-connector": f'exec {CONNECTOR} "$@"'})

    def script(self, expected_status, line, typed):
        """What it prints when that is typed."""
        name, *arguments = line.split()
        file = os.path.join(EXAMPLES, name)
        run = self.run_tool(sys.executable, "-B", file, *arguments, input=typed)
        self.assertEqual(expected_status, run.returncode)
        return run.stdout + run.stderr

    def desk_opens(self, expected_status, quantity, options="", typed=b""):
        """At 500 USDT each."""
        line = f"desk.py open okx {SYMBOL} short {quantity} 50000 5 --contract-size 0.01"
        return self.script(expected_status, f"{line} {options}", typed)

    def trade(self, expected_status, second_leg):
        """After a first one of 0.01 BTC on Bybit; the return key is pressed once."""
        legs = f"bybit:0.01:50000 {second_leg}"
        line = f"pair_trade.py --wait 0 {SYMBOL} {legs} 5"
        return self.script(expected_status, line, b"\n")

    def orders_sent(self, target):
        return len([one for one in self.box.requests if one.target == target])

    def assert_opened_and_closed_on_bybit(self):
        """There, two orders were sent, and no position is left."""
        position = self.body("get-position", "bybit", SYMBOL)["result"]["list"][0]
        self.assertEqual((2, 0), (self.orders_sent(self.BYBIT_ORDERS),
                                  Decimal(position["size"])))

    def test_desk_sends_more_than_most_only_after_a_yes(self):
        self.assertIn("= 5000 USDT", self.desk_opens(1, 10, "--most 4999", b"no\n"))
        self.assertIn("nobody is there", self.desk_opens(1, 10))
        self.assertEqual(0, self.orders_sent(self.OKX_ORDERS))
        self.desk_opens(0, 10, typed=b"yes\n")
        self.desk_opens(0, 10, "--most 5000")
        self.assertEqual(2, self.orders_sent(self.OKX_ORDERS))

    def test_desk_exits_otherwise_than_with_0_after_a_refusal_or_no_answer(self):
        refused = self.desk_opens(1, 999999, "--most 9999999999")
        self.assertIn("refused: 51008", refused)
        self.box.faults.append(Fault.lost_answer(hosts.OKX_GLOBAL, path=self.OKX_ORDERS))
        self.assertIn("may be there", self.desk_opens(3, 1, "--most 500"))

    def test_pair_trade_opens_and_closes_both_legs_and_tells_what_it_brought(self):
        before = Decimal(self.body("balance", "gate")["total"])
        printed = self.trade(0, "gate:100:50000")
        change = Decimal(self.body("balance", "gate")["total"]) - before
        self.assertIn(f"\ngate short: {change:+f} USDT\n", printed)
        self.assertEqual([], self.body("get-position", "gate", SYMBOL))
        self.assert_opened_and_closed_on_bybit()

    def test_pair_trade_unwinds_the_first_leg_when_the_second_is_refused(self):
        self.assertIn("refused: 51008", self.trade(1, "okx:99999999:50000"))
        self.assert_opened_and_closed_on_bybit()

    def test_pair_trade_does_not_send_again_an_order_whose_answer_was_lost(self):
        self.box.faults.append(
            Fault.lost_answer(hosts.BYBIT, path=self.BYBIT_ORDERS, times=1))
        self.assertIn("asking for the position", self.trade(0, "okx:1:50000"))
        self.assert_opened_and_closed_on_bybit()
