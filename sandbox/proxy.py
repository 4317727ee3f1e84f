"""The local proxy: CONNECT with TLS ended here, and plain absolute-form requests."""

import ssl
import sys
import threading
from http.server import BaseHTTPRequestHandler
from socketserver import ThreadingTCPServer
from typing import Callable
from urllib.parse import urlsplit

from . import hosts
from .http_message import Fault, Request, Response, wire_text
from .world import World


class Proxy(ThreadingTCPServer):
    """Serves `world` on a free loopback port until `close`."""

    allow_reuse_address = daemon_threads = True
    block_on_close = False
    request_queue_size = 128

    def __init__(self, world: World, certificate: Callable[[str], ssl.SSLContext]) -> None:
        super().__init__(("127.0.0.1", 0), _Connection)
        self.world, self.certificate = world, certificate
        self.closing = threading.Event()
        self.url = "http://127.0.0.1:%d" % self.server_address[1]
        threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True).start()

    def close(self) -> None:
        self.closing.set()
        self.shutdown()
        self.server_close()

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
        self.close_connection = True
        if port != "443" or host not in hosts.BY_SCHEME["https"]:
            self.wfile.write(Response(502).head(0))
            return
        self.wfile.write(b"HTTP/1.1 200 Connection established\r\n\r\n")
        with self.server.certificate(host).wrap_socket(
                self.connection, server_side=True) as self.connection, \
                self.connection.makefile("rb") as self.rfile:
            self.host = host
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
            response, fault = self.server.world.handle(request)
            self._deliver(response, fault or Fault(host))

    do_POST = do_DELETE = do_GET

    def _deliver(self, response: Response, fault: Fault) -> None:
        body, endless = response.body, fault.delivery == "endless"
        sent = body[:len(body) // 2] if fault.delivery == "half" else body
        if fault.delivery != "nothing":
            self.connection.sendall(response.head(None if endless else len(body)) + sent)
        while endless and not self.server.closing.is_set():
            self.connection.sendall(body)
