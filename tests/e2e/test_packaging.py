"""What lies around the program says what the program says: pages and completions."""

import os
import re
import shlex
import shutil
from pathlib import Path

from support import CONNECTOR, EXCHANGES, ConnectorTest, each

MANUAL = "share/man/man1/morvane-connector.1"
COMPLETIONS = {"bash": "share/bash-completion/completions/morvane-connector",
               "zsh": "share/zsh/site-functions/_morvane-connector",
               "fish": "share/fish/vendor_completions.d/morvane-connector.fish"}


class PackagingTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        build = os.path.dirname(CONNECTOR)
        self.run_tool("cmake", "--install", build, "--prefix", self.home, check=True)
        self.program = [os.path.join(self.home, "bin/morvane-connector")]

    def commands(self):
        """Those that the program itself names."""
        return re.search("<(.*)>", self.connector().stderr)[1].split("|")


class Pages(PackagingTest):
    def usages(self):
        """How each command is called, as the program says."""
        commands = self.commands()
        said = [self.connector(command).stderr for command in commands]
        return sorted(usage.strip().replace("usage: morvane-connector ", "") or command
                      for usage, command in zip(said, commands))

    def test_the_manual_has_every_command_with_its_arguments(self):
        manual = Path(self.home, MANUAL).read_text(encoding="utf-8")
        items = re.findall(r"^\.It Ic (.*)", manual, re.MULTILINE)
        # An item is: funding Ar exchange symbol Op Ar lookback_minutes
        found = sorted(re.sub("Op |Ar ", "", item) for item in items)
        expected = [re.sub(r"[][<>]", "", usage) for usage in self.usages()]
        self.assertEqual(expected, found, "the program, the manual")

    def test_the_readme_has_every_command_as_the_program_says_it(self):
        readme = Path("README.md").read_text(encoding="utf-8")
        below = readme.partition("\n| command | does | answers |\n")[2]
        # A row is: | `balance <exchange>` | what it does | what it answers |
        found = re.findall("^[|] `(.*?)`", below.partition("\n\n")[0], re.MULTILINE)
        self.assertEqual(self.usages(), sorted(found), "the program, the README")


ALL = "every command"
KEPT = " ".join(EXCHANGES) + " my_own"  # what lies in the vault, too

# What is offered where a line ends; for a secret or a number nothing is.
OFFERS = {
    "": ALL,
    "place-": "place-open place-close",
    "validate ": KEPT,
    "validate bybit ": "",
    "delete-credentials ": KEPT,
    "balance b": "bybit bingx bitget",
    "order-status okx B": "BTC_USDT",
    "close-report ": "bybit okx gate",  # those that take orders; a new one is added here
    "place-open okx BTC_USDT ": "buy sell",
}

# Programs that print what is offered. What zsh does itself, selecting, is done here.
ASK = {
    "bash": """
source {completion}
call=$(complete -p morvane-connector); call=${{call#*-F }}
COMP_WORDS=({words}) COMP_CWORD=$(({count} - 1)) COMPREPLY=(left over)
${{call% *}}
printf '%s\\n' ${{COMPREPLY[@]-}}""",
    "zsh": """
_describe() {{
  all=(${{(@P)4}})
  all=(${{all%%:*}})
  print -l ${{(M)all:#$words[CURRENT]*}}
}}
_message() {{ print -r -- "$2" }}
words=({words}) CURRENT={count}
source {completion}; true""",
    "fish": "source {completion}; complete -C {line}",
}


class Completion(PackagingTest):
    def setUp(self):
        super().setUp()
        self.store_keys("okx", "my_own")

    def ask(self, shell, line):
        """The lines that the completion of the shell offers at the end of that line."""
        if not shutil.which(shell) and os.environ.get("MORVANE_REQUIRE_SHELLS") != "1":
            self.skipTest(f"{shell} is not installed")
        words = ["morvane-connector", *line.split(" ")]
        program = ASK[shell].format(
            words=shlex.join(words), count=len(words), line=shlex.quote(" ".join(words)),
            completion=COMPLETIONS[shell])
        return self.run_tool(shell, "-c", program, check=True).stdout.splitlines()

    @each(*((shell, line) for shell in COMPLETIONS for line in OFFERS))
    def test_each_shell_offers_what_can_be_typed(self, shell, line):
        # fish describes a word behind a tabulator.
        offered = [one.partition("\t")[0] for one in self.ask(shell, line)]
        expected = self.commands() if OFFERS[line] == ALL else OFFERS[line].split()
        self.assertEqual(sorted(expected), sorted(filter(None, offered)))
