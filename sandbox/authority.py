"""A throwaway certificate authority, made with the openssl command line."""

from __future__ import annotations

import os
import ssl
import subprocess
from datetime import datetime, timedelta, timezone
from typing import Sequence, Tuple

CONFIGURATION = """\
[req]
distinguished_name = name
prompt = no
[name]
CN = {name}
[authority]
basicConstraints = critical, CA:true
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[host]
basicConstraints = critical, CA:false
keyUsage = critical, digitalSignature
extendedKeyUsage = serverAuth
subjectKeyIdentifier = hash
authorityKeyIdentifier = keyid
subjectAltName = {names}
[ca]
default_ca = signing
[signing]
database = index.txt
new_certs_dir = .
serial = serial.txt
default_md = sha256
policy = any
unique_subject = no
[any]
commonName = supplied
"""

VALID = (-1, 7)
EXPIRED = (-9, -2)


class Authority:
    """Issues one certificate at a time for all of `hosts`; lives in `folder`."""

    def __init__(self, folder: str, hosts: Sequence[str], name: str = "Morvane sandbox") -> None:
        self._folder = folder
        self._hosts = hosts
        os.makedirs(folder, mode=0o700)
        self._write("index.txt", "")
        self._write("serial.txt", "01\n")
        self._configure("ca.cnf", name)
        self._configure("host.cnf", hosts[0])
        self._new_key("ca.key")
        self._openssl("req", "-new", "-x509", "-sha256", "-config", "ca.cnf",
                      "-extensions", "authority", "-key", "ca.key", "-days", "7",
                      "-out", "ca.pem")

    @property
    def certificate(self) -> str:
        return os.path.join(self._folder, "ca.pem")

    def server_context(self, days: Tuple[int, int] = VALID) -> ssl.SSLContext:
        """For servers of the hosts, valid from and until so many days from now."""
        self._new_key("host.key")
        self._openssl("req", "-new", "-sha256", "-config", "host.cnf", "-key", "host.key",
                      "-out", "host.csr")
        self._openssl("ca", "-batch", "-notext", "-config", "host.cnf", "-extensions", "host",
                      "-keyfile", "ca.key", "-cert", "ca.pem", "-in", "host.csr",
                      "-out", "host.pem",
                      "-startdate", _utc_time(days[0]), "-enddate", _utc_time(days[1]))
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(os.path.join(self._folder, "host.pem"),
                                os.path.join(self._folder, "host.key"))
        return context

    def _configure(self, file: str, name: str) -> None:
        names = ", ".join("DNS:" + host for host in self._hosts)
        self._write(file, CONFIGURATION.format(name=name, names=names))

    def _new_key(self, file: str) -> None:
        self._openssl("ecparam", "-name", "prime256v1", "-genkey", "-noout", "-out", file)

    def _write(self, file: str, text: str) -> None:
        with open(os.path.join(self._folder, file), "w", encoding="ascii") as out:
            out.write(text)

    def _openssl(self, *arguments: str) -> None:
        done = subprocess.run(("openssl",) + arguments, cwd=self._folder,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError(f"openssl {arguments[0]} failed: {done.stderr.strip()}")


def _utc_time(days_from_now: int) -> str:
    moment = datetime.now(timezone.utc) + timedelta(days=days_from_now)
    return moment.strftime("%y%m%d%H%M%SZ")
