"""What the tests of this directory share."""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
PACKAGING = ROOT / "packaging"


# A program that no machine has to have: without it the test is skipped, or fails where
# MORVANE_REQUIRE_SHELLS=1.
def need(program: str) -> None:
    if not shutil.which(program):
        required = os.environ.get("MORVANE_REQUIRE_SHELLS") == "1"
        raise (AssertionError if required else unittest.SkipTest)(f"{program} is not installed")


# A test with a folder of its own, a HOME in it, and tools that come first on the PATH.
class Folder(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="morvane-packaging-")).resolve()
        self.addCleanup(shutil.rmtree, self.folder)
        self.home = self.folder / "home"
        self.tools = self.folder / "tools"
        self.home.mkdir()
        self.tools.mkdir()
        # No network, and no window on a Mac.
        self.stand_in("curl", "exit 7")
        self.stand_in("open", "exit 1")
        self.binary = Path(os.environ["MORVANE_CONNECTOR"]).resolve()

    def stand_in(self, name: str, script: str) -> None:
        (self.tools / name).write_text(f"#!/bin/sh\n{script}\n", encoding="utf-8")
        (self.tools / name).chmod(0o755)

    def env(self) -> dict[str, str]:
        path = f"{self.tools}{os.pathsep}{os.environ['PATH']}"
        own = ["HOME", "ZDOTDIR", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"]
        return {**os.environ, **dict.fromkeys(own, str(self.home)), "PATH": path}

    def run_tool(self, *argv: object) -> "subprocess.CompletedProcess[str]":
        return subprocess.run([str(word) for word in argv], env=self.env(), cwd=self.folder,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)

    # The commands, as the program's own usage lists them.
    def commands(self) -> list[str]:
        usage = self.run_tool(self.binary).stderr
        return usage[usage.index("<") + 1:usage.index(">")].split("|")
