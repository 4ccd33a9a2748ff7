/** @file
 * The whole interface of kiv.dll.
 *
 * Conventions that hold for every family:
 *
 * - A handle is an opaque pointer. Whoever receives one from a function documented to return a "new" handle owns it
 *   and releases it, once, with the _Destruct of its family.
 * - A null handle never crashes a function: predicates give false (KivProxyConfig_IsNone and KivCred_IsNone give
 *   true), accessors give null, numeric queries give -1 (KivSecStr_Size, whose result has no sign, gives 0), and
 *   procedures do nothing. The few arguments that must not be null are named where they stand.
 * - Copying and moving take the source first and the target second.
 * - Text is UTF-16, NUL-terminated. A returned text belongs to the object that it was asked of, or to the library.
 * - A function that returns a new handle returns null when memory runs out. The interface throws no C++ exception, but
 *   for one case: what a host's own log callback throws passes through the KivLogger_ function that called it.
 * - Handles carry no locks. Different handles can be used on different threads at once; one handle cannot, unless all
 *   that is done with it is reading.
 */
#ifndef KIV_KIV_H
#define KIV_KIV_H

#include "kiv/cred.h"
#include "kiv/dialog_auth_ui.h"
#include "kiv/http_client.h"
#include "kiv/log.h"
#include "kiv/proxy_config.h"
#include "kiv/proxy_resolver.h"

#endif
