//! Loads kiv-session.dll.

use crate::declarations::Functions;
use crate::error::Error;
use std::path::Path;

/// Returns the DLL of this path; without one, it is kiv-session.dll beside the executable.
#[cfg(not(windows))]
pub(crate) fn load(_: Option<&Path>) -> Result<&'static Functions, Error> {
    Err(Error::Unsupported)
}

#[cfg(windows)]
pub(crate) use windows::load;

#[cfg(windows)]
mod windows {
    use super::{Error, Functions, Path};
    use crate::handle::lock;
    use std::ffi::c_void;
    use std::os::windows::ffi::OsStrExt;
    use std::path::PathBuf;
    use std::sync::Mutex;

    #[link(name = "kernel32")]
    extern "system" {
        fn LoadLibraryExW(name: *const u16, file: *mut c_void, flags: u32) -> *mut c_void;
        fn GetProcAddress(module: *mut c_void, name: *const u8) -> *const c_void;
        fn FreeLibrary(module: *mut c_void) -> i32;
    }

    /// LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR and LOAD_LIBRARY_SEARCH_DEFAULT_DIRS: neither the current folder nor PATH.
    const SAFE_FOLDERS: u32 = 0x1100;
    /// The version of the DLL that this crate needs: major * 65536 + minor * 256 + patch.
    const MINIMUM_VERSION: u32 = 1 << 16;
    const ERROR_BAD_EXE_FORMAT: i32 = 193;

    /// Libraries stay loaded, as the first session keeps them until the process ends anyway.
    static LOADED: Mutex<Vec<(PathBuf, &'static Functions)>> = Mutex::new(Vec::new());

    /// Returns the DLL of this path; without one, it is kiv-session.dll beside the executable.
    pub(crate) fn load(path: Option<&Path>) -> Result<&'static Functions, Error> {
        let path = match path {
            Some(path) => std::env::current_dir().map(|folder| folder.join(path)),
            None => std::env::current_exe().map(|program| program.with_file_name("kiv-session.dll")),
        };
        let path = path.map_err(|error| unusable(Path::new("kiv-session.dll"), error.to_string()))?;
        let mut loaded = lock(&LOADED);
        if let Some((_, functions)) = loaded.iter().find(|(known, _)| *known == path) {
            return Ok(functions);
        }
        let functions: &'static Functions =
            Box::leak(Box::new(open(&path).map_err(|problem| unusable(&path, problem))?));
        loaded.push((path, functions));
        Ok(functions)
    }

    fn unusable(path: &Path, problem: String) -> Error {
        Error::Library { path: path.to_owned(), problem }
    }

    struct Module(*mut c_void);

    impl Module {
        fn load(path: &Path) -> std::io::Result<Self> {
            let slash = |unit| {
                if unit == u16::from(b'/') {
                    u16::from(b'\\')
                } else {
                    unit
                }
            };
            let name: Vec<u16> = path.as_os_str().encode_wide().map(slash).chain([0]).collect();
            // SAFETY: the name ends with NUL.
            let module = unsafe { LoadLibraryExW(name.as_ptr(), std::ptr::null_mut(), SAFE_FOLDERS) };
            if module.is_null() {
                return Err(std::io::Error::last_os_error());
            }
            Ok(Self(module))
        }

        /// The address of the function of this name, which ends with NUL.
        fn address(&self, name: &'static str) -> Result<*const c_void, String> {
            // SAFETY: the module is loaded, and the name ends with NUL.
            let address = unsafe { GetProcAddress(self.0, name.as_ptr()) };
            if address.is_null() {
                return Err(format!("it has no function {}: {}", name.trim_end_matches('\0'), advice()));
            }
            Ok(address)
        }
    }

    impl Drop for Module {
        fn drop(&mut self) {
            // SAFETY: nothing of it is used any more.
            unsafe { FreeLibrary(self.0) };
        }
    }

    fn open(path: &Path) -> Result<Functions, String> {
        if let Err(error) = std::fs::metadata(path) {
            return Err(format!("{error}: ship the DLL beside your program, or name it with kiv::Builder::library"));
        }
        let module = Module::load(path).map_err(|error| match error.raw_os_error() {
            Some(ERROR_BAD_EXE_FORMAT) => {
                let processor = std::env::consts::ARCH;
                format!(
                    "it is no DLL for {processor}: take the kiv-session.dll that is built for this program's processor"
                )
            }
            _ => error.to_string(),
        })?;
        // SAFETY: this function is the same in all versions.
        let version = unsafe {
            let version: unsafe extern "C" fn() -> u32 = std::mem::transmute(module.address("KivSession_Version\0")?);
            version()
        };
        if !version_fits(version) {
            return Err(format!("its version is {}: {}", version_text(version), advice()));
        }
        // SAFETY: a DLL of this version has functions as this version of the header declares them.
        let functions = unsafe { Functions::find(|name| module.address(name)) }?;
        std::mem::forget(module);
        Ok(functions)
    }

    fn advice() -> String {
        let wanted = version_text(MINIMUM_VERSION);
        format!("take kiv-session.dll {wanted} or a later one of the same major version")
    }

    fn version_text(version: u32) -> String {
        format!("{}.{}.{}", version >> 16, version >> 8 & 0xFF, version & 0xFF)
    }

    /// Whether a DLL of this version has what this crate needs.
    fn version_fits(version: u32) -> bool {
        version >> 16 == MINIMUM_VERSION >> 16 && version >= MINIMUM_VERSION
    }
}
