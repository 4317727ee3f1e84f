"""packaging/write_manifest under every shell that is at hand: what it writes and what it refuses."""

import json
import shutil
import subprocess
import unittest

from tests.packaging.helpers import PACKAGING, Folder

URL = "https://download.morvane.example/releases"
SHELLS = [["sh"], ["dash"], ["bash"], ["bash", "--posix"], ["zsh", "--emulate", "sh"],
          ["busybox", "sh"]]


def shells():
    return [shell for shell in SHELLS if shutil.which(shell[0])]


class WriteManifest(Folder):
    def setUp(self):
        super().setUp()
        for name in ("Morvane-Connector-0.2.0.dmg", "Morvane-Connector-10.dmg", "other.dmg",
                     "Morvane-Connector-1..2.dmg", "Morvane-Connector-1.dmg.zip"):
            (self.folder / name).write_bytes(b"image")
        (self.folder / "Morvane-Connector-0.3.0.dmg").touch()
        (self.folder / "Morvane-Connector-0.4.0.dmg").mkdir()

    def run_in(self, shell, *arguments):
        return subprocess.run([*shell, str(PACKAGING / "write_manifest"), *arguments],
                              cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, check=False)

    def written(self, *arguments):
        """The manifest, which must be the same under every shell."""
        outputs = set()
        for shell in shells():
            done = self.run_in(shell, *arguments)
            self.assertEqual((done.returncode, done.stderr), (0, ""), shell)
            outputs.add(done.stdout)
        self.assertEqual(len(outputs), 1, outputs)
        return outputs.pop()

    def refused(self, why, *arguments):
        for shell in shells():
            done = self.run_in(shell, *arguments)
            self.assertEqual((done.returncode, done.stdout), (1, ""), (shell, arguments))
            self.assertIn(f"write_manifest: {why}", done.stderr, shell)

    def test_the_manifest_names_version_image_and_channel(self):
        image = "Morvane-Connector-0.2.0.dmg"
        for arguments, url, channel in (
                ((image, URL), URL, "stable"),
                ((image, URL + "/"), URL, "stable"),
                ((f"./{image}", "https://cdn.morvane.example:8443"),
                 "https://cdn.morvane.example:8443", "stable"),
                ((str(self.folder / image), URL, "beta-2"), URL, "beta-2")):
            text = self.written("0.2.0", *arguments)
            self.assertEqual(json.loads(text), {
                "version": "0.2.0", "dmgUrl": f"{url}/{image}", "channel": channel})
            self.assertEqual(text.count("\n"), 1)

    def test_a_version_of_one_number_is_a_version(self):
        text = self.written("10", "Morvane-Connector-10.dmg", URL)
        self.assertEqual(json.loads(text)["version"], "10")

    def test_a_version_that_is_not_dotted_numbers_is_refused(self):
        for version in ("", ".", "1.", ".1", "1..2", "v1", "1.0-beta", "1,0", "1 0", "1\n2", "-1",
                        "1.0\n", "٣", "*"):
            self.refused(f"version is not dotted numbers: {version}", version,
                         f"Morvane-Connector-{version}.dmg", URL)

    def test_a_version_that_the_updater_would_read_as_zero_is_refused(self):
        self.refused("version has a part of more than nine digits", "1.4294967296",
                     "Morvane-Connector-1.4294967296.dmg", URL)

    def test_an_image_of_another_name_is_refused(self):
        for image in ("other.dmg", "Morvane-Connector-10.dmg", "", "morvane-connector-0.2.0.dmg",
                      "Morvane-Connector-0.2.0.dmg/", "Morvane-Connector-0.2.0.dmg.zip"):
            self.refused(f"image is not named Morvane-Connector-0.2.0.dmg: {image}", "0.2.0", image,
                         URL)

    def test_an_image_that_is_missing_empty_or_no_file_is_refused(self):
        self.refused("image is not a file", "0.9", "Morvane-Connector-0.9.dmg", URL)
        self.refused("image is not a file", "0.4.0", "Morvane-Connector-0.4.0.dmg", URL)
        self.refused("image is empty", "0.3.0", "Morvane-Connector-0.3.0.dmg", URL)

    def test_a_base_url_that_is_not_https_is_refused(self):
        for why, urls in {
                "base URL is not https": ("", "http://a.example", "ftp://a.example", "a.example",
                                          "HTTPS://a.example", "file:///tmp", " https://a.example"),
                "base URL has no host": ("https://", "https:///", "https:///tmp", "https://:80"),
                "base URL holds a character": ("https://a.example/\"", "https://a.example/a b",
                                               "https://a.example/\\", "https://a.example?x=1",
                                               "https://a.example/#x", "https://a.example\n",
                                               "https://user@a.example", "https://ä.example")
        }.items():
            for url in urls:
                self.refused(why, "0.2.0", "Morvane-Connector-0.2.0.dmg", url)

    def test_a_channel_that_needs_quoting_is_refused(self):
        for channel in ("", "a b", 'a"', "a\\", "a\n", "ä"):
            self.refused("channel is not letters", "0.2.0", "Morvane-Connector-0.2.0.dmg", URL,
                         channel)

    def test_too_few_or_too_many_arguments_get_the_usage(self):
        image = "Morvane-Connector-0.2.0.dmg"
        for arguments in ((), ("0.2.0",), ("0.2.0", image), ("0.2.0", image, URL, "stable", "x")):
            self.refused("usage: write_manifest VERSION IMAGE BASE_URL [CHANNEL]", *arguments)


if __name__ == "__main__":
    unittest.main()
