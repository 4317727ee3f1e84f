"""What lies around the program: what is installed, pages, completions, the manifest."""

import os
import re
import shlex
import shutil
import stat

from support import CONNECTOR, EXCHANGES, TRADING, ConnectorTest, told

TREE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
PROGRAM = "bin/morvane-connector"
MANUAL = "share/man/man1/morvane-connector.1"
COMPLETIONS = {"bash": "share/bash-completion/completions/morvane-connector",
               "zsh": "share/zsh/site-functions/_morvane-connector",
               "fish": "share/fish/vendor_completions.d/morvane-connector.fish"}


class PackagingTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        build = os.path.dirname(CONNECTOR)
        self.run_tool("cmake", "--install", build, "--prefix", self.home)

    def run_tool(self, *words, status=0):
        """What it prints, run in HOME, where everything is installed."""
        run = self.box.run(words, env=self.env, cwd=self.home)
        self.assertEqual(status, run.returncode, told(run))
        return run.stdout

    def commands(self):
        """Those that the program itself names."""
        run = self.connector()
        usage = re.search("<(.*)>", run.stderr)
        self.assertTrue(usage, f"No commands are named: {told(run)}")
        return usage[1].split("|")


class Installed(PackagingTest):
    def test_everyone_may_read_what_is_installed_and_run_the_program(self):
        for name in (PROGRAM, MANUAL, *COMPLETIONS.values()):
            with self.subTest(name):
                mode = stat.S_IMODE(os.stat(os.path.join(self.home, name)).st_mode)
                self.assertEqual("0o755" if name == PROGRAM else "0o644", oct(mode))

    def usages(self):
        """How each command is called, as the installed program says without any tool."""
        self.program, self.env["PATH"] = [os.path.join(self.home, PROGRAM)], ""
        commands = self.commands()
        said = [self.connector(command).stderr for command in commands]
        return sorted(usage.strip().replace("usage: morvane-connector ", "") or command
                      for usage, command in zip(said, commands))

    def test_the_manual_has_every_command_as_the_program_says_it(self):
        with open(os.path.join(self.home, MANUAL), encoding="utf-8") as manual:
            found = [self.usage_in_manual(line) for line in manual
                     if line.startswith(".It Ic ")]
        self.assertEqual(self.usages(), sorted(found), "the program's, then the manual's")

    def usage_in_manual(self, line):
        """`.It Ic funding Ar symbol Op Ar minutes` is `funding <symbol> [minutes]`."""
        required, _, optional = line.replace(".It Ic ", "").partition(" Op Ar ")
        command, *names = required.replace(" Ar", "").split()
        return " ".join([command, *(f"<{name}>" for name in names),
                         *(f"[{name}]" for name in optional.split())])

    def test_the_readme_has_every_command_as_the_program_says_it(self):
        with open(os.path.join(TREE, "README.md"), encoding="utf-8") as readme:
            text = readme.read()
        # A row is: | `balance <exchange>` | what it does | what it answers |
        table = text.partition("\n| command | does | answers |\n|---|---|---|\n")[2]
        rows = table.partition("\n\n")[0].splitlines()
        found = [row.split("`")[1] for row in rows if "`" in row]
        self.assertEqual(self.usages(), sorted(found), "the program's, then the README's")


READABLE = " ".join(EXCHANGES)
TRADABLE = " ".join(TRADING)
KEPT = READABLE + " my_own"  # my_own: what lies in the vault
ALL = "every command"

# What is offered where a line ends; for a secret or a number nothing is.
OFFERS = {
    "": ALL,
    "place-": "place-open place-close",
    "nonsense ": "",
    "validate ": KEPT,
    "validate bybit ": "",
    "load-credentials ": KEPT,
    "delete-credentials ": KEPT,
    "balance ": READABLE,
    "balance b": "bybit bingx bitget",
    "get-position ": READABLE,
    "order-status ": READABLE,
    "order-status okx B": "BTC_USDT",
    "cancel-order ": READABLE,
    "funding ": TRADABLE,
    "funding okx ": "BTC_USDT ETH_USDT",
    "close-report ": TRADABLE,
    "place-open ": TRADABLE,
    "place-open okx BTC_USDT ": "buy sell",
    "place-close ": TRADABLE,
    "place-close okx BTC_USDT s": "sell",
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
        self.write("vault/vault_index.txt", "")

    def ask(self, shell, line):
        """The lines that the completion of the shell offers at the end of that line."""
        if not shutil.which(shell) and os.environ.get("MORVANE_REQUIRE_SHELLS") != "1":
            self.skipTest(f"{shell} is not installed")
        words = ["morvane-connector", *line.split(" ")]
        program = ASK[shell].format(
            words=shlex.join(words), count=len(words), line=shlex.quote(" ".join(words)),
            completion=COMPLETIONS[shell])
        return self.run_tool(shell, "-c", program).splitlines()

    def assert_offers(self, shell):
        for line, expected in OFFERS.items():
            with self.subTest(f"{shell}: {line}"):
                # fish describes a word behind a tabulator.
                offered = [one.partition("\t")[0] for one in self.ask(shell, line)]
                names = self.commands() if expected == ALL else expected.split()
                self.assertEqual(sorted(names), sorted(filter(None, offered)),
                                 f"expected, then offered by {shell} for: {line}")

    def test_bash_offers_what_can_be_typed(self):
        self.assert_offers("bash")

    def test_zsh_offers_what_can_be_typed(self):
        self.assert_offers("zsh")

    def test_fish_offers_what_can_be_typed(self):
        self.assert_offers("fish")

    def test_zsh_and_fish_tell_the_unit_where_a_quantity_is_typed(self):
        line = "place-open okx BTC_USDT buy "
        unit = "quantity: coins on bybit, contracts on okx and gate"
        self.assertEqual([unit], self.ask("zsh", line))
        self.assertIn("?\t" + unit, self.ask("fish", line))


class Manifest(PackagingTest):
    WRITER = os.path.join(TREE, "packaging/write_manifest")
    IMAGE = "Morvane-Connector-0.2.0.dmg"
    URL = "https://download.example/a"

    def test_a_manifest_names_version_image_and_channel(self):
        self.write(f"../{self.IMAGE}", "image")
        self.assertEqual(f'{{"version":"0.2.0","dmgUrl":"{self.URL}/{self.IMAGE}",'
                         '"channel":"stable"}\n',
                         self.run_tool(self.WRITER, "0.2.0", self.IMAGE, self.URL))

    def test_what_no_updater_could_use_is_refused(self):
        self.write(f"../{self.IMAGE}", "image")
        self.write("../x.dmg", "image")
        self.write("../Morvane-Connector-3.dmg", "")
        for fault, arguments in {
                "an empty part": ["1..2", self.IMAGE, self.URL],
                "a letter": ["v1", self.IMAGE, self.URL],
                "a part of 33 bits": ["1.4294967296", self.IMAGE, self.URL],
                "an image of another name": ["0.2.0", "x.dmg", self.URL],
                "an empty image": ["3", "Morvane-Connector-3.dmg", self.URL],
                "no https": ["0.2.0", self.IMAGE, "http://a"],
                "a quote in the address": ["0.2.0", self.IMAGE, 'https://a/"'],
                "no address": ["0.2.0", self.IMAGE]}.items():
            with self.subTest(fault):
                self.assertEqual("", self.run_tool(self.WRITER, *arguments, status=1))
