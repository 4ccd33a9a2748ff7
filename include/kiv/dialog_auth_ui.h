/** @file
 * The system's credential prompt, worded for a server and for a proxy. */
#ifndef KIV_DIALOG_AUTH_UI_H
#define KIV_DIALOG_AUTH_UI_H

#include <wchar.h>

#include "kiv/cred.h"
#include "kiv/export.h"

KIV_BEGIN_DECLARATIONS

/**
 * Asks the user for a server's credentials. Blocks the calling thread until the prompt is closed.
 * @param target what asks, for example the server's URL; shown in the message. Null shows nothing and gives null.
 * @param detail shown in brackets behind the caption, unless empty; must not be null.
 * @param parent the window (HWND) that the prompt belongs to; may be null.
 * @return a new credential, to be released with KivCred_Destruct; a none credential if the user cancelled or the prompt
 *         failed; null only if `target` is null or memory runs out.
 */
KIV_API KivCred* KivDialogAuthUi_ServerAuthUi(const wchar_t* target, const wchar_t* detail, void* parent);

/** Asks the user for a proxy's credentials, `target` being the proxy; otherwise like KivDialogAuthUi_ServerAuthUi. */
KIV_API KivCred* KivDialogAuthUi_ProxyAuthUi(const wchar_t* target, const wchar_t* detail, void* parent);

KIV_END_DECLARATIONS

#endif
