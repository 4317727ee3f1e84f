"""Nothing of the caller's settings reaches what runs in the sandbox."""

import os
import subprocess
import sys
import tempfile
import unittest

from support import CONNECTOR

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")

# With these openssl knows no digest.
NO_DIGESTS = """openssl_conf = all
[all]
providers = known
[known]
null = null
[null]
activate = 1
"""


class Entering(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="morvane-test-")
        self.addCleanup(folder.cleanup)
        self.folder = os.path.realpath(folder.name)
        self.path = os.path.dirname(CONNECTOR)

    def write(self, name, text):
        path = os.path.join(self.folder, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="ascii") as file:
            file.write(text)
        return path

    def enter(self, *command, **environment):
        """Runs a command, or the shell, in the sandbox as somebody with that environment."""
        return subprocess.run(
            [sys.executable, "-m", "sandbox", "--path", self.path, "--cwd", self.folder, *command],
            env={**os.environ, **environment}, cwd=ROOT, stdin=subprocess.DEVNULL,
            capture_output=True, encoding="utf-8")

    def assert_accepted(self, exchange, *passphrase, **environment):
        done = self.enter("morvane-connector", "validate", exchange, f"demo-{exchange}-key",
                          f"demo-{exchange}-secret", *passphrase, **environment)
        self.assertEqual((0, ""), (done.returncode, done.stderr), done)
        self.assertIn("\nstatus=valid_trade_ready\n", done.stdout)

    def test_settings_of_curl_do_not_lead_out(self):
        self.write(".curlrc", 'noproxy = "*"\n')
        folders = dict.fromkeys(("HOME", "CURL_HOME", "XDG_CONFIG_HOME"), self.folder)
        # A host that is nowhere else: a way out leads to nobody.
        done = self.enter("curl", "-sS", "http://sandbox.control/", no_proxy="*", NO_PROXY="*",
                          **folders)
        self.assertEqual((0, ""), (done.returncode, done.stderr))

    def test_settings_of_openssl_are_not_read(self):
        log = os.path.join(self.folder, "keys")
        self.write("openssl.cnf", NO_DIGESTS)
        # The sandbox itself runs elsewhere and does not find it.
        self.assert_accepted("bybit", OPENSSL_CONF="openssl.cnf", SSLKEYLOGFILE=log)
        self.assertFalse(os.path.exists(log), "SSLKEYLOGFILE was written.")

    def test_no_code_of_the_callers_runs_in_python(self):
        # The sandbox itself runs elsewhere.
        self.write("sitecustomize.py",
                   f"import os\nif os.getcwd() == {self.folder!r}: open('ran', 'w')\n")
        self.assert_accepted("okx", "demo-passphrase", PYTHONPATH=self.folder)
        self.assertNotIn("ran", os.listdir(self.folder))

    def test_no_settings_of_the_shells_are_read(self):
        ran = self.write("profile", "touch ran\n")
        done = self.enter("bash", "-c", "curl --version | head -n 1", ENV=ran, BASH_ENV=ran,
                          **{"BASH_FUNC_curl%%": "() { touch ran; }"})
        self.assertTrue(done.stdout.startswith("curl "), done)
        self.assertNotIn("ran", os.listdir(self.folder))

    def test_a_command_runs_where_the_caller_stands_and_standard_output_is_its_own(self):
        done = self.enter("pwd")
        self.assertEqual((self.folder + "\n", ""), (done.stdout, done.stderr))

    def test_a_shell_without_settings_here_is_replaced_by_bash_and_that_is_said(self):
        done = self.enter(SHELL="/bin/ksh")
        self.assertEqual(0, done.returncode, done)
        self.assertTrue(done.stderr.startswith(
            "There are no settings for the shell '/bin/ksh': this is bash.\nSandbox: "), done)
        self.assertEqual([], [line for line in done.stderr.splitlines() if len(line) > 80])
