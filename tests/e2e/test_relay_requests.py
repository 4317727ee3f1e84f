"""What goes out to the relay, byte for byte, and what server-health says of the answer."""

import json
import os
import unittest

from sandbox import hosts
from sandbox.faults import Fault
from support import ConnectorTest

URL = "https://" + hosts.RELAY
ID = "device:macos:0123456789ab"
LABEL = "Morvane Connector (macOS)"
HOSTILE = ["it's", 'say "hi"', "$(touch ran)", "`touch ran`", "; touch ran #", "a && touch ran",
           "back\\slash\\", "per%20cent %s &#39;", "größe-鍵", "not utf-8: \udcff\udcfe",
           "-K ran", "@ran", "a  b", "*", "{a,b}[1-2]"]


class RelayTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        for memory in (self.box.relay.script, self.box.relay.bindings, self.box.relay.spent):
            memory.clear()
        self.identity()

    def identity(self, device_id=ID, label=LABEL, wallet="", paired="0"):
        self.write("device_identity.env",
                   f"device_id={device_id}\nconnector_instance_id=connector:1\n"
                   f"device_label={label}\nplatform=macos\nowner_wallet={wallet}\n"
                   f"paired={paired}\n")

    def request(self, *arguments):
        """The one request that a command makes."""
        self.box.requests.clear()
        self.answer(*arguments, cwd=self.home)
        self.assertEqual(1, len(self.box.requests), arguments)
        return self.box.requests[0]

    def headers(self, request):
        """But those that curl adds by itself and that depend on its version."""
        return [(name, value) for name, value in request.headers
                if name.lower() not in ("user-agent", "accept", "connection")]


def body(*members):
    """The members as the connector writes them: raw, one after the other."""
    text = ",".join(f'"{name}":"{value}"' for name, value in members)
    return ("{" + text + "}").encode("utf-8", "surrogateescape")


class Requests(RelayTest):
    def assert_post(self, request, path, sent):
        self.assertEqual(("POST", "https", hosts.RELAY, path),
                         (request.method, request.scheme, request.host, request.target))
        self.assertEqual(sent, request.body)
        self.assertEqual([("Host", hosts.RELAY), ("Content-Type", "application/json"),
                          ("Content-Length", str(len(sent)))], self.headers(request))

    def assert_get(self, request, target, *headers):
        self.assertEqual(("GET", "https", hosts.RELAY, target, b""),
                         (request.method, request.scheme, request.host, request.target,
                          request.body))
        self.assertEqual([("Host", hosts.RELAY), *headers], self.headers(request))

    def test_health_is_a_plain_get_that_names_nobody(self):
        self.write("pairing.env", "owner_wallet_address=0xOwn\nwallet_approval_confirmed=1\n")
        self.identity(wallet="0xOwn", paired="1")
        self.assert_get(self.request("server-health"), "/api/security/config")

    def test_bind_sends_a_fixed_label(self):
        self.write("pairing.env", "owner_wallet_address=0xOwn\n")
        self.assert_post(self.request("bind-wallet"), "/api/connector/bind",
                         body(("wallet", "0xOwn"), ("connectorId", ID),
                              ("connectorLabel", "macOS connector")))

    def test_claim_sends_the_devices_label(self):
        for label, sent in ((LABEL, LABEL), ("Ann's $(touch ran)", "Ann's $(touch ran)"),
                            ("", "macOS connector")):
            with self.subTest(label=label):
                self.identity(label=label)
                self.assert_post(self.request("claim-token", "t-1"), "/api/connector/claim-token",
                                 body(("token", "t-1"), ("connectorId", ID),
                                      ("connectorLabel", sent)))

    def test_bind_status_sends_the_device_id_raw_and_the_wallet_as_a_header(self):
        for device_id in (ID, "d&more=1", "$(cat<ran>more)", "it's"):
            with self.subTest(device_id=device_id):
                self.write("pairing.env", "owner_wallet_address=0xOwn\n")
                self.identity(device_id)
                self.assert_get(self.request("bind-status"),
                                "/api/connector/bind-status?connectorId=" + device_id,
                                ("x-morvane-wallet", "0xOwn"))

    def test_hostile_text_reaches_the_relay_unchanged_and_runs_nothing(self):
        before = {"ran", *os.listdir(self.home)}
        for text in HOSTILE:
            with self.subTest(text=text):
                tail = (("connectorId", ID), ("connectorLabel", "macOS connector"))
                self.answer("set-wallet", text)
                self.assertEqual(body(("wallet", text), *tail), self.request("bind-wallet").body)
                self.assertEqual(text, self.request("bind-status").header("x-morvane-wallet"))
                tail = (("connectorId", ID), ("connectorLabel", LABEL))
                token = text + "\n" + text + "\r\n"
                self.assertEqual(body(("token", token), *tail),
                                 self.request("claim-token", token).body)
        self.assertEqual(before - {"ran"}, set(os.listdir(self.home)))


class RelayUrl(RelayTest):
    def test_websocket_addresses_stand_for_their_http_ones(self):
        host = hosts.RELAY
        for url, scheme, header, path in (
                (f"https://{host}", "https", host, ""),
                (f"wss://{host}", "https", host, ""),
                (f"http://{host}", "http", host, ""),
                (f"ws://{host}", "http", host, ""),
                (f"ws://{host}:8080", "http", host + ":8080", ""),
                (f"wss://{host}/", "https", host, "/"),
                (f"ws://{host}/v1", "http", host, "/v1")):
            with self.subTest(url=url):
                self.env["MORVANE_RELAY_URL"] = url
                health = self.answer("server-health")
                self.assertIn(f'"relay_url":"{url}","reachable":true', health)
                self.assertIn("\nrelay_connected=true\n", self.answer("status"))
                for command, call in (("server-health", "/api/security/config"),
                                      ("claim-token", "/api/connector/claim-token")):
                    request = self.request(command, "token")
                    self.assertEqual((scheme, header, path + call),
                                     (request.scheme, request.header("Host"), request.target))

    def test_without_an_address_health_runs_nothing_and_the_calls_fail(self):
        log = self.recording_curl()
        self.env["MORVANE_RELAY_URL"] = ""
        self.assertEqual('{"status":"ok","relay_url":"","reachable":false,"health_status":'
                         '"disconnected","wallet_address":"","message":"relay url missing"}\n',
                         self.answer("server-health"))
        self.assertFalse(os.path.exists(log))
        self.write("pairing.env", "owner_wallet_address=0xOwn\n")
        for arguments, reason in ((["bind-status"], "bind_status_failed"),
                                  (["claim-token", "t"], "claim_token_failed"),
                                  (["bind-wallet"], "bind_request_failed")):
            self.assertEqual(f'{{"status":"error","reason":"{reason}"}}\n',
                             self.answer(*arguments))
        self.assertEqual([], self.box.requests)
        self.assertEqual([], self.box.refused)


class Answers(RelayTest):
    def health(self, reachable, message, wallet=""):
        return (f'{{"status":"ok","relay_url":"{URL}","reachable":'
                f'{"true" if reachable else "false"},"health_status":'
                f'"{"" if reachable else "un"}reachable","wallet_address":"{wallet}",'
                f'"message":{message}}}\n')

    def test_whatever_the_relay_answers_is_the_message_as_it_stands(self):
        for status, answer in ((200, '{"status":"ok"}'), (500, "<html>\r\n<h1>500</h1>\r\n</html>"),
                               (404, '{"reason":"not_found"}'), (200, ""), (200, "a\nb\n\n"),
                               (200, 'no "json" \udcff')):
            with self.subTest(status=status, answer=answer):
                self.box.faults[:] = [Fault.answer(hosts.RELAY, status,
                                                   answer.encode("utf-8", "surrogateescape"))]
                self.assertEqual(self.health(True, answer), self.answer("server-health"))

    def test_health_shows_the_wallet_of_a_paired_connector_only(self):
        config = self.box.relay.script["config"] = b'{"status":"ok"}'
        self.write("pairing.env", "owner_wallet_address=0xOwn\n")
        for paired, wallet in (("1", "0xOwn"), ("0", "")):
            self.identity(wallet="0xOld", paired=paired)
            self.assertEqual(self.health(True, config.decode(), wallet),
                             self.answer("server-health"))

    def calls_that_fail(self):
        """Every command that calls the relay, with its limit in seconds and what it then prints."""
        yield 10, ["server-health"], self.health(False, '"relay health request failed"')
        self.write("pairing.env", "owner_wallet_address=0xOwn\n")
        for arguments, reason in ((["bind-status"], "bind_status_failed"),
                                  (["claim-token", "t"], "claim_token_failed"),
                                  (["bind-wallet"], "bind_request_failed")):
            yield 15, arguments, f'{{"status":"error","reason":"{reason}"}}\n'

    def test_a_relay_that_fails_is_reported_in_the_calls_own_words(self):
        slow = dict(pieces=4, pause_seconds=0.01)
        for fault in (Fault.close(hosts.RELAY), Fault.cut_off(hosts.RELAY),
                      Fault.lost_answer(hosts.RELAY), Fault.unknown_ca(hosts.RELAY),
                      Fault.expired_certificate(hosts.RELAY)):
            self.identity()
            for _, arguments, printed in self.calls_that_fail():
                with self.subTest(fault=fault, arguments=arguments):
                    self.box.faults[:] = [fault]
                    self.assertEqual(printed, self.answer(*arguments))
        self.box.faults[:] = [Fault.slow(hosts.RELAY, **slow)]
        self.assertEqual("ok", json.loads(self.answer("server-health"))["message"]["status"])

    def test_a_relay_that_nobody_knows_is_unreachable(self):
        self.env["MORVANE_RELAY_URL"] = "https://nobody.example"
        self.assertIn('"reachable":false,"health_status":"unreachable"',
                      self.answer("server-health"))
        self.assertEqual("nobody.example", self.box.refused.pop())

    def test_each_call_has_its_limit_and_a_late_answer_is_none(self):
        for limit, arguments, printed in self.calls_that_fail():
            with self.subTest(arguments=arguments):
                log = self.recording_curl(times_out_at=str(limit))
                self.assertEqual(printed, self.answer(*arguments))
                with open(log, encoding="utf-8") as lines:
                    self.assertRegex(lines.read(), rf"\A-sS --max-time {limit} .*/api/.*\n\Z")
                os.remove(log)
        self.assertEqual([], self.box.requests)


if __name__ == "__main__":
    unittest.main()
