"""The frame of every exchange operation: what is refused, what is sent, how an answer returns."""

import re
import unittest

from sandbox import Fault, hosts
from sandbox.faults import json_of_size
from support import ConnectorTest

EXCHANGES = tuple(hosts.BY_EXCHANGE)
TRADING = ("bybit", "okx", "gate")
HOST = {exchange: names[0] for exchange, names in hosts.BY_EXCHANGE.items()}

# Arguments after the exchange, and the kind that the answer names.
READS = {"balance": ([], "balance"), "get-position": (["BTC_USDT"], "position"),
         "order-status": (["BTC_USDT", "42"], "order_status"),
         "cancel-order": (["BTC_USDT", "42"], "cancel_order")}
TRADES = {"place-open": (["BTC_USDT", "buy", "1", "40000", "7"], "place_open"),
          "place-close": (["BTC_USDT", "buy", "1", "60000"], "place_close"),
          "funding": (["BTC_USDT"], "funding"),
          "close-report": (["BTC_USDT", "42"], "close_report")}
OPERATIONS = {**READS, **TRADES}


def error(reason):
    return '{"status":"error","reason":"%s"}\n' % reason


class Reasons(ConnectorTest):
    def test_without_a_stored_key_nothing_else_is_looked_at(self):
        self.store_key("Bybit")
        for exchange in ("bybit", "hyperliquid", ""):
            for command, (arguments, _) in OPERATIONS.items():
                empty = ["", "7"] if command == "funding" else [""] * 4 + ["7"]
                for given in (arguments, empty):
                    with self.subTest(command=command, exchange=exchange, given=given):
                        self.assertEqual(error("credentials_not_found"),
                                         self.answer(command, exchange, *given))
        self.assertEqual([], self.box.requests)

    def test_an_empty_order_id_comes_before_the_exchange(self):
        for exchange in EXCHANGES + ("hyperliquid", "Bybit"):
            self.store_key(exchange)
            for command in ("order-status", "cancel-order"):
                with self.subTest(command=command, exchange=exchange):
                    self.assertEqual(error("missing_order_id"),
                                     self.answer(command, exchange, "BTC_USDT", ""))
        self.assertEqual([], self.box.requests)

    def test_a_stored_key_of_an_unserved_exchange_is_unsupported(self):
        for exchange, commands in (("hyperliquid", OPERATIONS), ("Bybit", OPERATIONS),
                                   ("OKX", OPERATIONS), ("bingx", TRADES), ("kucoin", TRADES),
                                   ("bitget", TRADES)):
            self.store_key(exchange)
            for command in commands:
                with self.subTest(command=command, exchange=exchange):
                    self.assertEqual(error("unsupported_exchange"),
                                     self.answer(command, exchange, *OPERATIONS[command][0]))
        self.assertEqual([], self.box.requests)

    def test_a_failed_transfer_is_told_without_curls_words(self):
        for exchange in EXCHANGES:
            self.store_key(exchange)
            self.box.faults[:] = [Fault.close(HOST[exchange])]
            for command in OPERATIONS if exchange in TRADING else READS:
                with self.subTest(command=command, exchange=exchange):
                    self.box.requests.clear()
                    self.assertEqual(error("http_failed"),
                                     self.answer(command, exchange, *OPERATIONS[command][0]))
                    self.assertNotEqual([], self.box.requests)

    def test_half_an_answer_is_no_answer(self):
        self.store_key("gate")
        self.box.faults[:] = [Fault.cut_off(hosts.GATE)]
        self.assertEqual(error("http_failed"), self.answer("balance", "gate"))

    def test_a_strangers_certificate_is_never_talked_to(self):
        for exchange in EXCHANGES:
            with self.subTest(exchange=exchange):
                self.store_key(exchange)
                for fault in (Fault.unknown_ca, Fault.expired_certificate):
                    self.box.faults[:] = [fault(HOST[exchange])]
                    self.assertEqual(error("http_failed"), self.answer("balance", exchange))
        self.assertEqual([], self.box.requests)


class Sent(ConnectorTest):
    def test_a_report_sends_both_requests_but_gates_stops_at_the_first_failure(self):
        order = {"bybit": "/v5/order/realtime", "okx": "/api/v5/trade/order",
                 "gate": "/api/v4/futures/usdt/orders/"}
        for exchange in TRADING:
            self.store_key(exchange)
            for path, count in ((order[exchange], 1 if exchange == "gate" else 2), ("", 2)):
                with self.subTest(exchange=exchange, path=path):
                    self.box.requests.clear()
                    self.box.faults[:] = [Fault.close(HOST[exchange], path=path, times=1)]
                    if not path:
                        first_half = Fault.answer(HOST[exchange], path=order[exchange])
                        self.box.faults.insert(0, first_half)
                    self.assertEqual(error("http_failed"),
                                     self.answer("close-report", exchange, "BTC_USDT", "42"))
                    self.assertEqual(count, len(self.box.requests))

    def test_a_report_without_an_order_id_asks_for_the_symbol_but_gates_skips_the_order(self):
        for exchange, targets in (
                ("bybit", ["/v5/order/realtime?category=linear&symbol=BTCUSDT",
                           "/v5/position/closed-pnl?category=linear&symbol=BTCUSDT&limit=20"]),
                ("okx", ["/api/v5/trade/order?instId=BTC-USDT-SWAP",
                         "/api/v5/account/positions-history?instType=SWAP&instId=BTC-USDT-SWAP"]),
                ("gate", ["/api/v4/futures/usdt/my_trades?contract=BTC_USDT&limit=20"])):
            self.store_key(exchange)
            for no_id in ([], [""]):
                with self.subTest(exchange=exchange, no_id=no_id):
                    self.box.requests.clear()
                    answer = self.answer("close-report", exchange, "BTC_USDT", *no_id)
                    self.assertEqual([("GET", HOST[exchange], target) for target in targets],
                                     self.sent())
        self.assertEqual('{"status":"ok","exchange":"gate","kind":"close_report",'
                         '"body":{"order":{},"trades":[]}}\n', answer)

    def test_gate_signs_both_halves_of_a_report_at_one_moment(self):
        self.store_key("gate")
        # The moment must be one even when the first half takes longer than the clock's step.
        self.box.faults[:] = [Fault.slow(hosts.GATE, times=1, pieces=3, pause_seconds=0.55)]
        self.answer("close-report", "gate", "BTC_USDT", "42")
        first, second = self.box.requests
        self.assertEqual("/api/v4/futures/usdt/orders/42", first.target)
        self.assertEqual(first.header("Timestamp"), second.header("Timestamp"))
        self.assertNotEqual(first.header("SIGN"), second.header("SIGN"))

    def test_funding_begins_so_many_minutes_before_the_request(self):
        for exchange, parameter, header, per_minute in (
                ("bybit", "startTime", "X-BAPI-TIMESTAMP", 60_000),
                ("gate", "from", "Timestamp", 60)):
            self.store_key(exchange)
            for given, minutes in (([], 180), (["60"], 60), (["0"], 0), (["-5"], -5),
                                   ([" 90 minutes"], 90), (["2147483647"], 2147483647),
                                   (["-2147483648"], -2147483648)):
                with self.subTest(exchange=exchange, given=given):
                    self.box.requests.clear()
                    self.answer("funding", exchange, "BTC_USDT", *given)
                    request, = self.box.requests
                    start = int(request.parameters[parameter])
                    late = start + minutes * per_minute - int(request.header(header))
                    self.assertTrue(0 <= late < per_minute, (start, late))

    def test_okx_gives_its_latest_funding_whatever_the_look_back(self):
        self.store_key("okx")
        for minutes in ([], ["0"], ["60"], ["-5"]):
            self.answer("funding", "okx", "BTC_USDT", *minutes)
        target = "/api/v5/account/bills?instType=SWAP&instId=BTC-USDT-SWAP&type=8&limit=50"
        self.assertEqual([("GET", hosts.OKX_GLOBAL, target)] * 4, self.sent())

    def test_gates_position_is_asked_for_without_the_symbol_and_kucoins_order_too(self):
        for exchange in ("gate", "kucoin"):
            self.store_key(exchange)
        for symbol in ("BTC_USDT", "ETH_USDT", ""):
            self.answer("get-position", "gate", symbol)
            self.answer("order-status", "kucoin", symbol, "42")
        self.assertEqual([("GET", hosts.GATE, "/api/v4/futures/usdt/positions?holding=true"),
                          ("GET", hosts.KUCOIN, "/api/v1/orders/42")] * 3, self.sent())


class Answers(ConnectorTest):
    def test_whatever_came_is_passed_on_as_it_is(self):
        page = b"<html>\r\n<h1>502</h1>\r\n</html>\r\n"
        answers = [(200, b""), (502, page), (200, b"[1, 2]"), (200, b"not json \"'}"),
                   (200, b'{\n  "a": 1\n}\n'), (200, b"\xff\xfe%s%d\\n"), (204, b""),
                   (401, b'{"code":"50113"}'), (429, b"slow down"), (500, b"")]
        for exchange in EXCHANGES:
            self.store_key(exchange)
            for status, body in answers if exchange == "bybit" else answers[:2]:
                with self.subTest(exchange=exchange, status=status, body=body):
                    self.box.faults[:] = [Fault.answer(HOST[exchange], status, body)]
                    self.assertEqual(
                        b'{"status":"ok","exchange":"%s","kind":"balance","body":%s}\n'
                        % (exchange.encode(), body), self.raw_answer("balance", exchange))

    def test_each_operation_has_its_kind(self):
        for exchange in EXCHANGES:
            self.store_key(exchange)
            self.box.faults[:] = [Fault.answer(HOST[exchange], 200, b"x\ny")]
            for command in OPERATIONS if exchange in TRADING else READS:
                arguments, kind = OPERATIONS[command]
                with self.subTest(exchange=exchange, command=command):
                    part = {"bybit": "closed_pnl", "okx": "positions_history", "gate": "trades"}
                    body = {"place-open": '{"leverage":x\ny,"place":x\ny}',
                            "close-report": '{"order":x\ny,"%s":x\ny}' % part.get(exchange),
                            }.get(command, "x\ny")
                    self.assertEqual('{"status":"ok","exchange":"%s","kind":"%s","body":%s}\n'
                                     % (exchange, kind, body),
                                     self.answer(command, exchange, *arguments))

    def test_a_nul_byte_takes_the_rest_of_its_line_with_it(self):
        self.store_key("bybit")
        for body, left in ((b"ab\0cd\nef", b"abef"), (b"\0", b""), (b"a\n\0b\nc\n", b"a\nc\n")):
            with self.subTest(body=body):
                self.box.faults[:] = [Fault.answer(hosts.BYBIT, 200, body)]
                self.assertEqual(b'{"status":"ok","exchange":"bybit","kind":"balance","body":%s}\n'
                                 % left, self.raw_answer("balance", "bybit"))

    def test_long_lines_come_whole(self):
        self.store_key("okx")
        for size in (4094, 4095, 4096, 4097, 8190, 8191, 8192, 100_000):
            with self.subTest(size=size):
                body = json_of_size(size)
                self.box.faults[:] = [Fault.answer(hosts.OKX_GLOBAL, 200, body)]
                self.assertIn(b'"body":' + body + b"}\n", self.raw_answer("balance", "okx"))

    def test_an_answer_of_64_mebibytes_comes_whole(self):
        self.store_key("bybit")
        self.box.faults[:] = [Fault.json_of_size(hosts.BYBIT, 64 << 20)]
        answer = self.raw_answer("balance", "bybit")
        head = b'{"status":"ok","exchange":"bybit","kind":"balance","body":'
        expected = head + json_of_size(64 << 20) + b"}\n"
        self.assertEqual(len(expected), len(answer))
        self.assertTrue(expected == answer, "the same length, but not the same answer")

    def test_an_answer_is_one_line_when_the_exchanges_is(self):
        for exchange in EXCHANGES:
            self.store_key(exchange)
            for command in OPERATIONS if exchange in TRADING else READS:
                with self.subTest(exchange=exchange, command=command):
                    answer = self.answer(command, exchange, *OPERATIONS[command][0])
                    self.assertTrue(re.fullmatch(r'\{"status":"ok",.*\}\n', answer), answer)

    def raw_answer(self, *arguments):
        done = self.connector(*arguments, text=False)
        self.assertEqual((0, b""), (done.returncode, done.stderr))
        return done.stdout


if __name__ == "__main__":
    unittest.main()
