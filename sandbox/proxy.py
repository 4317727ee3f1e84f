"""The local proxy: CONNECT with TLS ended here, and plain absolute-form requests."""

import os
import ssl
import subprocess
import sys
import threading
from http.server import BaseHTTPRequestHandler
from socketserver import ThreadingTCPServer
from urllib.parse import urlsplit

from . import hosts
from .http_message import Request, Response, wire_text

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


class Proxy(ThreadingTCPServer):
    """Serves `box` on a free loopback port until `shutdown`."""

    daemon_threads = True
    request_queue_size = 128

    def __init__(self, box, context: ssl.SSLContext) -> None:
        super().__init__(("127.0.0.1", 0), _Connection)
        self.box, self.context = box, context
        self.url = "http://127.0.0.1:%d" % self.server_address[1]
        threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True).start()

    def handle_error(self, request, client_address) -> None:
        """A client that leaves early is no news; anything else is."""
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)


class _Connection(BaseHTTPRequestHandler):
    server: Proxy
    protocol_version = "HTTP/1.1"
    host = ""  # of the tunnel, once there is one

    def log_message(self, *_) -> None:
        """The requests are kept, not printed."""

    def do_CONNECT(self) -> None:
        host, _, port = self.path.rpartition(":")
        if port != "443" or host not in hosts.BY_SCHEME["https"]:
            self.send_error(502)
            return
        self.send_response_only(200, "Connection established")
        self.end_headers()
        self.host, self.close_connection = host, True
        with self.server.context.wrap_socket(self.request, server_side=True) as self.request:
            self.setup()
            self.handle_one_request()

    def do_GET(self) -> None:
        scheme, host, target = "https", self.host, self.requestline.split(" ")[1]
        if not host:
            url = urlsplit(target)
            scheme, host = "http", url.hostname or ""
            target = target[len("http://") + len(url.netloc):] or "/"
        self.close_connection = True
        if host in hosts.BY_SCHEME[scheme]:
            # What http.server read as Latin-1 becomes the text that it is.
            target, *values = (wire_text(text.encode("latin-1"))
                               for text in (target, *self.headers.values()))
            headers = list(zip(self.headers.keys(), values))
            body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
            request = Request(scheme, host, self.command, target, headers, body)
            self._deliver(*self.server.box.handle(request))

    do_POST = do_DELETE = do_GET

    def _deliver(self, response: Response, how: str) -> None:
        body = response.body
        if how != "never":
            self.send_response_only(response.status)
            self.send_header("Connection", "close")
            for name, value in response.headers:
                self.send_header(name, value)
            if how != "endless":
                self.send_header("Content-Length", str(len(body)))
            self.end_headers()
            self.wfile.write(body[:len(body) // 2] if how == "half" else body)
        while how == "endless":
            self.wfile.write(body)


def certify(folder: str) -> ssl.SSLContext:
    """A new certificate for all hosts, and its own authority: certificate.pem in that folder."""
    settings, certificate, key = (os.path.join(folder, name) for name in
                                  ("openssl.cnf", "certificate.pem", "key.pem"))
    with open(settings, "w", encoding="ascii") as out:
        out.write(CERTIFICATE)
    subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-sha256",
                    "-days", "7", "-subj", "/CN=Morvane sandbox", "-config", settings,
                    "-out", certificate, "-keyout", key],
                   env={"PATH": os.environ.get("PATH", os.defpath)},
                   stdin=subprocess.DEVNULL, capture_output=True, check=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context
