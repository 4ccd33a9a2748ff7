// What a service does that downloads for the user who is logged on: it impersonates that user when it creates the
// session, whose work is then done as that user, with that user's proxy settings. It has no window and asks nobody: it
// waits for the session's events beside its own.
//
//   session_service URL...
//
// As LocalSystem it works for the user at the console; otherwise for the user that runs it.
#include <windows.h>
#include <wtsapi32.h>

#include <cstdio>
#include <memory>

#include "kiv/session.h"

namespace {

constexpr DWORD kPatience = 60'000;

struct Release {
  void operator()(KivSession* session) const { KivSession_Destruct(session); }
  void operator()(KivDecision* decision) const { KivDecision_Release(decision); }
  void operator()(KivEvent* event) const { KivEvent_Release(event); }
};

struct CloseKernelHandle {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseKernelHandle>;
using Session = std::unique_ptr<KivSession, Release>;

// For the user at the console, which only LocalSystem may; otherwise for the process's own user.
Handle token_of_user() {
  HANDLE token = nullptr;
  if (WTSQueryUserToken(WTSGetActiveConsoleSessionId(), &token)) return Handle(token);
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY | TOKEN_IMPERSONATE, &token)) return nullptr;
  return Handle(token);
}

void set_event(void* event) { SetEvent(event); }

Session create_session(HANDLE woken) {
  const Handle token = token_of_user();
  if (!token || !ImpersonateLoggedOnUser(token.get())) return nullptr;
  KivSession* session = nullptr;
  const KivStatus status = KivSession_Create(L"example", &session);
  RevertToSelf();
  if (status != KIV_STATUS_OK) return nullptr;
  // Without a callback for credentials, nobody is asked: a service has nobody to ask. The wake function would let
  // challenges wait in the queue, where handle() declines them.
  KivSession_SetWake(session, set_event, woken);
  return Session(session);
}

// True if the event was the end of a request.
bool handle(KivEvent* event, int& failures) {
  if (KivEvent_Kind(event) == KIV_EVENT_CHANGED) std::wprintf(L"settings or network have changed\n");
  if (KivEvent_Kind(event) != KIV_EVENT_COMPLETED) return false;
  const std::unique_ptr<KivDecision, Release> decision(KivEvent_Decision(event));
  const bool found = KivDecision_Kind(decision.get()) != KIV_KIND_NONE;
  const bool proxied = KivDecision_Kind(decision.get()) == KIV_KIND_PROXY;
  failures += !found;
  if (proxied) {
    std::wprintf(L"%ls\n", KivDecision_ProxyUrl(decision.get()));
  } else if (found) {
    std::wprintf(L"DIRECT\n");
  } else {
    std::wprintf(L"%ls\n", KivStatus_Text(decision ? KivDecision_Reason(decision.get()) : KivEvent_Status(event)));
  }
  return true;
}

// The service's loop. A real one also waits for the event that its control handler sets.
int wait_for_ends(KivSession* session, HANDLE woken, int waiting) {
  int failures = 0;
  while (waiting > 0 && WaitForSingleObject(woken, kPatience) == WAIT_OBJECT_0) {
    KivEvent* event = nullptr;
    while (KivSession_Next(session, 0, &event) == KIV_STATUS_OK) {
      const std::unique_ptr<KivEvent, Release> owner(event);
      waiting -= handle(event, failures);
    }
  }
  return failures + waiting;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  if (count < 2) {
    std::fwprintf(stderr, L"usage: session_service URL...\n");
    return 64;
  }
  const Handle woken(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const Session session = create_session(woken.get());
  if (!session) return 1;
  int waiting = 0;
  for (int i = 1; i < count; ++i) {
    waiting +=
        KivSession_Start(session.get(), arguments[i], 0, static_cast<uint64_t>(i), nullptr, nullptr) == KIV_STATUS_OK;
  }
  return wait_for_ends(session.get(), woken.get(), waiting) == 0 && waiting == count - 1 ? 0 : 2;
}
