package kiv

import (
	"context"
	"errors"
	"fmt"
	"os"
	"strings"
	"syscall"
)

// Errors to compare with by [errors.Is].
var (
	// ErrClosed says that the session was closed.
	ErrClosed = errors.New("kiv: the session is closed")
	// ErrNoRoute says that no candidate works; the error is a [*NoRouteError].
	ErrNoRoute = errors.New("kiv: there is no route")
	// ErrUnsupported says that this is not Windows, or that a proxy's protocol is not spoken.
	ErrUnsupported = errors.New("kiv: not supported")
	// ErrAuthUnsupported says that a proxy cannot be authenticated to; the error is an [*AuthError].
	ErrAuthUnsupported = errors.New("kiv: the proxy offers no authentication that can be answered")
	// ErrCredentialsRefused says that a proxy refused the credentials; the error is an [*AuthError].
	ErrCredentialsRefused = errors.New("kiv: the proxy refused the credentials")
	// ErrNotYet says that there is no kept decision; a resolution has begun.
	ErrNotYet = errors.New("kiv: there is no decision yet")
)

// A StatusError is a call of the library that failed. It matches, by [errors.Is], the error of this package or of the
// standard library that means the same: ErrClosed, ErrNotYet, ErrUnsupported, context.DeadlineExceeded,
// context.Canceled, or a syscall.Errno.
type StatusError struct {
	Status Status
	text   string
}

// Error implements error.
func (e *StatusError) Error() string {
	return fmt.Sprintf("kiv: %s (status %#x)", e.text, uint32(e.Status))
}

// Is tells whether target means the same status.
func (e *StatusError) Is(target error) bool {
	if other, ok := target.(*StatusError); ok {
		return other.Status == e.Status
	}
	switch e.Status {
	case StatusClosed:
		return target == ErrClosed
	case StatusNotYet:
		return target == ErrNotYet
	case StatusUnsupported:
		return target == ErrUnsupported
	case StatusTimedOut:
		return target == context.DeadlineExceeded || target == os.ErrDeadlineExceeded
	case StatusCancelled:
		return target == context.Canceled
	}
	code, ok := target.(syscall.Errno)
	return ok && e.Status&0xFFFF0000 == statusSystem && code == syscall.Errno(e.Status&0xFFFF)
}

// Timeout tells whether a time-out passed, as net.Error does.
func (e *StatusError) Timeout() bool { return e.Status == StatusTimedOut }

// A NoRouteError says why there is no route.
type NoRouteError struct {
	Reason Reason
	text   string
}

// Error implements error.
func (e *NoRouteError) Error() string {
	return fmt.Sprintf("%v: %s", ErrNoRoute, e.text)
}

// Is tells whether target is ErrNoRoute.
func (e *NoRouteError) Is(target error) bool { return target == ErrNoRoute }

// An AuthError is an authentication to a proxy that failed: Err is ErrAuthUnsupported or ErrCredentialsRefused.
type AuthError struct {
	// Proxy is the proxy's URL.
	Proxy string
	// Schemes are the schemes that the proxy offered.
	Schemes []string
	Err     error
}

// Error implements error.
func (e *AuthError) Error() string {
	return fmt.Sprintf("%v (%s offers %s)", e.Err, e.Proxy, strings.Join(e.Schemes, ", "))
}

// Unwrap returns Err.
func (e *AuthError) Unwrap() error { return e.Err }

// A ProxyError is a failure of a proxy, or on the way to it.
type ProxyError struct {
	// Proxy is the proxy's URL.
	Proxy string
	Err   error
}

// Error implements error.
func (e *ProxyError) Error() string { return fmt.Sprintf("kiv: proxy %s: %v", e.Proxy, e.Err) }

// Unwrap returns Err.
func (e *ProxyError) Unwrap() error { return e.Err }

// A LoadError says why kiv-session.dll could not be loaded, and what to do.
type LoadError struct {
	Path string
	Err  error
}

// Error implements error.
func (e *LoadError) Error() string { return fmt.Sprintf("kiv: cannot use %s: %v", e.Path, e.Err) }

// Unwrap returns Err.
func (e *LoadError) Unwrap() error { return e.Err }
