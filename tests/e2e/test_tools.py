"""What is said of a tool that a signal killed, or that chatters."""

import os

from support import ConnectorTest

SHELL = os.path.realpath("/bin/sh")

# Says of a line whose last tool a signal killed what bash 3.2, a Mac's sh, says of it.
TELLING_SHELL = f"""#!{SHELL}
{SHELL} "$@"
status=$?
[ $status -le 128 ] || printf 'sh: line 1: 42 Killed: 9  %s\\n' "$2" >&2
exit $status
"""
KILLED = f"#!{SHELL}\nkill -9 $$\n"


class Tools(ConnectorTest):
    def validate(self, exchange, **tools):
        self.over_usr_bin(sh=TELLING_SHELL, **tools)
        return self.connector("validate", exchange, *self.key(exchange))

    def assert_silent_failure(self, done, status, reason):
        """What the shell says may end in the reason, where it is dash: the signal's name alone."""
        self.assertEqual("", done.stderr, done)
        self.assertIn(f"\nstatus={status}\n", done.stdout, done)
        self.assertRegex(done.stdout, f"\nreason={reason}(Killed)?\n\\Z", done)

    def test_of_a_killed_keychain_tool_nothing_is_said_and_the_key_goes_to_its_file(self):
        done = self.validate("bybit", security=KILLED)
        self.assert_silent_failure(done, "valid_trade_ready", "live bybit auth validated")
        self.assertIn("vault/bybit.vault", self.files())

    def test_of_a_killed_python_nothing_is_said_but_the_checks_own_words(self):
        done = self.validate("okx", python3=KILLED)
        self.assert_silent_failure(done, "error", "failed to execute okx validation probes")

    def test_of_a_killed_xxd_nothing_is_said_but_the_checks_own_words(self):
        done = self.validate("bybit", xxd=KILLED)
        self.assert_silent_failure(done, "error", "failed to build bybit signature: ")

    def test_of_a_killed_curl_nothing_is_said_but_the_checks_own_words(self):
        done = self.validate("bybit", curl=KILLED)
        self.assert_silent_failure(done, "error", "bybit request failed: ")

    def test_what_a_tool_says_before_another_is_killed_is_passed_on(self):
        done = self.validate("bybit", xxd=KILLED, openssl="echo openssl says this >&2")
        self.assertEqual("openssl says this\n", done.stderr, done)

    def test_a_megabyte_of_chatter_is_passed_on_and_holds_nobody_up(self):
        self.stand_in(openssl="yes chatter | head -c 1000000 >&2; "
                              f'exec {self.real("openssl")} "$@"')
        done = self.connector("validate", "bybit", *self.key("bybit"), timeout=60)
        self.assertIn("\nstatus=valid_trade_ready\n", done.stdout)
        self.assertEqual(1000000, len(done.stderr))
