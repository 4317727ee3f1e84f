"""Seeds random faults, one at a time, and shows that the tests catch them.

`mutants.py [COUNT] [SEED]` draws COUNT changes (40) of the program's source: another operator or
literal, a condition negated, a statement dropped. Each is built and tested in a copy of the tree;
what does not build is drawn again. Those that every test passes are named. The same seed draws the
same of the same tree. Exit status 1 when fewer than nine in ten are caught.
"""

from __future__ import annotations

import concurrent.futures
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
from collections import namedtuple
from typing import Iterator, List

# What may stand in the place of each of these.
OPERATORS = [("==", "!="), ("!=", "=="), ("&&", "||"), ("||", "&&"), (" < ", " <= "),
             (" > ", " >= "), (" + 1", " - 1"), ("++", "--"), (" += ", " = "), (" true", " false"),
             (" false", " true"), (" and ", " or "), (" or ", " and "), (" ? ", " && false ? "),
             ("front()", "back()"), ("back()", "front()")]
NUMBER = re.compile(r"(?<![\w.])\d+(?![\w.])")
STRING = re.compile(r'R"\(.+?\)"|"(?:[^"\\]|\\.)+"|\'(?:[^\'\\]|\\.)+\'')
CONDITION = re.compile(r"\b(?:if|while) \(?(.+?)\)?(?: \{|:)$")
STATEMENT = re.compile(r"^\s+(?:(?:break|continue|return)\b.*|[\w.:>-]+(?:\(.*\)| \+?= .*));?$")

Fault = namedtuple("Fault", "path line before after")


def changes(line: str, python: bool) -> List[str]:
    """What a line of the source may become."""
    found = []
    for before, after in OPERATORS:
        for match in re.finditer(re.escape(before) + r"(?!_)", line):
            found.append(line[:match.start()] + after + line[match.end():])
    for match in NUMBER.finditer(line):
        other = int(match[0]) // 2 or 1 - int(match[0])
        found.append(f"{line[:match.start()]}{other}{line[match.end():]}")
    for match in STRING.finditer(line):
        middle = (match.start() + match.end()) // 2
        found.append(line[:middle] + ("z" if line[middle] != "z" else "y") + line[middle + 1:])
    if condition := CONDITION.search(line):
        negated = ("not (" if python else "!(") + condition[1] + ")"
        found.append(line[:condition.start(1)] + negated + line[condition.end(1):])
    if STATEMENT.match(line) and python != line.endswith(";"):
        found.append(re.match(r"\s*", line)[0] + ("pass" if python else ";"))
    return found


def draws(rng: random.Random) -> Iterator[Fault]:
    """Faults without end: a line, each as likely as any other, and one of its changes."""
    lines = []
    for path in sorted(pathlib.Path("src").rglob("*")):
        if path.suffix in (".cpp", ".hpp", ".py"):
            for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
                possible = changes(line.split("  // ")[0], path.suffix == ".py")
                if possible and not line.strip().startswith(("#", "//", '"""')):
                    lines.append([Fault(str(path), number, line, after) for after in possible])
    while True:
        yield rng.choice(rng.choice(lines))


def prepare_tree(folder: pathlib.Path) -> pathlib.Path:
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(".", folder, ignore=shutil.ignore_patterns("build", ".git"))
    subprocess.run(["cmake", "-S", folder, "-B", folder / "build", "-G", "Ninja",
                    "-DMORVANE_TESTS=ON", "-DMORVANE_WARNINGS_ARE_ERRORS=OFF",
                    "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS=-g0 -Werror=return-type"],
                   check=True, stdout=subprocess.DEVNULL)
    return folder


def verdict(folder: pathlib.Path) -> str:
    """`caught` by a test, `survived`, or `unbuilt`, which counts for nothing."""
    build = ["cmake", "--build", folder / "build", "-j", "1"]
    if subprocess.run(build, capture_output=True).returncode:
        return "unbuilt"
    tests = ["ctest", "--test-dir", folder / "build", "--stop-on-failure", "--timeout", "120"]
    return "caught" if subprocess.run(tests, capture_output=True).returncode else "survived"


def judge(fault: Fault, trees: "queue.Queue[pathlib.Path]") -> str:
    folder = trees.get()
    source = folder / fault.path
    lines = source.read_text(encoding="utf-8").split("\n")
    lines[fault.line - 1] = fault.after
    source.write_text("\n".join(lines), encoding="utf-8")
    found = verdict(folder)
    shutil.copy(fault.path, source)
    trees.put(folder)
    return found


def main(count: int = 40, seed: int = random.randrange(1_000_000)) -> int:
    print(f"{count} faults of seed {seed}", flush=True)
    drawn, trees = draws(random.Random(seed)), queue.Queue()
    for number in range(2):
        trees.put(prepare_tree(pathlib.Path(f"build/mutants/{number}")))
    first = trees.queue[0]
    if verdict(first) != "survived":
        sys.exit(f"Without any fault it fails: see {first}/build/Testing/Temporary/LastTest.log")
    judged = []
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        while len(judged) < count:
            batch = [next(drawn) for _ in range(count - len(judged))]
            for fault, found in zip(batch, pool.map(lambda one: judge(one, trees), batch)):
                judged += [found] if found != "unbuilt" else []
                if found == "survived":
                    print(f"{fault.path}:{fault.line}: {fault.before.strip()}\n  survived as "
                          f"{fault.after.strip()}", flush=True)
    print(f"{judged.count('caught')} of {count} faults of seed {seed} caught")
    return 0 if judged.count("caught") * 10 >= count * 9 else 1


if __name__ == "__main__":
    sys.exit(main(*map(int, sys.argv[1:3])))
