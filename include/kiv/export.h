/** @file
 * Macros with which the other headers declare functions: linkage, and import or export. */
#ifndef KIV_EXPORT_H
#define KIV_EXPORT_H

/** Declares a function of the DLL. Outside Windows, or if KIV_STATIC is defined, the function is linked statically. */
#if !defined(_WIN32) || defined(KIV_STATIC)
#define KIV_API
#elif defined(KIV_BUILDING)
#define KIV_API __declspec(dllexport)
#else
#define KIV_API __declspec(dllimport)
#endif

/** @def KIV_BEGIN_DECLARATIONS
 * Begins declarations with C linkage. */
/** @def KIV_END_DECLARATIONS
 * Ends them. */
#ifdef __cplusplus
#define KIV_BEGIN_DECLARATIONS extern "C" {
#define KIV_END_DECLARATIONS }
#else
#define KIV_BEGIN_DECLARATIONS
#define KIV_END_DECLARATIONS
#endif

#endif
