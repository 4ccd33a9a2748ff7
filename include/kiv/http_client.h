/** @file
 * A small HTTP client that proves whether one URL can be reached through one proxy configuration.
 *
 * It sends a HEAD or GET request, answers one proxy challenge (407) and one server challenge (401) with the credentials
 * that it was given, and reports the final status. It reads no body and follows the system's rules on redirects.
 */
#ifndef KIV_HTTP_CLIENT_H
#define KIV_HTTP_CLIENT_H

#include <wchar.h>

#include "kiv/cred.h"
#include "kiv/export.h"
#include "kiv/log.h"
#include "kiv/proxy_config.h"

KIV_BEGIN_DECLARATIONS

/** A client for one URL. It must not be used by two threads at once. */
typedef struct KivHttpClient KivHttpClient;

/**
 * Creates a client.
 * @param url              an http or https URL, copied; must not be null. A user name and password in it become the
 *                         server credentials. A URL of another scheme, one that cannot be read, or one whose port is
 *                         beyond 2147483647 gives an invalid client, whose requests fail.
 * @param userAgent        the agent name of every request, copied; must not be null.
 * @param ignoreCertErrors non-zero to accept, over https, unknown authorities, wrong usage, names and dates.
 * @return a new client, to be released with KivHttpClient_Destruct; null only when memory runs out.
 */
KIV_API KivHttpClient* KivHttpClient_Create(const wchar_t* url, const wchar_t* userAgent, int ignoreCertErrors);

/** Closes its connection and releases a client that the caller owns; null is ignored. */
KIV_API void KivHttpClient_Destruct(KivHttpClient* client);

/**
 * Moves a client, with its connection, into a new one.
 * @param source left without a connection; its requests fail. It must still be released. May be null.
 * @return a new client; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivHttpClient* KivHttpClient_MoveConstruct(KivHttpClient* source);

/**
 * Moves `source`, with its connection, into `target`, whose own connection is closed; requests on `source` fail from
 * then on. Does nothing if either is null. Moving a client onto itself changes nothing. Cannot fail.
 */
KIV_API void KivHttpClient_Move(KivHttpClient* source, KivHttpClient* target);

/**
 * Gives the client the credentials for the server, by moving them: `cred` becomes a none credential, which stays the
 * caller's to release. A none `cred` takes the client's credentials away. Does nothing if either is null. Cannot fail.
 */
KIV_API void KivHttpClient_SetServerCred(KivHttpClient* client, KivCred* cred);

/**
 * Gives the client a copy of a proxy configuration, credentials included; None and Direct mean no proxy.
 * Does nothing if either is null; leaves the client as it was when memory runs out.
 */
KIV_API void KivHttpClient_SetProxy(KivHttpClient* client, const KivProxyConfig* config);

/**
 * Sends one HEAD request and waits for its answer (for as long as the system's own time-outs let it).
 *
 * The client remembers the authentication schemes that it chose, so that later requests need no challenge; that is the
 * only thing that a request changes. Basic is not used for a server over plain http, unless the environment variable
 * PROXYRESOLVER_ALLOW_INSECURE_AUTH_SCHEME is set to anything but "0".
 * @param client const, so that the function fits the test callback of KivProxyResolver_Resolve.
 * @param logger receives what was sent and answered, at level Debug, and failures; null for no log.
 * @return the HTTP status of the last answer (401 and 407 included); -1 for any failure and if `client` is null.
 */
KIV_API int KivHttpClient_Head(const KivHttpClient* client, const KivLogger* logger);

/** Sends one GET request, without reading the body of the answer; otherwise like KivHttpClient_Head. */
KIV_API int KivHttpClient_Get(const KivHttpClient* client, const KivLogger* logger);

KIV_END_DECLARATIONS

#endif
