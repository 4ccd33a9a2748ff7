//! Owners of the library's objects.

use std::ffi::c_void;
use std::sync::{Mutex, MutexGuard, PoisonError};

/// How many objects of the library are owned now.
#[cfg(test)]
pub(crate) static OWNED: std::sync::atomic::AtomicI64 = std::sync::atomic::AtomicI64::new(0);

/// Owns an object of the library, or none.
pub(crate) struct Handle {
    raw: *mut c_void,
    release: unsafe extern "C" fn(*mut c_void),
}

// SAFETY: the header says that several threads may use handles at once. `Auth` sees to the one kind for which it does not.
unsafe impl Send for Handle {}
// SAFETY: as above.
unsafe impl Sync for Handle {}

impl Handle {
    /// Takes over what a function of the library has returned, and the function that releases it; null is none.
    pub fn new(raw: *mut c_void, release: unsafe extern "C" fn(*mut c_void)) -> Self {
        #[cfg(test)]
        OWNED.fetch_add(1, std::sync::atomic::Ordering::SeqCst);
        Self { raw, release }
    }

    /// For a call that ends before the owner does.
    pub fn raw(&self) -> *mut c_void {
        self.raw
    }
}

impl Drop for Handle {
    fn drop(&mut self) {
        // SAFETY: this is the only owner. Null is ignored.
        unsafe { (self.release)(self.raw) }
        #[cfg(test)]
        OWNED.fetch_sub(1, std::sync::atomic::Ordering::SeqCst);
    }
}

/// Locks; what a panic has left behind is as good as any, since nothing panics half-way through a change.
pub(crate) fn lock<T>(mutex: &Mutex<T>) -> MutexGuard<'_, T> {
    mutex.lock().unwrap_or_else(PoisonError::into_inner)
}
