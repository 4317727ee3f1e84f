"""The platform's relay: binds connectors to wallets, by wallet or by one-time token."""

from __future__ import annotations

import json
from dataclasses import dataclass
from typing import Any, Callable, Dict, List, Optional, Tuple

from .http_message import Request, Response

BIND_TOKEN = "demo-bind-token"
WALLET = "0x52908400098527886E0F7030069857D2E4169EE7"

PENDING, AUTHORIZED, TOKEN_MISSING = "pending_signature", "authorized", "token_missing"


class _Refused(Exception):
    def __init__(self, status: int, reason: str) -> None:
        super().__init__(reason)
        self.status, self.reason = status, reason


@dataclass
class Binding:
    """A connector's binding: pending_signature, authorized or token_missing."""

    connector_id: str
    wallet: str
    state: str = PENDING


class Relay:
    """`script` holds raw answers by the last word of the path; they come before its own."""

    def __init__(self) -> None:
        self.tokens: Dict[str, str] = {BIND_TOKEN: WALLET}
        """The wallet that each token was shown to."""
        self.spent: Dict[str, str] = {}
        """The connector that claimed each token."""
        self.bindings: Dict[str, Binding] = {}
        self.script: Dict[str, bytes] = {}
        self._routes: Dict[Tuple[str, str], Callable[[Request], Dict[str, str]]] = {
            ("GET", "/api/security/config"): self._configuration,
            ("POST", "/api/connector/bind"): self._bind,
            ("GET", "/api/connector/bind-status"): self._bind_status,
            ("POST", "/api/connector/claim-token"): self._claim_token,
        }

    def handle(self, request: Request) -> Response:
        operation = request.path.rpartition("/")[2]
        try:
            route = self._routes.get((request.method, request.path))
            if route is None:
                raise _Refused(404, "not_found")
            if operation in self.script:
                return Response(200, self.script[operation])
            return Response.of_json(route(request))
        except _Refused as refused:
            return Response.of_json({"status": "error", "reason": refused.reason}, refused.status)

    def authorize(self, connector_id: Optional[str] = None) -> int:
        """The wallet's owner signs. This and the two below return how many bindings changed."""
        return self._move(connector_id, AUTHORIZED, (PENDING,))

    def forget_token(self, connector_id: Optional[str] = None) -> int:
        return self._move(connector_id, TOKEN_MISSING, (PENDING, AUTHORIZED))

    def lose_session(self, connector_id: Optional[str] = None) -> int:
        lost = self._named(connector_id)
        for binding in lost:
            del self.bindings[binding.connector_id]
        return len(lost)

    def _move(self, connector_id: Optional[str], state: str, before: Tuple[str, ...]) -> int:
        moved = [one for one in self._named(connector_id) if one.state in before]
        for binding in moved:
            binding.state = state
        return len(moved)

    def _named(self, connector_id: Optional[str]) -> List[Binding]:
        return [one for one in self.bindings.values()
                if connector_id in (None, one.connector_id)]

    def _configuration(self, _request: Request) -> Dict[str, str]:
        return {"status": "ok", "relay": "sandbox", "minConnectorVersion": "0.1.0"}

    def _bind(self, request: Request) -> Dict[str, str]:
        body = _members(request, "wallet", "connectorId", "connectorLabel")
        binding = self._begin(body["connectorId"], body["wallet"])
        return _answer(binding, "ok" if binding.state == AUTHORIZED else PENDING)

    def _claim_token(self, request: Request) -> Dict[str, str]:
        body = _members(request, "token", "connectorId", "connectorLabel")
        token, connector_id = body["token"], body["connectorId"]
        if token not in self.tokens:
            raise _Refused(200, "token_invalid")
        if self.spent.setdefault(token, connector_id) != connector_id:
            raise _Refused(200, "token_spent")
        binding = self._begin(connector_id, self.tokens[token])
        return _answer(binding, "ok" if binding.state == AUTHORIZED else PENDING)

    def _bind_status(self, request: Request) -> Dict[str, str]:
        binding = self.bindings.get(request.parameters.get("connectorId", ""))
        if binding is None or request.header("x-morvane-wallet") != binding.wallet:
            raise _Refused(200, "session_missing")
        return _answer(binding, "ok")

    def _begin(self, connector_id: str, wallet: str) -> Binding:
        """The connector's binding to that wallet, a new one unless it is there already."""
        binding = self.bindings.get(connector_id)
        if binding is None or binding.wallet != wallet or binding.state == TOKEN_MISSING:
            binding = self.bindings[connector_id] = Binding(connector_id, wallet)
        return binding


def _answer(binding: Binding, status: str) -> Dict[str, str]:
    return {"status": status, "bindState": binding.state, "wallet": binding.wallet,
            "connectorId": binding.connector_id}


def _members(request: Request, *names: str) -> Dict[str, str]:
    try:
        document: Any = json.loads(request.body.decode("utf-8"))
    except (ValueError, RecursionError):
        raise _Refused(400, "invalid_json") from None
    if not isinstance(document, dict) or \
            not all(isinstance(document.get(name), str) for name in names):
        raise _Refused(400, "invalid_request")
    return document
