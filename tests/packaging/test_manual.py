"""The manual page against the program: commands, exit statuses, files, environment."""

from __future__ import annotations

import re
import shlex
import signal
import stat
import subprocess
import unittest
from typing import Dict, List

from tests.packaging.helpers import PACKAGING, ROOT, Folder, need

PAGE = PACKAGING / "morvane-connector.1.in"


def sections() -> Dict[str, str]:
    parts = re.split(r"^\.Sh (.*)\n", PAGE.read_text(encoding="utf-8"), flags=re.MULTILINE)
    return dict(zip(parts[1::2], parts[2::2]))


def described_commands() -> List[str]:
    """Each command as a usage text would show it, in the order of the page."""
    commands = []
    for item in re.findall(r"^\.It Ic (.*)$", sections()["DESCRIPTION"], flags=re.MULTILINE):
        name, *words = item.split()
        shape = "<%s>"
        for word in words:
            if word == "Op":
                shape = "[%s]"
            elif word != "Ar":
                name += " " + shape % word
        commands.append(name)
    return commands


class Manual(Folder):
    def test_every_command_is_described_with_its_arguments(self):
        expected = []
        for command in self.commands():
            done = self.run_connector(command)
            usage = "usage: morvane-connector "
            # A command without arguments has run, without a network.
            expected.append(done.stderr.strip()[len(usage):] if done.stderr.startswith(usage)
                            else command)
            self.assertEqual(done.returncode, 1 if done.stderr else 0, command)
        self.assertEqual(sorted(described_commands()), sorted(expected))

    def test_every_exit_status_is_described(self):
        section = sections()["EXIT STATUS"]
        described = re.findall(r"^\.It (.*)$", section, flags=re.MULTILINE)
        seen = {self.run_connector(*arguments).returncode for arguments in (
            ["status"], ["balance", "bybit"], ["load-credentials", "nothing"],
            ["validate", "nothing", "key", "secret"], [], ["nothing"], ["balance"])}
        self.assertEqual(sorted(map(str, seen)), described)

    def test_the_abnormal_end_is_described(self):
        endings = {self.run_connector(*arguments).returncode for arguments in (
            ["funding", "bybit", "BTC_USDT", "x"], ["funding", "bybit", "BTC_USDT", "4294967296"],
            ["place-open", "bybit", "BTC_USDT", "buy", "1", "1", "x"])}
        self.home = self.folder / "a file"
        self.home.touch()
        endings.add(self.run_connector("status").returncode)
        self.assertEqual(endings, {-signal.SIGABRT})
        self.assertIn("SIGABRT", sections()["EXIT STATUS"])
        self.assertIn(f"status {128 + signal.SIGABRT}", sections()["EXIT STATUS"])

    def test_every_file_is_described_with_its_mode(self):
        self.run_connector("set-wallet", "0xabc")
        root = self.home / ".morvane-connector"
        items = {re.sub(r" Ns Ar (\w+) Ns Pa ", r"<\1>", name): text for name, text in re.findall(
            r"^\.It Pa ~/\.morvane-connector/(.*)\n((?:(?!\.It|\.El).*\n)*)",
            sections()["FILES"], flags=re.MULTILINE)}
        made = {"": root, **{f"{path.relative_to(root)}{'/' if path.is_dir() else ''}": path
                             for path in root.rglob("*")}}
        self.assertEqual(set(made), {"", "device_identity.env", "pairing.env", "vault/",
                                     "updates/"})
        for name, path in made.items():
            self.assertIn(f"{stat.S_IMODE(path.stat().st_mode):04o}",
                          items[name].replace("\n", " "), name)
        # What these runs do not make.
        self.assertEqual(set(items) - set(made), {
            "vault/vault_index.txt", "vault/<exchange>.vault",
            "updates/Morvane-Connector-<version>.dmg", "updates/Morvane-Connector-latest.dmg"})

    def test_every_variable_of_the_environment_is_described(self):
        used = set()
        for source in (ROOT / "src").rglob("*.[ch]pp"):
            used.update(re.findall(r'getenv\("(\w+)"\)', source.read_text(encoding="utf-8")))
        described = re.findall(r"^\.It Ev (\w+)$", sections()["ENVIRONMENT"], flags=re.MULTILINE)
        self.assertEqual(sorted(used), sorted(described))

    def test_every_example_is_a_command_with_enough_arguments(self):
        lines = re.findall(r"^\$ (morvane-connector .*?) ?\|?$", sections()["EXAMPLES"],
                           flags=re.MULTILINE)
        self.assertGreater(len(lines), 5)
        usages = {usage.split()[0]: usage for usage in described_commands()}
        for line in lines:
            _, command, *arguments = shlex.split(line)
            self.assertIn(command, usages)
            self.assertGreaterEqual(len(arguments), usages[command].count("<"), line)
            self.assertLessEqual(len(arguments), len(usages[command].split()) - 1, line)

    def test_mandoc_finds_nothing_to_mend(self):
        done = subprocess.run([need("mandoc"), "-T", "lint", str(PAGE)], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_mandoc_would_find_a_mistake(self):
        page = self.folder / "page.1"
        page.write_text(PAGE.read_text(encoding="utf-8").replace(".El", ".Ell", 1),
                        encoding="utf-8")
        done = subprocess.run([need("mandoc"), "-T", "lint", str(page)], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False)
        self.assertIn("ERROR", done.stdout)


if __name__ == "__main__":
    unittest.main()
