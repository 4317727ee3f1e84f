"""The live check of a key: how answers are judged, what is told, what is kept."""

import os
import re
import shutil
import sys

from sandbox import Fault, hosts
from sandbox.exchanges.call import ApiKey
from sandbox.http_message import Response
from sandbox.proxy import certify
from support import CHECK, CREDENTIAL, EXCHANGES, ConnectorTest, each

PROBED = ("okx", "bingx", "kucoin", "bitget")  # by a Python program

# Printable signs of every kind; a header takes no others, and drops blanks at its ends.
ODD_SIGNS = "".join(map(chr, range(33, 127))) + " 'é'鍵\\"

# Answers that prove a key, and such that nearly do; a new exchange is added here.
PROOFS = {
    "bybit": ['{"retCode":0}', '{"retCode": 0}'],
    "gate": ['{"user":1}', '"currency"', '"available"'],
    "okx": ['{"code":"0"}'],
    "bingx": ['{"code":0}', '{"code": 0}', "availableMargin"],
    "kucoin": ['{"code":"200000"}'],
    "bitget": ['{"code":"00000"}', '"available"', '"marginCoin"', '"accountEquity"'],
}
NO_PROOFS = {
    "bybit": ['{"retCode":10003}', '{"retCode":  0}'],
    "gate": ['{"users":[]}'],
    "okx": ['{"code":"1"}', '{"posMode":1,"code":0}'],
    "bingx": ['{"code":100413}', '{"available":1}', '{"code":"0"}'],
    "kucoin": ['{"code":"400003"}', '{"code":200000}'],
    "bitget": ['{"code":"40006"}', '{"code":0}'],
}

BASH = shutil.which("bash")
# Says of a line whose last tool a signal killed what bash 3.2, a Mac's sh, says of it.
# Scripts here name what runs them: where this lies, sh is this one.
TELLING_SHELL = f"""#!{sys.executable} -IS
import subprocess, sys
status = subprocess.call(["sh", *sys.argv[1:]], executable="{BASH}")
if status < 0 or status > 128:
    print("sh: line 1: 42 Killed: 9 ", sys.argv[-1], file=sys.stderr)
sys.exit(status % 256)
"""
KILLED = f"#!{BASH}\nkill -9 $$\n"


class Answers(ConnectorTest):
    def answer_at(self, exchange, status, body):
        """From here on all hosts of the exchange answer so."""
        self.box.faults[:] = [Fault.answer(host, status, body.encode())
                              for host in hosts.BY_EXCHANGE[exchange]]

    @each(*EXCHANGES)
    def test_a_key_of_any_signs_is_kept_and_reads_afterwards(self, exchange):
        passphrase = "p" + ODD_SIGNS if self.key(exchange)[2] else ""
        key = ["k" + ODD_SIGNS, "s" + ODD_SIGNS, passphrase]
        self.box.exchanges[exchange].keys.append(ApiKey(*key))
        self.assert_accepted(exchange, *key)
        self.says("status=ok\n" + CREDENTIAL.format(exchange, *key),
                  "load-credentials", exchange)
        self.assertRegex(self.answer("balance", exchange), "(?i)available|availEq")

    @each(("okx", "eea"), ("okx", "us"), ("kucoin", "v3"))
    def test_a_key_of_any_site_or_version_is_accepted(self, exchange, kind):
        self.assert_accepted(exchange, *self.key(exchange, kind))

    @each(("ORDER withdraw", "valid_read_only", "false", "false"),
          ("Withdrawal", "valid_read_only", "false", "true"),
          ("orders", "valid_trade_ready", "true", "false"),
          ("Order", "valid_trade_ready", "true", "false"))
    def test_words_anywhere_in_bybits_answer_grant_trading_and_withdrawal(
            self, text, status, trade, withdraw):
        self.answer_at("bybit", 200, f'{{"retCode":0,"x":"{text}"}}')
        shown, _ = self.validate("bybit")
        expected = CHECK.format("bybit", status, "true", trade, withdraw, "true")
        self.assertEqual(expected, shown)

    @each(("nowhere", "", "", "unsupported exchange"),
          ("", "k", "s", "unsupported exchange"),
          ("asterdex", "k", "s", "unsupported exchange"),
          ("bybit", "", "s", "missing api key or secret"),
          ("kucoin", "k", "", "missing api key or secret"),
          ("reya", "", "", "missing api key or secret"),
          ("okx", "k", "s", "okx passphrase missing"),
          ("kucoin", "k", "s", "kucoin passphrase missing"),
          ("bitget", "k", "s", "bitget passphrase missing"))
    def test_what_is_missing_is_told_in_this_order_and_nobody_is_asked(
            self, exchange, key, secret, reason):
        self.assert_refused("invalid", reason, exchange, key, secret)
        self.assertEqual([], self.box.requests)

    @each("paradex", "reya")
    def test_an_exchange_without_a_live_check_is_only_configured(self, exchange):
        reason = "adapter exists, live validation not implemented yet"
        self.assert_refused("configured", reason, exchange, "k", "s")

    @each(*((exchange, body) for exchange in EXCHANGES for body in PROOFS[exchange]))
    def test_these_answers_prove_a_key(self, exchange, body):
        self.answer_at(exchange, 200, body)
        shown, _ = self.validate(exchange)
        self.assertIn("\ncredentials_saved=true\n", shown)

    @each(*((exchange, body) for exchange in EXCHANGES
            for body in [*NO_PROOFS[exchange], "<h1>\n502</h1>"]))
    def test_these_prove_none_and_are_told_without_last_blanks(self, exchange, body):
        self.answer_at(exchange, 401, body + "\n \r\n\t")
        shown = re.escape(body)
        if exchange in ("okx", "bingx", "kucoin"):  # a text in a JSON array
            text = body.replace('"', r"\"").replace("\n", r"\n")
            shown = '.*"body": "' + re.escape(text) + r".*\]"
        reason = f"{exchange} rejected credentials: {shown}"
        self.assert_refused("invalid", reason, exchange)

    @each(*EXCHANGES)
    def test_an_answer_under_a_certificate_of_strangers_is_none(self, exchange):
        certify(self.home)  # the authority of another sandbox
        self.env.update(dict.fromkeys(
            ("CURL_CA_BUNDLE", "SSL_CERT_FILE", "SANDBOX_AUTHORITY"),
            os.path.join(self.home, "certificate.pem")))
        shown, _ = self.validate(exchange, status=2)
        self.assertIn("\ncan_read=false\n", shown)

    @each((401, "half"), (200, "half"), (200, "never"), (200, "endless"),
          (401, "endless"))
    def test_one_good_answer_is_enough_beside_a_broken_one(self, status, delivery):
        broken = Response(status, b'{"code":"50119"}' * 256)
        for exchange, kind, where in (
                ("okx", "", {"host": hosts.OKX_EEA}),
                ("kucoin", "v3", {"host": hosts.KUCOIN, "times": 1}),
                ("bingx", "", {"host": hosts.BINGX, "path": "/openApi/swap/v3"})):
            self.box.faults[:] = [Fault(response=broken, delivery=delivery, **where)]
            self.assert_accepted(exchange, *self.key(exchange, kind))


class FailingTools(ConnectorTest):
    @each("bybit", "gate")
    def test_a_signature_that_cannot_be_made_is_told_in_the_tools_words(self, exchange):
        self.only_tools("curl", "date", "cat", openssl="exit 1",
                        xxd="cat >/dev/null; echo out; echo no memory >&2; exit 2")
        reason = f"failed to build {exchange} signature: out\nno memory"
        self.assert_refused("error", reason, exchange)

    @each("echo '\"code\":\"0\"'; exit 1", "printf ' \\n\\t'", "kill -9 $$")
    def test_a_python_that_fails_or_says_nothing_is_an_error(self, script):
        self.only_tools(python3=script)
        for exchange in PROBED:
            probes = "probe" if exchange == "bitget" else "probes"
            reason = f"failed to execute {exchange} validation {probes}"
            self.assert_refused("error", reason, exchange)

    def test_of_a_killed_tool_nothing_is_said_but_the_checks_own_words(self):
        self.over_usr_bin(sh=TELLING_SHELL, security=KILLED)
        self.assert_accepted("gate")
        for exchange, tool, reason in (  # the last used first: what was killed stays so
                ("okx", "python3", "failed to execute okx validation probes"),
                ("bybit", "curl", "bybit request failed: "),
                ("bybit", "xxd", "failed to build bybit signature: ")):
            with self.subTest(tool):
                self.over_usr_bin(sh=TELLING_SHELL, **{tool: KILLED})
                # Where sh is dash, it tells the signal in the tool's place.
                self.assert_refused("error", reason + "(Killed)?", exchange)

    def test_what_a_tool_says_before_another_is_killed_is_passed_on(self):
        self.over_usr_bin(sh=TELLING_SHELL, xxd=KILLED,
                          openssl="echo openssl says this >&2")
        run = self.connector("validate", "bybit", *self.key("bybit"))
        self.assertEqual("openssl says this\n", run.stderr)

    @each(*PROBED)
    def test_four_checks_need_python_alone_and_no_module_of_the_caller(self, exchange):
        self.only_tools("python3")
        for module in ("json", "hmac", "hashlib", "base64", "datetime", "urllib", "http",
                       "ssl", "socket", "sitecustomize"):
            self.write(f"../{module}.py", "open('ran', 'w')\n")
        self.assert_accepted(exchange)
        self.assertNotIn("ran", os.listdir(self.home))

    @each(*PROBED)
    def test_a_key_that_no_header_can_carry_is_blamed_and_neither_sent_nor_told(
            self, exchange):
        unspoken = "((?!hidden).)*"
        self.assert_refused(
            "invalid", f"{exchange} rejected credentials: {unspoken}a credential holds "
            f"a character that no header can carry{unspoken}",
            exchange, "hidden\r\nX-More: yes", "s", "hidden\n")
        self.assertEqual([], self.box.requests)

    def test_a_proxys_or_a_redirects_bad_address_is_told_as_such(self):
        redirect = Response(302, headers=[("Location", "https://[nowhere/")])
        self.box.faults[:] = [Fault(hosts.BITGET, response=redirect)]
        rejected = "bitget rejected credentials: ((?!hidden).)*"
        self.assert_refused("invalid", rejected + "Invalid IPv6 URL.*", "bitget")
        self.env["https_proxy"] = "http:/me:hidden@proxy:3128"
        self.assert_refused("invalid", rejected + "'proxy:3128'.*", "bitget")
