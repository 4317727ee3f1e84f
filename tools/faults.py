"""Fails or kills each command at each system call that touches its state, and holds the rules.

faults.py [COMMAND...] : these commands, or all. Needs strace, which only Linux has.
"""

import itertools
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections import Counter
from collections.abc import Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor
from contextlib import contextmanager
from pathlib import Path

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

from sandbox import Fault, Sandbox, hosts  # noqa: E402
from sandbox.home import KEYCHAIN, SECURITY, furnish  # noqa: E402

BINARY = os.path.abspath("build/demo/morvane-connector")
ROOT, UNFINISHED = ".morvane-connector", ".unfinished-"
IDENTITY, VAULT = "device_identity.env", "vault/bybit.vault"
LATEST, IMAGE = "updates/Morvane-Connector-latest.dmg", "updates/Morvane-Connector-0.2.0.dmg"
DEVICE = "device_id=device:macos:0123456789ab\n"
RANDOM_ID = "device:macos:(?!0123456789ab)[0-9a-f]{12}|connector:[0-9a-f]{16}"
KEY = "exchange=bybit\napi_key={0}-bybit-key\napi_secret={0}-bybit-secret\npassphrase=\n"
OLD = {
    IDENTITY: DEVICE + "connector_instance_id=connector:1\ndevice_label=My Mac\n"
                       "platform=macos\nowner_wallet=0xOld\npaired=1\n",
    "pairing.env": "owner_wallet_address=0xOld\npairing_status=bound\nserver_account_ref=\n"
                   "latest_bind_token=\nlatest_claimed_connector_id=\nplatform_terms_accepted=1\n"
                   "wallet_approval_confirmed=1\n",
    VAULT: KEY.format("old"),
    LATEST: "an older image\n",
}
COMMANDS = {
    "status": [], "set-wallet": ["0x" + "2" * 40], "bind-wallet": [], "disconnect-binding": [],
    "claim-token": ["token"], "bind-status": [],
    "validate": ["bybit", "demo-bybit-key", "demo-bybit-secret"], "load-credentials": ["bybit"],
    "delete-credentials": ["bybit"], "update-download": [], "update-apply": [],
}
# What a call may answer beside EIO. An error of close is none that a program could meet.
OTHER_ERRORS = {
    "openat": ["EACCES", "EMFILE", "ENOSPC"], "newfstatat": ["EACCES"], "pread64": ["EINTR"],
    "pwrite64": ["ENOSPC"], "write": ["ENOSPC"], "link": ["EPERM", "ENOSPC", "EMLINK"],
    "unlink": ["EACCES"], "rename": ["ENOSPC"], "mkdir": ["EACCES"], "fchmodat": ["EPERM"],
    "sendfile": ["ENOSPC"], "copy_file_range": ["ENOSPC"],
}


class Case:
    """A command with these files in place, with or without a keychain."""

    def __init__(self, box: Sandbox, command: str, files: dict[str, str], keychain: bool) -> None:
        self.box, self.files, self.keychain = box, files, keychain
        self.words = [command, *COMMANDS[command]]
        self.name = ", ".join([command, "files in place" if files else "first run",
                               *(["keychain"] if keychain else [])])

    @contextmanager
    def home(self) -> Iterator[Path]:
        with tempfile.TemporaryDirectory(prefix="morvane-faults-") as home:
            furnish(home)
            if os.path.exists(SECURITY) and not self.keychain:
                # A folder in the place of its item: so the keychain refuses the key.
                Path(home, KEYCHAIN + ".morvane.connector.bybit").mkdir()
            for name, text in self.files.items():
                path = Path(home, ROOT, name)
                path.parent.mkdir(parents=True, exist_ok=True)
                path.write_text(text, encoding="ascii")
            yield Path(home)

    def run(self, home: Path, words: list[str], wrapper: Sequence[str] = ()):
        return self.box.run([*wrapper, BINARY, *words], env=dict(self.box.env, HOME=str(home)),
                            timeout=60, umask=0o022)

    def breakages(self) -> Iterator[tuple[list[str], str]]:
        """What to run the command under, to break it at each call that touches state and at each
        length of a file; and the call.
        """
        with self.home() as home:
            self.run(home, ["status"])
            self.begun = texts(home)  # what each run does before its command
        with self.home() as home, tempfile.NamedTemporaryFile("r") as trace:
            self.run(home, self.words, ["strace", "-y", "-qq", "-o", trace.name])
            self.after, calls = texts(home), trace.read().splitlines()
        seen: Counter[str] = Counter()
        for line in calls:
            call = line.partition("(")[0]
            seen[call] += 1
            if ROOT in line and call != "close":
                for error in ["EIO", "EIO:signal=KILL", *OTHER_ERRORS.get(call, [])]:
                    fault = f"inject={call}:error={error}:when={seen[call]}"
                    yield ["strace", "-qq", "-o", os.devnull, "-e", fault], line
        for room in range(max(map(len, self.after.values())) + 1):
            yield ["prlimit", f"--fsize={room}:"], ""

    def broken_rules(self, wrapper: list[str]) -> list[str]:
        with self.home() as home:
            try:
                done = self.run(home, self.words, wrapper)
            except subprocess.TimeoutExpired:
                return ["it hangs"]
            killed = "KILL" in wrapper[-1]
            return [*self.wrong_files(home), *self.wrong_end(home, done, killed),
                    *self.wrong_afterwards(home)]

    def wrong_files(self, home: Path) -> Iterator[str]:
        now = texts(home)
        for name in {*now, *self.after, *self.files} - {IMAGE}:
            allowed = [state.get(name) for state in (self.files, self.begun, self.after)]
            # Where the pairing file found no room, its old wallet goes to the identity.
            allowed.append(self.after.get(name, "").replace("2" * 40, "Old"))
            if name == LATEST:
                allowed.append(None)
            if UNFINISHED not in name and now.get(name) not in allowed:
                yield f"{name} is neither old nor new: {now.get(name)!r}"
        for path in Path(home, ROOT).rglob("*"):
            mode = path.stat().st_mode & 0o777
            wanted = 0o700 if path.is_dir() else 0o600
            if mode != wanted and (UNFINISHED not in path.name or mode & 0o077):
                yield f"{path} has mode {mode:o}"

    def wrong_end(self, home: Path, done: subprocess.CompletedProcess,
                  killed: bool) -> Iterator[str]:
        # Meant: without its folders a run aborts.
        if done.returncode < 0 and not killed and "cannot create director" not in done.stderr:
            yield f"it ended by signal {-done.returncode}: {done.stderr}"
        key, saved = texts(home).get(VAULT), "credentials_saved=true" in done.stdout
        if saved and key != KEY.format("demo") and not self.keychain:
            yield "a key is called saved and is not there"
        if "credentials_saved=false" in done.stdout and key != self.files.get(VAULT):
            yield "a key is called not saved and its file changed"
        if "removed=true" in done.stdout and key is not None:
            yield "a key is called removed and is there"

    def wrong_afterwards(self, home: Path) -> Iterator[str]:
        status = self.run(home, ["status"])
        device = Path(home, ROOT, IDENTITY).read_text(encoding="ascii").splitlines(True)[0]
        if status.returncode or device not in status.stdout or (self.files and device != DEVICE):
            yield f"a clean run afterwards does not find the identity: {status}"
        if left := [name for name in texts(home) if UNFINISHED in name]:
            yield f"a clean run afterwards leaves {left}"


def texts(home: Path) -> dict[str, str]:
    """Each state file's text, without empty lines at its end; random ids are all alike."""
    found = {}
    for path in Path(home, ROOT).rglob("*"):
        if path.is_file():
            text = path.read_text(encoding="utf-8", errors="replace").rstrip("\n") + "\n"
            found[str(path.relative_to(home / ROOT))] = re.sub(RANDOM_ID, "random", text)
    return found


def main() -> int:
    if not shutil.which("strace"):
        sys.exit("faults: this needs strace, which only Linux has")
    os.umask(0o077)
    broken = tried = 0
    with Sandbox() as box, ThreadPoolExecutor(os.cpu_count()) as pool:
        box.faults += [
            Fault.answer(hosts.RELAY, 200, b'{"status":"ok"}', path="/api/connector/claim"),
            Fault.answer(hosts.RELAY, 200, b'{"bindState":"authorized","wallet":"0xNew"}',
                         path="/api/connector/bind-status")]
        box.downloads.images = dict.fromkeys(box.downloads.images, b"a newer image\n")
        for command, files, keychain in itertools.product(
                sys.argv[1:] or COMMANDS, (OLD, {}), (False, True)):
            if keychain and not ("bybit" in COMMANDS[command] and os.path.exists(SECURITY)):
                continue
            case = Case(box, command, files, keychain)
            breakages = list(case.breakages())
            tried += len(breakages)
            found = pool.map(case.broken_rules, [wrapper for wrapper, _ in breakages])
            for (wrapper, call), rules in zip(breakages, found):
                broken += len(rules)
                for rule in rules:
                    print(f"{case.name}: {rule}\n  {' '.join(wrapper)}  {call}")
            print(f"{case.name}: {len(breakages)} faults", flush=True)
    print(f"{broken} broken rules in {tried} faults")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
