"""The live check of a key: how answers are judged, what is printed and what is stored."""

import dataclasses
import os
import re

from sandbox import Fault, hosts
from support import CREDENTIAL, EXCHANGES, ConnectorTest

PROBED = ("okx", "bingx", "kucoin", "bitget")

# Printable signs of every kind; a header takes no others, and drops blanks at its ends.
ODD = "".join(map(chr, range(33, 127))) + " 'é'鍵\\"

# For each exchange, answers that prove a key, and such that nearly do.
PROOFS = {
    "bybit": (['{"retCode":0}', '{"retCode": 0}'], ['{"retCode":10003}', '{"retCode":  0}']),
    "gate": (['{"user":1}', '"currency"', '"available"'], ['{"users":[]}']),
    "okx": (['{"code":"0"}'], ['{"code":"1"}', '{"posMode":1,"code":0}']),
    "bingx": (['{"code":0}', '{"code": 0}', "availableMargin"],
              ['{"code":100413}', '{"available":1}', '{"code":"0"}']),
    "kucoin": (['{"code":"200000"}'], ['{"code":"400003"}', '{"code":200000}']),
    "bitget": (['{"code":"00000"}', '"available"', '"marginCoin"', '"accountEquity"'],
               ['{"code":"40006"}', '{"code":0}']),
}


class Validation(ConnectorTest):
    def at(self, exchange, fault, *more):
        self.box.faults[:] = [fault(host, *more) for host in hosts.BY_EXCHANGE[exchange]]

    def test_a_right_key_of_any_signs_is_accepted_printed_saved_and_reads_afterwards(self):
        for exchange in EXCHANGES:
            demo = self.box.keys(exchange)[0]
            odd = dataclasses.replace(demo, key="k" + ODD, secret="s" + ODD,
                                      passphrase=demo.passphrase and "p" + ODD)
            self.box.keys(exchange).append(odd)
            for key in (demo, odd):
                self.assert_accepted(exchange, key.key, key.secret, key.passphrase)
                stored = CREDENTIAL.format(exchange, key.key, key.secret, key.passphrase)
                self.says("status=ok\n" + stored, "load-credentials", exchange)
                self.assertRegex(self.answer("balance", exchange), "(?i)available|availEq")

    def test_a_key_is_told_by_what_it_may_do_and_found_on_any_site_and_version(self):
        for exchange, kind in (("okx", "eea"), ("okx", "us"), ("kucoin", "v3")):
            self.assert_accepted(exchange, *self.key(exchange, kind))
        for kind, told in (("read", "valid_read_only true false false"),
                           ("withdraw", "valid_trade_ready true true true")):
            words, _ = self.validate("bybit", *self.key("bybit", kind))
            self.assertEqual(f"0 bybit {told} true", words)
        for text, granted in (("ORDER withdraw", "false false"), ("orders", "true false"),
                              ("Order", "true false"), ("Withdrawal", "false true")):
            self.at("bybit", Fault.answer, 200, b'{"retCode":0,"x":"%s"}' % text.encode())
            self.assertIn(f" true {granted} true", self.validate("bybit")[0], text)

    def test_what_is_missing_is_told_in_this_order_and_nobody_is_asked(self):
        later = "adapter exists, live validation not implemented yet"
        for reason, *keys in (
                ("unsupported exchange", "nowhere,,", ",k,s,p", "Bybit,k,s", "asterdex,k,s"),
                ("missing api key or secret", "bybit,,s", "gate,k,", "kucoin,,s", "reya,,"),
                ("okx passphrase missing", "okx,k,s"), ("kucoin passphrase missing", "kucoin,k,s,"),
                ("bitget passphrase missing", "bitget,k,s"), (later, "paradex,k,s", "reya,k,s")):
            for key in keys:
                self.assert_refused("configured" if reason is later else "invalid", reason,
                                    *key.split(","))
        self.assertEqual([], self.box.requests)

    def test_these_words_prove_a_key_and_no_others(self):
        for exchange, (proofs, others) in PROOFS.items():
            for body in [*others, "<h1>\n502</h1>"]:
                self.at(exchange, Fault.answer, 401, body.encode() + b"\n \r\n\t")
                told = body if exchange in ("bybit", "gate", "bitget") else \
                    '"body": "' + body.replace('"', r"\"").replace("\n", r"\n")
                self.assert_refused("invalid", f"{exchange} rejected credentials: "
                                               f".*{re.escape(told)}(.*[^\n ])?", exchange)
            for body in proofs:
                self.at(exchange, Fault.answer, 200, body.encode())
                self.assertRegex(self.validate(exchange)[0], "^0 .* true$")

    def test_one_good_answer_is_enough_whatever_becomes_of_the_other_probes(self):
        for fault, *more in ((Fault.cut_off, 401, b'{"code":"50119"}'), (Fault.close,),
                             (Fault.cut_off, 200, b'{"code":'), (Fault.endless, 200),
                             (Fault.endless, 401)):
            for exchange, host, kind, where in (
                    ("okx", hosts.OKX_EEA, "", {}), ("kucoin", hosts.KUCOIN, "v3", {"times": 1}),
                    ("bingx", hosts.BINGX, "", {"path": "/openApi/swap/v3"})):
                self.box.faults[:] = [fault(host, *more, **where)]
                self.assert_accepted(exchange, *self.key(exchange, kind))
            self.at("bitget", fault, *more)
            self.assert_refused("invalid", "bitget rejected credentials: .+", "bitget")
        for exchange in EXCHANGES:
            self.at(exchange, Fault.unknown_ca)
            self.assertNotIn("true", self.validate(exchange)[0])

    def test_two_checks_tell_which_tool_failed_them_and_four_need_only_python(self):
        self.only_tools("curl", "date", "cat", openssl="exit 1",
                        xxd="cat >/dev/null; echo out; echo no memory >&2; exit 2")
        for exchange in ("bybit", "gate"):
            told = f"failed to build {exchange} signature: out\nno memory"
            self.assert_refused("error", told, exchange)
        for script in ("echo '\"code\":\"0\"'; exit 1", "printf ' \\n\\t'", "kill -9 $$"):
            self.only_tools(python3=script)
            for exchange in PROBED:
                probes = "probe" if exchange == "bitget" else "probes"
                told = f"failed to execute {exchange} validation {probes}"
                self.assert_refused("error", told, exchange)
        self.only_tools("python3")
        for module in ("json", "hmac", "hashlib", "base64", "datetime", "time", "urllib", "http",
                       "ssl", "socket", "signal", "random", "sitecustomize"):
            self.write(f"../{module}.py", "open('ran', 'w')\n")
        for exchange in PROBED:
            self.assert_refused("invalid", f"{exchange} rejected credentials: ((?!hidden).)*",
                                exchange, "hidden\r\nX-More: yes", "s", "hidden\n")
            self.assert_accepted(exchange, cwd=self.home)
        self.assertNotIn("ran", os.listdir(self.home))
        self.assertEqual([], [one for one in self.box.requests if one.header("X-More")])
