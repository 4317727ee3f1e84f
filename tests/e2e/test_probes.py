"""What a check through python3 says of a request that could not be sent."""

from sandbox import Fault, hosts
from sandbox.http_message import Response
from support import ConnectorTest


class Probes(ConnectorTest):
    def reason_of(self, *key):
        check = self.validate("bitget", *key)
        self.assertEqual((2, "bitget", "invalid"), check[:3], check)
        return check.reason

    def test_a_credential_that_no_header_can_carry_is_blamed_and_not_shown(self):
        reason = self.reason_of("hush\nhush", "secret", "passphrase")
        self.assertIn("a credential holds a character that no header can carry", reason)
        self.assertNotIn("hush", reason)

    def test_a_proxys_bad_address_is_told_without_its_password(self):
        self.env["https_proxy"] = "http:/me:hidden@proxy:3128"
        reason = self.reason_of(*self.key("bitget"))
        self.assertIn("proxy URL with no authority: 'proxy:3128'", reason)

    def test_a_redirect_to_a_bad_address_is_told_as_such(self):
        there = Response(302, headers=[("Location", "https://[nowhere/")])
        self.box.faults[:] = [Fault(hosts.BITGET, response=there)]
        self.assertIn("Invalid IPv6 URL", self.reason_of(*self.key("bitget")))
