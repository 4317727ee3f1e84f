"""Read by each python3 inside, before its program: its TLS trusts the sandbox's authority alone.

SSL_CERT_FILE would tell most of them. One that is linked with LibreSSL does not read it.
"""

import os
import sys


class _SslFinder:
    """Finds ssl as it is; loading it here would make each start of python3 twice as long."""

    @staticmethod
    def find_spec(name, path=None, target=None):
        if name != "ssl":
            return None
        sys.meta_path.remove(_SslFinder)
        from importlib.util import find_spec
        spec = find_spec(name)
        execute = spec.loader.exec_module

        def execute_and_trust(module):
            execute(module)
            module.SSLContext.set_default_verify_paths = _trust_the_sandbox

        spec.loader.exec_module = execute_and_trust
        return spec


def _trust_the_sandbox(context):
    context.load_verify_locations(os.environ["SANDBOX_AUTHORITY"])


sys.meta_path.insert(0, _SslFinder)
