"""Whatever stands in an argument or in a stored key is text: it arrives byte for byte, and nothing
of it is run."""

import ast
import base64
import hashlib
import hmac
import os
import sys
import unittest

from support import ConnectorTest

EVERY_BYTE = os.fsdecode(bytes(range(1, 256)))
EVERY_BYTE_BUT_LINE_FEED = EVERY_BYTE.replace("\n", "")
TEXTS = (EVERY_BYTE, "$(touch ran)", "`touch ran`", "; touch ran;", "& touch ran &", "| touch ran",
         "'; touch ran; '", '"; touch ran; "', "\ntouch ran\n", "' \"$(touch ran)\" '", "> ran",
         "\\'; touch ran #", "-o ran", "--output=ran", "-", "''", "'", "\\", "\\n", "%s%n", "*",
         "~", "$HOME", "!!", "a b", " ", "#", "\r\n", "'\n'")
LINES = tuple(text for text in TEXTS if "\n" not in text) + (EVERY_BYTE_BUT_LINE_FEED,)
"""What can stand in a file of lines."""


def signature(algorithm, secret, *pieces):
    text = b"".join(piece if isinstance(piece, bytes) else os.fsencode(piece) for piece in pieces)
    return hmac.new(os.fsencode(secret), text, algorithm)


class HostileTest(ConnectorTest):
    """The stand-in tools keep their arguments; the working folder must stay empty."""

    def setUp(self):
        super().setUp()
        self.folder = os.path.join(self.home, "here")
        os.mkdir(self.folder)
        self.log = os.path.join(self.home, "arguments")

    def tearDown(self):
        self.assertEqual([], os.listdir(self.folder), "something was run")

    def record_calls_of(self, tool):
        """Puts a stand-in on the PATH that keeps its arguments and prints nothing."""
        self.stand_in(tool, f"#!/bin/sh\nprintf '%s\\0' $# \"$@\" >> '{self.log}'\n")

    def calls(self, *arguments):
        """Runs a command; the arguments of each recorded call of the tool."""
        if os.path.exists(self.log):
            os.remove(self.log)
        self.done = self.connector(*arguments, cwd=self.folder)
        if not os.path.exists(self.log):
            return []
        with open(self.log, "rb") as file:
            words = iter(file.read().split(b"\0")[:-1])
        return [[next(words) for _ in range(int(count))] for count in words]

    def call(self, *arguments):
        calls = self.calls(*arguments)
        self.assertEqual(1, len(calls), calls)
        return calls[0]


class Stored(HostileTest):
    """Text in the vault, on its way to curl and into the signature."""

    def setUp(self):
        super().setUp()
        self.record_calls_of("curl")

    def test_a_key_arrives_as_one_header(self):
        for exchange, name in (("bybit", "X-BAPI-API-KEY"), ("okx", "OK-ACCESS-KEY"),
                               ("gate", "KEY"), ("bingx", "X-BX-APIKEY"),
                               ("kucoin", "KC-API-KEY"), ("bitget", "ACCESS-KEY")):
            for text in LINES if exchange == "gate" else (EVERY_BYTE_BUT_LINE_FEED,):
                with self.subTest(exchange=exchange, text=text):
                    self.store_key(exchange, key=text)
                    call = self.call("balance", exchange)
                    self.assertEqual(b"-sS --max-time 20 -X GET -H".split(), call[:6])
                    self.assertEqual(os.fsencode(f"{name}: {text}"), call[6])

    def test_a_passphrase_arrives_as_one_header(self):
        for exchange, name in (("okx", "OK-ACCESS-PASSPHRASE"), ("bitget", "ACCESS-PASSPHRASE")):
            for text in LINES if exchange == "okx" else (EVERY_BYTE_BUT_LINE_FEED,):
                with self.subTest(exchange=exchange, text=text):
                    self.store_key(exchange, passphrase=text)
                    self.assertIn(os.fsencode(f"{name}: {text}"), self.call("balance", exchange))

    def test_a_secret_signs_byte_for_byte(self):
        for text in LINES:
            with self.subTest(text=text):
                self.store_key("bybit", secret=text)
                sent = headers(self.call("balance", "bybit"))
                expected = signature("sha256", text, sent["X-BAPI-TIMESTAMP"],
                                     "demo-bybit-key5000accountType=UNIFIED").hexdigest()
                self.assertEqual(expected.encode(), sent["X-BAPI-SIGN"])

    def test_every_recipe_signs_every_byte(self):
        secret = key = passphrase = EVERY_BYTE_BUT_LINE_FEED
        for exchange in ("okx", "gate", "kucoin", "bitget"):
            self.store_key(exchange, key, secret, passphrase)
        okx = headers(self.call("balance", "okx"))
        self.assertEqual(encoded(secret, okx["OK-ACCESS-TIMESTAMP"],
                                 "GET/api/v5/account/balance?ccy=USDT"), okx["OK-ACCESS-SIGN"])
        kucoin = headers(self.call("balance", "kucoin"))
        self.assertEqual(encoded(secret, kucoin["KC-API-TIMESTAMP"],
                                 "GET/api/v1/account-overview?currency=USDT"),
                         kucoin["KC-API-SIGN"])
        self.assertEqual(encoded(secret, passphrase), kucoin["KC-API-PASSPHRASE"])
        gate = headers(self.call("balance", "gate"))
        text = "GET\n/api/v4/futures/usdt/accounts\n\n" + hashlib.sha512().hexdigest() + "\n"
        self.assertEqual(signature("sha512", secret, text, gate["Timestamp"]).hexdigest().encode(),
                         gate["SIGN"])

    def test_what_is_stored_is_printed_as_it_is(self):
        for text in LINES:
            with self.subTest(text=text):
                self.store_key("okx", text, text, text)
                self.assertEqual([], self.calls("load-credentials", "okx"))
                self.assertEqual(f"status=ok\nexchange=okx\napi_key={text}\napi_secret={text}\n"
                                 f"passphrase={text}\n", self.done.stdout)


class Typed(HostileTest):
    """Text in arguments, on its way into URLs and bodies."""

    def setUp(self):
        super().setUp()
        self.record_calls_of("curl")
        for exchange in ("bybit", "okx", "gate"):
            self.store_key(exchange)

    def test_a_symbol_and_an_order_id_stand_in_one_url(self):
        for text in TEXTS:
            with self.subTest(text=text):
                call = self.call("order-status", "gate", text, text)
                self.assertEqual(os.fsencode("https://api.gateio.ws/api/v4/futures/usdt/orders/"
                                             f"{text}?contract={text}"), call[-1])
                signed = (f"GET\n/api/v4/futures/usdt/orders/{text}\ncontract={text}\n"
                          f"{hashlib.sha512().hexdigest()}\n")
                sent = headers(call)
                self.assertEqual(
                    signature("sha512", "demo-gate-secret", signed, sent["Timestamp"]).hexdigest(),
                    sent["SIGN"].decode())

    def test_side_quantity_and_price_stand_in_one_body(self):
        for text in TEXTS:
            with self.subTest(text=text):
                _, order = self.calls("place-open", "okx", "BTC_USDT", text, text, text, "5")
                body = order[order.index(b"--data") + 1]
                self.assertEqual(os.fsencode(
                    '{"instId":"BTC-USDT-SWAP","tdMode":"isolated","posSide":"short","side":"'
                    f'{text}","ordType":"limit","px":"{text}","sz":"{text}"}}'), body)
                sent = headers(order)
                self.assertEqual(encoded("demo-okx-secret", sent["OK-ACCESS-TIMESTAMP"],
                                         "POST/api/v5/trade/order", body), sent["OK-ACCESS-SIGN"])

    def test_gate_hashes_every_byte_of_a_body(self):
        call = self.call("place-close", "gate", EVERY_BYTE, "sell", EVERY_BYTE, EVERY_BYTE)
        body = os.fsencode(f'{{"contract":"{EVERY_BYTE}","size":{EVERY_BYTE},'
                           f'"price":"{EVERY_BYTE}","tif":"gtc","reduce_only":true}}')
        self.assertEqual(body, call[call.index(b"--data") + 1])
        sent = headers(call)
        signed = "POST\n/api/v4/futures/usdt/orders\n\n" + hashlib.sha512(body).hexdigest() + "\n"
        self.assertEqual(
            signature("sha512", "demo-gate-secret", signed, sent["Timestamp"]).hexdigest().encode(),
            sent["SIGN"])

    def test_an_exchange_name_is_a_name(self):
        names = TEXTS[1:] + (EVERY_BYTE[:127], "../vault/bybit", "a/b\\c d")
        if sys.platform != "darwin":  # where a file's name is UTF-8
            names += (EVERY_BYTE[127:],)
        for name in names:
            with self.subTest(name=name):
                file = name.replace("/", "_").replace("\\", "_").replace(" ", "_")
                self.assertEqual([], self.calls("balance", name))
                self.assertIn("credentials_not_found", self.done.stdout)
                self.store_key(file)
                self.assertEqual([], self.calls("balance", name))
                self.assertIn("unsupported_exchange", self.done.stdout)
                self.calls("validate", name, "k", "s")
                self.assertIn("reason=unsupported exchange\n", self.done.stdout)
                self.calls("delete-credentials", name)
                self.assertEqual(f"status=ok\nexchange={name}\nremoved=true\n", self.done.stdout)
                self.assertNotIn(f"vault/{file}.vault", self.files())

    def test_no_exchange_name_leads_out_of_the_vault(self):
        self.write("other.vault", "exchange=x\napi_key=mine\n")
        outside = os.path.join(self.root, "other")
        for name in ("../other", outside, "vault/../../other"):
            with self.subTest(name=name):
                self.calls("load-credentials", name)
                self.assertEqual((2, "status=missing\n"), (self.done.returncode, self.done.stdout))
                self.calls("delete-credentials", name)
                self.assertIn("other.vault", self.files())


class Validated(HostileTest):
    """Text on its way through a live check, line feeds and all."""

    def test_two_checks_sign_and_send_every_text(self):
        self.record_calls_of("curl")
        for text in TEXTS:
            with self.subTest(text=text):
                call = self.call("validate", "bybit", text, text)
                self.assertEqual(os.fsencode("X-BAPI-API-KEY: " + text), call[4])
                moment = call[6].partition(b": ")[2]
                expected = signature("sha256", text, moment, text, "5000").hexdigest()
                self.assertEqual(b"X-BAPI-SIGN: " + expected.encode(), call[10])
                call = self.call("validate", "gate", text, text)
                self.assertEqual(os.fsencode("KEY: " + text), call[4])
                moment = call[6].partition(b": ")[2]
                expected = signature("sha512", text, "GET\n/api/v4/futures/usdt/accounts\n\n",
                                     hashlib.sha512().hexdigest(), "\n", moment).hexdigest()
                self.assertEqual(b"SIGN: " + expected.encode(), call[8])

    def test_four_checks_hand_every_text_to_python_as_a_literal(self):
        self.record_calls_of("python3")
        texts = TEXTS + ("\napi_secret = ''\n", "''\n", "'''", "\\'", "\\\\'\\n", "{site}",
                         "鍵 é")
        for exchange in ("okx", "bingx", "kucoin", "bitget"):
            for text in texts:
                with self.subTest(exchange=exchange, text=text):
                    key, secret, passphrase = text, text + "2", text + "3"
                    flag, script = self.call("validate", exchange, key, secret, passphrase)
                    self.assertEqual(b"-c", flag)
                    given = assignments(script)
                    self.assertEqual(os.fsencode(key), given["api_key"])
                    self.assertEqual(os.fsencode(secret), given["api_secret"])
                    if exchange != "bingx":
                        self.assertEqual(os.fsencode(passphrase), given["passphrase"])

    def test_text_that_is_no_utf8_stops_python_before_anything_is_sent(self):
        for exchange in ("okx", "bingx", "kucoin", "bitget"):
            with self.subTest(exchange=exchange):
                self.calls("validate", exchange, "key\udcff", "secret", "passphrase")
                self.assertEqual(2, self.done.returncode)
                self.assertRegex(self.done.stdout, f"\nreason=failed to execute {exchange} valid")
        self.assertEqual([], self.box.requests)


def headers(call):
    """The -H arguments of a call of curl, by name."""
    lines = [call[i + 1].partition(b": ") for i, word in enumerate(call) if word == b"-H"]
    return {name.decode(): value for name, _, value in lines}


def encoded(secret, *pieces):
    return base64.b64encode(signature("sha256", secret, *pieces).digest())


def assignments(script):
    """The texts that a script gives to its names, as bytes; Latin-1 keeps each byte apart."""
    return {statement.targets[0].id: statement.value.value.encode("latin-1")
            for statement in ast.parse(script.decode("latin-1")).body
            if isinstance(statement, ast.Assign) and isinstance(statement.value, ast.Constant)}


if __name__ == "__main__":
    unittest.main()
