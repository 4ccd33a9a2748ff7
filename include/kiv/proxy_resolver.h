/** @file
 * The resolution: finds a way out to one URL that works. */
#ifndef KIV_PROXY_RESOLVER_H
#define KIV_PROXY_RESOLVER_H

#include <wchar.h>

#include "kiv/cred.h"
#include "kiv/export.h"
#include "kiv/log.h"
#include "kiv/proxy_config.h"

KIV_BEGIN_DECLARATIONS

/**
 * Decides whether a candidate is tried.
 * @param context   what the host gave for it.
 * @param candidate valid only during the call.
 * @return non-zero to keep the candidate.
 */
typedef int (*KivCandidateFilter)(const void* context, KivProxyConfig* candidate);

/**
 * Supplies credentials for the server, after it answered 401.
 * @param context   what the host gave for it.
 * @param targetUrl the URL that is tested, as the host gave it.
 * @return a handle of the library's own making, never null: KivCred_None() for no credentials. The library releases it.
 */
typedef KivCred* (*KivServerCredSource)(const void* context, const wchar_t* targetUrl);

/**
 * Supplies credentials for a proxy, after it answered 407.
 * @param context what the host gave for it.
 * @param proxy   valid only during the call.
 * @return as for KivServerCredSource.
 */
typedef KivCred* (*KivProxyCredSource)(const void* context, KivProxyConfig* proxy);

/**
 * Sends one test request through the host's client; KivHttpClient_Head and KivHttpClient_Get do this.
 * @return the HTTP status; negative if the request failed.
 */
typedef int (*KivTestConnection)(const void* client, const void* logContext);

/** Installs a server credential in the client. `cred` is a new handle, also if none, that the callback releases. */
typedef void (*KivSetServerCred)(void* client, KivCred* cred);

/** Installs a proxy configuration in the client. `proxy` is valid only during the call; the callback copies it. */
typedef void (*KivSetProxy)(void* client, KivProxyConfig* proxy);

/** Gives the logger of a resolution; it stays the host's. Called once per resolution; must not return null. */
typedef KivLogger* (*KivLoggerGetter)(const void* logContext);

/**
 * Finds how to reach a URL: directly, or through a proxy.
 *
 * Reads the current user's proxy settings; a target that the bypass list names goes direct. Otherwise tries, in this
 * order, `preferred`, what the system's settings say, and `fallback`, each with a real request of the host's client,
 * and answers one proxy challenge (407) and one server challenge (401) per candidate. The first candidate whose request
 * ends with a status from 200 to 299 wins. Every step is logged, between "BEGIN: ProxyResolver" and "END:
 * ProxyResolver".
 *
 * Everything happens on the calling thread, before the call returns. Calls on different threads are independent as long
 * as they share no client, logger or handle.
 *
 * @param targetUrl      the URL to reach; must not be null.
 * @param userAgent      the agent name used while reading the system's settings; must not be null.
 * @param bypassList     replaces the system's bypass list (an empty text switches it off); null to use the system's.
 * @param preferred      tried first; null or None for nothing. Read only.
 * @param fallback       tried last; null or None for nothing. Read only.
 * @param filterContext, filter           which candidates are tried; neither may be null.
 * @param serverCredContext, serverCred   where server credentials come from; neither may be null.
 * @param proxyCredContext, proxyCred     where proxy credentials come from; neither may be null.
 * @param client         the host's client, passed to the next three; must not be null.
 * @param testConnection sends a test request; must not be null.
 * @param setServerCred  installs server credentials; must not be null.
 * @param setProxy       installs a proxy configuration; must not be null.
 * @param logContext     passed to `getLogger` and `testConnection`; must not be null.
 * @param getLogger      gives the logger; called without a check, so it must not be null.
 * @return a new configuration, to be released with KivProxyConfig_Destruct: the winner with the proxy credentials that
 *         were obtained for it; Direct if the target is bypassed or there was no candidate at all; None if no candidate
 *         worked or the filter kept none. Null, without a callback or a log line, if an argument that must not be null
 *         is; null, after the log's last line, if memory ran out, a callback threw, or the bypass list or the URL
 *         names a port too large to be read.
 */
KIV_API KivProxyConfig* KivProxyResolver_Resolve(
    const wchar_t* targetUrl, const wchar_t* userAgent, const wchar_t* bypassList, KivProxyConfig* preferred,
    KivProxyConfig* fallback, const void* filterContext, KivCandidateFilter filter, const void* serverCredContext,
    KivServerCredSource serverCred, const void* proxyCredContext, KivProxyCredSource proxyCred, void* client,
    KivTestConnection testConnection, KivSetServerCred setServerCred, KivSetProxy setProxy, const void* logContext,
    KivLoggerGetter getLogger);

KIV_END_DECLARATIONS

#endif
