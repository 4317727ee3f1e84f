"""Binding to the owner's account: what each answer of the relay leaves on disk."""

import os

from sandbox import Fault, hosts
from support import BOUND, DEVICE, ConnectorTest, State, document, error

FRESH = State()
WALLET_SET = State(wallet="0xOwn")
CLAIMED = State(status="pending_signature", token="token-1", claimed=DEVICE)
CLAIMED_WITH_WALLET = CLAIMED._replace(wallet="0xOwn")
WITH_WALLET = (WALLET_SET, CLAIMED_WITH_WALLET, BOUND)
ALL = (FRESH, CLAIMED, *WITH_WALLET)

AUTHORIZED = '{"status":"error","bindState":"authorized"}'
# Answers that move nothing, whatever was asked.
UNMOVING = ('{"status": "ok","bindState": "authorized"}', '{"bindState":"authorized "}',
            "bindState authorized\udcff\udcfe", "",
            '{"status":"error","reason":"token_spent"}')


def renamed(state):
    """With another wallet, in both files."""
    return state._replace(wallet="0xNew", identity_wallet="0xNew")


def waiting(bind_state, status):
    """What bind-status prints of its own."""
    return document("ok", bindState=bind_state, connectorId=DEVICE, pairingStatus=status)


class Pairing(ConnectorTest):
    def check(self, command, before, after, printed=None, **answers):
        """With the files `before`, and these answers of the relay by call, the command
        makes these calls alone, prints that (or the last answer), and leaves `after`."""
        with self.subTest(command=command, before=before, answers=answers):
            self.be(before)
            self.box.requests.clear()
            self.box.faults[:] = [
                Fault.answer(hosts.RELAY, 200, os.fsencode(answer),
                             path="/api/connector/" + call.replace("_", "-"))
                for call, answer in answers.items()]
            self.says(printed or list(answers.values())[-1] + "\n", *command.split(" "))
            calls = [os.path.basename(one.path).replace("-", "_")
                     for one in self.box.requests]
            self.assertEqual(list(answers), calls)
            left = self.read("device_identity.env") + self.read("pairing.env")
            expected = after.identity_text() + after.pairing_text()
            self.assertEqual(expected, left)

    def test_bind_status_binds_when_the_relay_says_authorized(self):
        named = '{"wallet":"0xNew","bindState":"authorized","wallet":""}'
        for before in WITH_WALLET:
            self.check("bind-status", before, BOUND, bind_status=AUTHORIZED)
            self.check("bind-status", before, renamed(BOUND), bind_status=named)

    def test_bind_status_waits_again_when_the_relay_says_pending(self):
        named = '{"bindState":"pending_signature","wallet":"0xNew"}'
        for before in WITH_WALLET:
            after = before._replace(status="pending_signature", claimed=DEVICE,
                                    approved="0", paired="0")
            self.check("bind-status", before, after,
                       bind_status='{"bindState":"pending_signature"}')
            self.check("bind-status", before, renamed(after), bind_status=named)

    def test_bind_status_forgets_a_binding_that_the_relay_does_not_know(self):
        printed = waiting("token_waiting", "unpaired")
        for before in WITH_WALLET:
            for answer in ('{"bindState":"authorized","reason":"session_missing"}',
                           '{"status":"ok","bindState":"token_missing"}'):
                self.check("bind-status", before, FRESH, printed, bind_status=answer)

    def test_bind_status_changes_nothing_for_any_other_answer(self):
        for before in WITH_WALLET:
            for answer in UNMOVING:
                self.check("bind-status", before, before, bind_status=answer)

    def test_bind_status_without_wallet_and_token_asks_nobody(self):
        self.check("bind-status", FRESH, FRESH, waiting("token_waiting", "unpaired"))
        claimed = State(claimed=DEVICE, status="odd")
        self.check("bind-status", claimed, claimed, waiting("pending_signature", "odd"))

    def test_bind_status_without_wallet_asks_by_the_token_and_takes_the_wallet(self):
        named = '{"status":"error","wallet":"0xNew"}'
        self.check("bind-status", CLAIMED, renamed(BOUND),
                   claim_token=named, bind_status=AUTHORIZED)
        self.assertEqual(["0xNew"], [one.header("x-morvane-wallet")
                                     for one in self.box.requests[1:]])
        self.check("bind-status", CLAIMED, CLAIMED._replace(wallet="0xNew"),
                   claim_token=named, bind_status="not known")

    def test_bind_status_waits_while_the_token_brings_no_wallet(self):
        printed = waiting("pending_signature", "pending_signature")
        for answer in ('{"status":"ok","wallet":""}', '{"status":"ok","wallet":"0xCut',
                       *UNMOVING):
            self.check("bind-status", CLAIMED, CLAIMED, printed, claim_token=answer)

    def test_claim_token_waits_for_the_signature_when_the_relay_takes_the_token(self):
        for before in ALL:
            after = before._replace(
                status="pending_signature", token="token-2", claimed=DEVICE,
                approved="0", identity_wallet="", paired="0")
            for answer in ('{"status":"ok"}', '{"status":"pending_signature"}',
                           '{"state":["waiting_for_signature"]}'):
                self.check("claim-token token-2", before, after, claim_token=answer)

    def test_a_first_claim_begins_with_nothing_accepted(self):
        self.box.faults[:] = [Fault.answer(hosts.RELAY, 200, b'{"status":"ok"}')]
        self.answer("claim-token", "token-1")
        self.assertIn("platform_terms_accepted=0\nwallet_approval_confirmed=0\n",
                      self.read("pairing.env"))

    def test_claim_token_changes_nothing_when_the_relay_does_not_take_it(self):
        for before in ALL:
            self.check("claim-token ", before, before, error("token_missing"))
            for answer in UNMOVING:
                self.check("claim-token token-2", before, before, claim_token=answer)

    def test_bind_wallet_is_bound_whatever_the_relay_says_where_there_is_a_wallet(self):
        for before in WITH_WALLET:
            for answer in UNMOVING:
                self.check("bind-wallet", before, BOUND, bind=answer)
        for before in (FRESH, CLAIMED):
            self.check("bind-wallet", before, before, error("wallet_missing"))

    def test_disconnect_binding_forgets_everything_and_asks_nobody(self):
        for before in ALL:
            self.check("disconnect-binding", before, FRESH,
                       document("ok", state="disconnected"))

    def test_set_wallet_keeps_the_status_and_unpairs(self):
        for before in ALL:
            printed = f"owner_wallet_address=0xNew\npairing_status={before.status}\n"
            self.check("set-wallet 0xNew", before, renamed(before)._replace(paired="0"),
                       printed)
