/** @file
 * The built-in HTTP client, which tests whether one URL can be reached through one proxy configuration.
 *
 * It sends a HEAD or GET request with WinHTTP, answers one proxy challenge (407) and one server challenge (401) with
 * the credentials that it has, and returns the final status. It reads no body. WinHTTP's time-outs and redirect rules
 * apply. By its documentation, WinHTTP supports HTTP proxies only: neither SOCKS nor TLS to a proxy. It may answer a
 * proxy that offers Negotiate or NTLM with the logged-on user's credentials, even if the client has none.
 */
#ifndef KIV_HTTP_CLIENT_H
#define KIV_HTTP_CLIENT_H

#include <wchar.h>

#include "kiv/cred.h"
#include "kiv/export.h"
#include "kiv/log.h"
#include "kiv/proxy_config.h"

KIV_BEGIN_DECLARATIONS

/** A client for one URL. Two threads must not use it at once. */
typedef struct KivHttpClient KivHttpClient;

/**
 * Creates a client.
 * @param url              an http or https URL, copied; must not be null. A user name and password in it become the
 *                         server credentials. Another scheme, a text that cannot be parsed, or a port above 2147483647
 *                         gives an invalid client, whose requests fail. Smaller ports are kept modulo 65536.
 * @param userAgent        the User-Agent header of every request, copied; must not be null.
 * @param ignoreCertErrors non-zero to accept server certificates with an unknown authority, a wrong usage, a wrong name
 *                         or a wrong date.
 * @return a new client, to be released with KivHttpClient_Destruct; null only if memory runs out.
 */
KIV_API KivHttpClient* KivHttpClient_Create(const wchar_t* url, const wchar_t* userAgent, int ignoreCertErrors);

/** Closes the connection and releases a client that the caller owns; null is ignored. */
KIV_API void KivHttpClient_Destruct(KivHttpClient* client);

/**
 * Moves a client, with its connection, into a new one.
 * @param source becomes invalid: its requests fail. It must still be released. May be null.
 * @return a new client; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivHttpClient* KivHttpClient_MoveConstruct(KivHttpClient* source);

/**
 * Moves `source`, with its connection, into `target` and closes the connection that `target` had. `source` becomes
 * invalid. Does nothing if either is null. Moving a client onto itself changes nothing. Cannot fail.
 */
KIV_API void KivHttpClient_Move(KivHttpClient* source, KivHttpClient* target);

/**
 * Sets the credentials for the server by moving them: `cred` becomes a none credential, which the caller still
 * releases. A none `cred` removes the client's credentials. Does nothing if either is null. Cannot fail.
 */
KIV_API void KivHttpClient_SetServerCred(KivHttpClient* client, KivCred* cred);

/**
 * Sets the proxy to a copy of `config`, credentials included; None and Direct mean no proxy.
 * Does nothing if either is null. If memory runs out, the client is unchanged.
 */
KIV_API void KivHttpClient_SetProxy(KivHttpClient* client, const KivProxyConfig* config);

/**
 * Sends one HEAD request and waits for the answer. Blocks the calling thread; only WinHTTP's own time-outs limit it.
 *
 * The client remembers the authentication schemes that it chose, so that later requests need no challenge; nothing else
 * in it changes. Basic credentials are not sent to a server over http, unless the environment variable
 * PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME is set to a value other than "0".
 *
 * If the log callback throws a C++ exception, whatever compiler built it, the request's handles are closed and the
 * result is -1.
 * @param client const, so that the function can be called in the test callback of KivProxyResolver_Resolve.
 * @param logger receives requests and answers, at level Debug, and failures; null for no log.
 * @return the HTTP status of the last answer (401 and 407 included); -1 for any failure and if `client` is null.
 */
KIV_API int KivHttpClient_Head(const KivHttpClient* client, const KivLogger* logger);

/** Sends one GET request and does not read the body of the answer; otherwise like KivHttpClient_Head. */
KIV_API int KivHttpClient_Get(const KivHttpClient* client, const KivLogger* logger);

KIV_END_DECLARATIONS

#endif
