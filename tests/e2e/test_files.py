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

STAND_IN = os.path.abspath("tests/stand_ins/security")


class Files(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.refuse_keychain()
        self.be(BOUND)
        self.answer("status")
        self.check = ["validate", "bybit", *self.key("bybit")]

    def test_runs_at_once_lose_neither_identity_nor_binding_nor_secret(self):
        self.answer(*self.check)
        bound = r"\Aowner_wallet_address=0x(1|2{40})\npairing_status=bound\n"
        runs = 10 * [
            (["status"], f"device_id={DEVICE}\ndevice_label=My Mac\nplatform=macos\n"),
            (["load-credentials", "bybit"], "\napi_secret=demo-bybit-secret\n"),
            (["set-wallet", "0x1"], bound), (["set-wallet", "0x" + "2" * 40], bound),
            (self.check, "credentials_saved=true"), (["set-wallet", "0x1"], bound)]
        with ThreadPoolExecutor(8) as pool:
            printed = pool.map(lambda run: self.answer(*run[0]), runs)
            for (_, expected), text in zip(runs, printed):
                self.assertRegex(text, expected)
        self.assertRegex(self.read("pairing.env"), bound)

    def test_first_runs_at_once_agree_on_one_identity(self):
        os.remove(self.path("device_identity.env"))
        with ThreadPoolExecutor(8) as pool:
            runs = [pool.submit(self.answer, "status") for _ in range(8)]
        told = {re.search("device_id=.*\n", run.result())[0] for run in runs}
        self.assertEqual({self.read("device_identity.env").splitlines(True)[0]}, told)

    def test_only_what_a_killed_run_left_unfinished_is_removed(self):
        killed = subprocess.Popen(["true"])
        killed.wait()
        left, running = [f"vault/.unfinished-{pid}" for pid in (killed.pid, os.getpid())]
        self.write(left, "exchange=okx\n")
        self.write(running, "exchange=okx\n")
        self.answer("status")
        self.assertIn(running, self.files())
        self.assertNotIn(left, self.files())

    def test_a_pipe_in_a_files_place_holds_nobody_up(self):
        os.remove(self.path("pairing.env"))
        os.mkfifo(self.path("pairing.env"))
        self.answer("set-wallet", "0x", status=2, timeout=60)

    def test_a_key_that_cannot_be_written_is_not_called_saved(self):
        os.mkdir(self.path("vault/bybit.vault"))
        self.assertIn("\ncredentials_saved=false\n", self.answer(*self.check, status=2))

    def test_where_a_link_leads_nowhere_yet_its_file_is_made(self):
        os.symlink(self.path("../elsewhere"), self.path("vault/bybit.vault"))
        self.answer(*self.check)
        self.assertEqual(CREDENTIAL.format("bybit", *self.key("bybit")),
                         self.read("../elsewhere"))

    def test_a_wallet_in_the_relays_answer_writes_no_line_of_its_own(self):
        wallet = b"0x1\ndevice_id=device:macos:evil"
        self.box.faults[:] = [Fault.answer(
            hosts.RELAY, 200, b'{"bindState":"authorized","wallet":"%s"}' % wallet)]
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
        self.assertEqual(-signal.SIGABRT, self.connector("status").returncode)


class CarelessCallers(ConnectorTest):
    def careless(self):
        signal.signal(signal.SIGCHLD, signal.SIG_IGN)
        os.umask(0)
        _, most = resource.getrlimit(resource.RLIMIT_CORE)
        resource.setrlimit(resource.RLIMIT_CORE, (most, most))

    def assert_modes(self, folder_mode, file_mode, *paths):
        for path in paths:
            expected = folder_mode if os.path.isdir(path) else file_mode
            found = stat.S_IMODE(os.stat(path).st_mode)
            self.assertEqual(oct(expected), oct(found), path)

    def test_what_was_wide_is_narrowed_and_nothing_new_is_wide(self):
        self.refuse_keychain()
        self.be(BOUND)
        self.write("vault/x~", "older")
        self.write("updates/Morvane-Connector-latest.dmg", "older")
        for path in [self.root, *map(self.path, self.files())]:
            os.chmod(path, 0o777 if os.path.isdir(path) else 0o666)
        self.answer("set-wallet", "0xabc", preexec_fn=self.careless)
        self.answer("validate", "bybit", *self.key("bybit"), preexec_fn=self.careless)
        self.answer("update-download", preexec_fn=self.careless)
        self.assert_modes(0o700, 0o600, self.root, *map(self.path, self.files()))

    def test_what_a_link_leads_to_is_not_narrowed(self):
        self.answer("status")
        self.write("../notes", "mine")
        os.chmod(self.path("../notes"), 0o644)
        os.symlink(self.path("../notes"), self.path("notes"))
        self.answer("status")
        self.assert_modes(0o700, 0o644, self.path("notes"))

    def test_tools_begin_alike_whatever_the_caller_left_them(self):
        self.store_keys("bybit")
        self.stand_in(curl="""
            printf 'umask %s, core %s %s, streams' $(umask) $(ulimit -Sc) $(ulimit -Hc)
            for stream in 0 1 2 3 4 5 6 7 8 9; do
              [ ! -e /dev/fd/$stream ] || printf ' %s' $stream
            done""")
        self.program = ["sh", "-c", '"$@" <&- 2>&-', "sh", CONNECTOR]
        answer = self.answer("balance", "bybit", preexec_fn=self.careless)
        self.assertIn('"body":umask 0077, core 0 0, streams 0 1 2}', answer)

    def test_a_shell_that_traces_itself_shows_no_secret(self):
        if not shutil.which("bash"):
            self.skipTest("there is no bash here")
        self.over_usr_bin(sh=f'#!{shutil.which("bash")}\nexec -a sh bash "$@"')
        self.program[-1:] = ["env", "SHELLOPTS=xtrace", CONNECTOR]
        self.assert_accepted("bybit")


class Keychain(ConnectorTest):
    ITEM = "<-s><morvane.connector.bybit><-a><bybit><-w>"

    def setUp(self):
        super().setUp()
        # The keychain's tool, which notes how it was called.
        self.over_usr_bin(
            security=f"""printf '<%s>' "$@" >"$HOME/call"; exec {STAND_IN} "$@" """)
        self.write(os.path.join("..", KEYCHAIN), "a keychain\n")
        self.text = CREDENTIAL.format("bybit", *self.key("bybit"))

    def test_a_saved_key_is_an_item_and_a_line_of_the_index_and_no_file(self):
        self.write("vault/bybit.vault", "api_key=older\n")
        for _ in ("first", "second"):
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

    def test_an_item_counts_though_it_holds_no_key_and_without_one_the_file_does(self):
        odd = "my odd\\name/"
        item = f"../{KEYCHAIN}.morvane.connector.my_odd_name_"
        self.write(item, "no credential")
        self.write("vault/my_odd_name_.vault", "api_key=file\n")
        self.says("status=ok\n" + CREDENTIAL.format(odd, "", "", ""),
                  "load-credentials", odd)
        os.remove(self.path(item))
        self.assertIn("exchange=\napi_key=file\n", self.answer("load-credentials", odd))
