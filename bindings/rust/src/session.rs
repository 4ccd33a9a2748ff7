//! Sessions, and the thread that reads their events.

use crate::auth::Auth;
use crate::builder::Builder;
use crate::challenge::{ask, OnChallenge, Questions};
use crate::decision::Decision;
use crate::declarations::{event, status, Counter, Failure, Functions, LogLevel, NO_TIME_OUT};
use crate::error::Error;
use crate::handle::{lock, Handle};
use crate::resolve::{Resolve, Slot};
use crate::text::{copied, WideText};
use std::collections::HashMap;
use std::ffi::c_void;
use std::panic::{catch_unwind, AssertUnwindSafe};
use std::sync::atomic::{AtomicBool, AtomicUsize, Ordering};
use std::sync::{mpsc, Arc, Mutex};
use std::thread::{self, JoinHandle};
use std::time::Duration;

/// Remembers what it decided for each origin (scheme, host and port), follows changes of the user's settings and of the
/// network, remembers proxies that are dead, and keeps proxy credentials. Create one and keep it. All threads may use it
/// at once. Dropping it closes it, as [`Session::close`] does, but waits for nothing.
pub struct Session {
    shared: Arc<Shared>,
    reader: Mutex<Option<JoinHandle<()>>>,
}

/// What lives until nobody can call the library with the session any more.
pub(crate) struct Shared {
    pub library: &'static Functions,
    pub questions: Questions,
    pub on_challenge: Option<OnChallenge>,
    handle: Handle,
    closed: AtomicBool,
    waiting: Mutex<Waiting>,
}

#[derive(Default)]
struct Waiting {
    last_tag: u64,
    slots: HashMap<u64, Arc<Slot>>,
}

impl Shared {
    pub fn new(library: &'static Functions, handle: Handle, on_challenge: Option<OnChallenge>) -> Self {
        let (questions, closed, waiting) = Default::default();
        Self { library, questions, on_challenge, handle, closed, waiting }
    }

    /// The session, for a call that ends before this does.
    pub fn raw(&self) -> *mut c_void {
        self.handle.raw()
    }

    /// Whether the session was closed, and all that waited knows it.
    pub fn is_closed(&self) -> bool {
        self.closed.load(Ordering::SeqCst)
    }

    /// Makes a tag, whose completion goes to a slot.
    pub fn await_end(&self, slot: &Arc<Slot>) -> u64 {
        let mut waiting = lock(&self.waiting);
        waiting.last_tag += 1;
        let tag = waiting.last_tag;
        waiting.slots.insert(tag, Arc::clone(slot));
        tag
    }

    /// Gives up a tag, whose slot is returned.
    pub fn forsake(&self, tag: u64) -> Option<Arc<Slot>> {
        lock(&self.waiting).slots.remove(&tag)
    }
}

impl Session {
    /// Creates a session with default settings. `user_agent` is the User-Agent header of test requests.
    pub fn new(user_agent: &str) -> Result<Self, Error> {
        Self::builder(user_agent).build()
    }

    /// Sets how a session works, and then creates it.
    pub fn builder(user_agent: &str) -> Builder {
        Builder::new(user_agent)
    }

    /// Begins to read the events of a session.
    pub(crate) fn begin(shared: Shared, listeners: Listeners) -> Result<Self, Error> {
        // A session asks for credentials only if somebody has looked for events.
        shared.next_event(0);
        let shared = Arc::new(shared);
        let begin = |name: &str, body: Box<dyn FnOnce() + Send>| {
            thread::Builder::new().name(name.into()).spawn(body).map_err(|error| Error::no_thread(&error))
        };
        let mut teller = None;
        if listeners.changed.is_some() || listeners.log.is_some() {
            let (sender, receiver) = mpsc::channel();
            let lines = Arc::new(AtomicUsize::new(0));
            teller = Some(Teller { sender, lines: Arc::clone(&lines) });
            begin("kiv callbacks", Box::new(move || tell(&receiver, &lines, &listeners)))?;
        }
        let read = Arc::clone(&shared);
        let reader = begin("kiv events", Box::new(move || read_events(&read, teller)))?;
        Ok(Self { shared, reader: Mutex::new(Some(reader)) })
    }

    /// Ends all work: calls that wait return [`Error::Closed`], and open challenges are withdrawn. Decisions stay
    /// readable. When it has returned, the thread that reads the session's events has ended. Closing a closed session
    /// does nothing.
    pub fn close(&self) {
        self.end();
        let reader = lock(&self.reader).take();
        if let Some(reader) = reader.filter(|reader| reader.thread().id() != thread::current().id()) {
            // It does not panic.
            drop(reader.join());
        }
    }

    fn end(&self) {
        // SAFETY: the session lives.
        unsafe { (self.shared.library.KivSession_Close)(self.shared.raw()) }
    }

    /// Returns the kept decision for a URL's origin, and never blocks. If there is none, it begins a resolution and
    /// returns nothing.
    pub fn lookup(&self, url: &str) -> Result<Option<Decision>, Error> {
        let library = self.shared.library;
        let url = WideText::new(url)?;
        let mut raw = std::ptr::null_mut();
        // SAFETY: the session and the text live.
        let status = unsafe { (library.KivSession_Lookup)(self.shared.raw(), url.as_ptr(), &mut raw) };
        let decision = Handle::new(raw, library.KivDecision_Release);
        if status == status::NOT_YET {
            return Ok(None);
        }
        Error::check(library, status)?;
        Ok(Some(Decision::new(library, decision)))
    }

    /// Returns the kept decision for a URL's origin, or resolves it: a future, which can also be waited for. "There is
    /// no route" is a decision too; see [`Decision::route`]. Only scheme, host and port of the URL are used.
    pub fn resolve(&self, url: &str) -> Resolve {
        Resolve::new(Arc::clone(&self.shared), url)
    }

    /// Tells that a decision did not work. It is ignored unless the kept decision for its origin names the same route.
    pub fn report(&self, decision: &Decision, failure: Failure) -> Result<(), Error> {
        let library = self.shared.library;
        // SAFETY: session and decision live.
        let status = unsafe { (library.KivSession_ReportFailure)(self.shared.raw(), decision.raw(), failure as u32) };
        Error::check(library, status)
    }

    /// Begins the authentication of one connection to a decision's proxy.
    pub fn auth(&self, decision: &Decision) -> Result<Auth, Error> {
        Auth::new(Arc::clone(&self.shared), decision)
    }

    /// Forgets kept decisions and dead proxies. Credentials stay.
    pub fn forget(&self) {
        // SAFETY: the session lives.
        unsafe { (self.shared.library.KivSession_Forget)(self.shared.raw()) }
    }

    /// Forgets answers to challenges, refused credentials and declined questions.
    pub fn forget_credentials(&self) {
        // SAFETY: the session lives.
        unsafe { (self.shared.library.KivSession_ForgetCredentials)(self.shared.raw()) }
    }

    /// Returns a counter.
    pub fn counter(&self, counter: Counter) -> u64 {
        // SAFETY: the session lives.
        unsafe { (self.shared.library.KivSession_GetCounter)(self.shared.raw(), counter as u32) }
    }

    /// How many ends of resolutions are still to come.
    #[cfg(all(test, windows))]
    pub(crate) fn awaited(&self) -> usize {
        lock(&self.shared.waiting).slots.len()
    }
}

impl Drop for Session {
    fn drop(&mut self) {
        self.end();
    }
}

impl std::fmt::Debug for Session {
    fn fmt(&self, f: &mut std::fmt::Formatter<'_>) -> std::fmt::Result {
        f.debug_struct("Session").finish_non_exhaustive()
    }
}

impl Shared {
    fn next_event(&self, timeout: u32) -> (u32, Handle) {
        let mut raw = std::ptr::null_mut();
        // SAFETY: the session lives.
        let status = unsafe { (self.library.KivSession_Next)(self.raw(), timeout, &mut raw) };
        (status, Handle::new(raw, self.library.KivEvent_Release))
    }

    /// Passes on what belongs to resolutions and challenges.
    fn dispatch(self: &Arc<Self>, event: &Handle, teller: Option<&Teller>) {
        let (library, raw) = (self.library, event.raw());
        // SAFETY: the event lives, and so does its text. What it refers to is given once, to be released.
        unsafe {
            match (library.KivEvent_Kind)(raw) {
                event::COMPLETED => {
                    let decision = Handle::new((library.KivEvent_Decision)(raw), library.KivDecision_Release);
                    if let Some(slot) = self.forsake((library.KivEvent_Tag)(raw)) {
                        let status = (library.KivEvent_Status)(raw);
                        // An executor's code runs here. What it throws is its own.
                        drop(catch_unwind(AssertUnwindSafe(|| slot.complete(status, decision))));
                    }
                }
                event::CHALLENGE => {
                    ask(self, Handle::new((library.KivEvent_Challenge)(raw), library.KivChallenge_Release));
                }
                event::WITHDRAWN => {
                    let challenge = Handle::new((library.KivEvent_Challenge)(raw), library.KivChallenge_Release);
                    self.questions.withdraw(&challenge);
                }
                event::CHANGED => {
                    if let Some(teller) = teller {
                        teller.changed();
                    }
                }
                event::LOG => {
                    if let Some(teller) = teller {
                        let level = LogLevel::of((library.KivEvent_Status)(raw));
                        teller.line(level, copied((library.KivEvent_Text)(raw)));
                    }
                }
                _ => (),
            }
        }
    }
}

/// The only reader of a session's events: no thread of the library ever runs code of the program.
fn read_events(shared: &Arc<Shared>, teller: Option<Teller>) {
    loop {
        let (status, event) = shared.next_event(NO_TIME_OUT);
        match status {
            status::OK => shared.dispatch(&event, teller.as_ref()),
            status::CLOSED => break,
            // For want of memory, which may come back.
            _ => thread::sleep(Duration::from_millis(10)),
        }
    }
    shared.closed.store(true, Ordering::SeqCst);
    shared.questions.withdraw_all();
}

type OnLog = Box<dyn Fn(LogLevel, &str) + Send>;

/// What the program hears on a thread of its own, where it may call the session.
#[derive(Default)]
pub(crate) struct Listeners {
    pub changed: Option<Box<dyn Fn() + Send>>,
    pub log: Option<OnLog>,
}

enum Told {
    Changed,
    Line(LogLevel, String),
}

struct Teller {
    sender: mpsc::Sender<Told>,
    /// How many lines wait.
    lines: Arc<AtomicUsize>,
}

const MOST_LINES: usize = 1024;

impl Teller {
    fn changed(&self) {
        drop(self.sender.send(Told::Changed));
    }

    fn line(&self, level: LogLevel, text: String) {
        if self.lines.load(Ordering::SeqCst) < MOST_LINES {
            self.lines.fetch_add(1, Ordering::SeqCst);
            drop(self.sender.send(Told::Line(level, text)));
        }
    }
}

fn tell(told: &mpsc::Receiver<Told>, lines: &AtomicUsize, listeners: &Listeners) {
    for told in told {
        let call = || match told {
            Told::Changed => listeners.changed.iter().for_each(|changed| changed()),
            Told::Line(level, text) => {
                lines.fetch_sub(1, Ordering::SeqCst);
                listeners.log.iter().for_each(|log| log(level, &text));
            }
        };
        // A panic has been printed; the next call may do better.
        drop(catch_unwind(AssertUnwindSafe(call)));
    }
}
