"""What is said of a tool that a signal killed, or that chatters."""

import shutil
import sys

from support import CONNECTOR, ConnectorTest

# Says of a line whose last tool a signal killed what bash 3.2, a Mac's sh, says of it.
# Scripts here name what runs them: where this lies, sh is this one.
BASH = shutil.which("bash")
TELLING_SHELL = f"""#!{sys.executable} -IS
import subprocess, sys
status = subprocess.call(["sh", *sys.argv[1:]], executable="{BASH}")
if status < 0 or status > 128:
    print("sh: line 1: 42 Killed: 9 ", sys.argv[-1], file=sys.stderr)
sys.exit(status % 256)
"""
KILLED = f"#!{BASH}\nkill -9 $$\n"


class Tools(ConnectorTest):
    def validate(self, exchange, **tools):
        self.over_usr_bin(sh=TELLING_SHELL, **tools)
        return self.connector("validate", exchange, *self.key(exchange))

    def test_of_a_killed_tool_nothing_is_said_but_the_checks_own_words(self):
        for exchange, tool, status, reason in (
                ("bybit", "security", "valid_trade_ready", "live bybit auth validated"),
                ("okx", "python3", "error", "failed to execute okx validation probes"),
                ("bybit", "xxd", "error", "failed to build bybit signature: "),
                ("bybit", "curl", "error", "bybit request failed: ")):
            with self.subTest(tool):
                self.program, self.env["PATH"] = [CONNECTOR], self.box.env["PATH"]
                run = self.validate(exchange, **{tool: KILLED})
                self.assertEqual("", run.stderr)
                self.assertIn(f"\nstatus={status}\n", run.stdout)
                # Where sh is dash, it tells the signal in the tool's place.
                told_reason = rf"\nreason={reason}(Killed)?\n\Z"
                self.assertRegex(run.stdout, told_reason)

    def test_what_a_tool_says_before_another_is_killed_is_passed_on(self):
        run = self.validate("bybit", xxd=KILLED, openssl="echo openssl says this >&2")
        self.assertEqual("openssl says this\n", run.stderr)

    def test_a_tool_inherits_the_three_standard_streams_alone(self):
        self.store_keys("bybit")
        self.stand_in(curl="for number in 3 4 5 6 7 8 9; do "
                           "[ ! -e /dev/fd/$number ] || echo $number; done")
        self.says('{"status":"ok","exchange":"bybit","kind":"balance","body":}\n',
                  "balance", "bybit")
