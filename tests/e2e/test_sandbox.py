"""The sandbox: what it keeps out, what its switches do, what its tables refuse."""

import contextlib
import io
import os
import subprocess
import sys
import unittest

from sandbox.exchanges.bybit import Bybit
from support import CONNECTOR, EXCHANGES, ConnectorTest, error

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")


class Entering(ConnectorTest):
    def enter(self, *command):
        """Runs a command in the sandbox, as somebody who stands in that folder."""
        return subprocess.run(
            [sys.executable, "-m", "sandbox", "--path", os.path.dirname(CONNECTOR),
             "--cwd", self.folder, *command],
            env={**os.environ, **self.settings}, cwd=ROOT, stdin=subprocess.DEVNULL,
            capture_output=True, encoding="utf-8")

    def test_nothing_of_the_callers_settings_reaches_what_runs_inside(self):
        self.folder = os.path.join(self.home, "callers")
        self.write("../callers/.curlrc", 'noproxy = "*"\n')
        self.write("../callers/openssl.cnf",  # with these, openssl knows no digest
                   "openssl_conf = all\n[all]\nproviders = known\n"
                   "[known]\nnull = null\n[null]\nactivate = 1\n")
        self.write("../callers/sitecustomize.py",  # the sandbox itself runs elsewhere
                   f"import os\nif os.getcwd() == {self.folder!r}: open('ran', 'w')\n")
        self.write("../callers/profile", "touch ran\n")
        profile = os.path.join(self.folder, "profile")
        self.settings = {
            **dict.fromkeys(("HOME", "CURL_HOME", "XDG_CONFIG_HOME"), self.folder),
            "no_proxy": "*", "NO_PROXY": "*", "OPENSSL_CONF": "openssl.cnf",
            "SSLKEYLOGFILE": os.path.join(self.folder, "ran"), "PYTHONPATH": self.folder,
            "ENV": profile, "BASH_ENV": profile, "BASH_FUNC_curl%%": "() { touch ran; }"}
        okx = ["okx", "demo-okx-key", "demo-okx-secret", "demo-passphrase"]
        for name, command in {
                # A host that is nowhere else: a way out leads to nobody.
                "curl": ["curl", "-sSf", "http://sandbox.control/"],
                "bash": ["bash", "-c", "curl --version"],
                "openssl": ["morvane-connector", "validate", "bybit", "demo-bybit-key",
                            "demo-bybit-secret"],
                "python3": ["morvane-connector", "validate", *okx]}.items():
            done = self.enter(*command)
            self.assertEqual((0, ""), (done.returncode, done.stderr), f"{name}: {done}")
        self.assertNotIn("ran", os.listdir(self.folder))


class Switches(ConnectorTest):
    def switch(self, path):
        """The exit status of `curl -f`, what it printed, and what the sandbox said."""
        said = io.StringIO()
        with contextlib.redirect_stderr(said):
            done = self.run_tool("curl", "-sf", f"http://sandbox.control/{path}")
        return done.returncode, done.stdout, said.getvalue()

    def test_a_wrong_request_fails_and_says_why_where_curl_does_not_hide_it(self):
        for path, why in {
                "orders": "write /orders/EXCHANGE",
                "orders/okex": f"'okex' is none of {' '.join(EXCHANGES)}",
                "fill/okx/1": "okx has no open order 1; /orders/okx lists them",
                "mark/BTC/0": "'0' is no price"}.items():
            with self.subTest(path):
                self.assertEqual((22, "", f"sandbox.control: {why}\n"),
                                 self.switch(path))

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
