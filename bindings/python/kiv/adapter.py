"""An adapter for requests, which connects as a session decides."""

from __future__ import annotations

import contextlib
import http.client
import re
import threading
from collections.abc import Iterator, Mapping
from typing import Any, Optional
from urllib.parse import SplitResult, urlsplit

import requests
from requests.adapters import BaseAdapter, HTTPAdapter
from requests.utils import rewind_body
from urllib3.exceptions import ConnectTimeoutError, NewConnectionError

from .declarations import Failure, Kind, Reason, Scheme
from .errors import AuthUnsupported, CredentialsRefused, Error, TimedOut, Unsupported
from .session import Decision, Session, schemes_of

MOST_PASSWORDS = 3
"""The session asks at most twice for each proxy, and may have had a password before."""

PATIENCE = 30
"""Seconds for a proxy to say which authentication it wants."""


class _Route(HTTPAdapter):
    """The connections of one route, with one Proxy-Authorization header."""

    def __init__(self, authorization: Optional[str], pools: tuple[int, int, bool]) -> None:
        self.authorization = authorization
        connections, most, block = pools
        super().__init__(pool_connections=connections, pool_maxsize=most, pool_block=block)

    def proxy_headers(self, proxy: str) -> dict[str, str]:
        return {"Proxy-Authorization": self.authorization} if self.authorization else {}


class KivAdapter(BaseAdapter):
    """Asks the session how to connect before each request, and tells it what did not work:

        http.mount("https://", KivAdapter(session))
        http.mount("http://", KivAdapter(session))

    The proxies of requests and of the environment have no effect. It authenticates to HTTP proxies with Basic. What kiv
    cannot do is a requests.exceptions.ProxyError, or a ConnectTimeout, whose __cause__ is kiv's error. A request for
    which there is no route is never sent directly instead.

    timeout -- in seconds, of finding the route. The time-outs of requests hold for connecting and reading.

    The other parameters are those of requests.adapters.HTTPAdapter, for each route. There is no max_retries: a password
    that the proxy refused would be sent again.
    """

    def __init__(self, session: Session, timeout: Optional[float] = None, *, pool_connections: int = 10,
                 pool_maxsize: int = 10, pool_block: bool = False) -> None:
        super().__init__()
        self._session = session
        self._timeout = timeout
        self._pools = (pool_connections, pool_maxsize, pool_block)
        self._lock = threading.Lock()
        self._headers: dict[str, str] = {}
        self._routes: dict[tuple[str, Optional[str]], _Route] = {}

    def send(self, request: requests.PreparedRequest, stream: bool = False, timeout: Any = None, verify: Any = True,
             cert: Any = None, proxies: Optional[Mapping[str, str]] = None) -> requests.Response:
        settings = {"stream": stream, "timeout": timeout, "verify": verify, "cert": cert}
        try:
            decision = self._decide(str(request.url))
            if decision.kind == Kind.PROXY:
                response = self._send_through(request, decision, settings)
            else:
                response = self._send(request, decision, None, settings)
        except TimedOut as error:
            raise requests.exceptions.ConnectTimeout(error, request=request) from error
        except Error as error:
            raise requests.exceptions.ProxyError(error, request=request) from error
        except requests.RequestException as error:
            error.request = request
            raise
        response.request = request
        # What answers a 401 sends again by this attribute, which the types of requests lack. It must not pass by the
        # session.
        setattr(response, "connection", self)
        return response

    def close(self) -> None:
        with self._lock:
            routes, self._routes = self._routes, {}
        for route in routes.values():
            route.close()

    def _decide(self, url: str) -> Decision:
        decision = self._session.lookup(url) or self._session.resolve(url, self._timeout)
        if decision.reason == Reason.SCHEME_UNSUPPORTED:
            raise AuthUnsupported("", [], decision.explanation)
        decision.check()
        if decision.kind == Kind.PROXY and decision.scheme not in ("http", "https"):
            raise Unsupported(f"{decision.url} speaks {decision.scheme}, which KivAdapter does not: name it in "
                              "left_out")
        if decision.auth_scheme & ~Scheme.BASIC:
            raise AuthUnsupported(decision.url, [str(decision.auth_scheme.name)])
        return decision

    def _send_through(self, request: requests.PreparedRequest, decision: Decision,
                      settings: dict[str, Any]) -> requests.Response:
        """Sends a request through a proxy, with other credentials if it refuses some."""
        for _ in range(MOST_PASSWORDS):
            try:
                return self._authenticated(request, decision, settings)
            except CredentialsRefused as error:
                refused = error
                with self._lock:
                    self._headers.pop(decision.url, None)
        raise refused

    def _authenticated(self, request: requests.PreparedRequest, decision: Decision,
                       settings: dict[str, Any]) -> requests.Response:
        """Sends a request, again for each 407 that can be answered."""
        auth = self._session.authenticate(decision)
        authorization = auth.next(timeout=self._timeout)
        while True:
            try:
                return self._send(request, decision, authorization, settings)
            except _Unauthorized as wanted:
                authorization = auth.next(wanted.challenges, self._timeout) if wanted.challenges else None
                if not authorization or not authorization.startswith("Basic "):
                    raise AuthUnsupported(decision.url, schemes_of(wanted.challenges)) from None

    def _send(self, request: requests.PreparedRequest, decision: Decision, authorization: Optional[str],
              settings: dict[str, Any]) -> requests.Response:
        """Sends a request once, by the decision's route."""
        target = urlsplit(str(request.url))
        route = self._route(decision, authorization)
        sent = request.copy()
        sent.headers.pop("Proxy-Authorization", None)
        plain = decision.kind == Kind.PROXY and target.scheme == "http"
        if plain:
            sent.headers.update(route.proxy_headers(decision.url))
        proxies = {target.scheme: decision.url} if decision.kind == Kind.PROXY else {}
        try:
            response = route.send(sent, proxies=proxies, **settings)
        except requests.exceptions.ConnectionError as error:
            tunnel = re.search(r"Tunnel connection failed: (\d+)", str(error))
            if tunnel and tunnel[1] == "407":
                raise _Unauthorized(_challenges(decision, target)) from None
            self._report(decision, error)
            raise
        if plain and response.status_code == 407:
            challenges = response.raw.headers.getlist("Proxy-Authenticate")
            response.close()
            if not isinstance(request.body, (str, bytes, type(None))):
                rewind_body(request)
            raise _Unauthorized(challenges)
        return response

    def _route(self, decision: Decision, authorization: Optional[str]) -> _Route:
        """What carries requests by the decision's route; without a header, with the last one that was not refused."""
        with self._lock:
            if authorization:
                self._headers[decision.url] = authorization
            key = (decision.url, self._headers.get(decision.url))
            if key not in self._routes:
                self._routes[key] = _Route(key[1], self._pools)
            return self._routes[key]

    def _report(self, decision: Decision, error: Exception) -> None:
        """Tells the session if no connection was made. The request has failed, whatever the session makes of it."""
        proxied = decision.kind == Kind.PROXY
        if any(isinstance(cause, (ConnectTimeoutError, NewConnectionError)) for cause in _causes(error)):
            failure = Failure.PROXY_UNREACHABLE if proxied else Failure.TARGET
        elif proxied and isinstance(error, requests.exceptions.ProxyError):
            failure = Failure.TARGET
        else:
            return
        with contextlib.suppress(Error):
            self._session.report(decision, failure)


class _Unauthorized(Exception):
    """The proxy answered 407."""

    def __init__(self, challenges: list[str]) -> None:
        super().__init__()
        self.challenges = challenges


def _causes(error: BaseException) -> Iterator[BaseException]:
    """An error of requests, and those that it was made of."""
    yield error
    for inner in (*error.args, getattr(error, "reason", None), getattr(error, "original_error", None)):
        if isinstance(inner, BaseException):
            yield from _causes(inner)


def _challenges(decision: Decision, target: SplitResult) -> list[str]:
    """Asks a proxy which authentication it wants for a tunnel: http.client drops the headers of a refused CONNECT."""
    kinds: dict[str, type[http.client.HTTPConnection]] = {"http": http.client.HTTPConnection,
                                                          "https": http.client.HTTPSConnection}
    connection = kinds[decision.scheme](decision.host, decision.port, timeout=PATIENCE)
    host = f"[{target.hostname}]" if ":" in str(target.hostname) else target.hostname
    authority = f"{host}:{target.port or 443}"
    try:
        connection.request("CONNECT", authority, headers={"Host": authority})
        with connection.getresponse() as response:
            return list(response.headers.get_all("Proxy-Authenticate", []))
    except (OSError, http.client.HTTPException) as error:
        raise Error(f"{decision.url} does not say which authentication it wants: {error}") from error
    finally:
        connection.close()
