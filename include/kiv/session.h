/** @file
 * The C interface of kiv-session.dll: how to connect to a URL, for programs that run long and ask often.
 *
 * A session remembers what it decided for each origin (scheme, host and port), follows changes of the user's settings
 * and of the network, remembers proxies that are dead, and keeps proxy credentials. kiv/session.hpp wraps it for C++17.
 *
 * "Application" means the program that uses the library. Conventions for every function:
 *
 * - Results are a status, one of the KIV_STATUS_ values. Functions that have a result of another kind say so.
 * - A handle is an opaque pointer to a counted object. The caller owns each handle that it receives through a parameter
 *   or as a result, and releases it once with the _Release of its family (a session with KivSession_Destruct). Handles
 *   may be used by several threads at once, and outlive their session.
 * - A null session, request, challenge, decision or event crashes no function: where the result is a status it is
 *   KIV_STATUS_BAD_ARGUMENT, a number is 0, a text is empty, and procedures do nothing. An output parameter that must
 *   not be null but is gives KIV_STATUS_BAD_ARGUMENT; otherwise it is set on every return, to null where there is no
 *   result.
 * - Text is UTF-16, NUL-terminated. Returned text belongs to the object that returned it and lives as long.
 * - Time-outs are in milliseconds; KIV_NO_TIME_OUT is none.
 * - Callbacks run on threads of the system's thread pool, one at a time for each session, and never while the library
 *   holds a lock. KivSession_Resolve, KivRequest_Wait and KivSession_Next return KIV_STATUS_REENTRANT inside a
 *   callback of the same session; every other function may be called. A callback may throw C++ exceptions, whatever
 *   compiler built it: the library stops them.
 * - The library works as the user that the thread which created the session impersonated, or as the process's user.
 * - While the process ends (DLL_PROCESS_DETACH), KivSession_Close, KivSession_Destruct and the _Release functions
 *   return at once, since other threads were ended within the library. No other function may be called.
 * - The first session keeps kiv-session.dll loaded until the process ends.
 */
#ifndef KIV_SESSION_H
#define KIV_SESSION_H

#include <stdint.h>
#include <wchar.h>

#include "kiv/export.h"

KIV_BEGIN_DECLARATIONS

/** What a program shares: settings, kept decisions, credentials. Most programs have one for each user. */
typedef struct KivSession KivSession;
/** One call of KivSession_Start. */
typedef struct KivRequest KivRequest;
/** How to connect to one origin. Never changes, and stays readable when the session has closed. */
typedef struct KivDecision KivDecision;
/** A proxy's question for a user name and a password. */
typedef struct KivChallenge KivChallenge;
/** What KivSession_Next returns. */
typedef struct KivEvent KivEvent;
/** The authentication of one connection to a proxy. One thread at a time may use it. */
typedef struct KivAuth KivAuth;

/** How a call ended. A failure of the system is KIV_STATUS_SYSTEM + its error code. One of a security package is the
 * package's own status, 0x8009xxxx. */
typedef uint32_t KivStatus;

/** The call did what it is for. */
#define KIV_STATUS_OK 0U
/** The time-out passed first. */
#define KIV_STATUS_TIMED_OUT 1U
/** KivRequest_Cancel was called. */
#define KIV_STATUS_CANCELLED 2U
/** A null pointer, an unknown option or reason, or a value out of its range. */
#define KIV_STATUS_BAD_ARGUMENT 3U
/** Not an absolute URL whose scheme is http, https, ws or wss, or one that is too long. */
#define KIV_STATUS_BAD_URL 4U
/** Settings can only be changed before the first resolution. */
#define KIV_STATUS_TOO_LATE 5U
/** The function cannot be called inside a callback of the session. */
#define KIV_STATUS_REENTRANT 6U
/** The proxy offers no authentication scheme that can be answered, or the library was not built for this system. */
#define KIV_STATUS_UNSUPPORTED 7U
/** Memory ran out; nothing has changed. */
#define KIV_STATUS_OUT_OF_MEMORY 8U
/** The session was closed. */
#define KIV_STATUS_CLOSED 9U
/** There is no result yet. */
#define KIV_STATUS_NOT_YET 10U
/** KivAuth_Next: send the header, and call again with the proxy's next answer. */
#define KIV_STATUS_AGAIN 11U
/** KivAuth_Next: send the header; nothing more is to be sent. */
#define KIV_STATUS_DONE 12U
/** KivAuth_Next: the proxy refused the credentials. */
#define KIV_STATUS_REJECTED 13U
/** The base of system errors: 0x80070000 + the code, as in an HRESULT. The statuses of security packages (SEC_E_),
 * which only KivAuth_Next returns, are HRESULTs already: 0x8009xxxx. */
#define KIV_STATUS_SYSTEM 0x80070000U
/** 10,000 callers wait, or completions that nobody has read (ERROR_NOT_ENOUGH_QUOTA). */
#define KIV_STATUS_TOO_MANY 0x80070718U

/** No time-out. */
#define KIV_NO_TIME_OUT 0xFFFFFFFFU

/** @return a static English text for a KIV_STATUS_ or KIV_REASON_ value; never null. For people, not for comparison. */
KIV_API const wchar_t* KivStatus_Text(uint32_t statusOrReason);

/** @return the version of the DLL: major * 65536 + minor * 256 + patch. */
KIV_API uint32_t KivSession_Version(void);

/* ---- The session ------------------------------------------------------------------------------------------------ */

/**
 * Creates a session, which works as the user that the calling thread impersonates now, until it is closed.
 * @param userAgent the User-Agent header of test requests, copied; must not be null. At most 1,024 characters, of which
 *                  none is a control character.
 * @param session   receives the session, to be released with KivSession_Destruct; must not be null.
 * @return KIV_STATUS_OK, KIV_STATUS_BAD_ARGUMENT, KIV_STATUS_OUT_OF_MEMORY, or a system error if the system has no
 *         thread-pool objects, sockets or token for it.
 */
KIV_API KivStatus KivSession_Create(const wchar_t* userAgent, KivSession** session);

/**
 * Ends all work. Every request ends with KIV_STATUS_CLOSED, and every call that waits returns it. Waits only for a
 * callback or wake function that is running on another thread, and for that not at process exit. When it has returned,
 * the session calls the application no more, but for the `done` functions that are still owed: they run on the calling
 * thread, before it returns. Closing a closed session does nothing.
 */
KIV_API void KivSession_Close(KivSession* session);

/**
 * Closes a session and releases it; null is ignored. Other threads may still be inside calls with the session: those
 * return KIV_STATUS_CLOSED. No call may begin afterwards. May be called inside a callback of the session, except that
 * two sessions must not destruct each other from callbacks that run at the same time: each would wait for the other.
 */
KIV_API void KivSession_Destruct(KivSession* session);

/* ---- Settings --------------------------------------------------------------------------------------------------- */

/** What decides that a candidate works; a KIV_TEST_ value. Default: KIV_TEST_REACHED. */
#define KIV_OPTION_TEST 1U
/** The time-out of a call that names none, and of work that no caller limits: 1 to 86,400,000 ms. Default: 30,000. */
#define KIV_OPTION_TIME_OUT 2U
/** The time-out of reading settings and running PAC scripts: 1 to 86,400,000 ms. Default: 10,000. */
#define KIV_OPTION_DISCOVERY_TIME_OUT 3U
/** The time-out of connecting to a proxy or target: 1 to 86,400,000 ms. Default: 5,000. */
#define KIV_OPTION_CONNECT_TIME_OUT 4U
/** The time-out of an answer on an open connection: 1 to 86,400,000 ms. Default: 15,000. */
#define KIV_OPTION_ANSWER_TIME_OUT 5U
/** How long a decision is kept: 0 to 86,400,000 ms. Default: 300,000. */
#define KIV_OPTION_KEPT_TIME 6U
/** How long a decision past its time is the answer while one refresh runs: 0 to 86,400,000 ms. Default: 300,000. */
#define KIV_OPTION_PAST_TIME 7U
/** How long "no route" and other makeshift decisions are kept: 0 to 86,400,000 ms. Default: 10,000. */
#define KIV_OPTION_FAILURE_TIME 8U
/** How long a dead proxy is tried last: 0 to 86,400,000 ms. Default: 300,000. */
#define KIV_OPTION_DEAD_TIME 9U
/** How many decisions are kept: 1 to 10,000. Beyond, one that was not used for long is dropped. Default: 1,024. */
#define KIV_OPTION_ORIGINS 10U
/** How many candidates are attempted: 1 to 32. Default: 32. */
#define KIV_OPTION_CANDIDATES 11U
/** What becomes of direct connections; a KIV_DIRECT_ value. Default: KIV_DIRECT_SETTINGS. */
#define KIV_OPTION_DIRECT 12U
/** Who may receive the logged-on user's credentials; a KIV_LOGGED_ON_USER_ value. Default: _SYSTEM. */
#define KIV_OPTION_LOGGED_ON_USER 13U
/** The authentication schemes that the application's own HTTP client speaks to proxies: a sum of KIV_SCHEME_ values,
 * not 0. A proxy that offers none of them is no answer, and nobody is asked for its password. Default: all four. */
#define KIV_OPTION_SCHEMES 14U
/** Which log lines are made; a KIV_LOG_LEVEL_ value. Can be set at any time. Default: KIV_LOG_LEVEL_OFF. */
#define KIV_OPTION_LOG_LEVEL 15U

/** Candidates that are never used: `[scheme://]host[:port]` with `*` in scheme or host, separated by `;`. Direct
 * connections are left out with KIV_OPTION_DIRECT. At most 65,536 characters. Default: none. */
#define KIV_OPTION_LEFT_OUT 64U
/** The bypass list in place of the settings', in kiv.dll's form; null for the settings'. At most 1,048,576 characters.
 * Default: null. */
#define KIV_OPTION_BYPASS_LIST 65U

/** The first candidate is the answer, untested. */
#define KIV_TEST_NONE 0U
/** A candidate works if a connection to it can be made. */
#define KIV_TEST_CONNECT 1U
/** A candidate works if a HEAD request for the origin's root reaches the origin through it. */
#define KIV_TEST_REACHED 2U

/** Direct connections stand where the settings name them. */
#define KIV_DIRECT_SETTINGS 0U
/** The direct connection is always the last candidate, and only the last. */
#define KIV_DIRECT_LAST_RESORT 1U
/** Never direct, but for targets in the bypass list. */
#define KIV_DIRECT_NEVER 2U

/** Nobody. */
#define KIV_LOGGED_ON_USER_NEVER 0U
/** Whom the system's default allows: proxies, and servers of the intranet. */
#define KIV_LOGGED_ON_USER_SYSTEM 1U
/** Proxies. */
#define KIV_LOGGED_ON_USER_PROXIES 2U

/** Basic: the password crosses the wire as good as in clear. */
#define KIV_SCHEME_BASIC 0x1U
/** NTLM. */
#define KIV_SCHEME_NTLM 0x2U
/** Digest, which KivAuth does not speak. */
#define KIV_SCHEME_DIGEST 0x8U
/** Negotiate: Kerberos, or NTLM where there is none. */
#define KIV_SCHEME_NEGOTIATE 0x10U

/** No lines. */
#define KIV_LOG_LEVEL_OFF 0U
/** Lines about failures. */
#define KIV_LOG_LEVEL_ERROR 1U
/** And about what is not as it should be. */
#define KIV_LOG_LEVEL_WARN 2U
/** And about the begin and the end of each resolution. */
#define KIV_LOG_LEVEL_INFO 3U
/** And about each step. */
#define KIV_LOG_LEVEL_DEBUG 4U

/**
 * Sets an option that is a number.
 * @return KIV_STATUS_OK; KIV_STATUS_BAD_ARGUMENT for an option that is not known or a value out of its range;
 *         KIV_STATUS_TOO_LATE; KIV_STATUS_CLOSED.
 */
KIV_API KivStatus KivSession_SetNumber(KivSession* session, uint32_t option, uint32_t value);

/** Sets an option that is a text, which is copied; null restores the default. Returns what KivSession_SetNumber does,
 * or KIV_STATUS_OUT_OF_MEMORY. */
KIV_API KivStatus KivSession_SetText(KivSession* session, uint32_t option, const wchar_t* text);

/** The application's own candidate in front of the settings'. */
#define KIV_PROXY_PREFERRED 1U
/** The application's own candidate behind the settings'. */
#define KIV_PROXY_FALLBACK 2U

/**
 * Sets an own candidate.
 * @param session  the session.
 * @param which    KIV_PROXY_PREFERRED or KIV_PROXY_FALLBACK.
 * @param text     `[scheme://]host[:port]`, copied; scheme http, https, socks4 or socks5 (socks is socks5); null for no
 *                 candidate. At most 4,096 characters. It must not hold credentials.
 * @param user     the user name for this proxy, copied, or null for none.
 * @param password its password, copied into protected memory; null for none. The caller wipes its own copy.
 * @return as KivSession_SetText; KIV_STATUS_BAD_ARGUMENT also for a text that names no proxy.
 */
KIV_API KivStatus KivSession_SetProxy(KivSession* session, uint32_t which, const wchar_t* text, const wchar_t* user,
                                      const wchar_t* password);

/**
 * Tells the application that the empty queue of events received one. Runs on a thread of the pool. It must not block
 * and must not call the session; it sets an event, posts a message, or wakes a loop.
 */
typedef void (*KivWakeFunction)(void* context);
/** Whether a candidate may be used (non-zero): a proxy, as its URL without credentials. One that throws says no. */
typedef int (*KivFilterFunction)(void* context, const wchar_t* proxyUrl);
/** Receives a challenge, which it owns, or the news that a challenge was withdrawn (KivChallenge_IsWithdrawn). Answers
 * now or later. */
typedef void (*KivCredentialFunction)(void* context, KivChallenge* challenge);
/** Receives a log line, borrowed for the call; `level` is a KIV_LOG_LEVEL_ value. */
typedef void (*KivLogFunction)(void* context, uint32_t level, const wchar_t* text);
/** Tells that settings or network have changed; kept decisions are stale, as the application's connections may be. */
typedef void (*KivChangedFunction)(void* context);
/** Receives the end of a request. `decision` is the receiver's to release, and null unless the status is
 * KIV_STATUS_OK. */
typedef void (*KivDoneFunction)(uint64_t tag, KivStatus status, KivDecision* decision);

/** Sets the wake function; null for none. `context` is only handed on. Each of these five functions is for the time
 * before the first resolution, and returns KIV_STATUS_OK, _BAD_ARGUMENT, _TOO_LATE or _CLOSED. What a callback of its
 * own receives is not put into the queue of events. */
KIV_API KivStatus KivSession_SetWake(KivSession* session, KivWakeFunction function, void* context);
/** Sets the filter; null for none. */
KIV_API KivStatus KivSession_SetFilter(KivSession* session, KivFilterFunction function, void* context);
/** Sets the receiver of challenges; null for the queue of events. */
KIV_API KivStatus KivSession_SetCredentialCallback(KivSession* session, KivCredentialFunction function, void* context);
/** Sets the receiver of log lines; null for the queue of events. */
KIV_API KivStatus KivSession_SetLog(KivSession* session, KivLogFunction function, void* context);
/** Sets the receiver of changes; null for the queue of events. */
KIV_API KivStatus KivSession_SetChanged(KivSession* session, KivChangedFunction function, void* context);

/* ---- Resolving -------------------------------------------------------------------------------------------------- */

/**
 * Returns the kept decision for a URL's origin, and never blocks.
 * @param session  the session.
 * @param url      an absolute http, https, ws or wss URL; at most 1,048,576 characters, its host at most 255 in ASCII
 *                 form. Only scheme, host and port are used; nothing else of it is kept, sent or logged.
 * @param decision receives the decision, to be released.
 * @return KIV_STATUS_OK; KIV_STATUS_NOT_YET if none is kept: a resolution has begun, whose result a later call returns;
 *         KIV_STATUS_BAD_URL, _BAD_ARGUMENT, _OUT_OF_MEMORY, _TOO_MANY, _CLOSED.
 */
KIV_API KivStatus KivSession_Lookup(KivSession* session, const wchar_t* url, KivDecision** decision);

/**
 * Returns the kept decision for a URL's origin, or resolves it and waits.
 * @param session  the session.
 * @param url      as for KivSession_Lookup.
 * @param timeout  in ms; 0 is the option's value, KIV_NO_TIME_OUT none.
 * @param decision receives the decision, to be released. "There is no route" is a decision too: KIV_KIND_NONE.
 * @return as KivSession_Lookup (but _NOT_YET), KIV_STATUS_TIMED_OUT, KIV_STATUS_REENTRANT, or a system error.
 */
KIV_API KivStatus KivSession_Resolve(KivSession* session, const wchar_t* url, uint32_t timeout, KivDecision** decision);

/**
 * Begins a resolution and returns. If it fails, nothing follows. Otherwise its end is told once: by `done`, or by an
 * event of kind KIV_EVENT_COMPLETED.
 * @param session the session.
 * @param url     as for KivSession_Lookup.
 * @param timeout as for KivSession_Resolve.
 * @param tag     any number, handed on.
 * @param done    runs on a thread of the pool, maybe before this function has returned; null for an event.
 * @param request receives the request, to be released; null if the caller does not need it. Releasing does not cancel.
 * @return KIV_STATUS_OK, KIV_STATUS_BAD_URL, _BAD_ARGUMENT, _OUT_OF_MEMORY, _TOO_MANY, _CLOSED.
 */
KIV_API KivStatus KivSession_Start(KivSession* session, const wchar_t* url, uint32_t timeout, uint64_t tag,
                                   KivDoneFunction done, KivRequest** request);

/** Ends a request with KIV_STATUS_CANCELLED, unless it has ended; its end is told all the same. Returns at once. */
KIV_API void KivRequest_Cancel(KivRequest* request);

/**
 * Waits for the end of a request. Any number of threads may wait, any number of times.
 * @param request  of KivSession_Start.
 * @param timeout  in ms; 0 only looks.
 * @param decision receives the decision, to be released; null if the status is not KIV_STATUS_OK.
 * @return the request's status; KIV_STATUS_NOT_YET if `timeout` passed first; KIV_STATUS_REENTRANT; KIV_STATUS_CLOSED.
 */
KIV_API KivStatus KivRequest_Wait(KivRequest* request, uint32_t timeout, KivDecision** decision);
/** Releases a request; null is ignored. */
KIV_API void KivRequest_Release(KivRequest* request);

/** No connection to the proxy could be made: it is tried last for a while, for every origin. */
#define KIV_FAILURE_PROXY_UNREACHABLE 1U
/** The proxy refused the session's credentials: they are never sent to it again. */
#define KIV_FAILURE_PROXY_CREDENTIALS 2U
/** The target could not be reached: the origin's kept decision is dropped. */
#define KIV_FAILURE_TARGET 3U

/**
 * Tells that a decision did not work. Ignored unless the kept decision for its origin names the same route.
 * @param session  that made the decision.
 * @param decision that did not work.
 * @param reason a KIV_FAILURE_ value.
 * @return KIV_STATUS_OK, also if it was ignored; KIV_STATUS_BAD_ARGUMENT; KIV_STATUS_CLOSED.
 */
KIV_API KivStatus KivSession_ReportFailure(KivSession* session, KivDecision* decision, uint32_t reason);
/** Forgets kept decisions and dead proxies. Credentials stay. */
KIV_API void KivSession_Forget(KivSession* session);
/** Forgets answers, refused credentials and declined questions. Decisions that used or wanted credentials are stale.
 * The credentials of KivSession_SetProxy may be tried again. KivAuth_Next sends nothing more of an answer that was
 * forgotten: a handshake that is under way with it ends with KIV_STATUS_REJECTED. */
KIV_API void KivSession_ForgetCredentials(KivSession* session);

/** Resolutions begun; a refresh is one. */
#define KIV_COUNTER_RESOLUTIONS 1U
/** Answers from kept decisions. */
#define KIV_COUNTER_KEPT_ANSWERS 2U
/** Origins with a kept decision, now. */
#define KIV_COUNTER_KEPT_ORIGINS 3U
/** Callers that wait, and completions that nobody has read, now. */
#define KIV_COUNTER_WAITING 4U
/** Discoveries begun. */
#define KIV_COUNTER_DISCOVERIES 5U
/** Discoveries that are overdue and have not ended yet, now. */
#define KIV_COUNTER_OVERDUE_DISCOVERIES 6U
/** Test requests sent. */
#define KIV_COUNTER_TEST_REQUESTS 7U
/** Connections begun by the session itself. */
#define KIV_COUNTER_CONNECTIONS 8U
/** Challenges handed to the application. */
#define KIV_COUNTER_CHALLENGES 9U
/** Changes of settings or network. */
#define KIV_COUNTER_CHANGES 10U
/** Log lines lost because 1,024 waited, or for want of memory. */
#define KIV_COUNTER_LOST_LOG_LINES 11U

/** @return a KIV_COUNTER_ value since the session was created; 0 for an unknown one or a null session. */
KIV_API uint64_t KivSession_GetCounter(KivSession* session, uint32_t counter);

/* ---- Decisions -------------------------------------------------------------------------------------------------- */

/** There is no route: KivDecision_Reason tells why. */
#define KIV_KIND_NONE 0U
/** Connect directly. */
#define KIV_KIND_DIRECT 1U
/** Connect through the proxy. */
#define KIV_KIND_PROXY 2U

/** The bypass list names the target. Direct, untested. */
#define KIV_REASON_BYPASSED 0x101U
/** The test request reached the target. */
#define KIV_REASON_REACHED 0x102U
/** A connection could be made; nothing more was tested. Proxies that want TLS are only tested so. */
#define KIV_REASON_CONNECTED 0x103U
/** The first candidate, untested. */
#define KIV_REASON_NOT_TESTED 0x104U
/** Nothing better was found than a proxy that answered 502, 503, 504 or a redirect to another host. */
#define KIV_REASON_MAKESHIFT 0x105U
/** None: there is no candidate. */
#define KIV_REASON_NO_CANDIDATE 0x111U
/** None: no candidate works. */
#define KIV_REASON_NOTHING_WORKS 0x112U
/** None: a proxy wants credentials that the session does not have. Kept until credentials change. */
#define KIV_REASON_CREDENTIALS_WANTED 0x113U
/** None: a proxy offers no authentication scheme that can be used. */
#define KIV_REASON_SCHEME_UNSUPPORTED 0x114U

/** @return a KIV_KIND_ value. */
KIV_API uint32_t KivDecision_Kind(const KivDecision* decision);
/** @return the proxy's scheme, "http", "https", "socks4" or "socks5"; empty unless the kind is KIV_KIND_PROXY. */
KIV_API const wchar_t* KivDecision_Scheme(const KivDecision* decision);
/** @return the proxy's host, an IPv6 address without brackets; empty unless the kind is KIV_KIND_PROXY. */
KIV_API const wchar_t* KivDecision_Host(const KivDecision* decision);
/** @return the proxy's port, 1 to 65535; 0 unless the kind is KIV_KIND_PROXY. */
KIV_API uint32_t KivDecision_Port(const KivDecision* decision);
/** @return `scheme://host:port`, without credentials; empty unless the kind is KIV_KIND_PROXY. */
KIV_API const wchar_t* KivDecision_ProxyUrl(const KivDecision* decision);
/** @return the KIV_SCHEME_ with which the session's credentials let the test request pass, KIV_SCHEME_BASIC for a SOCKS
 *          proxy; 0 if none were sent, also if the system sent the logged-on user's. */
KIV_API uint32_t KivDecision_AuthScheme(const KivDecision* decision);
/** @return how long ago the decision was made, in ms, counting time in which the computer slept. */
KIV_API uint64_t KivDecision_Age(const KivDecision* decision);
/** @return a KIV_REASON_ value. KivStatus_Text has a text for it. */
KIV_API uint32_t KivDecision_Reason(const KivDecision* decision);

/** Receives credentials in clear, borrowed for the call. */
typedef void (*KivCredentialSink)(void* context, const wchar_t* user, const wchar_t* password);

/**
 * Hands the session's credentials for the decision's proxy to `sink`, before it returns, and wipes them.
 * @return KIV_STATUS_OK; KIV_STATUS_NOT_YET if the session has none; KIV_STATUS_BAD_ARGUMENT; KIV_STATUS_CLOSED;
 *         KIV_STATUS_OUT_OF_MEMORY; a system error if the password cannot be decrypted.
 */
KIV_API KivStatus KivDecision_Credentials(const KivDecision* decision, void* context, KivCredentialSink sink);
/** Adds an owner. @return `decision`. */
KIV_API KivDecision* KivDecision_Retain(KivDecision* decision);
/** Releases a decision; null is ignored. */
KIV_API void KivDecision_Release(KivDecision* decision);

/* ---- Events ----------------------------------------------------------------------------------------------------- */

/** A request has ended: tag, status, decision. */
#define KIV_EVENT_COMPLETED 1U
/** A proxy wants credentials: challenge. */
#define KIV_EVENT_CHALLENGE 2U
/** A challenge is no longer wanted: challenge, the same handle. A dialog can close. */
#define KIV_EVENT_WITHDRAWN 3U
/** Settings or network have changed. Several changes may be told by one event. */
#define KIV_EVENT_CHANGED 4U
/** A log line: its level as status, its text. */
#define KIV_EVENT_LOG 5U
/** The session was closed. Every further call of KivSession_Next returns one. */
#define KIV_EVENT_CLOSED 6U

/**
 * Takes the next event from the queue, or waits for one. Any threads may call it; each event goes to one of them.
 * @param session the session.
 * @param timeout in ms; 0 only looks.
 * @param event   receives the event, to be released.
 * @return KIV_STATUS_OK; KIV_STATUS_NOT_YET if `timeout` passed first; KIV_STATUS_CLOSED, with an event of that kind,
 *         when the session is closed and all completions were read; KIV_STATUS_REENTRANT, _BAD_ARGUMENT,
 *         _OUT_OF_MEMORY.
 */
KIV_API KivStatus KivSession_Next(KivSession* session, uint32_t timeout, KivEvent** event);
/** @return a KIV_EVENT_ value. */
KIV_API uint32_t KivEvent_Kind(const KivEvent* event);
/** @return the tag of the request that has ended; otherwise 0. */
KIV_API uint64_t KivEvent_Tag(const KivEvent* event);
/** @return the status of the request that has ended, or the level of the log line. */
KIV_API uint32_t KivEvent_Status(const KivEvent* event);
/** @return the decision of the request that has ended, to be released by the caller; otherwise null. */
KIV_API KivDecision* KivEvent_Decision(const KivEvent* event);
/** @return the challenge, to be released by the caller; otherwise null. */
KIV_API KivChallenge* KivEvent_Challenge(const KivEvent* event);
/** @return the text of the log line; otherwise empty. */
KIV_API const wchar_t* KivEvent_Text(const KivEvent* event);
/** Releases an event; null is ignored. A challenge that nobody took from its event is declined. */
KIV_API void KivEvent_Release(KivEvent* event);

/* ---- Challenges ------------------------------------------------------------------------------------------------- */

/** @return the proxy, as `scheme://host:port`. */
KIV_API const wchar_t* KivChallenge_Proxy(const KivChallenge* challenge);
/** @return the KIV_SCHEME_ that an answer would be used with. */
KIV_API uint32_t KivChallenge_Scheme(const KivChallenge* challenge);
/** @return the realm that the proxy names, at most 1,024 characters, control characters replaced; empty for none. It is
 *          the proxy's own text: show it as such. */
KIV_API const wchar_t* KivChallenge_Realm(const KivChallenge* challenge);
/** @return 1 for the first question about this proxy, 2 when the first answer was refused. */
KIV_API uint32_t KivChallenge_Attempt(const KivChallenge* challenge);
/** @return non-zero if an answer is no longer wanted. */
KIV_API int KivChallenge_IsWithdrawn(const KivChallenge* challenge);
/**
 * Answers. Both texts are copied, the password into protected memory; the caller wipes its own copy.
 * @param challenge that is still open.
 * @param user     not null, not empty.
 * @param password null is an empty one.
 * @return KIV_STATUS_OK; KIV_STATUS_TOO_LATE if it was answered, declined or withdrawn before; KIV_STATUS_BAD_ARGUMENT;
 *         KIV_STATUS_CLOSED; KIV_STATUS_OUT_OF_MEMORY; a system error if the password cannot be protected.
 */
KIV_API KivStatus KivChallenge_Answer(KivChallenge* challenge, const wchar_t* user, const wchar_t* password);
/** Declines: nobody is asked about this proxy again, until KivSession_ForgetCredentials. */
KIV_API KivStatus KivChallenge_Decline(KivChallenge* challenge);
/** Releases a challenge; null is ignored. The last release of one that was not answered declines it. */
KIV_API void KivChallenge_Release(KivChallenge* challenge);

/* ---- Authentication for other HTTP clients ----------------------------------------------------------------------- */

/**
 * Begins the authentication of one connection to a decision's proxy, for clients that cannot do it themselves.
 * Connections that authenticate at the same time can each send credentials that are not proven yet; each sends them
 * once.
 * @param session  whose credentials are used.
 * @param decision that names the proxy.
 * @param auth receives the authentication, to be released.
 * @return KIV_STATUS_OK; KIV_STATUS_BAD_ARGUMENT, also for a decision that names no HTTP proxy; _CLOSED;
 *         _OUT_OF_MEMORY.
 */
KIV_API KivStatus KivAuth_Create(KivSession* session, KivDecision* decision, KivAuth** auth);

/**
 * Gives the Proxy-Authorization header to send, on the same connection, in answer to a proxy's 407. Calls the system,
 * and may wait for a domain controller.
 * @param auth               of this connection.
 * @param proxyAuthenticate  the values of all Proxy-Authenticate headers of the 407, one in each line (LF or CR LF), or
 *                           separated by commas; at most 65,536 characters. Null or empty asks for what can be sent
 *                           before any 407.
 * @param proxyAuthorization receives the header's value, which lives until the next call or the release; null if
 *                           nothing is to be sent.
 * @return KIV_STATUS_AGAIN or KIV_STATUS_DONE with a header; KIV_STATUS_NOT_YET if credentials are wanted: the
 *         question is open, and a later call continues; KIV_STATUS_REJECTED if the connection is to be closed and
 *         another KivAuth to be begun on a new one: the credentials were refused, and there may be others, or some
 *         were answered while the proxy awaits the rest of a handshake; KIV_STATUS_UNSUPPORTED if the proxy offers
 *         nothing that can be answered, or nobody can be asked; a status of the security package, 0x8009xxxx, if it
 *         failed; KIV_STATUS_CLOSED, _BAD_ARGUMENT, _OUT_OF_MEMORY; a system error.
 */
KIV_API KivStatus KivAuth_Next(KivAuth* auth, const wchar_t* proxyAuthenticate, const wchar_t** proxyAuthorization);
/** Releases an authentication; null is ignored. */
KIV_API void KivAuth_Release(KivAuth* auth);

KIV_END_DECLARATIONS

#endif
