//! Prints a page, with a client that knows nothing of proxies: std's TcpStream. It connects to whatever proxy the session
//! decides for, authenticates there, and asks for a tunnel (CONNECT), in which any protocol can be spoken. This one is
//! HTTP in clear, since std has no TLS.
//!
//!     fetch [--login USER PASSWORD-FILE] http://HOST[:PORT]/PATH

use kiv::{Challenge, Credentials, Decision, Failure, LoggedOnUser, Proxy, Route, Session, Test};
use std::error::Error;
use std::io::{self, Read, Write};
use std::net::TcpStream;
use std::process::ExitCode;
use std::time::Duration;

/// Of each step.
const LIMIT: Duration = Duration::from_secs(30);
/// A session asks at most twice for each proxy, and may have had a password before.
const PASSWORDS: usize = 3;
/// How often one request is sent again for a proxy's 407.
const ANSWERS: usize = 8;
const MOST_HEAD: usize = 65536;

type Result<T> = std::result::Result<T, Box<dyn Error>>;

fn main() -> ExitCode {
    let arguments: Vec<String> = std::env::args().skip(1).collect();
    let (login, url) = match arguments.iter().map(String::as_str).collect::<Vec<_>>()[..] {
        [url] => (None, url),
        ["--login", user, file, url] => (Some((user.to_owned(), file.to_owned())), url),
        _ => {
            eprintln!("usage: fetch [--login USER PASSWORD-FILE] http://HOST[:PORT]/PATH");
            return ExitCode::from(64);
        }
    };
    if let Err(error) = fetch(url, login) {
        eprintln!("{error}");
        return ExitCode::FAILURE;
    }
    ExitCode::SUCCESS
}

/// A user name, and the file that holds the password.
type Login = (String, String);

/// A program with a window shows a dialog, and closes it when the challenge is withdrawn.
fn ask(challenge: &Challenge, login: Option<&Login>) -> Option<Credentials> {
    let (user, file) = login.filter(|_| challenge.attempt == 1)?;
    Some(Credentials::new(user, std::fs::read_to_string(file).ok()?.trim_end()))
}

fn fetch(url: &str, login: Option<Login>) -> Result<()> {
    let (host, path) = url.strip_prefix("http://").and_then(|rest| rest.split_once('/')).ok_or("not an http URL")?;
    let target = if host.contains(':') { host.into() } else { format!("{host}:80") };
    // A tunnel is all that is wanted of a proxy, and what this client does not speak is left out.
    let session = Session::builder("fetch/1")
        .test(Test::Connect)
        .leave_out("https://*;socks4://*;socks5://*")
        .logged_on_user(if login.is_some() { LoggedOnUser::Never } else { LoggedOnUser::System })
        .on_challenge(move |challenge| ask(challenge, login.as_ref()))
        .build()?;
    let decision = session.resolve(url).timeout(LIMIT).wait()?;
    let mut stream = connect(&session, &decision, &target)?;
    write!(stream, "GET /{path} HTTP/1.0\r\nHost: {host}\r\n\r\n")?;
    let answer = Answer::read(&mut stream)?;
    if answer.status != 200 {
        return Err(format!("the server answered {}", answer.status).into());
    }
    io::copy(&mut stream, &mut io::stdout())?;
    Ok(())
}

/// A connection to the target, in which the program speaks what it likes. A failure is reported, so that the next
/// decision is another one.
fn connect(session: &Session, decision: &Decision, target: &str) -> Result<TcpStream> {
    match decision.route()? {
        Route::Direct => dial(target).or_else(|error| {
            session.report(decision, Failure::Target)?;
            Err(format!("{target}: {error}").into())
        }),
        Route::Proxy(proxy) => {
            for _ in 1..PASSWORDS {
                match tunnel(session, decision, &proxy, target) {
                    Err(error) if matches!(error.downcast_ref(), Some(kiv::Error::CredentialsRefused { .. })) => (),
                    result => return result,
                }
            }
            tunnel(session, decision, &proxy, target)
        }
    }
}

fn dial(address: &str) -> io::Result<TcpStream> {
    let stream = TcpStream::connect(address)?;
    stream.set_read_timeout(Some(LIMIT))?;
    Ok(stream)
}

fn dial_proxy(session: &Session, decision: &Decision, proxy: &Proxy) -> Result<TcpStream> {
    let host = if proxy.host.contains(':') { format!("[{}]", proxy.host) } else { proxy.host.clone() };
    dial(&format!("{host}:{}", proxy.port)).or_else(|error| {
        session.report(decision, Failure::ProxyUnreachable)?;
        Err(format!("{}: {error}", proxy.url).into())
    })
}

/// Asks for a tunnel, with one authentication.
fn tunnel(session: &Session, decision: &Decision, proxy: &Proxy, target: &str) -> Result<TcpStream> {
    let mut auth = session.auth(decision)?;
    let mut header = auth.next(&[""; 0], LIMIT)?;
    let mut stream = dial_proxy(session, decision, proxy)?;
    for _ in 0..ANSWERS {
        let authorization = header.map_or(String::new(), |value| format!("Proxy-Authorization: {value}\r\n"));
        write!(stream, "CONNECT {target} HTTP/1.1\r\nHost: {target}\r\n{authorization}\r\n")?;
        let answer = Answer::read(&mut stream)?;
        match answer.status {
            200..=299 => return Ok(stream),
            407 => (),
            status => {
                session.report(decision, Failure::Target)?;
                return Err(format!("{} answered {status} to CONNECT {target}", proxy.url).into());
            }
        }
        header = auth.next(&answer.values("proxy-authenticate"), LIMIT)?;
        if !answer.skip_body(&mut stream)? {
            stream = dial_proxy(session, decision, proxy)?;
        }
    }
    Err(format!("{}: authentication never completes", proxy.url).into())
}

/// The head of an answer.
struct Answer {
    status: u16,
    headers: Vec<(String, String)>,
}

impl Answer {
    /// Reads no byte more than the head: what follows is the tunnel's.
    fn read(stream: &mut TcpStream) -> Result<Self> {
        let mut head = Vec::new();
        while !head.ends_with(b"\r\n\r\n") {
            let mut byte = [0];
            stream.read_exact(&mut byte)?;
            head.extend(byte);
            if head.len() > MOST_HEAD {
                return Err("the head of an answer is too long".into());
            }
        }
        let head = String::from_utf8_lossy(&head);
        let mut lines = head.lines();
        let status = lines.next().and_then(|line| line.split(' ').nth(1)?.parse().ok()).ok_or("no answer of HTTP")?;
        let headers = lines
            .filter_map(|line| line.split_once(':'))
            .map(|(name, value)| (name.to_ascii_lowercase(), value.trim().to_owned()))
            .collect();
        Ok(Self { status, headers })
    }

    fn values(&self, name: &str) -> Vec<&str> {
        self.headers.iter().filter(|(known, _)| known == name).map(|(_, value)| value.as_str()).collect()
    }

    /// Returns whether the connection can be used again.
    fn skip_body(&self, stream: &mut TcpStream) -> Result<bool> {
        let closes = ["connection", "proxy-connection"].iter().any(|name| self.values(name).contains(&"close"));
        match self.values("content-length").first().map(|length| length.parse()) {
            Some(Ok(length)) if !closes => Ok(io::copy(&mut stream.take(length), &mut io::sink())? == length),
            _ => Ok(false),
        }
    }
}
