"""The platform's relay: binds connectors to wallets, by wallet or by one-time token."""

import json
from dataclasses import asdict, dataclass
from typing import Any

from .http_message import Request, Response

BIND_TOKEN = "demo-bind-token"
WALLET = "0x52908400098527886E0F7030069857D2E4169EE7"


@dataclass
class Binding:
    """`bindState` is pending_signature until the wallet's owner signs, then authorized."""

    connectorId: str
    wallet: str
    bindState: str = "pending_signature"


class Relay:
    """`script` holds raw answers by the last word of the path; they come before its own."""

    def __init__(self) -> None:
        self.tokens = {BIND_TOKEN: WALLET}  # the wallet that each was shown to
        self.spent: dict[str, str] = {}  # the connector that claimed each
        self.bindings: dict[str, Binding] = {}
        self.script: dict[str, bytes] = {}
        self._routes = {"GET /api/security/config": self._configuration,
                        "POST /api/connector/bind": self._bind,
                        "GET /api/connector/bind-status": self._bind_status,
                        "POST /api/connector/claim-token": self._claim_token}

    def handle(self, request: Request) -> Response:
        route = self._routes.get(f"{request.method} {request.path}")
        if route is None:
            return Response.of_json({"status": "error", "reason": "not_found"}, 404)
        scripted = self.script.get(request.path.rpartition("/")[2])
        return Response.of_json(route(request)) if scripted is None else Response(200, scripted)

    def authorize(self) -> int:
        """The wallets' owners sign; returns how many bindings that changed."""
        waiting = [one for one in self.bindings.values() if one.bindState != "authorized"]
        for binding in waiting:
            binding.bindState = "authorized"
        return len(waiting)

    def _configuration(self, _request: Request) -> Any:
        return {"status": "ok", "relay": "sandbox", "minConnectorVersion": "0.1.0"}

    def _bind(self, request: Request) -> Any:
        return self._begin(_member(request, "connectorId"), _member(request, "wallet"))

    def _claim_token(self, request: Request) -> Any:
        token, connector = _member(request, "token"), _member(request, "connectorId")
        if token not in self.tokens:
            return {"status": "error", "reason": "token_invalid"}
        if self.spent.setdefault(token, connector) != connector:
            return {"status": "error", "reason": "token_spent"}
        return self._begin(connector, self.tokens[token])

    def _bind_status(self, request: Request) -> Any:
        binding = self.bindings.get(request.parameters.get("connectorId", ""))
        if binding is None or request.header("x-morvane-wallet") != binding.wallet:
            return {"status": "error", "reason": "session_missing"}
        return {"status": "ok", **asdict(binding)}

    def _begin(self, connector: str, wallet: str) -> Any:
        """The connector's binding to that wallet, a new one unless it is there already."""
        binding = self.bindings.get(connector)
        if binding is None or binding.wallet != wallet:
            binding = self.bindings[connector] = Binding(connector, wallet)
        state = binding.bindState
        return {"status": "ok" if state == "authorized" else state, **asdict(binding)}


def _member(request: Request, name: str) -> str:
    """A text of the JSON body; empty when there is none."""
    try:
        return str(json.loads(request.body)[name])
    except (ValueError, LookupError, TypeError):
        return ""
