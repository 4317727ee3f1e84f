"""The local proxy: CONNECT with TLS ended here, and plain absolute-form requests."""

from __future__ import annotations

import socket
import socketserver
import ssl
import sys
import threading
from typing import Callable, Dict
from urllib.parse import urlsplit

from .faults import Fault
from .http_message import Request, Response, read_request
from .world import World

POLL_SECONDS = 0.2


class Proxy(socketserver.ThreadingTCPServer):
    """Serves `world` on a free loopback port until `close`."""

    allow_reuse_address = True
    daemon_threads = True
    block_on_close = False
    request_queue_size = 128

    def __init__(self, world: World, certificates: Callable[[str], ssl.SSLContext]) -> None:
        super().__init__(("127.0.0.1", 0), _Connection)
        self.world = world
        self.certificates = certificates
        self.closing = threading.Event()
        self._thread = threading.Thread(target=self.serve_forever, args=(0.05,), daemon=True)
        self._thread.start()

    @property
    def url(self) -> str:
        return "http://127.0.0.1:%d" % self.server_address[1]

    def close(self) -> None:
        self.closing.set()
        self.shutdown()
        self._thread.join()
        self.server_close()

    def handle_error(self, request, client_address) -> None:
        """A client that leaves early is no news; anything else is."""
        if not isinstance(sys.exc_info()[1], OSError):
            super().handle_error(request, client_address)


class _Connection(socketserver.BaseRequestHandler):
    server: Proxy

    def handle(self) -> None:
        request = read_request(self.request)
        if request is None:
            return
        if request.method == "CONNECT":
            self._tunnel(request.target)
        else:
            self._plain(request)

    def _tunnel(self, authority: str) -> None:
        host, _, port = authority.rpartition(":")
        if port != "443" or not self.server.world.knows(host, "https"):
            self.request.sendall(Response(502).head())
            return
        self.request.sendall(b"HTTP/1.1 200 Connection established\r\n\r\n")
        context = self.server.certificates(self.server.world.certificate(host))
        with context.wrap_socket(self.request, server_side=True) as connection:
            request = read_request(connection)
            if request is not None:
                self._answer(connection, request, "https", host)

    def _plain(self, request: Request) -> None:
        url = urlsplit(request.target)
        host = url.hostname or ""
        if url.scheme != "http" or not self.server.world.knows(host, "http"):
            return
        request.target = request.target[len("http://") + len(url.netloc):] or "/"
        self._answer(self.request, request, "http", host)

    def _answer(self, connection: socket.socket, request: Request,
                scheme: str, host: str) -> None:
        request.scheme, request.host = scheme, host
        response, fault = self.server.world.handle(request)
        deliver = DELIVERIES[fault.delivery if fault else "whole"]
        deliver(connection, response, fault, self.server.closing)


def _whole(connection, response: Response, *_) -> None:
    connection.sendall(response.head() + response.body)


def _half(connection, response: Response, *_) -> None:
    connection.sendall(response.head() + response.body[:len(response.body) // 2])


def _slow(connection, response: Response, fault: Fault, closing: threading.Event) -> None:
    connection.sendall(response.head())
    size = max(1, -(-len(response.body) // fault.pieces))
    for start in range(0, len(response.body), size):
        connection.sendall(response.body[start:start + size])
        if closing.wait(fault.pause_seconds):
            return


def _nothing(*_) -> None:
    return


def _hang(connection, _response, _fault, closing: threading.Event) -> None:
    connection.settimeout(POLL_SECONDS)
    while not closing.is_set():
        try:
            if not connection.recv(1):
                return
        except socket.timeout:
            continue


DELIVERIES: Dict[str, Callable[..., None]] = {
    "whole": _whole, "half": _half, "slow": _slow, "nothing": _nothing, "hang": _hang,
}
