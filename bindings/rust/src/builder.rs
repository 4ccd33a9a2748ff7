//! How a session works.

use crate::challenge::{Challenge, Credentials, OnChallenge};
use crate::declarations::{option, own_proxy, Direct, LogLevel, LoggedOnUser, Schemes, Test};
use crate::error::Error;
use crate::handle::Handle;
use crate::library;
use crate::session::{Listeners, Session, Shared};
use crate::text::{milliseconds, WideText};
use std::path::PathBuf;
use std::time::Duration;

/// Sets how a [`Session`] works, and creates it.
#[must_use]
pub struct Builder {
    user_agent: String,
    library: Option<PathBuf>,
    numbers: Vec<(u32, u32)>,
    texts: Vec<(u32, String)>,
    proxies: Vec<(u32, String, Option<Credentials>)>,
    on_challenge: Option<OnChallenge>,
    listeners: Listeners,
}

impl Builder {
    pub(crate) fn new(user_agent: &str) -> Self {
        let made = Self {
            user_agent: user_agent.into(),
            library: None,
            numbers: Vec::new(),
            texts: Vec::new(),
            proxies: Vec::new(),
            on_challenge: None,
            listeners: Listeners::default(),
        };
        made.schemes(Schemes::BASIC | Schemes::NTLM | Schemes::NEGOTIATE)
    }

    /// Creates the session, which works as the user whom the process belongs to, or whom the calling thread
    /// impersonates.
    pub fn build(self) -> Result<Session, Error> {
        let library = library::load(self.library.as_deref())?;
        let mut raw = std::ptr::null_mut();
        let user_agent = WideText::new(&self.user_agent)?;
        // SAFETY: both live during the call.
        let status = unsafe { (library.KivSession_Create)(user_agent.as_ptr(), &mut raw) };
        let handle = Handle::new(raw, library.KivSession_Destruct);
        Error::check(library, status)?;
        for (option, value) in self.numbers {
            // SAFETY: the session lives.
            Error::check(library, unsafe { (library.KivSession_SetNumber)(raw, option, value) })?;
        }
        for (option, text) in self.texts {
            let text = WideText::new(&text)?;
            // SAFETY: the session and the text live.
            Error::check(library, unsafe { (library.KivSession_SetText)(raw, option, text.as_ptr()) })?;
        }
        for (which, proxy, credentials) in self.proxies {
            let proxy = WideText::new(&proxy)?;
            let credentials = credentials.as_ref().map(Credentials::wide).transpose()?;
            let null = (std::ptr::null(), std::ptr::null());
            let (user, password) =
                credentials.as_ref().map_or(null, |(user, password)| (user.as_ptr(), password.as_ptr()));
            // SAFETY: the session and the texts live.
            Error::check(library, unsafe {
                (library.KivSession_SetProxy)(raw, which, proxy.as_ptr(), user, password)
            })?;
        }
        Session::begin(Shared::new(library, handle, self.on_challenge), self.listeners)
    }

    /// Names kiv-session.dll. By default it is the one beside the program. A path that is not absolute begins at the
    /// current folder.
    pub fn library(mut self, path: impl Into<PathBuf>) -> Self {
        self.library = Some(path.into());
        self
    }

    /// Sets what answers the challenges of proxies. It runs on a thread of its own for each, and may take as long as a
    /// user does. If it returns nothing, or panics, nobody is asked about that proxy again, until
    /// [`Session::forget_credentials`].
    pub fn on_challenge(mut self, ask: impl Fn(&Challenge) -> Option<Credentials> + Send + Sync + 'static) -> Self {
        self.on_challenge = Some(Box::new(ask));
        self
    }

    /// Sets what is told that settings or network have changed. Several changes may be told at once. It shares a thread
    /// with what receives log lines.
    pub fn on_changed(mut self, changed: impl Fn() + Send + 'static) -> Self {
        self.listeners.changed = Some(Box::new(changed));
        self
    }

    /// Sets what receives log lines up to a level. Lines that it is too slow for are lost.
    pub fn on_log(mut self, level: LogLevel, log: impl Fn(LogLevel, &str) + Send + 'static) -> Self {
        self.listeners.log = Some(Box::new(log));
        self.number(option::LOG_LEVEL, level as u32)
    }

    /// What decides that a candidate works. Default: [`Test::Reached`].
    pub fn test(self, policy: Test) -> Self {
        self.number(option::TEST, policy as u32)
    }

    /// Limits calls that name no time-out, and work that no caller limits. Default: 30 s.
    pub fn timeout(self, limit: Duration) -> Self {
        self.number(option::TIME_OUT, milliseconds(limit))
    }

    /// Limits reading settings and running PAC scripts. Default: 10 s.
    pub fn discovery_timeout(self, limit: Duration) -> Self {
        self.number(option::DISCOVERY_TIME_OUT, milliseconds(limit))
    }

    /// Limits connecting to a proxy or target. Default: 5 s.
    pub fn connect_timeout(self, limit: Duration) -> Self {
        self.number(option::CONNECT_TIME_OUT, milliseconds(limit))
    }

    /// Limits waiting for an answer on an open connection. Default: 15 s.
    pub fn answer_timeout(self, limit: Duration) -> Self {
        self.number(option::ANSWER_TIME_OUT, milliseconds(limit))
    }

    /// How long a decision is kept. Default: 5 min.
    pub fn kept_time(self, kept: Duration) -> Self {
        self.number(option::KEPT_TIME, milliseconds(kept))
    }

    /// How long a decision past its time is still the answer while one refresh runs. Default: 5 min.
    pub fn past_time(self, kept: Duration) -> Self {
        self.number(option::PAST_TIME, milliseconds(kept))
    }

    /// How long "no route" and other makeshift decisions are kept. Default: 10 s.
    pub fn failure_time(self, kept: Duration) -> Self {
        self.number(option::FAILURE_TIME, milliseconds(kept))
    }

    /// How long a dead proxy is tried last. Default: 5 min.
    pub fn dead_time(self, kept: Duration) -> Self {
        self.number(option::DEAD_TIME, milliseconds(kept))
    }

    /// How many origins' decisions are kept: 1 to 10,000. Default: 1,024.
    pub fn origins(self, count: u32) -> Self {
        self.number(option::ORIGINS, count)
    }

    /// How many candidates are attempted: 1 to 32. Default: 32.
    pub fn candidates(self, count: u32) -> Self {
        self.number(option::CANDIDATES, count)
    }

    /// What becomes of direct connections. Default: [`Direct::Settings`].
    pub fn direct(self, policy: Direct) -> Self {
        self.number(option::DIRECT, policy as u32)
    }

    /// Who may receive the logged-on user's credentials. Default: [`LoggedOnUser::System`].
    pub fn logged_on_user(self, policy: LoggedOnUser) -> Self {
        self.number(option::LOGGED_ON_USER, policy as u32)
    }

    /// The authentication schemes that the program's client speaks to proxies. A proxy that offers none of them is no
    /// answer, and nobody is asked for its password. Default: Basic, NTLM and Negotiate, which [`Auth`](crate::Auth)
    /// speaks.
    pub fn schemes(self, schemes: Schemes) -> Self {
        self.number(option::SCHEMES, schemes.0)
    }

    /// Candidates that are never used: `[scheme://]host[:port]` with `*` in scheme or host, separated by `;`. Name what
    /// the program's client does not speak, such as `socks4://*;socks5://*`.
    pub fn leave_out(self, candidates: &str) -> Self {
        self.text(option::LEFT_OUT, candidates)
    }

    /// Replaces the settings' bypass list.
    pub fn bypass_list(self, list: &str) -> Self {
        self.text(option::BYPASS_LIST, list)
    }

    /// An own candidate in front of the settings': `[scheme://]host[:port]`, without credentials in it.
    pub fn preferred(self, proxy: &str, credentials: Option<Credentials>) -> Self {
        self.own_proxy(own_proxy::PREFERRED, proxy, credentials)
    }

    /// An own candidate behind the settings'; see [`Builder::preferred`].
    pub fn fallback(self, proxy: &str, credentials: Option<Credentials>) -> Self {
        self.own_proxy(own_proxy::FALLBACK, proxy, credentials)
    }

    fn number(mut self, option: u32, value: u32) -> Self {
        self.numbers.push((option, value));
        self
    }

    fn text(mut self, option: u32, value: &str) -> Self {
        self.texts.push((option, value.into()));
        self
    }

    fn own_proxy(mut self, which: u32, proxy: &str, credentials: Option<Credentials>) -> Self {
        self.proxies.push((which, proxy.into(), credentials));
        self
    }
}
