"""A clock that is wrong: the exchange's own words for it come through."""

import unittest

from sandbox import hosts
from support import ValidationTest, demo_key

TEN_MINUTES = 600_000
TOO_LATE = {"bybit": "10002", "okx": "50102", "gate": "REQUEST_EXPIRED", "bingx": "100421",
            "kucoin": "400002", "bitget": "40008"}


class Clock(ValidationTest):
    def test_a_request_from_another_time_is_refused_by_every_exchange(self):
        for exchange in hosts.BY_EXCHANGE:
            for offset in (-TEN_MINUTES, TEN_MINUTES):
                with self.subTest(exchange=exchange, offset=offset):
                    self.box.clock_offset_ms = offset
                    result = self.validate(*demo_key(exchange))
                    words = f"{exchange} rejected credentials: .*{TOO_LATE[exchange]}.*"
                    self.assert_refused(result, "invalid", words)

    def test_the_refusal_of_an_operation_is_its_answer(self):
        for exchange in hosts.BY_EXCHANGE:
            self.store_key(exchange)
            for command, *arguments in (("balance",), ("cancel-order", "BTC_USDT", "42")):
                with self.subTest(exchange=exchange, command=command):
                    self.box.clock_offset_ms = TEN_MINUTES
                    late = self.answer(command, exchange, *arguments)
                    self.assertTrue(late.startswith('{"status":"ok",'), late)
                    self.assertIn(TOO_LATE[exchange], late)
                    self.box.clock_offset_ms = 0
                    self.assertNotIn(TOO_LATE[exchange],
                                     self.answer(command, exchange, *arguments))

    def test_an_order_from_another_time_is_not_placed(self):
        self.box.clock_offset_ms = -TEN_MINUTES
        for exchange in ("bybit", "okx", "gate"):
            with self.subTest(exchange=exchange):
                self.store_key(exchange)
                body = self.body("place-open", exchange, "BTC_USDT", "buy", "1", "40000", "7")
                for half in ("leverage", "place"):
                    self.assertIn(TOO_LATE[exchange], str(body[half]))
                self.assertEqual({}, self.box.account(exchange).orders)


if __name__ == "__main__":
    unittest.main()
