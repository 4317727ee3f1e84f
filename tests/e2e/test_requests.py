"""The frame of every exchange operation: what is refused, what is sent, how an answer returns."""


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


class RequestTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        for exchange in EXCHANGES:
            self.store_key(exchange)


class Reasons(RequestTest):
    def test_no_key_comes_before_no_order_id_and_that_before_no_such_exchange(self):
        # Both strangers' keys are stored, so that only the name can be what is wrong.
        for exchange in ("hyperliquid", "Bybit"):
            self.store_key(exchange)
        for reason, names, commands, empty in (
                ("credentials_not_found", ("reya", "OKX", ""), OPERATIONS, True),
                ("missing_order_id", EXCHANGES + ("hyperliquid", "Bybit"),
                 ("order-status", "cancel-order"), True),
                ("unsupported_exchange", ("hyperliquid", "Bybit"), OPERATIONS, False),
                ("unsupported_exchange", ("bingx", "kucoin", "bitget"), TRADES, False)):
            for exchange in names:
                for command in commands:
                    given = OPERATIONS[command][0]
                    if empty:
                        given = [text if text.isdigit() and command == "place-open" else ""
                                 for text in given]
                    self.assertEqual(error(reason), self.answer(command, exchange, *given))
        self.assertEqual([], self.box.requests)

    def test_a_failed_transfer_is_told_without_curls_words(self):
        for exchange in EXCHANGES:
            self.box.faults[:] = [Fault.close(HOST[exchange])]
            for command in OPERATIONS if exchange in TRADING else READS:
                self.box.requests.clear()
                self.assert_run((0, error("http_failed")), command, exchange,
                                *OPERATIONS[command][0])
                self.assertNotEqual([], self.box.requests)
        self.box.faults[:] = [Fault.cut_off(hosts.GATE)]
        self.assertEqual(error("http_failed"), self.answer("balance", "gate"))


class Sent(RequestTest):
    def test_a_report_sends_both_requests_but_gates_stops_at_the_first_failure(self):
        order = {"bybit": "/v5/order/realtime", "okx": "/api/v5/trade/order",
                 "gate": "/api/v4/futures/usdt/orders/"}
        for exchange in TRADING:
            for path, count in ((order[exchange], 1 if exchange == "gate" else 2), ("", 2)):
                self.box.requests.clear()
                self.box.faults[:] = [Fault.close(HOST[exchange], path=path, times=1)]
                if not path:
                    first_half = Fault.answer(HOST[exchange], path=order[exchange])
                    self.box.faults.insert(0, first_half)
                self.assertEqual(error("http_failed"),
                                 self.answer("close-report", exchange, "BTC_USDT", "42"))
                self.assertEqual(count, len(self.box.requests))

    def test_gates_report_without_an_order_id_asks_for_no_order(self):
        for no_id in ([], [""]):
            self.assert_run((0, '{"status":"ok","exchange":"gate","kind":"close_report",'
                                '"body":{"order":{},"trades":[]}}\n'),
                            "close-report", "gate", "BTC_USDT", *no_id)
        self.assertEqual([("GET", hosts.GATE, "/api/v4/futures/usdt/my_trades?contract=BTC_USDT"
                                              "&limit=20")] * 2, self.sent())

    def test_gate_signs_both_halves_of_a_report_at_one_moment(self):
        # The moment must be one even when the first half takes longer than the clock's step.
        self.box.faults[:] = [Fault.slow(hosts.GATE, times=1, pieces=3, pause_seconds=0.55)]
        self.answer("close-report", "gate", "BTC_USDT", "42")
        first, second = self.box.requests
        self.assertEqual("/api/v4/futures/usdt/orders/42", first.target)
        self.assertEqual(first.header("Timestamp"), second.header("Timestamp"))
        self.assertNotEqual(first.header("SIGN"), second.header("SIGN"))

    def test_funding_begins_so_many_minutes_before_the_request(self):
        for given, minutes in (([], 180), ([" 90 minutes"], 90), (["2147483647"], 2147483647),
                               (["-2147483648"], -2147483648)):
            self.box.requests.clear()
            self.answer("funding", "bybit", "BTC_USDT", *given)
            request, = self.box.requests
            start = int(request.parameters["startTime"])
            late = start + minutes * 60_000 - int(request.header("X-BAPI-TIMESTAMP"))
            self.assertTrue(0 <= late < 60_000, late)


class Answers(RequestTest):
    def assert_passed_on(self, body, printed=None, status=200, exchange="bybit"):
        """The balance's frame around what came; a long difference is nothing to read."""
        self.box.faults[:] = [Fault.answer(HOST[exchange], status, body)]
        done = self.connector("balance", exchange, text=False)
        expected = b'{"status":"ok","exchange":"%s","kind":"balance","body":%s}\n' \
            % (exchange.encode(), body if printed is None else printed)
        self.assertEqual((0, b"", len(expected), expected[:300]),
                         (done.returncode, done.stderr, len(done.stdout), done.stdout[:300]))
        self.assertTrue(expected == done.stdout, "the same length, but not the same answer")

    def test_whatever_came_is_passed_on_as_it_is_but_for_a_line_behind_its_nul(self):
        for exchange in EXCHANGES:
            self.assert_passed_on(b"", exchange=exchange)
            self.assert_passed_on(b"<html>\r\n<h1>502</h1>\r\n</html>\r\n", None, 502, exchange)
        for status, body in ((200, b"not json \"'}"), (200, b'{\n  "a": 1\n}\n'), (204, b""),
                             (200, b"\xff\xfe%s%d\\n"), (401, b'{"code":"50113"}'),
                             (429, b"slow down"), (500, b"")):
            self.assert_passed_on(body, None, status)
        for body, left in ((b"ab\0cd\nef", b"abef"), (b"\0", b""), (b"a\n\0b\nc\n", b"a\nc\n")):
            self.assert_passed_on(body, left)
        for size in (4094, 4095, 4096, 8191, 100_000, 64 << 20):
            self.assert_passed_on(json_of_size(size))

    def test_each_operation_has_its_kind(self):
        for exchange in EXCHANGES:
            self.box.faults[:] = [Fault.answer(HOST[exchange], 200, b"x\ny")]
            for command in OPERATIONS if exchange in TRADING else READS:
                arguments, kind = OPERATIONS[command]
                part = {"bybit": "closed_pnl", "okx": "positions_history", "gate": "trades"}
                body = {"place-open": '{"leverage":x\ny,"place":x\ny}',
                        "close-report": '{"order":x\ny,"%s":x\ny}' % part.get(exchange),
                        }.get(command, "x\ny")
                self.assertEqual('{"status":"ok","exchange":"%s","kind":"%s","body":%s}\n'
                                 % (exchange, kind, body),
                                 self.answer(command, exchange, *arguments))
