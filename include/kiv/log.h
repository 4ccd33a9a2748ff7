/** @file
 * Log records, and loggers, which pass them to the application.
 *
 * The library writes no log file. It passes every line to the callback of the application's logger, at once and on the
 * same thread. It filters nothing: the application decides what to keep.
 */
#ifndef KIV_LOG_H
#define KIV_LOG_H

#include <stdbool.h>
#include <wchar.h>

#include "kiv/export.h"

KIV_BEGIN_DECLARATIONS

/** A log record: one of four levels, and a text. */
typedef struct KivLog KivLog;

/** A logger: a context, a callback, and whether it is engaged. One that is not engaged drops every line. */
typedef struct KivLogger KivLogger;

/**
 * Receives one log record. It may throw a C++ exception; each function that logs says what happens then.
 * @param context as passed to KivLogger_Construct.
 * @param log     the record, owned by the library and valid only during the call; keep it with KivLog_CopyConstruct.
 */
typedef void (*KivLogCallback)(void* context, const KivLog* log);

/**
 * Creates a record of level Error (0).
 * @param message text, copied; must not be null (it is read without a check).
 * @return a new record, to be released with KivLog_Destruct; null if memory runs out.
 */
KIV_API KivLog* KivLog_CreateError(const wchar_t* message);

/** Creates a record of level Warn (1); otherwise like KivLog_CreateError. */
KIV_API KivLog* KivLog_CreateWarn(const wchar_t* message);

/** Creates a record of level Info (2); otherwise like KivLog_CreateError. */
KIV_API KivLog* KivLog_CreateInfo(const wchar_t* message);

/** Creates a record of level Debug (3); otherwise like KivLog_CreateError. */
KIV_API KivLog* KivLog_CreateDebug(const wchar_t* message);

/** Releases a record that the caller owns; null is ignored. */
KIV_API void KivLog_Destruct(KivLog* log);

/**
 * Copies a record.
 * @param source read only; may be null.
 * @return a new record with the same level and text; null if `source` is null or memory runs out.
 */
KIV_API KivLog* KivLog_CopyConstruct(const KivLog* source);

/**
 * Moves a record into a new one.
 * @param source keeps its level and gets an empty text; it must still be released. May be null.
 * @return a new record; null if `source` is null or memory runs out (`source` is then unchanged).
 */
KIV_API KivLog* KivLog_MoveConstruct(KivLog* source);

/**
 * Makes `target` a copy of `source`, level and text. Copying a record onto itself changes nothing.
 * Does nothing if either is null. If memory runs out, `target` is unchanged.
 */
KIV_API void KivLog_Copy(const KivLog* source, KivLog* target);

/**
 * Moves level and text of `source` into `target`; `source` keeps its level and gets an empty text.
 * Does nothing if either is null. Moving a record onto itself changes nothing. Cannot fail.
 */
KIV_API void KivLog_Move(KivLog* source, KivLog* target);

/** Returns whether the record's level is Error (0); false for null. */
KIV_API bool KivLog_IsError(const KivLog* log);

/** Returns whether the record's level is Warn (1); false for null. */
KIV_API bool KivLog_IsWarn(const KivLog* log);

/** Returns whether the record's level is Info (2); false for null. */
KIV_API bool KivLog_IsInfo(const KivLog* log);

/** Returns whether the record's level is Debug (3); false for null. */
KIV_API bool KivLog_IsDebug(const KivLog* log);

/**
 * Returns the record's text.
 * @return NUL-terminated text owned by the record, valid until the record is changed or released; never null for a
 *         record (an empty text is an empty string); null for a null record.
 */
KIV_API const wchar_t* KivLog_Message(const KivLog* log);

/**
 * Creates an engaged logger.
 * @param context  any value, null included; borrowed, and passed as the first argument of every call.
 * @param callback receives every record, on the thread that calls the library; must not be null.
 * @return a new logger, to be released with KivLogger_Destruct; null if memory runs out.
 */
KIV_API KivLogger* KivLogger_Construct(void* context, KivLogCallback callback);

/** Releases a logger that the caller owns and does not call its callback; null is ignored. */
KIV_API void KivLogger_Destruct(KivLogger* logger);

/**
 * Copies a logger: context, callback and whether it is engaged.
 * @param source read only; may be null.
 * @return a new logger; null if `source` is null or memory runs out.
 */
KIV_API KivLogger* KivLogger_CopyConstruct(const KivLogger* source);

/**
 * Moves a logger into a new one.
 * @param source if engaged, it loses context and callback but stays engaged. From then on, release it or overwrite it
 *               with KivLogger_Copy or KivLogger_Move, but never log with it. May be null.
 * @return a new logger, engaged if `source` is; null if `source` is null or memory runs out (`source` is then
 *         unchanged).
 */
KIV_API KivLogger* KivLogger_MoveConstruct(KivLogger* source);

/** Makes `target` a copy of `source`, all three members. Does nothing if either is null. Cannot fail. */
KIV_API void KivLogger_Copy(const KivLogger* source, KivLogger* target);

/**
 * Moves `source` into `target`. An engaged source loses context and callback and stays engaged, as in
 * KivLogger_MoveConstruct; a source that is not engaged makes the target not engaged.
 * Does nothing if either is null. Moving a logger onto itself changes nothing. Cannot fail.
 */
KIV_API void KivLogger_Move(KivLogger* source, KivLogger* target);

/**
 * Logs one line at level Error.
 *
 * The callback receives the text exactly as it is: nothing is added, and "%" has no meaning. If the callback throws a
 * C++ exception, whatever compiler built it, the record is destroyed and the exception reaches the caller of this
 * function. If memory runs out while the text is copied, the process ends.
 * @param logger  does nothing if null or not engaged.
 * @param message text; must not be null for an engaged logger (it is read without a check).
 */
KIV_API void KivLogger_Error(const KivLogger* logger, const wchar_t* message);

/** Logs one line at level Warn; otherwise like KivLogger_Error. */
KIV_API void KivLogger_Warn(const KivLogger* logger, const wchar_t* message);

/** Logs one line at level Info; otherwise like KivLogger_Error. */
KIV_API void KivLogger_Info(const KivLogger* logger, const wchar_t* message);

/** Logs one line at level Debug; otherwise like KivLogger_Error. */
KIV_API void KivLogger_Debug(const KivLogger* logger, const wchar_t* message);

KIV_END_DECLARATIONS

#endif
