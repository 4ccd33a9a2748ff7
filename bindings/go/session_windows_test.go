package kiv

import (
	"context"
	"crypto/tls"
	"encoding/hex"
	"errors"
	"io"
	"net"
	"net/http"
	"net/http/httptest"
	"os"
	"os/exec"
	"path/filepath"
	"runtime"
	"strings"
	"sync"
	"sync/atomic"
	"testing"
	"time"
)

// What run_tests.py tells of the servers that it has started: their URLs by name.
func server(t *testing.T, name string) string {
	t.Helper()
	url := os.Getenv("KIV_TEST_" + strings.ToUpper(name))
	if url == "" {
		t.Skip("no server " + name + ": run this by run_tests.py")
	}
	return url
}

// start makes a session that connects through the proxies in its options alone.
func start(t *testing.T, options ...Option) *Session {
	t.Helper()
	session, err := New("kiv-test", append([]Option{Direct(DirectNever), LoggedOnUser(LoggedOnUserNever)}, options...)...)
	if err != nil {
		t.Fatal(err)
	}
	t.Cleanup(func() { session.Close() })
	return session
}

// login answers each challenge with the next of these passwords, then declines.
func login(asked *[]Challenge, passwords ...string) Option {
	var mutex sync.Mutex
	return OnChallenge(func(_ context.Context, challenge Challenge) (string, string, bool) {
		mutex.Lock()
		defer mutex.Unlock()
		*asked = append(*asked, challenge)
		if len(*asked) > len(passwords) {
			return "", "", false
		}
		return testUser, passwords[len(*asked)-1], true
	})
}

// silent is the URL of a proxy that never answers.
func silent(t *testing.T) string {
	t.Helper()
	listener, err := net.Listen("tcp", "127.0.0.1:0")
	if err != nil {
		t.Fatal(err)
	}
	t.Cleanup(func() { listener.Close() })
	go func() {
		for {
			connection, err := listener.Accept()
			if err != nil {
				return
			}
			go io.Copy(io.Discard, connection)
		}
	}()
	return "http://" + listener.Addr().String()
}

func TestADecisionIsMadeKeptAndReadable(t *testing.T) {
	proxy := startProxy(t, "", false)
	session := start(t, Preferred(proxy.url(), "", ""))
	if _, err := session.Lookup("http://host.test/"); !errors.Is(err, ErrNotYet) {
		t.Error(err)
	}
	decision, err := session.Resolve(context.Background(), "http://host.test/path?query")
	if err != nil || decision.Err() != nil {
		t.Fatal(err, decision.Err())
	}
	if decision.Kind != KindProxy || decision.Scheme != "http" || decision.Host != "127.0.0.1" || decision.Port == 0 ||
		decision.ProxyURL != proxy.url() || decision.String() != proxy.url() || decision.Reason != ReasonReached {
		t.Errorf("%+v", decision)
	}
	if _, err := session.Lookup("http://host.test/"); err != nil {
		t.Error(err)
	}
	if session.Counter(CounterResolutions) != 1 || session.Counter(CounterKeptAnswers) == 0 {
		t.Error("not kept")
	}
	session.Close()
	if age := decision.Age(); age < 0 || age > time.Minute {
		t.Error(age)
	}
}

func TestWhatCannotBeIsAnError(t *testing.T) {
	session := start(t)
	var failed *StatusError
	if _, err := session.Resolve(context.Background(), "ftp://host.test/"); !errors.As(err, &failed) || failed.Status != StatusBadURL {
		t.Error(err)
	}
	if err := session.Report(Decision{}, FailureTarget); !errors.As(err, &failed) || failed.Status != StatusBadArgument {
		t.Error(err)
	}
	decision, err := session.Resolve(context.Background(), "http://host.test/")
	var none *NoRouteError
	if err != nil || !errors.As(decision.Err(), &none) || none.Reason != ReasonNoCandidate || none.text == "" {
		t.Error(err, decision.Err())
	}
	for i, option := range []Option{Candidates(33), Origins(-1), TimeOut(0), DeadTime(-1), Test(9), Preferred("://", "", ""), LeaveOut("a\x00")} {
		if _, err := New("kiv-test", option); !errors.As(err, &failed) || failed.Status != StatusBadArgument {
			t.Errorf("%d: %v", i, err)
		}
	}
	session.Close()
	for _, err := range []error{session.Forget(), session.ForgetCredentials(), session.Report(decision, FailureTarget), session.Close()} {
		if err != nil && !errors.Is(err, ErrClosed) {
			t.Error(err)
		}
	}
	if _, err := session.Resolve(context.Background(), "http://host.test/"); err != ErrClosed {
		t.Error(err)
	}
	if _, err := session.NewAuth(decision); err != ErrClosed {
		t.Error(err)
	}
}

func TestEveryOptionIsTaken(t *testing.T) {
	start(t, Test(TestConnect), TimeOut(time.Second), DiscoveryTimeOut(time.Second), ConnectTimeOut(time.Second),
		AnswerTimeOut(time.Second), KeptTime(0), PastTime(0), FailureTime(0), DeadTime(0), Origins(10), Candidates(3),
		Direct(DirectLastResort), LoggedOnUser(LoggedOnUserProxies), Schemes(AuthBasic), LeaveOut("socks5://*"),
		BypassList("*.inside.test"), Preferred("one.test:8080", "user", "password"), Fallback("two.test", "", ""),
		OnLog(LogDebug, func(LogLevel, string) {}), OnChanged(func() {}))
}

func TestALibraryThatCannotBeUsedIsOneClearMessage(t *testing.T) {
	// bindings/stubs.py has made them.
	program, _ := os.Executable()
	for name, expected := range map[string]string{
		"missing": "ship the DLL beside your program, or name it with kiv.DLL",
		"text":    "it is no DLL for amd64: take the kiv-session.dll that is built for this program's processor",
		"arm64":   "it is no DLL for amd64: take the kiv-session.dll that is built for this program's processor",
		"x86":     "it is no DLL for amd64: take the kiv-session.dll that is built for this program's processor",
		"old":     "its version is 0.9.0: take kiv-session.dll 1.0.0 or a later one of the same major version",
		"later":   "its version is 2.0.0: take kiv-session.dll 1.0.0 or a later one of the same major version",
		"lacking": "it has no function KivAuth_Next: take kiv-session.dll 1.0.0 or a later one of the same major version",
	} {
		path := filepath.Join(filepath.Dir(program), "stubs", name+".dll")
		_, err := New("kiv-test", DLL(path))
		var failed *LoadError
		if !errors.As(err, &failed) || failed.Path != path || !strings.HasSuffix(err.Error(), expected) {
			t.Errorf("%s: %v", name, err)
		}
	}
}

func TestDeadlinesAndCancelsAreMet(t *testing.T) {
	session := start(t, Preferred(silent(t), "", ""))
	began := time.Now()
	ctx, cancel := context.WithTimeout(context.Background(), 300*time.Millisecond)
	defer cancel()
	if _, err := session.Resolve(ctx, "http://deadline.test/"); !errors.Is(err, context.DeadlineExceeded) {
		t.Error(err)
	}
	ctx, cancel = context.WithCancel(context.Background())
	time.AfterFunc(300*time.Millisecond, cancel)
	if _, err := session.Resolve(ctx, "http://cancel.test/"); err != context.Canceled {
		t.Error(err)
	}
	if took := time.Since(began); took < 500*time.Millisecond || took > 10*time.Second {
		t.Error(took)
	}
	if _, err := session.Resolve(ctx, "http://cancel.test/"); err != context.Canceled {
		t.Error(err)
	}
}

func TestACancelledCallLeavesNothingBehind(t *testing.T) {
	session := start(t, Preferred(silent(t), "", ""))
	for i := 0; i < 100; i++ {
		ctx, cancel := context.WithCancel(context.Background())
		time.AfterFunc(time.Millisecond, cancel)
		if _, err := session.Resolve(ctx, "http://host.test/"); !errors.Is(err, context.Canceled) {
			t.Fatal(err)
		}
	}
	waitFor(t, func() bool { return session.Counter(CounterWaiting) == 0 })
	session.mutex.Lock()
	defer session.mutex.Unlock()
	if len(session.waiting) != 0 {
		t.Error(len(session.waiting))
	}
}

func waitFor(t *testing.T, condition func() bool) {
	t.Helper()
	for deadline := time.Now().Add(10 * time.Second); !condition(); time.Sleep(10 * time.Millisecond) {
		if time.Now().After(deadline) {
			t.Fatal("in vain")
		}
	}
}

func TestAChallengeIsAnswered(t *testing.T) {
	proxy := startProxy(t, rightPassword, false)
	var asked []Challenge
	session := start(t, Preferred(proxy.url(), "", ""), login(&asked, "wrong", rightPassword))
	decision, err := session.Resolve(context.Background(), "http://host.test/")
	if err != nil || decision.Kind != KindProxy || decision.AuthScheme != AuthBasic {
		t.Errorf("%+v, %v", decision, err)
	}
	expected := Challenge{Proxy: proxy.url(), Scheme: AuthBasic, Realm: "gate", Attempt: 1}
	if len(asked) != 2 || asked[0] != expected || asked[1].Attempt != 2 {
		t.Errorf("%+v", asked)
	}
}

func TestADeclinedChallengeIsNotAskedAgain(t *testing.T) {
	proxy := startProxy(t, rightPassword, false)
	var asked []Challenge
	session := start(t, Preferred(proxy.url(), "", ""), login(&asked))
	for _, host := range []string{"one", "two"} {
		decision, err := session.Resolve(context.Background(), "http://"+host+".test/")
		if err != nil || decision.Reason != ReasonCredentialsWanted {
			t.Errorf("%+v, %v", decision, err)
		}
	}
	if len(asked) != 1 {
		t.Errorf("%+v", asked)
	}
}

func TestAChallengeThatNobodyWantsAnsweredEndsItsContext(t *testing.T) {
	proxy := startProxy(t, rightPassword, false)
	open, ended := make(chan struct{}), make(chan struct{})
	session := start(t, Preferred(proxy.url(), "", ""), OnChallenge(func(ctx context.Context, _ Challenge) (string, string, bool) {
		close(open)
		<-ctx.Done()
		close(ended)
		return testUser, rightPassword, true
	}))
	result := make(chan error)
	go func() {
		_, err := session.Resolve(context.Background(), "http://host.test/")
		result <- err
	}()
	<-open
	session.Close()
	<-ended
	if err := <-result; err != ErrClosed {
		t.Error(err)
	}
}

func TestTenThousandResolutionsLeaveNothingBehind(t *testing.T) {
	proxy := startProxy(t, "", false)
	session := start(t, Preferred(proxy.url(), "", ""))
	// Idle connections of other tests may still hold some.
	runtime.GC()
	held, before := liveDecisions.Load(), runtime.NumGoroutine()
	for i := 0; i < 10000; i++ {
		if decision, err := session.Resolve(context.Background(), "http://host.test/"); err != nil || decision.Kind != KindProxy {
			t.Fatal(decision, err)
		}
	}
	if now := runtime.NumGoroutine(); now > before+2 {
		t.Errorf("%d goroutines, then %d", before, now)
	}
	waitFor(t, func() bool { runtime.GC(); return liveDecisions.Load() <= held })
	if waiting := session.Counter(CounterWaiting); waiting != 0 {
		t.Error(waiting)
	}
}

func TestClosingEndsAllThatWait(t *testing.T) {
	session := start(t, Preferred(silent(t), "", ""))
	var group sync.WaitGroup
	var closed atomic.Int32
	for i := 0; i < 50; i++ {
		group.Add(1)
		go func() {
			defer group.Done()
			if _, err := session.Resolve(context.Background(), "http://host.test/"); err == ErrClosed {
				closed.Add(1)
			}
		}()
	}
	waitFor(t, func() bool { return session.Counter(CounterWaiting) >= 50 })
	began := time.Now()
	for i := 0; i < 2; i++ {
		group.Add(1)
		go func() {
			defer group.Done()
			session.Close()
		}()
	}
	group.Wait()
	if closed.Load() != 50 || time.Since(began) > 2*time.Second {
		t.Error(closed.Load(), time.Since(began))
	}
}

func TestTwoSessionsServeManyGoroutines(t *testing.T) {
	first, second := startProxy(t, "", false), startProxy(t, "", false)
	sessions := map[*Session]string{
		start(t, Preferred(first.url(), "", "")):  first.url(),
		start(t, Preferred(second.url(), "", "")): second.url(),
	}
	var group sync.WaitGroup
	for session, expected := range sessions {
		for i := 0; i < 32; i++ {
			group.Add(1)
			go func(session *Session, expected, host string) {
				defer group.Done()
				for i := 0; i < 50; i++ {
					decision, err := session.Resolve(context.Background(), "http://"+host+".test/")
					if err != nil || decision.ProxyURL != expected {
						t.Errorf("%v, %v", decision, err)
					}
				}
			}(session, expected, "host"+string(rune('a'+i%4)))
		}
	}
	group.Wait()
}

func TestLogLinesArrive(t *testing.T) {
	proxy := startProxy(t, "", false)
	lines := make(chan string, 100)
	session := start(t, Preferred(proxy.url(), "", ""), OnLog(LogDebug, func(level LogLevel, line string) {
		if level >= LogError && level <= LogDebug && line != "" {
			select {
			case lines <- line:
			default:
			}
		}
	}))
	if _, err := session.Resolve(context.Background(), "http://host.test/"); err != nil {
		t.Fatal(err)
	}
	select {
	case <-lines:
	case <-time.After(10 * time.Second):
		t.Error("no line")
	}
}

func TestTheProcessEndsWhileAResolutionRuns(t *testing.T) {
	if proxy := os.Getenv("KIV_TEST_EXIT"); proxy != "" {
		session := start(t, Preferred(proxy, "", ""))
		go session.Resolve(context.Background(), "http://host.test/")
		waitFor(t, func() bool { return session.Counter(CounterWaiting) == 1 })
		os.Exit(7)
	}
	program, _ := os.Executable()
	ctx, cancel := context.WithTimeout(context.Background(), 30*time.Second)
	defer cancel()
	command := exec.CommandContext(ctx, program, "-test.run", "^"+t.Name()+"$")
	command.Env = append(os.Environ(), "KIV_TEST_EXIT="+silent(t))
	var failed *exec.ExitError
	if err := command.Run(); !errors.As(err, &failed) || failed.ExitCode() != 7 {
		t.Error(err)
	}
}

func TestRequestsTakeTheDecisionsRoute(t *testing.T) {
	target := httptest.NewTLSServer(http.HandlerFunc(func(w http.ResponseWriter, _ *http.Request) { io.WriteString(w, "hello") }))
	defer target.Close()
	proxy := startProxy(t, rightPassword, false)
	var asked []Challenge
	session := start(t, Preferred(proxy.url(), "", ""), Test(TestConnect), login(&asked, rightPassword))
	transport := session.Transport(trusting(target))
	for url, expected := range map[string]string{target.URL: "200 hello", "http://host.test/": "200 proxied"} {
		if said, err := get(t, transport, url); err != nil || said != expected {
			t.Errorf("%s: %q, %v", url, said, err)
		}
	}
	if len(asked) != 1 {
		t.Errorf("%+v", asked)
	}
}

func TestWithoutARouteNothingIsSent(t *testing.T) {
	target := httptest.NewServer(http.HandlerFunc(func(http.ResponseWriter, *http.Request) { t.Error("connected directly") }))
	defer target.Close()
	if _, err := get(t, start(t).Transport(nil), target.URL); !errors.Is(err, ErrNoRoute) {
		t.Error(err)
	}
}

func TestAProxyThatDiesIsReplacedAtTheNextRequest(t *testing.T) {
	dying, living := startProxy(t, "", false), startProxy(t, "", false)
	session := start(t, Preferred(dying.url(), "", ""), Fallback(living.url(), "", ""), Test(TestConnect))
	if decision, err := session.Resolve(context.Background(), "http://host.test/"); err != nil || decision.ProxyURL != dying.url() {
		t.Fatal(decision, err)
	}
	dying.listener.Close()
	transport := session.Transport(nil)
	if _, err := get(t, transport, "http://host.test/"); err == nil {
		t.Error("through a dead proxy")
	}
	if said, err := get(t, transport, "http://host.test/"); err != nil || said != "200 proxied" {
		t.Errorf("%q, %v", said, err)
	}
}

func TestSquidIsAuthenticatedTo(t *testing.T) {
	for _, name := range []string{"squid_basic", "squid_ntlm"} {
		for _, target := range []string{server(t, "web"), server(t, "web_tls")} {
			for _, test := range []TestPolicy{TestReached, TestConnect} {
				if test == TestReached && strings.HasPrefix(target, "https") {
					// Wine's WinHTTP does not see a 407 to CONNECT, which the session's test request would be.
					continue
				}
				var asked []Challenge
				session := start(t, Preferred(server(t, name), "", ""), Test(test), login(&asked, "wrong", rightPassword))
				transport := session.Transport(&http.Transport{TLSClientConfig: &tls.Config{InsecureSkipVerify: true}})
				for i := 0; i < 2; i++ {
					if said, err := get(t, transport, target+"/ok"); err != nil || said != "200 ok\n" {
						t.Errorf("%s, %s, %d: %q, %v", name, target, test, said, err)
					}
				}
				if len(asked) != 2 {
					t.Errorf("%s, %s: %+v", name, target, asked)
				}
			}
		}
	}
}

func TestSquidRefusesWrongPasswords(t *testing.T) {
	for _, name := range []string{"squid_basic", "squid_ntlm"} {
		var asked []Challenge
		session := start(t, Preferred(server(t, name), "", ""), Test(TestConnect), login(&asked, "wrong", "wrong too"))
		for _, target := range []string{server(t, "web_tls"), server(t, "web")} {
			var failed *AuthError
			if _, err := get(t, session.Transport(nil), target); !errors.As(err, &failed) || failed.Proxy != server(t, name) {
				t.Errorf("%s: %v", name, err)
			}
		}
		if len(asked) != 2 {
			t.Errorf("%+v", asked)
		}
	}
}

func TestDigestAloneIsNamedAsUnsupported(t *testing.T) {
	session := start(t, Preferred(server(t, "squid_digest"), "", ""), Test(TestConnect))
	var failed *AuthError
	_, err := get(t, session.Transport(nil), server(t, "web_tls"))
	if !errors.Is(err, ErrAuthUnsupported) || !errors.As(err, &failed) || strings.Join(failed.Schemes, "") != "Digest" {
		t.Error(err)
	}
}

// enter makes this proxy the user's, as the dialog of Windows does.
func enter(t *testing.T, proxy string) {
	t.Helper()
	manual := strings.TrimPrefix(proxy, "http://")
	var data []byte
	for _, number := range []int{0x46, 0, 3, len(manual)} {
		data = append(data, byte(number), 0, 0, 0)
	}
	data = append(append(data, manual...), make([]byte, 40)...)
	said, err := exec.Command("reg", "add", `HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings\Connections`, "/v",
		"DefaultConnectionSettings", "/t", "REG_BINARY", "/d", hex.EncodeToString(data), "/f").CombinedOutput()
	if err != nil {
		t.Fatalf("%v: %s", err, said)
	}
}

func TestAChangeOfTheSettingsIsToldAndWithdrawsAChallenge(t *testing.T) {
	closed, living := startProxy(t, rightPassword, false), startProxy(t, "", false)
	enter(t, closed.url())
	open, changed := make(chan struct{}), make(chan struct{}, 100)
	session := start(t, OnChanged(func() { changed <- struct{}{} }),
		OnChallenge(func(ctx context.Context, _ Challenge) (string, string, bool) {
			close(open)
			<-ctx.Done()
			return testUser, rightPassword, true
		}))
	result := make(chan Decision)
	go func() {
		decision, err := session.Resolve(context.Background(), "http://host.test/")
		if err != nil {
			t.Error(err)
		}
		result <- decision
	}()
	<-open
	enter(t, living.url())
	if decision := <-result; decision.ProxyURL != living.url() {
		t.Error(decision)
	}
	select {
	case <-changed:
	case <-time.After(10 * time.Second):
		t.Error("no change")
	}
}
