//! Tests. What needs kiv-session.dll is in `windows`.

#[cfg(windows)]
mod windows;

use crate::auth::schemes_of;
use crate::text::{copied, milliseconds, time_out, wipe, WideText};
use crate::{Auth, Canceller, Challenge, Credentials, Decision, Error, LogLevel, Reason, Resolve, Session};
use std::time::Duration;

#[cfg(not(windows))]
#[test]
fn elsewhere_nothing_is_supported() {
    assert_eq!(Session::new("app/1").unwrap_err(), Error::Unsupported);
}

#[test]
fn all_threads_may_use_what_there_is() {
    fn shared<T: Send + Sync + 'static>() {}
    shared::<Session>();
    shared::<Decision>();
    shared::<Canceller>();
    shared::<Challenge>();
    shared::<Error>();
    fn sent<T: Send + Unpin + 'static>() {}
    sent::<Resolve>();
    sent::<Auth>();
}

#[test]
fn texts_survive_both_ways() {
    for text in ["", "plain", "grüße", "日本", "a\u{1F600}b"] {
        let wide = WideText::new(text).unwrap();
        // SAFETY: the text lives.
        assert_eq!(unsafe { copied(wide.as_ptr()) }, text);
    }
    // SAFETY: null is empty, and a half of a pair is a character of its own.
    unsafe {
        assert_eq!(copied(std::ptr::null()), "");
        assert_eq!(copied([0xD83D, 0x61, 0].as_ptr()), "\u{FFFD}a");
    }
    assert!(matches!(WideText::new("a\0b").map(drop), Err(Error::BadArgument(_))));
}

#[test]
fn durations_are_rounded_up_and_limited() {
    for (given, expected) in [
        (Duration::ZERO, 0),
        (Duration::from_nanos(1), 1),
        (Duration::from_millis(1), 1),
        (Duration::from_micros(1500), 2),
        (Duration::from_secs(3600), 3_600_000),
        (Duration::from_secs(100 * 24 * 3600), u32::MAX),
        (Duration::MAX, u32::MAX),
    ] {
        assert_eq!(milliseconds(given), expected, "{given:?}");
        assert_eq!(time_out(Some(given)), expected.max(1), "{given:?}");
    }
    assert_eq!(time_out(None), 0);
}

#[test]
fn passwords_are_wiped_and_not_printed() {
    let mut password = *b"secret";
    wipe(&mut password, 0);
    assert_eq!(password, [0; 6]);
    let credentials = Credentials::new("alice", "secret");
    assert_eq!((credentials.user(), credentials.password()), ("alice", "secret"));
    assert_eq!(format!("{credentials:?}"), "Credentials { user: \"alice\", .. }");
}

#[test]
fn levels_are_those_of_the_library() {
    for level in [LogLevel::Error, LogLevel::Warn, LogLevel::Info, LogLevel::Debug] {
        assert_eq!(LogLevel::of(level as u32), level);
    }
}

#[test]
fn schemes_are_the_first_words() {
    assert_eq!(schemes_of(&["Basic realm=\"a\"", "NTLM", ""]), ["Basic", "NTLM"]);
}

#[test]
fn errors_say_what_they_know() {
    let proxy = || String::from("http://proxy.test:8080");
    let schemes = || vec![String::from("Digest"), String::from("Bearer")];
    for (error, expected) in [
        (
            Error::AuthUnsupported { proxy: proxy(), schemes: schemes() },
            "proxy authentication unsupported: http://proxy.test:8080 offers Digest, Bearer",
        ),
        (
            Error::AuthUnsupported { proxy: String::new(), schemes: Vec::new() },
            "proxy authentication unsupported: a proxy offers no scheme that can be answered",
        ),
        (
            Error::CredentialsRefused { proxy: proxy(), schemes: schemes() },
            "http://proxy.test:8080 refused the credentials (it offers Digest, Bearer)",
        ),
        (
            Error::NoRoute { reason: Reason::NO_CANDIDATE, text: "no candidate".into() },
            "there is no route: no candidate",
        ),
        (Error::Status { status: 0x80070005, text: "failed".into() }, "failed (status 0x80070005)"),
    ] {
        assert_eq!(error.to_string(), expected);
    }
}
