"""What goes out for each command, how an answer returns, and what is told of none."""

import json
import os
import re
import shlex
import time
from pathlib import Path

from sandbox import Fault, hosts
from support import BOUND, EXCHANGES, ConnectorTest, document, each, error

RELAY = f"https://{hosts.RELAY}"
MANIFEST = f"https://{hosts.DOWNLOAD}/current/manifest.json"

# Headers that curl, or Python's client, adds by itself.
ADDED = ("host", "user-agent", "accept", "accept-encoding", "content-length",
         "connection")
# Words of the table for values that differ at each run.
CHECKED_BY_SANDBOX = ("<timestamp>", "<signature>", "<signed passphrase>")
# The sandbox knows a key at one of OKX's sites, and one version of a KuCoin key.
REFUSED_IN_PART = ("validate okx", "validate kucoin")


def read_table():
    """The rows of tests/requests.txt, each a command and what goes out for it, in
    pieces; and its lists of headers, by command (or nothing) and host."""
    rows, headers = [], {}
    for line in Path("tests/requests.txt").read_text(encoding="utf-8").splitlines():
        text = line.strip()
        if not text or text.startswith("#"):
            continue
        if not line.startswith(" "):
            pieces = []
            kind, _, at = text.partition(" at ")
            if kind.startswith("headers"):
                for command in kind.split()[2:] or [""]:
                    headers.update({(command, host): pieces for host in at.split()})
            else:
                rows.append((text, pieces))
        elif text.startswith("&") or pieces and pieces[-1].endswith((",", "?")):
            pieces[-1] += text  # the rest of an address or a body
        else:
            pieces.append(text)
    return rows, headers


ROWS, HEADERS = read_table()


class EveryRequest(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys("hyperliquid", "Bybit", *EXCHANGES)
        self.be(BOUND)

    @each(*ROWS)
    def test_what_goes_out_is_what_the_table_says_and_no_exchange_refuses_it(
            self, command, expected):
        name, *arguments = shlex.split(command)
        exchange = arguments[0] if arguments else ""
        parts = self.key(exchange) if exchange in EXCHANGES else ["", "", ""]
        self.credential = dict(zip(("<key>", "<secret>", "<passphrase>"), parts))
        self.began = time.time()
        run = self.connector(name, *(self.credential.get(one, one) for one in arguments))
        sent = [piece for one in self.box.requests for piece in self.as_told(one, name)]
        if not self.box.requests:
            sent = [f"nothing is sent: {json.loads(run.stdout)['reason']}"]
        self.assertEqual(expected, sent, "the table's, then what was sent")
        if not command.startswith(REFUSED_IN_PART):
            self.assertEqual([], [one.reason for one in self.box.refusals],
                             "refused by the exchange")

    def test_each_exchange_has_rows(self):
        asked = {command.split()[1] for command, _ in ROWS if " " in command}
        self.assertEqual(set(), set(EXCHANGES) - asked)

    @each(os.fsdecode(bytes(range(1, 256))),
          "$(touch ran)`touch ran`; touch ran #'; touch ran; \"\ntouch ran\n-o ran")
    def test_any_text_arrives_in_an_order_as_it_is_and_nothing_of_it_runs(self, text):
        folder = os.path.join(self.home, "here")
        os.makedirs(folder, exist_ok=True)
        self.answer("place-open", "okx", text, text, text, text, "5", cwd=folder)
        leverage, order = [os.fsdecode(one.body) for one in self.box.requests]
        self.assertEqual(f'{{"instId":"{text}","lever":"5","mgnMode":"isolated",'
                         '"posSide":"short"}', leverage)
        self.assertEqual(f'{{"instId":"{text}","tdMode":"isolated","posSide":"short",'
                         f'"side":"{text}","ordType":"limit","px":"{text}",'
                         f'"sz":"{text}"}}', order)
        self.assertEqual([], os.listdir(folder), "Something ran.")

    def as_told(self, request, command):
        """The pieces in which the table tells of a request."""
        address = f"{request.scheme}://{request.host}{request.target}"
        signed = r"timestamp=\d{13}&signature=[0-9a-f]{64}$"
        address = re.sub(signed, "<signed>", address)
        start = re.search(r"(startTime|from)=(-?\d+)", address)
        if start:
            seconds = int(start[2]) / (1000 if start[1] == "startTime" else 1)
            minutes = round((self.began - seconds) / 60)
            address = address.replace(start[2], f"<{minutes} minutes ago>")
        body = [request.body.decode()] if request.body else []
        return [f"-> {request.method} {address}", *body,
                *self.unlisted_headers(request, command)]

    def unlisted_headers(self, request, command):
        """What the table has to say of a request's headers beyond its lists."""
        listed = dict(line.split(": ") for of in ("", command)
                      for line in HEADERS.get((of, request.host), []))
        if request.body:
            listed.setdefault("Content-Type", "application/json")
        as_listed = {name.lower(): name for name in listed}
        sent = [(as_listed.get(name.lower(), name), value)
                for name, value in request.headers
                if name.lower() in as_listed or name.lower() not in ADDED]
        if [name for name, _ in sent if name in listed] != list(listed):
            return [f"not the listed headers, in their order: {sent}"]
        return [f"with {name}: {value}" for name, value in sent
                if not self.stands_for(listed.get(name), value)]

    def stands_for(self, word, value):
        """Whether the table's word is or means that value."""
        if word in CHECKED_BY_SANDBOX:
            return value != ""
        return self.credential.get(word, word) == value


class Answers(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys(*EXCHANGES)
        self.be(BOUND)

    def answer_everything(self, body, status=200):
        self.box.faults[:] = [Fault.answer(host, status, body)
                              for host in hosts.BY_SCHEME["https"]]

    @each(("balance bitget", "balance", [1]),
          ("get-position kucoin BTC_USDT", "position", [1]),
          ("order-status bingx BTC_USDT 42", "order_status", [1]),
          ("cancel-order okx BTC_USDT 42", "cancel_order", [1]),
          ("funding gate BTC_USDT", "funding", [1]),
          ("place-close okx BTC_USDT buy 1 2", "place_close", [1]),
          ("place-open okx BTC_USDT buy 1 2 5", "place_open",
           {"leverage": [1], "place": [1]}),
          ("close-report bybit BTC_USDT 42", "close_report",
           {"order": [1], "closed_pnl": [1]}),
          ("close-report okx BTC_USDT 42", "close_report",
           {"order": [1], "positions_history": [1]}),
          ("close-report gate BTC_USDT", "close_report", {"order": {}, "trades": [1]}))
    def test_an_exchanges_answer_stands_as_it_is_in_that_of_its_command(
            self, command, kind, body):
        self.answer_everything(b"[1]")
        exchange = command.split()[1]
        self.says(document("ok", exchange=exchange, kind=kind, body=body),
                  *command.split())

    @each(("nothing", 200, b""),
          ("a page", 500, b"<h1>500 \"'}</h1>\r\n\n"),
          ("bytes", 401, b"\xff\xfe%s%d\\n"))
    def test_whatever_came_is_passed_on_also_when_it_is_no_json(self, _, status, body):
        self.answer_everything(body, status)
        text = os.fsdecode(body)
        balance = document("ok", exchange="bybit", kind="balance", body="RAW")
        self.says(balance.replace('"RAW"', text), "balance", "bybit")
        self.says(text + "\n", "bind-status")


    def fail_curl_with_limit(self, seconds):
        """A curl that fails if it has that limit of time, and prints what looks well."""
        self.stand_in(curl=f'''case "$*" in
  "-sS "*"--max-time {seconds} "*)
    printf '"retCode":0 "user" "status":"ok"\\n'
    echo 28 >&2
    exit 28 ;;
esac''')

    @each(("server-health", 10,
           document("ok", relay_url=RELAY, reachable=False, health_status="unreachable",
                    wallet_address="0xOwn", message="relay health request failed")),
          ("bind-status", 15, error("bind_status_failed")),
          ("claim-token t", 15, error("claim_token_failed")),
          ("bind-wallet", 15, error("bind_request_failed")),
          ("balance kucoin", 20, error("http_failed")),
          ("place-close gate BTC_USDT buy 1 2", 20, error("http_failed")),
          ("update-check", 20, error("update_check_failed", manifest_url=MANIFEST)),
          ("update-download", 20, error("manifest_fetch_failed", manifest_url=MANIFEST)))
    def test_a_failed_transfer_is_told_in_the_commands_own_words(
            self, command, seconds, answer):
        self.fail_curl_with_limit(seconds)
        self.says(answer, *command.split())

    @each("bybit", "gate")
    def test_a_check_that_asks_with_curl_tells_what_curl_said(self, exchange):
        self.fail_curl_with_limit(15)
        os.remove(self.path(f"vault/{exchange}.vault"))
        said = '"retCode":0 "user" "status":"ok"\n28'
        self.assert_refused("error", f"{exchange} request failed: {said}", exchange)

    @each(("place-open gate BTC_USDT buy 1 40000 7", "first", 2),
          ("place-open gate BTC_USDT buy 1 40000 7", "second", 2),
          ("close-report okx BTC_USDT 42", "first", 2),
          ("close-report okx BTC_USDT 42", "second", 2),
          ("close-report gate BTC_USDT 42", "first", 1),
          ("close-report gate BTC_USDT 42", "second", 2))
    def test_a_second_request_is_sent_though_the_first_failed_but_for_gates_report(
            self, command, failing, sent):
        host = hosts.BY_EXCHANGE[command.split()[1]][0]
        if failing == "second":
            self.box.faults.append(Fault.answer(host, times=1))
        self.box.faults.append(Fault.down(host, times=1))
        self.says(error("http_failed"), *command.split())
        self.assertEqual(sent, len(self.box.requests))


class RelayAddress(ConnectorTest):
    @each((f"wss://{hosts.RELAY}", RELAY),
          (f"ws://{hosts.RELAY}/v1", f"http://{hosts.RELAY}/v1"))
    def test_a_web_socket_address_is_asked_by_http(self, url, asked):
        self.env["MORVANE_RELAY_URL"] = url
        self.assertIn(f'"relay_url":"{url}","reachable":true',
                      self.answer("server-health"))
        last = self.box.requests[-1]
        self.assertEqual(f"{asked}/api/security/config",
                         f"{last.scheme}://{last.host}{last.target}")

    def test_an_empty_address_means_no_relay(self):
        self.env["MORVANE_RELAY_URL"] = ""
        self.assertIn('"health_status":"disconnected","wallet_address":"",'
                      '"message":"relay url missing"', self.answer("server-health"))
        self.assertIn("\nrelay_connected=false\n", self.answer("status"))
        self.assertEqual([], self.box.requests)
