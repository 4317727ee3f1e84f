"""A throwaway certificate, made with the openssl command line."""

import os
import ssl
import subprocess
from collections.abc import Sequence

CONFIGURATION = """\
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
subjectAltName = {}
"""


class Certificate:
    """For servers of all `hosts`; it is its own authority. Its files lie in `folder`."""

    def __init__(self, folder: str, hosts: Sequence[str]) -> None:
        self.path, key = (os.path.join(folder, name) for name in ("certificate.pem", "key.pem"))
        with open(os.path.join(folder, "openssl.cnf"), "w", encoding="ascii") as out:
            out.write(CONFIGURATION.format(", ".join("DNS:" + host for host in hosts)))
        done = subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-sha256", "-days", "7",
             "-config", out.name, "-keyout", key, "-out", self.path],
            stdin=subprocess.DEVNULL, capture_output=True, text=True)
        if done.returncode != 0:
            raise RuntimeError("openssl req failed: " + done.stderr.strip())
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(self.path, key)
