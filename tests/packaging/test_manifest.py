"""packaging/write_manifest under every shell that is at hand: what it writes and what it refuses."""

import json
import shutil

from tests.packaging.helpers import PACKAGING, Folder

URL = "https://download.morvane.example/releases"
IMAGE = "Morvane-Connector-0.2.0.dmg"
SHELLS = [["sh"], ["dash"], ["bash"], ["bash", "--posix"], ["zsh", "--emulate", "sh"],
          ["busybox", "sh"]]

# For each refusal the arguments that earn it.
REFUSED = {
    "version is not dotted numbers": [
        (version, f"Morvane-Connector-{version}.dmg", URL)
        for version in ("", ".", "1.", ".1", "1..2", "v1", "1,0", "1 0", "1\n2", "1.0\n", "٣", "*")],
    # What the updater would read as zero.
    "version has a part of more than nine digits": [
        ("1.4294967296", "Morvane-Connector-1.4294967296.dmg", URL)],
    f"image is not named {IMAGE}": [
        ("0.2.0", image, URL) for image in ("other.dmg", "", f"{IMAGE}/", f"{IMAGE}.zip")],
    "image is not a file": [("0.9", "Morvane-Connector-0.9.dmg", URL),
                            ("0.4.0", "Morvane-Connector-0.4.0.dmg", URL)],
    "image is empty": [("0.3.0", "Morvane-Connector-0.3.0.dmg", URL)],
    "base URL is not https": [
        ("0.2.0", IMAGE, url) for url in ("", "http://a.example", "a.example", "HTTPS://a.example")],
    "base URL has no host": [
        ("0.2.0", IMAGE, url) for url in ("https://", "https:///tmp", "https://:80")],
    "base URL holds a character": [
        ("0.2.0", IMAGE, "https://" + rest)
        for rest in ("a/\"", "a/b c", "a/\\", "a?x=1", "a/#x", "a\n", "user@a", "ä")],
    "channel is not letters": [
        ("0.2.0", IMAGE, URL, channel) for channel in ("", "a b", 'a"', "a\\", "a\n", "ä")],
    "usage: write_manifest VERSION IMAGE BASE_URL [CHANNEL]": [
        (), ("0.2.0", IMAGE), ("0.2.0", IMAGE, URL, "stable", "x")],
}


class WriteManifest(Folder):
    def setUp(self):
        super().setUp()
        for name in (IMAGE, "Morvane-Connector-10.dmg", "other.dmg", "Morvane-Connector-1..2.dmg"):
            (self.folder / name).write_bytes(b"image")
        (self.folder / "Morvane-Connector-0.3.0.dmg").touch()
        (self.folder / "Morvane-Connector-0.4.0.dmg").mkdir()

    # What it does, under each shell.
    def outcomes(self, *arguments):
        return [self.run_tool(*shell, PACKAGING / "write_manifest", *arguments)
                for shell in SHELLS if shutil.which(shell[0])]

    def test_the_manifest_names_version_image_and_channel(self):
        for arguments, channel in ((("0.2.0", IMAGE, URL), "stable"),
                                   (("0.2.0", f"./{IMAGE}", URL + "/", "beta-2"), "beta-2"),
                                   (("10", "Morvane-Connector-10.dmg", URL), "stable")):
            expected = {"version": arguments[0], "channel": channel,
                        "dmgUrl": f"{URL}/Morvane-Connector-{arguments[0]}.dmg"}
            for done in self.outcomes(*arguments):
                self.assertEqual((done.returncode, done.stderr), (0, ""), done.args)
                self.assertEqual(json.loads(done.stdout), expected, done.args)
                self.assertEqual(done.stdout.count("\n"), 1)

    def test_what_the_updater_could_not_use_is_refused(self):
        for why, cases in REFUSED.items():
            for arguments in cases:
                for done in self.outcomes(*arguments):
                    self.assertEqual((done.returncode, done.stdout), (1, ""), done.args)
                    self.assertIn(f"write_manifest: {why}", done.stderr, done.args)
