"""The download host: the update manifest and the disk images."""

import hashlib
import json

from . import hosts
from .http_message import Request, Response

MANIFEST_PATH = "/current/manifest.json"
IMAGE_PATH = "/Morvane-Connector-0.2.0.dmg"
IMAGE_SIZE = 192 * 1024


def default_manifest() -> bytes:
    return json.dumps({"version": "0.2.0", "dmgUrl": f"https://{hosts.DOWNLOAD}{IMAGE_PATH}",
                       "channel": "stable"}, separators=(",", ":")).encode()


def image_of_size(size: int) -> bytes:
    """Bytes of every value, the same every time."""
    blocks = (hashlib.sha256(b"%d" % number).digest() for number in range(size // 32 + 1))
    return b"".join(blocks)[:size]


class Downloads:
    """All of it may be changed: the manifest, images by path, new locations by path."""

    def __init__(self) -> None:
        self.manifest = default_manifest()
        self.images: dict[str, bytes] = {IMAGE_PATH: image_of_size(IMAGE_SIZE)}
        self.redirects: dict[str, str] = {}

    def handle(self, request: Request) -> Response:
        if request.path in self.redirects:
            return Response(302, headers=[("Location", self.redirects[request.path])])
        if request.path == MANIFEST_PATH:
            return Response(200, self.manifest)
        if request.path in self.images:
            return Response(200, self.images[request.path], "application/x-apple-diskimage")
        return Response(404, b"not found\n", "text/plain")
