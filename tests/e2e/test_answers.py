"""examples/answers.py and answers.jq: what they take from an answer is what the account says."""

import json
import os
import subprocess
import sys
from decimal import Decimal

from support import EXCHANGES, TRADING, ConnectorTest

EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples")
sys.path.insert(0, EXAMPLES)
import answers  # noqa: E402

SYMBOL = "BTC_USDT"
FUNDED = {"bybit": Decimal("-0.059"), "gate": Decimal("-0.059"),
          "okx": Decimal("-0.959")}  # OKX looks back further than it is asked
REFUSALS = {"bybit": "^110001 order not exists", "okx": "^51400 Cancellation failed",
            "gate": "^ORDER_NOT_FOUND order not found", "bingx": "^109421 order does not exist",
            "kucoin": "^10000[14] ", "bitget": "^40768 Order does not exist"}
QUANTITY = {"bybit": "0.01", "okx": "1", "gate": "100"}  # 0.01 BTC each


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
    def setUp(self):
        super().setUp()
        self.store_keys(*EXCHANGES)

    def read(self, name, *command, about=None):
        """What the functions of that name make of the command's answer, the same in both."""
        text = self.answer(*command)
        more = [] if about is None else [about]
        program = f'include "answers"; answer | {name}' + "".join(f'("{one}")' for one in more)
        done = subprocess.run(["jq", "-Rc", "-L", EXAMPLES, program], input=text,
                              capture_output=True, encoding="utf-8", check=True)
        body = answers.read(text)["body"]
        document = body["place"] if command[0] == "place-open" else body
        found = getattr(answers, name)(command[1], document, *more)
        self.assertEqual(comparable(found),
                         comparable(json.loads(done.stdout, parse_float=Decimal)),
                         f"answers.py, then answers.jq, of {text}")
        return found

    def check_account(self, exchange):
        account = self.box.account(exchange)
        self.assertEqual((account.equity, account.available),
                         self.read("balance", "balance", exchange))
        held = [(one.side, one.size, one.entry_price, one.leverage, one.unrealised)
                for one in account.held]
        self.assertEqual(held, self.read("positions", "get-position", exchange, SYMBOL,
                                         about=SYMBOL))

    def check_order(self, exchange, kept):
        order = self.read("order", "order-status", exchange, SYMBOL, kept.id)
        self.assertEqual((kept.id, kept.state, kept.quantity, kept.filled, kept.price,
                          kept.average or None), order[:6])
        if order.fee is not None:  # KuCoin's orders do not tell it
            self.assertEqual(-kept.fee, order.fee)

    def test_balance_positions_and_orders_are_read_as_the_account_has_them(self):
        for exchange in EXCHANGES:
            with self.subTest(exchange):
                self.check_account(exchange)
                for kept in self.box.account(exchange).orders.values():
                    self.check_order(exchange, kept)

    def test_what_is_traded_is_read_as_the_account_has_it(self):
        for exchange in TRADING:
            account = self.box.account(exchange)
            trade = (exchange, SYMBOL, "sell", QUANTITY[exchange])
            with self.subTest(exchange):
                opened = self.read("placed_id", "place-open", *trade, "55000", "5")
                self.check_order(exchange, account.orders[opened])
                account.fill(account.orders[opened], Decimal(55000))
                self.check_order(exchange, account.orders[opened])
                self.check_account(exchange)
                closed = self.read("placed_id", "place-close", *trade, "51000")
                report = self.read("closing", "close-report", exchange, SYMBOL, closed,
                                   about=closed)
                booked = account.ledger[-1]
                self.assertEqual((None, -booked.fee) if exchange == "gate"
                                 else (booked.profit, -booked.fees), report)
                funded = self.read("funding", "funding", exchange, SYMBOL, about=SYMBOL)
                self.assertEqual(FUNDED[exchange], funded)

    def test_a_refusal_is_told_in_the_words_of_its_exchange(self):
        for exchange in EXCHANGES:
            with self.subTest(exchange):
                why = self.read("refusal", "cancel-order", exchange, SYMBOL, "1")
                self.assertRegex(why, REFUSALS[exchange])

    def test_a_document_of_somebody_else_is_no_refusal(self):
        for exchange in EXCHANGES:
            for strange in ({}, {"message": "Bad Gateway"}, [], None):
                with self.subTest(exchange, strange=strange):
                    with self.assertRaises(answers.UNREADABLE):
                        answers.order(exchange, strange)
