#!/usr/bin/env python3
"""squid's helper for NTLM: ntlm_helper.py PASSWORDS, a file with a line user:password for each user.

squid's own for tests believes everybody, and its challenge is one that Samba's client does not answer.
"""

from __future__ import annotations

import base64
import sys
from pathlib import Path

from harness.ntlm import Examiner


def reply(examiner: Examiner, request: str) -> str:
    """Answers a line of squid's: YR asks for a challenge, KK has what the client made of it."""
    kind, _, text = request.partition(" ")
    if kind == "YR":
        return f"TT {base64.b64encode(examiner.ask()).decode()}"
    if kind != "KK":
        return "BH message=unknown-request"
    try:
        user = examiner.known_user(base64.b64decode(text))
    except ValueError:
        return "BH message=broken-answer"
    return f"OK user={user}" if user else "ERR message=wrong-user-or-password"


def main() -> int:
    users = (line.partition(":") for line in Path(sys.argv[1]).read_text(encoding="utf-8").splitlines())
    examiner = Examiner({user: password for user, _, password in users})
    for line in sys.stdin:
        print(reply(examiner, line.strip()), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
