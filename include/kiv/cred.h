/** @file
 * Credentials, and the protected strings in which their passwords are handed out.
 *
 * A credential keeps its user name in clear and its password encrypted, for this process only. A password is in clear
 * just as long as a protected string holds it; the string is overwritten with zeros when it is released.
 */
#ifndef KIV_CRED_H
#define KIV_CRED_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#include "kiv/export.h"

KIV_BEGIN_DECLARATIONS

/** A credential: a user name and a password, or none. A none credential is a real handle and is released like any. */
typedef struct KivCred KivCred;

/** A decrypted password, wiped when it is released. It may be empty, without any characters to point at. */
typedef struct KivSecStr KivSecStr;

/**
 * Creates a credential. The password is encrypted at once.
 * @param username copied; may be null.
 * @param password copied in encrypted form; may be null. The caller wipes its own text.
 * @return a new credential, to be released with KivCred_Destruct; a none credential if either text is null or the
 *         system cannot encrypt; null when memory runs out.
 */
KIV_API KivCred* KivCred_Create(const wchar_t* username, const wchar_t* password);

/** Creates a none credential. @return a new handle; null when memory runs out. */
KIV_API KivCred* KivCred_None(void);

/** Tells whether there is no credential: true for a none credential, and true for null. */
KIV_API bool KivCred_IsNone(const KivCred* cred);

/**
 * Gives the user name.
 * @return text owned by the credential, valid until it is changed or released; null for a none credential and for null.
 */
KIV_API const wchar_t* KivCred_Username(const KivCred* cred);

/**
 * Decrypts the password.
 * @return a new protected string, to be released with KivSecStr_Destruct as soon as it has been used. It is empty
 *         (KivSecStr_CStr gives null) for a none credential and if the system cannot decrypt. Null if `cred` is null or
 *         memory runs out.
 */
KIV_API KivSecStr* KivCred_Password(const KivCred* cred);

/** Copies a credential. @return a new credential; null if `source` is null or memory runs out. */
KIV_API KivCred* KivCred_CopyConstruct(const KivCred* source);

/**
 * Moves a credential into a new one.
 * @param source left as a none credential, which must still be released. May be null.
 * @return a new credential; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivCred* KivCred_MoveConstruct(KivCred* source);

/**
 * Makes `target` a copy of `source`; a none source makes it none. What `target` held is wiped.
 * Does nothing if either is null; leaves `target` unchanged when memory runs out.
 */
KIV_API void KivCred_Copy(const KivCred* source, KivCred* target);

/**
 * Moves `source` into `target`, wiping what that held; `source` becomes a none credential.
 * Does nothing if either is null. Moving a credential onto itself changes nothing. Cannot fail.
 */
KIV_API void KivCred_Move(KivCred* source, KivCred* target);

/** Wipes and releases a credential that the caller owns; null is ignored. */
KIV_API void KivCred_Destruct(KivCred* cred);

/**
 * Gives the decrypted password.
 * @return NUL-terminated text owned by the protected string, valid until that is moved from or released; null for an
 *         empty protected string and for null. An empty password is an empty text, not null.
 */
KIV_API const wchar_t* KivSecStr_CStr(const KivSecStr* text);

/**
 * Counts the password's characters (UTF-16 code units, without the terminator).
 * @return the count; 0 for null. A protected string that was moved from still reports the count it had.
 */
KIV_API uint32_t KivSecStr_Size(const KivSecStr* text);

/**
 * Moves a protected string into a new one.
 * @param source left without characters (KivSecStr_CStr gives null) but with the size that it had; it must still be
 *               released. May be null.
 * @return a new protected string; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivSecStr* KivSecStr_MoveConstruct(KivSecStr* source);

/** Overwrites the characters with zeros and releases a protected string that the caller owns; null is ignored. */
KIV_API void KivSecStr_Destruct(KivSecStr* text);

KIV_END_DECLARATIONS

#endif
