"""From the manifest of the newest release to its disk image in the system's hands."""

import glob
import os
import subprocess

from sandbox import hosts
from sandbox.downloads import IMAGE_PATH
from sandbox.faults import Fault
from support import IMAGE, ConnectorTest

HOST = f"https://{hosts.DOWNLOAD}"
MANIFEST_PATH = "/current/manifest.json"
MANIFEST_URL, IMAGE_URL = HOST + MANIFEST_PATH, HOST + IMAGE_PATH
LATEST = "updates/Morvane-Connector-latest.dmg"
WRITE_MANIFEST = os.path.join(os.path.dirname(os.path.dirname(os.path.dirname(
    os.path.abspath(__file__)))), "packaging", "write_manifest")


def failed(version="0.2.0", url=IMAGE_URL):
    return (f'{{"status":"error","reason":"update_download_failed","latest_version":"{version}",'
            f'"dmg_url":"{url}"}}\n')


def checked(manifest, version, newer=True, url=IMAGE_URL, channel=""):
    return (f'{{"status":"ok","current_version":"0.1.0","latest_version":"{version}",'
            f'"update_available":{"true" if newer else "false"},"channel":"{channel}",'
            f'"manifest_url":"{MANIFEST_URL}","dmg_url":"{url}","manifest":{manifest}}}\n')


def versioned(version):
    return f"updates/Morvane-Connector-{version}.dmg"


class UpdateTest(ConnectorTest):
    def serve(self, manifest):
        self.box.downloads.manifest = manifest.encode("utf-8", "surrogateescape")

    def announce(self, version, url=IMAGE_URL):
        self.serve(f'{{"version":"{version}","dmgUrl":"{url}"}}')

    def assert_images(self, expected):
        """What lies in the updates folder, by its name below the root."""
        found = {}
        for path in glob.glob(self.path("updates/*")):
            with open(path, "rb") as file:
                found["updates/" + os.path.basename(path)] = file.read()
        self.assertEqual(expected, found)


class Check(UpdateTest):
    def test_a_manifest_is_read_by_its_first_texts_and_echoed_as_it_came(self):
        url = f'"dmgUrl":"{IMAGE_URL}"'
        tail = f'"version":"0.2.0",{url}}}'
        for manifest, version, newer in (
                *(('{"version":"%s",%s}' % (version, url), version, newer)
                  for version, newer in (("0.1", False), ("0.1.0.0", False), ("v2", False),
                                         ("0.0.99999", False), ("99999999999.0", False),
                                         ("0.1.1", True), ("0.10.0", True), ("3-beta", True))),
                ('{"version" \t\r\n:\v\f "0.2.0",' + url + "}", "0.2.0", True),
                ('{"old":{"version":"0.3.0"},' + tail, "0.3.0", True),
                ('{"version":"","version":2,' + tail, "0.2.0", True),
                ('\n{\n  ' + tail + "\r\n\n", "0.2.0", True),
                ('{"version":"0.2\\"x",' + url + "}", "0.2\\\\", True),
                ('{"version":"0.2\n\t.0",' + url + "}", "0.2\\n\\t.0", True),
                ('"version":"0.2.0" and ' + url + ", but no JSON", "0.2.0", True),
                ('{"notes":"' + "x" * (8 << 20) + '",' + tail, "0.2.0", True),
                ("{" + '"' * 1_000_000 + "," + tail, "0.2.0", True),
                ("{" + '"version"' * 300_000 + "," + tail, "0.2.0", True)):
            self.serve(manifest)
            printed = self.answer("update-check")
            # Not assertEqual: nobody wants to read the long ones' difference.
            self.assertTrue(checked(manifest, version, newer) == printed, printed[:300])

    def test_without_a_version_or_an_image_the_manifest_is_invalid_and_shown(self):
        url = f'"dmgUrl":"{IMAGE_URL}"'
        for manifest in ('{"version":"0.2.0"}', f'{{"version":"",{url}}}',
                         f'{{"version":0.2,{url}}}', f'{{{url},"version":"0.2.0',
                         '{"version":"0.2.0","dmgUrl":""}', " ", "<html>\r\n</html>\r\n",
                         bytes(range(1, 256)).decode("utf-8", "surrogateescape")):
            self.serve(manifest)
            for command in ("update-check", "update-download"):
                self.assert_run((0, f'{{"status":"error","reason":"manifest_invalid",'
                                    f'"manifest_url":"{MANIFEST_URL}","manifest":{manifest}}}\n'),
                                command)
        self.assertEqual(["device_identity.env", "updates", "vault"], self.files())

    def test_a_manifest_that_cannot_be_had_or_has_moved_fails_in_the_commands_own_word(self):
        self.box.downloads.redirects[MANIFEST_PATH] = "/new.json"
        for faults in ([], [Fault.html_error(hosts.DOWNLOAD, 404)],
                       [Fault.answer(hosts.DOWNLOAD, 429, self.box.downloads.manifest)],
                       [Fault.answer(hosts.DOWNLOAD)], [Fault.cut_off(hosts.DOWNLOAD)]):
            self.box.faults[:] = faults
            for command, reason in (("check", "update_check"), ("download", "manifest_fetch")):
                self.assert_run((0, f'{{"status":"error","reason":"{reason}_failed",'
                                    f'"manifest_url":"{MANIFEST_URL}"}}\n'), "update-" + command)
        self.assertEqual({MANIFEST_PATH}, {target for _, _, target in self.sent()})

    def test_the_release_tools_manifest_is_accepted(self):
        for version, newer in (("0.2.0", True), ("0.1.0", False)):
            image = os.path.join(self.home, f"Morvane-Connector-{version}.dmg")
            with open(image, "wb") as file:
                file.write(b"image")
            manifest = subprocess.run([WRITE_MANIFEST, version, image, HOST, "beta"], check=True,
                                      stdout=subprocess.PIPE, text=True).stdout
            self.serve(manifest)
            self.assert_run((0, checked(manifest, version, newer, f"{HOST}/"
                                        f"{os.path.basename(image)}", "beta")), "update-check")


class Download(UpdateTest):
    def assert_downloads(self, version="0.2.0", url=IMAGE_URL, name=None):
        path = self.path(versioned(name or version))
        self.assert_run((0, f'{{"status":"ok","current_version":"0.1.0","latest_version":'
                            f'"{version}","update_available":true,"downloaded":true,'
                            f'"downloaded_to":"{path}","latest_file":"{self.path(LATEST)}",'
                            f'"dmg_url":"{url}"}}\n'), "update-download", cwd=self.home)

    def test_a_newer_image_is_kept_under_its_version_and_as_the_latest(self):
        self.assert_downloads()
        self.assert_images({versioned("0.2.0"): IMAGE, LATEST: IMAGE})
        self.assertEqual([MANIFEST_PATH, IMAGE_PATH], [target for _, _, target in self.sent()])
        # The next one replaces the latest and keeps the one before. Redirects lead to it, and its
        # address is text.
        path = "/it's$(cat<ran>more)`id`;id&.dmg"
        self.box.downloads.images["/b"] = b"short"
        self.box.downloads.redirects.update({path: HOST + "/a", "/a": "/b"})
        self.announce("0.3.0", HOST + path)
        self.assert_downloads("0.3.0", HOST + path)
        images = {versioned("0.2.0"): IMAGE, versioned("0.3.0"): b"short", LATEST: b"short"}
        self.assert_images(images)
        self.box.requests.clear()
        for version in ("0.1.0", "0.0.9"):
            self.announce(version)
            self.assert_run((0, f'{{"status":"ok","current_version":"0.1.0","latest_version":'
                                f'"{version}","update_available":false,'
                                f'"note":"already_on_latest_version"}}\n'), "update-download")
        self.assertEqual({MANIFEST_PATH}, {target for _, _, target in self.sent()})
        self.assert_images(images)
        self.assertEqual([".morvane-connector"], os.listdir(self.home))

    def test_a_failed_download_leaves_the_latest_image_as_it_was(self):
        self.write(LATEST, "older")
        for fault, left in ((Fault.html_error(hosts.DOWNLOAD, 404, path=IMAGE_PATH), {}),
                            (Fault.close(hosts.DOWNLOAD, path=IMAGE_PATH), {}),
                            (Fault.cut_off(hosts.DOWNLOAD, path=IMAGE_PATH),
                             {versioned("0.2.0"): IMAGE[:len(IMAGE) // 2]})):
            self.box.faults[:] = [fault]
            self.assert_run((0, failed()), "update-download")
            self.assert_images({LATEST: b"older", **left})
        os.remove(self.path(versioned("0.2.0")))
        self.box.faults.clear()
        log = self.recording_curl(times_out_at="300")
        for url in (HOST + "/a b.dmg", "';touch ran;'", "--version", "-", "-oran"):
            self.announce("0.2.0", url)
            self.assert_run((0, failed("0.2.0", url)), "update-download", cwd=self.home)
        os.remove(log)
        for url, calls in (("-K", ""), (IMAGE_URL, rf"-sS --fail --max-time 300 -L {IMAGE_URL} "
                                                   r"-o .*-0\.2\.0\.dmg\n")):
            self.announce("0.2.0", url)
            self.assert_run((0, failed("0.2.0", url)), "update-download")
            with open(log, encoding="utf-8") as lines:
                self.assertRegex(lines.read(),
                                 rf"\A-sS --fail --max-time 20 {MANIFEST_URL}\n{calls}\Z")
            os.remove(log)
        self.assert_images({LATEST: b"older"})
        self.assertEqual([".morvane-connector", "bin"], sorted(os.listdir(self.home)))

    def test_a_latest_image_that_cannot_be_replaced_changes_no_word(self):
        self.write(LATEST + "/mine.txt", "mine")
        self.assert_downloads()
        self.assertEqual("mine", self.read(LATEST + "/mine.txt"))

    def test_a_version_cannot_lead_out_of_the_updates_folder(self):
        for version, name in (("1/../../../out", "1_.._.._.._out"), ("3..", "3.."),
                              ("5 $(touch ran)'", "5 $(touch ran)'"), ("6;touch ran;#1", None)):
            self.announce(version)
            self.assert_downloads(version, name=name)
            self.assert_images({versioned(name or version): IMAGE, LATEST: IMAGE})
            os.remove(self.path(versioned(name or version)))
        self.assertEqual(["device_identity.env", "updates", LATEST, "vault"], self.files())
        self.announce("1." + "0" * 300)
        self.assert_run((0, failed("1." + "0" * 300)), "update-download")
        self.assertEqual([".morvane-connector"], os.listdir(self.home))


class Apply(UpdateTest):
    def test_the_latest_image_or_else_any_other_is_opened(self):
        opened = os.path.join(self.home, "opened")
        self.stand_in("open", f"printf '%s\\n' $# \"$@\" > '{opened}'\n")
        for name in ("x.DMG", "x.dmg.part", ".dmg", "folder.dmg/x.dmg"):
            self.write("updates/" + name, "no image")
        os.symlink("nowhere", self.path(LATEST))
        self.assert_run((0, f'{{"status":"error","reason":"update_file_missing",'
                            f'"updates_dir":"{self.path("updates")}"}}\n'), "update-apply")
        for name in ("updates/it's 0.2.0 $(touch ran).dmg", LATEST):
            self.write("updates/nowhere" if name == LATEST else name, "image")
            self.assert_run((0, f'{{"status":"ok","applied":false,"install_flow_started":true,'
                                f'"file":"{self.path(name)}","note":'
                                f'"dmg_opened_drag_updated_app_into_Applications"}}\n'),
                            "update-apply")
            with open(opened, encoding="utf-8") as file:
                self.assertEqual(f"1\n{self.path(name)}\n", file.read())
        self.stand_in("open", "echo no such file >&2\nexit 1\n")
        for _ in ("failing", "missing"):
            self.assert_run((0, f'{{"status":"error","reason":"open_dmg_failed",'
                                f'"file":"{self.path(LATEST)}"}}\n'), "update-apply")
            self.only_tools()
        self.assertEqual([], self.box.requests)
