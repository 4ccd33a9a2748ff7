//! Texts, times and versions as the library takes them.

use crate::error::Error;
use std::sync::atomic::{compiler_fence, Ordering};
use std::time::Duration;

/// Copies a text of the library; a null one is empty. Leaves no other copy behind, since it may be a password.
///
/// # Safety
/// `text` is null, or ends with NUL and lives during the call.
pub(crate) unsafe fn copied(text: *const u16) -> String {
    if text.is_null() {
        return String::new();
    }
    // SAFETY: all of it lies before the NUL.
    let units = unsafe {
        let length = (0..).take_while(|&i| *text.add(i) != 0).count();
        std::slice::from_raw_parts(text, length)
    };
    // A unit is at most three bytes, so that the text never moves while it grows.
    let mut copy = String::with_capacity(units.len() * 3);
    copy.extend(char::decode_utf16(units.iter().copied()).map(|c| c.unwrap_or(char::REPLACEMENT_CHARACTER)));
    copy
}

/// A text as the library takes it, which is wiped afterwards, as it may be a password.
pub(crate) struct WideText(Vec<u16>);

impl WideText {
    /// One that holds a NUL would be cut there, and is refused.
    pub fn new(text: &str) -> Result<Self, Error> {
        if text.contains('\0') {
            return Err(Error::BadArgument("a text contains a NUL character".into()));
        }
        // A byte is at most one unit, so that the text never moves while it grows.
        let mut wide = Vec::with_capacity(text.len() + 1);
        wide.extend(text.encode_utf16());
        wide.push(0);
        Ok(Self(wide))
    }

    /// For a call that ends before this text does.
    pub fn as_ptr(&self) -> *const u16 {
        self.0.as_ptr()
    }
}

impl Drop for WideText {
    fn drop(&mut self) {
        wipe(&mut self.0, 0);
    }
}

/// Overwrites a password, also if nobody reads it any more.
pub(crate) fn wipe<T: Copy>(memory: &mut [T], zero: T) {
    for place in memory {
        // SAFETY: it is a reference.
        unsafe { std::ptr::write_volatile(place, zero) }
    }
    compiler_fence(Ordering::SeqCst);
}

/// Rounds up, so that a limit above zero is none of zero. What is too long is `NO_TIME_OUT`.
pub(crate) fn milliseconds(given: Duration) -> u32 {
    u32::try_from((given.as_nanos() + 999_999) / 1_000_000).unwrap_or(u32::MAX)
}

/// The time-out of one call; 0 stands for the option's.
pub(crate) fn time_out(given: Option<Duration>) -> u32 {
    given.map_or(0, |limit| milliseconds(limit).max(1))
}
