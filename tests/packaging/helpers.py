"""What the tests of this directory share."""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path
from typing import Dict, List, Optional

ROOT = Path(__file__).resolve().parents[2]
PACKAGING = ROOT / "packaging"


def connector() -> Path:
    """The binary under test."""
    return Path(os.environ["MORVANE_CONNECTOR"]).resolve()


def need(program: str) -> str:
    """The path of a program that no machine has to have; without it the test is skipped.

    MORVANE_REQUIRE_SHELLS=1 turns the skip into a failure.
    """
    path = shutil.which(program)
    if path is not None:
        return path
    message = f"{program} is not installed, so nothing was tried with it"
    if os.environ.get("MORVANE_REQUIRE_SHELLS") == "1":
        raise AssertionError(message)
    raise unittest.SkipTest(message)


class Folder(unittest.TestCase):
    """A test with a folder of its own and a HOME in it."""

    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="morvane-packaging-")).resolve()
        self.addCleanup(shutil.rmtree, self.folder)
        self.home = self.folder / "home"
        self.home.mkdir()

    def stand_in(self, name: str, script: str) -> None:
        """A program that comes first on the PATH of run()."""
        tools = self.folder / "tools"
        tools.mkdir(exist_ok=True)
        (tools / name).write_text("#!/bin/sh\n" + script, encoding="utf-8")
        (tools / name).chmod(0o755)

    def env(self) -> Dict[str, str]:
        path = f"{self.folder / 'tools'}{os.pathsep}{os.environ['PATH']}"
        return {**os.environ, "HOME": str(self.home), "PATH": path}

    def run_connector(self, *arguments: str,
                      binary: Optional[Path] = None) -> "subprocess.CompletedProcess[str]":
        """Runs it without a network: curl and open are stand-ins that fail."""
        self.stand_in("curl", "exit 7\n")
        self.stand_in("open", "exit 1\n")
        return subprocess.run([str(binary or connector()), *arguments], env=self.env(),
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)

    def commands(self) -> List[str]:
        """The commands, as the program's own usage lists them."""
        usage = self.run_connector().stderr
        return usage[usage.index("<") + 1:usage.index(">")].split("|")
