"""The sandbox: a world behind a proxy, and the environment that leads there."""

import os
import re
import shutil
import ssl
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from contextlib import ExitStack
from typing import Any

from . import hosts
from .home import furnish
from .http_message import take_fault, wire_text
from .proxy import Proxy
from .world import World

CERTIFICATE = """\
[req]
distinguished_name = name
x509_extensions = itself
[name]
[itself]
basicConstraints = critical, CA:true
keyUsage = critical, digitalSignature, keyCertSign
extendedKeyUsage = serverAuth
subjectKeyIdentifier = hash
subjectAltName = """ + ", ".join("DNS:" + host for host in hosts.BY_SCHEME["https"])

# What passes of the caller's environment: the terminal, the language, where programs, manuals and
# temporary files are, and what an instrumented connector is told. Much of the rest moves what curl,
# openssl, python3 and the shells trust or run.
PASSING = re.compile("TERM|TERMINFO|COLORTERM|COLUMNS|LINES|NO_COLOR|LANG|LANGUAGE|LC_[A-Z]+|TZ|"
                     "PATH|MANPATH|TMPDIR|USER|LOGNAME|SHELL|DEVELOPER_DIR|"
                     "(A|L|UB)SAN_OPTIONS|MallocNanoZone|GCOV_[A-Z_]+")


class Sandbox(World):
    """A context: everything is there between enter and exit, and gone afterwards.

    `path` holds directories that come first on the PATH of what is run inside.
    """

    def __init__(self, path: Sequence[str] = ()) -> None:
        super().__init__()
        self._path = [os.path.abspath(directory) for directory in path]
        self._certificates: dict[str, ssl.SSLContext] = {}

    def __enter__(self) -> "Sandbox":
        with ExitStack() as stack:
            self._folder = os.path.realpath(tempfile.mkdtemp(prefix="morvane-sandbox-"))
            stack.callback(shutil.rmtree, self._folder, ignore_errors=True)
            self.home = self._new_folder("home")
            furnish(self.home)
            self._certificates["known"] = self._new_certificate("known")
            self._proxy = Proxy(self, self._certificate)
            stack.callback(self._proxy.close)
            self.env = self._environment()
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_: object) -> None:
        self._stack.close()

    def run(self, argv: Sequence[str], **options: Any) -> "subprocess.CompletedProcess[Any]":
        """Runs a command inside; its output comes as text, byte for byte.

        Bytes that are not UTF-8 come as surrogates. The options are subprocess.run's.
        """
        if "input" not in options:
            options.setdefault("stdin", subprocess.DEVNULL)
        done = subprocess.run(argv, **{"env": self.env, "capture_output": True, **options})
        done.stdout, done.stderr = wire_text(done.stdout), wire_text(done.stderr)
        return done

    def _new_folder(self, name: str) -> str:
        os.mkdir(os.path.join(self._folder, name), mode=0o700)
        return os.path.join(self._folder, name)

    def _new_certificate(self, name: str) -> ssl.SSLContext:
        """For all hosts, and its own authority; it lies in a folder of that name."""
        folder = self._new_folder(name)
        with open(os.path.join(folder, "openssl.cnf"), "w", encoding="ascii") as out:
            out.write(CERTIFICATE)
        files = [os.path.join(folder, file) for file in ("certificate.pem", "key.pem")]
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-sha256",
                        "-days", "7", "-subj", "/CN=Morvane sandbox", "-config", out.name,
                        "-out", files[0], "-keyout", files[1]],
                       env=_passing(), stdin=subprocess.DEVNULL, capture_output=True, check=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(*files)
        return context

    def _certificate(self, host: str) -> ssl.SSLContext:
        with self.lock:
            name = "stranger" if take_fault(self.faults, host, unvouched=True) else "known"
            if name not in self._certificates:
                self._certificates[name] = self._new_certificate(name)
            return self._certificates[name]

    def _environment(self) -> dict[str, str]:
        """What passes of the caller's, and what leads into this world."""
        authority = os.path.join(self._folder, "known", "certificate.pem")
        env = _passing()
        env.update(HOME=self.home, https_proxy=self._proxy.url, http_proxy=self._proxy.url,
                   CURL_CA_BUNDLE=authority, SSL_CERT_FILE=authority, SANDBOX_AUTHORITY=authority,
                   PYTHONPATH=os.path.join(os.path.dirname(os.path.abspath(__file__)), "python"),
                   PYTHONDONTWRITEBYTECODE="1", MORVANE_RELAY_URL="https://" + hosts.RELAY)
        path = list(self._path)
        # Some version managers look for their python3 below HOME, and so find none.
        if subprocess.run(["sh", "-c", "python3 -c '' 2>/dev/null"], env=env).returncode:
            path.append(self._new_folder("bin"))
            os.symlink(sys.executable, os.path.join(path[-1], "python3"))
        env["PATH"] = os.pathsep.join(path + [env.get("PATH", os.defpath)])
        return env


def _passing() -> dict[str, str]:
    return {name: value for name, value in os.environ.items() if PASSING.fullmatch(name)}
