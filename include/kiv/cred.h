/** @file
 * Credentials, and protected strings, which hold their decrypted passwords.
 *
 * A credential holds its user name in clear and its password encrypted, for this process only. The password is in clear
 * only while a protected string holds it. The library overwrites the string with zeros when it is released.
 */
#ifndef KIV_CRED_H
#define KIV_CRED_H

#include <stdbool.h>
#include <stdint.h>
#include <wchar.h>

#include "kiv/export.h"

KIV_BEGIN_DECLARATIONS

/** A credential: a user name and a password, or none. A none credential is a handle like any other: release it. */
typedef struct KivCred KivCred;

/** A decrypted password, wiped when it is released. If it is empty, it has no characters, not even a terminator. */
typedef struct KivSecStr KivSecStr;

/**
 * Creates a credential and encrypts the password.
 * @param username copied; may be null.
 * @param password copied in encrypted form; may be null. The caller wipes its own text.
 * @return a new credential, to be released with KivCred_Destruct. A none credential if either text is null or Windows
 *         cannot encrypt. Null if memory runs out.
 */
KIV_API KivCred* KivCred_Create(const wchar_t* username, const wchar_t* password);

/** Creates a none credential. @return a new handle; null if memory runs out. */
KIV_API KivCred* KivCred_None(void);

/** Returns true for a none credential and for null. */
KIV_API bool KivCred_IsNone(const KivCred* cred);

/**
 * Returns the user name.
 * @return text owned by the credential, valid until it is changed or released; null for a none credential and for null.
 */
KIV_API const wchar_t* KivCred_Username(const KivCred* cred);

/**
 * Decrypts the password.
 * @return a new protected string; release it with KivSecStr_Destruct as soon as you have used it. It is empty
 *         (KivSecStr_CStr returns null) for a none credential, and if Windows cannot decrypt. Null if `cred` is null or
 *         memory runs out.
 */
KIV_API KivSecStr* KivCred_Password(const KivCred* cred);

/** Copies a credential. @return a new credential; null if `source` is null or memory runs out. */
KIV_API KivCred* KivCred_CopyConstruct(const KivCred* source);

/**
 * Moves a credential into a new one.
 * @param source becomes a none credential, which must still be released. May be null.
 * @return a new credential; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivCred* KivCred_MoveConstruct(KivCred* source);

/**
 * Makes `target` a copy of `source`; a none source makes it none. The library wipes what `target` held.
 * Does nothing if either is null. If memory runs out, `target` is unchanged.
 */
KIV_API void KivCred_Copy(const KivCred* source, KivCred* target);

/**
 * Moves `source` into `target` and wipes what `target` held; `source` becomes a none credential.
 * Does nothing if either is null. Moving a credential onto itself changes nothing. Cannot fail.
 */
KIV_API void KivCred_Move(KivCred* source, KivCred* target);

/** Wipes and releases a credential that the caller owns; null is ignored. */
KIV_API void KivCred_Destruct(KivCred* cred);

/**
 * Returns the decrypted password.
 * @return NUL-terminated text owned by the protected string, valid until that is moved from or released; null for an
 *         empty protected string and for null. An empty password is an empty text, not null.
 */
KIV_API const wchar_t* KivSecStr_CStr(const KivSecStr* text);

/**
 * Returns the length of the password in UTF-16 code units, without the terminator.
 * @return the length; 0 for null. A moved-from protected string still returns the length it had.
 */
KIV_API uint32_t KivSecStr_Size(const KivSecStr* text);

/**
 * Moves a protected string into a new one.
 * @param source loses its characters (KivSecStr_CStr returns null) but keeps its size; it must still be released. May
 *               be null.
 * @return a new protected string; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivSecStr* KivSecStr_MoveConstruct(KivSecStr* source);

/** Overwrites the characters with zeros and releases a protected string that the caller owns; null is ignored. */
KIV_API void KivSecStr_Destruct(KivSecStr* text);

KIV_END_DECLARATIONS

#endif
