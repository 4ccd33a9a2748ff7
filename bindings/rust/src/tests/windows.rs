//! Tests of sessions with kiv-session.dll beside this program, one at a time: objects of the library are counted.

use crate::handle::{lock, OWNED};
use crate::{Builder, Challenge, Counter, Credentials, Decision, Direct, Error, Failure, LogLevel, LoggedOnUser};
use crate::{Proxy, Reason, Resolve, Route, Schemes, Session, Test};
use std::future::Future;
use std::io::{BufRead, BufReader, Write};
use std::net::{TcpListener, TcpStream};
use std::path::Path;
use std::pin::Pin;
use std::process::{Command, Stdio};
use std::sync::atomic::{AtomicUsize, Ordering};
use std::sync::{mpsc, Arc, Mutex};
use std::task::{Context, Poll, Wake, Waker};
use std::thread::{self, Thread};
use std::time::{Duration, Instant};

const USER: &str = "alice";
const PASSWORD: &str = "opensesame";
const BASIC: &str = "Basic YWxpY2U6b3BlbnNlc2FtZQ==";
const LONG: Duration = Duration::from_secs(20);

/// What run_tests.py tells of the servers that it has started: their URLs by name.
fn server(name: &str) -> String {
    std::env::var(format!("KIV_TEST_{name}")).expect("this is run by run_tests.py")
}

/// Sets up a session that connects through the proxies in its options alone.
fn begin() -> Builder {
    Session::builder("kiv-test").direct(Direct::Never).logged_on_user(LoggedOnUser::Never)
}

fn wait_for(mut condition: impl FnMut() -> bool) {
    let began = Instant::now();
    while !condition() {
        assert!(began.elapsed() < LONG, "in vain");
        thread::sleep(Duration::from_millis(10));
    }
}

fn owned() -> i64 {
    OWNED.load(Ordering::SeqCst)
}

/// Waits until nothing of the library is owned: threads of a session that was dropped may still hold what they use.
fn wait_until_nothing_is_owned() {
    wait_for(|| owned() == 0);
}

/// An HTTP proxy, which answers by itself in place of targets, and may want a password.
struct TestProxy {
    url: String,
    ended: Arc<Mutex<bool>>,
}

impl TestProxy {
    fn start(wants_password: bool) -> Self {
        let listener = TcpListener::bind("127.0.0.1:0").unwrap();
        let address = listener.local_addr().unwrap();
        let ended = Arc::new(Mutex::new(false));
        let end = Arc::clone(&ended);
        thread::spawn(move || {
            for stream in listener.incoming() {
                if *lock(&end) {
                    return;
                }
                thread::spawn(move || serve(stream.unwrap(), wants_password));
            }
        });
        Self { url: format!("http://{address}"), ended }
    }

    /// When it has returned, nobody listens any more.
    fn end(&self) {
        *lock(&self.ended) = true;
        let address = &self.url["http://".len()..];
        wait_for(|| TcpStream::connect(address).is_err());
    }
}

fn serve(mut stream: TcpStream, wants_password: bool) {
    let mut reader = BufReader::new(stream.try_clone().unwrap());
    loop {
        let mut given = !wants_password;
        loop {
            let mut line = String::new();
            if reader.read_line(&mut line).unwrap_or(0) == 0 {
                return;
            }
            given |= line.trim_end() == format!("Proxy-Authorization: {BASIC}");
            if line == "\r\n" {
                break;
            }
        }
        let status = if given { "200 OK" } else { "407 No\r\nProxy-Authenticate: Basic realm=\"gate\"" };
        if write!(stream, "HTTP/1.1 {status}\r\nContent-Length: 0\r\n\r\n").is_err() {
            return;
        }
    }
}

/// The URL of a proxy that never answers.
fn silent() -> String {
    let listener = TcpListener::bind("127.0.0.1:0").unwrap();
    let url = format!("http://{}", listener.local_addr().unwrap());
    thread::spawn(move || listener.incoming().collect::<Vec<_>>());
    url
}

/// Answers each challenge with the next of these passwords, then declines.
fn login(passwords: &'static [&str]) -> (Arc<Mutex<Vec<String>>>, impl Fn(&Challenge) -> Option<Credentials>) {
    let asked = Arc::new(Mutex::new(Vec::new()));
    let heard = Arc::clone(&asked);
    (asked, move |challenge: &Challenge| {
        let mut heard = lock(&heard);
        let Challenge { proxy, scheme, realm, attempt, .. } = challenge;
        heard.push(format!("{proxy} {} {realm} {attempt}", scheme.0));
        passwords.get(heard.len() - 1).map(|&password| Credentials::new(USER, password))
    })
}

fn proxy_of(decision: &Decision) -> Proxy {
    match decision.route() {
        Ok(Route::Proxy(proxy)) => proxy,
        other => panic!("{other:?}"),
    }
}

#[test]
fn a_decision_is_made_kept_and_readable() {
    let proxy = TestProxy::start(false);
    let session = begin().preferred(&proxy.url, None).build().unwrap();
    assert!(session.lookup("http://host.test/").unwrap().is_none());
    let decision = session.resolve("http://host.test/path?query").wait().unwrap();
    let found = proxy_of(&decision);
    assert_eq!((&*found.url, &*found.scheme, &*found.host), (&*proxy.url, "http", "127.0.0.1"));
    assert_eq!(format!("{}://{}:{}", found.scheme, found.host, found.port), proxy.url);
    assert_eq!((decision.to_string(), decision.reason(), decision.auth_scheme()), (proxy.url, Reason::REACHED, None));
    assert_eq!(decision.credentials().unwrap(), None);
    assert!(session.lookup("http://host.test/").unwrap().is_some());
    assert_eq!(session.counter(Counter::Resolutions), 1);
    assert!(session.counter(Counter::KeptAnswers) > 0);
    session.forget();
    assert!(session.lookup("http://host.test/").unwrap().is_none());
    drop(session);
    assert!(decision.age() < Duration::from_secs(60));
    assert_eq!(proxy_of(&decision), found);
}

#[test]
fn a_direct_connection_is_a_route() {
    let session = begin().direct(Direct::LastResort).test(Test::None).build().unwrap();
    let decision = session.resolve("http://host.test/").wait().unwrap();
    assert_eq!((decision.route(), decision.to_string()), (Ok(Route::Direct), "DIRECT".into()));
    assert!(matches!(session.auth(&decision).map(drop), Err(Error::BadArgument(_))));
}

#[test]
fn what_cannot_be_is_an_error() {
    let session = begin().build().unwrap();
    assert_eq!(session.resolve("ftp://host.test/").wait().unwrap_err(), Error::BadUrl);
    assert!(matches!(session.resolve("http://a\0b/").wait(), Err(Error::BadArgument(_))));
    assert_eq!(session.awaited(), 0);
    let decision = session.resolve("http://host.test/").wait().unwrap();
    match decision.route() {
        Err(Error::NoRoute { reason: Reason::NO_CANDIDATE, text }) => assert!(!text.is_empty()),
        other => panic!("{other:?}"),
    }
    assert_eq!(decision.to_string(), "NONE");
    for (i, builder) in [
        begin().candidates(33),
        begin().origins(0),
        begin().timeout(Duration::ZERO),
        begin().dead_time(Duration::MAX),
        begin().schemes(Schemes(0)),
        begin().preferred("://", None),
        begin().preferred("a", Some(Credentials::new("a\0", ""))),
        begin().leave_out("a\0"),
        Session::builder("a\0"),
        Session::builder("a\n"),
    ]
    .into_iter()
    .enumerate()
    {
        assert!(matches!(builder.build(), Err(Error::BadArgument(_))), "{i}");
    }
    session.close();
    session.close();
    assert_eq!(session.resolve("http://host.test/").wait().unwrap_err(), Error::Closed);
    assert_eq!(session.lookup("http://host.test/").unwrap_err(), Error::Closed);
    assert_eq!(session.report(&decision, Failure::Target), Err(Error::Closed));
}

#[test]
fn every_option_is_taken() {
    let second = Duration::from_secs(1);
    let builder = begin().test(Test::Connect).timeout(second).discovery_timeout(second).connect_timeout(second);
    let builder = builder.answer_timeout(second).kept_time(Duration::ZERO).past_time(Duration::ZERO);
    let builder = builder.failure_time(Duration::ZERO).dead_time(Duration::ZERO).origins(10).candidates(3);
    let builder = builder.direct(Direct::LastResort).logged_on_user(LoggedOnUser::Proxies).schemes(Schemes::BASIC);
    let builder = builder.leave_out("socks5://*").bypass_list("*.inside.test").fallback("two.test", None);
    let builder = builder.preferred("one.test:8080", Some(Credentials::new("user", "password")));
    let session = builder.on_log(LogLevel::Debug, |_, _| ()).on_changed(|| ()).build().unwrap();
    let decision = session.resolve("http://a.inside.test/").wait().unwrap();
    assert_eq!((decision.route(), decision.reason()), (Ok(Route::Direct), Reason::BYPASSED));
}

#[test]
fn a_library_that_cannot_be_used_is_one_clear_message() {
    let here = std::env::current_exe().unwrap().parent().unwrap().to_owned();
    // bindings/stubs.py has made them.
    let folder = here.join("libraries");
    let advice = "take kiv-session.dll 1.0.0 or a later one of the same major version";
    for (name, expected) in [
        ("missing.dll", "ship the DLL beside your program, or name it with kiv::Builder::library".into()),
        ("text.dll", "it is no DLL for x86_64: take the kiv-session.dll that is built for".into()),
        ("arm64.dll", "it is no DLL for x86_64: take the kiv-session.dll that is built for".into()),
        ("x86.dll", "it is no DLL for x86_64: take the kiv-session.dll that is built for".into()),
        ("old.dll", format!("its version is 0.9.0: {advice}")),
        ("later.dll", format!("its version is 2.0.0: {advice}")),
        ("lacking.dll", format!("it has no function KivAuth_Next: {advice}")),
        ("other.dll", format!("it has no function KivSession_Version: {advice}")),
    ] {
        let named = folder.join(name);
        let error = begin().library(&named).build().unwrap_err();
        assert!(matches!(&error, Error::Library { path, .. } if *path == named), "{error:?}");
        assert!(error.to_string().contains(&expected), "{error}");
    }
    assert!(begin().library(folder.join("renamed.dll")).build().is_ok());
    // From the current folder, which is no place to look in for a bare name.
    let relative = Path::new("./missing/kiv-session.dll");
    assert!(matches!(begin().library(relative).build(), Err(Error::Library { path, .. }) if path.is_absolute()));
}

#[test]
fn deadlines_and_cancels_are_met() {
    let session = begin().preferred(&silent(), None).build().unwrap();
    let limit = Duration::from_millis(300);
    let began = Instant::now();
    assert_eq!(session.resolve("http://deadline.test/").timeout(limit).wait().unwrap_err(), Error::TimedOut);
    let took = began.elapsed();
    assert!(took > limit / 2 && took < LONG, "{took:?}");
    let resolve = session.resolve("http://cancel.test/");
    let canceller = resolve.canceller();
    thread::scope(|scope| {
        scope.spawn(|| {
            wait_for(|| session.counter(Counter::Waiting) == 1);
            canceller.cancel();
            canceller.clone().cancel();
        });
        assert_eq!(resolve.wait().unwrap_err(), Error::Cancelled);
    });
    let resolve = session.resolve("http://cancel.test/");
    resolve.canceller().cancel();
    let begun = session.counter(Counter::Resolutions);
    assert_eq!(resolve.wait().unwrap_err(), Error::Cancelled);
    assert_eq!(session.counter(Counter::Resolutions), begun);
}

/// Wakes a thread that waits for futures.
struct Unpark(Thread);

impl Wake for Unpark {
    fn wake(self: Arc<Self>) {
        self.0.unpark();
    }
}

fn poll_once<F: Future + Unpin>(future: &mut F) -> Poll<F::Output> {
    let waker = Waker::from(Arc::new(Unpark(thread::current())));
    Pin::new(future).poll(&mut Context::from_waker(&waker))
}

fn block_on<F: Future + Unpin>(mut future: F) -> F::Output {
    loop {
        match poll_once(&mut future) {
            Poll::Ready(result) => return result,
            Poll::Pending => thread::park_timeout(LONG),
        }
    }
}

#[test]
fn futures_are_woken() {
    let proxy = TestProxy::start(false);
    let session = begin().preferred(&proxy.url, None).build().unwrap();
    let all = async {
        let resolves: Vec<_> = (0..50).map(|i| session.resolve(&format!("http://host{i}.test/"))).collect();
        for resolve in resolves {
            assert_eq!(proxy_of(&resolve.await.unwrap()).url, proxy.url);
        }
    };
    block_on(Box::pin(all));
    assert_eq!(block_on(session.resolve("ftp://host.test/")).unwrap_err(), Error::BadUrl);
}

/// An executor's code that panics.
struct Panics;

impl Wake for Panics {
    fn wake(self: Arc<Self>) {
        panic!("as intended by the test");
    }
}

#[test]
fn a_waker_that_panics_does_not_end_the_session() {
    let proxy = TestProxy::start(false);
    let session = begin().preferred(&proxy.url, None).build().unwrap();
    let mut resolve = session.resolve("http://host.test/");
    assert!(Pin::new(&mut resolve).poll(&mut Context::from_waker(&Waker::from(Arc::new(Panics)))).is_pending());
    wait_for(|| session.awaited() == 0);
    assert!(block_on(resolve).is_ok());
    assert!(session.resolve("http://host.test/").wait().is_ok());
}

#[test]
fn dropping_a_future_cancels_and_leaves_nothing_behind() {
    wait_until_nothing_is_owned();
    // Nothing but the cancel ends the resolution in time.
    let session = begin().preferred(&silent(), None).answer_timeout(LONG * 10).timeout(LONG * 10).build().unwrap();
    drop(session.resolve("http://host.test/"));
    assert_eq!(session.counter(Counter::Resolutions), 0);
    for _ in 0..100 {
        let mut resolve = session.resolve("http://host.test/");
        assert!(poll_once(&mut resolve).is_pending());
        assert!(session.counter(Counter::Waiting) > 0);
    }
    wait_for(|| session.counter(Counter::Waiting) == 0 && session.awaited() == 0);
    session.close();
    drop(session);
    wait_until_nothing_is_owned();
}

#[test]
fn ten_thousand_resolutions_leave_nothing_behind() {
    let proxy = TestProxy::start(false);
    let session = begin().preferred(&proxy.url, None).build().unwrap();
    drop(session.resolve("http://host.test/").wait());
    // One event is owned while it is read, and the session.
    let before = owned();
    for i in 0..10_000 {
        let resolve = session.resolve("http://host.test/");
        let decision = if i % 2 == 0 { resolve.wait() } else { block_on(resolve) };
        assert_eq!(proxy_of(&decision.unwrap()).url, proxy.url);
    }
    wait_for(|| owned() <= before);
    assert_eq!((session.counter(Counter::Waiting), session.awaited()), (0, 0));
}

#[test]
fn a_challenge_is_answered() {
    let proxy = TestProxy::start(true);
    let (asked, answer) = login(&["wrong", PASSWORD]);
    let session = begin().preferred(&proxy.url, None).on_challenge(answer).build().unwrap();
    let decision = session.resolve("http://host.test/").wait().unwrap();
    assert_eq!((proxy_of(&decision).url, decision.auth_scheme()), (proxy.url.clone(), Some(Schemes::BASIC)));
    assert_eq!(*lock(&asked), [format!("{} 1 gate 1", proxy.url), format!("{} 1 gate 2", proxy.url)]);
    assert_eq!(decision.credentials().unwrap(), Some(Credentials::new(USER, PASSWORD)));
    session.forget_credentials();
    assert_eq!(decision.credentials().unwrap(), None);
    session.close();
    assert_eq!(decision.credentials().unwrap_err(), Error::Closed);
}

#[test]
fn own_credentials_are_used() {
    let proxy = TestProxy::start(true);
    let credentials = Some(Credentials::new(USER, PASSWORD));
    let session = begin().fallback(&proxy.url, credentials.clone()).build().unwrap();
    let decision = session.resolve("http://host.test/").wait().unwrap();
    assert_eq!((proxy_of(&decision).url, decision.credentials()), (proxy.url, Ok(credentials)));
}

/// Resolves twice with this answer to challenges, which must decline; returns how often it was asked.
fn declined(answer: impl Fn(&Challenge) -> Option<Credentials> + Send + Sync + 'static) -> usize {
    let proxy = TestProxy::start(true);
    let asked = Arc::new(AtomicUsize::new(0));
    let counted = Arc::clone(&asked);
    let ask = move |challenge: &Challenge| {
        counted.fetch_add(1, Ordering::SeqCst);
        answer(challenge)
    };
    let session = begin().preferred(&proxy.url, None).on_challenge(ask).build().unwrap();
    for host in ["one", "two"] {
        let decision = session.resolve(&format!("http://{host}.test/")).wait().unwrap();
        assert_eq!(decision.reason(), Reason::CREDENTIALS_WANTED);
    }
    asked.load(Ordering::SeqCst)
}

#[test]
fn a_declined_challenge_is_not_asked_again() {
    assert_eq!(declined(|_| None), 1);
}

#[test]
fn a_callback_that_panics_declines() {
    assert_eq!(declined(|_| panic!("as intended by the test")), 1);
}

#[test]
fn an_answer_that_cannot_be_one_declines() {
    assert_eq!(declined(|_| Some(Credentials::new("", "password"))), 1);
    assert_eq!(declined(|_| Some(Credentials::new("a\0", "password"))), 1);
}

#[test]
fn without_a_callback_challenges_are_declined() {
    let proxy = TestProxy::start(true);
    let session = begin().preferred(&proxy.url, None).build().unwrap();
    let decision = session.resolve("http://host.test/").wait().unwrap();
    assert_eq!(decision.reason(), Reason::CREDENTIALS_WANTED);
}

#[test]
fn closing_withdraws_challenges() {
    let proxy = TestProxy::start(true);
    let (open, opened) = mpsc::channel();
    let (tell, told) = mpsc::channel();
    let ask = Mutex::new((open, tell));
    let ask = move |challenge: &Challenge| {
        let (open, tell) = &*lock(&ask);
        assert!(!challenge.withdrawn(Duration::from_millis(1)));
        open.send(()).unwrap();
        tell.send(challenge.withdrawn(LONG)).unwrap();
        Some(Credentials::new(USER, PASSWORD))
    };
    let session = begin().preferred(&proxy.url, None).on_challenge(ask).build().unwrap();
    thread::scope(|scope| {
        let waits = scope.spawn(|| session.resolve("http://host.test/").wait());
        opened.recv().unwrap();
        session.close();
        assert!(told.recv().unwrap());
        assert_eq!(waits.join().unwrap().unwrap_err(), Error::Closed);
    });
}

/// Makes a proxy the user's, or none, as the dialog of Windows does.
fn enter(proxy: Option<&TestProxy>) {
    let manual = proxy.map_or("", |proxy| &proxy.url["http://".len()..]);
    let mut data = Vec::new();
    for number in [0x46, 0, if manual.is_empty() { 1 } else { 3 }, manual.len() as u32] {
        data.extend(number.to_le_bytes());
    }
    data.extend(manual.bytes().chain([0; 40]));
    let hexadecimal: String = data.iter().map(|byte| format!("{byte:02x}")).collect();
    let key = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings\Connections";
    let arguments = ["add", key, "/v", "DefaultConnectionSettings", "/t", "REG_BINARY", "/d", &hexadecimal, "/f"];
    assert!(Command::new("reg").args(arguments).output().unwrap().status.success());
}

#[test]
fn a_change_of_the_settings_is_told_and_withdraws_a_challenge() {
    let (closed, living) = (TestProxy::start(true), TestProxy::start(false));
    struct Restored;
    impl Drop for Restored {
        fn drop(&mut self) {
            enter(None);
        }
    }
    let _restored = Restored;
    enter(Some(&closed));
    let (open, opened) = mpsc::channel();
    let (change, changed) = mpsc::channel();
    let (tell, told) = mpsc::channel();
    let ask = Mutex::new((open, tell));
    let ask = move |challenge: &Challenge| {
        let (open, tell) = &*lock(&ask);
        open.send(()).unwrap();
        tell.send(challenge.withdrawn(LONG)).unwrap();
        Some(Credentials::new(USER, PASSWORD))
    };
    let session = begin().on_challenge(ask).on_changed(move || change.send(()).unwrap_or_default()).build().unwrap();
    thread::scope(|scope| {
        let waits = scope.spawn(|| session.resolve("http://host.test/").wait());
        opened.recv().unwrap();
        enter(Some(&living));
        assert_eq!(proxy_of(&waits.join().unwrap().unwrap()).url, living.url);
    });
    assert!(told.recv().unwrap());
    changed.recv_timeout(LONG).unwrap();
}

#[test]
fn log_lines_arrive_also_after_a_panic() {
    let proxy = TestProxy::start(false);
    let (say, said) = mpsc::channel();
    let log = move |level, line: &str| {
        say.send((level, line.to_owned())).unwrap();
        panic!("as intended by the test");
    };
    let session = begin().preferred(&proxy.url, None).on_log(LogLevel::Debug, log).build().unwrap();
    session.resolve("http://host.test/").wait().unwrap();
    for _ in 0..2 {
        let (_, line) = said.recv_timeout(LONG).unwrap();
        assert!(!line.is_empty());
    }
}

#[test]
fn a_callback_may_wait_for_the_session() {
    let proxy = TestProxy::start(false);
    let own: Arc<Mutex<Option<Session>>> = Arc::default();
    let used = Arc::clone(&own);
    let (tell, told) = mpsc::channel();
    let log = move |_, _: &str| {
        // Taking the session also drops it on this thread.
        if let Some(session) = lock(&used).take() {
            tell.send(session.resolve("http://again.test/").wait().map(|decision| decision.to_string())).unwrap();
            session.close();
        }
    };
    let session = begin().preferred(&proxy.url, None).on_log(LogLevel::Info, log).build().unwrap();
    *lock(&own) = Some(session);
    drop(lock(&own).as_ref().map(|session| session.lookup("http://host.test/")));
    assert_eq!(told.recv_timeout(LONG).unwrap(), Ok(proxy.url));
}

#[test]
fn closing_ends_all_that_wait() {
    for drops in [false, true] {
        let session = begin().preferred(&silent(), None).build().unwrap();
        let wait = |resolve: Resolve| thread::spawn(move || resolve.wait());
        let waits: Vec<_> = (0..50).map(|_| wait(session.resolve("http://host.test/"))).collect();
        wait_for(|| session.counter(Counter::Waiting) >= 50);
        let began = Instant::now();
        let session = Some(session).filter(|_| !drops);
        session.iter().for_each(Session::close);
        for wait in waits {
            assert_eq!(wait.join().unwrap().unwrap_err(), Error::Closed);
        }
        assert!(began.elapsed() < Duration::from_secs(5));
    }
    wait_until_nothing_is_owned();
}

#[test]
fn two_sessions_serve_many_threads() {
    let proxies = [TestProxy::start(false), TestProxy::start(false)];
    let sessions = [&proxies[0], &proxies[1]].map(|proxy| begin().preferred(&proxy.url, None).build().unwrap());
    thread::scope(|scope| {
        for (session, proxy) in sessions.iter().zip(&proxies) {
            for i in 0..16 {
                scope.spawn(move || {
                    for _ in 0..50 {
                        let decision = session.resolve(&format!("http://host{}.test/", i % 4)).wait().unwrap();
                        assert_eq!(proxy_of(&decision).url, proxy.url);
                    }
                });
            }
        }
    });
}

#[test]
fn a_proxy_that_dies_is_replaced_once_it_is_reported() {
    let (dying, living) = (TestProxy::start(false), TestProxy::start(false));
    let builder = begin().preferred(&dying.url, None).fallback(&living.url, None).test(Test::Connect);
    let session = builder.build().unwrap();
    let decision = session.resolve("http://host.test/").wait().unwrap();
    assert_eq!((proxy_of(&decision).url, decision.reason()), (dying.url.clone(), Reason::CONNECTED));
    dying.end();
    session.report(&decision, Failure::ProxyUnreachable).unwrap();
    assert_eq!(proxy_of(&session.resolve("http://host.test/").wait().unwrap()).url, living.url);
}

#[test]
fn an_authentication_waits_for_the_answer() {
    let proxy = TestProxy::start(false);
    let (answer, answers) = mpsc::channel();
    let answers = Mutex::new(answers);
    let ask = move |_: &Challenge| lock(&answers).recv().ok();
    let builder = begin().preferred(&proxy.url, None).test(Test::Connect).on_challenge(ask);
    let session = builder.build().unwrap();
    let decision = session.resolve("http://host.test/").wait().unwrap();
    let mut auth = session.auth(&decision).unwrap();
    let offered = ["Basic realm=\"gate\""];
    assert_eq!(auth.next(&[""; 0], LONG), Ok(None));
    assert_eq!(auth.next(&offered, Duration::from_millis(100)), Err(Error::TimedOut));
    answer.send(Credentials::new(USER, PASSWORD)).unwrap();
    assert_eq!(auth.next(&offered, LONG), Ok(Some(BASIC.into())));
    let refused = Error::CredentialsRefused { proxy: proxy.url.clone(), schemes: vec!["Basic".into()] };
    assert_eq!(auth.next(&offered, LONG), Err(refused));
    let mut auth = session.auth(&decision).unwrap();
    let unsupported = Error::AuthUnsupported { proxy: proxy.url, schemes: vec!["Digest".into()] };
    assert_eq!(auth.next(&["Digest realm=\"gate\", nonce=\"a\""], LONG), Err(unsupported));
    // The second question is open when the session closes.
    let mut auth = session.auth(&decision).unwrap();
    assert_eq!(auth.next(&offered, Duration::from_millis(100)), Err(Error::TimedOut));
    thread::scope(|scope| {
        let waits = scope.spawn(|| auth.next(&offered, LONG));
        session.close();
        assert_eq!(waits.join().unwrap(), Err(Error::Closed));
    });
}

#[test]
fn squid_is_authenticated_to() {
    for (name, scheme) in [("SQUID_BASIC", Schemes::BASIC), ("SQUID_NTLM", Schemes::NTLM)] {
        let (asked, answer) = login(&["wrong", PASSWORD]);
        let session = begin().preferred(&server(name), None).on_challenge(answer).build().unwrap();
        let decision = session.resolve(&server("WEB")).wait().unwrap();
        assert_eq!((proxy_of(&decision).url, decision.auth_scheme()), (server(name), Some(scheme)));
        assert_eq!(lock(&asked).len(), 2);
    }
}

#[test]
fn a_proxy_with_other_schemes_is_no_route() {
    let (asked, answer) = login(&[PASSWORD]);
    let session = begin().preferred(&server("SQUID_DIGEST"), None).on_challenge(answer).build().unwrap();
    let decision = session.resolve(&server("WEB")).wait().unwrap();
    let unsupported = Error::AuthUnsupported { proxy: String::new(), schemes: Vec::new() };
    assert_eq!((decision.route(), decision.reason()), (Err(unsupported), Reason::SCHEME_UNSUPPORTED));
    assert!(lock(&asked).is_empty());
}

#[test]
fn the_process_ends_while_a_resolution_runs() {
    if let Ok(proxy) = std::env::var("KIV_TEST_EXIT") {
        let session = begin().preferred(&proxy, None).build().unwrap();
        let mut resolve = session.resolve("http://host.test/");
        assert!(poll_once(&mut resolve).is_pending());
        thread::spawn(|| resolve.wait());
        std::process::exit(7);
    }
    let name = "tests::windows::the_process_ends_while_a_resolution_runs";
    let mut command = Command::new(std::env::current_exe().unwrap());
    command.args(["--exact", name]).env("KIV_TEST_EXIT", silent()).stdout(Stdio::null());
    let mut child = command.spawn().unwrap();
    let began = Instant::now();
    let ended = loop {
        if let Some(status) = child.try_wait().unwrap() {
            break status;
        }
        if began.elapsed() > LONG {
            child.kill().unwrap();
        }
        thread::sleep(Duration::from_millis(10));
    };
    assert_eq!(ended.code(), Some(7));
}
