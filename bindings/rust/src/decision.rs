//! How to connect to one origin.

use crate::challenge::Credentials;
use crate::declarations::{kind, status, Functions, Reason, Schemes};
use crate::error::{text_of, Error};
use crate::handle::Handle;
use crate::text::copied;
use std::ffi::c_void;
use std::fmt;
use std::sync::Arc;
use std::time::Duration;

/// How to connect to one origin (scheme, host and port). Never changes, and stays readable when the session has closed.
#[derive(Clone)]
pub struct Decision {
    library: &'static Functions,
    handle: Arc<Handle>,
}

/// How a client connects.
#[derive(Clone, Debug, PartialEq, Eq)]
pub enum Route {
    /// Directly.
    Direct,
    /// Through this proxy.
    Proxy(Proxy),
}

/// A proxy.
#[derive(Clone, Debug, PartialEq, Eq)]
pub struct Proxy {
    /// `scheme://host:port`, without credentials.
    pub url: String,
    /// "http", "https", "socks4" or "socks5".
    pub scheme: String,
    /// The host; an IPv6 address is without brackets.
    pub host: String,
    /// The port.
    pub port: u16,
}

impl Decision {
    pub(crate) fn new(library: &'static Functions, handle: Handle) -> Self {
        Self { library, handle: Arc::new(handle) }
    }

    /// For a call that ends before this decision does.
    pub(crate) fn raw(&self) -> *mut c_void {
        self.handle.raw()
    }

    /// The route for any client; otherwise [`Error::NoRoute`], or [`Error::AuthUnsupported`] if all that is missing is a
    /// scheme of [`Builder::schemes`](crate::Builder::schemes).
    pub fn route(&self) -> Result<Route, Error> {
        let (library, raw) = (self.library, self.raw());
        // SAFETY: the decision lives, and so do its texts.
        unsafe {
            match (library.KivDecision_Kind)(raw) {
                kind::DIRECT => Ok(Route::Direct),
                kind::PROXY => Ok(Route::Proxy(Proxy {
                    url: self.proxy_url(),
                    scheme: copied((library.KivDecision_Scheme)(raw)),
                    host: copied((library.KivDecision_Host)(raw)),
                    port: (library.KivDecision_Port)(raw) as u16,
                })),
                _ if self.reason() == Reason::SCHEME_UNSUPPORTED => {
                    Err(Error::AuthUnsupported { proxy: String::new(), schemes: Vec::new() })
                }
                _ => Err(Error::NoRoute { reason: self.reason(), text: text_of(library, self.reason().0) }),
            }
        }
    }

    /// Empty unless the route is a proxy.
    pub(crate) fn proxy_url(&self) -> String {
        // SAFETY: the decision lives, and so does its text.
        unsafe { copied((self.library.KivDecision_ProxyUrl)(self.raw())) }
    }

    /// Why the decision is what it is.
    pub fn reason(&self) -> Reason {
        // SAFETY: the decision lives.
        Reason(unsafe { (self.library.KivDecision_Reason)(self.raw()) })
    }

    /// The scheme with which the session's credentials let the test request pass; nothing if none were sent.
    pub fn auth_scheme(&self) -> Option<Schemes> {
        // SAFETY: the decision lives.
        match unsafe { (self.library.KivDecision_AuthScheme)(self.raw()) } {
            0 => None,
            scheme => Some(Schemes(scheme)),
        }
    }

    /// How long ago the decision was made, counting time in which the computer slept.
    pub fn age(&self) -> Duration {
        // SAFETY: the decision lives.
        Duration::from_millis(unsafe { (self.library.KivDecision_Age)(self.raw()) })
    }

    /// The session's credentials for the proxy, for a client that authenticates by itself; nothing if it has none.
    pub fn credentials(&self) -> Result<Option<Credentials>, Error> {
        let mut found: Option<Credentials> = None;
        let context: *mut Option<Credentials> = &mut found;
        // SAFETY: `receive` is called before this function returns, with this context.
        let status = unsafe { (self.library.KivDecision_Credentials)(self.raw(), context.cast(), receive) };
        match status {
            status::NOT_YET => Ok(None),
            _ => Error::check(self.library, status).map(|()| found),
        }
    }
}

/// Copies credentials to `context`, an `Option<Credentials>`.
unsafe extern "C" fn receive(context: *mut c_void, user: *const u16, password: *const u16) {
    // SAFETY: it is what `credentials` has handed over, and the texts live during this call.
    unsafe { *context.cast() = Some(Credentials::new(copied(user), copied(password))) }
}

/// The proxy's URL, DIRECT, or NONE.
impl fmt::Display for Decision {
    fn fmt(&self, f: &mut fmt::Formatter<'_>) -> fmt::Result {
        f.write_str(match &self.route() {
            Ok(Route::Proxy(proxy)) => &proxy.url,
            Ok(Route::Direct) => "DIRECT",
            Err(_) => "NONE",
        })
    }
}

impl fmt::Debug for Decision {
    fn fmt(&self, f: &mut fmt::Formatter<'_>) -> fmt::Result {
        write!(f, "Decision({self}, {:?})", self.reason())
    }
}
