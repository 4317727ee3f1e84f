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


class Answers(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys(*EXCHANGES)

    def ask(self, *arguments):
        """The body, and what jq's function makes of the whole answer."""
        text = self.answer(*arguments)

        def in_jq(function):
            program = f'include "answers"; answer | {function}'
            done = subprocess.run(["jq", "-Rc", "-L", EXAMPLES, program], input=text,
                                  stdout=subprocess.PIPE, encoding="utf-8", check=True)
            return json.loads(done.stdout, parse_float=Decimal)
        return answers.read(text)["body"], in_jq

    def order(self, exchange, order_id):
        body, in_jq = self.ask("order-status", exchange, SYMBOL, order_id)
        order = answers.order(exchange, body)
        self.assertEqual(order._asdict(), in_jq("order"))
        return order

    def check_account(self, exchange):
        account = self.box.account(exchange)
        body, in_jq = self.ask("balance", exchange)
        balance = answers.balance(exchange, body)
        self.assertEqual((account.equity, account.available), balance)
        self.assertEqual([f"{amount:.6f}" for amount in balance],
                         [f"{amount:.6f}" for amount in in_jq("[balance[]]")])
        body, in_jq = self.ask("get-position", exchange, SYMBOL)
        held = answers.positions(exchange, body, SYMBOL)
        self.assertEqual([(one.side, one.size, one.entry_price, one.leverage, one.unrealised)
                          for one in account.held], held)
        self.assertEqual([one._asdict() for one in held], in_jq(f'positions("{SYMBOL}")'))

    def test_what_is_traded_is_read_as_the_account_has_it(self):
        for exchange in TRADING:
            account = self.box.account(exchange)
            with self.subTest(exchange):
                body, in_jq = self.ask("place-open", exchange, SYMBOL, "sell",
                                       QUANTITY[exchange], "55000", "5")
                self.assertEqual(None, answers.refusal(exchange, body["leverage"]))
                self.assertEqual([None, None], in_jq("[refusal, leverage_refusal]"))
                opened = answers.placed_id(exchange, body["place"])
                self.assertEqual(opened, in_jq("placed_id"))
                resting = self.order(exchange, opened)
                self.assertEqual((opened, "open"), (resting.id, resting.state))
                self.assertEqual((Decimal(QUANTITY[exchange]), 0, 55000),
                                 (resting.quantity, resting.filled, resting.price))
                self.assertEqual(None, resting.average)

                account.fill(account.orders[opened], Decimal(55000))
                filled = self.order(exchange, opened)
                self.assertEqual(("filled", resting.quantity, 55000),
                                 (filled.state, filled.filled, filled.average))
                self.check_account(exchange)

                body, in_jq = self.ask("place-close", exchange, SYMBOL, "sell",
                                       QUANTITY[exchange], "51000")
                closed = answers.placed_id(exchange, body)
                self.assertEqual(closed, in_jq("placed_id"))
                body, in_jq = self.ask("close-report", exchange, SYMBOL, closed)
                report = answers.closing(exchange, body, closed)
                booked = account.ledger[-1]
                self.assertEqual((None, -booked.fee) if exchange == "gate"
                                 else (booked.profit, -booked.fees), report)
                self.assertEqual(report._asdict(), in_jq(f'closing("{closed}")'))
                body, in_jq = self.ask("funding", exchange, SYMBOL)
                self.assertEqual(FUNDED[exchange], answers.funding(exchange, body, SYMBOL))
                self.assertAlmostEqual(FUNDED[exchange], in_jq(f'funding("{SYMBOL}")'), 8)

    def test_what_is_only_read_is_read_as_the_account_has_it(self):
        for exchange in EXCHANGES[3:]:
            with self.subTest(exchange):
                self.check_account(exchange)
                for order_id, kept in self.box.account(exchange).orders.items():
                    order = self.order(exchange, order_id)
                    self.assertEqual((kept.id, kept.state, kept.quantity, kept.filled, kept.price),
                                     order[:5])
                    self.assertEqual(kept.average or None, order.average)
                    if order.fee is not None:  # KuCoin's orders do not tell it
                        self.assertEqual(-kept.fee, order.fee)

    def test_a_refusal_is_told_in_the_words_of_its_exchange(self):
        for exchange in EXCHANGES:
            with self.subTest(exchange):
                body, in_jq = self.ask("cancel-order", exchange, SYMBOL, "1")
                why = answers.refusal(exchange, body)
                self.assertRegex(why, REFUSALS[exchange])
                self.assertEqual(why, in_jq("refusal"))
                with self.assertRaises(answers.Refused):
                    answers.judge(exchange, body)
