"""Commands, their arguments, which stream speaks, and the exit status."""

import signal

from support import BOUND, EXCHANGES, ConnectorTest, each

# A new command or exchange is added here. The manual, the README and the completions are
# held to what the program itself says, in test_packaging.py.
COMMANDS = (
    "status", "validate", "load-credentials", "delete-credentials", "set-wallet",
    "bind-wallet", "bind-status", "claim-token", "disconnect-binding", "capabilities",
    "balance", "get-position", "order-status", "cancel-order", "funding", "close-report",
    "place-open", "place-close", "update-check", "update-download", "update-apply",
    "server-health")
REGISTERED = (*EXCHANGES, "hyperliquid", "paradex", "lighter", "extended", "reya")
CLAIMS = ("validate", "balance", "position", "funding", "close_report", "open", "close",
          "cancel", "status", "leverage_sync", "margin_mode_sync")
NEW_IDENTITY = """\
device_id=device:macos:[0-9a-f]{12}
connector_instance_id=connector:[0-9a-f]{16}
device_label=Morvane Connector \\(macOS\\)
platform=macos
owner_wallet=
paired=0
"""


class CommandLine(ConnectorTest):
    def test_without_a_command_all_are_named_and_only_the_root_is_set_up(self):
        usage = f"usage: morvane-connector <{'|'.join(COMMANDS)}> [args]\n"
        self.says("", status=1, error=usage)
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())

    @each("STATUS", "stat", "status ", "--help", "")
    def test_an_unknown_command_is_named(self, command):
        self.says("", command, status=1, error=f"unknown command: {command}\n")

    @each(*COMMANDS)
    def test_a_command_with_too_few_arguments_tells_its_usage(self, command):
        self.only_tools()
        usage = self.connector(command).stderr
        needed = usage.count("<")
        for count in range(needed):
            self.assertRegex(usage, f"^usage: morvane-connector {command} <")
            self.says("", command, *["0x"] * count, status=1, error=usage)
        run = self.connector(command, *["0x"] * needed)
        self.assertIn(run.returncode, (0, 2))

    @each("", "x5", "99999999999")
    def test_a_number_that_is_none_aborts_before_anything_is_sent(self, number):
        self.store_keys("bybit")
        for command in (["place-open", "bybit", "BTC_USDT", "buy", "1", "1", number],
                        ["funding", "bybit", "BTC_USDT", number]):
            run = self.connector(*command)
            self.assertEqual((-signal.SIGABRT, ""), (run.returncode, run.stdout))
        self.assertEqual([], self.box.requests)

    def test_capabilities_claim_everything_for_six_exchanges_and_nothing_for_six(self):
        lines = [f"exchange={name} " + " ".join(
            f"{claim}={'true' if name in EXCHANGES else 'false'}" for claim in CLAIMS)
            for name in (*REGISTERED, "asterdex")]
        self.says("\n".join(lines) + "\n", "capabilities")


class Status(ConnectorTest):
    def test_the_first_run_makes_an_identity_and_later_ones_keep_it(self):
        first = self.answer("status")
        stored = self.read("device_identity.env")
        self.assertRegex(stored, rf"\A{NEW_IDENTITY}\Z")
        device = stored.split("\n")[0]
        self.assertEqual(
            f"connector_health=pairing_required\nrelay_connected=true\n{device}\n"
            "device_label=Morvane Connector (macOS)\nplatform=macos\npaired=false\n"
            "vault_backend=macos_keychain_with_file_fallback\n"
            + "".join(f'exchange={name} status=not_configured credentials_present=false '
                      'note="not configured"\n' for name in REGISTERED), first)
        self.says(first, "status")
        self.assertEqual(stored, self.read("device_identity.env"))

    def test_a_stored_key_shows_and_one_of_a_stranger_does_not(self):
        self.store_keys("Bybit", "gate")
        configured = [line for line in self.answer("status").splitlines()
                      if "credentials_present=true" in line]
        self.assertEqual(["exchange=gate status=configured credentials_present=true "
                          'note="credentials stored locally"'], configured)

    def test_without_its_device_id_nothing_of_an_identity_is_kept(self):
        self.write("device_identity.env", BOUND.identity_text().partition("\n")[2])
        self.answer("status")
        self.assertRegex(self.read("device_identity.env"), rf"\A{NEW_IDENTITY}\Z")

    @each(("paired and approved: the pairing's wallet", {"wallet": "0xNew"},
           "ready", "paired=true\nowner_wallet=0xNew\n"),
          ("where the pairing has none, the identity's", {"wallet": "", "approved": "0"},
           "pairing_required", "paired=true\nowner_wallet=0xOwn\n"),
          ("only 1 is true in a file", {"paired": "true"},
           "pairing_required", "paired=false\n"))
    def test_health_and_wallet_show_what_both_files_say(self, _, changed, health, shown):
        self.be(BOUND._replace(**changed))
        printed = self.answer("status")
        self.assertIn(f"connector_health={health}\n", printed)
        self.assertIn(f"platform=macos\n{shown}vault_backend=", printed)

    def test_an_emptied_status_becomes_wallet_set(self):
        self.write("pairing.env", "pairing_status=\n")
        self.says("pairing_status=wallet_set\n", "set-wallet", "")
