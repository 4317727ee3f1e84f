"""What every end-to-end test stands on: the real binary, the real tools, the sandbox."""

from __future__ import annotations

import os
import shutil
import stat
import subprocess
import tempfile
import unittest
from typing import Dict, List, Optional

from sandbox import Sandbox

CONNECTOR = os.path.abspath(os.environ.get("MORVANE_CONNECTOR", "build/release/morvane-connector"))
PASSPHRASES = {"okx": "demo-passphrase", "kucoin": "demo-passphrase", "bitget": "demo-passphrase"}


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
        self.box.requests.clear()
        self.box.faults.clear()
        self.box.clock_offset_ms = 0

    def connector(self, *arguments: str, **options) -> "subprocess.CompletedProcess[str]":
        """Runs one command. Output as text, bytes that are not UTF-8 as surrogates."""
        options.setdefault("env", self.env)
        return self.box.run([CONNECTOR, *arguments], **options)

    def answer(self, *arguments: str, **options) -> str:
        """The standard output of a command that ran; its JSON as it stands, unparsed."""
        done = self.connector(*arguments, **options)
        self.assertEqual((0, ""), (done.returncode, done.stderr), arguments)
        return done.stdout

    def values(self, done: "subprocess.CompletedProcess[str]") -> Dict[str, str]:
        """The key=value lines of standard output."""
        return dict(line.split("=", 1) for line in done.stdout.splitlines())

    def store_key(self, exchange: str, key: Optional[str] = None, secret: Optional[str] = None,
                  passphrase: Optional[str] = None) -> None:
        """Puts a credential where the vault keeps it without a keychain."""
        self.write(f"vault/{exchange}.vault",
                   f"exchange={exchange}\n"
                   f"api_key={key or f'demo-{exchange}-key'}\n"
                   f"api_secret={secret or f'demo-{exchange}-secret'}\n"
                   f"passphrase={PASSPHRASES.get(exchange, '') if passphrase is None else passphrase}\n")

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
            path = shutil.which(tool, path=self.env["PATH"])
            self.assertIsNotNone(path, tool)
            # Not a link: some tools look at the name or the place that they were called by.
            script = os.path.join(folder, tool)
            with open(script, "w", encoding="utf-8") as file:
                file.write(f'#!/bin/sh\nexec {path} "$@"\n')
            os.chmod(script, 0o755)
        self.env["PATH"] = folder
