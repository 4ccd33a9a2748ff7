#!/usr/bin/env python3
"""Tests the servers' half of NTLM, on which the scenarios with that scheme stand, against published examples."""

from __future__ import annotations

import base64
import struct
import subprocess
import sys
import tempfile
from pathlib import Path

from harness.ntlm import SIGNATURE, TYPE_1, TYPE_2, TYPE_3, Examiner, md4, message_type, proof
from harness.results import report
from harness.servers import NTLM_HELPER

# RFC 1320, appendix A.5.
DIGESTS = {
    "": "31d6cfe0d16ae931b73c59d7e0c089c0",
    "a": "bde52cb31de33e46245e05fbdbd6fb24",
    "abc": "a448017aaf21d8525fc10ae87aa6729d",
    "message digest": "d9130a8164549fe818874806e1c7014b",
    "abcdefghijklmnopqrstuvwxyz": "d79e1c308aa5bbcdeea8ed63df412da9",
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789": "043f8582f241db351ce627e153e7f0e4",
    "1234567890" * 8: "e33b4ddc9c38f2199c3e7b164fcc0536",
}

# [MS-NLMP], 4.2.1 and 4.2.4: the user "User" of "Domain" with the password "Password".
SERVER_CHALLENGE = bytes.fromhex("0123456789abcdef")
CLIENT_DATA = bytes.fromhex("0101000000000000" "0000000000000000" "aaaaaaaaaaaaaaaa" "00000000"
                            "02000c0044006f006d00610069006e00" "01000c00530065007200760065007200" "00000000" "00000000")
PROOF = bytes.fromhex("68cd0ab851e51c96aabc927bebef6a1c")

PASSWORDS = {"User": "Password", "Other": "Password", "colon": "a:b"}


def answer(challenge: bytes, user: str = "User", password: str = "Password", *, signed: str | None = None,
           domain: str = "Domain", response: bytes | None = None) -> bytes:
    """A third message of a client; `signed` is the user for whom the proof holds, if that is another one."""
    if response is None:
        response = proof(challenge, CLIENT_DATA, signed or user, domain, password) + CLIENT_DATA
    fields = (b"", response, domain.encode("utf-16-le"), user.encode("utf-16-le"), b"", b"")
    head, body = SIGNATURE + struct.pack("<I", TYPE_3), b""
    for field in fields:
        head += struct.pack("<HHI", len(field), len(field), 64 + len(body))
        body += field
    return head + bytes(4) + body


def challenge_of(message: bytes) -> bytes:
    assert message_type(message) == TYPE_2, message
    return message[24:32]


def digests_are_those_of_the_rfc() -> None:
    for text, expected in DIGESTS.items():
        assert md4(text.encode()).hex() == expected, text


def digests_of_every_length_around_a_block_differ() -> None:
    assert len({md4(b"x" * length) for length in range(130)}) == 130


def proof_is_that_of_the_published_example() -> None:
    assert proof(SERVER_CHALLENGE, CLIENT_DATA, "User", "Domain", "Password") == PROOF


def only_a_right_proof_of_this_challenge_is_believed() -> None:
    cases = (
        ("the right one", lambda asked: answer(asked), "User"),
        ("no domain", lambda asked: answer(asked, domain=""), "User"),
        ("a password with a colon", lambda asked: answer(asked, "colon", "a:b"), "colon"),
        ("a wrong password", lambda asked: answer(asked, password="password"), None),
        ("an empty password", lambda asked: answer(asked, password=""), None),
        ("a user who is not known", lambda asked: answer(asked, "Nobody"), None),
        ("somebody else's proof", lambda asked: answer(asked, "Other", signed="User"), None),
        ("the proof of another challenge", lambda _: answer(SERVER_CHALLENGE), None),
        ("a proof of zeros", lambda asked: answer(asked, response=bytes(16) + CLIENT_DATA), None),
        ("other data than what was proved",
         lambda asked: answer(asked, response=proof(asked, CLIENT_DATA, "User", "Domain", "Password") + bytes(60)),
         None),
    )
    for title, made, expected in cases:
        examiner = Examiner(PASSWORDS)
        known = examiner.known_user(made(challenge_of(examiner.ask())))
        assert known == expected, f"{title}: {known}"


def a_challenge_is_good_for_one_answer() -> None:
    examiner = Examiner(PASSWORDS)
    message = answer(challenge_of(examiner.ask()))
    assert [examiner.known_user(message) for _ in range(2)] == ["User", None]
    assert Examiner(PASSWORDS).known_user(message) is None, "nobody was asked"


def challenges_differ() -> None:
    examiner = Examiner(PASSWORDS)
    assert len({challenge_of(examiner.ask()) for _ in range(100)}) == 100


def what_is_no_answer_is_told_apart() -> None:
    whole = answer(SERVER_CHALLENGE)
    broken = {"nothing": b"", "no signature": b"x" + whole[1:], "cut": whole[:-1], "its head": whole[:43],
              "a first message": SIGNATURE + struct.pack("<I", TYPE_1) + bytes(60),
              "a proof of version 1": answer(SERVER_CHALLENGE, response=bytes(24))}
    for title, message in broken.items():
        try:
            Examiner(PASSWORDS).known_user(message)
        except ValueError:
            continue
        raise AssertionError(title)


def helper_speaks_squids_language() -> None:
    with tempfile.TemporaryDirectory() as folder:
        passwords = Path(folder) / "passwords"
        passwords.write_text("".join(f"{user}:{password}\n" for user, password in PASSWORDS.items()))
        with subprocess.Popen([sys.executable, "-B", str(NTLM_HELPER), str(passwords)], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE, text=True, bufsize=1) as helper:
            assert helper.stdin and helper.stdout

            def said(line: str) -> str:
                print(line, file=helper.stdin, flush=True)
                return helper.stdout.readline().strip()

            def challenged() -> bytes:
                verdict, _, text = said("YR").partition(" ")
                assert verdict == "TT", verdict
                return challenge_of(base64.b64decode(text))

            def judged(message: bytes) -> str:
                return said(f"KK {base64.b64encode(message).decode()}")

            assert judged(answer(challenged())) == "OK user=User"
            assert judged(answer(challenged(), "colon", "a:b")) == "OK user=colon"
            assert judged(answer(challenged(), password="guesswork")).startswith("ERR ")
            assert judged(b"NTLMSSP").startswith("BH ")
            assert said("KK ???=").startswith("BH ")
            assert said("LD").startswith("BH ")
            helper.stdin.close()
            assert helper.wait(10) == 0


def main() -> int:
    checks = (digests_are_those_of_the_rfc, digests_of_every_length_around_a_block_differ,
              proof_is_that_of_the_published_example, only_a_right_proof_of_this_challenge_is_believed,
              a_challenge_is_good_for_one_answer, challenges_differ, what_is_no_answer_is_told_apart,
              helper_speaks_squids_language)
    failed = 0
    for check in checks:
        try:
            check()
            print(f"ok    {check.__name__}")
        except AssertionError as error:
            failed += 1
            print(f"FAIL  {check.__name__}: {error}")
    return report(len(checks) - failed, failed)


if __name__ == "__main__":
    sys.exit(main())
