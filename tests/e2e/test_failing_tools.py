"""Tools that are missing or fail, clocks that are wrong: nothing unsigned is ever accepted."""


from sandbox import hosts
from support import ConnectorTest, demo_key

EXCHANGES = tuple(hosts.BY_EXCHANGE)
HTTP_FAILED = '{"status":"error","reason":"http_failed"}\n'
OPEN = ("BTC_USDT", "buy", "1", "40000", "7")
TEN_MINUTES = 600_000

# What an exchange says to a request whose signature is empty or wrong, or from another time.
UNSIGNED = {"bybit": "10001", "okx": "50106", "gate": "MISSING_REQUIRED_HEADER",
            "bingx": "100412", "kucoin": "400001", "bitget": "40002"}
WRONGLY_SIGNED = {"bybit": "10004", "gate": "INVALID_SIGNATURE", "bingx": "100001"}
TOO_LATE = {"bybit": "10002", "okx": "50102", "gate": "REQUEST_EXPIRED", "bingx": "100421",
            "kucoin": "400002", "bitget": "40008"}


class Operations(ConnectorTest):
    def setUp(self):
        super().setUp()
        for exchange in EXCHANGES:
            self.store_key(exchange)

    def printed(self, command, exchange, *arguments):
        """The tools' own complaints may stand on standard error."""
        done = self.connector(command, exchange, *arguments)
        self.assertEqual(0, done.returncode)
        return done.stdout

    def test_a_missing_or_failing_curl_is_a_failed_request_whatever_it_printed(self):
        for script in ("echo '{\"retCode\":0}'; exit 1", "kill -9 $$", "exit 128"):
            self.stand_in("curl", f"{script}\n")
            self.assertEqual(HTTP_FAILED, self.printed("balance", "bybit"))
        self.stand_in("curl", "printf warning >&2; printf answer\n")
        self.assertIn('"body":warninganswer}\n', self.printed("balance", "okx"))
        self.only_tools("openssl", "xxd")
        for exchange in EXCHANGES:
            self.assertEqual(HTTP_FAILED, self.printed("balance", exchange))

    def test_a_request_without_its_signature_is_refused_by_the_exchange(self):
        for tools in (["curl", "xxd"], ["curl", "openssl"]):
            self.only_tools(*tools)
            for exchange in EXCHANGES:
                if "openssl" not in tools or exchange in WRONGLY_SIGNED:  # The others need no xxd.
                    self.assertIn(UNSIGNED[exchange], self.printed("balance", exchange))
        # A digest that fails half way still ends in a text; it must not pass for a signature.
        self.only_tools("curl", "xxd")
        self.stand_in("openssl", "printf 'Error setting digest'; exit 1\n")
        for exchange, refusal in {**UNSIGNED, **WRONGLY_SIGNED}.items():
            self.assertIn(refusal, self.printed("balance", exchange))

    def test_an_order_unsigned_or_from_another_time_is_not_placed(self):
        for self.box.clock_offset_ms, refusals in ((-TEN_MINUTES, TOO_LATE), (0, UNSIGNED)):
            for exchange in EXCHANGES:
                if refusals is TOO_LATE:
                    self.assertIn(TOO_LATE[exchange], self.printed("balance", exchange))
                if exchange in ("bybit", "okx", "gate"):
                    printed = self.printed("place-open", exchange, *OPEN)
                    self.assertEqual(2, printed.count(refusals[exchange]), printed)
                    account = self.box.account(exchange)
                    self.assertEqual(({}, {}), (account.orders, account.leverages))
            self.only_tools("curl")


class Checks(ConnectorTest):
    def assert_checks(self, exchanges, status, reason):
        """How the checks end; `reason` may hold the exchange's name in braces."""
        for exchange in exchanges:
            result = self.validate(*demo_key(exchange))
            self.assert_refused(result, status, reason.replace("{}", exchange))

    def test_two_checks_tell_which_tool_failed_them_and_four_need_only_python(self):
        without = {tool: [other for other in ("curl", "openssl", "xxd", "date") if other != tool]
                   for tool in ("curl", "openssl", "xxd", "date")}
        for tool, exchanges, status, reason in (
                ("curl", ["bybit", "gate"], "error", "{} request failed: .*curl.*"),
                ("xxd", ["bybit", "gate"], "error", "failed to build {} signature: .*xxd.*"),
                ("openssl", ["bybit"], "invalid", "bybit rejected credentials: .*10001.*"),
                ("openssl", ["gate"], "invalid",
                 "gate rejected credentials: .*MISSING_REQUIRED_HEADER.*"),
                ("date", ["gate"], "invalid", "gate rejected credentials: .*REQUEST_EXPIRED.*")):
            self.only_tools(*without[tool])
            self.assert_checks(exchanges, status, reason)
        self.only_tools()
        self.assert_checks(EXCHANGES, "error", "failed to .*")
        self.only_tools("python3")
        for exchange in ("okx", "bingx", "kucoin", "bitget", "bybit"):
            if exchange == "bybit":  # It needs no date.
                self.only_tools(*without["date"])
            self.assertEqual(0, self.validate(*demo_key(exchange))["exit"], exchange)

    def test_what_a_failing_tool_prints_is_told(self):
        for tool, script, reason in (
                ("date", "exit 1", "gate rejected .*MISSING_REQUIRED_HEADER.*Timestamp.*"),
                ("curl", "echo '\"retCode\":0 \"user\"'; echo 'curl: (28) too late ' >&2; exit 28",
                 r'{} request failed: "retCode":0 "user"\ncurl: \(28\) too late'),
                ("xxd", "cat > /dev/null; echo out; echo no memory >&2; exit 2",
                 "failed to build {} signature: out\nno memory")):
            self.stand_in(tool, f"{script}\n")
            self.assert_checks(["gate"] if tool == "date" else ["bybit", "gate"],
                               "invalid" if tool == "date" else "error", reason)

    def test_a_check_from_another_time_is_refused_by_every_exchange(self):
        for exchange in EXCHANGES:
            for self.box.clock_offset_ms in (-TEN_MINUTES, TEN_MINUTES):
                self.assert_checks([exchange], "invalid",
                                   "{} rejected credentials: .*" + TOO_LATE[exchange] + ".*")
