"""What is kept on disk and in the keychain: by runs that meet, for careless callers."""

import os
import re
import resource
import shutil
import signal
import stat
import subprocess
from concurrent.futures import ThreadPoolExecutor

from sandbox.home import KEYCHAIN
from sandbox import Fault, hosts
from support import BOUND, CONNECTOR, CREDENTIAL, DEVICE, ConnectorTest

LATEST = "updates/Morvane-Connector-latest.dmg"
IMAGE = "updates/Morvane-Connector-0.2.0.dmg"

STAND_IN = os.path.join(os.path.dirname(__file__), "../stand_ins/security")
# The keychain's tool, which notes how it was called.
SECURITY = f"""printf '<%s>' "$@" >"$HOME/call"; exec {os.path.abspath(STAND_IN)} "$@" """


def careless():
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)
    os.umask(0)
    _, most = resource.getrlimit(resource.RLIMIT_CORE)
    resource.setrlimit(resource.RLIMIT_CORE, (most, most))


class Files(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.refuse_keychain()
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

    def assert_modes(self, folder_mode, file_mode, paths):
        for path in paths:
            expected = folder_mode if os.path.isdir(path) else file_mode
            self.assertEqual(oct(expected), oct(stat.S_IMODE(os.stat(path).st_mode)), path)

    def test_what_was_wide_is_narrowed_and_nothing_new_is_wide(self):
        self.write("vault/x~", "older")
        self.write(LATEST, "older")
        for path in [self.root, *map(self.path, self.files())]:
            os.chmod(path, 0o777 if os.path.isdir(path) else 0o666)
        for command in (["set-wallet", "0xabc"], self.check, ["update-download"]):
            self.answer(*command, preexec_fn=careless)
        self.assertEqual(self.read(IMAGE), self.read(LATEST))
        self.assert_modes(0o700, 0o600, [self.root, *map(self.path, self.files())])

    def test_tools_inherit_a_narrow_umask_and_leave_no_core_files(self):
        self.store_keys("bybit")
        self.stand_in(curl="echo $(umask) $(ulimit -S -c) $(ulimit -H -c)")
        self.assertIn('"body":0077 0 0\n}', self.answer("balance", "bybit",
                                                        preexec_fn=careless))

    def test_what_is_no_file_holds_nobody_up_and_stays_as_it_is(self):
        for name, command, status, printed in (
                ("device_identity.env", ["set-wallet", "0x"], 2, "owner_wallet_address=0x\n"),
                ("pairing.env", ["set-wallet", "0x"], 2, "pairing_status=unpaired\n"),
                ("vault/bybit.vault", ["load-credentials", "bybit"], 2, "status=missing\n"),
                ("vault/bybit.vault", self.check, 2, "failed to persist credentials to local "),
                ("vault/vault_index.txt", ["status"], 0, "connector_health")):
            for kind in ("pipe", "folder", "endless file"):
                with self.subTest(f"{command[0]}: {name} is a {kind}"):
                    self.be_bound()
                    path = self.path(name)
                    self.put(kind, path)
                    before = os.lstat(path).st_mode
                    self.assertIn(printed, self.answer(*command, status=status, timeout=60))
                    self.assertEqual(oct(before), oct(os.lstat(path).st_mode), path)
                    os.rename(path, os.path.join(self.home, f"{command[0]} {kind}"))

    def put(self, kind, path):
        """In the place of the file, if there is one."""
        if os.path.exists(path):
            os.remove(path)
        if kind == "pipe":
            os.mkfifo(path, 0o644)
        elif kind == "folder":
            os.mkdir(path, 0o755)
        else:
            os.symlink("/dev/zero", path)

    def test_a_key_that_may_not_be_read_or_replaced_is_an_error(self):
        self.be_stopped_by_modes()
        self.answer(*self.check)
        os.chmod(self.path("vault/bybit.vault"), 0)
        self.answer("load-credentials", "bybit", status=2)
        self.assertIn("\nstatus=error\n", self.answer(*self.check, status=2))

    def test_only_where_a_vault_may_be_searched_no_file_counts_as_removed(self):
        self.be_stopped_by_modes()
        self.answer(*self.check)
        for exchange in ("bybit", "nothing"):
            os.chmod(self.path("vault"), 0o600)
            self.says(f"status=error\nexchange={exchange}\nremoved=false\n",
                      "delete-credentials", exchange, status=2)
        for exchange in ("x" * 300, "bybit"):
            os.chmod(self.path("vault"), 0o700)
            self.says(f"status=ok\nexchange={exchange}\nremoved=true\n",
                      "delete-credentials", exchange)
        self.assertEqual([], os.listdir(self.path("vault")))

    def test_where_no_file_can_be_made_each_run_is_another_machine(self):
        self.be_stopped_by_modes()
        os.remove(self.path("device_identity.env"))
        os.chmod(self.root, 0o500)
        self.addCleanup(os.chmod, self.root, 0o700)
        first, second = [re.search("device_id=.*", self.answer("status"))[0]
                         for _ in ("first", "second")]
        self.assertNotEqual(first, second)
        self.answer("set-wallet", "0xabc", status=2)

    def on_a_full_disk(self, *command, room, status=0):
        """What it prints where files may not grow beyond `room` bytes, as on a disk that is full."""
        def full():
            resource.setrlimit(resource.RLIMIT_FSIZE, (room, resource.RLIM_INFINITY))
        self.env["GCOV_PREFIX"] = self.home  # an instrumented binary's counts are cut, too
        return self.answer(*command, status=status, preexec_fn=full)

    def test_on_a_full_disk_a_pairing_keeps_its_old_text(self):
        old = "pairing_status=bound\nowner_wallet_address=" + "0" * 200 + "\n"
        self.write("pairing.env", old)
        self.assertIn("pairing_status=bound\n", self.on_a_full_disk("set-wallet", "0x", room=10))
        self.assertEqual(old, self.read("pairing.env"))

    def test_where_an_image_finds_room_and_its_copy_does_not_no_half_copy_stays(self):
        self.write(LATEST, "older")
        self.stand_in(curl=f'ulimit -S -f "$(ulimit -H -f)"; exec {self.real("curl")} "$@"')
        printed = self.on_a_full_disk("update-download", room=4096)
        self.assertIn('"downloaded":true', printed)
        self.assertEqual([os.path.basename(IMAGE)], os.listdir(self.path("updates")))

    def test_first_runs_at_once_agree_on_one_identity(self):
        os.remove(self.path("device_identity.env"))
        with ThreadPoolExecutor(8) as pool:
            runs = [pool.submit(self.answer, "status") for _ in range(8)]
        told = {re.search("device_id=.*\n", run.result())[0] for run in runs}
        self.assertEqual({self.read("device_identity.env").splitlines(True)[0]}, told)

    def test_what_a_killed_run_left_unfinished_is_removed(self):
        killed = subprocess.Popen(["true"])
        killed.wait()
        names = [f"{folder}.unfinished-{killed.pid}" for folder in ("", "vault/", "updates/")]
        running = f"vault/.unfinished-{os.getpid()}"
        for name in [*names, running]:
            self.write(name, "exchange=okx\napi_secret=left behind\n")
        self.answer("status")
        self.assertEqual([], [name for name in names if name in self.files()])
        self.assertIn(running, self.files())

    def test_what_a_link_leads_to_is_not_narrowed(self):
        outside = os.path.join(self.home, "outside")
        os.mkdir(outside)
        self.write("../outside/notes", "mine")
        os.chmod(outside, 0o755)
        os.chmod(os.path.join(outside, "notes"), 0o644)
        os.symlink(os.path.join(outside, "notes"), self.path("notes"))
        os.rmdir(self.path("updates"))
        os.symlink(outside, self.path("updates"))
        self.answer("status")
        self.assert_modes(0o755, 0o644, [outside, os.path.join(outside, "notes")])

    def test_where_a_link_leads_nowhere_yet_its_file_is_made(self):
        os.symlink(os.path.join(self.home, "elsewhere"), self.path("vault/bybit.vault"))
        self.on_a_full_disk(*self.check, room=0, status=2)
        self.assertFalse(os.path.exists(os.path.join(self.home, "elsewhere")))
        self.answer(*self.check)
        self.assertEqual(CREDENTIAL.format("bybit", *self.key("bybit")),
                         self.read("../elsewhere"))
        self.assertTrue(os.path.islink(self.path("vault/bybit.vault")))

    def test_a_standard_stream_that_the_caller_closed_is_the_null_device(self):
        self.store_keys("bybit")
        self.stand_in(curl="[ -c /dev/fd/0 ] && echo a device")
        self.program = ["sh", "-c", '"$@" <&- 2>&-', "sh", CONNECTOR]
        self.assertIn('"body":a device', self.answer("balance", "bybit"))

    def test_a_shell_that_traces_itself_shows_no_secret(self):
        if not shutil.which("bash"):
            self.skipTest("there is no bash here")
        self.over_usr_bin(sh=f'#!{shutil.which("bash")}\nexec -a sh bash "$@"')
        self.program[-1:] = ["env", "SHELLOPTS=xtrace", CONNECTOR]
        self.assert_accepted("bybit")

    def test_a_wallet_in_the_relays_answer_writes_no_line_of_its_own(self):
        answer = b'{"bindState":"authorized","wallet":"0x1\ndevice_id=device:macos:evil"}'
        self.box.faults[:] = [Fault.answer(hosts.RELAY, 200, answer)]
        self.answer("bind-status")
        self.assertEqual(BOUND.identity_text(), self.read("device_identity.env"))
        self.assertIn("owner_wallet_address=0xOwn\n", self.read("pairing.env"))

    def test_without_a_home_only_a_folder_of_ones_own_is_the_root(self):
        del self.env["HOME"]
        self.env["TMPDIR"] = self.home
        root = os.path.join(self.home, "morvane-connector")
        self.answer("status")
        self.assertIn("device_identity.env", os.listdir(root))
        os.rename(root, root + ".ours")
        os.symlink(root + ".ours", root)
        self.assertEqual(-signal.SIGABRT, self.connector("status").returncode, "a link")
        if os.geteuid() == 0:
            os.remove(root)
            os.mkdir(root)
            os.chown(root, 65534, 65534)
            self.assertEqual(-signal.SIGABRT, self.connector("status").returncode, "a stranger's")

    def test_with_an_empty_home_the_root_lies_where_the_caller_stands(self):
        self.env["HOME"] = ""
        self.assertIn("device_id=" + DEVICE, self.answer("status", cwd=self.home))


class Keychain(ConnectorTest):
    ITEM = "<-s><morvane.connector.bybit><-a><bybit><-w>"

    def setUp(self):
        super().setUp()
        self.over_usr_bin(security=SECURITY)
        self.write(os.path.join("..", KEYCHAIN), "a keychain\n")
        self.text = CREDENTIAL.format("bybit", *self.key("bybit"))

    def test_a_saved_key_is_an_item_and_a_line_of_the_index_and_no_file(self):
        self.write("vault/bybit.vault", "api_key=older\n")
        for _ in range(2):
            self.validate("bybit")
            self.assertEqual(f"<add-generic-password><-U>{self.ITEM}<{self.text[:-1]}>",
                             self.read("../call"))
        self.assertEqual("api_key=older\n", self.read("vault/bybit.vault"))
        self.assertEqual("bybit\nbybit\n", self.read("vault/vault_index.txt"))
        self.assertIn("exchange=bybit status=configured ", self.answer("status"))

    def test_a_saved_key_is_loaded_also_after_its_file_was_deleted(self):
        self.validate("bybit")
        self.answer("delete-credentials", "bybit")
        self.says(f"status=ok\n{self.text}", "load-credentials", "bybit")
        self.assertEqual(f"<find-generic-password>{self.ITEM}", self.read("../call"))

    def test_the_file_is_asked_where_the_keychain_has_no_item(self):
        self.store_keys("okx")
        self.assertIn("\napi_key=demo-okx-key\n", self.answer("load-credentials", "okx"))

    def test_an_item_counts_though_it_holds_no_key(self):
        odd = "my odd\\name/"
        item = f"../{KEYCHAIN}.morvane.connector.my_odd_name_"
        self.write(item, "no credential")
        self.write("vault/my_odd_name_.vault", "api_key=file\n")
        self.says("status=ok\n" + CREDENTIAL.format(odd, "", "", ""), "load-credentials", odd)
        os.remove(self.path(item))
        self.assertIn("exchange=\napi_key=file\n", self.answer("load-credentials", odd))

    def test_without_an_index_the_files_are_listed(self):
        self.store_keys("bybit", "okx")
        for name in ("bingx.vault/x", "gate.VAULT", ".vault", "kucoin.vault.bak", "bitget.txt"):
            self.write("vault/" + name, "")
        shown = [line for line in self.answer("status").splitlines() if "present=true" in line]
        self.assertEqual(["exchange=bybit", "exchange=okx"], [line.split()[0] for line in shown])
