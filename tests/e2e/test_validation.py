"""The live check of a key: what is asked, how answers are judged, what is printed and stored."""

import os
import re
import socket
import time
from calendar import timegm

from sandbox import Fault, hosts
from sandbox.keys import (FOREIGN_LETTERS_KEY, FOREIGN_LETTERS_PASSPHRASE, FOREIGN_LETTERS_SECRET)
from support import PASSPHRASES, ConnectorTest, demo_key

PROBED = ("okx", "bingx", "kucoin", "bitget")
BALANCES = {"bybit": '"retCode":0,', "okx": '"code":"0",', "gate": '"total":"',
            "bingx": '"code":0,', "kucoin": '"code":"200000",', "bitget": '"code":"00000",'}

# What each check asks, in this order, and what stands in the headers of each of these requests. The
# signatures are the sandbox's to verify.
REQUESTS = {
    "bybit": (r"GET api\.bybit\.com/v5/user/query-api", {"X-BAPI-RECV-WINDOW": "5000"}),
    "gate": (r"GET api\.gateio\.ws/api/v4/futures/usdt/accounts", {}),
    "okx": (" ".join(rf"GET {site}\.okx\.com/api/v5/account/{path}" for site in ("www", "eea", "us")
                     for path in ("config", r"balance\?ccy=USDT", "balance")),
            {"Content-Type": "application/json", "User-Agent": "okx-api-client/1.0"}),
    "bingx": (" ".join(rf"GET open-api\.bingx\.com/openApi/swap/v{version}/user/balance"
                       r"\?timestamp=\d{13}&signature=[0-9a-f]{64}" for version in "32"), {}),
    "kucoin": (r"(GET api-futures\.kucoin\.com/api/v1/account-overview\?currency=USDT ?){2}",
               {"Content-Type": "application/json"}),
    "bitget": (r"GET api\.bitget\.com/api/v2/mix/account/accounts\?productType=USDT-FUTURES",
               {"Content-Type": "application/json", "locale": "en-US",
                "X-CHANNEL-API-CODE": "qzvtk"}),
}
EXCHANGES = tuple(REQUESTS)


def not_executed(exchange):
    return f"failed to execute {exchange} validation probe" + ("s" if exchange != "bitget" else "")


class Keys(ConnectorTest):
    def test_a_right_key_is_asked_about_saved_and_declared_ready_to_trade(self):
        for exchange, (requests, headers) in REQUESTS.items():
            before = int(time.time())
            self.box.requests.clear()
            result = self.validate(*demo_key(exchange))
            checked_at = timegm(time.strptime(result.pop("checked_at"), "%Y-%m-%dT%H:%M:%SZ"))
            self.assertTrue(before <= checked_at <= time.time(), checked_at)
            self.assertEqual(
                {"exchange": exchange, "status": "valid_trade_ready", "can_read": "true",
                 "can_trade": "true", "withdrawal": "false", "saved": "true",
                 "reason": f"live {exchange} auth validated", "exit": 0, "stderr": ""}, result)
            self.assertEqual(f"exchange={exchange}\napi_key=demo-{exchange}-key\n"
                             f"api_secret=demo-{exchange}-secret\n"
                             f"passphrase={PASSPHRASES.get(exchange, '')}\n",
                             self.read(f"vault/{exchange}.vault"))
            self.assertRegex(" ".join(f"{method} {host}{target}"
                                      for method, host, target in self.sent()), rf"\A{requests}\Z")
            for name, value in headers.items():
                self.assertEqual({value}, {request.header(name) for request in self.box.requests})
            if exchange == "kucoin":
                self.assertEqual(["2", "3"], [request.header("KC-API-KEY-VERSION")
                                              for request in self.box.requests])
        self.assertNotIn("vault/vault_index.txt", self.files())

    def test_a_key_of_any_kind_is_told_by_what_it_may_do_and_replaces_the_one_before(self):
        for exchange, kind, status, can_trade, withdrawal in (
                ("bybit", "read", "valid_read_only", "false", "false"),
                ("bybit", "withdraw", "valid_trade_ready", "true", "true"),
                *((exchange, kind, "valid_trade_ready", "true", "false") for exchange, kind in
                  (("okx", "eea"), ("okx", "us"), ("kucoin", "v2"), ("kucoin", "v3")))):
            key = f"demo-{exchange}-{kind}-key"
            result = self.validate(*demo_key(exchange, key=key,
                                             secret=f"demo-{exchange}-{kind}-secret"))
            self.assertEqual((0, status, "true", can_trade, withdrawal, "true"),
                             (result["exit"], result["status"], result["can_read"],
                              result["can_trade"], result["withdrawal"], result["saved"]))
            self.assertEqual(key, self.record(f"vault/{exchange}.vault")["api_key"])
            if exchange == "okx":  # Operations ask the global site, which knows no such key.
                self.assertEqual("50119", self.body("balance", "okx")["code"])

    def test_a_key_with_letters_outside_ascii_is_accepted_and_reads_afterwards(self):
        for exchange in EXCHANGES:
            # A passphrase that the exchange does not ask for is kept all the same.
            result = self.validate(exchange, FOREIGN_LETTERS_KEY, FOREIGN_LETTERS_SECRET,
                                   FOREIGN_LETTERS_PASSPHRASE)
            self.assertEqual((0, "true"), (result["exit"], result["saved"]), result["reason"])
            self.assertEqual(FOREIGN_LETTERS_PASSPHRASE,
                             self.record(f"vault/{exchange}.vault")["passphrase"])
            self.assertIn(BALANCES[exchange], self.answer("balance", exchange))

    def test_what_the_exchange_refuses_is_invalid_and_told_in_its_own_words(self):
        for exchange, codes in (("bybit", '"retCode":10003,"retMsg" "retCode":10004,"retMsg"'),
                                ("gate", '"label":"INVALID_KEY" "label":"INVALID_SIGNATURE"'),
                                ("okx", r'\"50111\" \"50113\" \"50105\"'),
                                ("bingx", r'\"code\":100413 \"code\":100001'),
                                ("kucoin", r'\"400003\" \"400005\" \"400004\"'),
                                ("bitget", '"code":"40006" "code":"40009" "code":"40012"')):
            for part, code in zip(("key", "secret", "passphrase"), codes.split()):
                result = self.validate(*demo_key(exchange, **{part: "other"}))
                self.assert_refused(result, "invalid",
                                    f"{exchange} rejected credentials: [^ ].*[^ ]")
                self.assertIn(code, result["reason"])

    def test_what_is_missing_is_told_in_this_order_and_nobody_is_asked(self):
        later = "adapter exists, live validation not implemented yet"
        for reason, keys in (
                ("unsupported exchange", ("nowhere,,", ",k,s,p", "Bybit,k,s", "asterdex,k,s")),
                ("missing api key or secret", ("bybit,,s", "gate,k,", "kucoin,,s", "reya,,")),
                ("okx passphrase missing", ("okx,k,s",)),
                ("kucoin passphrase missing", ("kucoin,k,s,",)),
                ("bitget passphrase missing", ("bitget,k,s",)),
                (later, ("hyperliquid,k,s", "paradex,k,s", "lighter,k,s", "extended,k,s",
                         "reya,k,s,p"))):
            for arguments in keys:
                result = self.validate(*arguments.split(","))
                self.assertEqual(arguments.split(",")[0], result["exchange"])
                self.assert_refused(result, "configured" if reason == later else "invalid", reason)
        self.assertEqual([], self.box.requests)

    def test_a_vault_that_cannot_be_written_is_an_error_and_a_refused_key_does_not_try(self):
        os.makedirs(self.path("vault/okx.vault"))
        result = self.validate(*demo_key("okx"))
        self.assertEqual((2, "error", "true", "false",
                          "failed to persist credentials to local vault"),
                         tuple(map(result.get, ("exit", "status", "can_read", "saved", "reason"))))
        self.validate(*demo_key("gate"))
        before = self.read("vault/gate.vault")
        self.assertEqual(2, self.validate(*demo_key("gate", secret="other"))["exit"])
        self.assertEqual(before, self.read("vault/gate.vault"))


class Answers(ConnectorTest):
    def answered(self, exchange, body, status=200):
        self.box.faults[:] = [Fault.answer(host, status, body.encode())
                              for host in hosts.BY_EXCHANGE[exchange]]
        return self.validate(*demo_key(exchange))

    def test_these_words_in_an_answer_prove_the_key_and_give_bybits_permissions(self):
        for exchange, bodies in (("bybit", ['{"retCode":0}', '{"retCode": 0,"x":1}']),
                                 ("gate", ['{"user":1}', '{"currency":""}', '"available"']),
                                 ("okx", ['{"code":"0"}']),
                                 ("bingx", ['{"code":0}', '{"code": 0}', "availableMargin"]),
                                 ("kucoin", ['{"code":"200000"}']),
                                 ("bitget", ['{"code":"00000"}', '{"available":1}',
                                             '"marginCoin"', '"accountEquity"'])):
            for body in bodies:
                self.assertEqual(0, self.answered(exchange, body)["exit"])
        for words, may_trade, withdrawal in (("ORDER withdraw", "false", "false"),
                                             ("orders", "true", "false"),
                                             ("Order", "true", "false"),
                                             ("Withdrawal", "false", "true")):
            result = self.answered("bybit", '{"retCode":0,"x":"' + words + '"}')
            self.assertEqual((0, may_trade, withdrawal),
                             (result["exit"], result["can_trade"], result["withdrawal"]), words)

    def test_any_other_answer_is_a_rejection_with_the_answer_in_it(self):
        page = "<html>\n<h1>502</h1></html>"
        for exchange, bodies in (
                ("bybit", [page, '{"retCode":10003}', '{"retCode":  0}']),
                ("gate", [page, '{"label":"X","users":[]}']),
                ("okx", [page, '{"code":"1"}', '{"posMode":1,"code":0}']),
                ("bingx", [page, '{"code":100413}', '{"available":1}', '{"code":"0"}']),
                ("kucoin", [page, '{"code":"400003"}', '{"code":200000}']),
                ("bitget", [page, '{"code":"40006"}', '{"code":0}'])):
            for body in bodies:
                told = body if exchange in ("bybit", "gate", "bitget") else \
                    '"body": "%s' % body.replace('"', r"\"").replace("\n", r"\n")
                result = self.answered(exchange, body + "\n \r\n", 401)
                self.assert_refused(result, "invalid", f"{exchange} rejected credentials: "
                                                       f"(?s:.*){re.escape(told)}(?s:.*)")
                self.assertEqual(result["reason"].rstrip(), result["reason"])
        # An empty one, Bitget's probe prints bare.
        self.assert_refused(self.answered("gate", ""), "invalid", "gate rejected credentials: ")
        self.assert_refused(self.answered("bitget", ""), "error", not_executed("bitget"))

    def test_without_a_network_two_checks_fail_and_four_tell_what_python_met(self):
        with socket.socket() as nobody_listens:
            nobody_listens.bind(("127.0.0.1", 0))
            self.env["https_proxy"] = "http://127.0.0.1:%d" % nobody_listens.getsockname()[1]
            for exchange in EXCHANGES:
                expected = ("invalid", f"{exchange} rejected credentials: .*refused.*") \
                    if exchange in PROBED else \
                    ("error", rf"{exchange} request failed: curl: \(7\) .*")
                self.assert_refused(self.validate(*demo_key(exchange)), *expected)


class Python(ConnectorTest):
    def test_a_missing_or_failing_python_executes_no_probe_and_what_it_prints_is_dropped(self):
        for script in ("", "echo '\"code\":\"0\"'; exit 1", "exit 0", "printf ' \\n\\t'",
                       "kill -9 $$"):
            self.only_tools("curl", "openssl", "xxd", "date")
            if script:
                self.stand_in("python3", f"{script}\n")
            for exchange in PROBED:
                self.assert_refused(self.validate(*demo_key(exchange)), "error",
                                    not_executed(exchange))
        self.assertEqual([], self.box.requests)
        for exchange in ("bybit", "gate"):
            self.assertEqual(0, self.validate(*demo_key(exchange))["exit"])

    def test_no_module_of_the_working_folder_runs_beside_the_keys(self):
        folder = os.path.join(self.home, "downloads")
        os.mkdir(folder)
        for module in ("json", "hmac", "hashlib", "base64", "datetime", "time", "urllib", "http",
                       "ssl", "socket", "random", "sitecustomize", "usercustomize"):
            with open(os.path.join(folder, module + ".py"), "w", encoding="ascii") as file:
                file.write(f"open({os.path.join(folder, 'ran')!r}, 'w')\n")
        for exchange in PROBED:
            self.assertEqual(0, self.validate(*demo_key(exchange), cwd=folder)["exit"], exchange)
            self.assertNotIn("ran", os.listdir(folder))

    def test_a_credential_that_no_header_can_carry_is_refused_and_never_shown(self):
        for exchange in PROBED:
            for part in ("key", "passphrase") if exchange in PASSPHRASES else ("key",):
                result = self.validate(*demo_key(exchange, **{part: "hidden\r\nX-More: yes"}))
                self.assert_refused(result, "invalid", f"{exchange} rejected credentials: (?s:.*)")
                self.assertNotIn("hidden", result["reason"])
        self.assertEqual([], [one for one in self.box.requests if one.header("X-More")])
