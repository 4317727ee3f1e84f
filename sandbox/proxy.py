"""The local proxy: CONNECT with TLS ended here, and plain absolute-form requests."""

import ssl
import sys
import threading
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from typing import Callable
from urllib.parse import urlsplit

from .faults import Fault
from .http_message import Request, Response, wire_text
from .world import World


class Proxy(ThreadingHTTPServer):
    """Serves `world` on a free loopback port until `close`."""

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
    tunnel_host = ""

    def log_message(self, *_) -> None:
        """The requests are kept, not printed."""

    def do_CONNECT(self) -> None:
        host, _, port = self.path.rpartition(":")
        self.close_connection = True
        if port != "443" or not self.server.world.knows(host, "https"):
            self.wfile.write(Response(502).head(0))
            return
        self.wfile.write(b"HTTP/1.1 200 Connection established\r\n\r\n")
        context = self.server.certificate(host)
        with context.wrap_socket(self.connection, server_side=True) as self.connection, \
                self.connection.makefile("rb") as self.rfile:
            self.tunnel_host = host
            self.handle_one_request()

    def do_GET(self) -> None:
        scheme, host, target = "https", self.tunnel_host, self.path
        if not host:
            url = urlsplit(self.path)
            scheme, host = "http", url.hostname or ""
            target = self.path[len("http://") + len(url.netloc):] or "/"
        self.close_connection = True
        if scheme == "https" or self.server.world.knows(host, scheme):
            headers = [(name, wire_text(value.encode("latin-1")))
                       for name, value in self.headers.items()]
            body = self.rfile.read(int(self.headers.get("Content-Length", "0")))
            target = wire_text(target.encode("latin-1"))
            response, fault = self.server.world.handle(
                Request(scheme, host, self.command, target, headers, body))
            self._deliver(response, fault or Fault(host))

    do_POST = do_DELETE = do_PUT = do_HEAD = do_GET

    def _deliver(self, response: Response, fault: Fault) -> None:
        body, send, closing = response.body, self.connection.sendall, self.server.closing
        if fault.delivery == "nothing":
            return
        if fault.delivery == "endless":
            send(response.head(None))
            while not closing.is_set():
                send(body)
        if fault.delivery == "half":
            send(response.head(len(body)) + body[:len(body) // 2])
        if fault.delivery == "whole":
            send(response.head(len(body)) + body)
        if fault.delivery == "slow":
            send(response.head(len(body)))
            size = max(1, -(-len(body) // fault.pieces))
            for start in range(0, len(body), size):
                send(body[start:start + size])
                closing.wait(fault.pause_seconds)
