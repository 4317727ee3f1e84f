"""Checking for a release: versions, the manifest as it may come, and what is said of it."""

import os
import subprocess
import unittest

from sandbox import hosts
from sandbox.downloads import IMAGE_PATH, default_manifest
from sandbox.faults import Fault
from support import ConnectorTest

MANIFEST_URL = f"https://{hosts.DOWNLOAD}/current/manifest.json"
IMAGE_URL = f"https://{hosts.DOWNLOAD}{IMAGE_PATH}"
WRITE_MANIFEST = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), "packaging", "write_manifest")


def failed(reason):
    return f'{{"status":"error","reason":"{reason}","manifest_url":"{MANIFEST_URL}"}}\n'


def invalid(manifest):
    return (f'{{"status":"error","reason":"manifest_invalid","manifest_url":"{MANIFEST_URL}",'
            f'"manifest":{manifest}}}\n')


def checked(manifest, version, newer, image_url=IMAGE_URL, channel="stable"):
    return (f'{{"status":"ok","current_version":"0.1.0","latest_version":"{version}",'
            f'"update_available":{"true" if newer else "false"},"channel":"{channel}",'
            f'"manifest_url":"{MANIFEST_URL}","dmg_url":"{image_url}","manifest":{manifest}}}\n')


class UpdateCheck(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.box.downloads.manifest = default_manifest()

    def serve(self, manifest):
        self.box.downloads.manifest = manifest.encode("utf-8", "surrogateescape")

    def check(self, manifest):
        self.serve(manifest)
        return self.answer("update-check")

    def test_versions_are_compared_number_by_number(self):
        older = ["0.1", "0.1.0", "0.1.0.0", "0.1.0.", "0.0.9", "0.0.99999", "0", "v2", "beta", ".",
                 "0..9", "-1", "0.-1", "0x5", "99999999999.0", "0.1.0-rc1", "0.1.v9",
                 "0.99999999999.1"]
        newer = ["0.1.1", "0.10.0", "0.2", "1", "3-beta", "0.1.0.1", ".5", " 1", "+1", "0.1.v.1",
                 "2147483647"]
        for version in older + newer:
            with self.subTest(version=version):
                manifest = f'{{"version":"{version}","dmgUrl":"{IMAGE_URL}","channel":"stable"}}'
                self.assertEqual(checked(manifest, version, version in newer),
                                 self.check(manifest))

    def test_the_first_text_under_a_name_counts_wherever_it_stands(self):
        url = f'"dmgUrl":"{IMAGE_URL}"'
        for manifest, version, channel in (
                (f'{{"version":"0.2.0",{url}}}', "0.2.0", ""),
                (f'{{{url},"channel":"beta","version":"0.2.0"}}', "0.2.0", "beta"),
                (f'{{"version" \t\r\n:\v\f "0.2.0",{url}}}', "0.2.0", ""),
                (f'{{"old":{{"version":"0.3.0"}},{url},"version":"0.2.0"}}', "0.3.0", ""),
                (f'{{"version":"","version":"0.2.0",{url}}}', "0.2.0", ""),
                (f'{{"version":2,"version":"0.2.0",{url}}}', "0.2.0", ""),
                (f'{{"about":"version","version":"0.2.0",{url}}}', "0.2.0", ""),
                (f'{{"minVersion":"9","xversion":"9","version":"0.2.0",{url}}}', "0.2.0", ""),
                (f'{{"version":"0.2.0",{url},"channel":7}}', "0.2.0", ""),
                (f'{{"version":"0.2\\"x",{url}}}', "0.2\\\\", ""),
                (f'{{"version":"0.2\n\t\r.0",{url}}}', "0.2\\n\\t\\r.0", ""),
                (f'"version":"0.2.0" and {url}, but no JSON', "0.2.0", "")):
            with self.subTest(manifest=manifest):
                self.assertEqual(checked(manifest, version, True, channel=channel),
                                 self.check(manifest))

    def test_without_a_version_or_an_image_the_manifest_is_invalid_and_shown(self):
        url = f'"dmgUrl":"{IMAGE_URL}"'
        for manifest in ('{"version":"0.2.0"}', f"{{{url}}}", f'{{"version":"",{url}}}',
                         f'{{"version":0.2,{url}}}', f'{{"version":null,{url}}}',
                         f'{{"version":["0.2.0"],{url}}}', f'{{"Version":"0.2.0",{url}}}',
                         f"{{'version':'0.2.0',{url}}}", f'{{{url},"version":"0.2.0',
                         '{"version":"0.2.0","dmgUrl":""}', '{"version":"0.2.0","dmgUrl":true}',
                         "{}", " ", "<html>\r\n<h1>Sorry</h1>\r\n</html>\r\n",
                         bytes(range(1, 256)).decode("utf-8", "surrogateescape")):
            with self.subTest(manifest=manifest):
                self.serve(manifest)
                for command in ("update-check", "update-download"):
                    self.assertEqual(invalid(manifest), self.answer(command))
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())

    def test_the_manifest_is_echoed_with_its_line_feeds(self):
        manifest = f'\n{{\n  "version": "0.2.0",\r\n  "dmgUrl": "{IMAGE_URL}"\n}}\n\n'
        self.assertEqual(checked(manifest, "0.2.0", True, channel=""), self.check(manifest))

    def test_a_huge_manifest_is_read_like_any_other(self):
        tail = f'"version":"0.2.0","dmgUrl":"{IMAGE_URL}","channel":"stable"}}'
        long_string = '"notes":"' + "x" * (8 << 20) + '",'
        for name, manifest, expected in (
                ("a long string before", "{" + long_string + tail, True),
                ("a million quotes", "{" + '"' * 1_000_000 + "," + tail, True),
                ("many keys without a value", "{" + '"version"' * 300_000 + "," + tail, True),
                ("blanks after a key", '{"version"' + " " * 1_000_000 + "," + tail, True),
                ("a long string without end", '{"version":"' + "9" * (8 << 20), False)):
            with self.subTest(name):
                printed = self.check(manifest)
                whole = checked(manifest, "0.2.0", True) if expected else invalid(manifest)
                # Not assertEqual: nobody wants to read that difference.
                self.assertTrue(printed == whole, printed[:300])

    def test_a_manifest_that_cannot_be_had_fails_in_the_commands_own_word(self):
        path = "/current/manifest.json"
        for fault in (Fault.html_error(hosts.DOWNLOAD, 404, path=path),
                      Fault.html_error(hosts.DOWNLOAD, 500, path=path),
                      Fault.answer(hosts.DOWNLOAD, 429, default_manifest()),
                      Fault.answer(hosts.DOWNLOAD, 200, b""),
                      Fault.cut_off(hosts.DOWNLOAD), Fault.close(hosts.DOWNLOAD)):
            with self.subTest(fault=fault):
                self.box.faults[:] = [fault]
                self.assertEqual(failed("update_check_failed"), self.answer("update-check"))
                self.assertEqual(failed("manifest_fetch_failed"), self.answer("update-download"))

    def test_a_manifest_that_moved_is_not_followed(self):
        self.box.downloads.redirects["/current/manifest.json"] = "/new.json"
        self.addCleanup(self.box.downloads.redirects.clear)
        self.assertEqual(failed("update_check_failed"), self.answer("update-check"))
        self.assertEqual([("GET", hosts.DOWNLOAD, "/current/manifest.json")], self.sent())

    def test_the_release_tools_manifest_is_accepted(self):
        for version, newer in (("0.2.0", True), ("0.1.0", False), ("0.10", True)):
            image = os.path.join(self.home, f"Morvane-Connector-{version}.dmg")
            with open(image, "wb") as file:
                file.write(b"image")
            manifest = subprocess.run(
                [WRITE_MANIFEST, version, image, f"https://{hosts.DOWNLOAD}", "beta"],
                check=True, stdout=subprocess.PIPE, text=True).stdout
            url = f"https://{hosts.DOWNLOAD}/{os.path.basename(image)}"
            self.assertEqual(checked(manifest, version, newer, url, "beta"), self.check(manifest))


if __name__ == "__main__":
    unittest.main()
