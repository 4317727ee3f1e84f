"""The platform's two hosts: its relay, and the one to download releases from."""

import json

from . import hosts
from .http_message import Request, Response

BIND_TOKEN = "demo-bind-token"
WALLET = "0x52908400098527886E0F7030069857D2E4169EE7"
Members = dict[str, str]


class Relay:
    """Binds connectors to wallets, by wallet or by one-time token."""

    def __init__(self) -> None:
        self.tokens = {BIND_TOKEN: WALLET}  # the wallet that each was shown to
        self.spent: dict[str, str] = {}  # the connector that claimed each
        self.bindings: dict[str, Members] = {}  # by connector: pending_signature, authorized
        self._routes = {"GET /api/security/config": self._configuration,
                        "POST /api/connector/bind": self._bind,
                        "GET /api/connector/bind-status": self._bind_status,
                        "POST /api/connector/claim-token": self._claim_token}

    def handle(self, request: Request) -> Response:
        route = self._routes.get(f"{request.method} {request.path}")
        if route is None:
            return Response.of_json(_error("not_found"), 404)
        try:
            sent = json.loads(request.body) if request.body else request.parameters
            return Response.of_json(route(sent, request.header("x-morvane-wallet")))
        except (ValueError, LookupError, TypeError):
            return Response.of_json(_error("invalid_request"), 400)

    def authorize(self) -> int:
        """The wallets' owners sign; returns how many bindings that changed."""
        waiting = [one for one in self.bindings.values() if one["bindState"] != "authorized"]
        for binding in waiting:
            binding["bindState"] = "authorized"
        return len(waiting)

    def _configuration(self, _sent, _wallet) -> Members:
        return {"status": "ok", "relay": "sandbox", "minConnectorVersion": "0.1.0"}

    def _bind(self, sent: Members, _wallet) -> Members:
        return self._begin(sent["connectorId"], sent["wallet"])

    def _claim_token(self, sent: Members, _wallet) -> Members:
        if sent["token"] not in self.tokens:
            return _error("token_invalid")
        if self.spent.setdefault(sent["token"], sent["connectorId"]) != sent["connectorId"]:
            return _error("token_spent")
        return self._begin(sent["connectorId"], self.tokens[sent["token"]])

    def _bind_status(self, sent: Members, wallet) -> Members:
        binding = self.bindings.get(sent["connectorId"])
        if binding is None or wallet != binding["wallet"]:
            return _error("session_missing")
        return {"status": "ok", **binding}

    def _begin(self, connector: str, wallet: str) -> Members:
        """The connector's binding to that wallet, a new one unless it is there already."""
        binding = self.bindings.get(connector)
        if binding is None or binding["wallet"] != wallet:
            binding = self.bindings[connector] = {
                "connectorId": connector, "wallet": wallet, "bindState": "pending_signature"}
        state = binding["bindState"]
        return {"status": "ok" if state == "authorized" else state, **binding}


class Downloads:
    """All of it may be changed: the manifest, images by path, new locations by path."""

    def __init__(self) -> None:
        image = "/Morvane-Connector-0.2.0.dmg"
        self.manifest = b'{"version":"0.2.0","dmgUrl":"https://%s%s","channel":"stable"}' % (
            hosts.DOWNLOAD.encode(), image.encode())
        self.images = {image: bytes(range(256)) * 768}
        self.redirects: dict[str, str] = {}

    def handle(self, request: Request) -> Response:
        if request.path in self.redirects:
            return Response(302, headers=[("Location", self.redirects[request.path])])
        if request.path == "/current/manifest.json":
            return Response(200, self.manifest)
        if request.path in self.images:
            return Response(200, self.images[request.path], "application/x-apple-diskimage")
        return Response(404, b"not found\n", "text/plain")


def _error(reason: str) -> Members:
    return {"status": "error", "reason": reason}
