"""What goes wrong."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Optional

from .declarations import Reason, Status


class Error(Exception):
    """Any error of this package."""


class Unsupported(Error):
    """This is not Python for Windows x64, or a proxy's protocol is not spoken."""


class LoadError(Error):
    """kiv-session.dll cannot be used. The text says what to do."""

    def __init__(self, path: str, problem: str) -> None:
        super().__init__(f"cannot use {path}: {problem}")
        self.path = path


class StatusError(Error):
    """A call of the library failed."""

    def __init__(self, status: int, text: str) -> None:
        super().__init__(text)
        self.status = Status(status)

    @property
    def system_error(self) -> Optional[int]:
        """The error code of Windows, if the status is one."""
        return self.status & 0xFFFF if self.status & 0xFFFF0000 == Status.SYSTEM else None


class Closed(StatusError):
    """The session is closed."""


class TimedOut(StatusError, TimeoutError):
    """The time-out passed first."""


class NoRoute(Error):
    """No candidate works, or there is none."""

    def __init__(self, reason: Reason, text: str) -> None:
        super().__init__(f"there is no route: {text}")
        self.reason = reason


class AuthError(Error):
    """A proxy cannot be authenticated to."""

    problem = "proxy authentication failed"

    def __init__(self, proxy: str, schemes: Sequence[str], detail: str = "") -> None:
        wanted = ", ".join(schemes) or "what it does not name"
        super().__init__(f"{self.problem}: {detail or f'{proxy} wants {wanted}'}")
        self.proxy = proxy
        """Its URL; empty if it is not known which of several proxies failed."""
        self.schemes = tuple(schemes)


class AuthUnsupported(AuthError):
    """The proxy offers no authentication scheme that is spoken."""

    problem = "proxy authentication unsupported"


class CredentialsWanted(AuthError):
    """The proxy wants credentials, and nobody gives any."""

    problem = "no proxy credentials"


class CredentialsRefused(AuthError):
    """The proxy refused the credentials."""

    problem = "proxy credentials refused"
