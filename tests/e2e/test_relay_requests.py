"""What goes out to the relay, byte for byte, and what server-health says of the answer."""

import os

from sandbox import hosts
from sandbox.faults import Fault
from support import ConnectorTest

URL = "https://" + hosts.RELAY
ID = "device:macos:0123456789ab"
HOSTILE = ("0xOwn", "it's", 'say "hi"', "$(touch ran)", "`touch ran`", "; touch ran #",
           "back\\slash\\", "per%20cent %s", "größe-鍵", "not utf-8: \udcff", "-K ran", "@ran",
           "a  b", "*", "{a,b}[1-2]")


def health(reachable, message, wallet=""):
    return (f'{{"status":"ok","relay_url":"{URL}","reachable":{"true" if reachable else "false"},'
            f'"health_status":"{"" if reachable else "un"}reachable","wallet_address":"{wallet}",'
            f'"message":{message}}}\n')


class Relay(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.identity()
        self.answer("set-wallet", "0xOwn")

    def identity(self, device_id=ID, label="My Mac", wallet="", paired="0"):
        self.write("device_identity.env", f"device_id={device_id}\ndevice_label={label}\n"
                                          f"owner_wallet={wallet}\npaired={paired}\n")

    def assert_request(self, arguments, target, *members, **headers):
        """A command's one request: a GET, or a POST of these members, written raw."""
        self.box.requests.clear()
        self.answer(*arguments, cwd=self.home)
        request, = self.box.requests
        body = ",".join(f'"{name}":"{value}"' for name, value in members)
        sent = ("{" + body + "}").encode("utf-8", "surrogateescape") if members else b""
        if members:
            headers = {"Content-Type": "application/json", "Content-Length": str(len(sent))}
        self.assertEqual(("POST" if members else "GET", "https", hosts.RELAY, target, sent),
                         (request.method, request.scheme, request.host, request.target,
                          request.body))
        # Some headers curl adds by itself.
        self.assertEqual([("Host", hosts.RELAY), *headers.items()],
                         [(name, value) for name, value in request.headers
                          if name.lower() not in ("user-agent", "accept", "connection")])

    def test_every_call_sends_its_texts_unchanged_and_runs_nothing(self):
        before = os.listdir(self.home)
        self.assert_request(["server-health"], "/api/security/config")
        for text in HOSTILE:
            for label in (text, ""):
                self.identity(label=label)
                token = text + "\n" + text + "\r\n"
                self.assert_request(["claim-token", token], "/api/connector/claim-token",
                                    ("token", token), ("connectorId", ID),
                                    ("connectorLabel", label or "macOS connector"))
            self.answer("set-wallet", text)
            self.assert_request(["bind-wallet"], "/api/connector/bind", ("wallet", text),
                                ("connectorId", ID), ("connectorLabel", "macOS connector"))
            self.assert_request(["bind-status"], "/api/connector/bind-status?connectorId=" + ID,
                                **{"x-morvane-wallet": text})
            self.answer("set-wallet", text)
        for device_id in ("d&more=1", "$(cat<ran>more)", "it's"):
            self.identity(device_id)
            self.answer("set-wallet", "0xOwn")
            self.assert_request(["bind-status"],
                                "/api/connector/bind-status?connectorId=" + device_id,
                                **{"x-morvane-wallet": "0xOwn"})
        self.assertEqual(before, os.listdir(self.home))

    def test_websocket_addresses_stand_for_their_http_ones(self):
        host = hosts.RELAY
        for url, scheme, header, path in ((f"wss://{host}", "https", host, ""),
                                          (f"http://{host}", "http", host, ""),
                                          (f"ws://{host}:8080", "http", host + ":8080", ""),
                                          (f"wss://{host}/", "https", host, "/"),
                                          (f"ws://{host}/v1", "http", host, "/v1")):
            self.env["MORVANE_RELAY_URL"] = url
            self.assertIn(f'"relay_url":"{url}","reachable":true', self.answer("server-health"))
            self.answer("claim-token", "token")
            self.assertEqual([(scheme, header, path + "/api/security/config"),
                              (scheme, header, path + "/api/connector/claim-token")],
                             [(one.scheme, one.header("Host"), one.target)
                              for one in self.box.requests])
            self.box.requests.clear()

    def test_whatever_the_relay_answers_is_the_message_as_it_stands(self):
        for paired, wallet in (("1", "0xOwn"), ("0", "")):
            self.identity(wallet="0xOld", paired=paired)
            for status, answer in ((500, "<html>\r\n<h1>500</h1>\r\n</html>"), (200, "a\nb\n\n"),
                                   (404, '{"reason":"not_found"}'), (200, ""), (200, '"\udcff')):
                self.box.faults[:] = [Fault.answer(hosts.RELAY, status,
                                                   answer.encode("utf-8", "surrogateescape"))]
                self.assertEqual(health(True, answer, wallet), self.answer("server-health"))
        self.box.faults[:] = [Fault.slow(hosts.RELAY, pieces=4, pause_seconds=0.01)]
        self.assertIn('"message":{"status":"ok",', self.answer("server-health"))

    def test_a_relay_that_fails_or_is_late_is_reported_in_the_calls_own_words(self):
        calls = [(10, ["server-health"], health(False, '"relay health request failed"'))] + [
            (15, [command, "t"], f'{{"status":"error","reason":"{reason}_failed"}}\n')
            for command, reason in (("bind-status", "bind_status"), ("claim-token", "claim_token"),
                                    ("bind-wallet", "bind_request"))]
        for fault in (Fault.close, Fault.cut_off, Fault.unknown_ca, Fault.expired_certificate):
            self.box.faults[:] = [fault(hosts.RELAY)]
            self.identity()
            for _, arguments, printed in calls:
                self.assert_run((0, printed), *arguments)
        self.box.faults.clear()
        self.box.requests.clear()
        self.identity()
        for limit, arguments, printed in calls:
            log = self.recording_curl(times_out_at=str(limit))
            self.assert_run((0, printed), *arguments)
            with open(log, encoding="utf-8") as lines:
                self.assertRegex(lines.read(), rf"\A-sS --max-time {limit} .*/api/.*\n\Z")
            os.remove(log)
        self.env["MORVANE_RELAY_URL"] = ""
        for _, arguments, printed in calls[1:]:
            self.assert_run((0, printed), *arguments)
        os.remove(log)
        self.identity()
        self.assert_run((0, '{"status":"ok","relay_url":"","reachable":false,"health_status":'
                            '"disconnected","wallet_address":"","message":"relay url missing"}\n'),
                        "server-health")
        self.assertFalse(os.path.exists(log))
        self.assertEqual([], self.box.requests)
