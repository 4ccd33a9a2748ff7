//go:build amd64 || arm64

package kiv

import (
	"errors"
	"fmt"
	"os"
	"path/filepath"
	"runtime"
	"sync"
	"syscall"
)

// library is a loaded kiv-session.dll. It stays loaded, as the first session keeps it until the process ends anyway.
type library struct {
	addresses [functionCount]uintptr
}

var loaded struct {
	sync.Mutex
	byPath map[string]*library
}

// load returns the DLL of this path; an empty one is kiv-session.dll beside the executable. The path is always a full
// one: a bare name would let Windows take a DLL of that name from the current folder or from PATH.
func load(path string) (*library, error) {
	path, err := dllPath(path)
	if err != nil {
		return nil, &LoadError{Path: path, Err: err}
	}
	loaded.Lock()
	defer loaded.Unlock()
	if found := loaded.byPath[path]; found != nil {
		return found, nil
	}
	made, err := open(path)
	if err != nil {
		return nil, &LoadError{Path: path, Err: err}
	}
	if loaded.byPath == nil {
		loaded.byPath = map[string]*library{}
	}
	loaded.byPath[path] = made
	return made, nil
}

func dllPath(path string) (string, error) {
	if path != "" {
		return filepath.Abs(path)
	}
	program, err := os.Executable()
	return filepath.Join(filepath.Dir(program), "kiv-session.dll"), err
}

const errorBadExeFormat syscall.Errno = 193

func open(path string) (*library, error) {
	if _, err := os.Stat(path); err != nil {
		return nil, fmt.Errorf("%w: ship the DLL beside your program, or name it with kiv.DLL", err)
	}
	dll, err := syscall.LoadDLL(path)
	if errors.Is(err, errorBadExeFormat) {
		return nil, fmt.Errorf("it is no DLL for %s: take the kiv-session.dll that is built for this program's processor",
			runtime.GOARCH)
	}
	if err != nil {
		return nil, err
	}
	made := &library{}
	for i, f := range functions {
		procedure, err := dll.FindProc(f.name)
		if err != nil {
			dll.Release()
			return nil, fmt.Errorf("it has no function %s: take kiv-session.dll %s or a later one of the same major version",
				f.name, versionText(minimumVersion))
		}
		made.addresses[i] = procedure.Addr()
	}
	if version := uint32(made.call(sessionVersion)); !versionFits(version) {
		dll.Release()
		return nil, fmt.Errorf("its version is %s: take kiv-session.dll %s or a later one of the same major version",
			versionText(version), versionText(minimumVersion))
	}
	return made, nil
}

// call calls a function of the DLL. The directive keeps alive, and in place, what pointers among the arguments point to.
//
//go:uintptrescapes
func (l *library) call(f function, arguments ...uintptr) uintptr {
	result, _, _ := syscall.SyscallN(l.addresses[f], arguments...)
	return result
}
