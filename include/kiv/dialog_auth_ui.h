/** @file
 * The credential prompt of Windows, for a server or a proxy.
 *
 * The prompts' own texts are Japanese; there is no other language.
 */
#ifndef KIV_DIALOG_AUTH_UI_H
#define KIV_DIALOG_AUTH_UI_H

#include <wchar.h>

#include "kiv/cred.h"
#include "kiv/export.h"

KIV_BEGIN_DECLARATIONS

/**
 * Asks the user for a server's credentials. Blocks the calling thread until the prompt is closed.
 * @param target who asks, for example the server's URL; shown in the message. If null, no prompt is shown and null is
 *               returned.
 * @param detail shown in brackets after the caption, unless empty; must not be null. Windows allows a caption of 128
 *               characters; keep `detail` below 120.
 * @param parent the window (HWND) that owns the prompt; may be null.
 * @return a new credential, to be released with KivCred_Destruct. A none credential if the user cancelled or the prompt
 *         failed. Null only if `target` is null or memory runs out.
 */
KIV_API KivCred* KivDialogAuthUi_ServerAuthUi(const wchar_t* target, const wchar_t* detail, void* parent);

/** Asks the user for the credentials of the proxy `target`; otherwise like KivDialogAuthUi_ServerAuthUi. */
KIV_API KivCred* KivDialogAuthUi_ProxyAuthUi(const wchar_t* target, const wchar_t* detail, void* parent);

KIV_END_DECLARATIONS

#endif
