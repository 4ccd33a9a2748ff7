/* What the library's headers need of a C library. */
#ifndef KIV_TESTS_WCHAR_H
#define KIV_TESTS_WCHAR_H

#include <stddef.h>

#endif
