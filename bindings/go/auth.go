package kiv

import (
	"context"
	"runtime"
	"strings"
	"time"
	"unsafe"
)

// An Auth is the authentication of one connection to a proxy, with the session's credentials for it or, where
// [LoggedOnUser] allows, the logged-on user's. It speaks Basic, NTLM and Negotiate. One goroutine at a time may use it.
type Auth struct {
	session *Session
	proxy   string
	handle  uintptr
}

// NewAuth begins the authentication of one connection to a decision's proxy. Close it afterwards.
func (s *Session) NewAuth(decision Decision) (*Auth, error) {
	if decision.native == nil {
		return nil, s.failure(StatusBadArgument)
	}
	defer runtime.KeepAlive(decision.native)
	auth := &Auth{session: s, proxy: decision.ProxyURL}
	err := s.use(func(handle uintptr) Status {
		return Status(s.library.call(authCreate, handle, decision.native.handle, uintptr(unsafe.Pointer(&auth.handle))))
	})
	if err != nil {
		return nil, err
	}
	runtime.SetFinalizer(auth, (*Auth).Close)
	return auth, nil
}

// Next returns the Proxy-Authorization header to send, on the same connection, in answer to the Proxy-Authenticate headers
// of a proxy's 407. Without any, it returns what can be sent before the first 407, or an empty text. While a challenge for
// credentials is open it waits, until the context ends.
//
// It returns an [*AuthError] if the proxy refused the credentials (ErrCredentialsRefused), on which the connection is to be
// closed; a new Auth may have others to offer. If nothing that the proxy offers can be answered, or nobody has
// credentials, that error is ErrAuthUnsupported.
func (a *Auth) Next(ctx context.Context, proxyAuthenticate []string) (string, error) {
	offered, err := wideText(strings.Join(proxyAuthenticate, "\n"))
	if err != nil {
		return "", err
	}
	for {
		ended := a.session.questionEnded()
		var header *uint16
		status := Status(a.session.library.call(authNext, a.handle, uintptr(unsafe.Pointer(&offered[0])),
			uintptr(unsafe.Pointer(&header))))
		text := goText(header)
		runtime.KeepAlive(a)
		switch status {
		case statusAgain, statusDone:
			return text, nil
		case StatusRejected:
			return "", &AuthError{Proxy: a.proxy, Schemes: schemesOf(proxyAuthenticate), Err: ErrCredentialsRefused}
		case StatusUnsupported:
			return "", &AuthError{Proxy: a.proxy, Schemes: schemesOf(proxyAuthenticate), Err: ErrAuthUnsupported}
		case StatusNotYet:
			if err := a.wait(ctx, ended); err != nil {
				return "", err
			}
		default:
			return "", a.session.failure(status)
		}
	}
}

// wait waits for the end of a question, and looks now and then: it may also end because it was open for too long.
func (a *Auth) wait(ctx context.Context, ended <-chan struct{}) error {
	look := time.NewTimer(time.Second)
	defer look.Stop()
	select {
	case <-ended:
	case <-look.C:
	case <-a.session.ended:
		return ErrClosed
	case <-ctx.Done():
		return ctx.Err()
	}
	return nil
}

// Close releases the authentication. Closing it again does nothing.
func (a *Auth) Close() {
	runtime.SetFinalizer(a, nil)
	a.session.library.call(authRelease, a.handle)
	a.handle = 0
}

// schemesOf gives the first word of each header.
func schemesOf(proxyAuthenticate []string) []string {
	schemes := make([]string, 0, len(proxyAuthenticate))
	for _, header := range proxyAuthenticate {
		if words := strings.Fields(header); len(words) > 0 {
			schemes = append(schemes, words[0])
		}
	}
	return schemes
}
