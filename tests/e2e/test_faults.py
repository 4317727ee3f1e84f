"""What a run meets in life: what it prints, how it ends, and what is left on disk."""

import os
import re
import resource
import shutil
import signal
import socket
import stat
import subprocess

from sandbox import hosts
from sandbox.downloads import IMAGE_PATH, IMAGE_SIZE
from sandbox.faults import Fault
from support import ConnectorTest, demo_key

OPEN = ["place-open", "bybit", "BTC_USDT", "buy", "0.001", "40000", "5"]
HTTP_FAILED = '{"status":"error","reason":"http_failed"}\n'
CHECK_FAILED = (f'{{"status":"error","reason":"update_check_failed","manifest_url":'
                f'"https://{hosts.DOWNLOAD}/current/manifest.json"}}\n')
NOT_STORED = "failed to persist credentials to local vault"
LATEST, IMAGE = (f"updates/Morvane-Connector-{name}.dmg" for name in ("latest", "0.2.0"))
IDENTITY = ("device_id=device:macos:0123456789ab\nconnector_instance_id=connector:1\n"
            "device_label=My Mac\nplatform=macos\nowner_wallet=0xOwn\npaired=1\n")
PAIRING = "owner_wallet_address=0xOwn\npairing_status=bound\nwallet_approval_confirmed=1\n"
FULL = "/dev/full" if os.path.exists("/dev/full") else os.devnull  # Macs have none.


class FaultTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.write("device_identity.env", IDENTITY)
        self.write("pairing.env", PAIRING)
        self.answer("status")

    def contents(self):
        """Every file below the root with what it holds."""
        return {name: self.read(name) for name in self.files() if os.path.isfile(self.path(name))}

    def orders(self):
        return len(self.box.account("bybit").orders)

    def device(self):
        """The id that a run goes by; a second run's is another when the first could not be kept."""
        return re.search("device_id=(.*)", self.answer("status"))[1]


class Network(FaultTest):
    def assert_outcome(self, status, reason, balance=HTTP_FAILED, opened=HTTP_FAILED):
        """All is told, nothing is stored, nothing is traded."""
        before, traded = self.contents(), self.orders()
        result = self.validate(*demo_key("bybit"))
        self.assertEqual((2, status, "false"), (result["exit"], result["status"], result["saved"]))
        self.assertRegex(result["reason"], rf"\Abybit {reason}\Z")
        self.store_key("bybit")
        self.assert_run((0, balance), "balance", "bybit")
        self.assert_run((0, opened), *OPEN)
        self.assert_run((0, CHECK_FAILED), "update-check")
        os.remove(self.path("vault/bybit.vault"))
        self.assertEqual((before, traded), (self.contents(), self.orders()))

    def assert_no_answer(self, curl_errors):
        """Any of these, as curls differ."""
        self.assert_outcome("error", rf"request failed: curl: \(({curl_errors})\) (?s:.+)")

    def at_both_hosts(self, fault, **traits):
        self.box.faults[:] = [fault(host, **traits) for host in (hosts.BYBIT, hosts.DOWNLOAD)]

    def test_without_a_network_or_a_name_service(self):
        with socket.socket() as nobody_listens:
            nobody_listens.bind(("127.0.0.1", 0))
            self.env["https_proxy"] = "http://127.0.0.1:%d" % nobody_listens.getsockname()[1]
            self.assert_no_answer("7")
        # No resolver sends out a label of 64 letters: the failure is the same everywhere.
        self.env["https_proxy"] = f"http://{'a' * 64}.invalid:1"
        self.assert_no_answer("5")

    def test_a_host_that_proves_nothing_or_ends_too_early(self):
        for fault, traits, curl_errors in ((Fault.unknown_ca, {}, "60"),
                                           (Fault.expired_certificate, {}, "60"),
                                           (Fault.close, {}, "52|56"),
                                           (Fault.html_error, {"delivery": "half"}, "18|56")):
            self.at_both_hosts(fault, **traits)
            self.assert_no_answer(curl_errors)
            self.assertEqual(curl_errors == "60", self.box.requests == [])

    def test_a_host_that_takes_too_long(self):
        log = self.recording_curl(times_out_at="[12][05]")
        self.assert_no_answer("28")
        with open(log, encoding="utf-8") as lines:
            self.assertEqual(["15", "20", "20", "20", "20"],
                             re.findall("--max-time (.*?) ", lines.read()))
        self.assertEqual([], self.box.requests)

    def test_an_answer_in_pieces_is_an_answer_like_any_other(self):
        self.at_both_hosts(Fault.slow, pieces=4, pause_seconds=0.01)
        self.assertEqual("valid_trade_ready", self.validate(*demo_key("bybit"))["status"])
        traded = self.orders()
        self.assertEqual([0, 0], [part["retCode"] for part in self.body(*OPEN).values()])
        self.assertEqual(traded + 1, self.orders())
        self.assertIn('"update_available":true', self.answer("update-check"))

    def test_an_http_error_is_the_exchanges_word_and_no_manifest(self):
        for status, page in ((429, '{"retCode":10006,"retMsg":"Too many visits!"}'), (500, ""),
                             (503, "<html>\r\n<h1>503</h1>\r\n</html>\r\n")):
            self.at_both_hosts(Fault.answer, status=status, body=page.encode())
            wrapped = '{{"status":"ok","exchange":"bybit","kind":"{}","body":{}}}\n'
            both = f'{{"leverage":{page},"place":{page}}}'
            self.assert_outcome("invalid", "rejected credentials: " + re.escape(page.rstrip()),
                                wrapped.format("balance", page), wrapped.format("place_open", both))


class Disk(FaultTest):
    """A file that may not grow stands in for a disk that is full: the open succeeds, the write
    does not. (A small file system of one's own takes rights that a test has not everywhere.)"""

    def on_full_disk(self, *arguments, room=0):
        self.env["GCOV_PREFIX"] = self.home  # the counts of an instrumented binary are cut, too

        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            _, most = resource.getrlimit(resource.RLIMIT_FSIZE)
            resource.setrlimit(resource.RLIMIT_FSIZE, (room, most))
        return self.answer(*arguments, preexec_fn=limit)

    def test_a_full_disk_leaves_the_old_text_and_the_latest_image(self):
        device = IDENTITY.replace("=1\n", "=1")  # without its last line feed it is to be rewritten
        for arguments, room, printed, name, old in (
                (["status"], 0, "device_label=My Mac\n", "device_identity.env", device),
                (["set-wallet", "0xabc"], 10, "pairing_status=bound\n", "pairing.env",
                 "pairing_status=bound\nowner_wallet_address=" + "0" * 200 + "\n"),
                (["set-wallet", "0xabc"], 0, "pairing_status=\n", "pairing.env",
                 "pairing_status=\n"),
                (["validate", *demo_key("bybit")], 0, "credentials_saved=true\n",
                 "vault/bybit.vault", "api_key=old\n")):
            self.write(name, old)
            self.assertIn(printed, self.on_full_disk(*arguments, room=room))
            self.assertEqual(old, self.read(name))
        self.write(LATEST, "older")
        for room in (0, 64 * 1024):
            self.assertIn('"reason":"update_download_failed"',
                          self.on_full_disk("update-download", room=room))
            self.assertEqual(("older", room), (self.read(LATEST),
                                               os.path.getsize(self.path(IMAGE))))
        # The image still finds its room, its copy does not: half a copy must not stay.
        curl = shutil.which("curl", path=self.box.env["PATH"])
        self.stand_in("curl", f'ulimit -S -f "$(ulimit -H -f)"\nexec {curl} "$@"\n')
        self.assertIn('"downloaded":true', self.on_full_disk("update-download", room=room))
        self.assertNotIn(LATEST, self.files())

    def test_a_read_only_root_still_answers_and_keeps_nothing(self):
        os.remove(self.path("device_identity.env"))
        os.remove(self.path("pairing.env"))
        self.as_plain_user()
        for folder in ("", "vault", "updates"):
            os.chmod(self.path(folder), 0o500)
        self.assertNotEqual(self.device(), self.device())
        self.assert_run((2, "pairing_status=unpaired\n"), "set-wallet", "0xabc")
        self.box.faults.append(Fault.answer(hosts.RELAY, 200, b'{"status":"ok"}'))
        self.assert_run((0, '{"status":"ok"}\n'), "claim-token", "token")
        self.assert_run((0, '{"status":"ok","state":"disconnected"}\n'), "disconnect-binding")
        result = self.validate(*demo_key("bybit"))
        self.assertEqual((2, "error", NOT_STORED),
                         (result["exit"], result["status"], result["reason"]))
        self.assertIn('"reason":"update_download_failed"', self.answer("update-download"))
        self.assertEqual(["updates", "vault"], self.files())

    def test_a_folder_in_a_files_place_stays_and_what_needs_the_file_fails(self):
        for name, device_kept, printed in (
                ("pairing.env", True, "pairing_status=unpaired\n"), ("device_identity.env", False,
                 "owner_wallet_address=0xabc\npairing_status=bound\n")):
            os.rename(self.path(name), self.path("aside"))
            os.makedirs(self.path(name + "/kept"))
            self.assertEqual(device_kept, self.device() == self.device())
            self.assert_run((2, printed), "set-wallet", "0xabc")
            os.removedirs(self.path(name + "/kept"))
            os.rename(self.path("aside"), self.path(name))
        self.assertEqual("0xOwn", self.record("device_identity.env")["owner_wallet"])
        os.makedirs(self.path("vault/bybit.vault/kept"))
        self.assert_run((2, "status=error\nexchange=bybit\nremoved=false\n"),
                        "delete-credentials", "bybit")

    def test_what_was_left_open_to_others_is_narrowed(self):
        self.write("vault/.old~", "api_secret=s\n")
        names = ["vault", "vault/.old~", "device_identity.env", "pairing.env"]
        for name in names:
            os.chmod(self.path(name), 0o777 if name == "vault" else 0o666)
        self.answer("set-wallet", "0xabc")
        self.assertEqual([0o700, 0o600, 0o600, 0o600],
                         [stat.S_IMODE(os.stat(self.path(name)).st_mode) for name in names])


class Killed(FaultTest):
    """The run ends at one point: while the curl whose command line holds `where` is at work."""

    def killed(self, arguments, where, heard):
        """With `heard`, curl has its answer by then; else it has not begun."""
        pid = os.path.join(self.home, "pid")
        curl = shutil.which("curl", path=self.box.env["PATH"])
        self.stand_in("curl", f"""
case "$*" in *{where}*)
  {curl + ' "$@"' if heard else ':'}
  kill -9 "$(cat '{pid}')"
  exit ;;
esac
exec {curl} "$@"
""")

        def note_pid():
            with open(pid, "w", encoding="ascii") as file:
                file.write(str(os.getpid()))
        self.assert_run((-signal.SIGKILL, ""), *arguments, preexec_fn=note_pid)
        shutil.rmtree(os.path.join(self.home, "bin"))

    def test_a_run_killed_in_a_call_has_changed_no_file(self):
        before = self.contents()
        for arguments, where in ((["validate", *demo_key("bybit")], "query-api"),
                                 (["claim-token", "demo-bind-token"], "claim-token"),
                                 (["bind-wallet"], "api/connector/bind"),
                                 (["bind-status"], "bind-status")):
            self.killed(arguments, where, heard=True)
            self.assertEqual(before, self.contents(), arguments)

    def test_a_run_killed_between_two_calls_leaves_the_latest_image_and_places_no_order(self):
        self.write(LATEST, "older")
        for heard in (False, True):
            self.killed(["update-download"], IMAGE_PATH, heard)
            self.assertEqual("older", self.read(LATEST))
            self.assertEqual(heard, IMAGE in self.files())
        self.assertEqual(IMAGE_SIZE, os.path.getsize(self.path(IMAGE)))
        self.store_key("bybit")
        self.box.requests.clear()
        self.killed(OPEN, "/v5/order/create", heard=False)
        self.assertEqual(["/v5/position/set-leverage"], [target for _, _, target in self.sent()])

    def test_output_that_goes_nowhere_undoes_nothing(self):
        reading, broken_pipe = os.pipe()
        os.close(reading)
        for output, status in ((broken_pipe, -signal.SIGPIPE), (os.open(FULL, os.O_WRONLY), 0)):
            done = self.connector("set-wallet", f"0x{output}", stdout=output,
                                  stderr=subprocess.PIPE)
            os.close(output)
            self.assertEqual((status, ""), (done.returncode, done.stderr))
            self.assertEqual(f"0x{output}", self.record("pairing.env")["owner_wallet_address"])
