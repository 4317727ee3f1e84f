"""The completions, each asked in its own shell."""

from __future__ import annotations

import os
import pty
import select
import subprocess
import threading
import time
import unittest
from pathlib import Path
from typing import Dict, List, Sequence

from tests.packaging.helpers import PACKAGING, Folder, need

COMPLETIONS = PACKAGING / "completions"
NAME = "morvane-connector"
TRADING = ["bybit", "okx", "gate"]
READING = TRADING + ["bingx", "kucoin", "bitget"]
KNOWN = READING + ["hyperliquid", "paradex", "lighter", "extended", "reya"]
SYMBOLS = ["BTC_USDT", "ETH_USDT"]

# What is offered for the arguments after each command; for all others nothing is.
ARGUMENTS: Dict[str, List[List[str]]] = {
    "validate": [KNOWN],
    "load-credentials": [KNOWN],
    "delete-credentials": [KNOWN],
    "balance": [READING],
    "get-position": [READING, SYMBOLS],
    "order-status": [READING, SYMBOLS],
    "cancel-order": [READING, SYMBOLS],
    "funding": [TRADING, SYMBOLS],
    "close-report": [TRADING, SYMBOLS],
    "place-open": [TRADING, SYMBOLS, ["buy", "sell"]],
    "place-close": [TRADING, SYMBOLS, ["buy", "sell"]],
}

# A completion that reads a key and runs the program, in words that every shell here understands.
READER = '\nread line < "$HOME/.morvane-connector/vault/bybit.vault"\nmorvane-connector status\n'


class KeyUnderWatch:
    """A key file that knows whether somebody has read it: a pipe with one secret to give away."""

    SECRET = b"api_secret=never-to-be-seen\n"

    def __init__(self, path: Path) -> None:
        self._path = path
        os.mkfifo(path, mode=0o600)
        self._writer = threading.Thread(target=self._give, daemon=True)
        self._writer.start()

    def _give(self) -> None:
        try:
            with open(self._path, "wb") as pipe:
                pipe.write(self.SECRET)
        except BrokenPipeError:
            pass  # somebody opened it and left

    def was_read(self) -> bool:
        """To be asked once, at the end: asking takes the secret."""
        reader = os.open(self._path, os.O_RDONLY | os.O_NONBLOCK)
        try:
            # Either the writer finds its reader now, or it found another before.
            self._writer.join()
            return os.read(reader, 1024) != self.SECRET
        finally:
            os.close(reader)


def on_terminal(argv: Sequence[str], env: Dict[str, str], folder: Path, typed: bytes) -> str:
    """Runs a shell that prompts with "READY>" on a terminal, types, and waits for its end."""
    ours, theirs = pty.openpty()
    try:
        shell = subprocess.Popen(argv, stdin=theirs, stdout=theirs, stderr=theirs, env=env,
                                 cwd=folder, start_new_session=True)
    finally:
        os.close(theirs)
    shown = b""
    deadline = time.monotonic() + 120
    try:
        while shell.poll() is None or select.select([ours], [], [], 0)[0]:
            if time.monotonic() > deadline:
                raise AssertionError(f"the shell hangs; it has shown {shown!r}")
            if not select.select([ours], [], [], 0.05)[0]:
                continue
            try:
                piece = os.read(ours, 65536)
            except OSError:  # how Linux says that the other side has closed
                break
            if not piece:
                break
            shown += piece
            if typed and b"READY>" in shown:
                os.write(ours, typed)
                typed = b""
    finally:
        if shell.poll() is None and time.monotonic() > deadline:
            shell.kill()
        shell.wait()
        os.close(ours)
    return shown.decode(errors="replace")


class Completing(Folder):
    """The cases that every shell must pass; a subclass brings the shell."""

    completion: Path

    def setUp(self) -> None:
        super().setUp()
        # Nothing of this may be offered: no argument is a file.
        (self.folder / "a file").touch()
        self.vault = self.home / ".morvane-connector" / "vault"
        # The shell's own needs lie apart from what is watched.
        self.settings = {"XDG_CONFIG_HOME": str(self.folder / "config"),
                         "XDG_DATA_HOME": str(self.folder / "data"),
                         "XDG_CACHE_HOME": str(self.folder / "cache"), "TERM": "xterm"}
        self.log = self.folder / "log"
        for tool in (NAME, "security", "cat", "python3", "curl"):
            self.stand_in(tool, f'echo "{tool} $*" >>"{self.log}"\n')

    def env(self) -> Dict[str, str]:
        return {**super().env(), **self.settings}

    def offers(self, lines: Sequence[str]) -> List[List[str]]:
        """What is offered at the end of each line, in any order."""
        raise NotImplementedError

    def offered(self, line: str) -> List[str]:
        return self.offers([line])[0]

    def assert_offers(self, expected: Dict[str, Sequence[str]]) -> None:
        answers = self.offers(list(expected))
        self.assertEqual({line: sorted(answer) for line, answer in zip(expected, answers)},
                         {line: sorted(answer) for line, answer in expected.items()})

    def test_the_commands_are_those_of_the_program(self):
        self.assert_offers({f"{NAME} ": self.commands()})

    def test_each_argument_gets_its_names_and_a_secret_or_a_number_gets_none(self):
        expected: Dict[str, Sequence[str]] = {}
        for command in self.commands():
            line = f"{NAME} {command} "
            for names in ARGUMENTS.get(command, []) + [[]] * 4:
                expected[line] = names
                line += (names[0] if names else "x") + " "
        self.assert_offers(expected)

    def test_what_is_typed_so_far_selects(self):
        self.assert_offers({
            f"{NAME} place-": ["place-open", "place-close"],
            f"{NAME} bind-": ["bind-wallet", "bind-status"],
            f"{NAME} balance b": ["bybit", "bingx", "bitget"],
            f"{NAME} place-open b": ["bybit"],
            f"{NAME} get-position okx E": ["ETH_USDT"],
            f"{NAME} place-open okx BTC_USDT s": ["sell"],
            f"{NAME} nonsense ": [],
            f"{NAME} Q": [],
            f"{NAME} validate bybit my-k": [],
        })

    def test_deleting_offers_the_keys_that_lie_in_files(self):
        self.vault.mkdir(parents=True)
        for name in ("okx.vault", "gate.vault", "vault_index.txt"):
            (self.vault / name).touch()
        self.assert_offers({f"{NAME} delete-credentials ": ["okx", "gate"],
                            f"{NAME} delete-credentials g": ["gate"],
                            f"{NAME} load-credentials ": KNOWN})

    # Two lines as a person would type them; each is then turned into one that prints its words.
    TYPED = (f"{NAME} place-c\tby\tE\tse\t\x01printf '<%s>' \r"
             f"{NAME} validate bybit a\t\x01printf '<%s>' \rexit\r").encode()

    def assert_completed(self, shown: str) -> None:
        self.assertIn(f"<{NAME}><place-close><bybit><ETH_USDT><sell>", shown)
        # There is a file of that name, and it is no API key.
        self.assertIn(f"<{NAME}><validate><bybit><a>", shown)

    def complete_under_watch(self) -> List[str]:
        """Completes everywhere; what was touched that must not be."""
        self.vault.mkdir(parents=True)
        key = KeyUnderWatch(self.vault / "bybit.vault")
        self.log.unlink(missing_ok=True)
        answers = self.offers([f"{NAME} ", f"{NAME} lo", f"{NAME} load-credentials ",
                               f"{NAME} delete-credentials ", f"{NAME} validate bybit ",
                               f"{NAME} balance "])
        self.assertTrue(any(answers), "nothing was completed")
        touched = self.log.read_text(encoding="utf-8").split("\n") if self.log.exists() else []
        if key.was_read():
            touched.append("the key")
        touched += [str(path) for path in self.home.rglob("*")
                    if path.name not in (".morvane-connector", "vault", "bybit.vault")
                    and self.vault.parent in path.parents]
        return touched

    def test_completing_reads_no_key_and_runs_nothing(self):
        self.assertEqual(self.complete_under_watch(), [])

    def test_the_watch_sees_a_completion_that_reads_a_key(self):
        reader = self.folder / "reader" / self.completion.name
        reader.parent.mkdir()
        reader.write_text(self.completion.read_text(encoding="utf-8") + READER, encoding="utf-8")
        self.completion = reader
        touched = self.complete_under_watch()
        self.assertIn("the key", touched)
        self.assertIn(f"{NAME} status", touched)


class Bash(Completing):
    completion = COMPLETIONS / f"{NAME}.bash"

    def setUp(self) -> None:
        super().setUp()
        self.shell = need("bash")

    def offers(self, lines):
        """Calls the function that is registered, as bash does on a tab."""
        script = ['source "$1" || exit 9',
                  f'registered=$(complete -p {NAME}) || exit 9',
                  'call=${registered#*-F }; call=${call%% *}']
        for line in lines:
            words = line.split(" ")
            quoted = " ".join(f"'{word}'" for word in words)
            script += [f"COMP_WORDS=({quoted}); COMP_CWORD={len(words) - 1}",
                       f"COMP_LINE='{line}'; COMP_POINT=${{#COMP_LINE}}; COMPREPLY=(left over)",
                       f"\"$call\" {NAME} '{words[-1]}' '{words[-2]}'",
                       "echo \"${COMPREPLY[*]-}\""]
        done = subprocess.run([self.shell, "--norc", "-c", "\n".join(script), "bash",
                               str(self.completion)], env=self.env(), cwd=self.folder,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        answers = [answer.split() for answer in done.stdout.splitlines()]
        self.assertEqual(len(answers), len(lines))
        return answers

    def test_a_tab_completes_on_a_terminal(self):
        start = self.folder / "start"
        start.write_text(f'PS1="READY>"\nsource "{self.completion}"\n', encoding="utf-8")
        shown = on_terminal([self.shell, "--noprofile", "--rcfile", str(start), "-i"], self.env(),
                            self.folder, self.TYPED)
        self.assert_completed(shown)


class Zsh(Completing):
    completion = COMPLETIONS / f"_{NAME}"

    # Every call that offers something goes through compadd: keep what it finds, then let it work.
    # A call with -O, -A or -D offers nothing yet.
    START = r"""
PROMPT="READY>"
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
ask() {
  _main_complete
  compstate[insert]= compstate[list]=
}
zle -C ask list-choices ask
ask-all() {
  local line
  for line in "${(@f)LINES_TO_ASK}"; do
    offers=()
    BUFFER=$line
    CURSOR=$#BUFFER
    zle ask
    print -r -- "$offers" >>"$ANSWERS"
  done
  BUFFER=exit
  zle accept-line
}
zle -N ask-all
bindkey '^T' ask-all
"""

    def setUp(self) -> None:
        super().setUp()
        self.shell = need("zsh")
        self.answers = self.folder / "answers"
        self.settings["ANSWERS"] = str(self.answers)
        self.settings["ZDOTDIR"] = str(self.folder / "zdot")
        (self.folder / "zdot").mkdir()
        (self.folder / "zdot" / ".zshrc").write_text(self.START, encoding="utf-8")

    def type_into(self, typed: bytes) -> str:
        self.settings["COMPLETION_FOLDER"] = str(self.completion.parent)
        # The start-up files of the machine stay out; the one of ZDOTDIR is read.
        return on_terminal([self.shell, "-d", "-i"], self.env(), self.folder, typed)

    def offers(self, lines):
        self.settings["LINES_TO_ASK"] = "\n".join(lines)
        self.answers.unlink(missing_ok=True)
        shown = self.type_into(b"\x14")
        self.assertTrue(self.answers.exists(), shown)
        answers = [answer.split() for answer in
                   self.answers.read_text(encoding="utf-8").splitlines()]
        self.assertEqual(len(answers), len(lines), shown)
        return answers

    def test_a_tab_completes_on_a_terminal(self):
        self.assert_completed(self.type_into(self.TYPED))


class Fish(Completing):
    completion = COMPLETIONS / f"{NAME}.fish"

    def setUp(self) -> None:
        super().setUp()
        self.shell = need("fish")

    def offers(self, lines):
        self.settings["COMPLETION_FOLDER"] = str(self.completion.parent)
        script = ["set -p fish_complete_path $COMPLETION_FOLDER"]
        for line in lines:
            script += [f"complete -C '{line}'", "echo =="]
        done = subprocess.run([self.shell, "-c", "\n".join(script)], env=self.env(),
                              cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        answers = done.stdout.split("==\n")
        self.assertEqual(len(answers), len(lines) + 1)
        return [[row.split("\t")[0] for row in answer.splitlines()] for answer in answers[:-1]]


class Names(Folder):
    """The exchanges offered are those that the program knows, reads and trades on."""

    def setUp(self) -> None:
        super().setUp()
        for exchange in KNOWN:
            # On a Mac an owner's own key would be found and handed to the stand-in.
            if os.path.exists("/usr/bin/security") and subprocess.run(
                    ["/usr/bin/security", "find-generic-password", "-s",
                     f"morvane.connector.{exchange}"], stdin=subprocess.DEVNULL,
                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False
            ).returncode == 0:
                self.skipTest(f"the keychain holds a key of {exchange}, which stays untouched")

    def known(self) -> List[str]:
        rows = self.run_connector("status").stdout.splitlines()
        return [row.split()[0].split("=")[1] for row in rows if row.startswith("exchange=")]

    def served(self, *command: str) -> List[str]:
        """The exchanges whose request gets as far as curl, which is a stand-in here."""
        served = []
        vault = self.home / ".morvane-connector" / "vault"
        vault.mkdir(parents=True, exist_ok=True)
        for exchange in self.known():
            (vault / f"{exchange}.vault").write_text(f"exchange={exchange}\napi_key=k\n",
                                                     encoding="utf-8")
            answer = self.run_connector(command[0], exchange, *command[1:]).stdout
            self.assertIn(answer, ('{"status":"error","reason":"http_failed"}\n',
                                   '{"status":"error","reason":"unsupported_exchange"}\n'))
            if "http_failed" in answer:
                served.append(exchange)
        return served

    def test_known(self):
        self.assertEqual(self.known(), KNOWN)

    def test_reading(self):
        for command in (["balance"], ["get-position", "BTC_USDT"],
                        ["order-status", "BTC_USDT", "1"], ["cancel-order", "BTC_USDT", "1"]):
            self.assertEqual(self.served(*command), READING, command)

    def test_trading(self):
        for command in (["funding", "BTC_USDT"], ["close-report", "BTC_USDT"],
                        ["place-open", "BTC_USDT", "buy", "1", "1", "1"],
                        ["place-close", "BTC_USDT", "buy", "1", "1"]):
            self.assertEqual(self.served(*command), TRADING, command)


del Completing  # no test of its own


if __name__ == "__main__":
    unittest.main()
