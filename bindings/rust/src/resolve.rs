//! One call of a session that takes a while.

use crate::decision::Decision;
use crate::declarations::{status, Functions};
use crate::error::Error;
use crate::handle::{lock, Handle};
use crate::session::Shared;
use crate::text::{time_out, WideText};
use std::future::Future;
use std::pin::Pin;
use std::sync::{Arc, Condvar, Mutex};
use std::task::{Context, Poll, Waker};
use std::time::Duration;

/// A resolution of one URL, a future. It begins when it is first polled, or by [`Resolve::wait`]. Dropping it ends the
/// work, unless others wait for it.
#[must_use = "nothing begins before it is awaited, or waited for"]
pub struct Resolve {
    shared: Arc<Shared>,
    url: String,
    limit: Option<Duration>,
    begun: bool,
    slot: Arc<Slot>,
}

/// Where the end of a resolution is told.
#[derive(Default)]
pub(crate) struct Slot {
    state: Mutex<State>,
    ended: Condvar,
}

#[derive(Default)]
struct State {
    cancelled: bool,
    /// While the resolution runs.
    request: Option<Request>,
    waker: Option<Waker>,
    end: Option<(u32, Handle)>,
}

struct Request {
    library: &'static Functions,
    handle: Handle,
}

impl Request {
    fn cancel(&self) {
        // SAFETY: the request lives.
        unsafe { (self.library.KivRequest_Cancel)(self.handle.raw()) }
    }
}

impl Slot {
    /// Takes the end of the resolution, and wakes who waits for it.
    pub fn complete(&self, status: u32, decision: Handle) {
        let (request, waker) = {
            let mut state = lock(&self.state);
            state.end = Some((status, decision));
            (state.request.take(), state.waker.take())
        };
        drop(request);
        self.ended.notify_all();
        if let Some(waker) = waker {
            waker.wake();
        }
    }

    fn cancel(&self) {
        let mut state = lock(&self.state);
        state.cancelled = true;
        if let Some(request) = &state.request {
            request.cancel();
        }
    }
}

/// Ends a [`Resolve`] from elsewhere, with [`Error::Cancelled`].
#[derive(Clone)]
pub struct Canceller(Arc<Slot>);

impl Canceller {
    /// Ends the resolution at once, unless it has ended; one that has not begun will not.
    pub fn cancel(&self) {
        self.0.cancel();
    }
}

impl Resolve {
    pub(crate) fn new(shared: Arc<Shared>, url: &str) -> Self {
        Self { shared, url: url.into(), limit: None, begun: false, slot: Arc::default() }
    }

    /// Limits the resolution. The default is the session's; see [`Builder::timeout`](crate::Builder::timeout).
    pub fn timeout(mut self, limit: Duration) -> Self {
        self.limit = Some(limit);
        self
    }

    /// Returns what ends the resolution from another thread.
    pub fn canceller(&self) -> Canceller {
        Canceller(Arc::clone(&self.slot))
    }

    /// Blocks until there is a decision.
    pub fn wait(mut self) -> Result<Decision, Error> {
        self.begin()?;
        let mut state = lock(&self.slot.state);
        loop {
            if let Some(end) = state.end.take() {
                return self.decided(end);
            }
            state = self.slot.ended.wait(state).unwrap_or_else(|e| e.into_inner());
        }
    }

    fn begin(&mut self) -> Result<(), Error> {
        if std::mem::replace(&mut self.begun, true) {
            return Ok(());
        }
        if lock(&self.slot.state).cancelled {
            return Err(Error::Cancelled);
        }
        let url = WideText::new(&self.url)?;
        let library = self.shared.library;
        let tag = self.shared.await_end(&self.slot);
        let mut raw = std::ptr::null_mut();
        // SAFETY: the session and the text live during the call.
        let status = unsafe {
            let null = std::ptr::null();
            (library.KivSession_Start)(self.shared.raw(), url.as_ptr(), time_out(self.limit), tag, null, &mut raw)
        };
        let request = Request { library, handle: Handle::new(raw, library.KivRequest_Release) };
        if status != status::OK {
            self.shared.forsake(tag);
            return Err(Error::of(library, status));
        }
        let mut state = lock(&self.slot.state);
        if state.cancelled {
            request.cancel();
        }
        if state.end.is_none() {
            state.request = Some(request);
        }
        Ok(())
    }

    fn decided(&self, (status, decision): (u32, Handle)) -> Result<Decision, Error> {
        Error::check(self.shared.library, status)?;
        Ok(Decision::new(self.shared.library, decision))
    }
}

impl Future for Resolve {
    type Output = Result<Decision, Error>;

    fn poll(mut self: Pin<&mut Self>, context: &mut Context<'_>) -> Poll<Self::Output> {
        self.begin()?;
        let mut state = lock(&self.slot.state);
        match state.end.take() {
            Some(end) => Poll::Ready(self.decided(end)),
            None => {
                let former = state.waker.replace(context.waker().clone());
                drop(state);
                // What an executor does with it must find the lock free.
                drop(former);
                Poll::Pending
            }
        }
    }
}

impl Drop for Resolve {
    fn drop(&mut self) {
        let waker = lock(&self.slot.state).waker.take();
        drop(waker);
        self.slot.cancel();
    }
}
