"""Sessions, decisions, challenges, and authentication to proxies."""

from __future__ import annotations

import asyncio
import atexit
import contextlib
import ctypes
import functools
import itertools
import os
import queue
import re
import sys
import threading
import time
import weakref
from collections.abc import Iterable
from concurrent.futures import Future
from types import TracebackType
from typing import TYPE_CHECKING, Callable, Optional, Union

from .declarations import NO_TIME_OUT, TEXT, Counter, EventKind, Failure, Kind, LogLevel, Reason, Scheme, Status
from .errors import AuthUnsupported, CredentialsRefused, CredentialsWanted, NoRoute, TimedOut
from .library import Handle, error_of, load, must, text_of, wide, wipe
from .options import Options, time_out

if TYPE_CHECKING:
    DecisionFuture = Future["Decision"]
else:
    DecisionFuture = Future

MOST_LOG_LINES = 1024


class Decision:
    """How to connect to one origin. Stays readable when the session has closed."""

    def __init__(self, library: ctypes.CDLL, address: int) -> None:
        self._library = library
        self._handle = Handle(address, library.KivDecision_Release)
        self.kind = Kind(library.KivDecision_Kind(address))
        self.reason = Reason(library.KivDecision_Reason(address))
        self.scheme = text_of(library.KivDecision_Scheme(address))
        """The proxy's: http, https, socks4 or socks5. Like host and url, empty unless the kind is PROXY."""
        self.host = text_of(library.KivDecision_Host(address))
        self.port = int(library.KivDecision_Port(address))
        self.url = text_of(library.KivDecision_ProxyUrl(address))
        self.auth_scheme = Scheme(library.KivDecision_AuthScheme(address))
        """What the proxy let the test request pass with; 0 if it wanted none or was not asked."""

    @property
    def explanation(self) -> str:
        """The reason as a text, for people."""
        return text_of(self._library.KivStatus_Text(self.reason))

    @property
    def age(self) -> float:
        """How long ago the decision was made, in seconds, counting time in which the computer slept."""
        return int(self._library.KivDecision_Age(self._handle)) / 1000

    def check(self) -> None:
        """Raises NoRoute if the decision is that there is no route."""
        if self.kind == Kind.NONE:
            raise NoRoute(self.reason, self.explanation)

    def __str__(self) -> str:
        return {Kind.PROXY: self.url, Kind.DIRECT: "DIRECT"}.get(self.kind, "NONE")

    def __repr__(self) -> str:
        return f"<kiv.Decision {self}, {self.reason.name}>"


class Challenge:
    """A proxy's question for a user name and a password. One that is dropped without an answer is declined."""

    def __init__(self, session: Session, handle: Handle) -> None:
        self._session = session
        self._library = session._library
        self._handle = handle
        self.proxy = text_of(self._library.KivChallenge_Proxy(handle))
        self.scheme = Scheme(self._library.KivChallenge_Scheme(handle))
        self.realm = text_of(self._library.KivChallenge_Realm(handle))
        """The proxy's own text, at most 1,024 characters: show it as such."""
        self.attempt = int(self._library.KivChallenge_Attempt(handle))
        """1 for the first question about this proxy, 2 when the first answer was refused."""

    @property
    def withdrawn(self) -> bool:
        """Whether an answer is no longer wanted."""
        return bool(self._library.KivChallenge_IsWithdrawn(self._handle))

    def answer(self, user: str, password: str) -> bool:
        """False if the challenge was answered, declined or withdrawn before, or the session is closed."""
        secret = wide(password)
        try:
            return self._settled(self._library.KivChallenge_Answer(self._handle, wide(user), secret))
        finally:
            wipe(secret)

    def decline(self) -> bool:
        """Nobody is asked about this proxy again, until Session.forget_credentials. Returns what answer does."""
        return self._settled(self._library.KivChallenge_Decline(self._handle))

    def _settled(self, status: int) -> bool:
        if status in (Status.TOO_LATE, Status.CLOSED):
            return False
        must(self._library, status)
        self._session._question_ended()
        return True

    def __repr__(self) -> str:
        return f"<kiv.Challenge of {self.proxy}, attempt {self.attempt}>"


class _Resolution(DecisionFuture):
    """A future whose cancel ends the work."""

    def __init__(self, library: ctypes.CDLL) -> None:
        super().__init__()
        self._library = library
        self._request: Optional[Handle] = None

    def cancel(self) -> bool:
        cancelled = super().cancel()
        if cancelled and self._request is not None:
            self._library.KivRequest_Cancel(self._request)
        return cancelled


class Session:
    """Remembers what it decided for each origin (scheme, host and port), follows changes of the user's settings and of the
    network, remembers proxies that are dead, and keeps proxy credentials. Create one for each user and keep it. All
    threads may use it.

    user_agent   -- the User-Agent header of test requests.
    options      -- how the session works.
    on_challenge -- receives challenges, each on a thread of its own, and answers now or later. A challenge is declined if
                    this raises.
    on_withdrawn -- receives a challenge whose answer is no longer wanted: close your dialog.
    on_changed   -- is told that settings or network have changed. Several changes may be told at once.
    on_log       -- receives log lines up to Options.log_level. Lines that it is too slow for are lost.
    library      -- the path of kiv-session.dll. Default: the one in the package's folder.

    What is told on withdrawals, changes and log lines runs on one thread of the session's.
    """

    def __init__(self, user_agent: str, options: Options = Options(), *,
                 on_challenge: Optional[Callable[[Challenge], object]] = None,
                 on_withdrawn: Optional[Callable[[Challenge], object]] = None,
                 on_changed: Optional[Callable[[], object]] = None,
                 on_log: Optional[Callable[[LogLevel, str], object]] = None,
                 library: Union[str, os.PathLike[str], None] = None) -> None:
        self._library = load(None if library is None else os.fspath(library))
        self._on_challenge, self._on_withdrawn = on_challenge, on_withdrawn
        self._on_changed, self._on_log = on_changed, on_log
        created = ctypes.c_void_p()
        must(self._library, self._library.KivSession_Create(wide(user_agent), created))
        self._handle = Handle(created.value, self._library.KivSession_Destruct)
        options.apply(self._library, self._handle)
        self._schemes = options.schemes
        self._tags = itertools.count(1)
        self._waiting: dict[int, _Resolution] = {}
        self._questions: weakref.WeakValueDictionary[int, Challenge] = weakref.WeakValueDictionary()
        self._question_end = threading.Condition()
        self._questions_ended = 0
        self._told: queue.SimpleQueue[Optional[Callable[[], object]]] = queue.SimpleQueue()
        # A session asks for credentials only if somebody has looked for events.
        self._next(0)
        self._reader = threading.Thread(target=self._read, name="kiv events", daemon=True)
        self._reader.start()
        if on_withdrawn or on_changed or on_log:
            threading.Thread(target=self._tell, name="kiv callbacks", daemon=True).start()
        _open.add(self)

    def close(self) -> None:
        """Ends all work: calls that wait raise Closed. Closing a closed session does nothing."""
        self._library.KivSession_Close(self._handle)
        if threading.current_thread() is not self._reader:
            self._reader.join()

    def __enter__(self) -> Session:
        return self

    def __exit__(self, kind: Optional[type[BaseException]], error: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None:
        self.close()

    def lookup(self, url: str) -> Optional[Decision]:
        """The kept decision for a URL's origin; never blocks. Without one a resolution begins, whose result a later call
        returns."""
        decision = ctypes.c_void_p()
        status = self._library.KivSession_Lookup(self._handle, wide(url), decision)
        if status == Status.NOT_YET:
            return None
        must(self._library, status)
        return self._decision(decision.value)

    def resolve(self, url: str, timeout: Optional[float] = None) -> Decision:
        """The kept decision for a URL's origin, or a new one. "There is no route" is a decision too: see Decision.check.
        Only scheme, host and port of the URL are used.

        timeout -- in seconds; without one, Options.timeout holds; math.inf is none. It raises TimedOut when that passes.
        """
        if threading.current_thread() is self._reader:
            # In a callback of a future, which would wait for itself.
            must(self._library, Status.REENTRANT)
        future = self.start(url, timeout)
        try:
            return future.result()
        except BaseException:
            # Ctrl+C, for example.
            future.cancel()
            raise
        finally:
            # Otherwise an error, its traceback and the future would keep each other until the collector comes.
            del future

    def start(self, url: str, timeout: Optional[float] = None) -> Future[Decision]:
        """Begins what resolve waits for. Cancelling the future ends the work, unless others wait for it. Callbacks that
        are added to it run on the session's thread: they must not block."""
        future = _Resolution(self._library)
        tag = next(self._tags)
        self._waiting[tag] = future
        request = ctypes.c_void_p()
        try:
            must(self._library, self._library.KivSession_Start(self._handle, wide(url), time_out(timeout), tag, None,
                                                               request))
        except BaseException:
            del self._waiting[tag]
            raise
        future._request = Handle(request.value, self._library.KivRequest_Release)
        return future

    async def resolve_async(self, url: str, timeout: Optional[float] = None) -> Decision:
        """As resolve, for asyncio. When the task is cancelled, so is the work."""
        return await asyncio.wrap_future(self.start(url, timeout))

    def report(self, decision: Decision, failure: Failure) -> None:
        """Tells that a decision did not work. Ignored unless the kept decision for its origin names the same route."""
        must(self._library, self._library.KivSession_ReportFailure(self._handle, decision._handle, failure))

    def forget(self) -> None:
        """Forgets kept decisions and dead proxies. Credentials stay."""
        self._library.KivSession_Forget(self._handle)

    def forget_credentials(self) -> None:
        """Forgets answers to challenges, refused credentials and declined questions."""
        self._library.KivSession_ForgetCredentials(self._handle)

    def counter(self, counter: Counter) -> int:
        return int(self._library.KivSession_GetCounter(self._handle, counter))

    def authenticate(self, decision: Decision) -> Auth:
        """Begins the authentication of one connection to a decision's proxy."""
        return Auth(self, decision)

    def _decision(self, address: Optional[int]) -> Decision:
        assert address is not None
        return Decision(self._library, address)

    def _next(self, timeout: int) -> bool:
        """Takes one event and deals with it; false when the session has closed."""
        address = ctypes.c_void_p()
        status = self._library.KivSession_Next(self._handle, timeout, address)
        event = Handle(address.value, self._library.KivEvent_Release)
        if status == Status.OK:
            self._take(event)
        elif status not in (Status.NOT_YET, Status.CLOSED):
            # For want of memory, which may come back.
            time.sleep(0.01)
        return bool(status != Status.CLOSED)

    def _read(self) -> None:
        """The only reader of the session's events: no thread of the library ever runs Python."""
        while self._next(NO_TIME_OUT):
            pass
        _open.discard(self)
        self._question_ended()
        self._told.put(None)

    def _take(self, event: Handle) -> None:
        kind = self._library.KivEvent_Kind(event)
        if kind == EventKind.COMPLETED:
            self._complete(event)
        elif kind == EventKind.CHALLENGE:
            self._ask(self._challenge_of(event))
        elif kind == EventKind.WITHDRAWN:
            self._withdraw(self._challenge_of(event))
        elif kind == EventKind.CHANGED and self._on_changed:
            self._told.put(self._on_changed)
        elif kind == EventKind.LOG and self._on_log and self._told.qsize() < MOST_LOG_LINES:
            level, line = LogLevel(self._library.KivEvent_Status(event)), text_of(self._library.KivEvent_Text(event))
            self._told.put(functools.partial(self._on_log, level, line))

    def _complete(self, event: Handle) -> None:
        future = self._waiting.pop(self._library.KivEvent_Tag(event))
        status, address = self._library.KivEvent_Status(event), self._library.KivEvent_Decision(event)
        decision = None if address is None else self._decision(address)
        if not future.set_running_or_notify_cancel():
            return
        if decision is not None:
            future.set_result(decision)
        else:
            future.set_exception(error_of(self._library, status))

    def _challenge_of(self, event: Handle) -> Handle:
        return Handle(self._library.KivEvent_Challenge(event), self._library.KivChallenge_Release)

    def _ask(self, handle: Handle) -> None:
        ask = self._on_challenge
        if ask is None or handle.address is None:
            return
        challenge = Challenge(self, handle)
        self._questions[handle.address] = challenge
        # When Python ends, no thread starts any more: the challenge is declined.
        with contextlib.suppress(RuntimeError):
            threading.Thread(target=_answer, args=(ask, challenge), name="kiv challenge", daemon=True).start()

    def _withdraw(self, handle: Handle) -> None:
        challenge = None if handle.address is None else self._questions.get(handle.address)
        self._question_ended()
        if challenge is not None and self._on_withdrawn:
            self._told.put(functools.partial(self._on_withdrawn, challenge))

    def _question_ended(self) -> None:
        with self._question_end:
            self._questions_ended += 1
            self._question_end.notify_all()

    def _tell(self) -> None:
        """Calls the application's functions, which may call the session."""
        while call := self._told.get():
            try:
                call()
            except Exception:  # An application's error ends no session.
                threading.excepthook(threading.ExceptHookArgs((*sys.exc_info(), threading.current_thread())))


def _answer(ask: Callable[[Challenge], object], challenge: Challenge) -> None:
    try:
        ask(challenge)
    except BaseException:
        challenge.decline()
        raise


_open: weakref.WeakSet[Session] = weakref.WeakSet()


@atexit.register
def _close_all() -> None:
    for session in list(_open):
        session.close()


class Auth:
    """The authentication of one connection to a proxy, with the session's credentials for it or, where
    Options.logged_on_user allows, the logged-on user's. It speaks those of Basic, NTLM and Negotiate that Options.schemes
    names. One thread at a time may use it."""

    def __init__(self, session: Session, decision: Decision) -> None:
        self._session = session
        self._library = session._library
        self._proxy = decision.url
        self._spoken = session._schemes
        auth = ctypes.c_void_p()
        must(self._library, self._library.KivAuth_Create(session._handle, decision._handle, auth))
        self._handle = Handle(auth.value, self._library.KivAuth_Release)

    def next(self, proxy_authenticate: Iterable[str] = (), timeout: Optional[float] = None) -> Optional[str]:
        """The Proxy-Authorization header to send, on the same connection, in answer to the Proxy-Authenticate headers of a
        proxy's 407. Without any: what can be sent before the first 407, or None. Waits while a challenge is open, at most
        `timeout` seconds.

        Raises CredentialsRefused, on which the connection is to be closed (a new Auth may have others to offer),
        CredentialsWanted, AuthUnsupported, and TimedOut.
        """
        challenges = list(proxy_authenticate)
        offered = wide("\n".join(challenges))
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            before = self._session._questions_ended
            header = TEXT()
            status = self._library.KivAuth_Next(self._handle, offered, ctypes.byref(header))
            if status in (Status.AGAIN, Status.DONE):
                return text_of(header) or None
            if status == Status.REJECTED:
                raise CredentialsRefused(self._proxy, schemes_of(challenges))
            if status == Status.UNSUPPORTED:
                schemes = schemes_of(challenges)
                spoken = any(Scheme.__members__.get(name.upper(), Scheme(0)) & self._spoken for name in schemes)
                raise (CredentialsWanted if spoken else AuthUnsupported)(self._proxy, schemes)
            if status != Status.NOT_YET:
                must(self._library, status)
            self._wait(before, deadline)

    def _wait(self, before: int, deadline: Optional[float]) -> None:
        """Waits for the end of a question, and looks each second: it may have been dropped, or open for too long."""
        left = 1.0 if deadline is None else min(1.0, deadline - time.monotonic())
        if left <= 0:
            raise TimedOut(Status.TIMED_OUT, f"nobody has answered the challenge of {self._proxy}")
        with self._session._question_end:
            self._session._question_end.wait_for(lambda: self._session._questions_ended != before, left)


def schemes_of(proxy_authenticate: Iterable[str]) -> list[str]:
    """The schemes that Proxy-Authenticate headers name: words that are no parameters."""
    return [name for header in proxy_authenticate
            for name in re.findall(r"(?:^|,)\s*([\w-]+)(?=\s+[^\s=]|\s*(?:,|$))", re.sub(r'"[^"]*"', '""', header))]
