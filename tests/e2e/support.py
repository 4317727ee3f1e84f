"""What every end-to-end test stands on: the real binary, the real tools, the sandbox.

Tests run in the project's root.
"""

import functools
import json
import os
import shlex
import shutil
import sys
import tempfile
import time
import unittest
from pathlib import Path
from typing import NamedTuple

from sandbox import Sandbox, hosts
from sandbox.home import KEYCHAIN, furnish

CONNECTOR = os.path.abspath(os.environ["MORVANE_CONNECTOR"])
EXCHANGES = tuple(hosts.BY_EXCHANGE)
DEVICE = "device:macos:0123456789ab"
# The state files as the program writes them. A state's words are filled in by name.
IDENTITY = """\
device_id=device:macos:0123456789ab
connector_instance_id=connector:1
device_label=My Mac
platform=macos
owner_wallet={identity_wallet}
paired={paired}
"""
PAIRING = """\
owner_wallet_address={wallet}
pairing_status={status}
server_account_ref=account 1
latest_bind_token={token}
latest_claimed_connector_id={claimed}
platform_terms_accepted={terms}
wallet_approval_confirmed={approved}
"""
CREDENTIAL = "exchange={}\napi_key={}\napi_secret={}\npassphrase={}\n"
# What validate prints before the time and the reason.
CHECK = """\
exchange={}
status={}
can_read={}
can_trade={}
withdrawal_enabled={}
credentials_saved={}
"""


class State(NamedTuple):
    """What the two state files hold; by itself, what they do before any pairing."""

    wallet: str = ""
    status: str = "unpaired"
    token: str = ""
    claimed: str = ""
    terms: str = "0"
    approved: str = "0"
    identity_wallet: str = ""
    paired: str = "0"

    def identity_text(self):
        return IDENTITY.format(**self._asdict())

    def pairing_text(self):
        return PAIRING.format(**self._asdict())


BOUND = State("0xOwn", "bound", "", "", "1", "1", "0xOwn", "1")


# A mount namespace of one's own, in which the folder $1 lies over /usr/bin.
PRIVATE = ["unshare", "--mount",
           *(["--user", "--map-root-user"] if os.geteuid() else []), "sh", "-c",
           'mount -t overlay x -o lowerdir="$1":/usr/bin /usr/bin && shift && "$@"',
           "sh"]


def each(*rows):
    """Runs the test for each row, whose values it takes, in a fresh world; a failure
    names the row."""
    def decorate(test):
        @functools.wraps(test)
        def run_rows(self):
            for row in rows:
                with self.subTest(row):
                    self.box.reset()
                    test(self, *(row if isinstance(row, tuple) else [row]))
        return run_rows
    return decorate


def now():
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())


def document(status, **members):
    """An answer of the connector's own, on its line."""
    return json.dumps({"status": status, **members}, separators=(",", ":")) + "\n"


def error(reason, **more):
    return document("error", reason=reason, **more)


class ConnectorTest(unittest.TestCase):
    """One sandbox per class; a fresh world and HOME per test. Files are the root's."""

    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.box = Sandbox()
        cls.box.__enter__()
        cls.addClassCleanup(cls.box.__exit__, None, None, None)

    def setUp(self):
        self.box.reset()
        self.home = os.path.realpath(tempfile.mkdtemp(prefix="morvane-test-"))
        self.addCleanup(shutil.rmtree, self.home, ignore_errors=True)
        furnish(self.home)
        self.root = os.path.join(self.home, ".morvane-connector")
        self.env = dict(self.box.env, HOME=self.home, TZ="XXX-9")
        self.program = [CONNECTOR]
        self.last_run = None

    def _formatMessage(self, msg, standardMsg):
        """What every failed assertion says: it tells of the last run, too."""
        said, run = super()._formatMessage(msg, standardMsg), self.last_run
        return said if run is None else (
            f"{said}\n--- {shlex.join(run.args)}\n--- exit status {run.returncode}"
            f"\n--- standard output:\n{run.stdout[:4000]}"
            f"\n--- standard error:\n{run.stderr[:4000]}")

    def run_tool(self, *words, **options):
        """A run of any program, in the sandbox and in HOME."""
        options = {"env": self.env, "cwd": self.home, **options}
        self.last_run = self.box.run(words, **options)
        return self.last_run

    def connector(self, *arguments, **options):
        """A run of the program, whatever it says and however it ends."""
        return self.run_tool(*self.program, *arguments, **options)

    def answer(self, *arguments, status=0, **options):
        """The standard output of a run with that exit status that says nothing else."""
        run = self.connector(*arguments, **options)
        self.assertEqual((status, ""), (run.returncode, run.stderr))
        return run.stdout

    def says(self, expected, *arguments, status=0, error=""):
        """The run prints exactly this, and that as an error."""
        run = self.connector(*arguments)
        self.assertEqual((status, expected, error),
                         (run.returncode, run.stdout, run.stderr))

    def key(self, exchange, kind=""):
        """Key, secret and passphrase of the sandbox's demo key, or of a kind of it."""
        name = f"demo-{exchange}-{kind}-key" if kind else f"demo-{exchange}-key"
        [found] = [one for one in self.box.exchanges[exchange].keys if one.key == name]
        return [found.key, found.secret, found.passphrase]

    def validate(self, exchange, *key, status=0):
        """What a check of a key (or the demo's) prints before the time; the reason."""
        began = now()
        key = key or self.key(exchange)
        printed = self.answer("validate", exchange, *key, status=status)
        shown, _, end = printed.partition("checked_at=")
        checked_at, _, reason = end.partition("\nreason=")
        self.assertTrue(began <= checked_at <= now(), "The time is wrong.")
        return shown, reason.removesuffix("\n")

    def assert_accepted(self, exchange, *key):
        """The check accepts the key, and it is kept."""
        shown, reason = self.validate(exchange, *key)
        expected = (exchange, "valid_trade_ready", "true", "true", "false", "true")
        self.assertEqual(CHECK.format(*expected), shown)
        self.assertEqual(f"live {exchange} auth validated", reason)

    def assert_refused(self, status, pattern, exchange, *key):
        """The check ends so, for a reason of that form, and the key is not kept."""
        shown, reason = self.validate(exchange, *key, status=2)
        expected = (exchange, status, "false", "false", "false", "false")
        self.assertEqual(CHECK.format(*expected), shown)
        self.assertRegex(reason, rf"\A(?s:{pattern})\Z")
        self.answer("load-credentials", exchange, status=2)

    def store_keys(self, *exchanges):
        """Puts a key in the file of each: the demo key, or for a strange name any."""
        for exchange in exchanges:
            key = self.key(exchange) if exchange in EXCHANGES else ["key", "secret", ""]
            self.write(f"vault/{exchange}.vault", CREDENTIAL.format(exchange, *key))

    def refuse_keychain(self):
        """From here on a keychain, if there is one, takes nothing, and asks nobody."""
        folder = os.path.join(self.home, os.path.dirname(KEYCHAIN))
        if os.path.isdir(folder):
            os.chmod(folder, 0o500)
            self.addCleanup(os.chmod, folder, 0o700)
            if os.geteuid() == 0:  # whom the mode of a file would not stop
                self.program = [shutil.which("setpriv"), "--inh-caps=-all",
                                "--bounding-set=-all", CONNECTOR]

    def be(self, state):
        """Writes both state files."""
        self.write("device_identity.env", state.identity_text())
        self.write("pairing.env", state.pairing_text())

    def path(self, name):
        """Of a file below the application root."""
        return os.path.join(self.root, name)

    def write(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        Path(self.path(name)).write_bytes(os.fsencode(text))

    def read(self, name):
        return os.fsdecode(Path(self.path(name)).read_bytes())

    def files(self):
        """Every file and folder below the application root."""
        root = Path(self.root)
        return sorted(str(one.relative_to(root)) for one in root.rglob("*"))

    def only_tools(self, *tools, behind="", **scripts):
        """From here on the PATH leads to these tools and scripts, and then `behind`.

        A script runs in sh unless its first line names something else."""
        folder = tempfile.mkdtemp(dir=self.home)
        for tool in tools:
            scripts[tool] = f'exec {self.real(tool)} "$@"'
        for name, script in scripts.items():
            first_line = "" if script.startswith("#!") else "#!/bin/sh\n"
            Path(folder, name).write_text(f"{first_line}{script}\n", encoding="utf-8")
            Path(folder, name).chmod(0o755)
        self.env["PATH"] = folder + behind

    def stand_in(self, **scripts):
        """From here on these scripts come before the real tools."""
        self.only_tools(**scripts, behind=os.pathsep + self.env["PATH"])

    def over_usr_bin(self, **scripts):
        """From here on the connector finds these tools at their full paths, too."""
        self.stand_in(**scripts)
        inside = [*PRIVATE, self.env["PATH"].split(os.pathsep)[0]]
        if not shutil.which("unshare") or self.box.run([*inside, "true"]).returncode:
            self.skipTest("this system allows no mount namespace of one's own")
        self.program = [*inside, CONNECTOR]

    def real(self, tool):
        """Where a tool is. A python3 on the PATH may be a script that wants others."""
        found = shutil.which(tool, path=self.box.env["PATH"])
        return shlex.quote(sys.executable if tool == "python3" else found)
