"""What every end-to-end test stands on: the real binary, the real tools, the sandbox."""

import json
import os
import re
import shlex
import shutil
import sys
import tempfile
import time
import unittest

from sandbox import Sandbox, hosts
from sandbox.home import KEYCHAIN, furnish

CONNECTOR = os.path.abspath(os.environ["MORVANE_CONNECTOR"])
EXCHANGES = tuple(hosts.BY_EXCHANGE)
TRADING = EXCHANGES[:3]
DEVICE = "device:macos:0123456789ab"
IDENTITY = (f"device_id={DEVICE}\nconnector_instance_id=connector:1\ndevice_label=My Mac\n"
            "platform=macos\nowner_wallet={}\npaired={}\n")
PAIRING = ("owner_wallet_address={}\npairing_status={}\nserver_account_ref=account 1\n"
           "latest_bind_token={}\nlatest_claimed_connector_id={}\nplatform_terms_accepted={}\n"
           "wallet_approval_confirmed={}\n")
CREDENTIAL = "exchange={}\napi_key={}\napi_secret={}\npassphrase={}\n"
VALIDATION = re.compile("exchange=(.*)\nstatus=(.*)\ncan_read=(.*)\ncan_trade=(.*)\n"
                        "withdrawal_enabled=(.*)\ncredentials_saved=(.*)\nchecked_at=(.*)\n"
                        "reason=((?s:.*))\n")

# A mount namespace of one's own, in which the folder $1 lies over /usr/bin.
PRIVATE = ["unshare", "--mount", *(["--user", "--map-root-user"] if os.geteuid() else []), "sh",
           "-c", 'mount -t overlay x -o lowerdir="$1":/usr/bin /usr/bin && shift && "$@"', "sh"]


def now():
    return time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())


def document(status, **members):
    """An answer of the connector's own, on its line."""
    return json.dumps({"status": status, **members}, separators=(",", ":")) + "\n"


def error(reason, **more):
    return document("error", reason=reason, **more)


class ConnectorTest(unittest.TestCase):
    """One sandbox per class; a fresh world and HOME per test. Names of files are the root's."""

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
        self.program, self.user = [CONNECTOR], {}

    def connector(self, *arguments, **options):
        return self.box.run([*self.program, *arguments], env=self.env, **self.user, **options)

    def answer(self, *arguments, status=0, **options):
        """The standard output of a command that says nothing else."""
        done = self.connector(*arguments, **options)
        self.assertEqual((status, ""), (done.returncode, done.stderr), done)
        return done.stdout

    def says(self, expected, *arguments, **options):
        self.assertEqual(expected, self.answer(*arguments, **options))

    def body(self, *arguments):
        return json.loads(self.answer(*arguments))["body"]

    def key(self, exchange, kind=""):
        wanted = f"demo-{exchange}-{kind}-key".replace("--", "-")
        found = next(key for key in self.box.keys(exchange) if key.key == wanted)
        return [found.key, found.secret, found.passphrase]

    def validate(self, exchange, *key, **options):
        """What a check (of the demo key, if of no other) prints above its reason, in words behind
        the exit status; and the reason."""
        began = now()
        done = self.connector("validate", exchange, *(key or self.key(exchange)), **options)
        *words, checked_at, reason = VALIDATION.fullmatch(done.stdout).groups()
        self.assertTrue(began <= checked_at <= now() and not done.stderr, done)
        return " ".join([str(done.returncode), *words]), reason

    def assert_accepted(self, exchange, *key, **options):
        accepted = f"0 {exchange} valid_trade_ready true true false true"
        self.assertEqual((accepted, f"live {exchange} auth validated"),
                         self.validate(exchange, *key, **options))

    def assert_refused(self, status, pattern, exchange, *key):
        """A check that grants and stores nothing."""
        words, reason = self.validate(exchange, *key)
        self.assertEqual(f"2 {exchange} {status} false false false false", words, reason)
        self.assertRegex(reason, rf"\A(?s:{pattern})\Z")
        self.assertNotIn(f"vault/{exchange}.vault", self.files())

    def store_keys(self, *exchanges):
        for exchange in exchanges:
            key = self.key(exchange) if exchange in EXCHANGES else "ksp"
            self.write(f"vault/{exchange}.vault", CREDENTIAL.format(exchange, *key))

    def refuse_keychain(self):
        """From here on the keychain, where there is one, takes nothing and has nothing."""
        os.makedirs(os.path.join(self.home, os.path.dirname(KEYCHAIN)), exist_ok=True)
        self.write(os.path.join("..", KEYCHAIN), "damaged")

    def be_bound(self):
        self.write("device_identity.env", IDENTITY.format("0xOwn", 1))
        self.write("pairing.env", PAIRING.format("0xOwn", "bound", "", "", 1, 1))

    def path(self, name):
        return os.path.join(self.root, name)

    def write(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(os.fsencode(text))

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return os.fsdecode(file.read())

    def files(self):
        return sorted(os.path.relpath(os.path.join(folder, name), self.root)
                      for folder, folders, names in os.walk(self.root) for name in folders + names)

    def only_tools(self, *tools, behind="", **scripts):
        folder = tempfile.mkdtemp(dir=self.home)
        scripts.update((tool, f'exec {self.real(tool)} "$@"') for tool in tools)
        for name, script in scripts.items():
            with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
                file.write(script if script.startswith("#!") else f"#!/bin/sh\n{script}\n")
            os.chmod(file.name, 0o755)
        self.env["PATH"] = folder + behind

    def stand_in(self, **scripts):
        self.only_tools(**scripts, behind=os.pathsep + self.env["PATH"])

    def over_usr_bin(self, **scripts):
        """From here on the connector finds these tools at their full paths, too."""
        self.stand_in(**scripts)
        inside = [*PRIVATE, self.env["PATH"].split(os.pathsep)[0]]
        if not shutil.which("unshare") or self.box.run([*inside, "true"]).returncode:
            self.skipTest("this system allows no mount namespace of one's own")
        self.program = [*inside, *self.program]

    def real(self, tool):
        """Where a tool is. A python3 on the PATH may be a script that wants other tools."""
        found = shutil.which(tool, path=self.box.env["PATH"])
        return shlex.quote(sys.executable if tool == "python3" else found)
