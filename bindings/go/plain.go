package kiv

import (
	"errors"
	"io"
	"net/http"
	"strings"
	"sync"
)

// plainRoute carries http requests, which need no tunnel, through one HTTP proxy. NTLM and Negotiate authenticate a
// connection, so a proxy that wants authentication is given lanes: transports of one connection each.
type plainRoute struct {
	session decider
	shared  *http.Transport
	mutex   sync.Mutex
	// Lanes that no request uses now; the last one was used last.
	free []*lane
	// Whether the proxy has wanted authentication.
	wants bool
}

type lane struct {
	transport *http.Transport
	auth      authenticator
	// The header of Basic, which every request repeats.
	repeated string
}

// RoundTrip implements http.RoundTripper.
func (r *plainRoute) RoundTrip(request *http.Request) (*http.Response, error) {
	r.mutex.Lock()
	wants := r.wants
	r.mutex.Unlock()
	if !wants {
		response, err := r.shared.RoundTrip(request)
		if err != nil || response.StatusCode != http.StatusProxyAuthRequired {
			return response, err
		}
		again, err := repeat(request)
		if err != nil {
			return response, nil
		}
		discard(response)
		request = again
		r.mutex.Lock()
		r.wants = true
		r.mutex.Unlock()
	}
	return r.authenticated(request)
}

// CloseIdleConnections closes the connections that no request uses.
func (r *plainRoute) CloseIdleConnections() {
	r.shared.CloseIdleConnections()
	r.mutex.Lock()
	free := r.free
	r.free = nil
	r.mutex.Unlock()
	for _, lane := range free {
		lane.forget()
	}
}

// authenticated sends a request on a lane, with other credentials if the proxy refuses some.
func (r *plainRoute) authenticated(request *http.Request) (*http.Response, error) {
	lane := r.take()
	for i := 0; ; i++ {
		response, err := lane.send(r.session, request)
		if err == nil {
			response.Body = &laneBody{ReadCloser: response.Body, back: func() { r.give(lane) }}
			return response, nil
		}
		lane.forget()
		again, impossible := repeat(request)
		if !errors.Is(err, ErrCredentialsRefused) || impossible != nil || i+1 == mostPasswords {
			lane.forget()
			return nil, err
		}
		request = again
	}
}

func (r *plainRoute) take() *lane {
	r.mutex.Lock()
	defer r.mutex.Unlock()
	if last := len(r.free) - 1; last >= 0 {
		taken := r.free[last]
		r.free = r.free[:last]
		return taken
	}
	transport := r.shared.Clone()
	transport.MaxConnsPerHost = 1
	return &lane{transport: transport}
}

func (r *plainRoute) give(used *lane) {
	r.mutex.Lock()
	defer r.mutex.Unlock()
	most := r.shared.MaxIdleConnsPerHost
	if most == 0 {
		most = http.DefaultMaxIdleConnsPerHost
	}
	if len(r.free) >= most {
		used.forget()
		return
	}
	r.free = append(r.free, used)
}

// send sends a request, again for each 407 that can be answered. A connection that was authenticated may have been closed
// since: the first 407 then begins a new authentication.
func (l *lane) send(session decider, request *http.Request) (*http.Response, error) {
	ctx := request.Context()
	header := l.repeated
	kept := l.auth != nil
	if !kept {
		var err error
		if header, err = l.begin(session, request); err != nil {
			closeBody(request)
			return nil, err
		}
	}
	for i := 0; i < mostAnswers; i++ {
		sent := request.Clone(ctx)
		if header != "" {
			sent.Header.Set("Proxy-Authorization", header)
		}
		response, err := l.transport.RoundTrip(sent)
		if err != nil || response.StatusCode != http.StatusProxyAuthRequired {
			if strings.HasPrefix(header, "Basic ") {
				l.repeated = header
			}
			return response, err
		}
		if request, err = repeat(request); err != nil {
			discard(response)
			return nil, err
		}
		discard(response)
		if kept && l.repeated == "" {
			l.forget()
			if _, err = l.begin(session, request); err != nil {
				return nil, err
			}
		}
		kept = false
		if header, err = l.auth.Next(ctx, response.Header.Values("Proxy-Authenticate")); err != nil {
			return nil, err
		}
	}
	return nil, errors.New("kiv: authentication to the proxy never completes")
}

// begin begins an authentication; returns the header for the first request.
func (l *lane) begin(session decider, request *http.Request) (string, error) {
	decision, _ := request.Context().Value(decisionKey{}).(Decision)
	auth, err := session.newAuthenticator(decision)
	if err != nil {
		return "", err
	}
	l.auth = auth
	return auth.Next(request.Context(), nil)
}

// forget ends the authentication, and the connection that it was for.
func (l *lane) forget() {
	if l.auth != nil {
		l.auth.Close()
	}
	l.auth, l.repeated = nil, ""
	l.transport.CloseIdleConnections()
}

// repeat gives a request that can be sent once more.
func repeat(request *http.Request) (*http.Request, error) {
	if request.Body == nil || request.Body == http.NoBody {
		return request, nil
	}
	if request.GetBody == nil {
		return nil, errors.New("kiv: the proxy wants authentication, and the request's body cannot be sent again")
	}
	body, err := request.GetBody()
	if err != nil {
		return nil, err
	}
	again := request.Clone(request.Context())
	again.Body = body
	return again, nil
}

// discard reads what there is of a response, so that its connection can be used again.
func discard(response *http.Response) {
	_, _ = io.Copy(io.Discard, io.LimitReader(response.Body, mostBody))
	response.Body.Close()
}

// laneBody gives a lane back when the response has been read or closed.
type laneBody struct {
	io.ReadCloser
	once sync.Once
	back func()
}

// Read implements io.Reader.
func (b *laneBody) Read(data []byte) (int, error) {
	read, err := b.ReadCloser.Read(data)
	if err != nil {
		b.once.Do(b.back)
	}
	return read, err
}

// Close implements io.Closer.
func (b *laneBody) Close() error {
	err := b.ReadCloser.Close()
	b.once.Do(b.back)
	return err
}
