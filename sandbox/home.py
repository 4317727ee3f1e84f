"""A HOME for a run inside: nothing of the user's own can be reached from it."""

import os
import pwd
import subprocess
from pathlib import Path

SECURITY = "/usr/bin/security"
KEYCHAIN = "Library/Keychains/login.keychain-db"


def furnish(home: str) -> None:
    """Makes an existing empty folder a HOME.

    Where it finds no settings in HOME, curl reads those of the user's entry in the system's list
    of users, so there are some, and they are empty. Where the system has a keychain tool, that
    keeps to HOME: it gets a keychain there, unlocked and without a password. (Without one it asks
    at the screen where to put the first key, and waits.)
    """
    Path(home, ".curlrc").touch(exist_ok=False)
    if os.path.exists(SECURITY):
        _make_keychain(home)


def _make_keychain(home: str) -> None:
    """Raises RuntimeError when the tool refuses, or does not keep to HOME."""
    def security(*arguments: str) -> str:
        done = subprocess.run([SECURITY, *arguments], env={"HOME": home, "PATH": os.defpath},
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, encoding="utf-8", errors="replace")
        if done.returncode:
            raise RuntimeError(f"{SECURITY} {arguments[0]}: {done.stdout.strip()}")
        return done.stdout

    keychain = os.path.join(home, KEYCHAIN)
    os.makedirs(os.path.dirname(keychain), mode=0o700)
    # There it notes which keychains it searches, and which takes new items.
    os.mkdir(os.path.join(home, "Library/Preferences"), mode=0o700)
    # A tool that goes by the list of users instead must not change the user's own notes.
    if f'"{pwd.getpwuid(os.getuid()).pw_dir}/Library/' in security("list-keychains", "-d", "user"):
        raise RuntimeError(f"{SECURITY} does not keep to HOME; your own keychain is left alone")
    security("create-keychain", "-p", "", keychain)
    security("set-keychain-settings", keychain)  # It is locked neither after a time nor by sleep.
    security("list-keychains", "-d", "user", "-s", keychain)
    security("default-keychain", "-d", "user", "-s", keychain)
    security("unlock-keychain", "-p", "", keychain)
