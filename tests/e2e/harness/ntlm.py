"""The server's half of NTLM, version 2 of its proof, as [MS-NLMP] describes it: enough to tell who knows a password.

Needs nothing but Python, whose OpenSSL usually lacks MD4: that is here too.
"""

from __future__ import annotations

import hmac
import os
import struct
from collections.abc import Callable, Mapping
from dataclasses import dataclass

SIGNATURE = b"NTLMSSP\0"
TYPE_1, TYPE_2, TYPE_3 = 1, 2, 3

# What a challenge offers: texts of 16-bit characters, the target's name (a domain) and information about it, NTLM with
# extended session security.
UNICODE, REQUEST_TARGET, NTLM, TARGET_IS_DOMAIN = 0x1, 0x4, 0x200, 0x10000
EXTENDED_SESSION_SECURITY, TARGET_INFORMATION = 0x80000, 0x800000
FLAGS = UNICODE | REQUEST_TARGET | NTLM | TARGET_IS_DOMAIN | EXTENDED_SESSION_SECURITY | TARGET_INFORMATION

# Samba's client, which Wine asks for its answers, refuses a challenge that does not say where it comes from.
END, COMPUTER_NAME, DOMAIN_NAME, DNS_COMPUTER_NAME, DNS_DOMAIN_NAME = range(5)
TARGET = {DOMAIN_NAME: "KIV", COMPUTER_NAME: "PROXY", DNS_DOMAIN_NAME: "kiv.test", DNS_COMPUTER_NAME: "proxy.kiv.test"}

_Mix = Callable[[int, int, int], int]

# RFC 1320's three rounds: how three words are mixed, what is added, the order of the block's words, the rotations.
_ROUNDS: tuple[tuple[_Mix, int, tuple[int, ...], tuple[int, ...]], ...] = (
    (lambda x, y, z: (x & y) | (~x & z), 0, tuple(range(16)), (3, 7, 11, 19)),
    (lambda x, y, z: (x & y) | (x & z) | (y & z), 0x5A827999,
     (0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15), (3, 5, 9, 13)),
    (lambda x, y, z: x ^ y ^ z, 0x6ED9EBA1,
     (0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15), (3, 9, 11, 15)),
)


def md4(message: bytes) -> bytes:
    """RFC 1320's digest."""
    padded = message + b"\x80" + bytes(-(len(message) + 9) % 64) + struct.pack("<Q", 8 * len(message))
    state = (0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476)
    for block in struct.iter_unpack("<16I", padded):
        a, b, c, d = state
        for mix, constant, order, rotations in _ROUNDS:
            for step, place in enumerate(order):
                total = (a + mix(b, c, d) + block[place] + constant) & 0xFFFFFFFF
                rotation = rotations[step % 4]
                a, b, c, d = d, (total << rotation | total >> 32 - rotation) & 0xFFFFFFFF, b, c
        state = tuple((old + new) & 0xFFFFFFFF for old, new in zip(state, (a, b, c, d)))
    return struct.pack("<4I", *state)


def proof(challenge: bytes, client_data: bytes, user: str, domain: str, password: str) -> bytes:
    """NTProofStr: what only somebody who knows the password can say about a challenge."""
    key = hmac.digest(md4(password.encode("utf-16-le")), (user.upper() + domain).encode("utf-16-le"), "md5")
    return hmac.digest(key, challenge + client_data, "md5")


def message_type(message: bytes) -> int:
    """Which of NTLM's three messages it is; 0 if none."""
    if len(message) < 12 or not message.startswith(SIGNATURE):
        return 0
    return int.from_bytes(message[8:12], "little")


def challenge_message(challenge: bytes) -> bytes:
    """The second message: a challenge of eight bytes, and who asks."""
    name = TARGET[DOMAIN_NAME].encode("utf-16-le")
    information = b"".join(struct.pack("<HH", kind, 2 * len(text)) + text.encode("utf-16-le")
                           for kind, text in TARGET.items()) + struct.pack("<HH", END, 0)
    start = 48
    return (SIGNATURE + struct.pack("<IHHII", TYPE_2, len(name), len(name), start, FLAGS) + challenge + bytes(8)
            + struct.pack("<HHI", len(information), len(information), start + len(name)) + name + information)


@dataclass(frozen=True)
class Answer:
    """What counts of the third message."""

    user: str
    domain: str
    proof: bytes
    client_data: bytes

    @classmethod
    def read(cls, message: bytes) -> Answer:
        """Reads a third message; ValueError if it is none, or has a proof of the first version."""
        if message_type(message) != TYPE_3 or len(message) < 44:
            raise ValueError("not an answer to a challenge")

        def field(place: int) -> bytes:
            length, _, start = struct.unpack_from("<HHI", message, place)
            if start + length > len(message):
                raise ValueError("a field reaches beyond the message")
            return message[start:start + length]

        response = field(20)
        # The first version's is 24 bytes long; the second's data of the client alone is longer.
        if len(response) < 16 + 28:
            raise ValueError("not a proof of version 2")
        return cls(field(36).decode("utf-16-le"), field(28).decode("utf-16-le"), response[:16], response[16:])


class Examiner:
    """Asks one client for its proof; each challenge is good for one answer."""

    def __init__(self, passwords: Mapping[str, str]) -> None:
        self._passwords = passwords
        self._challenge: bytes | None = None

    def ask(self) -> bytes:
        """A new challenge, as the second message."""
        self._challenge = os.urandom(8)
        return challenge_message(self._challenge)

    def known_user(self, message: bytes) -> str | None:
        """Who answered the challenge with a proof of the password; nobody if the proof is wrong, or was not asked for.

        ValueError if the message is no answer.
        """
        answer = Answer.read(message)
        challenge, self._challenge = self._challenge, None
        password = self._passwords.get(answer.user)
        if challenge is None or password is None:
            return None
        right = proof(challenge, answer.client_data, answer.user, answer.domain, password)
        return answer.user if hmac.compare_digest(right, answer.proof) else None
