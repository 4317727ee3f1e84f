"""Commands, their arguments, which stream speaks, and the exit status."""

import re
import signal

from support import EXCHANGES, IDENTITY, PAIRING, ConnectorTest

COMMANDS = ("status|validate|load-credentials|delete-credentials|set-wallet|bind-wallet|"
            "bind-status|claim-token|disconnect-binding|capabilities|balance|get-position|"
            "order-status|cancel-order|funding|close-report|place-open|place-close|update-check|"
            "update-download|update-apply|server-health")
REGISTERED = [*EXCHANGES, "hyperliquid", "paradex", "lighter", "extended", "reya"]
ROW = 'exchange={} status={}configured credentials_present={} note="{}"\n'
STORED = [("not_", "false", "not configured"), ("", "true", "credentials stored locally")]
CLAIMS = (" validate=? balance=? position=? funding=? close_report=? open=? close=? cancel=? "
          "status=? leverage_sync=? margin_mode_sync=?\n")
NEW = re.compile("(device_id=device:macos:[0-9a-f]{12}\n)connector_instance_id=connector:"
                 r"[0-9a-f]{16}\n(device_label=Morvane Connector \(macOS\)\nplatform=macos\n)"
                 "owner_wallet=\npaired=0\n")


class CommandLine(ConnectorTest):
    def assert_usage_error(self, printed, *arguments):
        done = self.connector(*arguments)
        self.assertEqual((1, "", printed), (done.returncode, done.stdout, done.stderr))

    def test_no_or_no_known_command_or_too_few_arguments_do_nothing_but_set_up_the_root(self):
        self.only_tools()
        self.assert_usage_error(f"usage: morvane-connector <{COMMANDS}> [args]\n")
        for command in ("STATUS", "stat", "status ", "--help", ""):
            self.assert_usage_error(f"unknown command: {command}\n", command)
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())
        for command in COMMANDS.split("|"):
            usage = self.connector(command).stderr
            least = usage.count("<")
            for count in range(least):
                self.assert_usage_error(usage, command, *["0x"] * count)
            self.assertIn(self.connector(command, *["0x"] * least).returncode, (0, 2))

    def test_a_number_that_is_none_ends_the_run_before_anything_is_sent(self):
        self.store_keys("bybit")
        for number in ("", "x5", "99999999999"):
            for arguments in (["place-open", "bybit", "BTC_USDT", "buy", "1", "1", number],
                              ["funding", "bybit", "BTC_USDT", number]):
                done = self.connector(*arguments)
                self.assertEqual((-signal.SIGABRT, ""), (done.returncode, done.stdout))
        self.assertEqual([], self.box.requests)
        # Blanks before a number, text after it and further arguments are no harm.
        self.answer("place-open", "bybit", "BTC_USDT", "buy", "0.001", "40000", " 7x", "more")
        self.assertIn(b'"buyLeverage":"7"', self.box.requests[0].body)

    def test_status_prints_identity_health_and_one_line_per_exchange(self):
        for stored in ("", "Bybit", "gate"):  # A stranger's key changes nothing.
            self.store_keys(*filter(None, [stored]))
            lines = "".join(ROW.format(name, *STORED[name == stored]) for name in REGISTERED)
            printed = self.answer("status")
            device, label = NEW.fullmatch(self.read("device_identity.env")).groups()
            self.assertEqual(f"connector_health=pairing_required\nrelay_connected=true\n{device}"
                             f"{label}paired=false\nvault_backend=macos_keychain_with_file_"
                             f"fallback\n{lines}", printed)
        # Without its id it is another machine, with nothing of the old one.
        self.write("device_identity.env", IDENTITY.format("0xOwn", 1)[len("device_id="):])
        self.answer("status")
        self.assertNotEqual(device, NEW.fullmatch(self.read("device_identity.env"))[1])

    def test_the_wallet_shows_only_when_paired_and_is_the_pairings_where_it_has_one(self):
        self.says("owner_wallet_address=0xabc\npairing_status=unpaired\n", "set-wallet", "0xabc")
        self.assertNotIn("owner_wallet=", self.answer("status"))
        for paired, approved, wallet, health, shown in (
                ("1", "1", "0xNew", "ready", "true\nowner_wallet=0xNew"),
                ("1", "0", "", "pairing_required", "true\nowner_wallet=0xOwn"),
                ("true", "1", "0xNew", "pairing_required", "false")):
            self.write("device_identity.env", IDENTITY.format("0xOwn", paired))
            self.write("pairing.env", PAIRING.format(wallet, "bound", "", "", "1", approved))
            self.assertRegex(self.answer("status"), rf"\Aconnector_health={health}\n(?s:.*)\n"
                                                    rf"paired={shown}\nvault_backend=")
        self.write("pairing.env", "pairing_status=\n")
        self.says("pairing_status=wallet_set\n", "set-wallet", "")
        self.write("device_identity.env", "device_id=unlabelled\n")
        self.answer("claim-token", "token")
        self.assertIn(b'"connectorLabel":"macOS connector"', self.box.requests[0].body)

    def test_capabilities_claim_six_exchanges_and_deny_six(self):
        self.says("".join(f"exchange={name}" + CLAIMS.replace("?", str(name in EXCHANGES).lower())
                          for name in [*REGISTERED, "asterdex"]), "capabilities")
