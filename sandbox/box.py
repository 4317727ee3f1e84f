"""The sandbox: the services by host, and the environment that leads to them."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import threading
from collections.abc import Sequence
from contextlib import ExitStack
from importlib import import_module
from typing import Any

from . import hosts
from .account import Refused
from .control import Control
from .exchanges.exchange import Exchange
from .home import furnish
from .http_message import Fault, Request, Response, wire_text
from .platform_hosts import Downloads, Relay
from .proxy import Proxy, certify

# What passes of the caller's environment: the terminal, the language, where programs, manuals and
# temporary files are, and what an instrumented connector is told. Much of the rest moves what curl,
# openssl, python3 and the shells trust or run.
PASSING = re.compile("TERM|TERMINFO|COLORTERM|COLUMNS|LINES|NO_COLOR|LANG|LANGUAGE|LC_[A-Z]+|TZ|"
                     "PATH|MANPATH|TMPDIR|USER|LOGNAME|SHELL|DEVELOPER_DIR|"
                     "(A|L|UB)SAN_OPTIONS|MallocNanoZone|GCOV_[A-Z_]+")


class Sandbox:
    """A context: everything is there between enter and exit, and gone afterwards.

    `path` holds directories that come first on the PATH of what is run inside.
    """

    def __init__(self, path: Sequence[str] = ()) -> None:
        self._path = [os.path.abspath(directory) for directory in path]
        self._lock = threading.Lock()
        self.reset()

    def __enter__(self) -> "Sandbox":
        with ExitStack() as stack:
            self._folder = os.path.realpath(tempfile.mkdtemp(prefix="morvane-sandbox-"))
            stack.callback(shutil.rmtree, self._folder, ignore_errors=True)
            self.home = self._new_folder("home")
            furnish(self.home)
            proxy = Proxy(self, certify(self._folder))
            stack.callback(proxy.server_close)
            stack.callback(proxy.shutdown)
            self.env = self._environment(proxy.url)
            self._stack = stack.pop_all()
        return self

    def __exit__(self, *_: object) -> None:
        self._stack.close()

    def reset(self) -> None:
        """Everything outside as at the start."""
        with self._lock:
            self.requests: list[Request] = []
            # Why an exchange did not accept the key, time, signature or passphrase of a request.
            self.refusals: list[Refused] = []
            self.faults: list[Fault] = []
            self.relay, self.downloads = Relay(), Downloads()
            self.exchanges: dict[str, Exchange] = {}  # each with its keys and its account
            self._services = {hosts.RELAY: self.relay.handle, hosts.CONTROL: Control(self),
                              hosts.DOWNLOAD: self.downloads.handle}
            for name, its_hosts in hosts.BY_EXCHANGE.items():
                module = import_module(f"{__package__}.exchanges.{name}")
                self.exchanges[name] = getattr(module, name.capitalize())(self.refusals)
                self._services.update(dict.fromkeys(its_hosts, self.exchanges[name].handle))

    def handle(self, request: Request) -> tuple[Response, str]:
        """The answer, and how it is delivered. One request is handled at a time."""
        with self._lock:
            self.requests.append(request)
            fault = next((one for one in self.faults if one.fits(request)), Fault(request.host))
            if fault.times:
                fault.times -= 1
            response = fault.response or self._services[request.host](request)
            return response, fault.delivery

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

    def _environment(self, proxy: str) -> dict[str, str]:
        """What passes of the caller's, and what leads into this world."""
        authority = os.path.join(self._folder, "certificate.pem")
        env = {name: value for name, value in os.environ.items() if PASSING.fullmatch(name)}
        env.update(HOME=self.home, https_proxy=proxy, http_proxy=proxy,
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
