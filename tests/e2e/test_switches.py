"""The sandbox itself: its switches do what they say, its tables have no slips."""

import contextlib
import io
import unittest

from sandbox.exchanges.bybit import Bybit
from support import ConnectorTest, error

SLIPS = {
    "no order has this": {"order_fields": "orderId=idd"},
    "funding has no order": {"ledger_fields": "orderId=order.id"},
    "there is no such reason": {"errors": Bybit.errors + "no_money 200 1 none"},
    "a reason has no words": {"refused_as_invalid": ""},
    "there is no such state": {"words": {"opened": "New"}},
    "there is no such operation": {"routes": {"GET /v5/position/list": "positon"}},
    "there is no such setting": {"order_field": ""},
}


class Switches(ConnectorTest):
    def switch(self, path):
        """The exit status of `curl -f`, what it printed, and what the sandbox said."""
        said = io.StringIO()
        with contextlib.redirect_stderr(said):
            done = self.box.run(["curl", "-sf", f"http://sandbox.control/{path}"])
        return done.returncode, done.stdout, said.getvalue()

    def test_a_wrong_request_fails_and_says_why_where_curl_does_not_hide_it(self):
        for path, why in {
                "fil/okx/1": "there is no switch 'fil'; "
                             "curl http://sandbox.control/ lists them",
                "orders": "write /orders/EXCHANGE",
                "orders/okex": "'okex' is none of bybit okx gate bingx kucoin bitget",
                "fill/okx/1": "okx has no open order 1; /orders/okx lists them",
                "mark/BTC/0": "'0' is no price"}.items():
            with self.subTest(path):
                status, printed, said = self.switch(path)
                self.assertEqual((22, ""), (status, printed))
                self.assertEqual(f"sandbox.control: {why}\n", said)

    def test_an_order_whose_answer_was_lost_is_there_and_only_one_answer_is_lost(self):
        self.store_keys("gate")
        self.switch("lose/gate")
        self.says(error("http_failed"),
                  "place-open", "gate", "BTC_USDT", "buy", "3", "40000", "5")
        _, listed, _ = self.switch("orders/gate")
        self.assertRegex(listed, r"(?m)^\d+ +BTC_USDT +buy +3 +40000$")
        self.assertIn('"order_margin":"2.4"', self.answer("balance", "gate"))

    def test_requests_counts_what_stood_in_them_as_it_is(self):
        self.store_keys("okx")
        self.answer("balance", "okx")
        self.box.run(["curl", "-s", "https://api.bybit.com/demo%2Dgate%2Dsecret"])
        _, listed, _ = self.switch("requests")
        self.assertEqual([["host", "requests", "key", "secret", "passphrase"],
                          ["www.okx.com", "1", "1", "0", "1"],
                          ["api.bybit.com", "1", "0", "1", "0"]],
                         [line.split() for line in listed.splitlines()])


class Tables(unittest.TestCase):
    def test_a_slip_in_a_table_is_refused_when_the_sandbox_starts(self):
        for slip, table in SLIPS.items():
            with self.subTest(slip), self.assertRaises(ValueError):
                type("Slip", (Bybit,), table)(refusals=[])
