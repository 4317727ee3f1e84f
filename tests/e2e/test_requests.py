"""What goes out for each command, how an answer returns, and what is told of none."""

import os
import re
import time

from request_table import read_table
from sandbox import Fault, hosts
from support import EXCHANGES, ConnectorTest, document, error, told

RELAY = f"https://{hosts.RELAY}"
MANIFEST = f"https://{hosts.DOWNLOAD}/current/manifest.json"

# What curl, or Python's client, adds by itself.
ADDED = ("host", "user-agent", "accept", "accept-encoding", "content-length", "connection")

# The sandbox knows a key at one of OKX's sites, and one version of a KuCoin key.
REFUSED_IN_PART = (["validate", "okx"], ["validate", "kucoin"])


def health(url, reachable, status, message):
    """What server-health prints."""
    return document("ok", relay_url=url, reachable=reachable, health_status=status,
                    wallet_address="0xOwn", message=message)


class EveryRequest(ConnectorTest):
    """tests/requests.txt, row by row."""

    def setUp(self):
        super().setUp()
        self.store_keys("hyperliquid", "Bybit", *EXCHANGES)
        self.be_bound()

    def test_what_goes_out_is_what_the_table_says_and_no_exchange_refuses_it(self):
        for row in read_table():
            with self.subTest(" ".join(row.command)):
                run = self.run_row(row)
                both = f"are the table's, then those that were sent by {told(run)}"
                self.assertEqual([(one.method, one.address, one.body) for one in row.requests],
                                 [self.as_told(one) for one in self.box.requests],
                                 f"Requests {both}")
                for expected, sent in zip(row.requests, self.box.requests):
                    self.assertEqual(self.filled_in(expected.headers, row),
                                     self.headers_as_told(expected.headers, sent),
                                     f"Headers of {expected.address} {both}")
                if row.command[:2] not in REFUSED_IN_PART:
                    self.assertEqual([], [one.reason for one in self.box.refusals],
                                     f"The exchange refuses that of {told(run)}")
                if row.reason:
                    self.assertEqual(error(row.reason), run.stdout, told(run))

    def test_each_exchange_has_rows(self):
        asked = {word for row in read_table() for word in row.command[1:2]}
        self.assertEqual(set(), set(EXCHANGES) - asked)

    def credential(self, row):
        """The words that stand for parts of the credential, and those parts."""
        exchange = row.command[1] if len(row.command) > 1 else ""
        parts = self.key(exchange) if exchange in EXCHANGES else ["", "", ""]
        return dict(zip(("<key>", "<secret>", "<passphrase>"), parts))

    def run_row(self, row):
        """The run of the row's command."""
        self.box.requests.clear()
        self.box.refusals.clear()
        known = self.credential(row)
        self.began = time.time()
        return self.connector(*(known.get(word, word) for word in row.command))

    def as_told(self, request):
        """Method, address and body, with the table's words for what differs at each run."""
        address = f"{request.scheme}://{request.host}{request.target}"
        address = re.sub(r"timestamp=\d{13}&signature=[0-9a-f]{64}$", "<signed>", address)
        start = re.search(r"(startTime|from)=(-?\d+)", address)
        if start:
            seconds = int(start[2]) / (1000 if start[1] == "startTime" else 1)
            minutes = round((self.began - seconds) / 60)
            address = address.replace(start[2], f"<{minutes} minutes ago>")
        return request.method, address, request.body.decode()

    def filled_in(self, headers, row):
        known = self.credential(row)
        return [(name.lower(), known.get(value, value)) for name, value in headers.items()]

    def headers_as_told(self, expected, request):
        """Those that the client does not add by itself, with the table's words for values."""
        told = {name.lower(): value for name, value in expected.items()}
        sent = []
        for name, value in request.headers:
            name, word = name.lower(), told.get(name.lower(), "")
            if name in told or name not in ADDED:
                checked_elsewhere = word in ("<timestamp>", "<signature>", "<signed passphrase>")
                sent.append((name, word if checked_elsewhere and value else value))
        return sent


class Answers(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys(*EXCHANGES)
        self.be_bound()

    def test_an_exchanges_answer_stands_as_it_is_in_the_answer_of_its_command(self):
        self.answer_everything(b"[1]")
        for command, kind, body in (
                ("balance bitget", "balance", [1]),
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
                ("close-report gate BTC_USDT 42", "close_report",
                 {"order": [1], "trades": [1]}),
                ("close-report gate BTC_USDT", "close_report", {"order": {}, "trades": [1]})):
            with self.subTest(command):
                exchange = command.split()[1]
                self.says(document("ok", exchange=exchange, kind=kind, body=body),
                          *command.split())

    def test_whatever_came_is_passed_on_also_when_it_is_no_json(self):
        for name, status, body in (
                ("nothing", 200, b""), ("a page", 500, b"<h1>500 \"'}</h1>\r\n\n"),
                ("bytes", 401, b"\xff\xfe%s%d\\n"), ("8 MiB", 200, b"x" * (8 << 20))):
            self.answer_everything(body, status)
            text = os.fsdecode(body)
            for command, whole in (
                    ("balance bybit", document("ok", exchange="bybit", kind="balance",
                                               body="RAW").replace('"RAW"', text)),
                    ("bind-status", text + "\n")):
                with self.subTest(f"{command}: {name}"):
                    printed = self.answer(*command.split())
                    # Of 8 MiB no difference can be read.
                    self.assertTrue(whole == printed, printed[:200])

    def answer_everything(self, body, status=200):
        self.box.faults[:] = [Fault.answer(host, status, body)
                              for host in hosts.BY_SCHEME["https"]]


class Failures(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.store_keys(*EXCHANGES)
        self.be_bound()

    def test_a_failed_transfer_is_told_in_the_commands_own_words_whatever_was_printed(self):
        for command, seconds, answer in (
                ("server-health", 10, health(RELAY, False, "unreachable",
                                             "relay health request failed")),
                ("bind-status", 15, error("bind_status_failed")),
                ("claim-token t", 15, error("claim_token_failed")),
                ("bind-wallet", 15, error("bind_request_failed")),
                ("balance kucoin", 20, error("http_failed")),
                ("cancel-order bingx BTC_USDT 42", 20, error("http_failed")),
                ("place-close gate BTC_USDT buy 1 2", 20, error("http_failed")),
                ("update-check", 20, error("update_check_failed", manifest_url=MANIFEST)),
                ("update-download", 20, error("manifest_fetch_failed", manifest_url=MANIFEST))):
            with self.subTest(command):
                self.fail_curl_with_limit(seconds)
                self.says(answer, *command.split())

    def test_a_check_that_asks_with_curl_tells_what_curl_said(self):
        self.fail_curl_with_limit(15)
        for exchange in ("bybit", "gate"):
            with self.subTest(exchange):
                os.remove(self.path(f"vault/{exchange}.vault"))
                self.assert_refused("error", f'{exchange} request failed: "retCode":0 "user" '
                                             '"status":"ok"\n28', exchange)

    def fail_curl_with_limit(self, seconds):
        """A curl that fails if it has that limit of time, and prints what looks like success."""
        self.stand_in(curl=f'''case "$*" in
  "-sS "*"--max-time {seconds} "*)
    printf '"retCode":0 "user" "status":"ok"\\n'
    echo 28 >&2
    exit 28 ;;
esac''')

    def test_an_order_and_a_report_send_both_requests_though_the_first_fails(self):
        for command in ("place-open gate BTC_USDT buy 1 40000 7", "close-report okx BTC_USDT 42"):
            self.assert_fails_after(2, command, failing="first")
            self.assert_fails_after(2, command, failing="second")

    def test_gates_report_ends_at_its_first_failure(self):
        self.assert_fails_after(1, "close-report gate BTC_USDT 42", failing="first")
        self.assert_fails_after(2, "close-report gate BTC_USDT 42", failing="second")

    def assert_fails_after(self, count, command, failing):
        """The answer is http_failed, and so many requests were sent."""
        with self.subTest(f"{command}: the {failing} request fails"):
            host = hosts.BY_EXCHANGE[command.split()[1]][0]
            self.box.faults[:] = [Fault.close(host, times=1)]
            if failing == "second":
                self.box.faults.insert(0, Fault.answer(host, times=1))
            self.box.requests.clear()
            self.says(error("http_failed"), *command.split())
            self.assertEqual(count, len(self.box.requests), "requests were sent")

    def test_gates_report_is_signed_at_one_moment_however_long_its_first_half_takes(self):
        curl = self.real("curl")
        self.stand_in(curl=f'{curl} "$@"; case "$*" in *orders*) sleep 1.1 ;; esac')
        self.answer("close-report", "gate", "BTC_USDT", "42")
        first, second = self.box.requests
        self.assertEqual(first.header("Timestamp"), second.header("Timestamp"))
        self.assertEqual([], self.box.refusals)


class HostileTexts(ConnectorTest):
    def test_any_text_arrives_in_an_order_as_it_is_and_nothing_of_it_runs(self):
        self.store_keys("okx")
        folder = os.path.join(self.home, "here")
        os.mkdir(folder)
        for name, text in {
                "every byte": os.fsdecode(bytes(range(1, 256))),
                "commands of the shell": "$(touch ran)`touch ran`; touch ran #'; touch ran; \""
                                         "\ntouch ran\n-o ran"}.items():
            with self.subTest(name):
                self.box.requests.clear()
                self.answer("place-open", "okx", text, text, text, text, "-5", cwd=folder)
                leverage, order = [os.fsdecode(one.body) for one in self.box.requests]
                self.assertEqual(f'{{"instId":"{text}","lever":"-5","mgnMode":"isolated",'
                                 '"posSide":"short"}', leverage)
                self.assertEqual(f'{{"instId":"{text}","tdMode":"isolated","posSide":"short",'
                                 f'"side":"{text}","ordType":"limit","px":"{text}",'
                                 f'"sz":"{text}"}}', order)
                self.assertEqual([], os.listdir(folder), "Something ran.")


class RelayAddress(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.be_bound()

    def test_web_socket_addresses_are_asked_by_http(self):
        for url, asked in ((f"wss://{hosts.RELAY}", RELAY),
                           (f"ws://{hosts.RELAY}/v1", f"http://{hosts.RELAY}/v1")):
            with self.subTest(url):
                self.env["MORVANE_RELAY_URL"] = url
                self.assertIn(f'"relay_url":"{url}","reachable":true',
                              self.answer("server-health"))
                last = self.box.requests[-1]
                self.assertEqual(f"{asked}/api/security/config",
                                 f"{last.scheme}://{last.host}{last.target}")

    def test_without_the_variable_the_built_in_relay_is_asked(self):
        del self.env["MORVANE_RELAY_URL"]
        self.assertIn(f'"relay_url":"{RELAY}","reachable":true', self.answer("server-health"))

    def test_an_empty_address_means_no_relay(self):
        self.env["MORVANE_RELAY_URL"] = ""
        self.says(health("", False, "disconnected", "relay url missing"), "server-health")
        self.assertIn("\nrelay_connected=false\n", self.answer("status"))
        self.assertEqual([], self.box.requests)
