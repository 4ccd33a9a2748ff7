"""How a program connects to a URL on Windows: directly or through which proxy.

A session asks the user's settings, PAC scripts and automatic detection (WPAD), tests the candidates, remembers what
works, and follows changes. It wraps kiv-session.dll. On other systems the package imports, and Session raises
Unsupported.
"""

from .declarations import Counter, Direct, Failure, Kind, LoggedOnUser, LogLevel, Reason, Scheme, Status, Test
from .errors import (AuthError, AuthUnsupported, Closed, CredentialsRefused, CredentialsWanted, Error, LoadError,
                     NoRoute, StatusError, TimedOut, Unsupported)
from .options import Options, Proxy
from .session import Auth, Challenge, Decision, Session

__all__ = ["Auth", "AuthError", "AuthUnsupported", "Challenge", "Closed", "Counter", "CredentialsRefused",
           "CredentialsWanted", "Decision", "Direct", "Error", "Failure", "Kind", "LoadError", "LoggedOnUser",
           "LogLevel", "NoRoute", "Options", "Proxy", "Reason", "Scheme", "Session", "Status", "StatusError", "Test",
           "TimedOut", "Unsupported"]
