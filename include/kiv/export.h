/** @file
 * What every header of the library needs to declare its functions: linkage, and import or export. */
#ifndef KIV_EXPORT_H
#define KIV_EXPORT_H

/** Declares a function that the DLL exports; without Windows, or with KIV_STATIC defined, one that is linked in. */
#if !defined(_WIN32) || defined(KIV_STATIC)
#define KIV_API
#elif defined(KIV_BUILDING)
#define KIV_API __declspec(dllexport)
#else
#define KIV_API __declspec(dllimport)
#endif

/** @def KIV_BEGIN_DECLARATIONS
 * Stands before declarations with C linkage. */
/** @def KIV_END_DECLARATIONS
 * Stands behind them. */
#ifdef __cplusplus
#define KIV_BEGIN_DECLARATIONS extern "C" {
#define KIV_END_DECLARATIONS }
#else
#define KIV_BEGIN_DECLARATIONS
#define KIV_END_DECLARATIONS
#endif

#endif
