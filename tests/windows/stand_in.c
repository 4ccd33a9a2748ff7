/* Stands in for any program that run.cmd starts: ends with the exit code that STAND_IN_CODE names, or with 0. */
#include <stdlib.h>

int main(void) {
  const char* code = getenv("STAND_IN_CODE");
  return code ? atoi(code) : 0;
}
