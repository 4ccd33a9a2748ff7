package kiv

// What include/kiv/session.h declares. bindings/check_declarations.py compares this file with that header: each value
// stands in a line that ends with its name there, and each function with its number of parameters.

// minimumVersion is the version of the DLL that this module needs: major * 65536 + minor * 256 + patch.
const minimumVersion = 1 << 16

const noTimeOut = 0xFFFFFFFF // KIV_NO_TIME_OUT

// A Status tells how a call of the library ended.
type Status uint32

// Statuses with which calls fail.
const (
	StatusTimedOut    Status = 1          // KIV_STATUS_TIMED_OUT
	StatusCancelled   Status = 2          // KIV_STATUS_CANCELLED
	StatusBadArgument Status = 3          // KIV_STATUS_BAD_ARGUMENT
	StatusBadURL      Status = 4          // KIV_STATUS_BAD_URL
	StatusTooLate     Status = 5          // KIV_STATUS_TOO_LATE
	StatusReentrant   Status = 6          // KIV_STATUS_REENTRANT
	StatusUnsupported Status = 7          // KIV_STATUS_UNSUPPORTED
	StatusOutOfMemory Status = 8          // KIV_STATUS_OUT_OF_MEMORY
	StatusClosed      Status = 9          // KIV_STATUS_CLOSED
	StatusNotYet      Status = 10         // KIV_STATUS_NOT_YET
	StatusRejected    Status = 13         // KIV_STATUS_REJECTED
	StatusTooMany     Status = 0x80070718 // KIV_STATUS_TOO_MANY
)

const (
	statusOK     Status = 0          // KIV_STATUS_OK
	statusAgain  Status = 11         // KIV_STATUS_AGAIN
	statusDone   Status = 12         // KIV_STATUS_DONE
	statusSystem Status = 0x80070000 // KIV_STATUS_SYSTEM
)

// A Kind is what a [Decision] says.
type Kind uint32

// Kinds of decisions.
const (
	// KindNone means that there is no route; the decision's reason tells why.
	KindNone   Kind = 0 // KIV_KIND_NONE
	KindDirect Kind = 1 // KIV_KIND_DIRECT
	KindProxy  Kind = 2 // KIV_KIND_PROXY
)

// A Reason tells why a [Decision] is what it is.
type Reason uint32

// Reasons of decisions for a route.
const (
	// ReasonBypassed: the bypass list names the target.
	ReasonBypassed Reason = 0x101 // KIV_REASON_BYPASSED
	// ReasonReached: the test request reached the target.
	ReasonReached Reason = 0x102 // KIV_REASON_REACHED
	// ReasonConnected: a connection could be made; nothing more was tested.
	ReasonConnected Reason = 0x103 // KIV_REASON_CONNECTED
	// ReasonNotTested: the first candidate, untested.
	ReasonNotTested Reason = 0x104 // KIV_REASON_NOT_TESTED
	// ReasonMakeshift: nothing better was found than a proxy that answered 502, 503, 504 or a redirect to another host.
	ReasonMakeshift Reason = 0x105 // KIV_REASON_MAKESHIFT
)

// Reasons why there is no route.
const (
	ReasonNoCandidate       Reason = 0x111 // KIV_REASON_NO_CANDIDATE
	ReasonNothingWorks      Reason = 0x112 // KIV_REASON_NOTHING_WORKS
	ReasonCredentialsWanted Reason = 0x113 // KIV_REASON_CREDENTIALS_WANTED
	ReasonSchemeUnsupported Reason = 0x114 // KIV_REASON_SCHEME_UNSUPPORTED
)

// An AuthScheme is an authentication scheme of proxies, or a sum of several.
type AuthScheme uint32

// Authentication schemes.
const (
	AuthBasic     AuthScheme = 0x1  // KIV_SCHEME_BASIC
	AuthNTLM      AuthScheme = 0x2  // KIV_SCHEME_NTLM
	AuthDigest    AuthScheme = 0x8  // KIV_SCHEME_DIGEST
	AuthNegotiate AuthScheme = 0x10 // KIV_SCHEME_NEGOTIATE
)

// A Failure is what [Session.Report] tells of a decision.
type Failure uint32

// Failures of decisions.
const (
	// FailureProxyUnreachable: no connection to the proxy could be made. It is tried last for a while.
	FailureProxyUnreachable Failure = 1 // KIV_FAILURE_PROXY_UNREACHABLE
	// FailureProxyCredentials: the proxy refused the session's credentials. They are never sent to it again.
	FailureProxyCredentials Failure = 2 // KIV_FAILURE_PROXY_CREDENTIALS
	// FailureTarget: the target could not be reached. The origin's decision is dropped.
	FailureTarget Failure = 3 // KIV_FAILURE_TARGET
)

// A Counter is what [Session.Counter] tells.
type Counter uint32

// Counters of a session since it was created, and of now where they say so.
const (
	CounterResolutions        Counter = 1  // KIV_COUNTER_RESOLUTIONS
	CounterKeptAnswers        Counter = 2  // KIV_COUNTER_KEPT_ANSWERS
	CounterKeptOrigins        Counter = 3  // KIV_COUNTER_KEPT_ORIGINS
	CounterWaiting            Counter = 4  // KIV_COUNTER_WAITING
	CounterDiscoveries        Counter = 5  // KIV_COUNTER_DISCOVERIES
	CounterOverdueDiscoveries Counter = 6  // KIV_COUNTER_OVERDUE_DISCOVERIES
	CounterTestRequests       Counter = 7  // KIV_COUNTER_TEST_REQUESTS
	CounterConnections        Counter = 8  // KIV_COUNTER_CONNECTIONS
	CounterChallenges         Counter = 9  // KIV_COUNTER_CHALLENGES
	CounterChanges            Counter = 10 // KIV_COUNTER_CHANGES
	CounterLostLogLines       Counter = 11 // KIV_COUNTER_LOST_LOG_LINES
)

// A TestPolicy decides that a candidate works; see [Test].
type TestPolicy uint32

// Policies for tests.
const (
	// TestNone: the first candidate is the answer, untested.
	TestNone TestPolicy = 0 // KIV_TEST_NONE
	// TestConnect: a connection to the candidate can be made.
	TestConnect TestPolicy = 1 // KIV_TEST_CONNECT
	// TestReached: a HEAD request for the origin's root reaches the origin. This is the default.
	TestReached TestPolicy = 2 // KIV_TEST_REACHED
)

// A DirectPolicy decides what becomes of direct connections; see [Direct].
type DirectPolicy uint32

// Policies for direct connections.
const (
	// DirectSettings: they stand where the settings name them. This is the default.
	DirectSettings DirectPolicy = 0 // KIV_DIRECT_SETTINGS
	// DirectLastResort: the direct connection is always the last candidate, and only the last.
	DirectLastResort DirectPolicy = 1 // KIV_DIRECT_LAST_RESORT
	// DirectNever: never, but for targets in the bypass list.
	DirectNever DirectPolicy = 2 // KIV_DIRECT_NEVER
)

// A LoggedOnUserPolicy decides who may receive the logged-on user's credentials; see [LoggedOnUser].
type LoggedOnUserPolicy uint32

// Policies for the logged-on user's credentials.
const (
	LoggedOnUserNever LoggedOnUserPolicy = 0 // KIV_LOGGED_ON_USER_NEVER
	// LoggedOnUserSystem: whom the system's default allows. This is the default.
	LoggedOnUserSystem  LoggedOnUserPolicy = 1 // KIV_LOGGED_ON_USER_SYSTEM
	LoggedOnUserProxies LoggedOnUserPolicy = 2 // KIV_LOGGED_ON_USER_PROXIES
)

// A LogLevel says how important a log line is.
type LogLevel uint32

// Levels of log lines.
const (
	LogOff   LogLevel = 0 // KIV_LOG_LEVEL_OFF
	LogError LogLevel = 1 // KIV_LOG_LEVEL_ERROR
	LogWarn  LogLevel = 2 // KIV_LOG_LEVEL_WARN
	LogInfo  LogLevel = 3 // KIV_LOG_LEVEL_INFO
	LogDebug LogLevel = 4 // KIV_LOG_LEVEL_DEBUG
)

const (
	optionTest             = 1  // KIV_OPTION_TEST
	optionTimeOut          = 2  // KIV_OPTION_TIME_OUT
	optionDiscoveryTimeOut = 3  // KIV_OPTION_DISCOVERY_TIME_OUT
	optionConnectTimeOut   = 4  // KIV_OPTION_CONNECT_TIME_OUT
	optionAnswerTimeOut    = 5  // KIV_OPTION_ANSWER_TIME_OUT
	optionKeptTime         = 6  // KIV_OPTION_KEPT_TIME
	optionPastTime         = 7  // KIV_OPTION_PAST_TIME
	optionFailureTime      = 8  // KIV_OPTION_FAILURE_TIME
	optionDeadTime         = 9  // KIV_OPTION_DEAD_TIME
	optionOrigins          = 10 // KIV_OPTION_ORIGINS
	optionCandidates       = 11 // KIV_OPTION_CANDIDATES
	optionDirect           = 12 // KIV_OPTION_DIRECT
	optionLoggedOnUser     = 13 // KIV_OPTION_LOGGED_ON_USER
	optionSchemes          = 14 // KIV_OPTION_SCHEMES
	optionLogLevel         = 15 // KIV_OPTION_LOG_LEVEL
	optionLeftOut          = 64 // KIV_OPTION_LEFT_OUT
	optionBypassList       = 65 // KIV_OPTION_BYPASS_LIST

	proxyPreferred = 1 // KIV_PROXY_PREFERRED
	proxyFallback  = 2 // KIV_PROXY_FALLBACK
)

const (
	eventCompleted = 1 // KIV_EVENT_COMPLETED
	eventChallenge = 2 // KIV_EVENT_CHALLENGE
	eventWithdrawn = 3 // KIV_EVENT_WITHDRAWN
	eventChanged   = 4 // KIV_EVENT_CHANGED
	eventLog       = 5 // KIV_EVENT_LOG
	eventClosed    = 6 // KIV_EVENT_CLOSED
)

// A function is an index of functions.
type function int

const (
	statusText function = iota
	sessionVersion
	sessionCreate
	sessionClose
	sessionDestruct
	sessionSetNumber
	sessionSetText
	sessionSetProxy
	sessionLookup
	sessionStart
	sessionReportFailure
	sessionForget
	sessionForgetCredentials
	sessionGetCounter
	sessionNext
	requestCancel
	requestRelease
	decisionKind
	decisionScheme
	decisionHost
	decisionPort
	decisionProxyURL
	decisionAuthScheme
	decisionAge
	decisionReason
	decisionRelease
	eventKind
	eventTag
	eventStatus
	eventDecision
	eventChallengeOf
	eventText
	eventRelease
	challengeProxy
	challengeScheme
	challengeRealm
	challengeAttempt
	challengeAnswer
	challengeDecline
	challengeRelease
	authCreate
	authNext
	authRelease
	functionCount
)

// functions are the DLL's functions that this module calls, each with its number of parameters.
var functions = [functionCount]struct {
	name       string
	parameters int
}{
	statusText:               {"KivStatus_Text", 1},
	sessionVersion:           {"KivSession_Version", 0},
	sessionCreate:            {"KivSession_Create", 2},
	sessionClose:             {"KivSession_Close", 1},
	sessionDestruct:          {"KivSession_Destruct", 1},
	sessionSetNumber:         {"KivSession_SetNumber", 3},
	sessionSetText:           {"KivSession_SetText", 3},
	sessionSetProxy:          {"KivSession_SetProxy", 5},
	sessionLookup:            {"KivSession_Lookup", 3},
	sessionStart:             {"KivSession_Start", 6},
	sessionReportFailure:     {"KivSession_ReportFailure", 3},
	sessionForget:            {"KivSession_Forget", 1},
	sessionForgetCredentials: {"KivSession_ForgetCredentials", 1},
	sessionGetCounter:        {"KivSession_GetCounter", 2},
	sessionNext:              {"KivSession_Next", 3},
	requestCancel:            {"KivRequest_Cancel", 1},
	requestRelease:           {"KivRequest_Release", 1},
	decisionKind:             {"KivDecision_Kind", 1},
	decisionScheme:           {"KivDecision_Scheme", 1},
	decisionHost:             {"KivDecision_Host", 1},
	decisionPort:             {"KivDecision_Port", 1},
	decisionProxyURL:         {"KivDecision_ProxyUrl", 1},
	decisionAuthScheme:       {"KivDecision_AuthScheme", 1},
	decisionAge:              {"KivDecision_Age", 1},
	decisionReason:           {"KivDecision_Reason", 1},
	decisionRelease:          {"KivDecision_Release", 1},
	eventKind:                {"KivEvent_Kind", 1},
	eventTag:                 {"KivEvent_Tag", 1},
	eventStatus:              {"KivEvent_Status", 1},
	eventDecision:            {"KivEvent_Decision", 1},
	eventChallengeOf:         {"KivEvent_Challenge", 1},
	eventText:                {"KivEvent_Text", 1},
	eventRelease:             {"KivEvent_Release", 1},
	challengeProxy:           {"KivChallenge_Proxy", 1},
	challengeScheme:          {"KivChallenge_Scheme", 1},
	challengeRealm:           {"KivChallenge_Realm", 1},
	challengeAttempt:         {"KivChallenge_Attempt", 1},
	challengeAnswer:          {"KivChallenge_Answer", 3},
	challengeDecline:         {"KivChallenge_Decline", 1},
	challengeRelease:         {"KivChallenge_Release", 1},
	authCreate:               {"KivAuth_Create", 3},
	authNext:                 {"KivAuth_Next", 3},
	authRelease:              {"KivAuth_Release", 1},
}
