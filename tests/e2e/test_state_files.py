"""State files as people, editors and other machines leave them."""

import os
import shutil
import unittest

from sandbox import hosts
from sandbox.faults import Fault
from support import ConnectorTest, demo_key

IDENTITY = {"device_id": "device:macos:0123456789ab", "connector_instance_id": "connector:1",
            "device_label": "My Mac", "platform": "macos", "owner_wallet": "0xOwn", "paired": "1"}
NAMES = list(IDENTITY)
PAIRING = {"owner_wallet_address": "0xOwn", "pairing_status": "bound", "server_account_ref": "",
           "latest_bind_token": "", "latest_claimed_connector_id": "",
           "platform_terms_accepted": "1", "wallet_approval_confirmed": "1"}
FRESH_ID = r"\Adevice:macos:[0-9a-f]{12}\Z"


def lines(record, end="\n", **changes):
    return "".join(f"{key}={value}{end}" for key, value in {**record, **changes}.items())


class StateTest(ConnectorTest):
    def keep(self, identity=lines(IDENTITY), pairing=lines(PAIRING)):
        self.write("device_identity.env", identity)
        self.write("pairing.env", pairing)

    def status(self):
        """What `status` says before the exchanges; its lines end with a line feed alone."""
        words = self.answer("status").split("\nvault_backend=")[0].split("\n")
        return dict(line.split("=", 1) for line in words)

    def assert_forgotten(self, status):
        """The identity is a new one, without wallet and pairing."""
        self.assertRegex(status["device_id"], FRESH_ID)
        self.assertEqual(("Morvane Connector (macOS)", "false", "pairing_required"),
                         (status["device_label"], status["paired"], status["connector_health"]))
        self.assertNotIn("owner_wallet", status)

    def break_file(self, name):
        """A folder stands where the file should be."""
        path = os.path.join(self.root, name)
        if os.path.exists(path):
            os.remove(path)
        os.makedirs(os.path.join(path, "kept"))


class Reading(StateTest):
    def test_the_binding_holds_while_both_files_say_exactly_1(self):
        self.keep()
        self.assertEqual(("ready", "true", "0xOwn"), tuple(
            self.status()[name] for name in ("connector_health", "paired", "owner_wallet")))
        for flag in ("", "0", "true", "yes", "2", "01", " 1", "1 ", "1\r", "١"):
            with self.subTest(flag=flag):
                self.keep(identity=lines(IDENTITY, paired=flag))
                status = self.status()
                self.assertEqual(("pairing_required", "false"),
                                 (status["connector_health"], status["paired"]))
                self.assertEqual("0", self.record("device_identity.env")["paired"])
                self.keep(pairing=lines(PAIRING, wallet_approval_confirmed=flag))
                status = self.status()
                self.assertEqual(("pairing_required", "true"),
                                 (status["connector_health"], status["paired"]))

    def test_carriage_returns_stay_in_the_values(self):
        self.keep(lines(IDENTITY, "\r\n"), lines(PAIRING, "\r\n"))
        status = self.status()
        self.assertEqual(("pairing_required", "false", IDENTITY["device_id"] + "\r"),
                         tuple(status[name] for name in ("connector_health", "paired",
                                                         "device_id")))
        self.assertNotIn("owner_wallet", status)
        self.assertIn("\ndevice_label=My Mac\r\nplatform=macos\r\n",
                      self.read("device_identity.env"))
        self.assertEqual("owner_wallet_address=0xabc\npairing_status=bound\r\n",
                         self.answer("set-wallet", "0xabc"))
        # A wallet that ends so is paired all the same; the platform sees the difference.
        self.keep(pairing=lines(PAIRING, owner_wallet_address="0xabc\r"))
        self.assertEqual("0xabc\r", self.status()["owner_wallet"])

    def test_what_an_editor_leaves_in_the_identity(self):
        key = "device_id=" + IDENTITY["device_id"]
        rest = "".join(lines(IDENTITY).partition("\n")[2:])
        for name, text, expected in (
                ("no final line feed", lines(IDENTITY)[:-1], {}),
                ("lines in another order", "".join(reversed(
                    lines(IDENTITY).splitlines(keepends=True))), {}),
                ("strange lines", "\n# mine\n\n" + lines(IDENTITY) + "color=red\n=\n", {}),
                ("a doubled key", lines(IDENTITY) + "device_label=Other\npaired=0\n",
                 {"device_label": "Other", "owner_wallet": "0xOwn", "paired": "0"}),
                ("equals signs", lines(IDENTITY, device_label="a=b==", owner_wallet="=0xOwn="),
                 {"device_label": "a=b==", "owner_wallet": "=0xOwn="}),
                ("foreign letters", lines(IDENTITY, device_label="Größe \udcff"),
                 {"device_label": "Größe \udcff"}),
                ("the device id alone", key + "\n",
                 {**dict.fromkeys(NAMES[1:], ""), "paired": "0"}),
                ("keys with blanks", key + "\n" + rest.replace("\n", "\n "),
                 {**dict.fromkeys(NAMES[2:], ""), "paired": "0"})):
            with self.subTest(name):
                self.keep(identity=text)
                status = self.status()
                self.assertEqual(lines(IDENTITY, **expected), self.read("device_identity.env"))
                self.assertEqual(IDENTITY["device_id"], status["device_id"])

    def test_an_identity_without_its_device_id_is_replaced_as_a_whole(self):
        whole = lines(IDENTITY)
        for name, text in (("empty", ""), ("the line deleted", whole.partition("\n")[2]),
                           ("the value deleted", lines(IDENTITY, device_id="")),
                           ("emptied further down", whole + "device_id=\n"),
                           ("a blank before the key", " " + whole),
                           ("a byte order mark", "\ufeff" + whole),
                           ("the key in capitals", whole.replace("device_id", "DEVICE_ID")),
                           ("UTF-16", whole.encode("utf-16").decode("latin-1")),
                           ("no text", "\udcff\x01\n\n\x02=")):
            with self.subTest(name):
                self.keep(identity=text)
                status = self.status()
                self.assert_forgotten(status)
                self.assertNotEqual("connector:1",
                                    self.record("device_identity.env")["connector_instance_id"])
                self.assertEqual(status["device_id"], self.status()["device_id"])

    def test_what_an_editor_leaves_in_the_pairing(self):
        for name, text, printed in (
                ("empty", "", "unpaired"), ("no status line", "server_account_ref=1\n", "unpaired"),
                ("an empty status", lines(PAIRING, pairing_status=""), "wallet_set"),
                ("no final line feed", "pairing_status=odd", "odd"),
                ("a doubled key", lines(PAIRING) + "pairing_status=a\npairing_status=b=c\n", "b=c"),
                ("a blank before the key", " pairing_status=bound\n", "unpaired"),
                ("no text", "\udcff\x01\n\n\x02=", "unpaired")):
            with self.subTest(name):
                self.keep(pairing=text)
                self.assertEqual(f"owner_wallet_address=0xabc\npairing_status={printed}\n",
                                 self.answer("set-wallet", "0xabc"))
                record = self.record("pairing.env")
                self.assertEqual((list(PAIRING), "0xabc", printed),
                                 (list(record), record["owner_wallet_address"],
                                  record["pairing_status"]))

    def test_a_wallet_ends_at_its_line_feed_when_it_is_read_back(self):
        self.answer("set-wallet", "0xabc\nserver_account_ref=x")
        self.assertEqual("owner_wallet_address=0xdef\npairing_status=unpaired\n",
                         self.answer("set-wallet", "0xdef"))
        self.assertEqual("", self.record("pairing.env")["server_account_ref"])

    def test_a_key_file_from_another_system_keeps_its_carriage_returns(self):
        self.write("vault/bybit.vault", "# mine\r\napi_key=k=\r\napi_key=k2==\r\n\r\napi_secret=s")
        self.assertEqual("status=ok\nexchange=\napi_key=k2==\r\napi_secret=s\npassphrase=\n",
                         self.answer("load-credentials", "bybit"))


class Obstacles(StateTest):
    def test_a_folder_in_place_of_the_pairing_makes_set_wallet_fail(self):
        self.keep()
        self.break_file("pairing.env")
        done = self.connector("set-wallet", "0xabc")
        self.assertEqual((2, "pairing_status=unpaired\n", ""),
                         (done.returncode, done.stdout, done.stderr))
        self.assertEqual(lines(IDENTITY), self.read("device_identity.env"))
        self.assertIn("pairing.env/kept", self.files())
        status = self.status()
        self.assertEqual(("pairing_required", "0xOwn"),
                         (status["connector_health"], status["owner_wallet"]))

    def test_a_folder_in_place_of_the_identity_makes_every_run_a_new_device(self):
        self.keep()
        self.break_file("device_identity.env")
        first, second = self.status(), self.status()
        self.assert_forgotten(first)
        self.assertNotEqual(first["device_id"], second["device_id"])
        done = self.connector("set-wallet", "0xabc")
        self.assertEqual((2, "owner_wallet_address=0xabc\npairing_status=bound\n"),
                         (done.returncode, done.stdout))
        self.assertEqual("0xabc", self.record("pairing.env")["owner_wallet_address"])

    def test_a_folder_in_place_of_a_key_is_no_key_and_lets_none_be_stored(self):
        self.break_file("vault/bybit.vault")
        self.assertEqual('{"status":"error","reason":"credentials_not_found"}\n',
                         self.answer("balance", "bybit"))
        for arguments, printed in (
                (["load-credentials", "bybit"], {"status": "missing"}),
                (["delete-credentials", "bybit"], {"status": "error", "removed": "false"}),
                (["validate", *demo_key("bybit")],
                 {"status": "error", "reason": "failed to persist credentials to local vault"})):
            done = self.connector(*arguments)
            self.assertEqual(2, done.returncode, arguments)
            self.assertEqual(printed, {name: self.values(done)[name] for name in printed})
        self.assertIn("exchange=bybit status=not_configured", self.answer("status"))

    def test_files_that_may_not_be_read_or_written(self):
        self.keep()
        self.as_plain_user()
        identity, pairing = (os.path.join(self.root, name)
                             for name in ("device_identity.env", "pairing.env"))
        os.chmod(identity, 0o400)
        os.chmod(pairing, 0o400)
        self.assertEqual("ready", self.status()["connector_health"])
        done = self.connector("set-wallet", "0xabc")
        self.assertEqual((2, "owner_wallet_address=0xOwn\npairing_status=bound\n"),
                         (done.returncode, done.stdout))
        os.chmod(pairing, 0)
        self.assertEqual("pairing_required", self.status()["connector_health"])
        os.chmod(identity, 0)
        first, second = self.status(), self.status()
        self.assert_forgotten(first)
        self.assertNotEqual(first["device_id"], second["device_id"])
        for path in (identity, pairing):
            os.chmod(path, 0o600)
        self.assertEqual((lines(IDENTITY), lines(PAIRING)),
                         (self.read("device_identity.env"), self.read("pairing.env")))

    def test_a_read_only_root_still_answers_and_keeps_nothing(self):
        self.answer("status")
        os.remove(os.path.join(self.root, "device_identity.env"))
        self.as_plain_user()
        for folder in ("", "vault", "updates"):
            os.chmod(os.path.join(self.root, folder), 0o500)
        first, second = self.status(), self.status()
        self.assertRegex(first["device_id"], FRESH_ID)
        self.assertNotEqual(first["device_id"], second["device_id"])
        done = self.connector("set-wallet", "0xabc")
        self.assertEqual((2, "pairing_status=unpaired\n"), (done.returncode, done.stdout))
        self.box.faults.append(Fault.answer(hosts.RELAY, 200, b'{"status":"ok"}'))
        self.assertEqual('{"status":"ok"}\n', self.answer("claim-token", "token"))
        self.assertEqual('{"status":"ok","state":"disconnected"}\n',
                         self.answer("disconnect-binding"))
        done = self.connector("validate", *demo_key("bybit"))
        self.assertEqual((2, "error", "failed to persist credentials to local vault"),
                         (done.returncode, self.values(done)["status"],
                          self.values(done)["reason"]))
        self.assertIn('"reason":"update_download_failed"', self.answer("update-download"))
        self.assertEqual(["updates", "vault"], self.files())

    def test_what_was_left_open_to_others_is_narrowed(self):
        self.store_key("bybit")
        self.write("vault/vault_index.txt", "bybit\n")
        self.write("vault/.old~", "api_secret=s\n")
        self.keep()
        names = self.files()
        for mode in (0o777, 0o755, 0o644, 0o710):
            with self.subTest(mode=oct(mode)):
                for name in names:
                    own = 0o700 if name == "vault" else 0o600
                    os.chmod(os.path.join(self.root, name), mode & 0o077 | own)
                self.answer("set-wallet", "0xabc")
                for name in names:
                    self.assertEqual(0o700 if name == "vault" else 0o600, self.mode(name), name)
        self.assertEqual("exchange=bybit\napi_key=demo-bybit-key\napi_secret=demo-bybit-secret\n"
                         "passphrase=\n", self.read("vault/bybit.vault"))

    def test_linked_files_are_written_where_they_lie(self):
        elsewhere = os.path.join(self.home, "elsewhere")
        self.keep()
        shutil.move(os.path.join(self.root, "pairing.env"), elsewhere)
        os.symlink(elsewhere, os.path.join(self.root, "pairing.env"))
        self.answer("set-wallet", "0xabc")
        self.assertTrue(os.path.islink(os.path.join(self.root, "pairing.env")))
        with open(elsewhere, encoding="utf-8") as file:
            self.assertIn("owner_wallet_address=0xabc\n", file.read())


if __name__ == "__main__":
    unittest.main()
