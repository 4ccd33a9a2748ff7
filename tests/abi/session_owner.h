/* A library of an application that holds a session and what it gave out until the process ends, as static objects of
 * C++ in a DLL do. */
#ifndef KIV_TESTS_SESSION_OWNER_H
#define KIV_TESTS_SESSION_OWNER_H

#include <windows.h>

#include "kiv/session.h"

#ifdef KIV_BUILDING_SESSION_OWNER
#define SESSION_OWNER __declspec(dllexport)
#else
#define SESSION_OWNER __declspec(dllimport)
#endif

/* Any may be null. */
struct owned {
  KivSession* session;
  KivDecision* decision;
  KivRequest* request;
  KivEvent* event;
  KivChallenge* challenge;
  KivAuth* auth;
  HANDLE given_up; /* is set when all others have been given up */
};

SESSION_OWNER void own(struct owned all);

#endif
