"""What every end-to-end test stands on: the real binary, the real tools, the sandbox."""

from __future__ import annotations

import json
import os
import pwd
import re
import shutil
import stat
import subprocess
import tempfile
import unittest
from typing import Any, Dict, List, Optional, Tuple

from sandbox import Sandbox

CONNECTOR = os.path.abspath(os.environ.get("MORVANE_CONNECTOR", "build/release/morvane-connector"))
PASSPHRASES = {"okx": "demo-passphrase", "kucoin": "demo-passphrase", "bitget": "demo-passphrase"}

VALIDATION = re.compile(
    r"exchange=(?P<exchange>.*)\nstatus=(?P<status>.*)\ncan_read=(?P<can_read>true|false)\n"
    r"can_trade=(?P<can_trade>true|false)\nwithdrawal_enabled=(?P<withdrawal>true|false)\n"
    r"credentials_saved=(?P<saved>true|false)\n"
    r"checked_at=(?P<checked_at>\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)\nreason=(?P<reason>(?s:.*))\n")


def demo_key(exchange: str, **changes: str) -> List[str]:
    """The arguments that check the exchange's demo key; key, secret and passphrase can differ."""
    given = {"key": f"demo-{exchange}-key", "secret": f"demo-{exchange}-secret",
             "passphrase": PASSPHRASES.get(exchange, ""), **changes}
    return [exchange, given["key"], given["secret"], given["passphrase"]]


class ConnectorTest(unittest.TestCase):
    """One sandbox per class; a fresh HOME, and a world without faults, per test."""

    box: Sandbox

    @classmethod
    def setUpClass(cls) -> None:
        cls.box = cls.enter_sandbox()

    @classmethod
    def enter_sandbox(cls) -> Sandbox:
        box = Sandbox()
        box.__enter__()
        cls.addClassCleanup(box.__exit__, None, None, None)
        return box

    def setUp(self) -> None:
        self.home = os.path.realpath(tempfile.mkdtemp(prefix="morvane-test-"))
        self.addCleanup(shutil.rmtree, self.home, ignore_errors=True)
        self.root = os.path.join(self.home, ".morvane-connector")
        self.env: Dict[str, str] = dict(self.box.env, HOME=self.home)
        self.env.pop("PYTHONPATH", None)  # ours, not the owner's
        self.program = CONNECTOR
        self.user: Dict[str, Any] = {}
        self.box.requests.clear()
        self.box.faults.clear()
        self.box.clock_offset_ms = 0

    def connector(self, *arguments: str, **options) -> "subprocess.CompletedProcess[str]":
        """Runs one command. Output as text, bytes that are not UTF-8 as surrogates."""
        options.setdefault("env", self.env)
        return self.box.run([self.program, *arguments], **self.user, **options)

    def answer(self, *arguments: str, **options) -> str:
        """The standard output of a command that ran; its JSON as it stands, unparsed."""
        done = self.connector(*arguments, **options)
        self.assertEqual((0, ""), (done.returncode, done.stderr), arguments)
        return done.stdout

    def document(self, *arguments: str, **options) -> Any:
        """The JSON that a command printed, parsed."""
        return json.loads(self.answer(*arguments, **options))

    def body(self, *arguments: str, **options) -> Any:
        """The exchange's own document, out of an answer of status ok."""
        document = self.document(*arguments, **options)
        self.assertEqual(("ok", arguments[1]), (document["status"], document["exchange"]))
        return document["body"]

    def sent(self) -> List[Tuple[str, str, str]]:
        """Method, host and target of every request that a host received."""
        return [(request.method, request.host, request.target) for request in self.box.requests]

    def values(self, done: "subprocess.CompletedProcess[str]") -> Dict[str, str]:
        """The key=value lines of standard output."""
        return dict(line.split("=", 1) for line in done.stdout.splitlines())

    def store_key(self, exchange: str, key: Optional[str] = None, secret: Optional[str] = None,
                  passphrase: Optional[str] = None) -> None:
        """Puts a credential where the vault keeps it without a keychain."""
        if passphrase is None:
            passphrase = PASSPHRASES.get(exchange, "")
        self.write(f"vault/{exchange}.vault",
                   f"exchange={exchange}\n"
                   f"api_key={key or f'demo-{exchange}-key'}\n"
                   f"api_secret={secret or f'demo-{exchange}-secret'}\n"
                   f"passphrase={passphrase}\n")

    def write(self, name: str, text: str) -> None:
        """Writes a file below the application root."""
        path = os.path.join(self.root, name)
        os.makedirs(os.path.dirname(path), mode=0o700, exist_ok=True)
        with open(path, "w", encoding="utf-8", errors="surrogateescape", newline="") as file:
            file.write(text)

    def read(self, name: str) -> str:
        path = os.path.join(self.root, name)
        with open(path, encoding="utf-8", errors="surrogateescape", newline="") as file:
            return file.read()

    def record(self, name: str) -> Dict[str, str]:
        """A state file's lines."""
        return dict(line.split("=", 1) for line in self.read(name).splitlines())

    def files(self) -> List[str]:
        """Every file and folder below the application root, relative, sorted."""
        found = []
        for folder, folders, names in os.walk(self.root):
            found += [os.path.relpath(os.path.join(folder, name), self.root)
                      for name in folders + names]
        return sorted(found)

    def mode(self, name: str) -> int:
        return stat.S_IMODE(os.stat(os.path.join(self.root, name)).st_mode)

    def stand_in(self, name: str, script: str) -> str:
        """Puts an executable `script` first on the PATH as `name`; returns its folder."""
        folder = os.path.join(self.home, "bin")
        os.makedirs(folder, exist_ok=True)
        path = os.path.join(folder, name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(script)
        os.chmod(path, 0o755)
        if not self.env["PATH"].startswith(folder + os.pathsep):
            self.env["PATH"] = folder + os.pathsep + self.env["PATH"]
        return folder

    def only_tools(self, *tools: str) -> None:
        """Leaves just these tools on the PATH."""
        folder = tempfile.mkdtemp(prefix="tools-", dir=self.home)
        for tool in tools:
            path = shutil.which(tool, path=self.box.env["PATH"])
            self.assertIsNotNone(path, tool)
            # Not a link: some tools look at the name or the place that they were called by.
            script = os.path.join(folder, tool)
            with open(script, "w", encoding="utf-8") as file:
                file.write(f'#!/bin/sh\nexec {path} "$@"\n')
            os.chmod(script, 0o755)
        self.env["PATH"] = folder

    def recording_curl(self, times_out_at: str = "") -> str:
        """Puts a curl first on the PATH that notes its command lines in the file returned.

        It is the real one, but where --max-time is `times_out_at` it ends as a curl whose time
        is up does.
        """
        log = os.path.join(self.home, "curl.log")
        curl = shutil.which("curl", path=self.box.env["PATH"])
        self.stand_in("curl", f"""#!/bin/sh
printf '%s\\n' "$*" >> '{log}'
case " $* " in *' --max-time {times_out_at} '*)
  echo 'curl: (28) Operation timed out after {times_out_at}001 milliseconds' >&2
  exit 28 ;;
esac
exec {curl} "$@"
""")
        return log

    def as_plain_user(self) -> None:
        """From here on file permissions count, also when root runs the tests."""
        self.addCleanup(lambda: [os.chmod(folder, 0o700) for folder, _, _ in os.walk(self.root)])
        if os.geteuid() != 0:
            return
        nobody = pwd.getpwnam("nobody")
        self.user = {"user": nobody.pw_uid, "group": nobody.pw_gid, "extra_groups": []}
        # What lies in a folder of ours alone would be out of reach.
        self.program = shutil.copy(CONNECTOR, self.home)
        self.env["CURL_CA_BUNDLE"] = shutil.copy(self.env["CURL_CA_BUNDLE"], self.home)
        for folder, _, names in os.walk(self.home):
            for path in [folder] + [os.path.join(folder, name) for name in names]:
                os.chown(path, nobody.pw_uid, nobody.pw_gid)


class ValidationTest(ConnectorTest):
    """For the live checks of keys."""

    def validate(self, *arguments: str, **options) -> Dict[str, Any]:
        """The eight lines by name, the reason with all its lines; exit status and stderr."""
        done = self.connector("validate", *arguments, **options)
        lines = VALIDATION.fullmatch(done.stdout)
        self.assertIsNotNone(lines, done)
        return dict(lines.groupdict(), exit=done.returncode, stderr=done.stderr)

    def assert_refused(self, result: Dict[str, Any], status: str, reason: str) -> None:
        """Nothing granted, nothing stored; `reason` is a pattern for the whole of it."""
        self.assertEqual((2, status, "false", "false", "false", "false"),
                         (result["exit"], result["status"], result["can_read"],
                          result["can_trade"], result["withdrawal"], result["saved"]),
                         result["reason"])
        self.assertRegex(result["reason"], r"\A(?:" + reason + r")\Z")
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())
