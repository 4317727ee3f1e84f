"""A tool that is missing or fails: the command says so, and nothing unsigned is ever accepted."""

import os
import unittest

from sandbox import hosts
from support import ConnectorTest, ValidationTest, demo_key

EXCHANGES = tuple(hosts.BY_EXCHANGE)
HTTP_FAILED = '{"status":"error","reason":"http_failed"}\n'

# What an exchange says to a request whose signature is empty or wrong.
REFUSALS = {"bybit": ("10001", "10004"), "okx": ("50106", "50113"),
            "gate": ("MISSING_REQUIRED_HEADER", "INVALID_SIGNATURE"),
            "bingx": ("100412", "100001"), "kucoin": ("400001", "400005"),
            "bitget": ("40002", "40009")}


class Reading(ConnectorTest):
    def setUp(self):
        super().setUp()
        for exchange in EXCHANGES:
            self.store_key(exchange)

    def read(self, exchange):
        """A balance; the tools' own complaints may stand on standard error."""
        done = self.connector("balance", exchange)
        self.assertEqual(0, done.returncode)
        return done.stdout

    def test_without_curl_the_request_failed(self):
        self.only_tools("openssl", "xxd")
        for exchange in EXCHANGES:
            with self.subTest(exchange=exchange):
                self.assertEqual(HTTP_FAILED, self.read(exchange))

    def test_a_failing_curl_is_a_failed_request_whatever_it_printed(self):
        for script in ("echo '{\"retCode\":0}'; exit 1", "exit 28", "kill -9 $$", "exit 127"):
            with self.subTest(script=script):
                self.stand_in("curl", f"#!/bin/sh\n{script}\n")
                self.assertEqual(HTTP_FAILED, self.read("bybit"))

    def test_what_curl_printed_beside_a_success_is_part_of_the_answer(self):
        self.stand_in("curl", "#!/bin/sh\nprintf warning >&2; printf answer\n")
        self.assertEqual('{"status":"ok","exchange":"okx","kind":"balance","body":warninganswer}\n',
                         self.read("okx"))

    def test_an_unsigned_request_is_refused_by_the_exchange(self):
        for tools in (["curl", "xxd"], ["curl", "openssl"], ["curl"]):
            self.only_tools(*tools)
            for exchange in EXCHANGES:
                if tools == ["curl", "openssl"] and exchange in ("okx", "kucoin", "bitget"):
                    continue  # These are signed without xxd.
                with self.subTest(tools=tools, exchange=exchange):
                    answer = self.read(exchange)
                    head = f'{{"status":"ok","exchange":"{exchange}","kind":"balance","body":'
                    self.assertTrue(answer.startswith(head), answer)
                    self.assertIn(REFUSALS[exchange][0], answer)

    def test_a_wrongly_signed_request_is_refused_by_the_exchange(self):
        # A digest that fails half way still ends in a text; it must not pass for a signature.
        self.stand_in("openssl", "#!/bin/sh\nprintf 'Error setting digest'; exit 1\n")
        for exchange in ("bybit", "gate", "bingx"):
            with self.subTest(exchange=exchange):
                self.assertIn(REFUSALS[exchange][1], self.read(exchange))
        for exchange in ("okx", "bitget", "kucoin"):
            with self.subTest(exchange=exchange):
                self.assertIn(REFUSALS[exchange][0], self.read(exchange))

    def test_an_unsigned_order_is_not_placed(self):
        self.only_tools("curl")
        for exchange in ("bybit", "okx", "gate"):
            with self.subTest(exchange=exchange):
                done = self.connector("place-open", exchange, "BTC_USDT", "buy", "1", "40000", "7")
                self.assertEqual(2, done.stdout.count(REFUSALS[exchange][0]), done.stdout)
                self.assertEqual({}, self.box.account(exchange).orders)
                self.assertEqual({}, self.box.account(exchange).leverages)


class Validating(ValidationTest):
    def test_without_xxd_the_signature_cannot_be_built(self):
        self.only_tools("curl", "openssl", "date", "python3")
        for exchange in ("bybit", "gate"):
            with self.subTest(exchange=exchange):
                self.assert_refused(self.validate(*demo_key(exchange)), "error",
                                    f"failed to build {exchange} signature: .*xxd.*")
        self.assertEqual([], self.box.requests)

    def test_what_a_failing_xxd_prints_is_told(self):
        self.stand_in("xxd", "#!/bin/sh\ncat > /dev/null; echo out; echo no memory >&2; exit 2\n")
        for exchange in ("bybit", "gate"):
            with self.subTest(exchange=exchange):
                self.assert_refused(self.validate(*demo_key(exchange)), "error",
                                    f"failed to build {exchange} signature: out\nno memory")

    def test_without_openssl_the_exchange_refuses_the_unsigned_request(self):
        self.only_tools("curl", "xxd", "date", "python3")
        for exchange in ("bybit", "gate"):
            with self.subTest(exchange=exchange):
                self.assert_refused(self.validate(*demo_key(exchange)), "invalid",
                                    f"{exchange} rejected credentials: .*{REFUSALS[exchange][0]}.*")

    def test_the_probes_need_neither_openssl_nor_xxd_nor_curl(self):
        self.only_tools("python3")
        for exchange in ("okx", "bingx", "kucoin", "bitget"):
            with self.subTest(exchange=exchange):
                self.assertEqual(0, self.validate(*demo_key(exchange))["exit"])

    def test_without_curl_the_request_failed(self):
        self.only_tools("openssl", "xxd", "date")
        for exchange in ("bybit", "gate"):
            with self.subTest(exchange=exchange):
                self.assert_refused(self.validate(*demo_key(exchange)), "error",
                                    f"{exchange} request failed: .*curl.*")

    def test_what_a_failing_curl_prints_is_told(self):
        self.stand_in("curl", "#!/bin/sh\necho '\"retCode\":0 \"user\"'\n"
                              "echo 'curl: (28) too late ' >&2\nexit 28\n")
        for exchange in ("bybit", "gate"):
            with self.subTest(exchange=exchange):
                self.assert_refused(
                    self.validate(*demo_key(exchange)), "error",
                    exchange + r' request failed: "retCode":0 "user"\ncurl: \(28\) too late')

    def test_without_a_date_gate_refuses_and_the_others_do_not_care(self):
        self.only_tools("curl", "openssl", "xxd", "python3")
        self.assert_refused(self.validate(*demo_key("gate")), "invalid",
                            "gate rejected credentials: .*REQUEST_EXPIRED.*")
        self.stand_in("date", "#!/bin/sh\nexit 1\n")
        self.assert_refused(self.validate(*demo_key("gate")), "invalid",
                            "gate rejected credentials: .*MISSING_REQUIRED_HEADER.*Timestamp.*")
        for exchange in EXCHANGES:
            if exchange != "gate":
                with self.subTest(exchange=exchange):
                    self.assertEqual(0, self.validate(*demo_key(exchange))["exit"])

    def test_without_any_tool_no_key_is_accepted(self):
        self.only_tools()
        for exchange in EXCHANGES:
            with self.subTest(exchange=exchange):
                self.assert_refused(self.validate(*demo_key(exchange)), "error", "failed to .*")


class Vault(ConnectorTest):
    """The keychain's tool is not there; the file is the road."""

    def setUp(self):
        super().setUp()
        self.only_tools()

    def test_a_stored_key_is_printed_in_five_lines(self):
        self.store_key("okx", "k=1", "s==", "p w")
        self.assertEqual("status=ok\nexchange=okx\napi_key=k=1\napi_secret=s==\npassphrase=p w\n",
                         self.answer("load-credentials", "okx"))

    def test_the_file_is_read_line_by_line_and_the_last_word_counts(self):
        for text, printed in (
                ("", ["", "", "", ""]), ("no equals sign\n", ["", "", "", ""]),
                ("api_key=a\napi_key=b\nunknown=c\n\napi_secret=s", ["", "b", "s", ""]),
                ("passphrase=\nexchange=other\r\nAPI_KEY=a\n api_key=b\n",
                 ["other\r", "", "", ""])):
            with self.subTest(text=text):
                self.write("vault/gate.vault", text)
                self.assertEqual("status=ok\nexchange=%s\napi_key=%s\napi_secret=%s\n"
                                 "passphrase=%s\n" % tuple(printed),
                                 self.answer("load-credentials", "gate"))

    def test_no_stored_key_is_missing(self):
        for exchange in ("bybit", "nowhere", ""):
            with self.subTest(exchange=exchange):
                done = self.connector("load-credentials", exchange)
                self.assertEqual((2, "status=missing\n", ""),
                                 (done.returncode, done.stdout, done.stderr))

    def test_a_deleted_key_is_gone_and_deleting_nothing_succeeds(self):
        self.store_key("bybit")
        for _ in range(2):
            self.assertEqual("status=ok\nexchange=bybit\nremoved=true\n",
                             self.answer("delete-credentials", "bybit"))
            self.assertNotIn("vault/bybit.vault", self.files())
        self.assertEqual(2, self.connector("load-credentials", "bybit").returncode)

    def test_what_cannot_be_removed_is_told(self):
        os.makedirs(os.path.join(self.root, "vault/bybit.vault/full"))
        done = self.connector("delete-credentials", "bybit")
        self.assertEqual((2, "status=error\nexchange=bybit\nremoved=false\n"),
                         (done.returncode, done.stdout))
        self.assertIn("vault/bybit.vault/full", self.files())


if __name__ == "__main__":
    unittest.main()
