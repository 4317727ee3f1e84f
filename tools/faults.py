"""Fails or kills each command at each system call that touches its state, and holds the rules.

faults.py [COMMAND] : all commands, or one. Needs strace, which only Linux has.
"""

from __future__ import annotations

import os
import re
import resource
import shutil
import stat
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from typing import Dict, Iterator, List, NamedTuple

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

from sandbox import Fault, Sandbox, hosts  # noqa: E402
from sandbox.home import KEYCHAIN, SECURITY, furnish  # noqa: E402

BINARY = os.path.abspath("build/demo/morvane-connector")
DEVICE = "device_id=device:macos:0123456789ab\n"
KEY = "exchange=bybit\napi_key={0}-bybit-key\napi_secret={0}-bybit-secret\npassphrase=\n"
VAULT, LATEST = "vault/bybit.vault", "updates/Morvane-Connector-latest.dmg"
OLD = {
    "device_identity.env": DEVICE + "connector_instance_id=connector:1\ndevice_label=My Mac\n"
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
WITH_KEYCHAIN = ("validate", "load-credentials", "delete-credentials")
# The errors of calls that touch state; those that have others than EIO. An error of close or brk
# is none that a program could meet.
CHANGING = ("pwrite64 write ftruncate link unlink unlinkat rename mkdir rmdir chmod fchmodat fchmod "
            "sendfile copy_file_range").split()
ERRORS = dict.fromkeys([*CHANGING, *"fstat stat lstat read getdents64 lseek readlink".split()],
                       ["EIO"])
ERRORS.update({
    "openat": ["EACCES", "EIO", "EMFILE"], "newfstatat": ["EIO", "EACCES"], "mkdir": ["EACCES"],
    "pread64": ["EIO", "EINTR"], "link": ["EIO", "EPERM", "ENOSPC", "EMLINK"],
    "unlink": ["EIO", "EACCES"], **dict.fromkeys(("chmod", "fchmodat", "fchmod"), ["EPERM"]),
    **dict.fromkeys("pwrite64 write rename sendfile copy_file_range".split(), ["EIO", "ENOSPC"])})


class Breakage(NamedTuple):
    """What strace injects at the call `line`, or how many bytes a file may have."""
    inject: str
    line: str
    room: int = resource.RLIM_INFINITY


class Case:
    """A command with these files in place, with or without a keychain."""

    def __init__(self, box: Sandbox, command: str, files: Dict[str, str], keychain: bool) -> None:
        self.box, self.command, self.files, self.keychain = box, command, files, keychain
        self.name = ", ".join([command, "files in place" if files else "first run",
                               *(["keychain"] if keychain else [])])
        self.begun, self.after = {}, {}
        for state, words in ((self.begun, ["status"]), (self.after, [command, *COMMANDS[command]])):
            with tempfile.TemporaryDirectory() as home:  # what each run does, and this command
                self.furnish(home)
                self.run(home, words)
                state.update(contents(home))

    def furnish(self, home: str) -> None:
        furnish(home)
        if os.path.exists(SECURITY) and not self.keychain:
            os.mkdir(os.path.join(home, KEYCHAIN + ".morvane.connector.bybit"))
        for name, text in self.files.items():
            path = os.path.join(home, ".morvane-connector", name)
            os.makedirs(os.path.dirname(path), mode=0o700, exist_ok=True)
            with open(os.open(path, os.O_CREAT | os.O_WRONLY, 0o600), "w", encoding="ascii") as out:
                out.write(text)

    def run(self, home: str, words: List[str], wrapper: List[str] = [], *,
            room: int = resource.RLIM_INFINITY) -> subprocess.CompletedProcess:
        return self.box.run(
            [*wrapper, BINARY, *words], env=dict(self.box.env, HOME=home), timeout=60, umask=0o077,
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE,
                                                  (room, resource.RLIM_INFINITY)))

    def faults(self) -> Iterator[Breakage]:
        """At each call of a clean run that touches state, and at each length of a file."""
        with tempfile.TemporaryDirectory() as home, tempfile.NamedTemporaryFile("r") as trace:
            self.furnish(home)
            self.run(home, [self.command, *COMMANDS[self.command]],
                     ["strace", "-y", "-qq", "-o", trace.name])
            lines = trace.read().splitlines()
        seen: Dict[str, int] = {}
        for line in lines:
            call = line.partition("(")[0]
            seen[call] = seen.get(call, 0) + 1
            if ".morvane-connector" in line and call in ERRORS:
                created = "O_CREAT" in line
                for error in [*ERRORS[call], *(["ENOSPC"] if created else [])]:
                    yield Breakage(f"{call}:error={error}:when={seen[call]}", line)
                if created or call in CHANGING:
                    yield Breakage(f"{call}:error=EIO:signal=KILL:when={seen[call]}", line)
        for room in range(max(map(len, self.after.values())) + 1):
            yield Breakage("", f"files cannot grow beyond {room} bytes", room)

    def broken_rules(self, fault: Breakage) -> List[str]:
        inject = ["strace", "-qq", "-o", os.devnull, "-e", "inject=" + fault.inject]
        words = [self.command, *COMMANDS[self.command]]
        with tempfile.TemporaryDirectory(prefix="morvane-faults-") as home:
            self.furnish(home)
            try:
                done = self.run(home, words, inject if fault.inject else [], room=fault.room)
            except subprocess.TimeoutExpired:
                return ["it hangs"]
            now = contents(home)
            return [*self.wrong_files(now), *wrong_modes(home), *self.wrong_end(fault, done, now),
                    *self.wrong_afterwards(home)]

    def wrong_files(self, now: Dict[str, str]) -> Iterator[str]:
        for name in {*now, *self.after, *self.files} - {"updates/Morvane-Connector-0.2.0.dmg"}:
            allowed = [state.get(name) for state in (self.files, self.begun, self.after)]
            # Where the pairing file found no room, its old wallet goes to the identity.
            allowed.append(self.after.get(name, "").replace("2" * 40, "Old"))
            allowed += [None] if name == LATEST else []
            if ".unfinished-" not in name and now.get(name) not in [
                    text and text.rstrip("\n") for text in allowed]:
                yield f"{name} is neither old nor new: {now.get(name)!r}"

    def wrong_end(self, fault: Breakage, done: subprocess.CompletedProcess,
                  now: Dict[str, str]) -> Iterator[str]:
        # Meant: without its folders a run aborts.
        folder = re.search(r'\.morvane-connector(/vault|/updates)?"', fault.line)
        if done.returncode < 0 and "KILL" not in fault.inject and not folder:
            yield f"it ended by signal {-done.returncode}: {done.stderr}"
        key, old, new = now.get(VAULT), self.files.get(VAULT), KEY.format("demo").rstrip("\n")
        if "credentials_saved=true" in done.stdout and key != new and not self.keychain:
            yield "a key is called saved and is not there"
        if "credentials_saved=false" in done.stdout and key != (old and old.rstrip("\n")):
            yield "a key is called not saved and its file changed"
        if "removed=true" in done.stdout and key is not None:
            yield "a key is called removed and is there"

    def wrong_afterwards(self, home: str) -> Iterator[str]:
        status = self.run(home, ["status"])
        path = os.path.join(home, ".morvane-connector/device_identity.env")
        with open(path, encoding="ascii") as file:
            kept = file.readline()
        if status.returncode or kept not in status.stdout or (self.files and kept != DEVICE):
            yield f"a clean run afterwards does not find the identity: {status}"
        if left := [name for name in contents(home) if ".unfinished-" in name]:
            yield f"a clean run afterwards leaves {left}"


def wrong_modes(home: str) -> Iterator[str]:
    for folder, folders, names in os.walk(os.path.join(home, ".morvane-connector")):
        for path in [os.path.join(folder, name) for name in folders + names]:
            mode = stat.S_IMODE(os.stat(path).st_mode)
            wanted = (0o700,) if os.path.isdir(path) else (0o600,)
            if mode not in wanted and not (".unfinished-" in path and not mode & 0o077):
                yield f"{path[len(home):]} has mode {mode:o}"


def contents(home: str) -> Dict[str, str]:
    """Each state file's text, without empty lines at its end; random ids are all alike."""
    found = {}
    root = os.path.join(home, ".morvane-connector")
    for folder, _, names in os.walk(root):
        for path in [os.path.join(folder, name) for name in names]:
            with open(path, encoding="utf-8", errors="replace") as file:
                text = re.sub("device:macos:(?!0123456789ab)[0-9a-f]{12}|connector:[0-9a-f]{16}",
                              "random", file.read().rstrip("\n"))
            found[os.path.relpath(path, root)] = text
    return found


def main() -> int:
    if not shutil.which("strace"):
        sys.exit("faults: this needs strace, which only Linux has")
    broken = tried = 0
    with Sandbox() as box, ThreadPoolExecutor(os.cpu_count()) as pool:
        box.faults += [
            Fault.answer(hosts.RELAY, 200, b'{"status":"ok"}', path="/api/connector/claim"),
            Fault.answer(hosts.RELAY, 200, b'{"bindState":"authorized","wallet":"0xNew"}',
                         path="/api/connector/bind-status")]
        box.downloads.images["/image.dmg"] = b"a newer image\n"
        box.downloads.manifest = (b'{"version":"0.2.0","dmgUrl":"https://%s/image.dmg"}'
                                  % hosts.DOWNLOAD.encode())
        for case in [Case(box, command, files, keychain)
                     for command in sys.argv[1:] or COMMANDS for files in (OLD, {})
                     for keychain in (False, True)[:1 + (os.path.exists(SECURITY)
                                                         and command in WITH_KEYCHAIN)]]:
            faults = list(case.faults())
            tried += len(faults)
            for fault, rules in zip(faults, pool.map(case.broken_rules, faults)):
                broken += len(rules)
                for rule in rules:
                    print(f"{case.name}: {rule}\n  {fault.inject}  {fault.line}")
            print(f"{case.name}: {len(faults)} faults", flush=True)
    print(f"{broken} broken rules in {tried} faults")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
