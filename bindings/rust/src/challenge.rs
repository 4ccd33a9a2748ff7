//! A proxy's question for a user name and a password.

use crate::declarations::Schemes;
use crate::error::Error;
use crate::handle::{lock, Handle};
use crate::session::Shared;
use crate::text::{copied, wipe, WideText};
use std::fmt;
use std::sync::{Arc, Condvar, Mutex};
use std::thread;
use std::time::Duration;

/// A user name and a password, which is wiped when it is dropped.
#[derive(Clone, PartialEq, Eq)]
pub struct Credentials {
    user: String,
    password: String,
}

impl Credentials {
    /// Takes over both texts.
    pub fn new(user: impl Into<String>, password: impl Into<String>) -> Self {
        Self { user: user.into(), password: password.into() }
    }

    /// The user name.
    pub fn user(&self) -> &str {
        &self.user
    }

    /// The password, in clear.
    pub fn password(&self) -> &str {
        &self.password
    }

    /// Both as the library takes them.
    pub(crate) fn wide(&self) -> Result<(WideText, WideText), Error> {
        Ok((WideText::new(&self.user)?, WideText::new(&self.password)?))
    }
}

impl Drop for Credentials {
    fn drop(&mut self) {
        let mut bytes = std::mem::take(&mut self.password).into_bytes();
        wipe(&mut bytes, 0);
    }
}

impl fmt::Debug for Credentials {
    fn fmt(&self, f: &mut fmt::Formatter<'_>) -> fmt::Result {
        f.debug_struct("Credentials").field("user", &self.user).finish_non_exhaustive()
    }
}

/// A proxy's question for a user name and a password; see [`Builder::on_challenge`](crate::Builder::on_challenge).
#[derive(Debug)]
pub struct Challenge {
    /// The proxy, as `scheme://host:port`.
    pub proxy: String,
    /// What an answer would be used with.
    pub scheme: Schemes,
    /// The proxy's own text, at most 1,024 characters: show it as such.
    pub realm: String,
    /// 1 for the first question about this proxy, 2 when the first answer was refused.
    pub attempt: u32,
    withdrawal: Arc<Withdrawal>,
}

impl Challenge {
    /// Waits until an answer is no longer wanted, so that a dialog can close. Returns false if `limit` passes first.
    pub fn withdrawn(&self, limit: Duration) -> bool {
        let told = lock(&self.withdrawal.told);
        let (told, _) =
            self.withdrawal.change.wait_timeout_while(told, limit, |told| !*told).unwrap_or_else(|e| e.into_inner());
        *told
    }
}

/// Answers challenges.
pub(crate) type OnChallenge = Box<dyn Fn(&Challenge) -> Option<Credentials> + Send + Sync>;

/// Whether a challenge was withdrawn.
#[derive(Debug, Default)]
struct Withdrawal {
    told: Mutex<bool>,
    change: Condvar,
}

/// The questions that the program has not answered yet.
#[derive(Default)]
pub(crate) struct Questions {
    state: Mutex<State>,
    change: Condvar,
}

#[derive(Default)]
struct State {
    /// By the address of the library's object, which both events about a challenge name.
    open: Vec<(usize, Arc<Withdrawal>)>,
    ended: u64,
}

impl Questions {
    /// How many questions have ended.
    pub fn ended(&self) -> u64 {
        lock(&self.state).ended
    }

    /// Waits until more than `before` have ended, or the limit passes.
    pub fn wait(&self, before: u64, limit: Duration) {
        let state = lock(&self.state);
        drop(self.change.wait_timeout_while(state, limit, |state| state.ended == before));
    }

    /// Tells the program that an answer is no longer wanted.
    pub fn withdraw(&self, challenge: &Handle) {
        self.withdraw_those(|address| address == challenge.raw() as usize);
    }

    /// Tells it of all questions: the session was closed.
    pub fn withdraw_all(&self) {
        self.withdraw_those(|_| true);
    }

    fn withdraw_those(&self, chosen: impl Fn(usize) -> bool) {
        let mut state = lock(&self.state);
        for (_, withdrawal) in state.open.iter().filter(|(address, _)| chosen(*address)) {
            *lock(&withdrawal.told) = true;
            withdrawal.change.notify_all();
        }
        state.ended += 1;
        self.change.notify_all();
    }
}

/// A question to be asked on a thread of its own. However that ends, one without an answer is declined.
struct Question {
    shared: Arc<Shared>,
    handle: Handle,
}

/// Lets the program answer a challenge.
pub(crate) fn ask(shared: &Arc<Shared>, handle: Handle) {
    let withdrawal = Arc::new(Withdrawal::default());
    lock(&shared.questions.state).open.push((handle.raw() as usize, Arc::clone(&withdrawal)));
    let (library, raw) = (shared.library, handle.raw());
    // SAFETY: the challenge lives, and so do its texts.
    let challenge = unsafe {
        Challenge {
            proxy: copied((library.KivChallenge_Proxy)(raw)),
            scheme: Schemes((library.KivChallenge_Scheme)(raw)),
            realm: copied((library.KivChallenge_Realm)(raw)),
            attempt: (library.KivChallenge_Attempt)(raw),
            withdrawal,
        }
    };
    let question = Question { shared: Arc::clone(shared), handle };
    if shared.on_challenge.is_some() {
        // Without a thread the question is dropped, and so declined.
        drop(thread::Builder::new().name("kiv challenge".into()).spawn(move || question.ask(&challenge)));
    }
}

impl Question {
    /// A panic of the program's ends this thread, and so declines.
    fn ask(self, challenge: &Challenge) {
        let answer = self.shared.on_challenge.as_ref().and_then(|ask| ask(challenge));
        // What cannot be an answer, such as an empty user name, declines.
        if let Some(Ok((user, password))) = answer.as_ref().map(Credentials::wide) {
            // SAFETY: the challenge and the texts live.
            unsafe {
                (self.shared.library.KivChallenge_Answer)(self.handle.raw(), user.as_ptr(), password.as_ptr());
            }
        }
    }
}

impl Drop for Question {
    fn drop(&mut self) {
        // SAFETY: the challenge lives. One that was answered cannot be declined.
        unsafe { (self.shared.library.KivChallenge_Decline)(self.handle.raw()) };
        let mut state = lock(&self.shared.questions.state);
        state.open.retain(|(address, _)| *address != self.handle.raw() as usize);
        state.ended += 1;
        self.shared.questions.change.notify_all();
    }
}
