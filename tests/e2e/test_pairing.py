"""Binding to the owner's account: what each answer of the relay leaves on disk."""

import json
from collections import namedtuple

from sandbox import hosts
from sandbox.faults import Fault
from sandbox.relay import BIND_TOKEN, WALLET
from support import ConnectorTest

ID = "device:macos:0123456789ab"
HTML = "<html>\r\n<body><h1>500</h1></body></html>\r\n"


State = namedtuple("State", "wallet status token claimed terms approved identity_wallet paired",
                   defaults=("", "unpaired", "", "", "0", "0", "", "0"))
FRESH = State()
WALLET_SET = State(wallet="0xOwn")
PENDING = State(status="pending_signature", token="token-1", claimed=ID)
PENDING_WITH_WALLET = PENDING._replace(wallet="0xOwn")
BOUND = State("0xOwn", "bound", "", "", "1", "1", "0xOwn", "1")
BOUND_TO_NEW = BOUND._replace(wallet="0xNew", identity_wallet="0xNew")
WITH_WALLET = [WALLET_SET, PENDING_WITH_WALLET, BOUND]
STARTS = [FRESH, PENDING, *WITH_WALLET]

# Answers that move nothing, whatever was asked.
UNMOVING = ['{"status": "ok","bindState": "authorized"}', "bindState authorized\udcff\udcfe", "",
            '{"bindState":"authorized "}', '{"status":"error","reason":"token_spent"}', HTML]


def waiting(state, status):
    return (f'{{"status":"ok","bindState":"{state}","connectorId":"{ID}",'
            f'"pairingStatus":"{status}"}}')


def texts(state):
    """The two files as they are in that state."""
    return (f"device_id={ID}\nconnector_instance_id=connector:1\ndevice_label=My Mac\n"
            f"platform=macos\nowner_wallet={state.identity_wallet}\npaired={state.paired}\n",
            f"owner_wallet_address={state.wallet}\npairing_status={state.status}\n"
            f"server_account_ref=account 1\nlatest_bind_token={state.token}\n"
            f"latest_claimed_connector_id={state.claimed}\n"
            f"platform_terms_accepted={state.terms}\nwallet_approval_confirmed={state.approved}\n")


class Pairing(ConnectorTest):
    def begin(self, state):
        for name, text in zip(("device_identity.env", "pairing.env"), texts(state)):
            self.write(name, text)

    def check(self, arguments, before, after, answers, printed):
        """One command from `before` on: it asks for `answers`, by call, and for nothing else."""
        self.begin(before)
        self.box.requests.clear()
        self.box.faults[:] = [
            Fault.answer(hosts.RELAY, 500 if body is HTML else 200,
                         body.encode("utf-8", "surrogateescape"), path="/api/connector/" + call)
            for call, body in answers.items()]
        self.assertEqual(printed + "\n", self.answer(*arguments.split(" ")))
        self.assertEqual(list(answers), [request.path.rpartition("/")[2]
                                         for request in self.box.requests])
        found = self.read("device_identity.env"), self.read("pairing.env")
        self.assertEqual(texts(after), found, answers)
        if (after.paired, after.approved) != (before.paired, before.approved):
            self.assert_health("ready" if after.paired + after.approved == "11"
                               else "pairing_required")

    def assert_health(self, health):
        self.assertIn(f"connector_health={health}\n", self.answer("status"))

    def test_what_the_relay_says_of_the_binding_is_what_the_files_say(self):
        lost = waiting("token_waiting", "unpaired")
        for before in WITH_WALLET:
            pending = before._replace(status="pending_signature", claimed=ID, approved="0",
                                      paired="0")
            renamed = pending._replace(wallet="0xNew", identity_wallet="0xNew")
            for answer, after, printed in (
                    ('{"status":"error","bindState":"authorized"}', BOUND, ""),
                    ('{"wallet":"0xNew","bindState":"authorized","wallet":"0x"}', BOUND_TO_NEW, ""),
                    ('{"bindState":"authorized","wallet":"0xCut', BOUND, ""),
                    ('{"bindState":"authorized","wallet": "0xNew"}', BOUND, ""),
                    ('{"bindState":"pending_signature"}', pending, ""),
                    ('{"bindState":"pending_signature","wallet":"0xNew"}', renamed, ""),
                    ('{"status":"error","reason":"session_missing"}', FRESH, lost),
                    ('{"status":"ok","bindState":"token_missing"}', FRESH, lost),
                    ('{"bindState":"authorized","reason":"session_missing"}', FRESH, lost),
                    *((answer, before, "") for answer in UNMOVING)):
                self.check("bind-status", before, after, {"bind-status": answer}, printed or answer)

    def test_without_a_wallet_only_a_stored_token_is_asked_about(self):
        self.check("bind-status", FRESH, FRESH, {}, waiting("token_waiting", "unpaired"))
        claimed = State(claimed=ID, status="odd")
        self.check("bind-status", claimed, claimed, {}, waiting("pending_signature", "odd"))
        for answer in ['{"status":"ok","bindState":"authorized"}', '{"status":"ok","wallet":""}',
                       '{"status":"ok","wallet":"0xCut', *UNMOVING]:
            self.check("bind-status", PENDING, PENDING, {"claim-token": answer},
                       waiting("pending_signature", "pending_signature"))
        # Of the claim's answer only the wallet counts; it is kept and asked about.
        claim = '{"status":"error","wallet":"0xNew"}'
        for answer, after in (('{"bindState":"authorized"}', BOUND_TO_NEW),
                              ("not known", PENDING._replace(wallet="0xNew"))):
            self.check("bind-status", PENDING, after,
                       {"claim-token": claim, "bind-status": answer}, answer)
            self.assertEqual("0xNew", self.box.requests[1].header("x-morvane-wallet"))

    def test_an_accepted_token_is_kept_and_ends_an_older_binding_and_no_other_is(self):
        for before in STARTS:
            after = before._replace(status="pending_signature", token="token-2", claimed=ID,
                                    approved="0", identity_wallet="", paired="0")
            for answer in ('{"status":"ok"}', '{"status":"pending_signature"}',
                           '{"state":["waiting_for_signature"]}'):
                self.check("claim-token token-2", before, after, {"claim-token": answer}, answer)
            for answer in UNMOVING:
                self.check("claim-token token-2", before, before, {"claim-token": answer}, answer)
            self.check("claim-token ", before, before, {},
                       '{"status":"error","reason":"token_missing"}')

    def test_bind_wallet_binds_whatever_the_relay_says(self):
        for before in WITH_WALLET:
            for answer in ['{"reason":"session_missing"}', *UNMOVING]:
                self.check("bind-wallet", before, BOUND, {"bind": answer}, answer)
        for before in (FRESH, PENDING):
            self.check("bind-wallet", before, before, {},
                       '{"status":"error","reason":"wallet_missing"}')
        self.begin(WALLET_SET)
        self.box.faults[:] = [Fault.close(hosts.RELAY)]
        self.assert_run((0, '{"status":"error","reason":"bind_request_failed"}\n'), "bind-wallet")
        self.assertEqual(texts(BOUND)[1], self.read("pairing.env"))

    def test_disconnecting_or_a_new_wallet_ends_the_binding_and_tells_nobody(self):
        for before in STARTS:
            self.check("disconnect-binding", before, FRESH, {},
                       '{"status":"ok","state":"disconnected"}')
        self.check("set-wallet 0xNew", BOUND, BOUND_TO_NEW._replace(paired="0"), {},
                   "owner_wallet_address=0xNew\npairing_status=bound")

    def bind_state(self, *arguments):
        return json.loads(self.answer(*arguments)).get("bindState")

    def test_a_token_leads_to_a_bound_connector_and_back(self):
        self.assertEqual("token_waiting", self.bind_state("bind-status"))
        self.assertEqual("pending_signature", self.bind_state("claim-token", BIND_TOKEN))
        self.assertEqual("", self.record("pairing.env")["owner_wallet_address"])
        self.assertEqual("pending_signature", self.bind_state("bind-status"))
        self.assertEqual(WALLET, self.record("pairing.env")["owner_wallet_address"])
        self.assert_health("pairing_required")
        self.assertEqual(1, self.box.relay.authorize())
        self.assertEqual("authorized", self.bind_state("bind-status"))
        self.assertIn(f"\npaired=true\nowner_wallet={WALLET}\n", self.answer("status"))
        self.assert_health("ready")
        self.answer("disconnect-binding")
        self.assertIn("\npaired=false\nvault_backend=", self.answer("status"))
        self.assertEqual("token_waiting", self.bind_state("bind-status"))
        self.box.relay.spent[BIND_TOKEN] = "device:macos:ffffffffffff"
        self.assert_run((0, '{"status":"error","reason":"token_spent"}\n'),
                        "claim-token", BIND_TOKEN)
