"""Python's own ssl, for each python3 inside; but it trusts the sandbox's authority alone.

SSL_CERT_FILE would tell most of them. One that is linked with LibreSSL does not read it.
"""

import importlib
import os
import sys


def _trust_the_sandbox(context):
    context.load_verify_locations(os.environ["SANDBOX_AUTHORITY"])


# PYTHONPATH leads here first. From here on it leads to Python's own, which takes this one's place.
sys.path.remove(os.path.dirname(__file__))
del sys.modules["ssl"]
importlib.import_module("ssl").SSLContext.set_default_verify_paths = _trust_the_sandbox
