"""The sandbox: a world behind a proxy, and the environment that leads there."""

import os
import shutil
import ssl
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from contextlib import ExitStack
from functools import cached_property
from typing import Any

from . import hosts
from .http_message import take_fault, wire_text
from .mac_keychain import refuse_used_keychain, remove_items
from .proxy import Proxy
from .world import World

CERTIFICATE = """\
[req]
distinguished_name = name
x509_extensions = itself
prompt = no
[name]
CN = Morvane sandbox
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
        self.home = ""
        self.env: dict[str, str] = {}

    def __enter__(self) -> "Sandbox":
        with ExitStack() as stack:
            self._folder = os.path.realpath(tempfile.mkdtemp(prefix="morvane-sandbox-"))
            stack.callback(shutil.rmtree, self._folder, ignore_errors=True)
            self.home = self._new_folder("home")
            refuse_used_keychain()
            stack.callback(remove_items, self.home)
            self._known = self._new_certificate("known")
            self._proxy = Proxy(self, self._certificate)
            stack.callback(self._proxy.close)
            self.env = self._environment()
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_: object) -> None:
        self._stack.close()

    def run(self, argv: Sequence[str], **options: Any) -> "subprocess.CompletedProcess[Any]":
        """Runs a command inside; its output comes as text, byte for byte, unless text=False.

        Bytes that are not UTF-8 come as surrogates. The options are subprocess.run's.
        """
        as_text = options.pop("text", True)
        options.setdefault("env", self.env)
        if "input" not in options:
            options.setdefault("stdin", subprocess.DEVNULL)
        if "stdout" not in options and "stderr" not in options:
            options.setdefault("capture_output", True)
        done = subprocess.run(argv, **options)
        if as_text:
            done.stdout, done.stderr = (text if text is None else wire_text(text)
                                        for text in (done.stdout, done.stderr))
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
                        "-days", "7", "-config", out.name, "-out", files[0], "-keyout", files[1]],
                       stdin=subprocess.DEVNULL, capture_output=True, check=True)
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(*files)
        return context

    @cached_property
    def _stranger(self) -> ssl.SSLContext:
        return self._new_certificate("stranger")

    def _certificate(self, host: str) -> ssl.SSLContext:
        with self.lock:
            return self._stranger if take_fault(self.faults, host, unvouched=True) else self._known

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
