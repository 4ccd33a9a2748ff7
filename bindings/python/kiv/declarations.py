"""What include/kiv/session.h declares.

bindings/check_declarations.py compares this file with that header: each value stands in a line that ends with its name
there, and each function with its result and its parameters.
"""

from __future__ import annotations

import ctypes
from enum import IntEnum, IntFlag
from typing import TypeVar

MINIMUM_VERSION = 1 << 16
"""The version of the library that this package needs: major * 65536 + minor * 256 + patch."""

NO_TIME_OUT = 0xFFFFFFFF  # KIV_NO_TIME_OUT

_Member = TypeVar("_Member", bound="_Growing")


class _Growing(IntEnum):
    """Numbers to which a later version of the library may add."""

    @classmethod
    def _missing_(cls: type[_Member], value: object) -> _Member | None:
        if not isinstance(value, int):
            return None
        member = int.__new__(cls, value)
        member._name_ = f"UNKNOWN_{value:#x}"
        member._value_ = value
        return member


class Status(_Growing):
    """How a call of the library ended."""

    OK = 0  # KIV_STATUS_OK
    TIMED_OUT = 1  # KIV_STATUS_TIMED_OUT
    CANCELLED = 2  # KIV_STATUS_CANCELLED
    BAD_ARGUMENT = 3  # KIV_STATUS_BAD_ARGUMENT
    BAD_URL = 4  # KIV_STATUS_BAD_URL
    TOO_LATE = 5  # KIV_STATUS_TOO_LATE
    REENTRANT = 6  # KIV_STATUS_REENTRANT
    UNSUPPORTED = 7  # KIV_STATUS_UNSUPPORTED
    OUT_OF_MEMORY = 8  # KIV_STATUS_OUT_OF_MEMORY
    CLOSED = 9  # KIV_STATUS_CLOSED
    NOT_YET = 10  # KIV_STATUS_NOT_YET
    AGAIN = 11  # KIV_STATUS_AGAIN
    DONE = 12  # KIV_STATUS_DONE
    REJECTED = 13  # KIV_STATUS_REJECTED
    SYSTEM = 0x80070000  # KIV_STATUS_SYSTEM
    TOO_MANY = 0x80070718  # KIV_STATUS_TOO_MANY


class Kind(_Growing):
    """What a decision says."""

    NONE = 0  # KIV_KIND_NONE
    DIRECT = 1  # KIV_KIND_DIRECT
    PROXY = 2  # KIV_KIND_PROXY


class Reason(_Growing):
    """Why a decision is what it is. From NO_CANDIDATE on: why there is no route."""

    BYPASSED = 0x101  # KIV_REASON_BYPASSED
    REACHED = 0x102  # KIV_REASON_REACHED
    CONNECTED = 0x103  # KIV_REASON_CONNECTED
    NOT_TESTED = 0x104  # KIV_REASON_NOT_TESTED
    MAKESHIFT = 0x105  # KIV_REASON_MAKESHIFT
    NO_CANDIDATE = 0x111  # KIV_REASON_NO_CANDIDATE
    NOTHING_WORKS = 0x112  # KIV_REASON_NOTHING_WORKS
    CREDENTIALS_WANTED = 0x113  # KIV_REASON_CREDENTIALS_WANTED
    SCHEME_UNSUPPORTED = 0x114  # KIV_REASON_SCHEME_UNSUPPORTED


class Scheme(IntFlag):
    """Authentication schemes of proxies."""

    BASIC = 0x1  # KIV_SCHEME_BASIC
    NTLM = 0x2  # KIV_SCHEME_NTLM
    DIGEST = 0x8  # KIV_SCHEME_DIGEST
    NEGOTIATE = 0x10  # KIV_SCHEME_NEGOTIATE


class Failure(IntEnum):
    """What Session.report tells of a decision."""

    PROXY_UNREACHABLE = 1  # KIV_FAILURE_PROXY_UNREACHABLE
    PROXY_CREDENTIALS = 2  # KIV_FAILURE_PROXY_CREDENTIALS
    TARGET = 3  # KIV_FAILURE_TARGET


class Counter(IntEnum):
    """What Session.counter tells: since the session was created, or now."""

    RESOLUTIONS = 1  # KIV_COUNTER_RESOLUTIONS
    KEPT_ANSWERS = 2  # KIV_COUNTER_KEPT_ANSWERS
    KEPT_ORIGINS = 3  # KIV_COUNTER_KEPT_ORIGINS
    WAITING = 4  # KIV_COUNTER_WAITING
    DISCOVERIES = 5  # KIV_COUNTER_DISCOVERIES
    OVERDUE_DISCOVERIES = 6  # KIV_COUNTER_OVERDUE_DISCOVERIES
    TEST_REQUESTS = 7  # KIV_COUNTER_TEST_REQUESTS
    CONNECTIONS = 8  # KIV_COUNTER_CONNECTIONS
    CHALLENGES = 9  # KIV_COUNTER_CHALLENGES
    CHANGES = 10  # KIV_COUNTER_CHANGES
    LOST_LOG_LINES = 11  # KIV_COUNTER_LOST_LOG_LINES


class Test(IntEnum):
    """What decides that a candidate works: nothing, a connection, or a HEAD request that reaches the target."""

    NONE = 0  # KIV_TEST_NONE
    CONNECT = 1  # KIV_TEST_CONNECT
    REACHED = 2  # KIV_TEST_REACHED


class Direct(IntEnum):
    """What becomes of direct connections: as the settings say, always as the last resort, or never."""

    SETTINGS = 0  # KIV_DIRECT_SETTINGS
    LAST_RESORT = 1  # KIV_DIRECT_LAST_RESORT
    NEVER = 2  # KIV_DIRECT_NEVER


class LoggedOnUser(IntEnum):
    """Who may receive the logged-on user's credentials."""

    NEVER = 0  # KIV_LOGGED_ON_USER_NEVER
    SYSTEM = 1  # KIV_LOGGED_ON_USER_SYSTEM
    PROXIES = 2  # KIV_LOGGED_ON_USER_PROXIES


class LogLevel(_Growing):
    """How important a log line is."""

    OFF = 0  # KIV_LOG_LEVEL_OFF
    ERROR = 1  # KIV_LOG_LEVEL_ERROR
    WARN = 2  # KIV_LOG_LEVEL_WARN
    INFO = 3  # KIV_LOG_LEVEL_INFO
    DEBUG = 4  # KIV_LOG_LEVEL_DEBUG


class Option(IntEnum):
    """The numbers of options."""

    TEST = 1  # KIV_OPTION_TEST
    TIME_OUT = 2  # KIV_OPTION_TIME_OUT
    DISCOVERY_TIME_OUT = 3  # KIV_OPTION_DISCOVERY_TIME_OUT
    CONNECT_TIME_OUT = 4  # KIV_OPTION_CONNECT_TIME_OUT
    ANSWER_TIME_OUT = 5  # KIV_OPTION_ANSWER_TIME_OUT
    KEPT_TIME = 6  # KIV_OPTION_KEPT_TIME
    PAST_TIME = 7  # KIV_OPTION_PAST_TIME
    FAILURE_TIME = 8  # KIV_OPTION_FAILURE_TIME
    DEAD_TIME = 9  # KIV_OPTION_DEAD_TIME
    ORIGINS = 10  # KIV_OPTION_ORIGINS
    CANDIDATES = 11  # KIV_OPTION_CANDIDATES
    DIRECT = 12  # KIV_OPTION_DIRECT
    LOGGED_ON_USER = 13  # KIV_OPTION_LOGGED_ON_USER
    SCHEMES = 14  # KIV_OPTION_SCHEMES
    LOG_LEVEL = 15  # KIV_OPTION_LOG_LEVEL
    LEFT_OUT = 64  # KIV_OPTION_LEFT_OUT
    BYPASS_LIST = 65  # KIV_OPTION_BYPASS_LIST


class Which(IntEnum):
    """Where an own candidate stands."""

    PREFERRED = 1  # KIV_PROXY_PREFERRED
    FALLBACK = 2  # KIV_PROXY_FALLBACK


class EventKind(_Growing):
    """What an event tells."""

    COMPLETED = 1  # KIV_EVENT_COMPLETED
    CHALLENGE = 2  # KIV_EVENT_CHALLENGE
    WITHDRAWN = 3  # KIV_EVENT_WITHDRAWN
    CHANGED = 4  # KIV_EVENT_CHANGED
    LOG = 5  # KIV_EVENT_LOG
    CLOSED = 6  # KIV_EVENT_CLOSED


# wchar_t has 16 bits on Windows and 32 elsewhere: texts are arrays of 16-bit numbers everywhere.
TEXT = ctypes.POINTER(ctypes.c_uint16)
HANDLE = ctypes.c_void_p
RESULT = ctypes.POINTER(ctypes.c_void_p)
TEXT_RESULT = ctypes.POINTER(TEXT)
NUMBER = ctypes.c_uint32
LONG = ctypes.c_uint64
FLAG = ctypes.c_int
NOTHING = None

FUNCTIONS = {
    "KivStatus_Text": (TEXT, [NUMBER]),
    "KivSession_Version": (NUMBER, []),
    "KivSession_Create": (NUMBER, [TEXT, RESULT]),
    "KivSession_Close": (NOTHING, [HANDLE]),
    "KivSession_Destruct": (NOTHING, [HANDLE]),
    "KivSession_SetNumber": (NUMBER, [HANDLE, NUMBER, NUMBER]),
    "KivSession_SetText": (NUMBER, [HANDLE, NUMBER, TEXT]),
    "KivSession_SetProxy": (NUMBER, [HANDLE, NUMBER, TEXT, TEXT, TEXT]),
    "KivSession_Lookup": (NUMBER, [HANDLE, TEXT, RESULT]),
    "KivSession_Start": (NUMBER, [HANDLE, TEXT, NUMBER, LONG, HANDLE, RESULT]),
    "KivSession_ReportFailure": (NUMBER, [HANDLE, HANDLE, NUMBER]),
    "KivSession_Forget": (NOTHING, [HANDLE]),
    "KivSession_ForgetCredentials": (NOTHING, [HANDLE]),
    "KivSession_GetCounter": (LONG, [HANDLE, NUMBER]),
    "KivSession_Next": (NUMBER, [HANDLE, NUMBER, RESULT]),
    "KivRequest_Cancel": (NOTHING, [HANDLE]),
    "KivRequest_Release": (NOTHING, [HANDLE]),
    "KivDecision_Kind": (NUMBER, [HANDLE]),
    "KivDecision_Scheme": (TEXT, [HANDLE]),
    "KivDecision_Host": (TEXT, [HANDLE]),
    "KivDecision_Port": (NUMBER, [HANDLE]),
    "KivDecision_ProxyUrl": (TEXT, [HANDLE]),
    "KivDecision_AuthScheme": (NUMBER, [HANDLE]),
    "KivDecision_Age": (LONG, [HANDLE]),
    "KivDecision_Reason": (NUMBER, [HANDLE]),
    "KivDecision_Release": (NOTHING, [HANDLE]),
    "KivEvent_Kind": (NUMBER, [HANDLE]),
    "KivEvent_Tag": (LONG, [HANDLE]),
    "KivEvent_Status": (NUMBER, [HANDLE]),
    "KivEvent_Decision": (HANDLE, [HANDLE]),
    "KivEvent_Challenge": (HANDLE, [HANDLE]),
    "KivEvent_Text": (TEXT, [HANDLE]),
    "KivEvent_Release": (NOTHING, [HANDLE]),
    "KivChallenge_Proxy": (TEXT, [HANDLE]),
    "KivChallenge_Scheme": (NUMBER, [HANDLE]),
    "KivChallenge_Realm": (TEXT, [HANDLE]),
    "KivChallenge_Attempt": (NUMBER, [HANDLE]),
    "KivChallenge_IsWithdrawn": (FLAG, [HANDLE]),
    "KivChallenge_Answer": (NUMBER, [HANDLE, TEXT, TEXT]),
    "KivChallenge_Decline": (NUMBER, [HANDLE]),
    "KivChallenge_Release": (NOTHING, [HANDLE]),
    "KivAuth_Create": (NUMBER, [HANDLE, HANDLE, RESULT]),
    "KivAuth_Next": (NUMBER, [HANDLE, TEXT, TEXT_RESULT]),
    "KivAuth_Release": (NOTHING, [HANDLE]),
}
"""The library's functions that this package calls: each one's result and parameters."""
