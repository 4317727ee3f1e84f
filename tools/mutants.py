"""Seeds one fault at a time and shows that the tests catch it.

Each fault changes one place of the source: an operator, a literal, an order, a dropped line. It is
built and tested in a copy of the tree; a fault that every test passes has survived. Exit status 1
when fewer than nine in ten are caught. `mutants.py WORD...` takes only the faults whose file or
text holds a WORD.
"""

from __future__ import annotations

import concurrent.futures
import os
import queue
import shutil
import subprocess
import sys
from dataclasses import dataclass
from typing import List

WORKERS = 2


@dataclass(frozen=True)
class Fault:
    file: str
    before: str
    after: str


def faults() -> List[Fault]:
    found = []
    with open("tests/mutants.txt", encoding="utf-8") as table:
        for block in table.read().strip().split("\n\n"):
            lines = [line for line in block.splitlines() if not line.startswith("#")]
            if lines:
                file, before, after = lines
                found.append(Fault("src/" + file, before[2:], after[2:]))
    return found


def main(words: List[str]) -> int:
    chosen = [fault for fault in faults()
              if not words or any(word in fault.file + fault.before for word in words)]
    check_places(chosen)
    trees: "queue.Queue[str]" = queue.Queue()
    for number in range(min(WORKERS, len(chosen))):
        trees.put(prepare_tree(f"build/mutants/{number}"))
    survivors = []
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as pool:
        for fault, verdict in zip(chosen, pool.map(lambda fault: judge(fault, trees), chosen)):
            print(f"{verdict:<9} {fault.file}: {fault.before} -> {fault.after or '(dropped)'}",
                  flush=True)
            if verdict != "caught":
                survivors.append(fault)
    caught = len(chosen) - len(survivors)
    print(f"{caught} of {len(chosen)} faults caught")
    return 0 if caught * 10 >= len(chosen) * 9 else 1


def check_places(chosen: List[Fault]) -> None:
    for fault in chosen:
        with open(fault.file, encoding="utf-8") as source:
            count = source.read().count(fault.before)
        if count != 1:
            sys.exit(f"{fault.file} holds {count} times: {fault.before}")


def prepare_tree(folder: str) -> str:
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    for name in ("src", "cmake", "tests", "sandbox", "packaging", "CMakeLists.txt", "README.md"):
        copy = shutil.copytree if os.path.isdir(name) else shutil.copy
        if os.path.exists(name):
            copy(name, os.path.join(folder, name))
    subprocess.run(["cmake", "-S", folder, "-B", folder + "/build", "-G", "Ninja",
                    "-DMORVANE_TESTS=ON", "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-g0"],
                   check=True, stdout=subprocess.DEVNULL)
    if run(folder) != "survived":
        sys.exit("the tests fail without any fault")
    return folder


def judge(fault: Fault, trees: "queue.Queue[str]") -> str:
    folder = trees.get()
    path = os.path.join(folder, fault.file)
    with open(path, encoding="utf-8") as source:
        text = source.read()
    try:
        with open(path, "w", encoding="utf-8") as source:
            source.write(text.replace(fault.before, fault.after))
        return run(folder)
    finally:
        with open(path, "w", encoding="utf-8") as source:
            source.write(text)
        trees.put(folder)


def run(folder: str) -> str:
    """`caught` by a test, `survived`, or `unbuilt`: no test was asked, so it counts for none."""
    build = folder + "/build"
    if subprocess.run(["cmake", "--build", build, "-j", "1"], capture_output=True).returncode:
        return "unbuilt"
    # The unit tests are the quickest, so they judge first; what lies around the program never does.
    tests = ["ctest", "--test-dir", build, "--stop-on-failure", "-E", "packaging", "--timeout", "120"]
    return "caught" if subprocess.run(tests, capture_output=True).returncode else "survived"


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
