/* The same over kiv-session.dll: ends with the status of a call without a session. A session would bring threads of the
 * thread pool. */
#include <kiv/session.h>

unsigned start(void) {
  KivDecision* decision = 0;
  return KivSession_Version() >> 16 == 1 ? KivSession_Lookup(0, L"http://target/", &decision) : 101;
}
