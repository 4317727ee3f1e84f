"""What `cmake --install` and cpack make of the build that the binary under test lies in."""

from __future__ import annotations

import os
import re
import stat
import subprocess
import tarfile
import unittest
from pathlib import Path
from typing import Set

from tests.packaging.helpers import PACKAGING, ROOT, Folder, connector

FILES = {
    "bin/morvane-connector",
    "share/man/man1/morvane-connector.1",
    "share/bash-completion/completions/morvane-connector",
    "share/zsh/site-functions/_morvane-connector",
    "share/fish/vendor_completions.d/morvane-connector.fish",
}
FROM = {
    "share/bash-completion/completions/morvane-connector": "completions/morvane-connector.bash",
    "share/zsh/site-functions/_morvane-connector": "completions/_morvane-connector",
    "share/fish/vendor_completions.d/morvane-connector.fish": "completions/morvane-connector.fish",
}


def expected() -> Set[str]:
    return FILES | {f"share/doc/morvane-connector/{name}"
                    for name in ("README.md", "CHANGELOG.md", "LICENSE")
                    if (ROOT / name).exists()}


def cached(name: str) -> str:
    """A value that this build was configured with."""
    cache = (connector().parent / "CMakeCache.txt").read_text(encoding="utf-8")
    value = re.search(rf"^{re.escape(name)}:\w+=(.*)$", cache, flags=re.MULTILINE)
    assert value, f"{name} is not in the cache of the build"
    return value[1]


class Install(Folder):
    def run_tool(self, *argv: str) -> None:
        done = subprocess.run(argv, env=self.env(), stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        self.assertEqual(done.returncode, 0, done.stdout)

    def install(self) -> Path:
        prefix = self.folder / "prefix"
        self.run_tool(cached("CMAKE_COMMAND"), "--install", str(connector().parent), "--prefix",
                      str(prefix))
        return prefix

    def test_exactly_these_files_are_installed(self):
        prefix = self.install()
        installed = {str(path.relative_to(prefix)) for path in prefix.rglob("*")
                     if not path.is_dir()}
        self.assertEqual(installed, expected())
        for name in installed:
            mode = stat.S_IMODE((prefix / name).stat().st_mode)
            self.assertEqual(mode, 0o755 if name.startswith("bin/") else 0o644, name)
        for name, source in FROM.items():
            self.assertEqual((prefix / name).read_bytes(), (PACKAGING / source).read_bytes())

    def test_the_installed_program_runs(self):
        done = self.run_connector("status", binary=self.install() / "bin" / "morvane-connector")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertTrue(done.stdout.startswith("connector_health=pairing_required\n"), done.stdout)
        self.assertTrue((self.home / ".morvane-connector" / "device_identity.env").exists())

    def test_page_and_formula_carry_the_version_of_the_project(self):
        version = cached("CMAKE_PROJECT_VERSION")
        page = (self.install() / "share/man/man1/morvane-connector.1").read_text(encoding="utf-8")
        self.assertIn(f"This page describes version {version}.", page)
        formula = (connector().parent / "packaging/morvane-connector.rb").read_text(encoding="utf-8")
        self.assertIn(f"/morvane-connector-{version}.tar.gz\"", formula)
        for text in (page, formula):
            self.assertEqual(re.findall(r"@\w*@", text), [])

    def test_the_archive_holds_the_same_files_under_one_folder(self):
        build = connector().parent
        self.run_tool(cached("CMAKE_CPACK_COMMAND"), "-G", "TGZ", "-B", str(self.folder / "out"),
                      "--config", str(build / "CPackConfig.cmake"))
        uname = os.uname()
        name = "-".join(("morvane-connector", cached("CMAKE_PROJECT_VERSION"),
                         uname.sysname.lower(), uname.machine.lower()))
        archives = list((self.folder / "out").glob("*.tar.gz"))
        self.assertEqual([archive.name for archive in archives], [f"{name}.tar.gz"])
        with tarfile.open(archives[0]) as archive:
            packed = {member.name for member in archive.getmembers() if not member.isdir()}
        self.assertEqual(packed, {f"{name}/{file}" for file in expected()})


if __name__ == "__main__":
    unittest.main()
