"""What lies around the program: what is installed, the pages, the completions, the manifest."""

import itertools
import os
import re
import shutil

from support import CONNECTOR, EXCHANGES, TRADING, ConnectorTest

TREE = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
PAGE = "share/man/man1/morvane-connector.1"
COMPLETIONS = {"bash": "share/bash-completion/completions/morvane-connector",
               "zsh": "share/zsh/site-functions/_morvane-connector",
               "fish": "share/fish/vendor_completions.d/morvane-connector.fish"}

# How each shell is asked: {0} are the words, quoted. What zsh gives, it selects from by itself.
ASKING = {
    "bash": """source {file}; call=$(complete -p morvane-connector); call=${{call#*-F }}
        COMP_WORDS=({0}) COMP_CWORD=$(({number} - 1)) COMPREPLY=(left over)
        ${{call% *}}; echo ${{COMPREPLY[*]-}}""",
    "zsh": """_describe() {{ all=(${{(@P)4}}); all=(${{all%%:*}})
          print ${{(M)all:#$words[CURRENT]*}} }}
        words=({0}) CURRENT={number}; source {file}; true""",
    "fish": "source {file}; complete -C '{line}' | string replace -r '\\t.*' ''; true",
}

# What is offered for a line; for a secret or a number nothing is. "*": each of the commands.
TRADES = " ".join(TRADING)
READS = " ".join(EXCHANGES)
KEYS = READS + " my_own"  # my_own: what lies in the vault
OFFERS = {
    "": "*", "place-": "place-open place-close", "nonsense ": "", "status ": "", "validate ": KEYS,
    "validate bybit ": "", "validate bybit k ": "", "load-credentials ": KEYS,
    "delete-credentials ": KEYS, "balance ": READS, "balance b": "bybit bingx bitget",
    "get-position ": READS, "order-status ": READS, "cancel-order ": READS,
    "funding ": TRADES, "close-report ": TRADES, "place-open ": TRADES, "place-close ": TRADES,
    "funding okx ": "BTC_USDT ETH_USDT", "order-status okx B": "BTC_USDT",
    "order-status okx B ": "", "place-open okx BTC_USDT ": "buy sell",
    "place-close okx BTC_USDT s": "sell",
}

QUANTITY = "quantity: coins on bybit, contracts on okx and gate"
HINTS = {
    "zsh": """_message() {{ print -r -- $2 }}
        words=({0}) CURRENT=6; source {file}; true""",
    "fish": "source {file}; complete -C '{line}' | string replace -rf '^\\?\t' ''; true",
}


class Packaging(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.run_tool("cmake", "--install", os.path.dirname(CONNECTOR), "--prefix", self.home)
        self.commands = re.search("<(.*)>", self.connector().stderr)[1].split("|")

    def run_tool(self, *argv, status=0):
        done = self.box.run(argv, env=self.env, cwd=self.home)
        self.assertEqual(status, done.returncode, done)
        return done.stdout

    def test_what_is_installed_runs_and_its_pages_name_every_command_as_it_does(self):
        for name in (PAGE, *COMPLETIONS.values(), "bin/morvane-connector"):
            self.assertEqual(0o755 if name.startswith("bin") else 0o644,
                             os.stat(os.path.join(self.home, name)).st_mode & 0o777)
        self.program, self.env["PATH"] = [f"{self.home}/bin/morvane-connector"], ""
        usages = sorted(self.connector(one).stderr[len("usage: morvane-connector "):-1] or one
                        for one in self.commands)
        items = re.findall(r"(?m)^\.It Ic (.*)$", self.read("../" + PAGE))
        self.assertEqual(usages, sorted(re.sub(r"(?<= )(\w+)(?= |$)", r"<\1>", re.sub(
            r"Op Ar (\S+)", r"[\1]", item).replace(" Ar", "")) for item in items))
        with open(os.path.join(TREE, "README.md"), encoding="utf-8") as readme:
            self.assertEqual(usages, sorted(re.findall(
                r"(?m)^\| `([a-z-]+(?: [<[].*?)?)` \| [^|]* \| [^|]* \|$", readme.read())))

    def test_three_shells_complete(self):
        self.store_keys("okx", "my_own")
        self.write("vault/vault_index.txt", "")
        for shell, line in itertools.product(ASKING, OFFERS):
            with self.subTest(f"{shell}: {line}"):
                if not shutil.which(shell) and os.environ.get("MORVANE_REQUIRE_SHELLS") != "1":
                    self.skipTest(f"{shell} is not installed")
                words = ["morvane-connector", *line.split(" ")]
                asked = ASKING[shell].format(" ".join(f"'{word}'" for word in words),
                                             number=len(words), line=" ".join(words),
                                             file=COMPLETIONS[shell])
                offers = self.commands if OFFERS[line] == "*" else OFFERS[line].split()
                self.assertEqual(sorted(offers), sorted(self.run_tool(shell, "-c", asked).split()))

    def test_zsh_and_fish_tell_the_unit_where_a_quantity_is_typed(self):
        line = "morvane-connector place-open okx BTC_USDT buy "
        words = " ".join(f"'{word}'" for word in line.split(" "))
        for shell, asked in HINTS.items():
            with self.subTest(shell):
                if not shutil.which(shell) and os.environ.get("MORVANE_REQUIRE_SHELLS") != "1":
                    self.skipTest(f"{shell} is not installed")
                told = self.run_tool(shell, "-c", asked.format(words, line=line,
                                                               file=COMPLETIONS[shell]))
                self.assertEqual(QUANTITY, told.strip())

    def test_the_manifest_of_a_release_is_written_or_refused(self):
        image, url = "Morvane-Connector-0.2.0.dmg", "https://download.example/a"
        for name, text in ((image, "image"), ("x.dmg", "image"), ("Morvane-Connector-3.dmg", "")):
            self.write("../" + name, text)
        writer = os.path.join(TREE, "packaging/write_manifest")
        self.assertEqual('{"version":"0.2.0","dmgUrl":"%s/%s","channel":"stable"}\n' % (url, image),
                         self.run_tool(writer, "0.2.0", image, url))
        for wrong in (f"1..2 {image} {url}", f"v1 {image} {url}", f"1.4294967296 {image} {url}",
                      f"0.2.0 x.dmg {url}", f"3 Morvane-Connector-3.dmg {url}",
                      f"0.2.0 {image} http://a", f'0.2.0 {image} https://a/"', f"0.2.0 {image}"):
            self.assertEqual("", self.run_tool(writer, *wrong.split(), status=1))
