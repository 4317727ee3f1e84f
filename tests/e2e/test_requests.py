"""What goes out for each command, how an answer returns, and what is told of none."""

import os
import re
import shlex
import time

from sandbox import Fault, hosts
from support import DEVICE, EXCHANGES, TRADING, ConnectorTest, document, error

TABLE = os.path.join(os.path.dirname(__file__), "../requests.txt")
HALVES = {"place-open": r'\{{"leverage":{0},"place":{0}\}}',
          "close-report": r'\{{"order":{0},"{1}":{0}\}}'}
REPORTS = {"bybit": "closed_pnl", "okx": "positions_history", "gate": "trades"}
RELAY = f"https://{hosts.RELAY}"
MANIFEST = f"https://{hosts.DOWNLOAD}/current/manifest.json"

# What curl, or Python's client, adds by itself.
ADDED = ("host", "user-agent", "accept", "accept-encoding", "content-length", "connection")


def rows():
    """Of each row: its words, what is behind each arrow or "at", and the headers."""
    with open(TABLE, encoding="utf-8") as table:
        text = re.sub("(?m)^#.*\n", "", table.read())
    for row in re.findall(r"(?m)^\S.*(?:\n .*)*", text):
        row = re.sub("\n +", "", re.sub("\n +(?=->|with)", " ", row))
        row, *headers = row.split(" with")
        words, *requests = re.split(" at | -> ", row)
        yield shlex.split(words), requests, " ".join(headers).split()


def health(url, reachable, status, message):
    return document("ok", relay_url=url, reachable=reachable, health_status=status,
                    wallet_address="0xOwn", message=message)


class Requests(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys("hyperliquid", "Bybit", *EXCHANGES)
        self.be_bound()

    def test_what_goes_out_is_what_the_table_says_and_no_exchange_refuses_the_signature(self):
        at = {}
        for words, requests, headers in rows():
            if len(words) == 1:
                at[words[0]] = requests[0], headers
                continue
            with self.subTest(" ".join(words)):
                self.box.requests.clear()
                key = self.key(words[1]) if words[1] in EXCHANGES else "ksp"
                known = dict(zip(("<key>", "<secret>", "<passphrase>"), key))
                began = int(time.time())
                printed = self.connector(*(known.get(word, word) for word in words)).stdout
                if re.fullmatch("[a-z_]+", requests[0]):
                    self.assertEqual(([], error(requests[0])), (self.box.requests, printed))
                    continue
                address, own = at[words[1]]
                self.assertEqual(len(requests), len(self.box.requests))
                for version, (expected, sent) in enumerate(zip(requests, self.box.requests), 2):
                    self.assertEqual(re.sub("^([A-Z]+) /", rf"\1 {address}/", expected),
                                     self.told(sent, expected, began))
                    known["<version>"] = str(version)
                    self.assert_headers([*own, *headers], sent, known)
                self.assertRegex(printed, self.frame(*words[:2]))
                # A key is of one of OKX's sites, and of one of KuCoin's two versions.
                if words[:2] not in (["validate", "okx"], ["validate", "kucoin"]):
                    self.assertEqual([], self.box.refusals)
                self.box.refusals.clear()
        self.assertEqual({"relay", *EXCHANGES}, set(at), "Each exchange has rows.")

    def told(self, request, expected, began):
        """A request as the table tells it: what changes from run to run by its name."""
        target = re.sub(r"timestamp=\d{13}&signature=[0-9a-f]{64}$", "<signed>", request.target)
        if ago := re.search("<(.*) minutes ago>", expected):
            unit, start = re.search(r"&(startTime|from)=(-?\d+)&", target).groups()
            seconds = int(start) / (1000 if unit == "startTime" else 1) + int(ago[1]) * 60
            self.assertTrue(began <= seconds <= time.time(), target)
            target = target.replace(start, ago[0])
        body = " " + request.body.decode() if request.body else ""
        return f"{request.method} {request.scheme}://{request.host}{target}{body}"

    def assert_headers(self, wanted, request, known):
        """Their names in this order, and the values that are known."""
        expected = [(name.lower(), known.get(value, value)) for name, _, value in
                    (header.partition("=") for header in wanted)]
        if request.body and ("content-type", "application/json") not in expected:
            expected.append(("content-type", "application/json"))
        values = dict(expected)
        sent = [(name.lower(), value) for name, value in request.headers]
        self.assertEqual(expected, [(name, value if values.get(name) else "")
                                    for name, value in sent if name not in ADDED or name in values])

    def frame(self, command, exchange):
        """The pattern of a whole answer."""
        if exchange == "relay" or command == "validate":
            return '"status":"' if exchange == "relay" else "credentials_saved=true"
        body = HALVES.get(command, "{}").format(r"[{[].*[}\]]", REPORTS.get(exchange))
        kind = command.replace("get-", "").replace("-", "_")
        return rf'\A{{"status":"ok","exchange":"{exchange}","kind":"{kind}","body":{body}}}\n\Z'

    def test_whatever_came_is_passed_on_as_it_is_but_for_a_line_behind_its_nul(self):
        for status, body in ((200, b""), (200, b"no JSON \"'}"), (500, b"<h1>500</h1>\r\n\n"),
                             (401, b"\xff\xfe%s%d\\n"), (200, b"x" * (8 << 20)), (429, b"a\0b\nc")):
            self.box.faults[:] = [Fault.answer(host, status, body)
                                  for host in (hosts.BYBIT, hosts.RELAY)]
            for command, frame in (
                    ("balance bybit", document("ok", exchange="bybit", kind="balance", body="RAW")),
                    ("server-health", health(RELAY, True, "reachable", "RAW")),
                    ("bind-status", '"RAW"\n')):
                expected = frame.replace('"RAW"', os.fsdecode(body).replace("\0b\n", ""))
                self.assertTrue(expected == self.answer(*command.split()), (command, body[:99]))

    def test_what_fails_is_told_in_the_commands_own_words_after_its_own_time(self):
        self.stand_in(curl=r'''case "$*" in
  "-sS "*--max-time\ $LIMIT\ *) printf '"retCode":0 "user" "status":"ok"\n'; echo 28 >&2; exit 28
esac''')
        for command, self.env["LIMIT"], told in (
                ("server-health", "10",
                 health(RELAY, False, "unreachable", "relay health request failed")),
                ("bind-status", "15", error("bind_status_failed")),
                ("claim-token t", "15", error("claim_token_failed")),
                ("balance kucoin", "20", error("http_failed")),
                ("cancel-order bingx BTC_USDT 42", "20", error("http_failed")),
                ("place-close gate BTC_USDT buy 1 2", "20", error("http_failed")),
                ("update-check", "20", error("update_check_failed", manifest_url=MANIFEST)),
                ("update-download", "20", error("manifest_fetch_failed", manifest_url=MANIFEST)),
                ("bind-wallet", "15", error("bind_request_failed"))):
            self.says(told, *command.split())
        for exchange in ("bybit", "gate"):
            os.remove(self.path(f"vault/{exchange}.vault"))
            told = f'{exchange} request failed: "retCode":0 "user" "status":"ok"\n28'
            self.assert_refused("error", told, exchange)

    def test_both_halves_are_sent_but_gates_report_ends_at_its_first_failure(self):
        for exchange in TRADING:
            host = hosts.BY_EXCHANGE[exchange][0]
            for command in (["place-open", exchange, "BTC_USDT", "buy", "1", "40000", "7"],
                            ["close-report", exchange, "BTC_USDT", "42"]):
                ends = command[:2] == ["close-report", "gate"]
                for faults, sent in (([Fault.close(host, times=1)], 1 if ends else 2),
                                     ([Fault.answer(host, times=1), Fault.close(host)], 2)):
                    self.box.faults[:] = faults
                    self.box.requests.clear()
                    self.says(error("http_failed"), *command)
                    self.assertEqual(sent, len(self.box.requests))
        # It is signed at one moment, however long the first half takes.
        self.box.faults.clear()
        self.stand_in(curl=f'{self.real("curl")} "$@"; case "$*" in *orders*) sleep 1.1 ;; esac')
        self.assertNotIn("SIGNATURE", self.answer("close-report", "gate", "BTC_USDT", "42"))
        first, second = self.box.requests[-2:]
        self.assertEqual(first.header("Timestamp"), second.header("Timestamp"))

    def test_any_text_arrives_as_it_is_and_nothing_of_it_is_run(self):
        os.mkdir(os.path.join(self.home, "here"))
        for text in (os.fsdecode(bytes(range(1, 256))),
                     "$(touch ran)`touch ran`; touch ran #'; touch ran; \"\ntouch ran\n-o ran"):
            line = re.sub("[\r\n]", "", text)
            for command in (["place-open", "okx", text, text, text, text, "-5"],
                            ["claim-token", text], ["set-wallet", line], ["bind-status"]):
                self.answer(*command, cwd=os.path.join(self.home, "here"))
            *posts, status = self.box.requests[-4:]
            self.assertEqual([
                f'{{"instId":"{text}","lever":"-5","mgnMode":"isolated","posSide":"short"}}',
                f'{{"instId":"{text}","tdMode":"isolated","posSide":"short","side":"{text}",'
                f'"ordType":"limit","px":"{text}","sz":"{text}"}}',
                f'{{"token":"{text}","connectorId":"{DEVICE}","connectorLabel":"My Mac"}}'],
                [os.fsdecode(request.body) for request in posts])
            self.assertEqual(line, status.header("x-morvane-wallet"))
        self.assertEqual([], os.listdir(os.path.join(self.home, "here")))

    def test_a_relay_is_spoken_to_by_http_and_none_is_not(self):
        for url, root in ((f"wss://{hosts.RELAY}", RELAY), (None, RELAY),
                          (f"ws://{hosts.RELAY}/v1", f"http://{hosts.RELAY}/v1")):
            self.env.pop("MORVANE_RELAY_URL", None)
            self.env.update({"MORVANE_RELAY_URL": url} if url else {})
            told = self.answer("server-health")
            self.assertIn(f'"relay_url":"{url or RELAY}","reachable":true', told)
            asked = self.told(self.box.requests[-1], "", 0)
            self.assertEqual(f"GET {root}/api/security/config", asked)
        self.env["MORVANE_RELAY_URL"] = ""
        self.says(health("", False, "disconnected", "relay url missing"), "server-health")
        self.assertIn("\nrelay_connected=false\n", self.answer("status"))
