//! Authentication to proxies for clients that cannot do it themselves.

use crate::decision::Decision;
use crate::declarations::status;
use crate::error::Error;
use crate::handle::Handle;
use crate::session::Shared;
use crate::text::{copied, WideText};
use std::sync::Arc;
use std::time::{Duration, Instant};

/// The authentication of one connection to a proxy, with the session's credentials for it or, where
/// [`Builder::logged_on_user`](crate::Builder::logged_on_user) allows, the logged-on user's. It speaks Basic, NTLM and
/// Negotiate.
pub struct Auth {
    shared: Arc<Shared>,
    handle: Handle,
    proxy: String,
}

/// How often `next` looks whether a question has ended otherwise than by an answer.
const LOOK: Duration = Duration::from_secs(1);

impl Auth {
    pub(crate) fn new(shared: Arc<Shared>, decision: &Decision) -> Result<Self, Error> {
        let library = shared.library;
        let mut raw = std::ptr::null_mut();
        // SAFETY: session and decision live.
        let status = unsafe { (library.KivAuth_Create)(shared.raw(), decision.raw(), &mut raw) };
        let handle = Handle::new(raw, library.KivAuth_Release);
        Error::check(library, status)?;
        Ok(Self { shared, handle, proxy: decision.proxy_url() })
    }

    /// Returns the Proxy-Authorization header to send, on the same connection, in answer to the Proxy-Authenticate
    /// headers of a proxy's 407. Without any, it returns what can be sent before the first 407. While a challenge for
    /// credentials is open it waits for as long as `limit`; then it returns [`Error::TimedOut`], and can be called again.
    ///
    /// If nothing that the proxy offers can be answered, or nobody has credentials, that is
    /// [`Error::AuthUnsupported`]. If the proxy refused the credentials, it is [`Error::CredentialsRefused`].
    pub fn next(&mut self, proxy_authenticate: &[impl AsRef<str>], limit: Duration) -> Result<Option<String>, Error> {
        let library = self.shared.library;
        let offered: Vec<&str> = proxy_authenticate.iter().map(AsRef::as_ref).collect();
        let text = WideText::new(&offered.join("\n"))?;
        let began = Instant::now();
        loop {
            let ended = self.shared.questions.ended();
            let mut header = std::ptr::null();
            // SAFETY: nobody else uses the authentication now. The text lives; the header does until the next call.
            let (status, header) = unsafe {
                let status = (library.KivAuth_Next)(self.handle.raw(), text.as_ptr(), &mut header);
                (status, copied(header))
            };
            let (proxy, schemes) = (self.proxy.clone(), schemes_of(&offered));
            match status {
                status::AGAIN | status::DONE => return Ok(Some(header).filter(|header| !header.is_empty())),
                status::REJECTED => return Err(Error::CredentialsRefused { proxy, schemes }),
                status::UNSUPPORTED => return Err(Error::AuthUnsupported { proxy, schemes }),
                status::NOT_YET if self.shared.is_closed() => return Err(Error::Closed),
                status::NOT_YET => match limit.checked_sub(began.elapsed()) {
                    Some(left) if !left.is_zero() => self.shared.questions.wait(ended, left.min(LOOK)),
                    _ => return Err(Error::TimedOut),
                },
                _ => return Err(Error::of(library, status)),
            }
        }
    }
}

/// The first word of each header.
pub(crate) fn schemes_of(proxy_authenticate: &[&str]) -> Vec<String> {
    proxy_authenticate.iter().filter_map(|header| header.split_whitespace().next()).map(Into::into).collect()
}
