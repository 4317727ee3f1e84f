"""Commands, their arguments, which stream speaks, and the exit status."""

import os
import signal

from support import ConnectorTest

COMMANDS = ("status|validate|load-credentials|delete-credentials|set-wallet|bind-wallet|"
            "bind-status|claim-token|disconnect-binding|capabilities|balance|get-position|"
            "order-status|cancel-order|funding|close-report|place-open|place-close|update-check|"
            "update-download|update-apply|server-health")

USAGES = dict(usage.split(" ", 1) for usage in """\
validate <exchange> <api_key> <api_secret> [passphrase]
set-wallet <public_evm_address>
claim-token <token>
load-credentials <exchange>
delete-credentials <exchange>
balance <exchange>
get-position <exchange> <symbol>
order-status <exchange> <symbol> <order_id>
cancel-order <exchange> <symbol> <order_id>
funding <exchange> <symbol> [lookback_minutes]
close-report <exchange> <symbol> [order_id]
place-open <exchange> <symbol> <side> <quantity> <price> <leverage>
place-close <exchange> <symbol> <side> <quantity> <price>""".splitlines())


class CommandLine(ConnectorTest):
    def assert_usage_error(self, printed, *arguments):
        done = self.connector(*arguments)
        self.assertEqual((1, "", printed + "\n"), (done.returncode, done.stdout, done.stderr))

    def test_no_command_prints_the_general_usage_and_still_sets_up_the_root(self):
        self.assert_usage_error(f"usage: morvane-connector <{COMMANDS}> [args]")
        self.assertRegex(self.read("device_identity.env"),
                         r"\Adevice_id=device:macos:[0-9a-f]{12}\n"
                         r"connector_instance_id=connector:[0-9a-f]{16}\n"
                         r"device_label=Morvane Connector \(macOS\)\nplatform=macos\n"
                         r"owner_wallet=\npaired=0\n\Z")
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())

    def test_an_unknown_command_is_named(self):
        for command in ("STATUS", "stat", "status ", "--help", "", "$(touch x)"):
            self.assert_usage_error(f"unknown command: {command}", command)

    def test_too_few_arguments_print_the_commands_own_usage_and_do_nothing(self):
        for command, arguments in USAGES.items():
            for count in {0, arguments.count("<") - 1}:
                self.assert_usage_error(f"usage: morvane-connector {command} {arguments}",
                                        command, *["bybit"] * count)
        self.assertEqual([], self.box.requests)
        self.assertNotIn("pairing.env", self.files())

    def test_a_number_that_is_none_ends_the_run_before_anything_is_sent(self):
        self.store_key("bybit")
        for arguments in (["place-open", "bybit", "BTC_USDT", "buy", "1", "1"],
                          ["funding", "bybit", "BTC_USDT"]):
            for number in ("", "x5", "99999999999"):
                done = self.connector(*arguments, number)
                self.assertEqual((-signal.SIGABRT, ""), (done.returncode, done.stdout))
        self.assertEqual([], self.box.requests)
        # Blanks before a number, text after it and further arguments are no harm.
        self.answer("place-open", "bybit", "BTC_USDT", "buy", "0.001", "40000", " 7x", "more")
        self.assertIn(b'"buyLeverage":"7"', self.box.requests[0].body)


class Environment(ConnectorTest):
    def test_the_root_is_below_home_below_the_working_folder_or_below_the_temporary_one(self):
        self.env["HOME"] = ""
        self.answer("status", cwd=self.home)
        self.assertIn("device_identity.env", self.files())
        del self.env["HOME"]
        self.env["TMPDIR"] = self.home
        self.answer("status")
        self.assertIn("device_identity.env",
                      os.listdir(os.path.join(self.home, "morvane-connector")))

    def test_an_empty_relay_url_leaves_the_relay_unconfigured(self):
        for url, connected in (("", "false"), ("https://relay.morvane.example", "true")):
            self.env["MORVANE_RELAY_URL"] = url
            self.assertIn(f"\nrelay_connected={connected}\n", self.answer("status"))
        del self.env["MORVANE_RELAY_URL"]
        self.assertIn("\nrelay_connected=true\n", self.answer("status"))

    def test_a_root_that_cannot_be_created_ends_the_run_abnormally(self):
        with open(self.root, "w", encoding="utf-8"):
            pass
        done = self.connector("status")
        self.assertEqual((-signal.SIGABRT, ""), (done.returncode, done.stdout))
        self.assertEqual(0, os.path.getsize(self.root))


class Status(ConnectorTest):
    def test_status_prints_identity_health_and_one_line_per_exchange(self):
        line = 'exchange={} status={}configured credentials_present={} note="{}"\n'
        for stored in ("", "Bybit", "gate"):  # A stranger's key changes nothing.
            if stored:
                self.store_key(stored)
            printed = self.answer("status")
            names = ("bybit okx gate bingx kucoin bitget hyperliquid paradex lighter extended "
                     "reya").split()
            lines = [line.format(name, "", "true", "credentials stored locally")
                     if name == stored else line.format(name, "not_", "false", "not configured")
                     for name in names]
            self.assertEqual("connector_health=pairing_required\nrelay_connected=true\n"
                             f"device_id={self.record('device_identity.env')['device_id']}\n"
                             "device_label=Morvane Connector (macOS)\nplatform=macos\n"
                             "paired=false\nvault_backend=macos_keychain_with_file_fallback\n"
                             + "".join(lines), printed)

    def test_the_wallet_shows_only_when_paired(self):
        self.assertEqual("owner_wallet_address=0xabc\npairing_status=unpaired\n",
                         self.answer("set-wallet", "0xabc"))
        self.assertNotIn("owner_wallet=", self.answer("status"))
        self.write("device_identity.env", "device_id=d\nowner_wallet=0xown\npaired=1\n")
        self.assertRegex(self.answer("status"), r"\Aconnector_health=pairing_required\n"
                                                r"(?s:.*)\npaired=true\nowner_wallet=0xabc\n")
        os.remove(self.path("pairing.env"))
        self.assertIn("\nowner_wallet=0xown\n", self.answer("status"))
        self.assertEqual("pairing_status=unpaired\n", self.answer("set-wallet", ""))

    def test_capabilities_claim_six_exchanges_and_deny_six(self):
        words = ("validate balance position funding close_report open close cancel status "
                 "leverage_sync margin_mode_sync").split()
        self.assertEqual("".join(
            f"exchange={name}" + "".join(f" {word}={claimed}" for word in words) + "\n"
            for names, claimed in (("bybit okx gate bingx kucoin bitget", "true"),
                                   ("hyperliquid paradex lighter extended reya asterdex", "false"))
            for name in names.split()), self.answer("capabilities"))
