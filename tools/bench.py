"""Figures beside their floors, taken in one run: ratios, not times, are what counts."""

from __future__ import annotations

import os
import shlex
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from typing import Callable, Dict, List, Sequence

sys.path.insert(0, os.path.dirname(os.path.dirname(os.path.abspath(__file__))))

from sandbox import Fault, Sandbox, hosts  # noqa: E402

BINARY = os.path.abspath("build/demo/morvane-connector")
ROUNDS = 60

# What each command runs, as an sh script of the same tools with the same arguments and nothing
# else. $1 is the time in milliseconds, $2 the time in seconds. `line` runs one command line: in
# the script's own shell for the bare floor, in a shell of its own for the floor of a program that
# starts each line as popen does.
BARE = 'line() { program=$1; shift; eval "$program"; }\n'
SHELL_PER_LINE = 'line() { program=$1; shift; sh -c "$program" sh "$@"; }\n'

KEYCHAIN = "line '/usr/bin/security find-generic-password -s s -a a -w 2>&1' >/dev/null\n"

BYBIT = """
ms=$1
sign() { line 'printf %s "$1" | openssl dgst -sha256 -hmac demo-bybit-secret -binary |
  xxd -p -c 256 2>&1' "$ms"demo-bybit-key5000"$1"; }
ask() { line 'curl -sS --max-time 20 "$@" 2>&1' -H 'X-BAPI-API-KEY: demo-bybit-key' \\
  -H "X-BAPI-TIMESTAMP: $ms" -H 'X-BAPI-RECV-WINDOW: 5000' -H "X-BAPI-SIGN: $sig" "$@"; }
get() { sig=$(sign "$2"); ask -X GET "https://api.bybit.com$1?$2"; }
post() { sig=$(sign "$2")
  ask -X POST -H 'Content-Type: application/json' --data "$2" "https://api.bybit.com$1"; }
"""

FLOORS: Dict[str, str] = {
    "balance bybit": KEYCHAIN + BYBIT + "get /v5/account/wallet-balance accountType=UNIFIED\n",
    "balance gate": KEYCHAIN + """
hash=$(line "printf '' | openssl dgst -sha512 -binary | xxd -p -c 512 2>&1")
sig=$(line 'printf "GET\\n/api/v4/futures/usdt/accounts\\n\\n%s\\n%s" "$1" "$2" |
  openssl dgst -sha512 -hmac demo-gate-secret -binary | xxd -p -c 512 2>&1' "$hash" "$2")
line 'curl -sS --max-time 20 -X GET -H "KEY: demo-gate-key" -H "Timestamp: $1" -H "SIGN: $2" \\
  https://api.gateio.ws/api/v4/futures/usdt/accounts 2>&1' "$2" "$sig"
""",
    "place-open bybit BTC_USDT buy 0.001 40000 5": KEYCHAIN + BYBIT + """
post /v5/position/set-leverage \\
  '{"category":"linear","symbol":"BTCUSDT","buyLeverage":"5","sellLeverage":"5"}'
post /v5/order/create '{"category":"linear","symbol":"BTCUSDT","side":"Buy","orderType":"Limit","""
    """"qty":"0.001","price":"40000","timeInForce":"GTC"}'
""",
    "close-report bybit BTC_USDT": KEYCHAIN + BYBIT + """
get /v5/order/realtime 'category=linear&symbol=BTCUSDT'
get /v5/position/closed-pnl 'category=linear&symbol=BTCUSDT&limit=20'
""",
    "validate okx demo-okx-key demo-okx-secret demo-passphrase": """
line 'python3 -c "$OKX_PROBE" 2>&1'
line '/usr/bin/security add-generic-password -U -s s -a a -w w 2>&1'
""",
}


def main() -> int:
    with Sandbox() as box:
        store_keys(box)
        print("Start-up")
        compare_startup(box)
        print("\nA command beside a bare sh script of the same tools (its floor)")
        compare_with_floors(box)
        print("\nProcesses started per command (this program not counted)")
        count_processes(box)
        print("\nLarge answers: balance bybit")
        measure_large_answers(box)
    print("\nSize of the binary")
    measure_sizes()
    return 0


def store_keys(box: Sandbox) -> None:
    for exchange in ("bybit", "gate"):
        key = [f"demo-{exchange}-key", f"demo-{exchange}-secret"]
        box.run([BINARY, "validate", exchange, *key], check=True)


def compare_startup(box: Sandbox) -> None:
    rivals = {"status": [BINARY, "status"], "/bin/true": ["/bin/true"],
              "curl --version": ["curl", "--version"]}
    if not os.path.exists("/bin/true"):
        rivals["/bin/true"] = ["/usr/bin/true"]
    medians = race({name: runner(box, argv) for name, argv in rivals.items()}, ROUNDS * 5)
    for name in ("/bin/true", "curl --version"):
        report(f"status / {name}", medians["status"] / medians[name], medians["status"])


def compare_with_floors(box: Sandbox) -> None:
    env = dict(box.env, OKX_PROBE=okx_probe(box))
    for command, script in FLOORS.items():
        check_floor(env, script)
        rounds = ROUNDS // 4 if command.startswith("validate") else ROUNDS
        medians = race({"ours": runner(box, [BINARY, *command.split()]),
                        "bare": floor_runner(env, BARE + script),
                        "shells": floor_runner(env, SHELL_PER_LINE + script)}, rounds)
        name = command.split(" demo")[0]
        report(name, medians["ours"] / medians["bare"], medians["ours"])
        report("  with a shell per line, as popen starts them",
               medians["ours"] / medians["shells"], medians["ours"])


def check_floor(env: Dict[str, str], script: str) -> None:
    """A floor that the exchange refuses would be a floor of something else."""
    for line in (BARE, SHELL_PER_LINE):
        now = time.time()
        answer = subprocess.run(["sh", "-c", line + script, "sh", str(int(now * 1000)),
                                 str(int(now))], env=env, capture_output=True, text=True).stdout
        if not any(mark in answer for mark in ('"retCode":0', '"available"', '\\"code\\":\\"0')):
            sys.exit(f"bench: the floor was refused: {answer[:300]}")


def okx_probe(box: Sandbox) -> str:
    """The probe that the connector hands to python3, taken by another in its place."""
    with tempfile.TemporaryDirectory() as folder:
        taken = os.path.join(folder, "probe.py")
        with open(os.path.join(folder, "python3"), "w", encoding="utf-8") as stand_in:
            stand_in.write(f'#!/bin/sh\nprintf %s "$2" >{shlex.quote(taken)}\n')
        os.chmod(stand_in.name, 0o755)
        env = dict(box.env, PATH=folder + os.pathsep + box.env["PATH"])
        command = "validate okx demo-okx-key demo-okx-secret demo-passphrase"
        subprocess.run([BINARY, *command.split()], env=env, stdout=subprocess.DEVNULL, check=False)
        with open(taken, encoding="utf-8") as probe:
            return probe.read()


def runner(box: Sandbox, argv: Sequence[str]) -> Callable[[], None]:
    return lambda: run_quietly(argv, box.env)


def floor_runner(env: Dict[str, str], script: str) -> Callable[[], None]:
    def run() -> None:
        now = time.time()
        run_quietly(["sh", "-c", script, "sh", str(int(now * 1000)), str(int(now))], env)
    return run


def run_quietly(argv: Sequence[str], env: Dict[str, str]) -> None:
    subprocess.run(argv, env=env, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=False)


def race(runners: Dict[str, Callable[[], None]], rounds: int) -> Dict[str, float]:
    """The median seconds of each, their runs interleaved so that noise falls on all alike."""
    times: Dict[str, List[float]] = {name: [] for name in runners}
    for _ in range(rounds):
        for name, run in runners.items():
            start = time.perf_counter()
            run()
            times[name].append(time.perf_counter() - start)
    return {name: statistics.median(values) for name, values in times.items()}


def report(what: str, ratio: float, seconds: float) -> None:
    print(f"  {what:<46} {ratio:6.2f}x   ({seconds * 1000:.1f} ms here)")


def count_processes(box: Sandbox) -> None:
    if not shutil.which("strace"):
        print("  (needs strace)")
        return
    commands = ["status", "balance bybit", "balance gate", "place-close bybit BTC_USDT buy 1 1"]
    for command in commands:
        with tempfile.NamedTemporaryFile("r") as trace:
            subprocess.run(["strace", "-f", "-qq", "-e", "trace=execve", "-o", trace.name, BINARY,
                            *command.split()], env=box.env, stdout=subprocess.DEVNULL, check=True)
            tools = [line for line in trace.read().splitlines() if line.endswith(" = 0")]
        print(f"  {command:<46} {len(tools) - 1:3}")


def measure_large_answers(box: Sandbox) -> None:
    command = [BINARY, "balance", "bybit"]
    box.faults[:] = [answer_of_size(1)]
    floor = peak_memory(box, command)
    for size in (1 << 10, 1 << 20, 16 << 20, 64 << 20):
        box.faults[:] = [answer_of_size(size)]
        medians = race({"ours": runner(box, command),
                        "curl": runner(box, ["curl", "-sS", "https://api.bybit.com/"])}, 5)
        # The measuring process weighs some megabytes itself and hides what is smaller.
        peak = f"{peak_memory(box, command) / size:.2f}x the answer" if size > floor else "-"
        ratio = medians["ours"] / medians["curl"]
        print(f"  {size >> 10:6} KiB   time {ratio:5.2f}x of curl alone "
              f"({medians['ours'] * 1000:.0f} ms here)   peak {peak}")
    box.faults.clear()


def answer_of_size(size: int) -> Fault:
    return Fault.answer(hosts.BYBIT, body=b'{"filling":"%s"}' % (b"x" * size))


def peak_memory(box: Sandbox, command: Sequence[str]) -> int:
    """The highest resident size in bytes of the command or a child of it.

    Taken by a small process: a child counts the size of the process that it was forked from.
    """
    program = ("import resource, subprocess, sys\n"
               "subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL)\n"
               "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)\n")
    peak = box.run([sys.executable, "-S", "-c", program, *command]).stdout
    return int(peak) * (1 if sys.platform == "darwin" else 1024)


def measure_sizes() -> None:
    print(f"  as shipped        {os.path.getsize(BINARY) >> 10:5} KiB")
    with tempfile.TemporaryDirectory() as build:
        subprocess.run(["cmake", "-S", ".", "-B", build, "-G", "Ninja",
                        "-DCMAKE_BUILD_TYPE=MinSizeRel"], stdout=subprocess.DEVNULL, check=True)
        subprocess.run(["cmake", "--build", build], stdout=subprocess.DEVNULL, check=True)
        binary = os.path.join(build, "morvane-connector")
        subprocess.run(["strip", binary], check=True)
        print(f"  linked to the system's libraries, stripped {os.path.getsize(binary) >> 10:5} KiB")


if __name__ == "__main__":
    sys.exit(main())
