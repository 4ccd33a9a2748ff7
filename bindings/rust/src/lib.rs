//! Decides how a program connects to a URL on Windows: directly or through which proxy, as the user's settings, PAC
//! scripts and automatic detection (WPAD) say, and as tests of the candidates show. Wraps kiv-session.dll.
//!
//! ```no_run
//! # use std::time::Duration;
//! # const LIMIT: Duration = Duration::from_secs(10);
//! # fn main() -> Result<(), kiv::Error> {
//! # let url = "https://example.com/";
//! let session = kiv::Session::new("app/1")?;
//! let decision = session.resolve(url).timeout(LIMIT).wait()?; // or .await
//! match decision.route()? {
//!     kiv::Route::Direct => println!("direct"),
//!     kiv::Route::Proxy(proxy) => println!("{}", proxy.url),
//! }
//! # Ok(())
//! # }
//! ```
//!
//! On other systems the crate compiles, and [`Session::new`] returns [`Error::Unsupported`].

#![deny(missing_docs, unsafe_op_in_unsafe_fn)]

mod auth;
mod builder;
mod challenge;
mod decision;
mod declarations;
mod error;
mod handle;
mod library;
mod resolve;
mod session;
#[cfg(test)]
mod tests;
mod text;

pub use auth::Auth;
pub use builder::Builder;
pub use challenge::{Challenge, Credentials};
pub use decision::{Decision, Proxy, Route};
pub use declarations::{Counter, Direct, Failure, LogLevel, LoggedOnUser, Reason, Schemes, Test};
pub use error::Error;
pub use resolve::{Canceller, Resolve};
pub use session::Session;
