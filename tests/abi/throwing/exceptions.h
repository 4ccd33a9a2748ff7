/* Ways to throw and to catch, behind functions of C: the scenarios are the same for all of them. */
#ifndef KIV_TESTS_EXCEPTIONS_H
#define KIV_TESTS_EXCEPTIONS_H

#ifdef __cplusplus
extern "C" {
#endif

/* CONTINUED: the application was asked what to do with it, and let the callback go on. */
enum outcome { RETURNED, ARRIVED, ARRIVED_CHANGED, CONTINUED };

struct exceptions {
  int count;
  /* Each takes the number of one of `count` exceptions. */
  const char* (*name)(int exception);
  /* Throws it out of a frame that has something to destroy. */
  void (*throw_it)(int exception);
  /* Runs `run` in a frame that has something to destroy, and tells what came out of it. */
  enum outcome (*catch_it)(int exception, void (*run)(void* context), void* context);
  /* How many objects, thrown ones and those of frames, are alive. */
  int (*alive)(void);
};

/* The C++ exceptions of the application's compiler, or what they look like to C. */
extern const struct exceptions cpp_exceptions;

/* Exceptions of the system, none of which is C++'s. */
extern const struct exceptions system_exceptions;

#ifdef __cplusplus
}
#endif

#endif
