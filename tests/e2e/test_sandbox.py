"""The sandbox: what it keeps out, what its switches do, what its tables refuse."""

import contextlib
import io
import os
import subprocess
import sys
import unittest

from sandbox.exchanges.bybit import Bybit
from support import EXCHANGES, ConnectorTest, each, error


class Entering(unittest.TestCase):
    # What leads curl, openssl, python3 and the shells.
    SETTINGS = ("HOME", "CURL_HOME", "XDG_CONFIG_HOME", "no_proxy", "NO_PROXY",
                "https_proxy", "SSL_CERT_FILE", "SSLKEYLOGFILE", "OPENSSL_CONF",
                "PYTHONPATH", "PYTHONSTARTUP", "ENV", "BASH_ENV", "BASH_FUNC_curl%%")

    def test_none_of_the_callers_settings_reaches_what_runs_inside(self):
        env = {**os.environ, **dict.fromkeys(self.SETTINGS, "/the/callers")}
        inside = subprocess.run(
            [sys.executable, "-m", "sandbox", "env"], env=env,
            capture_output=True, encoding="utf-8", check=True).stdout
        self.assertIn("\nMORVANE_RELAY_URL=", inside)
        self.assertNotIn("/the/callers", inside)


class Switches(ConnectorTest):
    def switch(self, path):
        """The exit status of `curl -f`, what it printed, and what the sandbox said."""
        said = io.StringIO()
        with contextlib.redirect_stderr(said):
            done = self.run_tool("curl", "-sf", f"http://sandbox.control/{path}")
        return done.returncode, done.stdout, said.getvalue()

    @each(("orders", "write /orders/EXCHANGE"),
          ("orders/okex", f"'okex' is none of {' '.join(EXCHANGES)}"),
          ("fill/okx/1", "okx has no open order 1; /orders/okx lists them"),
          ("mark/BTC/0", "'0' is no price"))
    def test_a_wrong_request_fails_and_says_why_where_curl_does_not_hide_it(
            self, path, why):
        self.assertEqual((22, "", f"sandbox.control: {why}\n"), self.switch(path))

    def test_an_order_whose_answer_was_lost_is_there_and_only_one_answer_is_lost(self):
        self.store_keys("gate")
        self.switch("lose/gate")
        self.says(error("http_failed"),
                  "place-open", "gate", "BTC_USDT", "buy", "3", "40000", "5")
        _, listed, _ = self.switch("orders/gate")
        self.assertRegex(listed, r"(?m)^\d+ +BTC_USDT +buy +3 +40000$")
        self.assertIn('"order_margin":"2.4"', self.answer("balance", "gate"))


class Tables(unittest.TestCase):
    SLIPS = {
        "no order has this": {"order_fields": "orderId=idd"},
        "there is no such reason": {"errors": Bybit.errors + "no_money 200 1 none"},
        "a reason has no words": {"errors": "key 200 1 none"},
        "there is no such operation": {"routes": {"GET /v5/position/list": "positon"}},
        "there is no such setting": {"order_field": ""},
    }

    def test_a_slip_in_a_table_is_refused_when_the_sandbox_starts(self):
        for slip, table in self.SLIPS.items():
            with self.subTest(slip), self.assertRaises(ValueError):
                type("Slip", (Bybit,), table)(refusals=[])
