"""check_app.py APP VERSION: refuses an app that is not what a release ships.

Looks at the files and their modes, Info.plist, and the program itself: one slice for each kind of
Mac, each an executable that needs nothing but system libraries and runs on the macOS named in
Info.plist.
"""

import os
import plistlib
import stat
import struct
import sys
from typing import Iterator, List, Set, Tuple

PROGRAM = "Contents/MacOS/morvane-connector"
FILES = {
    "Contents/Info.plist",
    PROGRAM,
    "Contents/Resources/completions/_morvane-connector",
    "Contents/Resources/completions/morvane-connector.bash",
    "Contents/Resources/completions/morvane-connector.fish",
    "Contents/Resources/man/man1/morvane-connector.1",
}
SIGNATURE = {"Contents/_CodeSignature/CodeResources"}

FAT, MACH_O, EXECUTABLE, MACOS = 0xCAFEBABE, 0xFEEDFACF, 2, 1
PROCESSORS = {0x01000007: "x86_64", 0x0100000C: "arm64"}
LOAD_DYLIB, LOAD_WEAK_DYLIB, REEXPORT_DYLIB = 0xC, 0x80000018, 0x8000001F
VERSION_MIN_MACOSX, BUILD_VERSION = 0x24, 0x32


def require(holds: bool, complaint: str) -> None:
    if not holds:
        sys.exit(f"check_app: {complaint}")


def files_of(app: str) -> Set[str]:
    return {os.path.relpath(os.path.join(folder, name), app)
            for folder, _, names in os.walk(app) for name in names}


def check_files(app: str) -> None:
    odd = (files_of(app) - SIGNATURE) ^ FILES
    require(not odd, f"too much or missing: {', '.join(sorted(odd))}")
    for name in FILES:
        mode = stat.S_IMODE(os.lstat(os.path.join(app, name)).st_mode)
        require(mode == (0o755 if name == PROGRAM else 0o644), f"{name} has mode {mode:o}")


def check_plist(app: str, version: str) -> str:
    """Returns the oldest macOS that it names."""
    with open(os.path.join(app, "Contents/Info.plist"), "rb") as file:
        plist = plistlib.load(file)
    oldest = plist["LSMinimumSystemVersion"]
    require(plist == {
        "CFBundleDevelopmentRegion": "en",
        "CFBundleExecutable": os.path.basename(PROGRAM),
        "CFBundleIdentifier": "morvane.connector",
        "CFBundleInfoDictionaryVersion": "6.0",
        "CFBundleName": os.path.basename(app)[:-len(".app")],
        "CFBundlePackageType": "APPL",
        "CFBundleShortVersionString": version,
        "CFBundleVersion": version,
        "LSBackgroundOnly": True,
        "LSMinimumSystemVersion": oldest,
    }, f"Info.plist is not that of {version}: {plist}")
    return oldest


def slices(program: bytes) -> List[bytes]:
    magic, count = struct.unpack_from(">II", program)
    require(magic == FAT, "the program is not for several kinds of Mac")
    found = []
    for number in range(count):
        offset, size = struct.unpack_from(">8xII", program, 8 + 20 * number)
        found.append(program[offset:offset + size])
    return found


def load_commands(image: bytes, count: int) -> Iterator[Tuple[int, bytes]]:
    at = 32
    for _ in range(count):
        command, size = struct.unpack_from("<II", image, at)
        yield command, image[at:at + size]
        at += size


def check_slice(image: bytes, oldest: str) -> str:
    """Returns the name of its processor."""
    magic, processor, _, kind, count = struct.unpack_from("<IIIII", image)
    require((magic, kind) == (MACH_O, EXECUTABLE), "a slice is not a 64-bit executable")
    name = PROCESSORS.get(processor, hex(processor))
    runs_on = ""
    for command, text in load_commands(image, count):
        if command in (LOAD_DYLIB, LOAD_WEAK_DYLIB, REEXPORT_DYLIB):
            start, = struct.unpack_from("<I", text, 8)
            library = text[start:].rstrip(b"\0").decode()
            require(library.startswith(("/usr/lib/", "/System/Library/")),
                    f"{name} needs {library}")
            print(f"{name}: needs {library}")
        elif command in (BUILD_VERSION, VERSION_MIN_MACOSX):
            if command == BUILD_VERSION:
                platform, number = struct.unpack_from("<II", text, 8)
                require(platform == MACOS, f"{name} is for platform {platform}")
            else:
                number, = struct.unpack_from("<I", text, 8)
            runs_on = f"{number >> 16}.{number >> 8 & 0xFF}"
    require(runs_on == oldest, f"{name} runs on macOS {runs_on}, Info.plist says {oldest}")
    return name


def main(app: str, version: str) -> None:
    app = app.rstrip("/")
    check_files(app)
    oldest = check_plist(app, version)
    with open(os.path.join(app, PROGRAM), "rb") as file:
        names = sorted(check_slice(image, oldest) for image in slices(file.read()))
    require(names == sorted(PROCESSORS.values()), f"the program is for {', '.join(names)}")
    print(f"{os.path.basename(app)} {version}: {' and '.join(names)}, macOS {oldest} or newer")


if __name__ == "__main__":
    main(*sys.argv[1:])
