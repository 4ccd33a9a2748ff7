// Package kiv decides how a program connects to a URL on Windows: directly or through which proxy, as the user's settings,
// PAC scripts and automatic detection (WPAD) say, and as tests of the candidates show. It wraps kiv-session.dll, without
// cgo, and brings an http.RoundTripper that does all of it.
//
//	session, err := kiv.New("app/1", kiv.OnChallenge(ask))
//	if err != nil {
//		log.Fatal(err)
//	}
//	defer session.Close()
//	client := &http.Client{Transport: session.Transport(nil)}
//
// On other systems the package compiles, and New returns [ErrUnsupported].
package kiv

import (
	"context"
	"math"
	"runtime"
	"sync"
	"sync/atomic"
	"time"
	"unsafe"
)

// Version is the version of this module.
const Version = "1.0.0"

// A Session remembers what it decided for each origin (scheme, host and port), follows changes of the user's settings and
// of the network, remembers proxies that are dead, and keeps proxy credentials. Create one and keep it. All goroutines may
// use it at once.
type Session struct {
	library  *library
	settings settings

	// Held for reading during each call with the handle, which is 0 when the session is closed.
	using  sync.RWMutex
	handle uintptr
	// The session's handle for Close, which ends calls that are under way.
	closing sync.Once
	// Closed when the last event was read.
	ended chan struct{}

	lastTag   atomic.Uint64
	mutex     sync.Mutex
	waiting   map[uint64]chan completion
	questions map[uintptr]context.CancelFunc
	// Closed, and replaced, when a question has ended.
	answered chan struct{}

	lines   chan logLine
	changes chan struct{}
}

type completion struct {
	status   Status
	decision uintptr
}

type logLine struct {
	level LogLevel
	text  string
}

// New creates a session, which works as the user whom the process belongs to, or whom the calling thread impersonates.
// userAgent is the User-Agent header of test requests.
func New(userAgent string, options ...Option) (*Session, error) {
	s := &Session{
		ended:     make(chan struct{}),
		waiting:   map[uint64]chan completion{},
		questions: map[uintptr]context.CancelFunc{},
		answered:  make(chan struct{}),
		lines:     make(chan logLine, 1024),
		changes:   make(chan struct{}, 1),
	}
	for _, option := range append([]Option{Schemes(AuthBasic | AuthNTLM | AuthNegotiate), LeaveOut("socks4://*")}, options...) {
		option(&s.settings)
	}
	var err error
	if s.library, err = load(s.settings.dll); err != nil {
		return nil, err
	}
	agent, err := wideText(userAgent)
	if err != nil {
		return nil, err
	}
	status := Status(s.library.call(sessionCreate, uintptr(unsafe.Pointer(&agent[0])), uintptr(unsafe.Pointer(&s.handle))))
	for _, apply := range s.settings.apply {
		if status == statusOK {
			status = apply(s)
		}
	}
	if status != statusOK {
		s.library.call(sessionDestruct, s.handle)
		return nil, s.failure(status)
	}
	// A session asks for credentials only if somebody has looked for events.
	var event uintptr
	s.library.call(sessionNext, s.handle, 0, uintptr(unsafe.Pointer(&event)))
	s.library.call(eventRelease, event)
	go s.readEvents(s.handle)
	if s.settings.log != nil || s.settings.changed != nil {
		go s.tell()
	}
	return s, nil
}

// Close ends all work: calls that wait return [ErrClosed], and the contexts of open challenges end. Decisions stay
// readable. Closing a closed session does nothing.
func (s *Session) Close() error {
	s.closing.Do(func() {
		s.library.call(sessionClose, s.handle)
		<-s.ended
		s.using.Lock()
		defer s.using.Unlock()
		s.library.call(sessionDestruct, s.handle)
		s.handle = 0
	})
	return nil
}

// use calls a function with the session's handle, which lives until then.
func (s *Session) use(body func(handle uintptr) Status) error {
	s.using.RLock()
	defer s.using.RUnlock()
	if s.handle == 0 {
		return ErrClosed
	}
	return s.failure(body(s.handle))
}

// failure turns a status into an error.
func (s *Session) failure(status Status) error {
	switch status {
	case statusOK:
		return nil
	case StatusClosed:
		return ErrClosed
	case StatusNotYet:
		return ErrNotYet
	}
	return &StatusError{Status: status, text: s.text(uint32(status))}
}

func (s *Session) text(statusOrReason uint32) string {
	return goText(address(s.library.call(statusText, uintptr(statusOrReason))))
}

// Lookup returns the kept decision for a URL's origin, and never blocks. If there is none, it begins a resolution and
// returns [ErrNotYet].
func (s *Session) Lookup(url string) (Decision, error) {
	wide, err := wideText(url)
	if err != nil {
		return Decision{}, err
	}
	var decision uintptr
	err = s.use(func(handle uintptr) Status {
		return Status(s.library.call(sessionLookup, handle, uintptr(unsafe.Pointer(&wide[0])),
			uintptr(unsafe.Pointer(&decision))))
	})
	if err != nil {
		return Decision{}, err
	}
	return s.newDecision(decision), nil
}

// Resolve returns the kept decision for a URL's origin, or resolves it and waits. "There is no route" is a decision too:
// see [Decision.Err]. Only scheme, host and port of the URL are used.
//
// The context's deadline limits the call; without one, the option TimeOut does. When the context ends, Resolve returns its
// error at once, and the work ends unless others wait for it.
func (s *Session) Resolve(ctx context.Context, url string) (Decision, error) {
	wide, err := wideText(url)
	if err != nil {
		return Decision{}, err
	}
	if err := ctx.Err(); err != nil {
		return Decision{}, err
	}
	tag, result := s.await()
	var request uintptr
	err = s.use(func(handle uintptr) Status {
		return Status(s.library.call(sessionStart, handle, uintptr(unsafe.Pointer(&wide[0])), uintptr(timeOutOf(ctx)),
			uintptr(tag), 0, uintptr(unsafe.Pointer(&request))))
	})
	if err != nil {
		s.forsake(tag)
		return Decision{}, err
	}
	defer s.library.call(requestRelease, request)
	select {
	case end := <-result:
		return s.decided(end)
	case <-ctx.Done():
		if s.forsake(tag) {
			s.library.call(requestCancel, request)
			return Decision{}, ctx.Err()
		}
		// It has just ended.
		return s.decided(<-result)
	}
}

// decided turns the end of a request into what Resolve returns.
func (s *Session) decided(end completion) (Decision, error) {
	if err := s.failure(end.status); err != nil {
		return Decision{}, err
	}
	return s.newDecision(end.decision), nil
}

// timeOutOf gives the time until the context's deadline as the library takes it; 0 is the option's.
func timeOutOf(ctx context.Context) uint32 {
	deadline, ok := ctx.Deadline()
	if !ok {
		return 0
	}
	left := milliseconds(time.Until(deadline))
	if left < 1 {
		return 1
	}
	if left >= noTimeOut {
		return noTimeOut
	}
	return uint32(left)
}

// await makes a tag, and the channel on which its completion comes.
func (s *Session) await() (uint64, <-chan completion) {
	tag := s.lastTag.Add(1)
	result := make(chan completion, 1)
	s.mutex.Lock()
	defer s.mutex.Unlock()
	s.waiting[tag] = result
	return tag, result
}

// forsake gives up waiting; false if the completion has come.
func (s *Session) forsake(tag uint64) bool {
	s.mutex.Lock()
	defer s.mutex.Unlock()
	_, waits := s.waiting[tag]
	delete(s.waiting, tag)
	return waits
}

// Report tells that a decision did not work. It is ignored unless the kept decision for its origin names the same route.
func (s *Session) Report(decision Decision, failure Failure) error {
	if decision.native == nil {
		return s.failure(StatusBadArgument)
	}
	defer runtime.KeepAlive(decision.native)
	return s.use(func(handle uintptr) Status {
		return Status(s.library.call(sessionReportFailure, handle, decision.native.handle, uintptr(failure)))
	})
}

// Forget forgets kept decisions and dead proxies. Credentials stay.
func (s *Session) Forget() error {
	return s.use(func(handle uintptr) Status {
		s.library.call(sessionForget, handle)
		return statusOK
	})
}

// ForgetCredentials forgets answers to challenges, refused credentials and declined questions.
func (s *Session) ForgetCredentials() error {
	return s.use(func(handle uintptr) Status {
		s.library.call(sessionForgetCredentials, handle)
		return statusOK
	})
}

// Counter returns a counter; 0 when the session is closed.
func (s *Session) Counter(counter Counter) uint64 {
	var value uint64
	// A closed session has nothing to count.
	_ = s.use(func(handle uintptr) Status {
		value = uint64(s.library.call(sessionGetCounter, handle, uintptr(counter)))
		return statusOK
	})
	return value
}

// readEvents is the only reader of the session's events: no thread of the library ever runs Go code.
func (s *Session) readEvents(handle uintptr) {
	defer close(s.ended)
	for {
		var event uintptr
		status := Status(s.library.call(sessionNext, handle, noTimeOut, uintptr(unsafe.Pointer(&event))))
		switch status {
		case statusOK:
			s.dispatch(event)
		case StatusClosed:
			s.library.call(eventRelease, event)
			s.endQuestions()
			return
		default:
			// For want of memory, which may come back.
			time.Sleep(10 * time.Millisecond)
		}
		s.library.call(eventRelease, event)
	}
}

func (s *Session) dispatch(event uintptr) {
	switch uint32(s.library.call(eventKind, event)) {
	case eventCompleted:
		s.complete(uint64(s.library.call(eventTag, event)), completion{
			status:   Status(s.library.call(eventStatus, event)),
			decision: s.library.call(eventDecision, event),
		})
	case eventChallenge:
		s.ask(s.library.call(eventChallengeOf, event))
	case eventWithdrawn:
		challenge := s.library.call(eventChallengeOf, event)
		s.endQuestion(challenge)
		s.library.call(challengeRelease, challenge)
	case eventChanged:
		select {
		case s.changes <- struct{}{}:
		default:
		}
	case eventLog:
		line := logLine{LogLevel(s.library.call(eventStatus, event)), goText(address(s.library.call(eventText, event)))}
		select {
		case s.lines <- line:
		default:
		}
	}
}

func (s *Session) complete(tag uint64, end completion) {
	s.mutex.Lock()
	result := s.waiting[tag]
	delete(s.waiting, tag)
	s.mutex.Unlock()
	if result == nil {
		s.library.call(decisionRelease, end.decision)
		return
	}
	result <- end
}

// ask lets the application answer a challenge, which is released afterwards: that declines one without an answer.
func (s *Session) ask(handle uintptr) {
	ctx, cancel := context.WithCancel(context.Background())
	s.mutex.Lock()
	s.questions[handle] = cancel
	s.mutex.Unlock()
	challenge := Challenge{
		Proxy:   goText(address(s.library.call(challengeProxy, handle))),
		Scheme:  AuthScheme(s.library.call(challengeScheme, handle)),
		Realm:   goText(address(s.library.call(challengeRealm, handle))),
		Attempt: int(uint32(s.library.call(challengeAttempt, handle))),
	}
	go func() {
		// Also if the application's function panics or ends its goroutine.
		defer s.library.call(challengeRelease, handle)
		defer s.endQuestion(handle)
		defer s.library.call(challengeDecline, handle)
		if s.settings.challenge == nil {
			return
		}
		if user, password, ok := s.settings.challenge(ctx, challenge); ok {
			s.answer(handle, user, password)
		}
	}()
}

// answer gives an answer; what cannot be one, such as an empty user name, is a decline.
func (s *Session) answer(challenge uintptr, user, password string) {
	wideUser, err := wideText(user)
	if err != nil {
		return
	}
	widePassword, err := wideText(password)
	if err != nil {
		return
	}
	defer wipe(widePassword)
	s.library.call(challengeAnswer, challenge, uintptr(unsafe.Pointer(&wideUser[0])),
		uintptr(unsafe.Pointer(&widePassword[0])))
}

func (s *Session) endQuestion(challenge uintptr) {
	s.mutex.Lock()
	defer s.mutex.Unlock()
	if cancel := s.questions[challenge]; cancel != nil {
		cancel()
		delete(s.questions, challenge)
		close(s.answered)
		s.answered = make(chan struct{})
	}
}

func (s *Session) endQuestions() {
	s.mutex.Lock()
	defer s.mutex.Unlock()
	for _, cancel := range s.questions {
		cancel()
	}
	s.questions = map[uintptr]context.CancelFunc{}
}

// questionEnded returns a channel that is closed when the next question ends.
func (s *Session) questionEnded() <-chan struct{} {
	s.mutex.Lock()
	defer s.mutex.Unlock()
	return s.answered
}

// tell calls the application's functions for changes and log lines, which may call the session.
func (s *Session) tell() {
	for {
		select {
		case <-s.changes:
			if s.settings.changed != nil {
				s.settings.changed()
			}
		case line := <-s.lines:
			if s.settings.log != nil {
				s.settings.log(line.level, line.text)
			}
		case <-s.ended:
			return
		}
	}
}

// A Decision says how to connect to one origin. It stays readable when the session has closed.
type Decision struct {
	Kind Kind
	// Scheme, Host, Port and ProxyURL are the proxy's, if Kind is KindProxy. Scheme is http, https, socks4 or socks5.
	Scheme   string
	Host     string
	Port     int
	ProxyURL string
	// AuthScheme is what the proxy let the test request pass with; 0 if it wanted none or was not asked.
	AuthScheme AuthScheme
	Reason     Reason

	reasonText string
	native     *nativeDecision
}

// nativeDecision owns the library's object.
type nativeDecision struct {
	library *library
	handle  uintptr
}

// liveDecisions counts the objects that were not released.
var liveDecisions atomic.Int64

func (s *Session) newDecision(handle uintptr) Decision {
	native := &nativeDecision{library: s.library, handle: handle}
	liveDecisions.Add(1)
	runtime.SetFinalizer(native, func(n *nativeDecision) {
		n.library.call(decisionRelease, n.handle)
		liveDecisions.Add(-1)
	})
	defer runtime.KeepAlive(native)
	decision := Decision{
		Kind:       Kind(s.library.call(decisionKind, handle)),
		Reason:     Reason(s.library.call(decisionReason, handle)),
		AuthScheme: AuthScheme(s.library.call(decisionAuthScheme, handle)),
		native:     native,
	}
	switch decision.Kind {
	case KindProxy:
		decision.Scheme = goText(address(s.library.call(decisionScheme, handle)))
		decision.Host = goText(address(s.library.call(decisionHost, handle)))
		decision.Port = int(uint32(s.library.call(decisionPort, handle)))
		decision.ProxyURL = goText(address(s.library.call(decisionProxyURL, handle)))
	case KindNone:
		decision.reasonText = s.text(uint32(decision.Reason))
	}
	return decision
}

// Age tells how long ago the decision was made, counting time in which the computer slept.
func (d Decision) Age() time.Duration {
	if d.native == nil {
		return 0
	}
	defer runtime.KeepAlive(d.native)
	age := uint64(d.native.library.call(decisionAge, d.native.handle))
	if age > math.MaxInt64/uint64(time.Millisecond) {
		return math.MaxInt64
	}
	return time.Duration(age) * time.Millisecond
}

// Err returns a [*NoRouteError] if the decision is that there is no route.
func (d Decision) Err() error {
	if d.Kind != KindNone {
		return nil
	}
	return &NoRouteError{Reason: d.Reason, text: d.reasonText}
}

// String returns the proxy's URL, DIRECT, or NONE.
func (d Decision) String() string {
	switch d.Kind {
	case KindDirect:
		return "DIRECT"
	case KindProxy:
		return d.ProxyURL
	}
	return "NONE"
}
