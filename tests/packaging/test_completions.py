"""The completions, each asked in its own shell."""

import os
import pty
import subprocess
import threading
from pathlib import Path

from tests.packaging.helpers import Folder, need

COMPLETIONS = Path(os.environ["MORVANE_CONNECTOR"]).parent / "packaging" / "completions"
NAME = "morvane-connector"
TRADING = ["bybit", "okx", "gate"]
READING = TRADING + ["bingx", "kucoin", "bitget"]
KNOWN = READING + ["hyperliquid", "paradex", "lighter", "extended", "reya"]
SYMBOLS = ["BTC_USDT", "ETH_USDT"]

# What is offered for the arguments after each command; for all others nothing is.
ARGUMENTS: dict[str, list[list[str]]] = {
    **dict.fromkeys(["validate", "load-credentials", "delete-credentials"], [KNOWN]),
    "balance": [READING],
    **dict.fromkeys(["get-position", "order-status", "cancel-order"], [READING, SYMBOLS]),
    **dict.fromkeys(["funding", "close-report"], [TRADING, SYMBOLS]),
    **dict.fromkeys(["place-open", "place-close"], [TRADING, SYMBOLS, ["buy", "sell"]]),
}

# A completion that reads a key and runs the program, in words that every shell here understands.
READER = '\nread line < "$HOME/.morvane-connector/vault/bybit.vault"\nmorvane-connector status\n'
SECRET = b"api_secret=never-to-be-seen\n"


# The cases that every shell must pass. A subclass brings the shell, and offers(): what is offered
# at the end of each line, in any order.
class Completing(Folder):
    completion: Path
    shell: str

    def setUp(self) -> None:
        super().setUp()
        need(self.shell)
        # Nothing of this may be offered: no argument is a file.
        (self.folder / "a file").touch()
        self.vault = self.home / ".morvane-connector" / "vault"
        self.vault.mkdir(parents=True)
        self.log = self.folder / "log"
        for tool in (NAME, "security", "cat", "python3", "curl"):
            self.stand_in(tool, f'echo "{tool} $*" >>"{self.log}"')

    def assert_offers(self, expected: dict[str, list[str]]) -> None:
        answers = self.offers([f"{NAME} {line}" for line in expected])
        self.assertEqual({line: sorted(answer) for line, answer in zip(expected, answers)},
                         {line: sorted(answer) for line, answer in expected.items()})

    def test_the_commands_and_exchanges_are_those_of_the_program(self):
        rows = self.run_tool(self.binary, "status").stdout.split("\nexchange=")[1:]
        self.assertEqual([row.split()[0] for row in rows], KNOWN)
        self.assert_offers({"": self.commands()})

    def test_each_argument_gets_its_names_and_a_secret_or_a_number_gets_none(self):
        expected = {}
        for command in self.commands():
            line = f"{command} "
            for names in ARGUMENTS.get(command, []) + [[]] * 4:
                expected[line] = names
                line += (names[0] if names else "x") + " "
        self.assert_offers(expected)

    def test_what_is_typed_so_far_selects(self):
        self.assert_offers({
            "place-": ["place-open", "place-close"], "balance b": ["bybit", "bingx", "bitget"],
            "place-open b": ["bybit"], "get-position okx E": ["ETH_USDT"],
            "place-open okx BTC_USDT s": ["sell"], "nonsense ": [], "validate bybit my-k": []})

    def test_deleting_offers_the_keys_that_lie_in_files(self):
        for name in ("okx.vault", "gate.vault", "vault_index.txt"):
            (self.vault / name).touch()
        self.assert_offers({"delete-credentials ": ["okx", "gate"], "load-credentials ": KNOWN})

    # Completes everywhere and tells what was run and whether the key was read.
    def touched(self) -> list[str]:
        # The key is a pipe with one secret to give away.
        key = self.vault / "bybit.vault"
        os.mkfifo(key, mode=0o600)
        writer = threading.Thread(target=key.write_bytes, args=[SECRET], daemon=True)
        writer.start()
        lines = ("", "lo", "load-credentials ", "delete-credentials ", "validate bybit ")
        self.assertTrue(any(self.offers([f"{NAME} {line}" for line in lines])))
        reader = os.open(key, os.O_RDONLY | os.O_NONBLOCK)
        writer.join()  # which has its reader now, if it had none before
        found = self.log.read_text(encoding="utf-8").splitlines() if self.log.exists() else []
        if os.read(reader, 1024) != SECRET:
            found.append("the key")
        os.close(reader)
        return found

    def test_completing_reads_no_key_and_runs_nothing(self):
        self.assertEqual(self.touched(), [])

    def test_the_watch_sees_a_completion_that_reads_a_key(self):
        reader = self.folder / self.completion.name
        reader.write_text(self.completion.read_text(encoding="utf-8") + READER, encoding="utf-8")
        self.completion = reader
        self.assertLessEqual({"the key", f"{NAME} status"}, set(self.touched()))


class Bash(Completing):
    completion = COMPLETIONS / f"{NAME}.bash"
    shell = "bash"

    # Calls the function that is registered, as bash does on a tab.
    def offers(self, lines):
        script = [f"source '{self.completion}'", f"registered=$(complete -p {NAME}) || exit 9",
                  "call=${registered#*-F }; call=${call%% *}"]
        for line in lines:
            words = line.split(" ")
            quoted = " ".join(f"'{word}'" for word in words)
            script += [f"COMP_WORDS=({quoted}); COMP_CWORD={len(words) - 1}; COMPREPLY=(left over)",
                       f"\"$call\" {NAME} '{words[-1]}' '{words[-2]}'", "echo \"${COMPREPLY[*]-}\""]
        done = self.run_tool("bash", "--norc", "-c", "\n".join(script))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [answer.split() for answer in done.stdout.splitlines()]


class Zsh(Completing):
    completion = COMPLETIONS / f"_{NAME}"
    shell = "zsh"

    # Every call that offers something goes through compadd: keep what it finds, then let it work.
    # A call with -O, -A or -D offers nothing yet. The first prompt asks and ends the shell.
    START = r"""
fpath=("$COMPLETION_FOLDER" $fpath)
autoload -Uz compinit
compinit -u -D
compadd() {
  if (( ! ${@[(I)-[OAD]]} )); then
    local -a __found
    builtin compadd -O __found "$@"
    offers+=("${__found[@]}")
  fi
  builtin compadd "$@"
}
ask() { _main_complete; compstate[insert]= compstate[list]= }
zle -C ask list-choices ask
zle-line-init() {
  for BUFFER in "${(@f)LINES_TO_ASK}"; do
    offers=() CURSOR=$#BUFFER
    zle ask
    print -r -- "$offers" >>"$ANSWERS"
  done
  exit
}
zle -N zle-line-init
"""

    def offers(self, lines):
        (self.home / ".zshrc").write_text(self.START, encoding="utf-8")
        answers = self.folder / "answers"
        env = {**self.env(), "LINES_TO_ASK": "\n".join(lines), "ANSWERS": str(answers),
               "COMPLETION_FOLDER": str(self.completion.parent), "TERM": "xterm"}
        ours, theirs = pty.openpty()
        # The start-up files of the machine stay out; the one of ZDOTDIR is read.
        shell = subprocess.Popen(["zsh", "-d", "-i"], stdin=theirs, stdout=theirs, stderr=theirs,
                                 env=env, cwd=self.folder, start_new_session=True)
        os.close(theirs)
        try:
            while os.read(ours, 65536):
                pass
        except OSError:  # how Linux says that the other side has closed
            pass
        os.close(ours)
        shell.wait()
        return [answer.split() for answer in answers.read_text(encoding="utf-8").splitlines()]


class Fish(Completing):
    completion = COMPLETIONS / f"{NAME}.fish"
    shell = "fish"

    def offers(self, lines):
        script = [f"set -p fish_complete_path '{self.completion.parent}'"]
        for line in lines:
            script += [f"complete -C '{line}'", "echo =="]
        done = self.run_tool("fish", "-c", "\n".join(script))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        answers = done.stdout.split("==\n")[:-1]
        return [[row.split("\t")[0] for row in answer.splitlines()] for answer in answers]


del Completing  # no test of its own
