"""The sandbox: a world behind a proxy, and the environment that leads there."""

from __future__ import annotations

import os
import shutil
import ssl
import subprocess
import sys
import tempfile
import threading
from decimal import Decimal
from typing import Any, Dict, List, Optional, Sequence

from . import hosts
from .account import Account
from .authority import EXPIRED, Authority
from .downloads import Downloads
from .faults import Fault
from .http_message import Request
from .keys import ApiKey
from .mac_keychain import MacKeychain
from .proxy import Proxy
from .records import Order
from .relay import Relay
from .world import World

OTHER_PROXY_VARIABLES = ("HTTP_PROXY", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY", "all_proxy",
                         "no_proxy")


class Sandbox:
    """A context: everything is there between enter and exit, and gone afterwards.

    `path` holds directories that come first on the PATH of what is run inside.
    """

    def __init__(self, path: Sequence[str] = ()) -> None:
        self._path = [os.path.abspath(directory) for directory in path]
        self._world = World()
        self._certificates: Dict[str, ssl.SSLContext] = {}
        self._certificates_lock = threading.Lock()
        self._folder = ""
        self.home = ""
        self.env: Dict[str, str] = {}
        self.requests: List[Request] = self._world.requests
        """Everything received, oldest first; clear it as you like."""
        self.refused: List[str] = self._world.refused
        """Hosts that somebody asked for and that are not of this world."""
        self.faults: List[Fault] = self._world.faults
        self.relay: Relay = self._world.relay
        self.downloads: Downloads = self._world.downloads

    def __enter__(self) -> "Sandbox":
        self._folder = os.path.realpath(tempfile.mkdtemp(prefix="morvane-sandbox-"))
        try:
            self._start()
        except BaseException:
            shutil.rmtree(self._folder, ignore_errors=True)
            raise
        return self

    def __exit__(self, *_: object) -> None:
        try:
            self._proxy.close()
        finally:
            self._keychain.close()
            shutil.rmtree(self._folder, ignore_errors=True)

    @property
    def clock_offset_ms(self) -> int:
        """The exchanges' clock, relative to ours."""
        return self._world.clock.offset_ms

    @clock_offset_ms.setter
    def clock_offset_ms(self, offset: int) -> None:
        self._world.clock.offset_ms = offset

    def keys(self, exchange: str) -> List[ApiKey]:
        """The keys that the exchange knows; append to it."""
        return self._world.keys[exchange]

    def account(self, exchange: str) -> Account:
        return self._world.exchanges[exchange].account

    def fill(self, exchange: str, order_id: str, quantity: Optional[Decimal] = None) -> Order:
        with self._world.lock:
            return self.account(exchange).fill(order_id, quantity)

    def set_mark(self, coin: str, price: Decimal) -> None:
        self._world.set_mark(coin, price)

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
            done.stdout, done.stderr = _text(done.stdout), _text(done.stderr)
        return done

    def _start(self) -> None:
        self.home = os.path.join(self._folder, "home")
        os.mkdir(self.home, mode=0o700)
        self._keychain = MacKeychain(self.home, hosts.BY_EXCHANGE)
        self._keychain.open()
        try:
            self._authority = Authority(os.path.join(self._folder, "authority"), hosts.CERTIFIED)
            self._certificates[""] = self._authority.server_context()
            self._proxy = Proxy(self._world, self._certificate)
        except BaseException:
            self._keychain.close()
            raise
        self.env = self._environment()

    def _certificate(self, flaw: str) -> ssl.SSLContext:
        with self._certificates_lock:
            if flaw not in self._certificates:
                self._certificates[flaw] = self._flawed_certificate(flaw)
            return self._certificates[flaw]

    def _flawed_certificate(self, flaw: str) -> ssl.SSLContext:
        if flaw == "expired":
            return self._authority.server_context(EXPIRED)
        stranger = Authority(os.path.join(self._folder, flaw), hosts.CERTIFIED, "Nobody we know")
        return stranger.server_context()

    def _environment(self) -> Dict[str, str]:
        env = {name: value for name, value in os.environ.items()
               if name not in OTHER_PROXY_VARIABLES}
        env.update(https_proxy=self._proxy.url, http_proxy=self._proxy.url,
                   CURL_CA_BUNDLE=self._authority.certificate,
                   SSL_CERT_FILE=self._authority.certificate,
                   HOME=self.home, MORVANE_RELAY_URL="https://" + hosts.RELAY)
        first = self._path if _python_runs(env) else self._path + [self._own_python()]
        env["PATH"] = os.pathsep.join(first + [env.get("PATH", os.defpath)])
        return env

    def _own_python(self) -> str:
        """A directory that holds nothing but this python, as python3."""
        directory = os.path.join(self._folder, "bin")
        os.mkdir(directory)
        os.symlink(sys.executable, os.path.join(directory, "python3"))
        return directory


def _python_runs(env: Dict[str, str]) -> bool:
    """Whether python3 still starts there: some version managers look for it below HOME."""
    try:
        return subprocess.run(["python3", "-c", ""], env=env, stdin=subprocess.DEVNULL,
                              capture_output=True).returncode == 0
    except OSError:
        return False


def _text(output: Optional[bytes]) -> Optional[str]:
    return output if output is None else output.decode("utf-8", "surrogateescape")
