"""The live check of a key from the inside: what is asked, how answers are judged, what can fail."""

import base64
import hashlib
import hmac
import os
import re
import unittest

from sandbox import Fault, hosts
from support import PASSPHRASES, ValidationTest, demo_key

EXCHANGES = tuple(hosts.BY_EXCHANGE)
PROBED = ("okx", "bingx", "kucoin", "bitget")
NOT_EXECUTED = {"okx": "failed to execute okx validation probes",
                "bingx": "failed to execute bingx validation probes",
                "kucoin": "failed to execute kucoin validation probes",
                "bitget": "failed to execute bitget validation probe"}


def digest_of(exchange, text):
    return hmac.new(f"demo-{exchange}-secret".encode(), text.encode(), hashlib.sha256)


def base64_of(exchange, text):
    return base64.b64encode(digest_of(exchange, text).digest()).decode()


class Requests(ValidationTest):
    """Each request is the expected one, with just these headers, signed over what was sent."""

    MILLISECONDS = r"\d{13}"

    def requests_of(self, exchange):
        self.box.requests.clear()
        self.assertEqual(0, self.validate(*demo_key(exchange))["exit"])
        return list(self.box.requests)

    def assert_headers(self, request, expected):
        transport = {"host", "connection", "accept", "accept-encoding"}
        if "User-Agent" not in expected:
            transport.add("user-agent")
        self.assertEqual({name.lower(): value for name, value in expected.items()},
                         {name.lower(): value for name, value in request.headers
                          if name.lower() not in transport})

    def test_okx_is_asked_nine_times_site_by_site(self):
        requests = self.requests_of("okx")
        self.assertEqual(
            [("GET", host, path)
             for host in ("www.okx.com", "eea.okx.com", "us.okx.com")
             for path in ("/api/v5/account/config", "/api/v5/account/balance?ccy=USDT",
                          "/api/v5/account/balance")], self.sent())
        for request in requests:
            moment = request.header("OK-ACCESS-TIMESTAMP")
            self.assertRegex(moment, r"\A\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z\Z")
            self.assert_headers(request, {
                "OK-ACCESS-KEY": "demo-okx-key",
                "OK-ACCESS-SIGN": base64_of("okx", moment + "GET" + request.target),
                "OK-ACCESS-TIMESTAMP": moment, "OK-ACCESS-PASSPHRASE": "demo-passphrase",
                "Content-Type": "application/json", "User-Agent": "okx-api-client/1.0"})

    def test_bingx_is_asked_on_both_versions_of_its_balance(self):
        requests = self.requests_of("bingx")
        for request, version in zip(requests, ("v3", "v2")):
            self.assertEqual(("GET", hosts.BINGX, f"/openApi/swap/{version}/user/balance"),
                             (request.method, request.host, request.path))
            moment = request.parameters["timestamp"]
            self.assertRegex(moment, rf"\A{self.MILLISECONDS}\Z")
            signature = digest_of("bingx", f"timestamp={moment}").hexdigest()
            self.assertEqual(f"timestamp={moment}&signature={signature}", request.query)
            self.assert_headers(request, {"X-BX-APIKEY": "demo-bingx-key"})
        self.assertEqual(2, len(requests))

    def test_kucoin_is_asked_as_either_version_of_key(self):
        endpoint = "/api/v1/account-overview?currency=USDT"
        requests = self.requests_of("kucoin")
        self.assertEqual([("GET", hosts.KUCOIN, endpoint)] * 2, self.sent())
        for request, version in zip(requests, "23"):
            moment = request.header("KC-API-TIMESTAMP")
            self.assertRegex(moment, rf"\A{self.MILLISECONDS}\Z")
            self.assert_headers(request, {
                "KC-API-KEY": "demo-kucoin-key",
                "KC-API-SIGN": base64_of("kucoin", moment + "GET" + endpoint),
                "KC-API-TIMESTAMP": moment,
                "KC-API-PASSPHRASE": base64_of("kucoin", "demo-passphrase"),
                "KC-API-KEY-VERSION": version, "Content-Type": "application/json"})

    def test_bitget_is_asked_once(self):
        target = "/api/v2/mix/account/accounts?productType=USDT-FUTURES"
        request, = self.requests_of("bitget")
        self.assertEqual([("GET", hosts.BITGET, target)], self.sent())
        moment = request.header("ACCESS-TIMESTAMP")
        self.assertRegex(moment, rf"\A{self.MILLISECONDS}\Z")
        self.assert_headers(request, {
            "ACCESS-KEY": "demo-bitget-key",
            "ACCESS-SIGN": base64_of("bitget", moment + "GET" + target),
            "ACCESS-TIMESTAMP": moment, "ACCESS-PASSPHRASE": "demo-passphrase",
            "Content-Type": "application/json", "locale": "en-US",
            "X-CHANNEL-API-CODE": "qzvtk"})

    def test_bybit_is_asked_once_about_the_key_itself(self):
        request, = self.requests_of("bybit")
        self.assertEqual([("GET", hosts.BYBIT, "/v5/user/query-api")], self.sent())
        moment = request.header("X-BAPI-TIMESTAMP")
        self.assertRegex(moment, rf"\A{self.MILLISECONDS}\Z")
        self.assertEqual(
            [("X-BAPI-API-KEY", "demo-bybit-key"), ("X-BAPI-TIMESTAMP", moment),
             ("X-BAPI-RECV-WINDOW", "5000"),
             ("X-BAPI-SIGN", digest_of("bybit", moment + "demo-bybit-key5000").hexdigest())],
            [header for header in request.headers if header[0].startswith("X-")])

    def test_gate_is_asked_once_for_the_account(self):
        request, = self.requests_of("gate")
        path = "/api/v4/futures/usdt/accounts"
        self.assertEqual([("GET", hosts.GATE, path)], self.sent())
        moment = request.header("Timestamp")
        self.assertRegex(moment, r"\A\d{10}\Z")
        text = f"GET\n{path}\n\n{hashlib.sha512(b'').hexdigest()}\n{moment}"
        signature = hmac.new(b"demo-gate-secret", text.encode(), hashlib.sha512).hexdigest()
        self.assertEqual([("KEY", "demo-gate-key"), ("Timestamp", moment), ("SIGN", signature)],
                         [header for header in request.headers
                          if header[0].lower() not in ("host", "user-agent", "accept")])


class Answers(ValidationTest):
    def answered(self, exchange, body, status=200):
        self.box.faults[:] = [Fault.answer(host, status, body)
                              for host in hosts.BY_EXCHANGE[exchange]]
        return self.validate(*demo_key(exchange))

    def test_these_words_in_an_answer_prove_the_key(self):
        for exchange, body in (
                ("bybit", b'{"retCode":0}'), ("bybit", b'{"retCode": 0,"x":1}'),
                ("gate", b'{"user":1}'), ("gate", b'{"currency":""}'), ("gate", b'"available"'),
                ("okx", b'{"code":"0"}'),
                ("bingx", b'{"code":0}'), ("bingx", b'{"code": 0}'), ("bingx", b"availableMargin"),
                ("kucoin", b'{"code":"200000"}'),
                ("bitget", b'{"code":"00000"}'), ("bitget", b'{"available":1}'),
                ("bitget", b'"marginCoin"'), ("bitget", b'"accountEquity"')):
            with self.subTest(exchange=exchange, body=body):
                self.assertEqual(0, self.answered(exchange, body)["exit"])

    def test_bybits_permissions_are_read_from_words_anywhere_in_the_answer(self):
        for words, status, withdrawal in (
                (b"", "valid_read_only", "false"), (b"ORDER withdraw", "valid_read_only", "false"),
                (b"orders", "valid_trade_ready", "false"), (b"Order", "valid_trade_ready", "false"),
                (b"Withdrawal", "valid_read_only", "true")):
            with self.subTest(words=words):
                result = self.answered("bybit", b'{"retCode":0,"x":"' + words + b'"}')
                self.assertEqual((0, status, withdrawal),
                                 (result["exit"], result["status"], result["withdrawal"]))

    def test_any_other_answer_is_a_rejection_with_the_answer_in_it(self):
        page = "(?s:.*<html>.*502.*nginx.*</html>.*)"
        for exchange in EXCHANGES:
            with self.subTest(exchange=exchange):
                self.box.faults[:] = [Fault.html_error(host)
                                      for host in hosts.BY_EXCHANGE[exchange]]
                self.assert_refused(self.validate(*demo_key(exchange)), "invalid",
                                    f"{exchange} rejected credentials: {page}")
        for exchange, body in (("bybit", '{"retCode":10003}'), ("bybit", '{"retCode":  0}'),
                               ("bybit", "retCode:0"), ("gate", '{"label":"X","users":[]}'),
                               ("okx", '{"code":"1"}'), ("okx", '{"posMode":1,"code":0}'),
                               ("bingx", '{"code":100413}'), ("bingx", '{"available":1}'),
                               ("bingx", '{"code":"0"}'), ("kucoin", '{"code":"400003"}'),
                               ("kucoin", '{"code":200000}'), ("bitget", '{"code":"40006"}'),
                               ("bitget", '{"code":0}')):
            with self.subTest(exchange=exchange, body=body):
                result = self.answered(exchange, body.encode(), 401)
                told = body if exchange in ("bybit", "gate", "bitget") else \
                    r'"body": "%s"' % body.replace('"', r"\"")
                self.assert_refused(result, "invalid", f"{exchange} rejected credentials: "
                                                       f"(?s:.*){re.escape(told)}(?s:.*)")

    def test_an_empty_answer_is_a_rejection_except_by_bitgets_probe_which_prints_it_bare(self):
        for exchange in EXCHANGES:
            with self.subTest(exchange=exchange):
                result = self.answered(exchange, b"")
                if exchange == "bitget":
                    self.assert_refused(result, "error", NOT_EXECUTED["bitget"])
                else:
                    self.assert_refused(result, "invalid", f"{exchange} rejected credentials: .*")

    def test_blanks_after_an_answer_are_cut_and_those_before_it_stay(self):
        result = self.answered("gate", b" \n{}\r\n\t \n")
        self.assertEqual("gate rejected credentials:  \n{}", result["reason"])

    def test_one_good_answer_among_the_probes_is_enough(self):
        for exchange, fault in (
                ("okx", Fault.close(hosts.OKX_GLOBAL, path="/api/v5/account/config")),
                ("okx", Fault.html_error(hosts.OKX_EEA)),
                ("bingx", Fault.answer(hosts.BINGX, 404, b"", path="/openApi/swap/v3")),
                ("bingx", Fault.cut_off(hosts.BINGX, path="/openApi/swap/v2"))):
            with self.subTest(exchange=exchange, fault=fault):
                self.box.faults[:] = [fault]
                self.assertEqual(0, self.validate(*demo_key(exchange))["exit"])


class Python(ValidationTest):
    def test_without_python_nothing_is_executed_and_the_other_two_need_none(self):
        self.only_tools("curl", "openssl", "xxd", "date")
        for exchange in PROBED:
            with self.subTest(exchange=exchange):
                self.assert_refused(self.validate(*demo_key(exchange)), "error",
                                    NOT_EXECUTED[exchange])
        self.assertEqual([], self.box.requests)
        for exchange in ("bybit", "gate"):
            self.assertEqual(0, self.validate(*demo_key(exchange))["exit"])

    def test_what_a_failing_python_prints_is_dropped(self):
        for script in ("echo '\"code\":\"0\"'; exit 1", 'echo "$2" >&2; exit 1', "exit 0",
                       "printf ' \\n\\t'", "kill -9 $$"):
            self.stand_in("python3", f"#!/bin/sh\n{script}\n")
            for exchange in PROBED:
                with self.subTest(script=script, exchange=exchange):
                    self.assert_refused(self.validate(*demo_key(exchange)), "error",
                                        NOT_EXECUTED[exchange])

    def test_no_module_of_the_working_folder_runs_beside_the_keys(self):
        folder = os.path.join(self.home, "downloads")
        os.mkdir(folder)
        for module in ("json", "hmac", "hashlib", "base64", "datetime", "time", "urllib", "http",
                       "ssl", "socket", "random", "sitecustomize", "usercustomize"):
            with open(os.path.join(folder, module + ".py"), "w", encoding="ascii") as file:
                file.write(f"open({os.path.join(folder, 'ran')!r}, 'w')\n")
        for exchange in PROBED:
            with self.subTest(exchange=exchange):
                self.assertEqual(0, self.validate(*demo_key(exchange), cwd=folder)["exit"])
                self.assertNotIn("ran", os.listdir(folder))

    def test_a_credential_that_no_header_can_carry_is_refused_and_never_shown(self):
        for exchange in PROBED:
            for part in ("key", "secret", "passphrase"):
                if part == "passphrase" and exchange not in PASSPHRASES:
                    continue
                for ending in ("\r\nX-More: yes", "\nhidden-too"):
                    with self.subTest(exchange=exchange, part=part, ending=ending):
                        result = self.validate(*demo_key(exchange, **{part: "hidden" + ending}))
                        self.assert_refused(result, "invalid",
                                            f"{exchange} rejected credentials: (?s:.*)")
                        self.assertNotIn("hidden", result["reason"])
        self.assertEqual([], [request for request in self.box.requests
                              if request.header("X-More")])


if __name__ == "__main__":
    unittest.main()
