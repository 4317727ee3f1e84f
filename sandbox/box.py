"""The sandbox: a world behind a proxy, and the environment that leads there."""

import os
import shutil
import ssl
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from contextlib import ExitStack
from typing import Any

from . import hosts
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
            _refuse_used_keychain()
            stack.callback(_remove_items, self.home)
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
                       stdin=subprocess.DEVNULL, capture_output=True, check=True)
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
        env = {name: value for name, value in os.environ.items()
               if name.lower() not in ("all_proxy", "http_proxy", "https_proxy", "no_proxy")}
        authority = os.path.join(self._folder, "known", "certificate.pem")
        env.update(https_proxy=self._proxy.url, http_proxy=self._proxy.url, HOME=self.home,
                   CURL_CA_BUNDLE=authority, SSL_CERT_FILE=authority,
                   MORVANE_RELAY_URL="https://" + hosts.RELAY)
        path = list(self._path)
        # Some version managers look for their python3 below HOME, and so find none.
        if subprocess.run("python3 -c '' 2>/dev/null", shell=True, env=env).returncode:
            path.append(self._new_folder("bin"))
            os.symlink(sys.executable, os.path.join(path[-1], "python3"))
        env["PATH"] = os.pathsep.join(path + [env.get("PATH", os.defpath)])
        return env


def _refuse_used_keychain() -> None:
    """On a Mac, and so the next one: keeps away from the user's own keychain items."""
    held = [exchange for exchange in hosts.BY_EXCHANGE if _security("find", exchange, os.environ)]
    if held:
        raise RuntimeError("your keychain holds the connector's own credentials for "
                           f"{', '.join(held)}; the sandbox does not start beside them")


def _remove_items(home: str) -> None:
    for exchange in hosts.BY_EXCHANGE:
        _security("delete", exchange, os.environ)
        _security("delete", exchange, {**os.environ, "HOME": home})


def _security(verb, exchange, env) -> bool:
    return sys.platform == "darwin" and subprocess.run(
        ["/usr/bin/security", f"{verb}-generic-password",
         "-s", f"morvane.connector.{exchange}", "-a", exchange],
        env=env, stdin=subprocess.DEVNULL, capture_output=True).returncode == 0
