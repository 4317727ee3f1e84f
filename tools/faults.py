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
from typing import Dict, Iterator, List, NamedTuple, Optional, Tuple

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

from sandbox import Sandbox, hosts  # noqa: E402
from sandbox.home import KEYCHAIN, SECURITY, furnish  # noqa: E402

BINARY = os.path.abspath("build/demo/morvane-connector")
KEY = "exchange=bybit\napi_key={0}-bybit-key\napi_secret={0}-bybit-secret\npassphrase=\n"
LATEST = "updates/Morvane-Connector-latest.dmg"
OLD = {
    "device_identity.env": "device_id=device:macos:0123456789ab\n"
                           "connector_instance_id=connector:1\ndevice_label=My Mac\n"
                           "platform=macos\nowner_wallet=0xOld\npaired=1\n",
    "pairing.env": "owner_wallet_address=0xOld\npairing_status=bound\nserver_account_ref=\n"
                   "latest_bind_token=\nlatest_claimed_connector_id=\nplatform_terms_accepted=1\n"
                   "wallet_approval_confirmed=1\n",
    "vault/bybit.vault": KEY.format("old"),
    LATEST: "an older image\n",
}
COMMANDS = {
    "status": [], "set-wallet": ["0x" + "2" * 40], "bind-wallet": [], "disconnect-binding": [],
    "validate": ["bybit", "demo-bybit-key", "demo-bybit-secret"], "load-credentials": ["bybit"],
    "delete-credentials": ["bybit"], "update-download": [], "update-apply": [],
}
# What each call may answer. An error of close or brk is none that a program could meet.
ERRORS = {
    "openat": ("EACCES", "EIO", "EMFILE"), "open": ("EACCES", "EIO", "EMFILE"),
    "fstat": ("EIO",), "newfstatat": ("EIO", "EACCES"), "stat": ("EIO",), "lstat": ("EIO",),
    "pread64": ("EIO", "EINTR"), "read": ("EIO",), "getdents64": ("EIO",), "lseek": ("EIO",),
    "pwrite64": ("EIO", "ENOSPC"), "write": ("EIO", "ENOSPC"), "ftruncate": ("EIO",),
    "link": ("EIO", "EPERM", "ENOSPC", "EMLINK"), "unlink": ("EIO", "EACCES"),
    "unlinkat": ("EIO",), "rename": ("EIO", "ENOSPC"), "mkdir": ("EACCES",), "chmod": ("EPERM",),
    "fchmodat": ("EPERM",), "fchmod": ("EPERM",), "sendfile": ("EIO", "ENOSPC"),
    "copy_file_range": ("EIO", "ENOSPC"), "readlink": ("EIO",), "rmdir": ("EIO",),
}
CHANGING = ("pwrite64", "write", "ftruncate", "link", "unlink", "unlinkat", "rename", "mkdir",
            "chmod", "fchmodat", "fchmod", "sendfile", "copy_file_range", "openat", "rmdir")
Files = Dict[str, str]


class Fault(NamedTuple):
    """One thing that goes wrong: at the call `line`, or where files cannot grow beyond `room`."""
    inject: str
    line: str
    room: Optional[int] = None


class Case:
    """A command with its files in place, or as the first run, with or without a keychain."""

    def __init__(self, box: Sandbox, command: str, files: Files, keychain: bool) -> None:
        self.box, self.command, self.files, self.keychain = box, command, files, keychain
        self.name = f"{command}, {'files in place' if files else 'first run'}" + \
            (", keychain" if keychain else "")
        home, _ = self.run([])
        self.after = contents(home)
        shutil.rmtree(home)
        home, _ = self.run([], command=["status"])
        self.begun = contents(home)  # what every run does before its command
        shutil.rmtree(home)

    def run(self, wrapper: List[str], room: Optional[int] = None,
            command: Optional[List[str]] = None) -> Tuple[str, subprocess.CompletedProcess]:
        """A HOME of its own, and how the command ended there."""
        home = os.path.realpath(tempfile.mkdtemp(prefix="morvane-faults-"))
        furnish(home)
        if os.path.exists(SECURITY) and not self.keychain:
            with open(os.path.join(home, KEYCHAIN), "w", encoding="ascii") as damaged:
                damaged.write("damaged")
        for name, text in self.files.items():
            path = os.path.join(home, ".morvane-connector", name)
            os.makedirs(os.path.dirname(path), mode=0o700, exist_ok=True)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(path, 0o600)
        command = command or [self.command, *COMMANDS[self.command]]
        return home, self.connector(home, wrapper, *command, room=room)

    def connector(self, home: str, wrapper: List[str], *command: str, room: Optional[int] = None):
        def limit() -> None:
            if room is not None:
                resource.setrlimit(resource.RLIMIT_FSIZE, (room, resource.RLIM_INFINITY))
        with open(os.devnull, encoding="utf-8") as nothing:
            return subprocess.run([*wrapper, BINARY, *command], env=dict(self.box.env, HOME=home),
                                  stdin=nothing, capture_output=True, text=True, timeout=60,
                                  check=False, umask=0o077, preexec_fn=limit)

    def faults(self) -> Iterator[Fault]:
        with tempfile.NamedTemporaryFile("r") as trace:
            home, _ = self.run(["strace", "-y", "-qq", "-o", trace.name])
            lines = trace.read().splitlines()
        shutil.rmtree(home)
        seen: Dict[str, int] = {}
        for line in lines:
            call = line.partition("(")[0]
            seen[call] = seen.get(call, 0) + 1
            if ".morvane-connector" not in line or call not in ERRORS:
                continue
            errors = ERRORS[call] + (("ENOSPC",) if "O_CREAT" in line else ())
            for error in errors:
                yield Fault(f"{call}:error={error}:when={seen[call]}", line)
            if call in CHANGING and (call != "openat" or "O_CREAT" in line):
                yield Fault(f"{call}:error=EIO:signal=KILL:when={seen[call]}", line)
        longest = max(len(text) for text in self.after.values())
        for room in range(longest + 1):
            yield Fault("", f"files cannot grow beyond {room} bytes", room)

    def broken_rules(self, fault: Fault) -> List[str]:
        wrapper = ["strace", "-qq", "-o", os.devnull, "-e", "inject=" + fault.inject] \
            if fault.inject else []
        try:
            home, done = self.run(wrapper, fault.room)
        except subprocess.TimeoutExpired:
            return ["it hangs"]
        try:
            return [*self.wrong_files(home), *self.wrong_end(fault, done),
                    *self.wrong_answer(home, done), *self.wrong_afterwards(home)]
        finally:
            shutil.rmtree(home)

    def wrong_files(self, home: str) -> Iterator[str]:
        now = contents(home)
        for name in {*now, *self.after, *self.files} - {"updates/Morvane-Connector-0.2.0.dmg"}:
            found = now.get(name)
            allowed = [self.files.get(name), self.begun.get(name), self.after.get(name)]
            allowed += [None] if name == LATEST else []
            # Where the pairing file found no room, its old wallet goes to the identity.
            allowed.append(self.after.get(name, "").replace("2" * 40, "Old"))
            if found not in [text and text.rstrip("\n") for text in allowed] and \
                    ".unfinished-" not in name:
                yield f"{name} is neither old nor new: {found!r}"
        root = os.path.join(home, ".morvane-connector")
        for folder, folders, files in os.walk(root):
            for path in [os.path.join(folder, name) for name in folders + files]:
                mode = stat.S_IMODE(os.stat(path).st_mode)
                if mode & 0o077 or (mode != 0o600 and os.path.isfile(path)
                                    and ".unfinished-" not in path):
                    yield f"{path[len(root):]} has mode {mode:o}"

    def wrong_end(self, fault: Fault, done: subprocess.CompletedProcess) -> Iterator[str]:
        # Meant: without its folders a run aborts.
        folder = re.search(r'\.morvane-connector(/vault|/updates)?"', fault.line)
        if done.returncode < 0 and "KILL" not in fault.inject and not folder:
            yield f"it ended by signal {-done.returncode}: {done.stderr}"

    def wrong_answer(self, home: str, done: subprocess.CompletedProcess) -> Iterator[str]:
        now = contents(home)
        if "credentials_saved=true" in done.stdout and not self.keychain and \
                now.get("vault/bybit.vault") != KEY.format("demo").rstrip("\n"):
            yield "a key is called saved and is not there"
        if "credentials_saved=false" in done.stdout and \
                now.get("vault/bybit.vault", "\n") != self.files.get(
                    "vault/bybit.vault", "\n\n")[:-1]:
            yield "a key is called not saved and its file changed"
        if "removed=true" in done.stdout and "vault/bybit.vault" in now:
            yield "a key is called removed and is there"

    def wrong_afterwards(self, home: str) -> Iterator[str]:
        status = self.connector(home, [], "status")
        with open(os.path.join(home, ".morvane-connector/device_identity.env"),
                  encoding="utf-8") as file:
            if file.readline() not in status.stdout or status.returncode:
                yield f"a clean run afterwards does not find the identity: {status}"
        if self.files and "device:macos:0123456789ab" not in status.stdout:
            yield "the identity is lost"
        now = contents(home)
        left = [name for name in now if ".unfinished-" in name]
        if left:
            yield f"a clean run afterwards leaves {left}"


def contents(home: str) -> Files:
    """Each state file's text, without empty lines at its end; random ids are all alike."""
    found = {}
    root = os.path.join(home, ".morvane-connector")
    for folder, _, names in os.walk(root):
        for name in names:
            path = os.path.join(folder, name)
            with open(path, encoding="utf-8", errors="replace") as file:
                text = re.sub("device:macos:(?!0123456789ab)[0-9a-f]{12}", "device:macos:new",
                              file.read().rstrip("\n"))
            found[os.path.relpath(path, root)] = re.sub("connector:[0-9a-f]{16}",
                                                        "connector:new", text)
    return found


def main() -> int:
    if not shutil.which("strace"):
        sys.exit("faults: this needs strace, which only Linux has")
    wanted = sys.argv[1:] or list(COMMANDS)
    broken = tried = 0
    with Sandbox() as box, ThreadPoolExecutor(os.cpu_count()) as pool:
        box.downloads.images["/image.dmg"] = b"a newer image\n"
        box.downloads.manifest = (b'{"version":"0.2.0","dmgUrl":"https://%s/image.dmg"}'
                                  % hosts.DOWNLOAD.encode())
        keychains = [False, True] if os.path.exists(SECURITY) else [False]
        cases = [Case(box, command, files, keychain) for command in wanted for files in (OLD, {})
                 for keychain in (keychains if "cred" in command or command == "validate"
                                  else [False])]
        for case in cases:
            faults = list(case.faults())
            tried += len(faults)
            for fault, rules in zip(faults, pool.map(case.broken_rules, faults)):
                for rule in rules:
                    broken += 1
                    print(f"{case.name}: {rule}\n  {fault.inject}  {fault.line}")
            print(f"{case.name}: {len(faults)} faults")
    print(f"{broken} broken rules in {tried} faults")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
