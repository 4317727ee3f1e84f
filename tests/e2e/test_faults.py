"""What a run meets in life: what it prints, how it ends, and what is left on disk."""

import os
import re
import resource
import shutil
import signal
import socket
import subprocess
import unittest

from sandbox import hosts
from sandbox.downloads import IMAGE_PATH, IMAGE_SIZE
from sandbox.faults import Fault
from support import ValidationTest, demo_key

OPEN = ["place-open", "bybit", "BTC_USDT", "buy", "0.001", "40000", "5"]
MANIFEST_URL = f"https://{hosts.DOWNLOAD}/current/manifest.json"
HTTP_FAILED = '{"status":"error","reason":"http_failed"}\n'
CHECK_FAILED = (f'{{"status":"error","reason":"update_check_failed",'
                f'"manifest_url":"{MANIFEST_URL}"}}\n')
LATEST = "updates/Morvane-Connector-latest.dmg"
IMAGE = "updates/Morvane-Connector-0.2.0.dmg"
IDENTITY = ("device_id=device:macos:0123456789ab\nconnector_instance_id=connector:1\n"
            "device_label=My Mac\nplatform=macos\nowner_wallet=\npaired=0\n")
FULL = "/dev/full"


class FaultTest(ValidationTest):
    def contents(self):
        """Every file below the root with what it holds."""
        return {name: self.read(name) for name in self.files()
                if os.path.isfile(os.path.join(self.root, name))}

    def orders(self):
        return len(self.box.account("bybit").orders)


class Network(FaultTest):
    def assert_no_answer(self, *curl_errors):
        """Any of `curl_errors`, as curls differ: nothing is stored, nothing traded, all is told."""
        self.answer("status")
        before, traded = self.contents(), self.orders()
        number = "|".join(map(str, curl_errors))
        self.assert_refused(self.validate(*demo_key("bybit")), "error",
                            rf"bybit request failed: curl: \(({number})\) (?s:.+)")
        self.store_key("bybit")
        self.assertEqual(HTTP_FAILED, self.answer("balance", "bybit"))
        self.assertEqual(HTTP_FAILED, self.answer(*OPEN))
        self.assertEqual(CHECK_FAILED, self.answer("update-check"))
        os.remove(os.path.join(self.root, "vault/bybit.vault"))
        self.assertEqual((before, traded), (self.contents(), self.orders()))

    def at_both_hosts(self, fault, **traits):
        self.box.faults[:] = [fault(host, **traits) for host in (hosts.BYBIT, hosts.DOWNLOAD)]

    def closed_port(self):
        """A loopback port on which nobody will listen while the test runs."""
        holder = socket.socket()
        self.addCleanup(holder.close)
        holder.bind(("127.0.0.1", 0))
        return holder.getsockname()[1]

    def test_without_a_network(self):
        self.env["https_proxy"] = f"http://127.0.0.1:{self.closed_port()}"
        self.assert_no_answer(7)
        # The scripted checks gather what each host said, failures included, and see no proof in it.
        self.assert_refused(self.validate(*demo_key("okx")), "invalid",
                            r"okx rejected credentials: \[.*Connection refused.*\]")

    def test_without_a_name_service(self):
        # No resolver sends out a label of 64 letters: the failure is the same everywhere.
        self.env["https_proxy"] = f"http://{'a' * 64}.invalid:1"
        self.assert_no_answer(5)

    def test_a_certificate_that_proves_nothing(self):
        for fault in (Fault.unknown_ca, Fault.expired_certificate):
            with self.subTest(fault=fault.__name__):
                self.at_both_hosts(fault)
                self.box.requests.clear()
                self.assert_no_answer(60)
                self.assertEqual([], self.box.requests)

    def test_a_connection_that_ends_too_early(self):
        for fault, traits, curl_errors in ((Fault.close, {}, (52, 56)),
                                           (Fault.html_error, {"delivery": "half"}, (18, 56))):
            with self.subTest(fault=fault.__name__):
                self.at_both_hosts(fault, **traits)
                self.assert_no_answer(*curl_errors)

    def test_a_host_that_takes_too_long(self):
        log = self.recording_curl(times_out_at="15")
        self.assert_refused(self.validate(*demo_key("bybit")), "error",
                            r"bybit request failed: curl: \(28\) Operation timed out .*")
        self.recording_curl(times_out_at="20")
        self.store_key("bybit")
        for arguments, printed, calls in ((["balance", "bybit"], HTTP_FAILED, 1),
                                          (OPEN, HTTP_FAILED, 2),
                                          (["update-check"], CHECK_FAILED, 1)):
            os.remove(log)
            self.assertEqual(printed, self.answer(*arguments))
            with open(log, encoding="utf-8") as lines:
                self.assertEqual(calls, lines.read().count(" --max-time 20 "))
        self.assertEqual([], self.box.requests)

    def test_an_answer_in_pieces_is_an_answer_like_any_other(self):
        self.at_both_hosts(Fault.slow, pieces=4, pause_seconds=0.01)
        self.assertEqual("valid_trade_ready", self.validate(*demo_key("bybit"))["status"])
        self.assertEqual(0, self.body("balance", "bybit")["retCode"])
        traded = self.orders()
        self.assertEqual([0, 0], [part["retCode"] for part in self.body(*OPEN).values()])
        self.assertEqual(traded + 1, self.orders())
        self.assertTrue(self.document("update-check")["update_available"])

    def test_an_http_error_is_the_exchanges_word_and_no_manifest(self):
        for status, page in ((429, '{"retCode":10006,"retMsg":"Too many visits!"}'), (500, ""),
                             (503, "<html>\r\n<h1>503</h1>\r\n</html>\r\n"),
                             (403, "blocked\n\n")):
            with self.subTest(status=status):
                self.at_both_hosts(Fault.answer, status=status, body=page.encode())
                self.assert_refused(self.validate(*demo_key("bybit")), "invalid",
                                    "bybit rejected credentials: " + re.escape(page.rstrip()))
                self.store_key("bybit")
                wrapped = '{{"status":"ok","exchange":"bybit","kind":"{}","body":{}}}\n'
                self.assertEqual(wrapped.format("balance", page), self.answer("balance", "bybit"))
                both = f'{{"leverage":{page},"place":{page}}}'
                self.assertEqual(wrapped.format("place_open", both), self.answer(*OPEN))
                self.assertEqual(CHECK_FAILED, self.answer("update-check"))
                os.remove(os.path.join(self.root, "vault/bybit.vault"))

    def test_an_order_whose_answer_is_lost_stands_all_the_same(self):
        self.store_key("bybit")
        for path in ("/v5/order/create", "/v5/position/set-leverage"):
            with self.subTest(lost=path):
                traded = self.orders()
                self.box.faults[:] = [Fault.lost_answer(hosts.BYBIT, path=path)]
                self.assertEqual(HTTP_FAILED, self.answer(*OPEN))
                self.assertEqual(traded + 1, self.orders())


class FullDisk(FaultTest):
    """A file that may not grow stands in for a disk that is full: the open succeeds, the write
    does not. (A small file system of one's own takes rights that a test has not everywhere.)"""

    def on_full_disk(self, *arguments, room=0, **options):
        def limit():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (room, room))
        done = self.connector(*arguments, preexec_fn=limit, **options)
        self.assertEqual("", done.stderr)
        return done.returncode, done.stdout

    def test_the_identity_that_every_run_writes_anew_is_lost(self):
        self.write("device_identity.env", IDENTITY)
        status, printed = self.on_full_disk("status")
        self.assertEqual(0, status)
        self.assertIn("\ndevice_id=device:macos:0123456789ab\n", printed)
        self.assertEqual({"device_identity.env": ""}, self.contents())
        self.assertNotIn("device:macos:0123456789ab", self.answer("status"))

    def test_what_was_written_before_the_disk_was_full_is_read_back(self):
        self.write("device_identity.env", IDENTITY)
        for label in ("My M", ""):
            room = IDENTITY.index("My Mac") + len(label)
            self.on_full_disk("status", room=room)
            self.assertEqual({"device_identity.env": IDENTITY[:room]}, self.contents())
            self.assertIn(f"device_id=device:macos:0123456789ab\ndevice_label={label}\nplatform=\n",
                          self.answer("status"))

    def test_a_write_that_fails_is_not_noticed(self):
        for arguments, printed, name in (
                (["set-wallet", "0xabc"], r"pairing_status=unpaired\n", "pairing.env"),
                (["validate", *demo_key("bybit")], r"(?s:.*)\ncredentials_saved=true\n(?s:.*)",
                 "vault/bybit.vault")):
            with self.subTest(arguments[0]):
                status, output = self.on_full_disk(*arguments)
                self.assertEqual(0, status)
                self.assertRegex(output, rf"\A{printed}\Z")
                self.assertEqual("", self.contents()[name])

    def test_an_image_that_finds_no_room_is_no_latest_image(self):
        for room in (0, 64 * 1024):
            with self.subTest(room=room):
                self.write(LATEST, "older")
                self.assertIn('"reason":"update_download_failed"',
                              self.on_full_disk("update-download", room=room)[1])
                self.assertEqual("older", self.read(LATEST))
                self.assertLessEqual(os.path.getsize(os.path.join(self.root, IMAGE)), room)

    @unittest.skipUnless(os.path.exists(FULL), "this system has no full device")
    def test_a_full_device_in_the_images_place(self):
        self.write(LATEST, "older")
        os.symlink(FULL, os.path.join(self.root, IMAGE))
        self.assertIn('"reason":"update_download_failed"', self.answer("update-download"))
        self.assertEqual("older", self.read(LATEST))

    @unittest.skipUnless(os.path.exists(FULL), "this system has no full device")
    def test_output_that_finds_no_room_undoes_nothing(self):
        with open(FULL, "wb") as full:
            done = self.connector("set-wallet", "0xabc", stdout=full, stderr=subprocess.PIPE)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertEqual("0xabc", self.record("pairing.env")["owner_wallet_address"])


class Killed(FaultTest):
    """The run ends at one point: while the curl whose command line holds `where` is at work."""

    def killed(self, arguments, where, heard):
        """With `heard`, curl has its answer by then; else it has not begun."""
        pid = os.path.join(self.home, "pid")
        curl = shutil.which("curl", path=self.box.env["PATH"])
        self.stand_in("curl", f"""#!/bin/sh
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
        done = self.connector(*arguments, preexec_fn=note_pid)
        self.assertEqual((-signal.SIGKILL, "", ""), (done.returncode, done.stdout, done.stderr))
        shutil.rmtree(os.path.join(self.home, "bin"))

    def test_a_run_killed_in_a_call_has_changed_no_file(self):
        relay = self.box.relay
        for arguments, where, bindings in ((["validate", *demo_key("bybit")], "query-api", 0),
                                           (["claim-token", "demo-bind-token"], "claim-token", 1),
                                           (["bind-wallet"], "api/connector/bind", 1),
                                           (["bind-status"], "bind-status", 0)):
            with self.subTest(arguments[0]):
                relay.bindings.clear()
                self.write("device_identity.env", IDENTITY)
                self.write("pairing.env", "owner_wallet_address=0xabc\npairing_status=unpaired\n")
                before = self.contents()
                self.killed(arguments, where, heard=True)
                self.assertEqual((before, bindings), (self.contents(), len(relay.bindings)))
                self.assertIn("connector_health=pairing_required\n", self.answer("status"))

    def test_a_download_killed_on_the_way_leaves_the_latest_image(self):
        self.write("device_identity.env", IDENTITY)
        self.write(LATEST, "older")
        for heard, left in ((False, {LATEST: 5}), (True, {LATEST: 5, IMAGE: IMAGE_SIZE})):
            with self.subTest(heard=heard):
                self.killed(["update-download"], IMAGE_PATH, heard)
                self.assertEqual(left, {name: os.path.getsize(os.path.join(self.root, name))
                                        for name in self.files() if name.endswith(".dmg")})
                self.assertEqual("older", self.read(LATEST))
        self.assertTrue(self.document("update-download")["downloaded"])
        self.assertEqual(self.read(IMAGE), self.read(LATEST))

    def test_an_opening_killed_after_the_leverage_places_no_order(self):
        self.store_key("bybit")
        traded = self.orders()
        self.killed(OPEN, "/v5/order/create", heard=False)
        self.assertEqual(["/v5/position/set-leverage"], [target for _, _, target in self.sent()])
        self.assertEqual(traded, self.orders())

    def test_a_reader_that_left_ends_the_run_after_its_work(self):
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing, "wb") as output:
            done = self.connector("set-wallet", "0xabc", stdout=output, stderr=subprocess.PIPE)
        self.assertEqual((-signal.SIGPIPE, ""), (done.returncode, done.stderr))
        self.assertEqual("0xabc", self.record("pairing.env")["owner_wallet_address"])


if __name__ == "__main__":
    unittest.main()
