"""Binding to the owner's account: what each answer of the relay leaves on disk."""

import os
from collections import namedtuple

from sandbox import Fault, hosts
from support import DEVICE, IDENTITY, PAIRING, ConnectorTest, document, error

State = namedtuple("State", "wallet status token claimed terms approved identity_wallet paired",
                   defaults=("", "unpaired", "", "", "0", "0", "", "0"))
FRESH = State()
PENDING = State(status="pending_signature", token="token-1", claimed=DEVICE)
BOUND = State("0xOwn", "bound", "", "", "1", "1", "0xOwn", "1")
BOUND_TO_NEW = BOUND._replace(wallet="0xNew", identity_wallet="0xNew")
WITH_WALLET = [State(wallet="0xOwn"), PENDING._replace(wallet="0xOwn"), BOUND]

# Answers that move nothing, whatever was asked.
UNMOVING = ['{"status": "ok","bindState": "authorized"}', "bindState authorized\udcff\udcfe", "",
            '{"bindState":"authorized "}', '{"status":"error","reason":"token_spent"}']


def waiting(state, status):
    return document("ok", bindState=state, connectorId=DEVICE, pairingStatus=status)


class Pairing(ConnectorTest):
    def check(self, command, before, after, printed=None, **answers):
        """It asks for `answers`, by call, and for no others, and prints the last or `printed`."""
        self.write("device_identity.env", IDENTITY.format(*before[-2:]))
        self.write("pairing.env", PAIRING.format(*before))
        self.box.requests.clear()
        self.box.faults[:] = [Fault.answer(hosts.RELAY, 200, os.fsencode(answer),
                                           path="/api/connector/" + call.replace("_", "-"))
                              for call, answer in answers.items()]
        self.says(printed or [*answers.values()][-1] + "\n", *command.split(" "))
        asked = [os.path.basename(one.path).replace("-", "_") for one in self.box.requests]
        self.assertEqual([*answers], asked)
        self.assertEqual(IDENTITY.format(*after[-2:]), self.read("device_identity.env"), answers)
        self.assertEqual(PAIRING.format(*after), self.read("pairing.env"), answers)

    def test_what_the_relay_says_of_the_binding_is_what_the_files_say(self):
        lost = waiting("token_waiting", "unpaired")
        for before in WITH_WALLET:
            pending = before._replace(status="pending_signature", claimed=DEVICE, approved="0",
                                      paired="0")
            renamed = pending._replace(wallet="0xNew", identity_wallet="0xNew")
            for answer, after, printed in (
                    ('{"status":"error","bindState":"authorized"}', BOUND, None),
                    ('{"wallet":"0xNew","bindState":"authorized","wallet":""}', BOUND_TO_NEW, None),
                    ('{"bindState":"authorized","wallet":"0xCut', BOUND, None),
                    ('{"bindState":"authorized","wallet": "0xNew"}', BOUND, None),
                    ('{"bindState":"pending_signature"}', pending, None),
                    ('{"bindState":"pending_signature","wallet":"0xNew"}', renamed, None),
                    ('{"status":"error","reason":"session_missing"}', FRESH, lost),
                    ('{"status":"ok","bindState":"token_missing"}', FRESH, lost),
                    ('{"bindState":"authorized","reason":"session_missing"}', FRESH, lost),
                    *((answer, before, None) for answer in UNMOVING)):
                self.check("bind-status", before, after, printed, bind_status=answer)

    def test_without_a_wallet_only_a_stored_token_is_asked_about(self):
        self.check("bind-status", FRESH, FRESH, waiting("token_waiting", "unpaired"))
        claimed = State(claimed=DEVICE, status="odd")
        self.check("bind-status", claimed, claimed, waiting("pending_signature", "odd"))
        for answer in ['{"status":"ok","bindState":"authorized"}', '{"status":"ok","wallet":""}',
                       '{"status":"ok","wallet":"0xCut', *UNMOVING]:
            self.check("bind-status", PENDING, PENDING,
                       waiting("pending_signature", "pending_signature"), claim_token=answer)
        # Of the claim's answer only the wallet counts; it is kept and asked about.
        claim = '{"status":"error","wallet":"0xNew"}'
        for answer, after in (('{"bindState":"authorized"}', BOUND_TO_NEW),
                              ("not known", PENDING._replace(wallet="0xNew"))):
            self.check("bind-status", PENDING, after, claim_token=claim, bind_status=answer)
            self.assertEqual("0xNew", self.box.requests[1].header("x-morvane-wallet"))

    def test_what_is_asked_or_told_here_begins_or_ends_a_binding(self):
        for before in [FRESH, PENDING, *WITH_WALLET]:
            claimed = before._replace(status="pending_signature", token="token-2", claimed=DEVICE,
                                      approved="0", identity_wallet="", paired="0")
            for answer in ('{"status":"ok"}', '{"status":"pending_signature"}',
                           '{"state":["waiting_for_signature"]}'):
                self.check("claim-token token-2", before, claimed, claim_token=answer)
            self.check("claim-token ", before, before, error("token_missing"))
            for answer in ['{"reason":"session_missing"}', *UNMOVING]:
                self.check("claim-token token-2", before, before, claim_token=answer)
                if before.wallet:
                    self.check("bind-wallet", before, BOUND, bind=answer)
                else:
                    self.check("bind-wallet", before, before, error("wallet_missing"))
            self.check("disconnect-binding", before, FRESH, document("ok", state="disconnected"))
            renamed = before._replace(wallet="0xNew", identity_wallet="0xNew", paired="0")
            self.check("set-wallet 0xNew", before, renamed,
                       f"owner_wallet_address=0xNew\npairing_status={before.status}\n")
