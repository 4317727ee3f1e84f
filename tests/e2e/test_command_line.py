"""Commands, their arguments, which stream speaks, and the exit status."""

import os
import re
import shutil
import signal
import unittest

from support import ConnectorTest

COMMANDS = ("status|validate|load-credentials|delete-credentials|set-wallet|bind-wallet|bind-status|"
            "claim-token|disconnect-binding|capabilities|balance|get-position|order-status|"
            "cancel-order|funding|close-report|place-open|place-close|update-check|"
            "update-download|update-apply|server-health")

USAGES = {
    "validate": "<exchange> <api_key> <api_secret> [passphrase]",
    "set-wallet": "<public_evm_address>",
    "claim-token": "<token>",
    "load-credentials": "<exchange>",
    "delete-credentials": "<exchange>",
    "balance": "<exchange>",
    "get-position": "<exchange> <symbol>",
    "order-status": "<exchange> <symbol> <order_id>",
    "cancel-order": "<exchange> <symbol> <order_id>",
    "funding": "<exchange> <symbol> [lookback_minutes]",
    "close-report": "<exchange> <symbol> [order_id]",
    "place-open": "<exchange> <symbol> <side> <quantity> <price> <leverage>",
    "place-close": "<exchange> <symbol> <side> <quantity> <price>",
}

FRESH_IDENTITY = re.compile(
    r"device_id=device:macos:[0-9a-f]{12}\n"
    r"connector_instance_id=connector:[0-9a-f]{16}\n"
    r"device_label=Morvane Connector \(macOS\)\n"
    r"platform=macos\n"
    r"owner_wallet=\n"
    r"paired=0\n")


class CommandLine(ConnectorTest):
    def test_no_command_prints_the_general_usage_and_still_sets_up_the_root(self):
        done = self.connector()
        self.assertEqual((1, "", f"usage: morvane-connector <{COMMANDS}> [args]\n"),
                         (done.returncode, done.stdout, done.stderr))
        self.assertRegex(self.read("device_identity.env"), FRESH_IDENTITY)
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())

    def test_an_unknown_command_is_named(self):
        for command in ("STATUS", "stat", "status ", "-h", "--help", "", "$(touch x)"):
            with self.subTest(command=command):
                done = self.connector(command)
                self.assertEqual((1, "", f"unknown command: {command}\n"),
                                 (done.returncode, done.stdout, done.stderr))

    def test_too_few_arguments_print_the_commands_own_usage_and_do_nothing(self):
        for command, arguments in USAGES.items():
            required = arguments.count("<")
            for count in range(required):
                with self.subTest(command=command, count=count):
                    done = self.connector(command, *["bybit"] * count)
                    self.assertEqual((1, "", f"usage: morvane-connector {command} {arguments}\n"),
                                     (done.returncode, done.stdout, done.stderr))
        self.assertEqual([], self.box.requests)
        self.assertNotIn("pairing.env", self.files())

    def test_arguments_beyond_the_last_are_ignored(self):
        self.assertEqual('{"status":"error","reason":"credentials_not_found"}\n',
                         self.answer("balance", "bybit", "more", "and more"))

    def test_a_number_that_is_none_ends_the_run_before_anything_is_sent(self):
        self.store_key("bybit")
        for arguments in (["place-open", "bybit", "BTC_USDT", "buy", "1", "1"],
                          ["funding", "bybit", "BTC_USDT"]):
            for number in ("", "x5", "five", "99999999999", "-99999999999"):
                with self.subTest(command=arguments[0], number=number):
                    done = self.connector(*arguments, number)
                    self.assertEqual((-signal.SIGABRT, ""), (done.returncode, done.stdout))
        self.assertEqual([], self.box.requests)

    def test_a_number_may_carry_blanks_before_and_text_after_it(self):
        self.store_key("bybit")
        self.answer("place-open", "bybit", "BTC_USDT", "buy", "0.001", "40000", " 7x")
        self.assertIn(b'"buyLeverage":"7"', self.box.requests[0].body)


class Root(ConnectorTest):
    def test_without_home_the_root_is_below_the_temporary_folder(self):
        del self.env["HOME"]
        self.env["TMPDIR"] = self.home
        self.answer("status")
        self.assertIn("device_identity.env",
                      os.listdir(os.path.join(self.home, "morvane-connector")))

    def test_an_empty_home_is_the_working_folder(self):
        self.env["HOME"] = ""
        self.answer("status", cwd=self.home)
        self.assertIn("device_identity.env", self.files())

    def test_an_empty_relay_url_leaves_the_relay_unconfigured(self):
        for url, connected in (("", "false"), ("https://relay.morvane.example", "true")):
            self.env["MORVANE_RELAY_URL"] = url
            self.assertIn(f"\nrelay_connected={connected}\n", self.answer("status"))

    def test_a_root_that_cannot_be_created_ends_the_run_abnormally(self):
        with open(self.root, "w", encoding="utf-8"):
            pass
        done = self.connector("status")
        self.assertEqual((-signal.SIGABRT, ""), (done.returncode, done.stdout))
        self.assertEqual(0, os.path.getsize(self.root))

    def test_everything_is_the_owners_alone_whatever_the_umask(self):
        for umask in (0o000, 0o022, 0o777):
            with self.subTest(umask=oct(umask)):
                before = os.umask(umask)
                try:
                    self.answer("set-wallet", "0xabc")
                    validated = self.connector("validate", "bybit", "demo-bybit-key",
                                               "demo-bybit-secret")
                finally:
                    os.umask(before)
                self.assertEqual(0, validated.returncode)
                for name in (".", "vault", "updates"):
                    self.assertEqual(0o700, self.mode(name), name)
                for name in ("device_identity.env", "pairing.env", "vault/bybit.vault"):
                    self.assertEqual(0o600, self.mode(name), name)
                shutil.rmtree(self.root)


class Status(ConnectorTest):
    def test_status_prints_identity_health_and_one_line_per_exchange(self):
        lines = self.answer("status").splitlines()
        identity = self.record("device_identity.env")
        exchanges = ("bybit okx gate bingx kucoin bitget hyperliquid paradex lighter extended "
                     "reya").split()
        self.assertEqual(["connector_health=pairing_required",
                          "relay_connected=true",
                          "device_id=" + identity["device_id"],
                          "device_label=Morvane Connector (macOS)",
                          "platform=macos",
                          "paired=false",
                          "vault_backend=macos_keychain_with_file_fallback"]
                         + [f'exchange={name} status=not_configured credentials_present=false '
                            f'note="not configured"' for name in exchanges], lines)

    def test_a_stored_key_is_configured_and_a_stranger_changes_nothing(self):
        fresh = self.answer("status")
        self.store_key("Bybit")
        self.assertEqual(fresh, self.answer("status"))
        self.store_key("bybit")
        self.assertIn('exchange=bybit status=configured credentials_present=true '
                      'note="credentials stored locally"\n', self.answer("status"))

    def test_the_identity_survives_runs_byte_for_byte(self):
        self.answer("status")
        before = self.read("device_identity.env")
        self.answer("capabilities")
        self.assertEqual(before, self.read("device_identity.env"))

    def test_the_wallet_shows_only_when_paired(self):
        self.assertEqual("owner_wallet_address=0xabc\npairing_status=unpaired\n",
                         self.answer("set-wallet", "0xabc"))
        self.assertNotIn("owner_wallet=", self.answer("status"))
        self.write("device_identity.env", "device_id=d\nowner_wallet=0xown\npaired=1\n")
        self.assertIn("\nowner_wallet=0xabc\n", self.answer("status"))
        os.remove(os.path.join(self.root, "pairing.env"))
        self.assertIn("\nowner_wallet=0xown\n", self.answer("status"))

    def test_an_empty_wallet_is_accepted_and_not_printed(self):
        self.assertEqual("pairing_status=unpaired\n", self.answer("set-wallet", ""))

    def test_capabilities_claim_six_exchanges_and_deny_six(self):
        words = ("validate balance position funding close_report open close cancel status "
                 "leverage_sync margin_mode_sync").split()
        expected = "".join(
            f"exchange={name}" + "".join(f" {word}={claimed}" for word in words) + "\n"
            for names, claimed in (("bybit okx gate bingx kucoin bitget", "true"),
                                   ("hyperliquid paradex lighter extended reya asterdex", "false"))
            for name in names.split())
        self.assertEqual(expected, self.answer("capabilities"))


if __name__ == "__main__":
    unittest.main()
