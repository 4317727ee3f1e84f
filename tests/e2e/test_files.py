"""What is kept on disk and in the keychain: by runs that meet, for careless callers."""

import os
import pwd
import re
import resource
import shutil
import signal
import stat
import sys
from concurrent.futures import ThreadPoolExecutor

from support import CONNECTOR, CREDENTIAL, DEVICE, ConnectorTest

LATEST, IMAGE = (f"updates/Morvane-Connector-{name}.dmg" for name in ("latest", "0.2.0"))


# Keeps items in files and prints one as macOS prints what holds a line feed: as hex digits. Where
# it is locked, it refuses. It notes how it was called.
SECURITY = r"""
printf '<%s>' "$@" >"$HOME/call"
[ -z "$LOCKED" ] || exit 36
case $1 in
  add-generic-password) printf %s "$8" >"$HOME/$6.item" ;;
  find-generic-password) [ -f "$HOME/$5.item" ] || exit 44; xxd -p "$HOME/$5.item" | tr -d '\n' ;;
esac"""

# A mount namespace of one's own, in which the folder $1 lies over /usr/bin.
PRIVATE = ["unshare", "--mount", *(["--user", "--map-root-user"] if os.geteuid() else []), "sh",
           "-c", 'mount -t overlay x -o lowerdir="$1":/usr/bin /usr/bin && shift && "$@"', "sh"]


def careless():
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)
    os.umask(0)
    _, most = resource.getrlimit(resource.RLIMIT_CORE)
    resource.setrlimit(resource.RLIMIT_CORE, (most, most))


class Files(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.be_bound()
        self.answer("status")
        self.check = ["validate", "bybit", *self.key("bybit")]

    def test_runs_at_once_lose_neither_identity_nor_binding_nor_secret(self):
        self.answer(*self.check)
        bound = r"\Aowner_wallet_address=0x(1|2{40})\npairing_status=bound\n"
        runs = 10 * [
            (["status"], f"device_id={DEVICE}\ndevice_label=My Mac\nplatform=macos\n"),
            (["load-credentials", "bybit"], "\napi_secret=demo-bybit-secret\npassphrase=\n"),
            (["set-wallet", "0x1"], bound), (["set-wallet", "0x" + "2" * 40], bound),
            (self.check, "credentials_saved=true"), (["set-wallet", "0x1"], bound)]
        with ThreadPoolExecutor(8) as pool:
            printed = pool.map(lambda run: self.answer(*run[0]), runs)
            for (_, expected), text in zip(runs, printed):
                self.assertRegex(text, expected)
        self.assertRegex(self.read("pairing.env"), bound)

    def test_a_callers_ways_are_not_the_programs_and_what_was_wide_is_narrowed(self):
        self.write("vault/x~", "older")
        self.write(LATEST, "older")
        for path in [self.root, *map(self.path, self.files())]:
            os.chmod(path, 0o777 if os.path.isdir(path) else 0o666)
        for command in (["set-wallet", "0xabc"], self.check, ["update-download"]):
            self.answer(*command, preexec_fn=careless)
        self.assertEqual(self.read(IMAGE), self.read(LATEST))
        for path in [self.root, *map(self.path, self.files())]:
            self.assertEqual(0o700 if os.path.isdir(path) else 0o600,
                             stat.S_IMODE(os.stat(path).st_mode), path)
        # A tool inherits the umask and the limit of core files.
        self.stand_in(curl="echo $(umask) $(ulimit -S -c) $(ulimit -H -c)")
        self.assertIn('"body":0077 0 0\n}', self.answer("balance", "bybit", preexec_fn=careless))

    def test_what_is_no_file_holds_nobody_up_and_stays_as_it_is(self):
        for name, command, status, printed in (
                ("device_identity.env", ["set-wallet", "0x"], 2, "owner_wallet_address=0x\n"),
                ("pairing.env", ["set-wallet", "0x"], 2, "pairing_status=unpaired\n"),
                ("vault/bybit.vault", ["load-credentials", "bybit"], 2, "status=missing\n"),
                ("vault/bybit.vault", self.check, 2, "failed to persist credentials to local "),
                ("vault/vault_index.txt", ["status"], 0, "connector_health")):
            for put in (lambda path: os.mkfifo(path, 0o644), lambda path: os.mkdir(path, 0o755),
                        lambda path: os.symlink("/dev/zero", path)):
                self.be_bound()
                self.write(name, "")
                os.remove(self.path(name))
                put(self.path(name))
                before = os.lstat(self.path(name)).st_mode
                self.assertIn(printed, self.answer(*command, status=status, timeout=60))
                self.assertEqual(before, os.lstat(self.path(name)).st_mode)
                os.rename(self.path(name), os.path.join(self.home, f"{command[0]}{before}"))

    def test_what_may_not_be_read_searched_or_written_is_told(self):
        if os.geteuid() == 0:  # Whom no mode of a file stops.
            nobody = pwd.getpwnam("nobody")
            self.user = {"user": nobody.pw_uid, "group": nobody.pw_gid, "extra_groups": []}
            self.program = [shutil.copy(CONNECTOR, self.home)]
            self.env["CURL_CA_BUNDLE"] = shutil.copy(self.env["CURL_CA_BUNDLE"], self.home)
            self.env["GCOV_PREFIX"] = self.home  # where an instrumented binary may write
            os.chmod(self.home, 0o777)
            shutil.rmtree(self.root)
        self.answer(*self.check)
        os.chmod(self.path("vault/bybit.vault"), 0)
        self.answer("load-credentials", "bybit", status=2)
        self.assertIn("\nstatus=error\n", self.answer(*self.check, status=2))
        for exchange, mode, removed in (("bybit", 0o600, "false"), ("nothing", 0o600, "false"),
                                        ("x" * 300, 0o700, "true"), ("bybit", 0o700, "true")):
            os.chmod(self.path("vault"), mode)
            status = 0 if removed == "true" else 2
            told = f"status={'error' if status else 'ok'}\nexchange={exchange}\nremoved={removed}\n"
            self.says(told, "delete-credentials", exchange, status=status)
        self.assertEqual([], os.listdir(self.path("vault")))
        os.remove(self.path("device_identity.env"))
        os.chmod(self.root, 0o500)
        self.assertNotEqual(*(re.search("device_id=.*", self.answer("status"))[0] for _ in "12"))
        self.answer("set-wallet", "0xabc", status=2)
        os.chmod(self.root, 0o700)

    def test_a_full_disk_leaves_the_old_text_and_the_latest_image(self):
        # A file that may not grow stands in for a disk that is full.
        def full():
            signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
            resource.setrlimit(resource.RLIMIT_FSIZE, (room, resource.RLIM_INFINITY))
        self.env["GCOV_PREFIX"] = self.home  # an instrumented binary's counts are cut, too
        for command, room, printed, name, old in (
                (["set-wallet", "0xabc"], 10, "pairing_status=bound\n", "pairing.env",
                 "pairing_status=bound\nowner_wallet_address=" + "0" * 200 + "\n"),
                (self.check, 0, "credentials_saved=true\n", "vault/bybit.vault", "api_key=old\n"),
                (["update-download"], 4096, "update_download_failed", LATEST, "older")):
            self.write(name, old)
            self.assertIn(printed, self.answer(*command, preexec_fn=full))
            self.assertEqual(old, self.read(name))
        # The image still finds its room, its copy does not: half a copy must not stay.
        self.stand_in(curl=f'ulimit -S -f "$(ulimit -H -f)"; exec {self.real("curl")} "$@"')
        self.assertIn('"downloaded":true', self.answer("update-download", preexec_fn=full))
        self.assertNotIn(LATEST, self.files())

    def test_without_a_home_only_a_folder_of_ones_own_is_the_root(self):
        self.env["HOME"] = ""
        self.assertIn("device_id=" + DEVICE, self.answer("status", cwd=self.home))
        del self.env["HOME"]
        self.env["TMPDIR"] = self.home
        root = os.path.join(self.home, "morvane-connector")
        self.answer("status")
        self.assertIn("device_identity.env", os.listdir(root))
        os.rename(root, root + ".ours")
        os.symlink(root + ".ours", root)
        self.assertEqual(-signal.SIGABRT, self.connector("status").returncode)
        if os.geteuid() == 0:
            os.remove(root)
            os.mkdir(root)
            os.chown(root, 65534, 65534)
            self.assertEqual(-signal.SIGABRT, self.connector("status").returncode)


class Keychain(ConnectorTest):
    def setUp(self):
        super().setUp()
        if sys.platform == "darwin":
            self.skipTest("the keychain of a Mac is its user's")
        self.stand_in(security=SECURITY)
        inside = [*PRIVATE, self.env["PATH"].split(os.pathsep)[0]]
        if not shutil.which("unshare") or self.box.run([*inside, "true"]).returncode:
            self.skipTest("this system allows no mount namespace of one's own")
        self.program = [*inside, *self.program]

    def test_a_key_is_kept_there_and_where_that_is_refused_in_its_file(self):
        item = "<-s><morvane.connector.bybit><-a><bybit><-w>"
        text = CREDENTIAL.format("bybit", *self.key("bybit"))
        self.store_keys("okx")
        self.write("vault/bybit.vault", "api_key=older\n")
        for _ in range(2):
            self.validate("bybit")
            self.assertEqual(f"<add-generic-password><-U>{item}<{text[:-1]}>", self.read("../call"))
        self.assertEqual("api_key=older\n", self.read("vault/bybit.vault"))
        self.assertEqual("bybit\nbybit\n", self.read("vault/vault_index.txt"))
        for _ in range(2):
            self.says(f"status=ok\n{text}", "load-credentials", "bybit")
            self.assertEqual(f"<find-generic-password>{item}", self.read("../call"))
            self.answer("delete-credentials", "bybit")
        self.assertRegex(self.answer("status"), "=bybit status=conf.*\n.*=okx status=not")
        # Where the keychain has nothing, the file is asked; an item counts though it is empty.
        self.assertIn("api_key=demo-okx-key\n", self.answer("load-credentials", "okx"))
        odd = "my odd\\name/"
        self.write("../my_odd_name_.item", "no credential")
        self.write("vault/my_odd_name_.vault", "api_key=file\n")
        self.says("status=ok\n" + CREDENTIAL.format(odd, "", "", ""), "load-credentials", odd)
        self.env["LOCKED"] = "yes"
        self.assertIn("exchange=\napi_key=file\n", self.answer("load-credentials", odd))
        self.assert_accepted("bybit")
        self.assertEqual(text, self.read("vault/bybit.vault"))
        os.remove(self.path("vault/vault_index.txt"))
        for name in ("bingx.vault/x", "gate.VAULT", ".vault", "kucoin.vault.bak", "bitget.txt"):
            self.write("vault/" + name, "")
        # Without an index the files count: those of Bybit and OKX.
        self.assertEqual(2, self.answer("status").count("credentials_present=true"))
