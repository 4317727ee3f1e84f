"""From the manifest of the newest release to its disk image in the system's hands."""

import os

from sandbox import Fault, hosts
from support import ConnectorTest, document, error

HOST = f"https://{hosts.DOWNLOAD}"
MANIFEST, IMAGE = HOST + "/current/manifest.json", HOST + "/image.dmg"
NAME = "updates/Morvane-Connector-{}.dmg"
LATEST = NAME.format("latest")


class Updates(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.box.downloads.images["/image.dmg"] = b"image"

    def announce(self, version, url=IMAGE):
        self.box.downloads.manifest = f'{{"version":"{version}","dmgUrl":"{url}"}}'.encode()

    def assert_downloads(self, version, url=IMAGE, name=""):
        """The newer version, under its name if that differs."""
        self.announce(version, url)
        self.says(document(
            "ok", current_version="0.1.0", latest_version=version, update_available=True,
            downloaded=True, downloaded_to=self.path(NAME.format(name or version)),
            latest_file=self.path(LATEST), dmg_url=url), "update-download", cwd=self.home)

    def assert_no_download(self, url=IMAGE):
        self.announce("9", url)
        self.says(error("update_download_failed", latest_version="9", dmg_url=url),
                  "update-download", cwd=self.home)

    def test_a_manifest_is_read_by_its_first_texts_and_echoed_or_is_none(self):
        url = f'"dmgUrl":"{IMAGE}"'
        for manifest, version, newer, channel in (
                (f'{{"version":"0.1.0.0",{url},"channel":"a"}}', "0.1.0.0", False, "a"),
                (f'{{"version" :\n "0.2\n\t",{url},"channel":2}}', "0.2\n\t", True, ""),
                (f'no JSON, "version":"0.10\r\\"x", but {url}', "0.10\r\\", True, "")):
            self.box.downloads.manifest = manifest.encode()
            self.says(document(
                "ok", current_version="0.1.0", latest_version=version, update_available=newer,
                channel=channel, manifest_url=MANIFEST, dmg_url=IMAGE,
                manifest="RAW").replace('"RAW"', manifest), "update-check")
        for manifest in ('{"version":"0.2.0"}', f'{{"version":"",{url}}}', " ", "<h1>\r\n</h1>\n"):
            self.box.downloads.manifest = manifest.encode()
            told = error("manifest_invalid", manifest_url=MANIFEST, manifest="RAW")
            self.says(told.replace('"RAW"', manifest), "update-check")
            self.says(told.replace('"RAW"', manifest), "update-download")
        for newer, versions in (("false", ("0.1", "0..9", "v2", "2147483648", "-1", "0.1.0.-9")),
                                ("true", ("0.1.1", "0.1.0.1", " 0.10", "+1x", "0.2-beta", "1."))):
            for version in versions:
                self.announce(version)
                self.assertIn(f'"update_available":{newer}', self.answer("update-check"), version)
        self.box.requests.clear()
        self.box.downloads.redirects["/current/manifest.json"] = "/new.json"
        for faults in ([], [Fault.answer(hosts.DOWNLOAD, 404, self.box.downloads.manifest)],
                       [Fault.answer(hosts.DOWNLOAD)], [Fault.cut_off(hosts.DOWNLOAD)]):
            self.box.faults[:] = faults
            self.assertIn("update_check_failed", self.answer("update-check"))
        self.assertEqual(4, len(self.box.requests))

    def test_a_newer_image_is_kept_under_its_version_and_as_the_latest(self):
        self.assert_downloads("0.2.0")
        # The next one replaces the latest and keeps the one before. Redirects lead to it, its
        # address is text, and its version does not lead out of the folder.
        path = "/it's$(touch<ran)`id`;id&.dmg"
        self.box.downloads.images["/b"] = b"next"
        self.box.downloads.redirects.update({path: HOST + "/a", "/a": "/b"})
        self.assert_downloads("1/../$(id)'", HOST + path, "1_.._$(id)'")
        for name, image in (("0.2.0", "image"), ("1_.._$(id)'", "next"), ("latest", "next")):
            self.assertEqual(image, self.read(NAME.format(name)))
        self.box.requests.clear()
        for version in ("0.1.0", "0.0.9"):
            self.announce(version)
            self.says(document("ok", current_version="0.1.0", latest_version=version,
                               update_available=False, note="already_on_latest_version"),
                      "update-download")
        self.assertEqual(2, len(self.box.requests))
        self.assertNotIn("ran", os.listdir(self.home))

    def test_a_failed_download_leaves_the_latest_image_as_it_was(self):
        self.write(LATEST, "older")
        for fault in (Fault.answer, Fault.cut_off):
            self.box.faults[:] = [fault(hosts.DOWNLOAD, 404, b"page", path="/image")]
            self.assert_no_download()
            self.assertEqual("older", self.read(LATEST))
        self.box.faults.clear()
        self.stand_in(curl=f"""echo "$*" >>"$HOME/log"; exec {self.real("curl")} "$@" """)
        # What curl would take for an option, or for many addresses, it never sees.
        for url in ("-K", *(f"{HOST}/{name}" for name in ("[1-9]", "{image,b}.dmg", "]", "}"))):
            self.assert_no_download(url)
        # A folder in the latest image's place stays, and changes no word.
        os.remove(self.path(LATEST))
        self.write(LATEST + "/mine", "")
        self.assert_downloads("9")
        self.assertEqual("image", self.read(NAME.format(9)))
        self.assertIn(LATEST + "/mine", self.files())
        self.assertEqual(6 * f"-sS --fail --max-time 20 {MANIFEST}\n"
                         + f"-sS --fail --max-time 300 -L {IMAGE} -o {self.path(NAME.format(9))}\n",
                         self.read("../log"))

    def test_the_latest_image_or_else_any_other_is_opened(self):
        self.stand_in(open="printf '%s\\n' $# \"$@\" >\"$HOME/opened\"")
        for name in ("x.DMG", "x.dmg.part", ".dmg", "folder.dmg/x.dmg"):
            self.write("updates/" + name, "no image")
        os.symlink("nowhere", self.path(LATEST))
        self.says(error("update_file_missing", updates_dir=self.path("updates")), "update-apply")
        for name in ("updates/it's 0.2.0 $(touch ran).dmg", LATEST):
            self.write("updates/nowhere" if name == LATEST else name, "image")
            self.says(document(
                "ok", applied=False, install_flow_started=True, file=self.path(name),
                note="dmg_opened_drag_updated_app_into_Applications"), "update-apply")
            self.assertEqual(f"1\n{self.path(name)}\n", self.read("../opened"))
        self.only_tools(open="exit 1")
        self.says(error("open_dmg_failed", file=self.path(LATEST)), "update-apply")
