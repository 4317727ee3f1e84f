"""A HOME for a run inside: nothing of the user's own can be reached from it."""

import os
import subprocess

SECURITY = "/usr/bin/security"
KEYCHAIN = "Library/Keychains/login.keychain-db"


def furnish(home: str) -> None:
    """Makes an existing empty folder a HOME.

    Where it finds no settings in HOME, curl reads those of the user's entry in the system's list
    of users, so there are some, and they are empty. Where the system has a keychain tool, that
    keeps to HOME: it gets a keychain there, unlocked and without a password. (Without one it asks
    at the screen where to put the first key, and waits.)
    """
    with open(os.path.join(home, ".curlrc"), "x", encoding="ascii"):
        pass
    if not os.path.exists(SECURITY):
        return
    keychain = os.path.join(home, KEYCHAIN)
    os.makedirs(os.path.dirname(keychain), mode=0o700)
    for command in (["create-keychain", "-p", ""], ["set-keychain-settings"],
                    ["unlock-keychain", "-p", ""]):
        subprocess.run([SECURITY, *command, keychain], env={**os.environ, "HOME": home},
                       stdin=subprocess.DEVNULL, capture_output=True, check=True)
