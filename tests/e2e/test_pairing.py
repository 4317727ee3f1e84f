"""Binding to the owner's account: what each answer of the relay leaves on disk."""

import json
import shutil
import unittest
from typing import Dict, NamedTuple

from sandbox import hosts
from sandbox.faults import Fault
from sandbox.relay import BIND_TOKEN, WALLET
from support import ConnectorTest

ID = "device:macos:0123456789ab"
HTML = b"<html>\r\n<body><h1>500</h1></body></html>\r\n"


class State(NamedTuple):
    """What pairing.env and device_identity.env say of the binding."""

    wallet: str = ""
    status: str = "unpaired"
    token: str = ""
    claimed: str = ""
    terms: str = "0"
    approved: str = "0"
    identity_wallet: str = ""
    paired: str = "0"

    @property
    def health(self) -> str:
        return "ready" if (self.paired, self.approved) == ("1", "1") else "pairing_required"


FRESH = State()
WALLET_SET = State(wallet="0xOwn")
PENDING = State(status="pending_signature", token="token-1", claimed=ID)
PENDING_WITH_WALLET = PENDING._replace(wallet="0xOwn")
BOUND = State("0xOwn", "bound", "", "", "1", "1", "0xOwn", "1")
BOUND_TO_NEW = BOUND._replace(wallet="0xNew", identity_wallet="0xNew")

WITH_WALLET = [WALLET_SET, PENDING_WITH_WALLET, BOUND]
STARTS = [FRESH, PENDING, *WITH_WALLET]

# Answers that move nothing, whatever was asked.
UNMOVING = [b'{"status": "ok","bindState": "authorized"}', b"bindState authorized\xff\xfe", b"",
            b'{\n  "bindState": "pending_signature"\n}\n', b'{"bindState":"authorized "}',
            b'{"status":"error","reason":"token_spent"}', HTML]


class PairingTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        relay = self.box.relay
        for memory in (relay.script, relay.bindings, relay.spent):
            memory.clear()

    def begin(self, state: State) -> None:
        """Leaves the files as they are in that state."""
        shutil.rmtree(self.root, ignore_errors=True)
        self.write("device_identity.env",
                   f"device_id={ID}\nconnector_instance_id=connector:1\ndevice_label=My Mac\n"
                   f"platform=macos\nowner_wallet={state.identity_wallet}\npaired={state.paired}\n")
        self.account = ""
        if state != FRESH:
            self.account = "account 1"
            self.write("pairing.env",
                       f"owner_wallet_address={state.wallet}\npairing_status={state.status}\n"
                       f"server_account_ref={self.account}\nlatest_bind_token={state.token}\n"
                       f"latest_claimed_connector_id={state.claimed}\n"
                       f"platform_terms_accepted={state.terms}\n"
                       f"wallet_approval_confirmed={state.approved}\n")

    def state(self) -> State:
        pairing: Dict[str, str] = {}
        if "pairing.env" in self.files():
            pairing = self.record("pairing.env")
            self.assertEqual(self.account, pairing["server_account_ref"])
        identity = self.record("device_identity.env")
        self.assertEqual((ID, "My Mac"), (identity["device_id"], identity["device_label"]))
        return State(pairing.get("owner_wallet_address", ""),
                     pairing.get("pairing_status", "unpaired"),
                     pairing.get("latest_bind_token", ""),
                     pairing.get("latest_claimed_connector_id", ""),
                     pairing.get("platform_terms_accepted", "0"),
                     pairing.get("wallet_approval_confirmed", "0"),
                     identity["owner_wallet"], identity["paired"])

    def check(self, arguments: str, before: State, after: State, answers: Dict[str, bytes],
              printed: str) -> None:
        """One command from `before` on: it asks for `answers`, by call, and for nothing else."""
        with self.subTest(arguments, before=before, answers=answers):
            self.begin(before)
            self.box.requests.clear()
            self.box.faults[:] = [
                Fault.answer(hosts.RELAY, 500 if body is HTML else 200, body,
                             path="/api/connector/" + call) for call, body in answers.items()]
            self.assertEqual(printed + "\n", self.answer(*arguments.split(" ")))
            self.assertEqual(list(answers), [request.path.rpartition("/")[2]
                                             for request in self.box.requests])
            self.assertEqual(after, self.state())
            self.assertIn(f"connector_health={after.health}\n", self.answer("status"))


def text(body: bytes) -> str:
    return body.decode("utf-8", "surrogateescape")


def waiting(state: str, status: str) -> str:
    return (f'{{"status":"ok","bindState":"{state}","connectorId":"{ID}",'
            f'"pairingStatus":"{status}"}}')


class BindStatus(PairingTest):
    def after_answer(self, before: State, answer: bytes, after: State, printed: str = "") -> None:
        self.check("bind-status", before, after, {"bind-status": answer}, printed or text(answer))

    def test_authorized_binds_to_the_wallet_that_the_relay_names(self):
        for before in WITH_WALLET:
            for answer, after in (
                    (b'{"bindState":"authorized"}', BOUND),
                    (b'{"status":"error","bindState":"authorized"}', BOUND),
                    (b'{"bindState":"authorized","wallet":"0xNew"}', BOUND_TO_NEW),
                    (b'{"wallet":"0xNew","bindState":"authorized","wallet":"0x3"}', BOUND_TO_NEW),
                    (b'{"bindState":"authorized","wallet":"0xCut', BOUND),
                    (b'{"bindState":"authorized","wallet": "0xNew"}', BOUND)):
                self.after_answer(before, answer, after)

    def test_pending_takes_the_approval_back_and_keeps_terms_and_token(self):
        for before in WITH_WALLET:
            pending = before._replace(status="pending_signature", claimed=ID, approved="0",
                                      paired="0")
            for answer, after in (
                    (b'{"bindState":"pending_signature"}', pending),
                    (b'{"bindState":"pending_signature","wallet":"0xCut', pending),
                    (b'{"bindState":"pending_signature","wallet":"0xNew"}',
                     pending._replace(wallet="0xNew", identity_wallet="0xNew"))):
                self.after_answer(before, answer, after)

    def test_a_lost_session_or_token_unpairs_whatever_else_the_answer_says(self):
        for before in WITH_WALLET:
            for answer in (b'{"status":"error","reason":"session_missing"}',
                           b'{"status":"ok","bindState":"token_missing"}',
                           b'{"bindState":"authorized","reason":"session_missing"}'):
                self.after_answer(before, answer, FRESH, waiting("token_waiting", "unpaired"))

    def test_any_other_answer_is_passed_on_and_changes_nothing(self):
        for before in WITH_WALLET:
            for answer in UNMOVING:
                self.check("bind-status", before, before, {"bind-status": answer}, text(answer))

    def test_without_wallet_and_token_nothing_is_asked(self):
        self.check("bind-status", FRESH, FRESH, {}, waiting("token_waiting", "unpaired"))
        claimed = State(claimed=ID, status="odd")
        self.check("bind-status", claimed, claimed, {}, waiting("pending_signature", "odd"))

    def test_a_stored_token_is_claimed_again_until_it_has_a_wallet(self):
        for answer in [b'{"status":"ok","bindState":"authorized"}', b'{"status":"ok","wallet":""}',
                       b'{"status":"ok","wallet":"0xCut', *UNMOVING]:
            self.check("bind-status", PENDING, PENDING, {"claim-token": answer},
                       waiting("pending_signature", "pending_signature"))

    def test_a_wallet_that_comes_with_the_claim_is_kept_and_asked_about(self):
        adopted = PENDING._replace(wallet="0xNew")
        # Of the claim's answer only the wallet counts.
        claim = b'{"status":"error","wallet":"0xNew"}'
        for answer, after in ((b'{"bindState":"authorized"}', BOUND_TO_NEW),
                              (b'{"bindState":"pending_signature"}', adopted),
                              (b"not known", adopted)):
            self.check("bind-status", PENDING, after,
                       {"claim-token": claim, "bind-status": answer}, text(answer))
            self.assertEqual("0xNew", self.box.requests[1].header("x-morvane-wallet"))


class Commands(PairingTest):
    def test_an_accepted_token_is_kept_and_ends_an_older_binding(self):
        for answer in (b'{"status":"ok"}', b'{"status":"pending_signature"}',
                       b'{"state":["waiting_for_signature"]}', b'"status":"ok" but no JSON'):
            for before in STARTS:
                after = before._replace(status="pending_signature", token="token-2", claimed=ID,
                                        approved="0", identity_wallet="", paired="0")
                self.check("claim-token token-2", before, after, {"claim-token": answer},
                           text(answer))

    def test_a_token_that_is_not_accepted_changes_nothing(self):
        for answer in UNMOVING:
            for before in STARTS:
                self.check("claim-token token-2", before, before, {"claim-token": answer},
                           text(answer))

    def test_bind_wallet_binds_whatever_the_relay_says(self):
        for answer in [b'{"reason":"session_missing"}', *UNMOVING]:
            for before in WITH_WALLET:
                self.check("bind-wallet", before, BOUND, {"bind": answer}, text(answer))

    def test_bind_wallet_binds_with_the_relay_down(self):
        self.begin(WALLET_SET)
        self.box.faults.append(Fault.close(hosts.RELAY))
        self.assertEqual('{"status":"error","reason":"bind_request_failed"}\n',
                         self.answer("bind-wallet"))
        self.assertEqual(BOUND, self.state())
        self.assertIn("connector_health=ready\n", self.answer("status"))

    def test_missing_words_are_errors_that_change_and_ask_nothing(self):
        for before in STARTS:
            self.check("claim-token ", before, before, {},
                       '{"status":"error","reason":"token_missing"}')
        for before in (FRESH, PENDING):
            self.check("bind-wallet", before, before, {},
                       '{"status":"error","reason":"wallet_missing"}')

    def test_disconnecting_forgets_the_binding_and_tells_nobody(self):
        for before in STARTS:
            self.check("disconnect-binding", before, FRESH, {},
                       '{"status":"ok","state":"disconnected"}')


class Story(PairingTest):
    """From an empty HOME, by the sandbox's own relay."""

    def bind_state(self, *arguments):
        return json.loads(self.answer(*arguments)).get("bindState")

    def status(self):
        return dict(line.split("=", 1) for line in self.answer("status").splitlines()[:7])

    def test_a_token_leads_to_a_bound_connector_and_back(self):
        self.assertEqual("token_waiting", self.bind_state("bind-status"))
        self.assertEqual("pending_signature", self.bind_state("claim-token", BIND_TOKEN))
        self.assertEqual("", self.record("pairing.env")["owner_wallet_address"])
        self.assertEqual("pending_signature", self.bind_state("bind-status"))
        self.assertEqual(WALLET, self.record("pairing.env")["owner_wallet_address"])
        self.assertEqual("pairing_required", self.status()["connector_health"])
        self.assertEqual(1, self.box.relay.authorize())
        self.assertEqual("authorized", self.bind_state("bind-status"))
        status = self.status()
        self.assertEqual(("ready", "true", WALLET), (status["connector_health"], status["paired"],
                                                     status["owner_wallet"]))
        self.assertEqual({"status": "ok", "state": "disconnected"},
                         json.loads(self.answer("disconnect-binding")))
        status = self.status()
        self.assertEqual(("pairing_required", "false"),
                         (status["connector_health"], status["paired"]))
        self.assertNotIn("owner_wallet", status)
        self.assertEqual("token_waiting", self.bind_state("bind-status"))

    def test_a_wallet_leads_to_a_binding_that_the_relay_may_take_back(self):
        self.answer("set-wallet", WALLET)
        self.assertEqual("pending_signature", self.bind_state("bind-wallet"))
        self.assertEqual("ready", self.status()["connector_health"])
        self.assertEqual("pending_signature", self.bind_state("bind-status"))
        self.assertEqual("pairing_required", self.status()["connector_health"])
        self.box.relay.authorize()
        self.assertEqual("authorized", self.bind_state("bind-status"))
        self.box.relay.forget_token()
        self.assertEqual("token_waiting", self.bind_state("bind-status"))
        self.assertEqual("pairing_required", self.status()["connector_health"])

    def test_a_token_that_another_connector_spent_is_refused(self):
        self.box.relay.spent[BIND_TOKEN] = "device:macos:ffffffffffff"
        self.assertEqual('{"status":"error","reason":"token_spent"}\n',
                         self.answer("claim-token", BIND_TOKEN))
        self.assertNotIn("pairing.env", self.files())

    def test_setting_a_new_wallet_ends_a_binding_that_keeps_its_word(self):
        self.begin(BOUND)
        self.assertEqual("owner_wallet_address=0xNew\npairing_status=bound\n",
                         self.answer("set-wallet", "0xNew"))
        self.assertEqual(BOUND_TO_NEW._replace(paired="0"), self.state())
        self.assertEqual("pairing_required", self.status()["connector_health"])


if __name__ == "__main__":
    unittest.main()
