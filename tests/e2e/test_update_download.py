"""Fetching a new release's disk image and handing it to the system."""

import json
import os
import unittest

from sandbox import hosts
from sandbox.downloads import IMAGE_PATH, default_manifest, image_of_size
from sandbox.faults import Fault
from support import ConnectorTest

HOST = f"https://{hosts.DOWNLOAD}"
IMAGE = image_of_size(192 * 1024)
LATEST = "updates/Morvane-Connector-latest.dmg"


def versioned(version):
    return f"updates/Morvane-Connector-{version}.dmg"


class UpdateTest(ConnectorTest):
    def setUp(self):
        super().setUp()
        downloads = self.box.downloads
        downloads.manifest = default_manifest()
        downloads.images = {IMAGE_PATH: IMAGE}
        downloads.redirects.clear()

    def announce(self, version, url=HOST + IMAGE_PATH):
        self.box.downloads.manifest = f'{{"version":"{version}","dmgUrl":"{url}"}}'.encode()

    def images(self):
        """What lies in the updates folder, by its name below the root; a folder is None."""
        found = {}
        for name in os.listdir(os.path.join(self.root, "updates")):
            path = os.path.join(self.root, "updates", name)
            found["updates/" + name] = None
            if os.path.isfile(path):
                with open(path, "rb") as file:
                    found["updates/" + name] = file.read()
        return found

    def path(self, name):
        return os.path.join(self.root, name)


class Download(UpdateTest):
    def downloaded(self, version, url=HOST + IMAGE_PATH):
        return (f'{{"status":"ok","current_version":"0.1.0","latest_version":"{version}",'
                f'"update_available":true,"downloaded":true,'
                f'"downloaded_to":"{self.path(versioned(version))}",'
                f'"latest_file":"{self.path(LATEST)}","dmg_url":"{url}"}}\n')

    def failed(self, version="0.2.0", url=HOST + IMAGE_PATH):
        return (f'{{"status":"error","reason":"update_download_failed",'
                f'"latest_version":"{version}","dmg_url":"{url}"}}\n')

    def test_a_newer_image_is_kept_under_its_version_and_as_the_latest(self):
        self.assertEqual(self.downloaded("0.2.0"), self.answer("update-download"))
        self.assertEqual({versioned("0.2.0"): IMAGE, LATEST: IMAGE}, self.images())
        self.assertFalse(os.path.islink(self.path(LATEST)))
        self.assertEqual([("GET", hosts.DOWNLOAD, "/current/manifest.json"),
                          ("GET", hosts.DOWNLOAD, IMAGE_PATH)], self.sent())

    def test_the_next_release_replaces_the_latest_and_keeps_the_one_before(self):
        self.answer("update-download")
        self.box.downloads.images["/next.dmg"] = b"short"
        self.announce("0.3.0", HOST + "/next.dmg")
        self.assertEqual(self.downloaded("0.3.0", HOST + "/next.dmg"),
                         self.answer("update-download"))
        self.assertEqual({versioned("0.2.0"): IMAGE, versioned("0.3.0"): b"short",
                          LATEST: b"short"}, self.images())

    def test_the_running_version_or_an_older_one_is_not_fetched(self):
        for version in ("0.1.0", "0.0.9", "v2"):
            self.announce(version)
            self.assertEqual(f'{{"status":"ok","current_version":"0.1.0","latest_version":'
                             f'"{version}","update_available":false,'
                             f'"note":"already_on_latest_version"}}\n',
                             self.answer("update-download"))
        self.assertEqual({}, self.images())
        self.assertEqual({"/current/manifest.json"}, {target for _, _, target in self.sent()})

    def test_redirects_are_followed_to_the_image(self):
        self.box.downloads.redirects.update({"/a": HOST + "/b", "/b": IMAGE_PATH})
        self.announce("0.2.0", HOST + "/a")
        self.assertEqual(self.downloaded("0.2.0", HOST + "/a"), self.answer("update-download"))
        self.assertEqual({versioned("0.2.0"): IMAGE, LATEST: IMAGE}, self.images())

    def test_an_image_that_comes_slowly_comes_whole(self):
        self.box.faults.append(Fault.slow(hosts.DOWNLOAD, path=IMAGE_PATH, pause_seconds=0.01))
        self.assertEqual(self.downloaded("0.2.0"), self.answer("update-download"))
        self.assertEqual(IMAGE, self.images()[LATEST])

    def test_a_failed_download_leaves_the_latest_image_as_it_was(self):
        half = IMAGE[:len(IMAGE) // 2]
        for fault, partial in ((Fault.html_error(hosts.DOWNLOAD, 404, path=IMAGE_PATH), None),
                               (Fault.html_error(hosts.DOWNLOAD, 503, path=IMAGE_PATH), None),
                               (Fault.close(hosts.DOWNLOAD, path=IMAGE_PATH), None),
                               (Fault.cut_off(hosts.DOWNLOAD, path=IMAGE_PATH), half)):
            for latest in (None, b"older"):
                with self.subTest(fault=fault, latest=latest):
                    for name in self.files():
                        if name.endswith(".dmg"):
                            os.remove(self.path(name))
                    if latest is not None:
                        self.write(LATEST, latest.decode())
                    self.box.faults[:] = [fault]
                    self.assertEqual(self.failed(), self.answer("update-download"))
                    left = self.images()
                    self.assertEqual(partial, left.pop(versioned("0.2.0"), None))
                    self.assertEqual({} if latest is None else {LATEST: latest}, left)
        self.box.faults.clear()
        self.answer("update-download")
        self.assertEqual({versioned("0.2.0"): IMAGE, LATEST: IMAGE}, self.images())

    def test_a_latest_image_that_cannot_be_replaced_changes_no_word(self):
        self.write(LATEST + "/mine.txt", "mine")
        self.assertEqual(self.downloaded("0.2.0"), self.answer("update-download"))
        self.assertEqual({versioned("0.2.0"): IMAGE, LATEST: None}, self.images())
        self.assertEqual("mine", self.read(LATEST + "/mine.txt"))

    def test_the_latest_image_replaces_a_link_and_not_what_it_points_to(self):
        self.write("vault/bybit.vault", "mine")
        os.makedirs(self.path("updates"))
        os.symlink(self.path("vault/bybit.vault"), self.path(LATEST))
        self.answer("update-download")
        self.assertEqual(("mine", IMAGE), (self.read("vault/bybit.vault"), self.images()[LATEST]))

    def test_a_version_cannot_lead_out_of_the_updates_folder(self):
        around = ["device_identity.env", "updates", "vault"]
        for version, name in (("1/../../../out", "1_.._.._.._out"), ("2/vault/x", "2_vault_x"),
                              ("3..", "3.."), ("4/", "4_"), ("5 $(touch ran)'\\\\", None),
                              ("6;touch ran;#1", "6;touch ran;#1")):
            with self.subTest(version=version):
                self.announce(version)
                document = json.loads(self.answer("update-download", cwd=self.home))
                self.assertEqual((True, version), (document["downloaded"],
                                                   document["latest_version"]))
                path = self.path(versioned(name or version))
                self.assertEqual(path, document["downloaded_to"])
                with open(path, "rb") as file:
                    self.assertEqual(IMAGE, file.read())
                os.remove(path)
                os.remove(self.path(LATEST))
                self.assertEqual(around, self.files())
                self.assertEqual([".morvane-connector"], os.listdir(self.home))

    def test_a_version_too_long_for_a_file_name_fails(self):
        self.announce("1" + "0" * 300)  # a number out of range: older than any
        self.assertIn('"note":"already_on_latest_version"', self.answer("update-download"))
        self.announce("1." + "0" * 300)
        self.assertEqual(self.failed("1." + "0" * 300), self.answer("update-download"))
        self.assertEqual({}, self.images())

    def test_a_hostile_image_address_is_asked_for_and_not_run(self):
        path = "/it's$(cat<ran>more)`id`;id&.dmg"
        self.box.downloads.images[path] = b"image"
        self.announce("0.2.0", HOST + path)
        self.assertEqual(self.downloaded("0.2.0", HOST + path),
                         self.answer("update-download", cwd=self.home))
        self.assertEqual(b"image", self.images()[LATEST])
        self.assertEqual([".morvane-connector"], os.listdir(self.home))

    def test_an_address_that_is_none_downloads_nothing(self):
        for url in (HOST + "/a b.dmg", "$(touch ran)", "';touch ran;'", "nobody.example",
                    "https://nobody.example/x.dmg"):
            with self.subTest(url=url):
                self.write(LATEST, "older")
                self.announce("0.2.0", url)
                self.assertEqual(self.failed("0.2.0", url),
                                 self.answer("update-download", cwd=self.home))
                self.assertEqual({LATEST: b"older"}, self.images())
                self.assertEqual([".morvane-connector"], os.listdir(self.home))

    def test_an_address_that_curl_would_take_for_an_option_is_not_given_to_it(self):
        log = self.recording_curl()
        for url in ("--version", "-h", "-", "--", "-K", "-oran", "-d@" + self.path("secret")):
            with self.subTest(url=url):
                self.write(LATEST, "older")
                self.announce("0.2.0", url)
                self.assertEqual(self.failed("0.2.0", url), self.answer("update-download"))
                self.assertEqual({LATEST: b"older"}, self.images())
                with open(log, encoding="utf-8") as lines:
                    self.assertNotIn(" 300 ", lines.read())

    def test_manifest_and_image_have_their_limits_and_a_late_one_is_none(self):
        manifest = rf"-sS --fail --max-time 20 {HOST}/current/manifest\.json\n"
        image = rf"-sS --fail --max-time 300 -L {HOST}{IMAGE_PATH} -o .*-0\.2\.0\.dmg\n"
        for limit, printed, lines in (
                (20, f'{{"status":"error","reason":"manifest_fetch_failed","manifest_url":'
                     f'"{HOST}/current/manifest.json"}}\n', manifest),
                (300, self.failed(), manifest + image)):
            with self.subTest(limit=limit):
                log = self.recording_curl(times_out_at=str(limit))
                self.assertEqual(printed, self.answer("update-download"))
                with open(log, encoding="utf-8") as written:
                    self.assertRegex(written.read(), rf"\A{lines}\Z")
                os.remove(log)
        self.assertEqual({}, self.images())


class Apply(UpdateTest):
    def setUp(self):
        super().setUp()
        self.opened = os.path.join(self.home, "opened")
        self.stand_in("open", f"#!/bin/sh\nprintf '%s\\n' $# \"$@\" > '{self.opened}'\n")

    def assert_opens(self, name):
        self.assertEqual({"status": "ok", "applied": False, "install_flow_started": True,
                          "file": self.path(name),
                          "note": "dmg_opened_drag_updated_app_into_Applications"},
                         json.loads(self.answer("update-apply")))
        with open(self.opened, encoding="utf-8") as file:
            self.assertEqual(f"1\n{self.path(name)}\n", file.read())
        os.remove(self.opened)

    def failed(self, reason, member, name):
        return f'{{"status":"error","reason":"{reason}","{member}":"{self.path(name)}"}}\n'

    def test_the_latest_image_is_opened_and_the_words_stand_in_order(self):
        self.write(versioned("0.2.0"), "image")
        self.write(LATEST, "image")
        self.assertEqual(f'{{"status":"ok","applied":false,"install_flow_started":true,"file":'
                         f'"{self.path(LATEST)}",'
                         f'"note":"dmg_opened_drag_updated_app_into_Applications"}}\n',
                         self.answer("update-apply"))
        self.assert_opens(LATEST)
        self.assertEqual([], self.box.requests)

    def test_without_a_latest_image_any_other_is_opened(self):
        for name in ("updates/x.DMG", "updates/x.dmg.part", "updates/x.dmg2", "updates/.dmg",
                     "updates/folder.dmg/x.dmg"):
            self.write(name, "no image")
        os.symlink("nowhere", self.path(LATEST))
        self.assertEqual(self.failed("update_file_missing", "updates_dir", "updates"),
                         self.answer("update-apply"))
        self.write("updates/it's 0.2.0 $(touch ran).dmg", "image")
        self.assert_opens("updates/it's 0.2.0 $(touch ran).dmg")

    def test_a_home_with_blanks_and_quotes_keeps_its_name(self):
        self.env["HOME"] = os.path.join(self.home, "Ann's \"home\" $(touch ran) \\ ä")
        self.root = os.path.join(self.env["HOME"], ".morvane-connector")
        document = json.loads(self.answer("update-download"))
        self.assertEqual((self.path(versioned("0.2.0")), self.path(LATEST)),
                         (document["downloaded_to"], document["latest_file"]))
        self.assertEqual({versioned("0.2.0"): IMAGE, LATEST: IMAGE}, self.images())
        self.assert_opens(LATEST)

    def test_an_opener_that_fails_or_is_missing_is_reported(self):
        self.write(LATEST, "image")
        printed = self.failed("open_dmg_failed", "file", LATEST)
        self.stand_in("open", "#!/bin/sh\necho no such file >&2\nexit 1\n")
        self.assertEqual(printed, self.answer("update-apply"))
        self.only_tools()
        self.assertEqual(printed, self.answer("update-apply"))
        self.assertEqual("image", self.read(LATEST))


if __name__ == "__main__":
    unittest.main()
