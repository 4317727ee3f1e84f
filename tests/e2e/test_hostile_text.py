"""Whatever stands in an argument or in a stored key is text: it arrives byte for byte, and nothing
of it is run."""

import ast
import base64
import hashlib
import hmac
import os

from support import ConnectorTest

EVERY_BYTE = os.fsdecode(bytes(range(1, 256)))
TEXTS = (EVERY_BYTE, "$(touch ran)", "`touch ran`", "; touch ran;", "'; touch ran; '",
         '"; touch ran; "', "\ntouch ran\n", "-o ran", "--output=ran", "-", "'", "\\", "\\n",
         "%s%n", "*", "$HOME", "#", "\r\n")
LINES = tuple(text for text in TEXTS if "\n" not in text) + (EVERY_BYTE.replace("\n", ""),)
"""What can stand in a file of lines."""


def signature(algorithm, secret, *pieces):
    text = b"".join(piece if isinstance(piece, bytes) else os.fsencode(piece) for piece in pieces)
    return hmac.new(os.fsencode(secret), text, algorithm)


def encoded(secret, *pieces):
    return base64.b64encode(signature("sha256", secret, *pieces).digest())


def in_hex(algorithm, secret, *pieces):
    return signature(algorithm, secret, *pieces).hexdigest().encode()


def headers(call):
    """The -H arguments of a call of curl, by name."""
    lines = [call[i + 1].partition(b": ") for i, word in enumerate(call) if word == b"-H"]
    return {name.decode(): value for name, _, value in lines}


class HostileText(ConnectorTest):
    """The stand-in tools keep their arguments; the working folder must stay empty."""

    def setUp(self):
        super().setUp()
        self.folder = os.path.join(self.home, "here")
        os.mkdir(self.folder)
        self.log = os.path.join(self.home, "arguments")
        self.record_calls_of("curl")

    def tearDown(self):
        self.assertEqual([], os.listdir(self.folder), "something was run")

    def record_calls_of(self, tool):
        """Puts a stand-in on the PATH that keeps its arguments and prints nothing."""
        self.stand_in(tool, f"printf '%s\\0' $# \"$@\" >> '{self.log}'\n")

    def calls(self, *arguments):
        """Runs a command; the arguments of each recorded call of the tool."""
        with open(self.log, "wb"):
            pass
        self.done = self.connector(*arguments, cwd=self.folder)
        with open(self.log, "rb") as file:
            words = iter(file.read().split(b"\0")[:-1])
        return [[next(words) for _ in range(int(count))] for count in words]

    def call(self, *arguments):
        call, = self.calls(*arguments)
        return call

    def test_a_stored_key_is_printed_sent_and_signed_with_as_it_is(self):
        for text in LINES:
            for exchange in ("okx", "bybit"):
                self.store_key(exchange, text, text, text)
            self.assertEqual([], self.calls("load-credentials", "okx"))
            self.assertEqual(f"status=ok\nexchange=okx\napi_key={text}\napi_secret={text}\n"
                             f"passphrase={text}\n", self.done.stdout)
            sent = headers(self.call("balance", "okx"))
            self.assertEqual([os.fsencode(text)] * 2,
                             [sent["OK-ACCESS-KEY"], sent["OK-ACCESS-PASSPHRASE"]])
            self.assertEqual(encoded(text, sent["OK-ACCESS-TIMESTAMP"],
                                     "GET/api/v5/account/balance?ccy=USDT"), sent["OK-ACCESS-SIGN"])
            sent = headers(self.call("balance", "bybit"))
            self.assertEqual(in_hex("sha256", text, sent["X-BAPI-TIMESTAMP"], text,
                                    "5000accountType=UNIFIED"), sent["X-BAPI-SIGN"])

    def test_arguments_stand_in_one_url_or_one_body_and_are_signed_there(self):
        for exchange in ("okx", "gate"):
            self.store_key(exchange)
        for text in TEXTS:
            call = self.call("order-status", "gate", text, text)
            self.assertEqual(os.fsencode("https://api.gateio.ws/api/v4/futures/usdt/orders/"
                                         f"{text}?contract={text}"), call[-1])
            sent = headers(call)
            self.assertEqual(in_hex("sha512", "demo-gate-secret",
                                    f"GET\n/api/v4/futures/usdt/orders/{text}\n"
                                    f"contract={text}\n{hashlib.sha512().hexdigest()}\n",
                                    sent["Timestamp"]), sent["SIGN"])
            _, order = self.calls("place-open", "okx", "BTC_USDT", text, text, text, "5")
            body = order[order.index(b"--data") + 1]
            self.assertEqual(os.fsencode(
                '{"instId":"BTC-USDT-SWAP","tdMode":"isolated","posSide":"short","side":"'
                f'{text}","ordType":"limit","px":"{text}","sz":"{text}"}}'), body)
            sent = headers(order)
            self.assertEqual(encoded("demo-okx-secret", sent["OK-ACCESS-TIMESTAMP"],
                                     "POST/api/v5/trade/order", body), sent["OK-ACCESS-SIGN"])

    def test_two_checks_sign_and_send_every_text(self):
        for text in TEXTS:
            sent = headers(self.call("validate", "bybit", text, text))
            self.assertEqual(os.fsencode(text), sent["X-BAPI-API-KEY"])
            self.assertEqual(in_hex("sha256", text, sent["X-BAPI-TIMESTAMP"], text, "5000"),
                             sent["X-BAPI-SIGN"])
            sent = headers(self.call("validate", "gate", text, text))
            self.assertEqual(os.fsencode(text), sent["KEY"])
            self.assertEqual(in_hex("sha512", text, "GET\n/api/v4/futures/usdt/accounts\n\n",
                                    hashlib.sha512().hexdigest(), "\n", sent["Timestamp"]),
                             sent["SIGN"])

    def test_four_checks_hand_every_text_to_python_as_a_literal(self):
        self.record_calls_of("python3")
        for exchange in ("okx", "bingx", "kucoin", "bitget"):
            for text in TEXTS + ("\napi_secret = ''\n", "''\n", "\\'", "\\\\'\\n", "鍵 é"):
                given = {"api_key": text, "api_secret": text + "2", "passphrase": text + "3"}
                flag, script = self.call("validate", exchange, *given.values())
                self.assertEqual(b"-c", flag)
                # Latin-1 keeps each byte apart.
                found = {statement.targets[0].id: statement.value.value.encode("latin-1")
                         for statement in ast.parse(script.decode("latin-1")).body
                         if isinstance(statement, ast.Assign)
                         and isinstance(statement.value, ast.Constant)}
                for name, value in given.items():
                    if name in found or name != "passphrase" or exchange != "bingx":
                        self.assertEqual(os.fsencode(value), found[name])
