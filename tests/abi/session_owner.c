/* A library of an application that holds a session and what it gave out until the process ends, as static objects of
 * C++ in a DLL do. */
#include "session_owner.h"

static struct owned owned;

void own(struct owned all) { owned = all; }

static void give_up(void) {
  KivSession_Close(owned.session);
  KivAuth_Release(owned.auth);
  KivChallenge_Release(owned.challenge);
  KivEvent_Release(owned.event);
  KivRequest_Release(owned.request);
  KivDecision_Release(owned.decision);
  KivSession_Destruct(owned.session);
  SetEvent(owned.given_up);
}

BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID process_ends) {
  (void)module;
  if (reason == DLL_PROCESS_DETACH && process_ends) give_up();
  return TRUE;
}
