//! What include/kiv/session.h declares. bindings/check_declarations.py compares this file with that header: each value
//! stands in a line that ends with its name there, and each function with its parameters.

use std::ffi::c_void;
use std::ops::BitOr;

pub(crate) const NO_TIME_OUT: u32 = 0xFFFFFFFF; // KIV_NO_TIME_OUT

pub(crate) mod status {
    pub const OK: u32 = 0; // KIV_STATUS_OK
    pub const TIMED_OUT: u32 = 1; // KIV_STATUS_TIMED_OUT
    pub const CANCELLED: u32 = 2; // KIV_STATUS_CANCELLED
    pub const BAD_ARGUMENT: u32 = 3; // KIV_STATUS_BAD_ARGUMENT
    pub const BAD_URL: u32 = 4; // KIV_STATUS_BAD_URL
    pub const UNSUPPORTED: u32 = 7; // KIV_STATUS_UNSUPPORTED
    pub const OUT_OF_MEMORY: u32 = 8; // KIV_STATUS_OUT_OF_MEMORY
    pub const CLOSED: u32 = 9; // KIV_STATUS_CLOSED
    pub const NOT_YET: u32 = 10; // KIV_STATUS_NOT_YET
    pub const AGAIN: u32 = 11; // KIV_STATUS_AGAIN
    pub const DONE: u32 = 12; // KIV_STATUS_DONE
    pub const REJECTED: u32 = 13; // KIV_STATUS_REJECTED
    pub const SYSTEM: u32 = 0x80070000; // KIV_STATUS_SYSTEM
}

pub(crate) mod kind {
    pub const DIRECT: u32 = 1; // KIV_KIND_DIRECT
    pub const PROXY: u32 = 2; // KIV_KIND_PROXY
}

pub(crate) mod option {
    pub const TEST: u32 = 1; // KIV_OPTION_TEST
    pub const TIME_OUT: u32 = 2; // KIV_OPTION_TIME_OUT
    pub const DISCOVERY_TIME_OUT: u32 = 3; // KIV_OPTION_DISCOVERY_TIME_OUT
    pub const CONNECT_TIME_OUT: u32 = 4; // KIV_OPTION_CONNECT_TIME_OUT
    pub const ANSWER_TIME_OUT: u32 = 5; // KIV_OPTION_ANSWER_TIME_OUT
    pub const KEPT_TIME: u32 = 6; // KIV_OPTION_KEPT_TIME
    pub const PAST_TIME: u32 = 7; // KIV_OPTION_PAST_TIME
    pub const FAILURE_TIME: u32 = 8; // KIV_OPTION_FAILURE_TIME
    pub const DEAD_TIME: u32 = 9; // KIV_OPTION_DEAD_TIME
    pub const ORIGINS: u32 = 10; // KIV_OPTION_ORIGINS
    pub const CANDIDATES: u32 = 11; // KIV_OPTION_CANDIDATES
    pub const DIRECT: u32 = 12; // KIV_OPTION_DIRECT
    pub const LOGGED_ON_USER: u32 = 13; // KIV_OPTION_LOGGED_ON_USER
    pub const SCHEMES: u32 = 14; // KIV_OPTION_SCHEMES
    pub const LOG_LEVEL: u32 = 15; // KIV_OPTION_LOG_LEVEL
    pub const LEFT_OUT: u32 = 64; // KIV_OPTION_LEFT_OUT
    pub const BYPASS_LIST: u32 = 65; // KIV_OPTION_BYPASS_LIST
}

pub(crate) mod own_proxy {
    pub const PREFERRED: u32 = 1; // KIV_PROXY_PREFERRED
    pub const FALLBACK: u32 = 2; // KIV_PROXY_FALLBACK
}

pub(crate) mod event {
    pub const COMPLETED: u32 = 1; // KIV_EVENT_COMPLETED
    pub const CHALLENGE: u32 = 2; // KIV_EVENT_CHALLENGE
    pub const WITHDRAWN: u32 = 3; // KIV_EVENT_WITHDRAWN
    pub const CHANGED: u32 = 4; // KIV_EVENT_CHANGED
    pub const LOG: u32 = 5; // KIV_EVENT_LOG
}

/// Why a [`Decision`](crate::Decision) is what it is. Later versions of the DLL may have more reasons.
#[derive(Clone, Copy, Debug, PartialEq, Eq, Hash)]
pub struct Reason(pub u32);

impl Reason {
    /// The bypass list names the target. Direct, untested.
    pub const BYPASSED: Self = Self(0x101); // KIV_REASON_BYPASSED
    /// The test request reached the target.
    pub const REACHED: Self = Self(0x102); // KIV_REASON_REACHED
    /// A connection could be made; nothing more was tested.
    pub const CONNECTED: Self = Self(0x103); // KIV_REASON_CONNECTED
    /// The first candidate, untested.
    pub const NOT_TESTED: Self = Self(0x104); // KIV_REASON_NOT_TESTED
    /// Nothing better was found than a proxy that answered 502, 503, 504 or a redirect to another host.
    pub const MAKESHIFT: Self = Self(0x105); // KIV_REASON_MAKESHIFT
    /// No route: there is no candidate.
    pub const NO_CANDIDATE: Self = Self(0x111); // KIV_REASON_NO_CANDIDATE
    /// No route: no candidate works.
    pub const NOTHING_WORKS: Self = Self(0x112); // KIV_REASON_NOTHING_WORKS
    /// No route: a proxy wants credentials that the session does not have.
    pub const CREDENTIALS_WANTED: Self = Self(0x113); // KIV_REASON_CREDENTIALS_WANTED
    /// No route: a proxy offers no authentication scheme that can be used.
    pub const SCHEME_UNSUPPORTED: Self = Self(0x114); // KIV_REASON_SCHEME_UNSUPPORTED
}

/// Authentication schemes of proxies: one, or several joined by `|`.
#[derive(Clone, Copy, Debug, PartialEq, Eq, Hash)]
pub struct Schemes(pub u32);

impl Schemes {
    /// Basic: the password crosses the wire as good as in clear.
    pub const BASIC: Self = Self(0x1); // KIV_SCHEME_BASIC
    /// NTLM.
    pub const NTLM: Self = Self(0x2); // KIV_SCHEME_NTLM
    /// Digest, which [`Auth`](crate::Auth) does not speak.
    pub const DIGEST: Self = Self(0x8); // KIV_SCHEME_DIGEST
    /// Negotiate: Kerberos, or NTLM where there is none.
    pub const NEGOTIATE: Self = Self(0x10); // KIV_SCHEME_NEGOTIATE
}

impl BitOr for Schemes {
    type Output = Self;

    fn bitor(self, other: Self) -> Self {
        Self(self.0 | other.0)
    }
}

/// What [`Session::report`](crate::Session::report) tells of a decision.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
#[repr(u32)]
pub enum Failure {
    /// No connection to the proxy could be made. It is tried last for a while.
    ProxyUnreachable = 1, // KIV_FAILURE_PROXY_UNREACHABLE
    /// The proxy refused the session's credentials. They are never sent to it again.
    ProxyCredentials = 2, // KIV_FAILURE_PROXY_CREDENTIALS
    /// The target could not be reached. The origin's decision is dropped.
    Target = 3, // KIV_FAILURE_TARGET
}

/// What [`Session::counter`](crate::Session::counter) counts, since the session was created or, where it says so, now.
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
#[repr(u32)]
pub enum Counter {
    /// Resolutions begun; a refresh is one.
    Resolutions = 1, // KIV_COUNTER_RESOLUTIONS
    /// Answers from kept decisions.
    KeptAnswers = 2, // KIV_COUNTER_KEPT_ANSWERS
    /// Origins with a kept decision, now.
    KeptOrigins = 3, // KIV_COUNTER_KEPT_ORIGINS
    /// Callers that wait, and completions that were not read, now.
    Waiting = 4, // KIV_COUNTER_WAITING
    /// Discoveries begun.
    Discoveries = 5, // KIV_COUNTER_DISCOVERIES
    /// Discoveries that are overdue and have not ended yet, now.
    OverdueDiscoveries = 6, // KIV_COUNTER_OVERDUE_DISCOVERIES
    /// Test requests sent.
    TestRequests = 7, // KIV_COUNTER_TEST_REQUESTS
    /// Connections begun by the session itself.
    Connections = 8, // KIV_COUNTER_CONNECTIONS
    /// Challenges handed to the program.
    Challenges = 9, // KIV_COUNTER_CHALLENGES
    /// Changes of settings or network.
    Changes = 10, // KIV_COUNTER_CHANGES
    /// Log lines lost because too many waited.
    LostLogLines = 11, // KIV_COUNTER_LOST_LOG_LINES
}

/// What decides that a candidate works; see [`Builder::test`](crate::Builder::test).
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
#[repr(u32)]
pub enum Test {
    /// The first candidate is the answer, untested.
    None = 0, // KIV_TEST_NONE
    /// A connection to the candidate can be made.
    Connect = 1, // KIV_TEST_CONNECT
    /// A HEAD request for the origin's root reaches the origin. This is the default.
    Reached = 2, // KIV_TEST_REACHED
}

/// What becomes of direct connections; see [`Builder::direct`](crate::Builder::direct).
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
#[repr(u32)]
pub enum Direct {
    /// They stand where the settings name them. This is the default.
    Settings = 0, // KIV_DIRECT_SETTINGS
    /// The direct connection is always the last candidate, and only the last.
    LastResort = 1, // KIV_DIRECT_LAST_RESORT
    /// Never, but for targets in the bypass list.
    Never = 2, // KIV_DIRECT_NEVER
}

/// Who may receive the logged-on user's credentials; see [`Builder::logged_on_user`](crate::Builder::logged_on_user).
#[derive(Clone, Copy, Debug, PartialEq, Eq)]
#[repr(u32)]
pub enum LoggedOnUser {
    /// Nobody.
    Never = 0, // KIV_LOGGED_ON_USER_NEVER
    /// Whom the system's default allows. This is the default.
    System = 1, // KIV_LOGGED_ON_USER_SYSTEM
    /// Proxies.
    Proxies = 2, // KIV_LOGGED_ON_USER_PROXIES
}

/// How important a log line is.
#[derive(Clone, Copy, Debug, PartialEq, Eq, PartialOrd, Ord)]
#[repr(u32)]
pub enum LogLevel {
    /// A failure.
    Error = 1, // KIV_LOG_LEVEL_ERROR
    /// Something is not as it should be.
    Warn = 2, // KIV_LOG_LEVEL_WARN
    /// The begin or the end of a resolution.
    Info = 3, // KIV_LOG_LEVEL_INFO
    /// A step of a resolution.
    Debug = 4, // KIV_LOG_LEVEL_DEBUG
}

impl LogLevel {
    pub(crate) fn of(number: u32) -> Self {
        [Self::Error, Self::Warn, Self::Info].into_iter().find(|&level| level as u32 == number).unwrap_or(Self::Debug)
    }
}

pub(crate) type CredentialSink = unsafe extern "C" fn(*mut c_void, *const u16, *const u16);

/// Makes a structure with the address of each function, which has the function's name in the header.
macro_rules! functions {
    ($(fn $name:ident($($parameter:ident: $type:ty),*) $(-> $result:ty)?;)*) => {
        #[allow(non_snake_case)]
        pub(crate) struct Functions {
            $(pub $name: unsafe extern "C" fn($($parameter: $type),*) $(-> $result)?,)*
        }

        impl Functions {
            /// # Safety
            /// `address` returns the addresses of functions that are as the header declares them. The names that it is
            /// given end with NUL.
            #[cfg(windows)]
            pub unsafe fn find<E>(address: impl Fn(&'static str) -> Result<*const c_void, E>) -> Result<Self, E> {
                Ok(Self {
                    $($name: {
                        let found = address(concat!(stringify!($name), "\0"))?;
                        // SAFETY: as the caller promises.
                        unsafe { std::mem::transmute(found) }
                    },)*
                })
            }
        }
    };
}

functions! {
    fn KivStatus_Text(status_or_reason: u32) -> *const u16;
    fn KivSession_Create(user_agent: *const u16, session: *mut *mut c_void) -> u32;
    fn KivSession_Close(session: *mut c_void);
    fn KivSession_Destruct(session: *mut c_void);
    fn KivSession_SetNumber(session: *mut c_void, option: u32, value: u32) -> u32;
    fn KivSession_SetText(session: *mut c_void, option: u32, text: *const u16) -> u32;
    fn KivSession_SetProxy(session: *mut c_void, which: u32, text: *const u16, user: *const u16, password: *const u16) -> u32;
    fn KivSession_Lookup(session: *mut c_void, url: *const u16, decision: *mut *mut c_void) -> u32;
    fn KivSession_Start(session: *mut c_void, url: *const u16, timeout: u32, tag: u64, done: *const c_void, request: *mut *mut c_void) -> u32;
    fn KivSession_ReportFailure(session: *mut c_void, decision: *mut c_void, reason: u32) -> u32;
    fn KivSession_Forget(session: *mut c_void);
    fn KivSession_ForgetCredentials(session: *mut c_void);
    fn KivSession_GetCounter(session: *mut c_void, counter: u32) -> u64;
    fn KivSession_Next(session: *mut c_void, timeout: u32, event: *mut *mut c_void) -> u32;
    fn KivRequest_Cancel(request: *mut c_void);
    fn KivRequest_Release(request: *mut c_void);
    fn KivDecision_Kind(decision: *const c_void) -> u32;
    fn KivDecision_Scheme(decision: *const c_void) -> *const u16;
    fn KivDecision_Host(decision: *const c_void) -> *const u16;
    fn KivDecision_Port(decision: *const c_void) -> u32;
    fn KivDecision_ProxyUrl(decision: *const c_void) -> *const u16;
    fn KivDecision_AuthScheme(decision: *const c_void) -> u32;
    fn KivDecision_Age(decision: *const c_void) -> u64;
    fn KivDecision_Reason(decision: *const c_void) -> u32;
    fn KivDecision_Credentials(decision: *const c_void, context: *mut c_void, sink: CredentialSink) -> u32;
    fn KivDecision_Release(decision: *mut c_void);
    fn KivEvent_Kind(event: *const c_void) -> u32;
    fn KivEvent_Tag(event: *const c_void) -> u64;
    fn KivEvent_Status(event: *const c_void) -> u32;
    fn KivEvent_Decision(event: *const c_void) -> *mut c_void;
    fn KivEvent_Challenge(event: *const c_void) -> *mut c_void;
    fn KivEvent_Text(event: *const c_void) -> *const u16;
    fn KivEvent_Release(event: *mut c_void);
    fn KivChallenge_Proxy(challenge: *const c_void) -> *const u16;
    fn KivChallenge_Scheme(challenge: *const c_void) -> u32;
    fn KivChallenge_Realm(challenge: *const c_void) -> *const u16;
    fn KivChallenge_Attempt(challenge: *const c_void) -> u32;
    fn KivChallenge_Answer(challenge: *mut c_void, user: *const u16, password: *const u16) -> u32;
    fn KivChallenge_Decline(challenge: *mut c_void) -> u32;
    fn KivChallenge_Release(challenge: *mut c_void);
    fn KivAuth_Create(session: *mut c_void, decision: *mut c_void, auth: *mut *mut c_void) -> u32;
    fn KivAuth_Next(auth: *mut c_void, proxy_authenticate: *const u16, proxy_authorization: *mut *const u16) -> u32;
    fn KivAuth_Release(auth: *mut c_void);
}
