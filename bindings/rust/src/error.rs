//! What goes wrong.

use crate::declarations::{status, Functions, Reason};
use crate::text::copied;
use std::fmt;
use std::path::PathBuf;

/// What went wrong.
#[derive(Clone, Debug, PartialEq, Eq)]
#[non_exhaustive]
pub enum Error {
    /// This is not Windows.
    Unsupported,
    /// kiv-session.dll cannot be used; `problem` says why, and what to do.
    Library {
        /// The file that was to be loaded.
        path: PathBuf,
        /// Why it cannot be used, and what to do.
        problem: String,
    },
    /// The time-out passed first.
    TimedOut,
    /// A [`Canceller`](crate::Canceller) ended the call.
    Cancelled,
    /// The session was closed.
    Closed,
    /// Not an absolute URL whose scheme is http, https, ws or wss, or one that is too long.
    BadUrl,
    /// A value out of its range, or a text that cannot be one.
    BadArgument(String),
    /// No candidate works. Never connect directly instead.
    NoRoute {
        /// Why there is no route.
        reason: Reason,
        /// The reason as a text for people.
        text: String,
    },
    /// The proxy offers no authentication that can be answered, or nobody has credentials for it. Nothing was sent to
    /// the target.
    AuthUnsupported {
        /// The proxy's URL; empty if the session's own test request has met it.
        proxy: String,
        /// The schemes that the proxy offers, if it is named.
        schemes: Vec<String>,
    },
    /// The proxy refused the credentials. Close the connection; a new [`Auth`](crate::Auth) may have others to offer.
    CredentialsRefused {
        /// The proxy's URL.
        proxy: String,
        /// The schemes that the proxy offers.
        schemes: Vec<String>,
    },
    /// Any other status of the library. A failure of the system is 0x80070000 + its error code.
    Status {
        /// A `KIV_STATUS_` value of kiv/session.h.
        status: u32,
        /// The status as a text for people.
        text: String,
    },
}

impl Error {
    /// The error that a status stands for.
    pub(crate) fn of(library: &Functions, status: u32) -> Self {
        match status {
            status::TIMED_OUT => Self::TimedOut,
            status::CANCELLED => Self::Cancelled,
            status::CLOSED => Self::Closed,
            status::BAD_URL => Self::BadUrl,
            status::BAD_ARGUMENT => Self::BadArgument(text_of(library, status)),
            status::UNSUPPORTED => Self::Unsupported,
            _ => Self::Status { status, text: text_of(library, status) },
        }
    }

    /// Nothing, if the status is that all is well.
    pub(crate) fn check(library: &Functions, status: u32) -> Result<(), Self> {
        match status {
            status::OK => Ok(()),
            _ => Err(Self::of(library, status)),
        }
    }

    /// The system has no thread for the session.
    pub(crate) fn no_thread(error: &std::io::Error) -> Self {
        let status = error.raw_os_error().map_or(status::OUT_OF_MEMORY, |code| status::SYSTEM + (code as u32 & 0xFFFF));
        Self::Status { status, text: error.to_string() }
    }
}

/// The library's text for a status or a reason.
pub(crate) fn text_of(library: &Functions, status_or_reason: u32) -> String {
    // SAFETY: the text is static.
    unsafe { copied((library.KivStatus_Text)(status_or_reason)) }
}

impl fmt::Display for Error {
    fn fmt(&self, f: &mut fmt::Formatter<'_>) -> fmt::Result {
        match self {
            Self::Unsupported => write!(f, "kiv is not supported on this system"),
            Self::Library { path, problem } => write!(f, "cannot use {}: {problem}", path.display()),
            Self::TimedOut => write!(f, "the time-out passed"),
            Self::Cancelled => write!(f, "cancelled"),
            Self::Closed => write!(f, "the session is closed"),
            Self::BadUrl => write!(f, "the URL is not an absolute one of http, https, ws or wss"),
            Self::BadArgument(text) => write!(f, "bad argument: {text}"),
            Self::NoRoute { text, .. } => write!(f, "there is no route: {text}"),
            Self::AuthUnsupported { proxy, .. } if proxy.is_empty() => {
                write!(f, "proxy authentication unsupported: a proxy offers no scheme that can be answered")
            }
            Self::AuthUnsupported { proxy, schemes } => {
                write!(f, "proxy authentication unsupported: {proxy} offers {}", schemes.join(", "))
            }
            Self::CredentialsRefused { proxy, schemes } => {
                write!(f, "{proxy} refused the credentials (it offers {})", schemes.join(", "))
            }
            Self::Status { status, text } => write!(f, "{text} (status {status:#x})"),
        }
    }
}

impl std::error::Error for Error {}
