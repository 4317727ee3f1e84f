"""What lies in examples/: how they read answers, what they send, what they ask."""

import json
import os
import subprocess
import sys
from decimal import Decimal

from sandbox import Fault, hosts
from support import CONNECTOR, ConnectorTest, each

EXAMPLES = os.path.abspath("examples")
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


class Answers(ConnectorTest):
    """answers.py and answers.jq"""

    def setUp(self):
        super().setUp()
        self.store_keys(*KNOWN)

    def read(self, name, *command, about=()):
        """What both functions of that name make of the command's answer: the same."""
        text = self.answer(*command)
        body = answers.read(text)["body"]
        document = body["place"] if command[0] == "place-open" else body
        found = getattr(answers, name)(command[1], document, *about)
        called = name + "".join(f'("{one}")' for one in about)
        done = subprocess.run(
            ["jq", "-Rc", "-L", EXAMPLES, f'include "answers"; answer | {called}'],
            input=text, capture_output=True, encoding="utf-8", check=True)
        by_jq = json.loads(  # in tuples and decimals, too
            done.stdout, object_hook=lambda one: tuple(one.values()),
            parse_float=lambda number: round(Decimal(number), 8))
        self.assertEqual(found, by_jq, f"answers.py, then answers.jq, of {text}")
        return found

    def check_account(self, exchange):
        """Both read balance, positions and orders as the account has them."""
        account = self.box.exchanges[exchange].account
        self.assertEqual((account.equity, account.available),
                         self.read("balance", "balance", exchange))
        held = [(one.side, one.size, one.entry_price, one.leverage, one.unrealised)
                for one in account.held]
        self.assertEqual(held, self.read("positions", "get-position", exchange, SYMBOL,
                                         about=[SYMBOL]))
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
        account = self.box.exchanges[exchange].account
        trade = (exchange, SYMBOL, "sell", QUANTITY[exchange])
        opened = self.read("placed_id", "place-open", *trade, "55000", "5")
        account.fill(account.orders[opened], Decimal(55000))
        self.check_account(exchange)
        closed = self.read("placed_id", "place-close", *trade, "51000")
        report = self.read("closing", "close-report", exchange, SYMBOL, closed,
                           about=[closed])
        booked = account.ledger[-1]
        self.assertEqual((None, -booked.fee) if exchange == "gate"
                         else (booked.profit, -booked.fees), report)
        funded = self.read("funding", "funding", exchange, SYMBOL, about=[SYMBOL])
        self.assertEqual(FUNDED[exchange], funded)


class Scripts(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys(*answers.PLACED)
        self.stand_in(**{"morvane-connector": f'exec {CONNECTOR} "$@"'})

    def script(self, name, *words, typed=b"", status=0):
        """What it prints when that is typed."""
        file = os.path.join(EXAMPLES, name)
        run = self.run_tool(sys.executable, "-B", file, *words, input=typed)
        self.assertEqual(status, run.returncode)
        return run.stdout + run.stderr

    def desk_opens(self, contracts, *options, **more):
        """A short at OKX, of 500 USDT for each contract."""
        return self.script("desk.py", "open", "okx", SYMBOL, "short", contracts, "50000",
                           "5", "--contract-size", "0.01", *options, **more)

    def pair_trade(self, second_leg, **more):
        """0.01 BTC at Bybit against that; the return key is pressed once."""
        return self.script("pair_trade.py", "--wait", "0", SYMBOL, "bybit:0.01:50000",
                           second_leg, "5", typed=b"\n", **more)

    def assert_opened_and_closed(self, exchange):
        """By two orders, and nothing is left."""
        account = self.box.exchanges[exchange].account
        self.assertEqual((2, []), (len(account.orders), account.held))

    def test_desk_sends_more_than_most_only_after_a_yes(self):
        asked = self.desk_opens("10", "--most", "4999", typed=b"no\n", status=1)
        self.assertIn("= 5000 USDT", asked)
        self.assertIn("nobody is there", self.desk_opens("10", status=1))
        self.assertEqual({}, self.box.exchanges["okx"].account.orders)
        self.desk_opens("10", typed=b"yes\n")
        self.desk_opens("10", "--most", "5000")
        self.assertEqual(2, len(self.box.exchanges["okx"].account.orders))

    def test_desk_exits_otherwise_than_with_0_after_a_refusal_or_no_answer(self):
        refused = self.desk_opens("999999", "--most", "9999999999", status=1)
        self.assertIn("refused: 51008", refused)
        self.box.faults.append(
            Fault(hosts.OKX_GLOBAL, "/api/v5/trade/order", delivery="never"))
        unknown = self.desk_opens("1", "--most", "500", status=3)
        self.assertIn("may be there", unknown)

    def test_pair_trade_opens_and_closes_both_legs_and_tells_what_it_brought(self):
        gate = self.box.exchanges["gate"].account
        before = gate.balance
        printed = self.pair_trade("gate:100:50000")
        change = gate.balance - before
        self.assertIn(f"\ngate short: {change.normalize():+f} USDT\n", printed)
        self.assert_opened_and_closed("gate")
        self.assert_opened_and_closed("bybit")

    def test_pair_trade_unwinds_the_first_leg_when_the_second_is_refused(self):
        printed = self.pair_trade("okx:99999999:50000", status=1)
        self.assertIn("refused: 51008", printed)
        self.assert_opened_and_closed("bybit")

    def test_pair_trade_does_not_send_again_an_order_whose_answer_was_lost(self):
        self.box.faults.append(
            Fault(hosts.BYBIT, "/v5/order/create", times=1, delivery="never"))
        self.assertIn("asking for the position", self.pair_trade("okx:1:50000"))
        self.assert_opened_and_closed("bybit")
