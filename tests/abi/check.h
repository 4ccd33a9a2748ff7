/* Counts checks and tells which failed; enough for programs that must not drag a test framework into what they test. */
#ifndef KIV_TESTS_CHECK_H
#define KIV_TESTS_CHECK_H

#include "results.h"

static int passed_checks = 0;
static int failed_checks = 0;

#define CHECK(condition)                                                        \
  do {                                                                          \
    if (condition) {                                                            \
      ++passed_checks;                                                          \
    } else {                                                                    \
      ++failed_checks;                                                          \
      fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
    }                                                                           \
  } while (0)

/* Tells the sum; gives the exit code. */
static int report_checks(void) { return report_results(passed_checks, failed_checks); }

#endif
