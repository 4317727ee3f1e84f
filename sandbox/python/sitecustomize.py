"""Read by each python3 inside, before its program: it trusts the sandbox's authority alone.

SSL_CERT_FILE would tell most of them. One that is linked with LibreSSL does not read it.
"""

import os
import ssl


def _trust_the_sandbox(context: ssl.SSLContext) -> None:
    context.load_verify_locations(os.environ["SANDBOX_AUTHORITY"])


ssl.SSLContext.set_default_verify_paths = _trust_the_sandbox
