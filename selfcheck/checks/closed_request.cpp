// A request that is closed while it waits for a server that never answers.
#include "checks/closed_request.h"

#include <memory>

#include "ground/patience.h"
#include "loop/system_error.h"
#include "support/owners.h"

namespace selfcheck {
namespace {

using kiv::session::throwLastError;
using kiv::support::UniqueEvent;
using kiv::support::UniqueInternet;

// Nothing answers sooner, and nothing that is aborted takes as long.
constexpr int kTimeout = 5'000;
constexpr DWORD kSoon = 2'500;

// What WinHTTP calls back with; it lives until the handle has closed.
struct Context {
  UniqueEvent closed{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
};

void CALLBACK onStatus(HINTERNET /*handle*/, DWORD_PTR context, DWORD status, LPVOID /*information*/, DWORD /*size*/) {
  if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING && context) {
    SetEvent(reinterpret_cast<Context*>(context)->closed.get());
  }
}

UniqueInternet owned(HINTERNET handle) {
  if (!handle) throwLastError();
  return UniqueInternet(handle);
}

void limit(HINTERNET request) {
  DWORD timeout = kTimeout;
  WinHttpSetTimeouts(request, kTimeout, kTimeout, kTimeout, kTimeout);
  WinHttpSetOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &timeout, sizeof timeout);
}

Closing closingOf(const Context& context) {
  if (WaitForSingleObject(context.closed.get(), kSoon) == WAIT_OBJECT_0) return Closing::Aborted;
  const Patience patience;
  return WaitForSingleObject(context.closed.get(), patience.left()) == WAIT_OBJECT_0 ? Closing::Late
                                                                                     : Closing::Unending;
}

}  // namespace

Closing closeWaitingRequest(const Ground& ground) {
  auto context = std::make_unique<Context>();
  if (!context->closed) throwLastError();
  const UniqueInternet session =
      owned(WinHttpOpen(L"kiv-selfcheck", WINHTTP_ACCESS_TYPE_NO_PROXY, nullptr, nullptr, WINHTTP_FLAG_ASYNC));
  const UniqueInternet connection = owned(WinHttpConnect(session.get(), L"127.0.0.1", ground.port(Server::Site), 0));
  UniqueInternet request =
      owned(WinHttpOpenRequest(connection.get(), L"GET", L"/silent", nullptr, WINHTTP_NO_REFERER, nullptr, 0));
  WinHttpSetStatusCallback(request.get(), onStatus, WINHTTP_CALLBACK_FLAG_HANDLES, 0);
  DWORD_PTR value = reinterpret_cast<DWORD_PTR>(context.get());
  WinHttpSetOption(request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &value, sizeof value);
  limit(request.get());
  const bool sent =
      WinHttpSendRequest(request.get(), nullptr, 0, nullptr, 0, 0, value) && ground.waitUntilAsked(Server::Site, 1);
  request = UniqueInternet();
  const Closing closing = closingOf(*context);
  if (closing == Closing::Unending) static_cast<void>(context.release());  // WinHTTP still has its address
  return sent ? closing : Closing::NotSent;
}

}  // namespace selfcheck
