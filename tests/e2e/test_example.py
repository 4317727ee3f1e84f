"""examples/pair_trade.py on a good day, and on the bad ones that it is there for."""

import os
import re
import sys
from decimal import Decimal

from sandbox import Fault, hosts
from support import CONNECTOR, TRADING, ConnectorTest

SCRIPT = os.path.join(os.path.dirname(__file__), "../../examples/pair_trade.py")
LONG = "bybit:0.01:50000"
ORDERS = {"bybit": "/v5/order/create", "okx": "/api/v5/trade/order"}


class PairTrade(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys(*TRADING)
        self.stand_in(**{"morvane-connector": f'exec {CONNECTOR} "$@"'})

    def trade(self, expected_status, *legs, typed=b"\n"):
        done = self.box.run([sys.executable, "-B", SCRIPT, "--wait", "0", "BTC_USDT", *legs, "5"],
                            env=self.env, input=typed)
        self.assertEqual(expected_status, done.returncode, done)
        return done.stdout + done.stderr

    def bybit_size(self):
        return Decimal(self.body("get-position", "bybit", "BTC_USDT")["result"]["list"][0]["size"])

    def orders_sent(self, exchange):
        return len([each for each in self.box.requests if each.target == ORDERS[exchange]])

    def test_both_legs_are_opened_and_closed_and_what_it_brought_is_told(self):
        before = Decimal(self.body("balance", "gate")["total"])
        told = self.trade(0, LONG, "gate:100:50000")
        change = Decimal(self.body("balance", "gate")["total"]) - before
        self.assertNotEqual(0, change)  # fees at least
        self.assertEqual([change], [Decimal(each) for each in
                                    re.findall(r"^gate short: ([+-]\S+) USDT$", told, re.M)])
        self.assertEqual([], self.body("get-position", "gate", "BTC_USDT"))
        self.assertEqual([2, 0], [self.orders_sent("bybit"), self.bybit_size()])

    def test_a_refused_second_leg_has_the_first_unwound(self):
        self.assertIn("refused: 51008", self.trade(1, LONG, "okx:99999999:50000"))
        self.assertEqual([2, 0], [self.orders_sent("bybit"), self.bybit_size()])

    def test_an_order_whose_answer_was_lost_is_not_sent_again(self):
        self.box.faults.append(Fault.lost_answer(hosts.BYBIT, path=ORDERS["bybit"], times=1))
        self.assertIn("asking for the position", self.trade(0, LONG, "okx:1:50000"))
        self.assertEqual([2, 0], [self.orders_sent("bybit"), self.bybit_size()])

    def test_an_order_that_nobody_can_find_is_left_to_a_person(self):
        self.box.faults.append(Fault.close(hosts.OKX_GLOBAL, path=ORDERS["okx"], times=1))
        self.assertIn("may be resting, or never came", self.trade(3, LONG, "okx:1:50000"))
        self.assertEqual([1, Decimal("0.01")], [self.orders_sent("bybit"), self.bybit_size()])

    def test_when_nobody_answers_the_question_nothing_stays_open(self):
        self.assertIn("Nobody is there", self.trade(0, LONG, "okx:1:50000", typed=b"x\n50000"))
        self.assertEqual([2, 0], [self.orders_sent("bybit"), self.bybit_size()])

    def test_wrong_arguments_are_named_and_nothing_is_sent(self):
        self.assertIn("EXCHANGE:QUANTITY:PRICE", self.trade(2, LONG, "okx:1:nan"))
        self.assertIn("same exchange", self.trade(2, LONG, LONG))
        self.assertEqual([], self.box.requests)
