"""Runs the connector, and tells what came from what did not."""

import os
import shutil
import signal
import subprocess
import sys
from typing import Any

import answers

PATIENCE = 60  # seconds for one run; place-open can need 45
if not shutil.which("morvane-connector"):
    sys.exit("morvane-connector is not on the PATH.")


class Unanswered(Exception):
    """No answer came: what was asked for may have been done."""


class Declined(answers.Refused):
    """The connector itself said no, with its reason; nothing was sent."""


def ask(*arguments: str) -> Any:
    """The exchange's own document; of place-open and close-report all of them."""
    with subprocess.Popen(["morvane-connector", *arguments], stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, encoding="utf-8", errors="replace",
                          start_new_session=True) as run:
        try:
            output, _ = run.communicate(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            os.killpg(run.pid, signal.SIGKILL)  # with the tools that it started
            raise Unanswered from None
        except BaseException:
            os.killpg(run.pid, signal.SIGKILL)
            raise
    try:
        answer = answers.read(output)
    except ValueError:
        raise Unanswered from None
    if answer["status"] == "ok":
        return answer["body"]
    if answer["reason"] == "http_failed":
        raise Unanswered
    raise Declined(answer["reason"])
