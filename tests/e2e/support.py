"""What every end-to-end test stands on: the real binary, the real tools, the sandbox."""

import json
import os
import pwd
import re
import shutil
import tempfile
import unittest

from sandbox import Sandbox
from sandbox.downloads import IMAGE_PATH, IMAGE_SIZE, default_manifest, image_of_size

CONNECTOR = os.path.abspath(os.environ.get("MORVANE_CONNECTOR", "build/release/morvane-connector"))
IMAGE = image_of_size(IMAGE_SIZE)
PASSPHRASES = {"okx": "demo-passphrase", "kucoin": "demo-passphrase", "bitget": "demo-passphrase"}
VALIDATION = re.compile(
    r"exchange=(?P<exchange>.*)\nstatus=(?P<status>.*)\ncan_read=(?P<can_read>true|false)\n"
    r"can_trade=(?P<can_trade>true|false)\nwithdrawal_enabled=(?P<withdrawal>true|false)\n"
    r"credentials_saved=(?P<saved>true|false)\n"
    r"checked_at=(?P<checked_at>\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)\nreason=(?P<reason>(?s:.*))\n")


def demo_key(exchange, **changes):
    """The arguments that check the exchange's demo key; key, secret and passphrase can differ."""
    given = {"key": f"demo-{exchange}-key", "secret": f"demo-{exchange}-secret",
             "passphrase": PASSPHRASES.get(exchange, ""), **changes}
    return [exchange, given["key"], given["secret"], given["passphrase"]]


class ConnectorTest(unittest.TestCase):
    """One sandbox per class; a fresh HOME, and a world without faults, per test."""

    @classmethod
    def setUpClass(cls):
        cls.box = Sandbox()
        cls.box.__enter__()
        cls.addClassCleanup(cls.box.__exit__, None, None, None)

    def setUp(self):
        self.home = os.path.realpath(tempfile.mkdtemp(prefix="morvane-test-"))
        self.addCleanup(shutil.rmtree, self.home, ignore_errors=True)
        self.root = os.path.join(self.home, ".morvane-connector")
        self.env = dict(self.box.env, HOME=self.home)
        self.env.pop("PYTHONPATH", None)  # ours, not the owner's
        self.program, self.user, self.ran = CONNECTOR, {}, ()
        relay, downloads = self.box.relay, self.box.downloads
        for memory in (self.box.requests, self.box.faults, relay.script, relay.bindings,
                       relay.spent, downloads.redirects):
            memory.clear()
        downloads.manifest, downloads.images = default_manifest(), {IMAGE_PATH: IMAGE}
        self.box.clock_offset_ms = 0

    def _formatMessage(self, msg, standardMsg):
        return f"{super()._formatMessage(msg, standardMsg)}\nafter {ascii(self.ran)}"

    def connector(self, *arguments, **options):
        """Runs one command. Output as text, bytes that are not UTF-8 as surrogates."""
        options.setdefault("env", self.env)
        self.ran = arguments
        return self.box.run([self.program, *arguments], **self.user, **options)

    def assert_run(self, expected, *arguments, **options):
        """Exit status and standard output of a command that prints nothing else."""
        done = self.connector(*arguments, **options)
        self.assertEqual((*expected, ""), (done.returncode, done.stdout, done.stderr))

    def answer(self, *arguments, **options):
        """The standard output of a command that ran; its JSON as it stands, unparsed."""
        done = self.connector(*arguments, **options)
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        return done.stdout

    def body(self, *arguments, **options):
        """The exchange's own document, out of an answer of status ok."""
        document = json.loads(self.answer(*arguments, **options))
        self.assertEqual(("ok", arguments[1]), (document["status"], document["exchange"]))
        return document["body"]

    def validate(self, *arguments, **options):
        """The eight lines by name, the reason with all its lines; exit status and stderr."""
        done = self.connector("validate", *arguments, **options)
        lines = VALIDATION.fullmatch(done.stdout)
        self.assertIsNotNone(lines, done)
        return dict(lines.groupdict(), exit=done.returncode, stderr=done.stderr)

    def assert_refused(self, result, status, reason):
        """Nothing granted, nothing stored; `reason` is a pattern for the whole of it."""
        self.assertEqual((2, status, "false", "false", "false", "false"),
                         (result["exit"], result["status"], result["can_read"],
                          result["can_trade"], result["withdrawal"], result["saved"]),
                         result["reason"])
        self.assertRegex(result["reason"], r"\A(?:" + reason + r")\Z")
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())

    def sent(self):
        """Method, host and target of every request that a host received."""
        return [(request.method, request.host, request.target) for request in self.box.requests]

    def store_key(self, exchange, key="", secret="", passphrase=None):
        """Puts a credential where the vault keeps it without a keychain."""
        _, demo, demo_secret, demo_passphrase = demo_key(exchange)
        self.write(f"vault/{exchange}.vault", f"exchange={exchange}\napi_key={key or demo}\n"
                   f"api_secret={secret or demo_secret}\n"
                   f"passphrase={demo_passphrase if passphrase is None else passphrase}\n")

    def path(self, name):
        """Of a file below the application root, as all names are here."""
        return os.path.join(self.root, name)

    def write(self, name, text):
        os.makedirs(os.path.dirname(self.path(name)), mode=0o700, exist_ok=True)
        with open(self.path(name), "wb") as file:
            file.write(text.encode("utf-8", "surrogateescape"))

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read().decode("utf-8", "surrogateescape")

    def record(self, name):
        """A state file's lines."""
        return dict(line.split("=", 1) for line in self.read(name).splitlines())

    def files(self):
        """Every file and folder, sorted."""
        return sorted(os.path.relpath(os.path.join(folder, name), self.root)
                      for folder, folders, names in os.walk(self.root) for name in folders + names)

    def stand_in(self, name, script):
        """Puts an executable first on the PATH."""
        folder = os.path.join(self.home, "bin")
        os.makedirs(folder, exist_ok=True)
        self._write_script(os.path.join(folder, name), script)
        if not self.env["PATH"].startswith(folder + os.pathsep):
            self.env["PATH"] = folder + os.pathsep + self.env["PATH"]

    def only_tools(self, *tools):
        """Leaves just these tools on the PATH."""
        folder = tempfile.mkdtemp(prefix="tools-", dir=self.home)
        for tool in tools:
            # Not a link: some tools look at the name or the place that they were called by.
            path = shutil.which(tool, path=self.box.env["PATH"])
            self._write_script(os.path.join(folder, tool), f'exec {path} "$@"\n')
        self.env["PATH"] = folder

    def _write_script(self, path, script):
        with open(path, "w", encoding="utf-8") as file:
            file.write("#!/bin/sh\n" + script)
        os.chmod(path, 0o755)

    def recording_curl(self, times_out_at=""):
        """Puts a curl first on the PATH that notes its command lines in the file returned.

        It is the real one, but where --max-time fits `times_out_at` it ends as a curl whose time
        is up does.
        """
        log = os.path.join(self.home, "curl.log")
        self.stand_in("curl", f"""printf '%s\\n' "$*" >> '{log}'
case " $* " in *" --max-time "{times_out_at}" "*)
  echo 'curl: (28) Operation timed out' >&2
  exit 28 ;;
esac
exec {shutil.which("curl", path=self.box.env["PATH"])} "$@"
""")
        return log

    def as_plain_user(self):
        """From here on file permissions count, also when root runs the tests."""
        self.addCleanup(lambda: [os.chmod(folder, 0o700) for folder, _, _ in os.walk(self.root)])
        if os.geteuid() != 0:
            return
        self.env["GCOV_PREFIX"] = self.home  # where an instrumented binary may write its counts
        nobody = pwd.getpwnam("nobody")
        self.user = {"user": nobody.pw_uid, "group": nobody.pw_gid, "extra_groups": []}
        # What lies in a folder of ours alone would be out of reach.
        self.program = shutil.copy(CONNECTOR, self.home)
        self.env["CURL_CA_BUNDLE"] = shutil.copy(self.env["CURL_CA_BUNDLE"], self.home)
        for folder, _, names in os.walk(self.home):
            for path in [folder] + [os.path.join(folder, name) for name in names]:
                os.chown(path, nobody.pw_uid, nobody.pw_gid)
