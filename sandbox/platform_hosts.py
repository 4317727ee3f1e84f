"""The platform's two hosts: its relay, and the one to download releases from."""

import json
from typing import Any

from . import hosts
from .http_message import Request, Response

MANIFEST = '{"version":"0.2.0","dmgUrl":"https://%s%s","channel":"stable"}'
IMAGE = "/Morvane-Connector-0.2.0.dmg"


class Relay:
    """Binds connectors to wallets, by wallet or by one-time token."""

    def __init__(self) -> None:
        # The wallet that each token was shown to, and the connector that claimed it.
        self.tokens = {"demo-bind-token": "0x52908400098527886E0F7030069857D2E4169EE7"}
        self._claims: dict[str, str] = {}
        self._bindings: dict[str, dict[str, str]] = {}

    def handle(self, request: Request) -> Response:
        try:
            sent = json.loads(request.body) if request.body else request.parameters
            return Response.of_json(self._answer(request, sent))
        except (ValueError, LookupError, TypeError):
            return Response.of_json(_error("invalid_request"), 400)

    def authorize(self) -> int:
        """The wallets' owners sign; returns how many bindings that changed."""
        waiting = [one for one in self._bindings.values() if one["bindState"] != "authorized"]
        for binding in waiting:
            binding["bindState"] = "authorized"
        return len(waiting)

    def _answer(self, request: Request, sent: dict[str, str]) -> dict[str, Any]:
        action = request.path.rpartition("/")[2]
        if action == "config":
            return {"status": "ok", "relay": "sandbox", "minConnectorVersion": "0.1.0"}
        connector, token = sent["connectorId"], sent.get("token")
        binding = self._bindings.get(connector, {})
        if action == "bind-status":
            known = binding and binding["wallet"] == request.header("x-morvane-wallet")
            return {"status": "ok", **binding} if known else _error("session_missing")
        if action == "claim-token" and token not in self.tokens:
            return _error("token_invalid")
        if action == "claim-token" and self._claims.setdefault(token, connector) != connector:
            return _error("token_spent")
        wallet = self.tokens[token] if action == "claim-token" else sent["wallet"]
        if binding.get("wallet") != wallet:
            binding = self._bindings[connector] = {
                "connectorId": connector, "wallet": wallet, "bindState": "pending_signature"}
        state = binding["bindState"]
        return {"status": "ok" if state == "authorized" else state, **binding}


class Downloads:
    """All of it may be changed: the manifest, images by path, new locations by path."""

    def __init__(self) -> None:
        self.manifest = (MANIFEST % (hosts.DOWNLOAD, IMAGE)).encode()
        self.images = {IMAGE: bytes(range(256)) * 768}
        self.redirects: dict[str, str] = {}

    def handle(self, request: Request) -> Response:
        if request.path in self.redirects:
            return Response(302, headers=[("Location", self.redirects[request.path])])
        served = {"/current/manifest.json": self.manifest, **self.images}
        if request.path in served:
            return Response(200, served[request.path])
        return Response(404, b"not found\n")


def _error(reason: str) -> dict[str, Any]:
    return {"status": "error", "reason": reason}
