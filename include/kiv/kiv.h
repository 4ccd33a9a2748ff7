/** @file
 * Includes the whole C interface of kiv.dll.
 *
 * "Application" means the host application: the program that uses the library. Conventions for every family:
 *
 * - A handle is an opaque pointer. If a function is documented to return a "new" handle, the caller owns it and must
 *   release it, once, with the _Destruct of its family.
 * - A null handle crashes no function: predicates return false (KivProxyConfig_IsNone and KivCred_IsNone return true),
 *   accessors return null, numeric queries return -1 (KivSecStr_Size, which is unsigned, returns 0), and procedures do
 *   nothing. Each function names its arguments that must not be null.
 * - Copying and moving take the source first and the target second.
 * - Text is UTF-16, NUL-terminated. Returned text belongs to the object that returned it, or to the library.
 * - A function that returns a new handle returns null if memory runs out.
 * - Callbacks may throw C++ exceptions, whatever compiler built the application. The library stops them and returns
 *   null or -1. Only what a log callback throws out of a KivLogger_ function reaches the caller of that function.
 *   Exceptions that are not C++, such as access violations, always pass, and what the library held is not released.
 * - Handles carry no locks. Different handles can be used on different threads at once. Several threads can read one
 *   handle at once, but none may change it meanwhile.
 * - The first request of a KivHttpClient, or the first C++ exception inside the library, keeps kiv.dll loaded until the
 *   process ends; FreeLibrary does not unload it.
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
