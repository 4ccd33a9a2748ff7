/** @file
 * The resolution: finds out how to connect to one URL, directly or through a proxy. */
#ifndef KIV_PROXY_RESOLVER_H
#define KIV_PROXY_RESOLVER_H

#include <wchar.h>

#include "kiv/cred.h"
#include "kiv/export.h"
#include "kiv/log.h"
#include "kiv/proxy_config.h"

KIV_BEGIN_DECLARATIONS

/**
 * Decides whether a candidate is tested.
 * @param context   filterContext.
 * @param candidate valid only during the call.
 * @return non-zero to keep the candidate.
 */
typedef int (*KivCandidateFilter)(const void* context, KivProxyConfig* candidate);

/**
 * Supplies credentials for the server, after it answered 401.
 * @param context   serverCredContext.
 * @param targetUrl the URL, as the application passed it.
 * @return a new handle, which the library releases; never null. KivCred_None() for no credentials.
 */
typedef KivCred* (*KivServerCredSource)(const void* context, const wchar_t* targetUrl);

/**
 * Supplies credentials for a proxy, after it answered 407.
 * @param context proxyCredContext.
 * @param proxy   valid only during the call.
 * @return as for KivServerCredSource.
 */
typedef KivCred* (*KivProxyCredSource)(const void* context, KivProxyConfig* proxy);

/**
 * Sends one test request with the application's client, for example with KivHttpClient_Head or KivHttpClient_Get.
 * @return the HTTP status, 401 and 407 included; negative if the request failed.
 */
typedef int (*KivTestConnection)(const void* client, const void* logContext);

/**
 * Sets the client's server credentials. The callback releases `cred`, which is a new handle, even if none; it is null
 * only if memory ran out.
 */
typedef void (*KivSetServerCred)(void* client, KivCred* cred);

/** Sets the client's proxy. `proxy` is valid only during the call; the callback copies it. */
typedef void (*KivSetProxy)(void* client, KivProxyConfig* proxy);

/** Returns the logger of a resolution; the application still owns it. Called once per resolution; never null. */
typedef KivLogger* (*KivLoggerGetter)(const void* logContext);

/**
 * Finds out how to connect to a URL: directly, or through a proxy.
 *
 * Reads the current user's proxy settings: automatic detection (WPAD), PAC script, manual list, bypass list. If the
 * bypass list matches the URL, the result is Direct. Otherwise tests, in this order, `preferred`, the candidates of the
 * settings, and `fallback`, each with a real request of the application's client. Answers one proxy challenge (407) and
 * one server challenge (401) per candidate. The first candidate whose last status is from 200 to 299 is the result.
 * Every step is logged, between "BEGIN: ProxyResolver" and "END: ProxyResolver".
 *
 * The call blocks until the last test request ends. It makes all callbacks on the calling thread, before it returns.
 * Calls on different threads are independent if they share no client, logger or handle.
 *
 * The log shows `targetUrl` and the bypass list as they are. If the URL contains a password, remove it before the call
 * and supply it with `serverCred`. Leave passwords out of the bypass list. Other passwords are never logged.
 *
 * If a callback throws a C++ exception, whatever compiler built it, everything is released, "END: ProxyResolver" is
 * logged, and the result is null.
 *
 * @param targetUrl      the URL to connect to; must not be null.
 * @param userAgent      the User-Agent header used while the system's settings are read; must not be null.
 * @param bypassList     replaces the system's bypass list (an empty text turns it off); null to use the system's.
 * @param preferred      tested first; null or None for nothing. Read only; the caller still owns it.
 * @param fallback       tested last; null or None for nothing. Read only; the caller still owns it.
 * @param filterContext, filter           decide which candidates are tested; neither may be null.
 * @param serverCredContext, serverCred   supply server credentials; neither may be null.
 * @param proxyCredContext, proxyCred     supply proxy credentials; neither may be null.
 * @param client         the application's client, passed to the next three; must not be null.
 * @param testConnection sends a test request; must not be null.
 * @param setServerCred  sets the client's server credentials; must not be null.
 * @param setProxy       sets the client's proxy; must not be null.
 * @param logContext     passed to `getLogger` and `testConnection`; must not be null.
 * @param getLogger      returns the logger; must not be null (it is not checked).
 * @return a new configuration, to be released with KivProxyConfig_Destruct: the first candidate that works, with the
 *         proxy credentials used. Direct if the bypass list matches or there is no candidate. None if no candidate
 *         works or the filter removed all. Null if an argument that must not be null is null: no callback is called
 *         and nothing is logged. Null, after the last log line, if memory runs out, a callback throws, or a port in
 *         the bypass list or the URL is too large.
 */
KIV_API KivProxyConfig* KivProxyResolver_Resolve(
    const wchar_t* targetUrl, const wchar_t* userAgent, const wchar_t* bypassList, KivProxyConfig* preferred,
    KivProxyConfig* fallback, const void* filterContext, KivCandidateFilter filter, const void* serverCredContext,
    KivServerCredSource serverCred, const void* proxyCredContext, KivProxyCredSource proxyCred, void* client,
    KivTestConnection testConnection, KivSetServerCred setServerCred, KivSetProxy setProxy, const void* logContext,
    KivLoggerGetter getLogger);

KIV_END_DECLARATIONS

#endif
