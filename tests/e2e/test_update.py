"""From the manifest of the newest release to its disk image in the system's hands."""

import os

from sandbox import Fault, hosts
from sandbox.http_message import Response
from support import ConnectorTest, document, each, error

HOST = f"https://{hosts.DOWNLOAD}"
MANIFEST = HOST + "/current/manifest.json"
IMAGE = HOST + "/image.dmg"
KEPT = "updates/Morvane-Connector-{}.dmg"
LATEST = KEPT.format("latest")


class Updates(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.stand_in(open="printf '%s\\n' $# \"$@\" >\"$HOME/opened\"")

    def publish(self, manifest):
        self.box.downloads.manifest = manifest.encode()

    def announce(self, version, url=IMAGE):
        self.publish(f'{{"version":"{version}","dmgUrl":"{url}"}}')

    @each(("a plain one", '{"version":"0.1.0.0","dmgUrl":"u","channel":"a"}',
           "0.1.0.0", False, "a"),
          ("blanks, and a number for a text",
           '{"version" :\n "0.2\n\t","dmgUrl":"u","channel":2}', "0.2\n\t", True, ""),
          ("no JSON", 'no JSON, "version":"0.10\r\\"x", but "dmgUrl":"u"',
           "0.10\r\\", True, ""))
    def test_a_manifest_is_read_by_its_first_texts_and_echoed(
            self, _, manifest, version, newer, channel):
        self.publish(manifest)
        answer = document("ok", current_version="0.1.0", latest_version=version,
                          update_available=newer, channel=channel,
                          manifest_url=MANIFEST, dmg_url="u", manifest="RAW")
        self.says(answer.replace('"RAW"', manifest), "update-check")

    @each('{"version":"0.2.0"}', '{"version":"","dmgUrl":"u"}', "<h1>\r\n</h1>\n")
    def test_one_without_a_version_or_an_address_is_invalid_and_echoed(self, manifest):
        self.publish(manifest)
        answer = error("manifest_invalid", manifest_url=MANIFEST, manifest="RAW")
        for command in ("update-check", "update-download"):
            self.says(answer.replace('"RAW"', manifest), command)

    @each(*((version, "false") for version in
            ("0.1", "0..9", "v2", "2147483648", "-1", "0.1.0.-9")),
          *((version, "true") for version in
            ("0.1.1", "0.1.0.1", " 0.10", "+1x", "0.2-beta", "1.")))
    def test_versions_are_compared_part_by_part_as_numbers(self, version, newer):
        self.announce(version)
        self.assertIn(f'"update_available":{newer}', self.answer("update-check"))

    @each(Fault.answer(hosts.DOWNLOAD, 404, b'{"version":"9","dmgUrl":"u"}'),
          Fault.answer(hosts.DOWNLOAD),
          Fault(hosts.DOWNLOAD, delivery="half"),
          Fault(hosts.DOWNLOAD, response=Response(302, headers=[("Location", "/new")])))
    def test_a_manifest_that_did_not_come_whole_or_lies_elsewhere_is_none(self, fault):
        self.box.faults.append(fault)
        self.says(error("update_check_failed", manifest_url=MANIFEST), "update-check")
        self.assertEqual(1, len(self.box.requests))

    def assert_downloads(self, version, image="image", url=IMAGE, name=""):
        """The image of a newer version, under its name if that differs."""
        self.announce(version, url)
        self.box.downloads.images["/image.dmg"] = image.encode()
        kept = KEPT.format(name or version)
        self.says(document(
            "ok", current_version="0.1.0", latest_version=version, update_available=True,
            downloaded=True, downloaded_to=self.path(kept),
            latest_file=self.path(LATEST), dmg_url=url), "update-download")
        self.assertEqual([image, image], [self.read(kept), self.read(LATEST)])

    def assert_no_download(self, url=IMAGE):
        self.announce("9", url)
        self.says(error("update_download_failed", latest_version="9", dmg_url=url),
                  "update-download")

    def test_a_newer_image_is_kept_under_its_version_and_as_the_latest(self):
        self.assert_downloads("0.2.0")
        self.assert_downloads("0.3.0", "next")
        self.assertEqual("image", self.read(KEPT.format("0.2.0")))

    def test_address_and_version_are_texts_and_redirects_are_followed(self):
        path = "/it's$(touch<ran)`id`;id&.dmg"
        self.box.downloads.redirects.update({path: HOST + "/a", "/a": "/image.dmg"})
        self.assert_downloads("1/../$(touch ran)'", url=HOST + path,
                              name="1_.._$(touch ran)'")
        self.assertNotIn("ran", os.listdir(self.home))

    def test_nothing_is_fetched_when_there_is_nothing_newer(self):
        self.announce("0.1.0")
        self.says(document("ok", current_version="0.1.0", latest_version="0.1.0",
                           update_available=False, note="already_on_latest_version"),
                  "update-download")
        self.assertEqual(["/current/manifest.json"],
                         [one.target for one in self.box.requests])

    @each((404, "whole"), (200, "half"))
    def test_a_failed_download_leaves_the_latest_image_as_it_was(self, status, delivery):
        self.write(LATEST, "older")
        self.box.faults.append(Fault(hosts.DOWNLOAD, "/image", delivery=delivery,
                                     response=Response(status, b"page")))
        self.assert_no_download()
        self.assertEqual("older", self.read(LATEST))

    def test_curl_has_limits_of_time_and_gets_no_address_that_it_reads_otherwise(self):
        curl = self.real("curl")
        self.stand_in(curl=f'echo "$*" >>"$HOME/log"; exec {curl} "$@"')
        for url in ("-K", HOST + "/[1-9]", HOST + "/{image,b}.dmg", HOST + "/]",
                    HOST + "/}"):
            self.assert_no_download(url)
        self.assert_downloads("9")
        self.assertEqual(6 * f"-sS --fail --max-time 20 {MANIFEST}\n"
                         + f"-sS --fail --max-time 300 -L {IMAGE} -o "
                           f"{self.path(KEPT.format('9'))}\n", self.read("../log"))

    def assert_opens(self, name):
        self.says(document("ok", applied=False, install_flow_started=True,
                           file=self.path(name),
                           note="dmg_opened_drag_updated_app_into_Applications"),
                  "update-apply")
        self.assertEqual(f"1\n{self.path(name)}\n", self.read("../opened"))

    def test_the_latest_image_is_opened_or_else_any_other(self):
        self.write("updates/it's 0.2.0 $(touch ran).dmg", "image")
        self.assert_opens("updates/it's 0.2.0 $(touch ran).dmg")
        self.write(LATEST, "image")
        self.assert_opens(LATEST)

    def test_what_is_no_image_is_not_opened(self):
        for name in ("x.DMG", "x.dmg.part", ".dmg", "folder.dmg/x.dmg"):
            self.write("updates/" + name, "no image")
        os.symlink("nowhere", self.path(LATEST))
        self.says(error("update_file_missing", updates_dir=self.path("updates")),
                  "update-apply")

    def test_an_image_that_the_system_does_not_open_is_named(self):
        self.write(LATEST, "image")
        self.stand_in(open="exit 1")
        self.says(error("open_dmg_failed", file=self.path(LATEST)), "update-apply")
