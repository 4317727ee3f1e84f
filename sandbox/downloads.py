"""The download host: the update manifest and the disk images."""

from __future__ import annotations

import hashlib
import json
from typing import Dict

from . import hosts
from .http_message import Request, Response

MANIFEST_PATH = "/current/manifest.json"
IMAGE_PATH = "/Morvane-Connector-0.2.0.dmg"
IMAGE_SIZE = 192 * 1024


def default_manifest() -> bytes:
    return json.dumps({"version": "0.2.0", "dmgUrl": f"https://{hosts.DOWNLOAD}{IMAGE_PATH}",
                       "channel": "stable"}, separators=(",", ":")).encode()


def image_of_size(size: int) -> bytes:
    """Bytes of every value, the same every time, that end as a disk image does."""
    trailer = b"koly" + bytes(508)
    blocks = (hashlib.sha256(b"%d" % number).digest() for number in range(size // 32 + 1))
    return b"".join(blocks)[:max(0, size - len(trailer))] + trailer


class Downloads:
    """All of it may be changed: the manifest, images by path, redirects by path."""

    def __init__(self) -> None:
        self.manifest = default_manifest()
        self.images: Dict[str, bytes] = {IMAGE_PATH: image_of_size(IMAGE_SIZE)}
        self.redirects: Dict[str, str] = {}
        """The location that each path has moved to."""

    def handle(self, request: Request) -> Response:
        if request.method != "GET":
            return Response(405, b"method not allowed\n", "text/plain")
        if request.path in self.redirects:
            return Response(302, headers=[("Location", self.redirects[request.path])])
        if request.path == MANIFEST_PATH:
            return Response(200, self.manifest)
        if request.path in self.images:
            return Response(200, self.images[request.path], "application/x-apple-diskimage")
        return Response(404, b"not found\n", "text/plain")
