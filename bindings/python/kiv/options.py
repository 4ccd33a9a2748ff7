"""How a session works."""

from __future__ import annotations

import ctypes
import math
from dataclasses import dataclass
from typing import Optional

from .declarations import NO_TIME_OUT, Direct, LoggedOnUser, LogLevel, Option, Scheme, Test, Which
from .library import Handle, must, wide, wipe


@dataclass(frozen=True)
class Proxy:
    """A candidate of the application's own: `[scheme://]host[:port]`, without credentials in it."""

    url: str
    user: Optional[str] = None
    password: Optional[str] = None

    def __repr__(self) -> str:
        return f"Proxy({self.url!r})"


@dataclass(frozen=True)
class Options:
    """What is None is the library's default. Times are in seconds."""

    test: Optional[Test] = None
    """What decides that a candidate works. Default: Test.REACHED."""
    timeout: Optional[float] = None
    """Of calls that name none, and of work that no caller limits. Default: 30."""
    discovery_timeout: Optional[float] = None
    """Of reading settings and running PAC scripts. Default: 10."""
    connect_timeout: Optional[float] = None
    """Of connecting to a proxy or target. Default: 5."""
    answer_timeout: Optional[float] = None
    """Of an answer on an open connection. Default: 15."""
    kept_time: Optional[float] = None
    """How long a decision is kept. Default: 300."""
    past_time: Optional[float] = None
    """How long a decision past its time is the answer while one refresh runs. Default: 300."""
    failure_time: Optional[float] = None
    """How long "no route" and other makeshift decisions are kept. Default: 10."""
    dead_time: Optional[float] = None
    """How long a dead proxy is tried last. Default: 300."""
    origins: Optional[int] = None
    """How many decisions are kept: 1 to 10,000. Default: 1,024."""
    candidates: Optional[int] = None
    """How many candidates are attempted: 1 to 32. Default: 32."""
    direct: Optional[Direct] = None
    """What becomes of direct connections. Default: Direct.SETTINGS."""
    logged_on_user: Optional[LoggedOnUser] = None
    """Who may receive the logged-on user's credentials. Default: LoggedOnUser.SYSTEM."""
    schemes: Scheme = Scheme.BASIC
    """What the application's HTTP client speaks to proxies. A proxy that offers nothing of it is no answer, and nobody is
    asked for its password. Python's clients speak Basic."""
    log_level: Optional[LogLevel] = None
    """Which lines Session's on_log receives. Default: LogLevel.OFF."""
    left_out: Optional[str] = "socks4://*;socks5://*"
    """Candidates that are never used: `[scheme://]host[:port]` with `*`, separated by `;`."""
    bypass_list: Optional[str] = None
    """The bypass list in place of the settings'."""
    preferred: Optional[Proxy] = None
    """An own candidate in front of the settings'."""
    fallback: Optional[Proxy] = None
    """An own candidate behind the settings'."""

    def apply(self, library: ctypes.CDLL, session: Handle) -> None:
        """Gives a session what is not the library's default."""
        for option, number in self._numbers().items():
            if number is not None:
                must(library, library.KivSession_SetNumber(session, option, number))
        for option, text in ((Option.LEFT_OUT, self.left_out), (Option.BYPASS_LIST, self.bypass_list)):
            if text is not None:
                must(library, library.KivSession_SetText(session, option, wide(text)))
        for which, proxy in ((Which.PREFERRED, self.preferred), (Which.FALLBACK, self.fallback)):
            if proxy is not None:
                _set_proxy(library, session, which, proxy)

    def _numbers(self) -> dict[Option, Optional[int]]:
        times = {Option.TIME_OUT: self.timeout, Option.DISCOVERY_TIME_OUT: self.discovery_timeout,
                 Option.CONNECT_TIME_OUT: self.connect_timeout, Option.ANSWER_TIME_OUT: self.answer_timeout,
                 Option.KEPT_TIME: self.kept_time, Option.PAST_TIME: self.past_time,
                 Option.FAILURE_TIME: self.failure_time, Option.DEAD_TIME: self.dead_time}
        numbers = {Option.TEST: self.test, Option.ORIGINS: self.origins, Option.CANDIDATES: self.candidates,
                   Option.DIRECT: self.direct, Option.LOGGED_ON_USER: self.logged_on_user,
                   Option.SCHEMES: self.schemes, Option.LOG_LEVEL: self.log_level}
        return {**{option: None if time is None else milliseconds(time) for option, time in times.items()},
                **{option: None if number is None else _limited(number) for option, number in numbers.items()}}


def _set_proxy(library: ctypes.CDLL, session: Handle, which: Which, proxy: Proxy) -> None:
    user = None if proxy.user is None else wide(proxy.user)
    password = None if proxy.password is None else wide(proxy.password)
    status = library.KivSession_SetProxy(session, which, wide(proxy.url), user, password)
    if password is not None:
        wipe(password)
    must(library, status)


def _limited(number: int) -> int:
    """What is out of a number's range as one that the library refuses; ctypes would cut it."""
    return int(number) if 0 <= number <= NO_TIME_OUT else NO_TIME_OUT


def milliseconds(seconds: float) -> int:
    """Rounded up, so that a time above zero is none of zero. Without end it is no time-out."""
    return NO_TIME_OUT if math.isinf(seconds) else _limited(math.ceil(seconds * 1000))


def time_out(seconds: Optional[float]) -> int:
    """The time-out of a call: None is the option's; a time that has passed already is the shortest."""
    return 0 if seconds is None else max(1, milliseconds(max(0.0, seconds)))
