package kiv

import (
	"context"
	"time"
	"unsafe"
)

// An Option changes how a session works; see [New].
type Option func(*settings)

// A Challenge is a proxy's question for a user name and a password.
type Challenge struct {
	// Proxy is the proxy, as scheme://host:port.
	Proxy string
	// Scheme is what an answer would be used with.
	Scheme AuthScheme
	// Realm is the proxy's own text, at most 1,024 characters: show it as such.
	Realm string
	// Attempt is 1 for the first question about this proxy, 2 when the first answer was refused.
	Attempt int
}

// settings collects options. Those that the library keeps are applied once the session exists.
type settings struct {
	dll       string
	challenge func(context.Context, Challenge) (user, password string, ok bool)
	changed   func()
	log       func(LogLevel, string)
	apply     []func(*Session) Status
}

// OnChallenge sets what answers the challenges of proxies. It runs on a goroutine of its own for each, and may take as
// long as a user does. ok says that there is an answer; without one nobody is asked about that proxy again, until
// [Session.ForgetCredentials]. The context ends when the answer is no longer wanted: close your dialog then.
//
// Go cannot wipe strings: the password stays in the program's memory for as long as the collector leaves it there.
func OnChallenge(ask func(ctx context.Context, challenge Challenge) (user, password string, ok bool)) Option {
	return func(s *settings) { s.challenge = ask }
}

// OnChanged sets what is told that settings or network have changed. Several changes may be told at once.
func OnChanged(changed func()) Option {
	return func(s *settings) { s.changed = changed }
}

// OnLog sets what receives log lines up to a level. Lines that it is too slow for are lost.
func OnLog(level LogLevel, log func(level LogLevel, line string)) Option {
	return func(s *settings) {
		s.log = log
		number(optionLogLevel, uint32(level))(s)
	}
}

// DLL names kiv-session.dll. Without this option it is the one beside the program. A path that is not absolute begins at
// the current folder.
func DLL(path string) Option {
	return func(s *settings) { s.dll = path }
}

// Test says what decides that a candidate works. Default: TestReached.
func Test(policy TestPolicy) Option { return number(optionTest, uint32(policy)) }

// TimeOut limits calls whose context has no deadline, and work that no caller limits. Default: 30 s.
func TimeOut(limit time.Duration) Option { return duration(optionTimeOut, limit) }

// DiscoveryTimeOut limits reading settings and running PAC scripts. Default: 10 s.
func DiscoveryTimeOut(limit time.Duration) Option { return duration(optionDiscoveryTimeOut, limit) }

// ConnectTimeOut limits connecting to a proxy or target. Default: 5 s.
func ConnectTimeOut(limit time.Duration) Option { return duration(optionConnectTimeOut, limit) }

// AnswerTimeOut limits waiting for an answer on an open connection. Default: 15 s.
func AnswerTimeOut(limit time.Duration) Option { return duration(optionAnswerTimeOut, limit) }

// KeptTime says how long a decision is kept. Default: 5 min.
func KeptTime(kept time.Duration) Option { return duration(optionKeptTime, kept) }

// PastTime says how long a decision past its time is still the answer while one refresh runs. Default: 5 min.
func PastTime(kept time.Duration) Option { return duration(optionPastTime, kept) }

// FailureTime says how long "no route" and other makeshift decisions are kept. Default: 10 s.
func FailureTime(kept time.Duration) Option { return duration(optionFailureTime, kept) }

// DeadTime says how long a dead proxy is tried last. Default: 5 min.
func DeadTime(kept time.Duration) Option { return duration(optionDeadTime, kept) }

// Origins says how many origins' decisions are kept: 1 to 10,000. Default: 1,024.
func Origins(count int) Option { return number(optionOrigins, limited(int64(count))) }

// Candidates says how many candidates are attempted: 1 to 32. Default: 32.
func Candidates(count int) Option { return number(optionCandidates, limited(int64(count))) }

// Direct says what becomes of direct connections. Default: DirectSettings.
func Direct(policy DirectPolicy) Option { return number(optionDirect, uint32(policy)) }

// LoggedOnUser says who may receive the logged-on user's credentials. Default: LoggedOnUserSystem.
func LoggedOnUser(policy LoggedOnUserPolicy) Option {
	return number(optionLoggedOnUser, uint32(policy))
}

// Schemes says which authentication schemes the program's HTTP client speaks to proxies. A proxy that offers none of them
// is no answer. Default: Basic, NTLM and Negotiate, which [Session.Transport] speaks.
func Schemes(schemes AuthScheme) Option { return number(optionSchemes, uint32(schemes)) }

// LeaveOut names candidates that are never used: [scheme://]host[:port] with * in scheme or host, separated by ;. Default:
// socks4://*, which [Session.Transport] does not speak.
func LeaveOut(candidates string) Option { return text(optionLeftOut, candidates) }

// BypassList replaces the settings' bypass list.
func BypassList(list string) Option { return text(optionBypassList, list) }

// Preferred sets an own candidate in front of the settings': [scheme://]host[:port], without credentials. user and
// password may be empty.
func Preferred(proxy, user, password string) Option {
	return ownProxy(proxyPreferred, proxy, user, password)
}

// Fallback sets an own candidate behind the settings'; see [Preferred].
func Fallback(proxy, user, password string) Option {
	return ownProxy(proxyFallback, proxy, user, password)
}

func number(option, value uint32) Option {
	return func(s *settings) {
		s.apply = append(s.apply, func(session *Session) Status {
			return Status(session.library.call(sessionSetNumber, session.handle, uintptr(option), uintptr(value)))
		})
	}
}

// limited gives what is out of a number's range as one that the library refuses.
func limited(value int64) uint32 {
	if value < 0 || value > noTimeOut {
		return noTimeOut
	}
	return uint32(value)
}

// milliseconds rounds up, so that a limit above zero is none of zero, and gives -1 for what is below zero.
func milliseconds(given time.Duration) int64 {
	if given < 0 {
		return -1
	}
	whole := given.Milliseconds()
	if given%time.Millisecond > 0 {
		whole++
	}
	return whole
}

func duration(option uint32, value time.Duration) Option {
	return number(option, limited(milliseconds(value)))
}

func text(option uint32, value string) Option {
	return func(s *settings) {
		s.apply = append(s.apply, func(session *Session) Status {
			wide, err := wideText(value)
			if err != nil {
				return StatusBadArgument
			}
			return Status(session.library.call(sessionSetText, session.handle, uintptr(option),
				uintptr(unsafe.Pointer(&wide[0]))))
		})
	}
}

func ownProxy(which uint32, proxy, user, password string) Option {
	return func(s *settings) {
		s.apply = append(s.apply, func(session *Session) Status {
			var wide [3][]uint16
			for i, value := range [...]string{proxy, user, password} {
				var err error
				if wide[i], err = wideText(value); err != nil {
					return StatusBadArgument
				}
			}
			defer wipe(wide[2])
			if user == "" && password == "" {
				return Status(session.library.call(sessionSetProxy, session.handle, uintptr(which),
					uintptr(unsafe.Pointer(&wide[0][0])), 0, 0))
			}
			return Status(session.library.call(sessionSetProxy, session.handle, uintptr(which),
				uintptr(unsafe.Pointer(&wide[0][0])), uintptr(unsafe.Pointer(&wide[1][0])),
				uintptr(unsafe.Pointer(&wide[2][0]))))
		})
	}
}
