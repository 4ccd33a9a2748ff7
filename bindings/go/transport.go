package kiv

import (
	"bufio"
	"context"
	"crypto/tls"
	"errors"
	"fmt"
	"io"
	"net"
	"net/http"
	"net/url"
	"strconv"
	"strings"
	"sync"
)

// Transport returns an http.RoundTripper that asks the session how to connect before each request, and tells it what did
// not work. It authenticates to HTTP proxies with Basic, NTLM or Negotiate. The settings of base, but for its proxy, hold
// for all connections; nil is http.DefaultTransport's. For https through a proxy, DialTLS and DialTLSContext of base are
// not used.
//
// A request for which there is no route fails with [ErrNoRoute]; it is never sent directly instead. A request fails, too,
// when its route does not work: the next one takes another, as the session then decides. SOCKS 4 proxies, and SOCKS 5
// proxies that want a password, are not supported.
func (s *Session) Transport(base *http.Transport) http.RoundTripper {
	return newTransport(s, base)
}

// decider is what the transport needs of a session.
type decider interface {
	Lookup(url string) (Decision, error)
	Resolve(ctx context.Context, url string) (Decision, error)
	Report(decision Decision, failure Failure) error
	newAuthenticator(decision Decision) (authenticator, error)
}

// authenticator is an Auth.
type authenticator interface {
	Next(ctx context.Context, proxyAuthenticate []string) (string, error)
	Close()
}

func (s *Session) newAuthenticator(decision Decision) (authenticator, error) {
	return s.NewAuth(decision)
}

// transport keeps an http.Transport for each route, so that no connection of one route serves another.
type transport struct {
	session decider
	base    *http.Transport
	mutex   sync.Mutex
	routes  map[string]http.RoundTripper
}

func newTransport(session decider, base *http.Transport) *transport {
	if base == nil {
		base, _ = http.DefaultTransport.(*http.Transport)
	}
	if base == nil {
		base = &http.Transport{}
	}
	return &transport{session: session, base: base.Clone(), routes: map[string]http.RoundTripper{}}
}

// decisionKey is the key of the request's decision in the context with which connections are made.
type decisionKey struct{}

// RoundTrip implements http.RoundTripper.
func (t *transport) RoundTrip(request *http.Request) (*http.Response, error) {
	decision, err := t.decide(request)
	if err != nil {
		closeBody(request)
		return nil, err
	}
	route, err := t.route(decision, request.URL.Scheme)
	if err != nil {
		closeBody(request)
		return nil, err
	}
	response, err := route.RoundTrip(request.WithContext(context.WithValue(request.Context(), decisionKey{}, decision)))
	if response != nil {
		response.Request = request
	}
	return response, err
}

// CloseIdleConnections is called by http.Client's method of that name.
func (t *transport) CloseIdleConnections() {
	t.mutex.Lock()
	defer t.mutex.Unlock()
	for _, route := range t.routes {
		closeIdle(route)
	}
}

func closeIdle(route http.RoundTripper) {
	if closer, ok := route.(interface{ CloseIdleConnections() }); ok {
		closer.CloseIdleConnections()
	}
}

func closeBody(request *http.Request) {
	if request.Body != nil {
		request.Body.Close()
	}
}

func (t *transport) decide(request *http.Request) (Decision, error) {
	origin := request.URL.Scheme + "://" + request.URL.Host
	decision, err := t.session.Lookup(origin)
	if errors.Is(err, ErrNotYet) {
		decision, err = t.session.Resolve(request.Context(), origin)
	}
	if err != nil {
		return Decision{}, err
	}
	return decision, decision.Err()
}

// route returns what carries requests of a scheme by the decision's route.
func (t *transport) route(decision Decision, scheme string) (http.RoundTripper, error) {
	t.mutex.Lock()
	defer t.mutex.Unlock()
	key := scheme + " " + decision.String()
	if route := t.routes[key]; route != nil {
		return route, nil
	}
	route, err := t.newRoute(decision, scheme)
	if err == nil {
		t.routes[key] = route
	}
	return route, err
}

func (t *transport) newRoute(decision Decision, scheme string) (http.RoundTripper, error) {
	made := t.base.Clone()
	made.Proxy = nil
	if decision.Kind == KindDirect {
		made.DialContext = t.dialer(FailureTarget)
		return made, nil
	}
	proxy, err := url.Parse(decision.ProxyURL)
	if err != nil {
		return nil, &ProxyError{Proxy: decision.ProxyURL, Err: err}
	}
	switch decision.Scheme {
	case "socks5":
		made.Proxy = http.ProxyURL(proxy)
		made.DialContext = t.dialer(FailureProxyUnreachable)
		return made, nil
	case "http", "https":
		made.DialTLS, made.DialTLSContext = nil, nil // They would connect directly.
		if scheme == "https" {
			made.DialContext = t.connect
			return made, nil
		}
		made.Proxy = http.ProxyURL(proxy)
		made.DialContext = t.dialer(FailureProxyUnreachable)
		return &plainRoute{session: t.session, shared: made}, nil
	}
	return nil, &ProxyError{Proxy: decision.ProxyURL, Err: fmt.Errorf("%w: %s", ErrUnsupported, decision.Scheme)}
}

// dial connects as the application's transport does.
func (t *transport) dial(ctx context.Context, network, address string) (net.Conn, error) {
	switch {
	case t.base.DialContext != nil:
		return t.base.DialContext(ctx, network, address)
	case t.base.Dial != nil: // Applications may still set it.
		return t.base.Dial(network, address)
	}
	return (&net.Dialer{}).DialContext(ctx, network, address)
}

// dialer returns a function that connects, and reports a failure of the decision if it cannot.
func (t *transport) dialer(failure Failure) func(context.Context, string, string) (net.Conn, error) {
	return func(ctx context.Context, network, address string) (net.Conn, error) {
		connection, err := t.dial(ctx, network, address)
		if err != nil {
			t.report(ctx, failure)
		}
		return connection, err
	}
}

// report tells the session what failed, unless the application has cancelled the request.
func (t *transport) report(ctx context.Context, failure Failure) {
	if decision, ok := ctx.Value(decisionKey{}).(Decision); ok && !errors.Is(ctx.Err(), context.Canceled) {
		// The request has failed, whatever the session makes of it.
		_ = t.session.Report(decision, failure)
	}
}

// mostAnswers limits how often one request is sent again for a proxy's 407, for each password.
const mostAnswers = 8

// mostPasswords: the session asks at most twice for each proxy, and may have had a password before.
const mostPasswords = 3

// connect makes a tunnel to the target through the decision's proxy.
func (t *transport) connect(ctx context.Context, network, target string) (net.Conn, error) {
	decision, ok := ctx.Value(decisionKey{}).(Decision)
	if !ok {
		return nil, ErrNoRoute
	}
	var err error
	for i := 0; i < mostPasswords; i++ {
		var connection net.Conn
		if connection, err = t.connectOnce(ctx, decision, network, target); err == nil {
			return connection, nil
		}
		if !errors.Is(err, ErrCredentialsRefused) {
			break
		}
	}
	return nil, err
}

// connectOnce makes a tunnel with one authentication.
func (t *transport) connectOnce(ctx context.Context, decision Decision, network, target string) (net.Conn, error) {
	auth, err := t.session.newAuthenticator(decision)
	if err != nil {
		return nil, err
	}
	defer auth.Close()
	header, err := auth.Next(ctx, nil)
	if err != nil {
		return nil, err
	}
	var proxy *proxyConnection
	for i := 0; i < mostAnswers; i++ {
		if proxy == nil {
			if proxy, err = t.dialProxy(ctx, decision, network); err != nil {
				t.report(ctx, FailureProxyUnreachable)
				return nil, &ProxyError{Proxy: decision.ProxyURL, Err: err}
			}
		}
		response, err := proxy.connect(ctx, target, header, t.base.ProxyConnectHeader)
		if err != nil {
			proxy.Close()
			t.report(ctx, FailureTarget)
			return nil, &ProxyError{Proxy: decision.ProxyURL, Err: err}
		}
		if response.StatusCode/100 == 2 {
			return proxy, nil
		}
		if response.StatusCode != http.StatusProxyAuthRequired {
			proxy.Close()
			t.report(ctx, FailureTarget)
			return nil, &ProxyError{Proxy: decision.ProxyURL, Err: fmt.Errorf("CONNECT %s: %s", target, response.Status)}
		}
		if response.Close {
			proxy.Close()
			proxy = nil
		}
		header, err = auth.Next(ctx, response.Header.Values("Proxy-Authenticate"))
		if err != nil {
			if proxy != nil {
				proxy.Close()
			}
			return nil, err
		}
	}
	if proxy != nil {
		proxy.Close()
	}
	return nil, &ProxyError{Proxy: decision.ProxyURL, Err: errors.New("authentication never completes")}
}

func (t *transport) dialProxy(ctx context.Context, decision Decision, network string) (*proxyConnection, error) {
	connection, err := t.dial(ctx, network, net.JoinHostPort(decision.Host, strconv.Itoa(decision.Port)))
	if err != nil {
		return nil, err
	}
	if decision.Scheme == "https" {
		configuration := &tls.Config{}
		if t.base.TLSClientConfig != nil {
			configuration = t.base.TLSClientConfig.Clone()
		}
		if configuration.ServerName == "" {
			configuration.ServerName = decision.Host
		}
		configuration.NextProtos = nil
		secure := tls.Client(connection, configuration)
		if err := secure.HandshakeContext(ctx); err != nil {
			connection.Close()
			return nil, err
		}
		connection = secure
	}
	return &proxyConnection{Conn: connection, reader: bufio.NewReader(connection)}, nil
}

// proxyConnection is a connection to a proxy, and after a successful CONNECT to the target.
type proxyConnection struct {
	net.Conn
	reader *bufio.Reader
}

// Read implements net.Conn: what the target said first may have come with the proxy's answer.
func (c *proxyConnection) Read(data []byte) (int, error) { return c.reader.Read(data) }

// mostBody limits what is read of a proxy's page, so that the connection can be used again.
const mostBody = 1 << 20

// connect asks for a tunnel. The response's body has been read; Close says that the connection cannot be used again.
func (c *proxyConnection) connect(ctx context.Context, target, authorization string, headers http.Header) (*http.Response, error) {
	ended := make(chan struct{})
	watched := make(chan struct{})
	go func() {
		defer close(watched)
		select {
		case <-ctx.Done():
			c.Conn.Close()
		case <-ended:
		}
	}()
	response, err := c.exchange(target, authorization, headers)
	close(ended)
	<-watched
	if ctx.Err() != nil {
		return nil, ctx.Err()
	}
	return response, err
}

func (c *proxyConnection) exchange(target, authorization string, headers http.Header) (*http.Response, error) {
	request := &http.Request{Method: http.MethodConnect, URL: &url.URL{Opaque: target}, Host: target, Header: headers.Clone()}
	if request.Header == nil {
		request.Header = http.Header{}
	}
	if authorization != "" {
		request.Header.Set("Proxy-Authorization", authorization)
	}
	if err := request.Write(c.Conn); err != nil {
		return nil, err
	}
	response, err := http.ReadResponse(c.reader, request)
	if err != nil || response.StatusCode/100 == 2 {
		return response, err
	}
	read, err := io.Copy(io.Discard, io.LimitReader(response.Body, mostBody))
	if err != nil || read == mostBody || strings.EqualFold(response.Header.Get("Proxy-Connection"), "close") {
		response.Close = true
	}
	return response, nil
}
