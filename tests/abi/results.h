/* How test programs in C tell what they have counted. */
#ifndef KIV_TESTS_RESULTS_H
#define KIV_TESTS_RESULTS_H

#include <stdio.h>
#include <stdlib.h>

/* Writes the sum to the file that KIV_RESULTS names, if it names one; tells whether that succeeded. */
static int write_results(int passed, int failed) {
  const char* name = getenv("KIV_RESULTS");
  if (!name) return 1;
  FILE* file = fopen(name, "w");
  if (!file) return 0;
  const int written = fprintf(file, "{\"passed\": %d, \"failed\": %d}\n", passed, failed) > 0;
  return fclose(file) == 0 && written;
}

/* Prints and writes the sum; gives the exit code. */
static int report_results(int passed, int failed) {
  printf("%d passed, %d failed\n", passed, failed);
  fflush(stdout);
  if (!write_results(passed, failed)) {
    fputs("the results cannot be written\n", stderr);
    return 1;
  }
  return passed > 0 && failed == 0 ? 0 : 1;
}

#endif
