"""examples/desk.py: what it sends, what it asks before, and what it keeps from being seen."""

import contextlib
import os
import pty
import subprocess
import sys

from sandbox import Fault, hosts
from support import CONNECTOR, EXCHANGES, ConnectorTest

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../../examples/desk.py")
ORDERS = "/api/v5/trade/order"


class Desk(ConnectorTest):
    def setUp(self):
        super().setUp()
        self.stand_in(**{"morvane-connector": f'exec {CONNECTOR} "$@"'})

    def desk(self, expected_status, line, typed=b""):
        done = self.box.run([sys.executable, "-B", SCRIPT, *line.split()], env=self.env,
                            input=typed)
        self.assertEqual((expected_status, ""), (done.returncode, done.stderr), done.stdout)
        return done.stdout

    def orders_sent(self):
        return [one for one in self.box.requests if one.method == "POST" and one.target == ORDERS]

    def test_every_exchange_with_a_key_is_in_the_table(self):
        self.assertIn("No key is kept here", self.desk(0, "show"))
        self.store_keys(*EXCHANGES)
        rows = [line.split()[0] for line in self.desk(0, "show").splitlines()[1:]]
        self.assertEqual(list(EXCHANGES), rows)

    def test_an_order_above_most_is_sent_only_after_a_yes(self):
        self.store_keys("okx")
        short = "open okx BTC_USDT short 10 50000 5 --contract-size 0.01"  # 5000 USDT
        self.assertIn("= 5000 USDT", self.desk(1, short + " --most 4999", b"no\n"))
        self.assertIn("nobody is there", self.desk(1, short))
        self.assertEqual([], self.orders_sent())
        self.desk(0, short, b"yes\n")
        self.desk(0, short + " --most 5000")
        self.assertEqual(2, len(self.orders_sent()))

    def test_a_number_that_is_none_is_asked_for_again_or_refused(self):
        self.store_keys("okx")
        for wrong in ("nan", "1e3", "-3", "0", "1,5"):
            self.assertIn(f"'{wrong}' will not do", self.desk(
                1, f"open okx BTC_USDT long {wrong} 50000 5 --contract-size 0.01"))
        self.assertEqual([], self.orders_sent())
        typed = b"okx\nBTC_USDT\nbuy\nlong\nx\n10\n50000\n5\n0.01\nyes\n"
        self.assertIn("Taken: order", self.desk(0, "open", typed))

    def test_a_refused_order_and_one_without_an_answer_do_not_exit_with_0(self):
        self.store_keys("okx")
        self.assertIn("refused: 51008", self.desk(
            1, "open okx BTC_USDT short 999999 50000 5 --contract-size 0.01 --most 9999999999"))
        self.box.faults.append(Fault.lost_answer(hosts.OKX_GLOBAL, path=ORDERS, times=1))
        self.assertIn("may be there", self.desk(
            3, "open okx BTC_USDT short 1 50000 5 --contract-size 0.01 --most 500"))

    def test_a_key_is_read_without_being_shown(self):
        master, terminal = pty.openpty()
        with subprocess.Popen([sys.executable, "-B", SCRIPT, "key", "okx"], env=self.env,
                              stdin=terminal, stdout=terminal, stderr=terminal,
                              start_new_session=True) as run:
            os.close(terminal)
            seen = b""
            for part in self.key("okx"):
                while not seen.endswith(b"not shown: "):
                    seen += os.read(master, 1)
                os.write(master, part.encode() + b"\n")
                seen += os.read(master, 1)  # the end of the line: the part was taken
            with contextlib.suppress(OSError):  # the end, on Linux; on a Mac it is empty
                for more in iter(lambda: os.read(master, 4096), b""):
                    seen += more
        os.close(master)
        self.assertEqual(0, run.returncode, seen)
        self.assertIn(b"status=valid_trade_ready", seen)
        for part in self.key("okx"):
            self.assertNotIn(part.encode(), seen)
