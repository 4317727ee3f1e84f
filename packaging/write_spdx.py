"""write_spdx.py VERSION DOWNLOAD_URL FILE...: prints an SPDX 2.3 list of what a release holds.

The program contains nothing but its own code and, on Linux, where it is static, the C and C++
libraries of the machine that built it: this one. On a Mac those are the system's.
"""

import hashlib
import json
import os
import platform
import subprocess
import sys
from datetime import datetime, timezone
from typing import Any, Dict, List

UNKNOWN = "NOASSERTION"


def output_of(*command: str) -> str:
    return subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode().strip()


def package(ref: str, name: str, version: str, **more: Any) -> Dict[str, Any]:
    return {"SPDXID": ref, "name": name, "versionInfo": version, "downloadLocation": UNKNOWN,
            "filesAnalyzed": False, "licenseConcluded": UNKNOWN, "licenseDeclared": UNKNOWN,
            "copyrightText": UNKNOWN, **more}


def released_file(number: int, path: str, version: str, url: str) -> Dict[str, Any]:
    with open(path, "rb") as file:
        digest = hashlib.sha256(file.read()).hexdigest()
    name = os.path.basename(path)
    folder = "images" if name.endswith(".dmg") else "source"
    location = f"{url}/{folder}/{name}" if is_served(name, version) else UNKNOWN
    return package(f"SPDXRef-File-{number}", "morvane-connector", version, packageFileName=name,
                   downloadLocation=location,
                   checksums=[{"algorithm": "SHA256", "checksumValue": digest}])


def is_served(name: str, version: str) -> bool:
    return name.endswith(".dmg") or name == f"morvane-connector-{version}.tar.gz"


def libraries() -> List[Dict[str, Any]]:
    compiler = output_of("c++", "-dumpfullversion")
    gnu = "Organization: Free Software Foundation"
    return [package("SPDXRef-libstdcxx", "libstdc++", compiler, supplier=gnu),
            package("SPDXRef-libgcc", "libgcc", compiler, supplier=gnu),
            package("SPDXRef-libc", "glibc", platform.libc_ver()[1], supplier=gnu)]


def relation(element: str, kind: str, related: str) -> Dict[str, str]:
    return {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": related}


def main(version: str, url: str, *paths: str) -> None:
    files = [released_file(number, path, version, url) for number, path in enumerate(paths)]
    packages = list(files)
    relations = [relation("SPDXRef-DOCUMENT", "DESCRIBES", file["SPDXID"]) for file in files]
    static = [file for file in files if "-linux-" in file["packageFileName"]]
    if static:
        packages += libraries()
        relations += [relation(file["SPDXID"], "CONTAINS", library["SPDXID"])
                      for file in static for library in packages[len(files):]]
    committed = int(output_of("git", "-C", os.path.dirname(os.path.abspath(__file__)),
                              "log", "-1", "--format=%ct"))
    print(json.dumps({
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"morvane-connector-{version}",
        "documentNamespace": f"{url}/spdx/morvane-connector-{version}",
        "creationInfo": {
            "created": datetime.fromtimestamp(committed, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "creators": ["Tool: write_spdx.py"],
        },
        "packages": packages,
        "relationships": relations,
    }, indent=2))


if __name__ == "__main__":
    main(*sys.argv[1:])
