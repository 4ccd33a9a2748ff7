/* A program that has nothing of kiv but the package, and links with kiv-session.dll alone: ends with 4, the status of a
 * text that is no URL. */
#include <kiv/session.h>

static KivStatus look_up(KivSession* session) {
  KivDecision* decision = NULL;
  const KivStatus status = KivSession_Lookup(session, L"not a URL", &decision);
  KivDecision_Release(decision);
  return status;
}

int main(void) {
  KivSession* session = NULL;
  if (KivSession_Version() >> 16 != 1) return 101;
  if (KivSession_Create(L"consumer", &session) != KIV_STATUS_OK) return 102;
  const KivStatus status = look_up(session);
  KivSession_Destruct(session);
  return (int)status;
}
