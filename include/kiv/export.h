/* What every header of the library needs to declare its functions: linkage, and import or export. */
#ifndef KIV_EXPORT_H
#define KIV_EXPORT_H

#if !defined(_WIN32) || defined(KIV_STATIC)
#define KIV_API
#elif defined(KIV_BUILDING)
#define KIV_API __declspec(dllexport)
#else
#define KIV_API __declspec(dllimport)
#endif

#ifdef __cplusplus
#define KIV_BEGIN_DECLARATIONS extern "C" {
#define KIV_END_DECLARATIONS }
#else
#define KIV_BEGIN_DECLARATIONS
#define KIV_END_DECLARATIONS
#endif

#endif
