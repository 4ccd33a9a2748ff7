package kiv

import (
	"bufio"
	"context"
	"encoding/base64"
	"errors"
	"fmt"
	"io"
	"net"
	"net/http"
	"net/http/httptest"
	"net/url"
	"strconv"
	"strings"
	"sync"
	"testing"
)

const (
	rightPassword = "opensesame"
	testUser      = "alice"
)

// fakeSession decides as it was told, and authenticates with Basic.
type fakeSession struct {
	decision  Decision
	kept      bool
	err       error
	mutex     sync.Mutex
	passwords []string
	reports   []Failure
	offered   []string
}

func (f *fakeSession) Lookup(string) (Decision, error) {
	if !f.kept {
		return Decision{}, ErrNotYet
	}
	return f.decision, f.err
}

func (f *fakeSession) Resolve(context.Context, string) (Decision, error) { return f.decision, f.err }

func (f *fakeSession) Report(_ Decision, failure Failure) error {
	f.mutex.Lock()
	defer f.mutex.Unlock()
	f.reports = append(f.reports, failure)
	return nil
}

func (f *fakeSession) newAuthenticator(decision Decision) (authenticator, error) {
	return &fakeAuth{session: f, proxy: decision.ProxyURL}, nil
}

type fakeAuth struct {
	session *fakeSession
	proxy   string
	sent    bool
}

func (a *fakeAuth) Next(_ context.Context, offered []string) (string, error) {
	if len(offered) == 0 {
		return "", nil
	}
	s := a.session
	s.mutex.Lock()
	defer s.mutex.Unlock()
	s.offered = offered
	if a.sent {
		s.passwords = s.passwords[1:]
		return "", &AuthError{Proxy: a.proxy, Schemes: schemesOf(offered), Err: ErrCredentialsRefused}
	}
	if len(s.passwords) == 0 {
		return "", &AuthError{Proxy: a.proxy, Schemes: schemesOf(offered), Err: ErrAuthUnsupported}
	}
	a.sent = true
	return basicHeader(s.passwords[0]), nil
}

func (a *fakeAuth) Close() {}

func basicHeader(password string) string {
	return "Basic " + base64.StdEncoding.EncodeToString([]byte(testUser+":"+password))
}

// testProxy is an HTTP proxy that may want a password, and closes its connections with each 407 if it is told to.
type testProxy struct {
	listener net.Listener
	password string
	closes   bool
	mutex    sync.Mutex
	requests []string
}

func startProxy(t *testing.T, password string, closes bool) *testProxy {
	t.Helper()
	listener, err := net.Listen("tcp", "127.0.0.1:0")
	if err != nil {
		t.Fatal(err)
	}
	p := &testProxy{listener: listener, password: password, closes: closes}
	t.Cleanup(func() { listener.Close() })
	go func() {
		for {
			connection, err := listener.Accept()
			if err != nil {
				return
			}
			go p.serve(connection)
		}
	}()
	return p
}

func (p *testProxy) url() string { return "http://" + p.listener.Addr().String() }

func (p *testProxy) serve(connection net.Conn) {
	defer connection.Close()
	reader := bufio.NewReader(connection)
	for {
		request, err := http.ReadRequest(reader)
		if err != nil {
			return
		}
		io.Copy(io.Discard, request.Body)
		given := request.Header.Get("Proxy-Authorization")
		refused := p.password != "" && given != basicHeader(p.password)
		p.mutex.Lock()
		p.requests = append(p.requests, fmt.Sprintf("%s %s refused=%t", request.Method, request.RequestURI, refused))
		p.mutex.Unlock()
		switch {
		case refused:
			last := ""
			if p.closes {
				last = "Connection: close\r\n"
			}
			fmt.Fprintf(connection, "HTTP/1.1 407 No\r\nProxy-Authenticate: Basic realm=\"gate\"\r\n%sContent-Length: 4\r\n\r\nno\r\n", last)
			if p.closes {
				return
			}
		case request.Method == http.MethodConnect:
			tunnel(connection, reader, request.Host)
			return
		default:
			fmt.Fprintf(connection, "HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nproxied")
		}
	}
}

func tunnel(connection net.Conn, reader io.Reader, host string) {
	target, err := net.Dial("tcp", host)
	if err != nil {
		fmt.Fprint(connection, "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\n\r\n")
		return
	}
	fmt.Fprint(connection, "HTTP/1.1 200 Established\r\n\r\n")
	join(connection, reader, target)
}

// join copies both ways until both sides have ended.
func join(connection net.Conn, reader io.Reader, target net.Conn) {
	defer target.Close()
	go func() {
		io.Copy(target, reader)
		target.Close()
	}()
	io.Copy(connection, target)
}

func proxyDecision(proxy string) Decision {
	parsed, err := url.Parse(proxy)
	if err != nil {
		panic(err)
	}
	port, _ := strconv.Atoi(parsed.Port())
	return Decision{Kind: KindProxy, Scheme: parsed.Scheme, Host: parsed.Hostname(), Port: port, ProxyURL: proxy}
}

// trusting is a transport that takes the certificates of test servers.
func trusting(server *httptest.Server) *http.Transport {
	base, _ := server.Client().Transport.(*http.Transport)
	return base.Clone()
}

func get(t *testing.T, transport http.RoundTripper, target string) (string, error) {
	t.Helper()
	client := &http.Client{Transport: transport}
	response, err := client.Get(target)
	if err != nil {
		return "", err
	}
	defer response.Body.Close()
	body, err := io.ReadAll(response.Body)
	if err != nil {
		t.Fatal(err)
	}
	return strconv.Itoa(response.StatusCode) + " " + string(body), nil
}

func deadAddress(t *testing.T) string {
	t.Helper()
	listener, err := net.Listen("tcp", "127.0.0.1:0")
	if err != nil {
		t.Fatal(err)
	}
	defer listener.Close()
	return "http://" + listener.Addr().String()
}

func TestNoRouteIsNeverADirectConnection(t *testing.T) {
	server := httptest.NewServer(http.HandlerFunc(func(http.ResponseWriter, *http.Request) { t.Error("connected directly") }))
	defer server.Close()
	for _, kept := range []bool{true, false} {
		session := &fakeSession{kept: kept, decision: Decision{Kind: KindNone, Reason: ReasonNothingWorks}}
		if _, err := get(t, newTransport(session, nil), server.URL); !errors.Is(err, ErrNoRoute) {
			t.Errorf("%v", err)
		}
	}
}

func TestADirectConnectionIgnoresTheEnvironmentsProxy(t *testing.T) {
	server := httptest.NewServer(http.HandlerFunc(func(w http.ResponseWriter, _ *http.Request) { io.WriteString(w, "hello") }))
	defer server.Close()
	elsewhere, _ := url.Parse(deadAddress(t))
	session := &fakeSession{decision: Decision{Kind: KindDirect}}
	said, err := get(t, newTransport(session, &http.Transport{Proxy: http.ProxyURL(elsewhere)}), server.URL)
	if err != nil || said != "200 hello" {
		t.Errorf("%q, %v", said, err)
	}
}

func TestPasswordsAreTriedUntilOneIsRight(t *testing.T) {
	server := httptest.NewTLSServer(http.HandlerFunc(func(w http.ResponseWriter, r *http.Request) {
		if r.Header.Get("Proxy-Authorization") != "" {
			t.Error("the target received the proxy's password")
		}
		io.WriteString(w, "hello")
	}))
	defer server.Close()
	for _, closes := range []bool{false, true} {
		for target, expected := range map[string]string{server.URL: "200 hello", "http://host.test/": "200 proxied"} {
			proxy := startProxy(t, rightPassword, closes)
			session := &fakeSession{decision: proxyDecision(proxy.url()), passwords: []string{"wrong", rightPassword}}
			transport := newTransport(session, trusting(server))
			for i := 0; i < 2; i++ {
				if said, err := get(t, transport, target); err != nil || said != expected {
					t.Errorf("%s, closes %t: %q, %v", target, closes, said, err)
				}
			}
		}
	}
}

func TestAProxyWithoutUsableAuthenticationIsNamed(t *testing.T) {
	for _, target := range []string{"https://host.test/", "http://host.test/"} {
		proxy := startProxy(t, rightPassword, false)
		session := &fakeSession{decision: proxyDecision(proxy.url())}
		_, err := get(t, newTransport(session, nil), target)
		var failed *AuthError
		if !errors.Is(err, ErrAuthUnsupported) || !errors.As(err, &failed) || failed.Proxy != proxy.url() ||
			strings.Join(failed.Schemes, ",") != "Basic" {
			t.Errorf("%s: %v", target, err)
		}
	}
}

func TestBodiesAreSentAgainWithThePassword(t *testing.T) {
	proxy := startProxy(t, rightPassword, false)
	session := &fakeSession{decision: proxyDecision(proxy.url()), passwords: []string{rightPassword}}
	client := &http.Client{Transport: newTransport(session, nil)}
	response, err := client.Post("http://host.test/", "text/plain", strings.NewReader("body"))
	if err != nil {
		t.Fatal(err)
	}
	response.Body.Close()
	if response.StatusCode != 200 {
		t.Error(response.Status)
	}
}

func TestWhatFailsIsReported(t *testing.T) {
	open := startProxy(t, "", false)
	dead := deadAddress(t)
	for _, test := range []struct {
		decision Decision
		target   string
		expected Failure
	}{
		{Decision{Kind: KindDirect}, dead, FailureTarget},
		{proxyDecision(dead), "http://host.test/", FailureProxyUnreachable},
		{proxyDecision(dead), "https://host.test/", FailureProxyUnreachable},
		{proxyDecision(strings.Replace(dead, "http", "socks5", 1)), "http://host.test/", FailureProxyUnreachable},
		{proxyDecision(open.url()), strings.Replace(dead, "http", "https", 1), FailureTarget},
	} {
		session := &fakeSession{decision: test.decision}
		_, err := get(t, newTransport(session, nil), test.target)
		if err == nil || len(session.reports) != 1 || session.reports[0] != test.expected {
			t.Errorf("%v to %s: %v, %v", test.decision, test.target, session.reports, err)
		}
	}
}

func TestACancelledRequestIsNoFailure(t *testing.T) {
	listener, err := net.Listen("tcp", "127.0.0.1:0")
	if err != nil {
		t.Fatal(err)
	}
	defer listener.Close()
	ctx, cancel := context.WithCancel(context.Background())
	go func() {
		connection, err := listener.Accept()
		if err == nil {
			defer connection.Close()
			cancel()
			io.Copy(io.Discard, connection)
		}
	}()
	session := &fakeSession{decision: proxyDecision("http://" + listener.Addr().String())}
	request, _ := http.NewRequestWithContext(ctx, http.MethodGet, "https://host.test/", nil)
	if _, err := newTransport(session, nil).RoundTrip(request); !errors.Is(err, context.Canceled) {
		t.Error(err)
	}
	if len(session.reports) != 0 {
		t.Error(session.reports)
	}
}

func TestSocks4IsNotSupported(t *testing.T) {
	session := &fakeSession{decision: proxyDecision("socks4://127.0.0.1:1080")}
	if _, err := get(t, newTransport(session, nil), "http://host.test/"); !errors.Is(err, ErrUnsupported) {
		t.Error(err)
	}
}

func TestAChangedDecisionTakesItsOwnConnections(t *testing.T) {
	server := httptest.NewTLSServer(http.HandlerFunc(func(w http.ResponseWriter, _ *http.Request) { io.WriteString(w, "hello") }))
	defer server.Close()
	first, second := startProxy(t, "", false), startProxy(t, "", false)
	session := &fakeSession{kept: true}
	transport := newTransport(session, trusting(server))
	for _, proxy := range []*testProxy{first, second, first} {
		session.decision = proxyDecision(proxy.url())
		if said, err := get(t, transport, server.URL); err != nil || said != "200 hello" {
			t.Fatalf("%q, %v", said, err)
		}
	}
	if len(first.requests) != 1 || len(second.requests) != 1 {
		t.Errorf("%v, %v", first.requests, second.requests)
	}
}

func TestSocks5ConnectsToTheTarget(t *testing.T) {
	server := httptest.NewServer(http.HandlerFunc(func(w http.ResponseWriter, _ *http.Request) { io.WriteString(w, "hello") }))
	defer server.Close()
	listener, err := net.Listen("tcp", "127.0.0.1:0")
	if err != nil {
		t.Fatal(err)
	}
	defer listener.Close()
	go func() {
		connection, err := listener.Accept()
		if err != nil {
			return
		}
		defer connection.Close()
		// One method; then a request for a name of nine characters and a port.
		io.ReadFull(connection, make([]byte, 3))
		connection.Write([]byte{5, 0})
		request := make([]byte, 5+len("host.test")+2)
		io.ReadFull(connection, request)
		if request[3] != 3 || string(request[5:14]) != "host.test" {
			t.Errorf("%q", request)
		}
		connection.Write([]byte{5, 0, 0, 1, 0, 0, 0, 0, 0, 0})
		if target, err := net.Dial("tcp", server.Listener.Addr().String()); err == nil {
			join(connection, connection, target)
		}
	}()
	session := &fakeSession{decision: proxyDecision("socks5://" + listener.Addr().String())}
	said, err := get(t, newTransport(session, &http.Transport{DisableKeepAlives: true}), "http://host.test/")
	if err != nil || said != "200 hello" {
		t.Errorf("%q, %v", said, err)
	}
}
