// A winhttp.dll for end-to-end scenarios in Wine: it makes a request go through the proxy that was set on that request.
//
// Wine accepts WINHTTP_OPTION_PROXY on a request and ignores it: only a session's proxy counts there. So, when a
// request is given a proxy, this DLL opens a second session with that proxy, and in it the same request again, which
// from then on stands in for the caller's. The caller keeps its own handle, and sees that handle in every notification.
// Everything else is Wine's own winhttp.dll, which lies beside this one under the name winhttp_wine.dll; functions that
// need no help are forwarded by the export table.
#include <windows.h>
// This is the library itself: its functions are not imported, as newer headers otherwise say.
#define _WINHTTP_INTERNAL_
#include <winhttp.h>

#include <cwchar>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

/// Finds the function of the same name and type in Wine's own DLL.
template <typename Function>
Function* wines(Function* /*type*/, const char* name) {
  // Loaded on first use and kept: loading has no place in DllMain.
  static const HMODULE module = LoadLibraryW(L"winhttp_wine.dll");
  const auto address = module ? GetProcAddress(module, name) : nullptr;
  if (!address) {
    // A test bed that was set up wrongly must not look like a network that fails.
    OutputDebugStringA("winhttp_wine.dll is missing or lacks a function\n");
    TerminateProcess(GetCurrentProcess(), 125);
  }
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(address));
}

#define WINES(function) (wines(&(function), #function))

struct InternetHandleCloser {
  void operator()(HINTERNET handle) const { WINES(WinHttpCloseHandle)(handle); }
};
using UniqueInternetHandle = std::unique_ptr<void, InternetHandleCloser>;

struct Session {
  std::optional<std::wstring> agent;
  DWORD flags;
};

struct Connection {
  HINTERNET session;
  std::wstring server;
  INTERNET_PORT port;
};

std::optional<std::wstring> copyText(LPCWSTR text) {
  return text != nullptr ? std::optional<std::wstring>(text) : std::nullopt;
}

LPCWSTR textOrNull(const std::optional<std::wstring>& text) { return text ? text->c_str() : nullptr; }

/// The request that stands in for a caller's, in a session of its own. Closes in the order request, connection,
/// session.
struct StandIn {
  DWORD_PTR id;
  UniqueInternetHandle session;
  UniqueInternetHandle connection;
  UniqueInternetHandle request;
};

/// What the notifications of a stand-in need; it lives until the stand-in reports that it is closed, which may be after
/// its owner is gone.
struct Listener {
  HINTERNET callersRequest;
  WINHTTP_STATUS_CALLBACK callback;
  DWORD notifications;
  DWORD_PTR context;
};

struct Request {
  HINTERNET connection;
  std::optional<std::wstring> verb;
  std::optional<std::wstring> object;
  std::optional<std::wstring> version;
  std::optional<std::wstring> referrer;
  DWORD flags;
  WINHTTP_STATUS_CALLBACK callback = nullptr;
  DWORD notifications = 0;
  DWORD_PTR context = 0;
  std::vector<std::pair<DWORD, std::vector<BYTE>>> options;
  std::unique_ptr<StandIn> standIn;
};

/// All that is known of the caller's handles. Handles are closed and callbacks called only while the lock is not held.
class Registry {
 public:
  std::mutex lock;
  std::map<HINTERNET, Session> sessions;
  std::map<HINTERNET, Connection> connections;
  std::map<HINTERNET, Request> requests;
  std::map<DWORD_PTR, Listener> listeners;
  DWORD_PTR lastListener = 0;
};

Registry& registry() {
  // Never destroyed: a notification may arrive while the process ends.
  static auto& instance = *new Registry;
  return instance;
}

/// Gives the handle that Wine is to work on: the stand-in's if the request has one.
HINTERNET effective(HINTERNET handle) {
  auto& known = registry();
  const std::lock_guard guard(known.lock);
  const auto found = known.requests.find(handle);
  return found != known.requests.end() && found->second.standIn ? found->second.standIn->request.get() : handle;
}

/// Receives a stand-in's notifications and passes them on as the caller's request's own. The context is the listener's
/// number, not its address, so that a notification that comes too late finds nothing instead of freed memory.
void CALLBACK passOn(HINTERNET /*standIns*/, DWORD_PTR id, DWORD status, LPVOID information, DWORD length) {
  auto& known = registry();
  Listener listener;
  {
    const std::lock_guard guard(known.lock);
    const auto found = known.listeners.find(id);
    if (found == known.listeners.end()) {
      return;
    }
    listener = found->second;
    if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
      known.listeners.erase(found);
    }
  }
  if (listener.callback == nullptr || (listener.notifications & status) == 0) {
    return;
  }
  const bool namesHandle = status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING;
  listener.callback(listener.callersRequest, listener.context, status,
                    namesHandle ? &listener.callersRequest : information, length);
}

/// Opens a session with the proxy, and in it the caller's connection and request once more. Fails with the last error
/// set by the call that failed.
std::unique_ptr<StandIn> openStandIn(const Session& session, const Connection& connection, const Request& request,
                                     const std::wstring& proxy, DWORD_PTR id) {
  auto standIn = std::make_unique<StandIn>();
  standIn->id = id;
  standIn->session.reset(WINES(WinHttpOpen)(textOrNull(session.agent), WINHTTP_ACCESS_TYPE_NAMED_PROXY, proxy.c_str(),
                                            WINHTTP_NO_PROXY_BYPASS, session.flags));
  if (!standIn->session) {
    return nullptr;
  }
  standIn->connection.reset(
      WINES(WinHttpConnect)(standIn->session.get(), connection.server.c_str(), connection.port, 0));
  if (!standIn->connection) {
    return nullptr;
  }
  standIn->request.reset(WINES(WinHttpOpenRequest)(
      standIn->connection.get(), textOrNull(request.verb), textOrNull(request.object), textOrNull(request.version),
      textOrNull(request.referrer), WINHTTP_DEFAULT_ACCEPT_TYPES, request.flags));
  if (!standIn->request) {
    return nullptr;
  }
  for (const auto& [option, value] : request.options) {
    auto copy = value;
    if (!WINES(WinHttpSetOption)(standIn->request.get(), option, copy.data(), static_cast<DWORD>(copy.size()))) {
      return nullptr;
    }
  }
  return standIn;
}

/// Wine's session takes a proxy as host and port; the library writes a scheme in front.
std::wstring withoutScheme(const std::wstring& proxy) {
  const auto separator = proxy.find(L"://");
  return separator == std::wstring::npos ? proxy : proxy.substr(separator + 3);
}

/// Lets a new stand-in take over; an earlier one falls silent and is closed. The caller's own request falls silent too,
/// so that closing the two is reported once.
bool takeOver(HINTERNET handle, std::unique_ptr<StandIn> standIn) {
  auto id = standIn->id;
  if (!WINES(WinHttpSetOption)(standIn->request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &id, sizeof(id))) {
    return false;
  }
  auto& known = registry();
  std::unique_ptr<StandIn> former;
  {
    const std::lock_guard guard(known.lock);
    auto& request = known.requests.at(handle);
    known.listeners.insert({id, {handle, request.callback, request.notifications, request.context}});
    if (request.standIn) {
      known.listeners.at(request.standIn->id).callback = nullptr;
    }
    former = std::exchange(request.standIn, std::move(standIn));
  }
  const HINTERNET request = effective(handle);
  WINES(WinHttpSetStatusCallback)(request, passOn, WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS, 0);
  WINES(WinHttpSetStatusCallback)(handle, nullptr, WINHTTP_CALLBACK_FLAG_ALL_NOTIFICATIONS, 0);
  return true;
}

/// Sends a request through the proxy from now on.
bool useProxy(HINTERNET handle, const std::wstring& proxy) {
  auto& known = registry();
  std::unique_ptr<StandIn> standIn;
  {
    // Opening notifies nobody (no callback is set yet), so the lock may be held.
    const std::lock_guard guard(known.lock);
    const auto& request = known.requests.at(handle);
    const auto& connection = known.connections.at(request.connection);
    const auto& session = known.sessions.at(connection.session);
    standIn = openStandIn(session, connection, request, withoutScheme(proxy), ++known.lastListener);
  }
  return standIn && takeOver(handle, std::move(standIn));
}

bool isKnownRequest(HINTERNET handle) {
  auto& known = registry();
  const std::lock_guard guard(known.lock);
  return known.requests.contains(handle);
}

/// Stores the context that the caller gave to its request, for the notifications of the stand-in.
/// @return the context to give to Wine.
DWORD_PTR exchangeContext(HINTERNET handle, DWORD_PTR context) {
  auto& known = registry();
  const std::lock_guard guard(known.lock);
  const auto found = known.requests.find(handle);
  if (found == known.requests.end()) {
    return context;
  }
  found->second.context = context;
  if (!found->second.standIn) {
    return context;
  }
  const auto id = found->second.standIn->id;
  known.listeners.at(id).context = context;
  return id;
}

/// Windows gives up on a server that never answers; Wine waits for ever unless a limit is set. A scenario with such a
/// server sets one, in milliseconds.
std::optional<DWORD> responseLimit() {
  wchar_t text[16];
  if (GetEnvironmentVariableW(L"KIV_E2E_RESPONSE_TIMEOUT", text, static_cast<DWORD>(std::size(text))) == 0) {
    return std::nullopt;
  }
  return std::wcstoul(text, nullptr, 10);
}

void limitResponseTime(HINTERNET request) {
  if (auto limit = responseLimit()) {
    WinHttpSetOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &*limit, sizeof(*limit));
  }
}

}  // namespace

extern "C" {

HINTERNET WINAPI WinHttpOpen(LPCWSTR agent, DWORD accessType, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
  const HINTERNET handle = WINES(WinHttpOpen)(agent, accessType, proxy, bypass, flags);
  if (handle != nullptr) {
    auto& known = registry();
    const std::lock_guard guard(known.lock);
    known.sessions.insert_or_assign(handle, Session{copyText(agent), flags});
  }
  return handle;
}

HINTERNET WINAPI WinHttpConnect(HINTERNET session, LPCWSTR server, INTERNET_PORT port, DWORD reserved) {
  const HINTERNET handle = WINES(WinHttpConnect)(session, server, port, reserved);
  if (handle != nullptr) {
    auto& known = registry();
    const std::lock_guard guard(known.lock);
    known.connections.insert_or_assign(handle, Connection{session, server, port});
  }
  return handle;
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                                    LPCWSTR referrer, LPCWSTR* acceptTypes, DWORD flags) {
  const HINTERNET handle = WINES(WinHttpOpenRequest)(connection, verb, object, version, referrer, acceptTypes, flags);
  if (handle != nullptr) {
    Request request{};
    request.connection = connection;
    request.verb = copyText(verb);
    request.object = copyText(object);
    request.version = copyText(version);
    request.referrer = copyText(referrer);
    request.flags = flags;
    {
      auto& known = registry();
      const std::lock_guard guard(known.lock);
      known.requests.insert_or_assign(handle, std::move(request));
    }
    limitResponseTime(handle);
  }
  return handle;
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET handle) {
  std::unique_ptr<StandIn> standIn;
  {
    // Forgotten before it is closed: as soon as it is closed, another thread may be given the same handle.
    auto& known = registry();
    const std::lock_guard guard(known.lock);
    known.sessions.erase(handle);
    known.connections.erase(handle);
    if (auto request = known.requests.extract(handle)) {
      standIn = std::move(request.mapped().standIn);
    }
  }
  standIn.reset();
  return WINES(WinHttpCloseHandle)(handle);
}

WINHTTP_STATUS_CALLBACK WINAPI WinHttpSetStatusCallback(HINTERNET handle, WINHTTP_STATUS_CALLBACK callback,
                                                        DWORD notifications, DWORD_PTR reserved) {
  {
    auto& known = registry();
    const std::lock_guard guard(known.lock);
    const auto found = known.requests.find(handle);
    if (found != known.requests.end()) {
      auto& request = found->second;
      const auto former = std::exchange(request.callback, callback);
      request.notifications = notifications;
      if (request.standIn) {
        auto& listener = known.listeners.at(request.standIn->id);
        listener.callback = callback;
        listener.notifications = notifications;
        return former;
      }
    }
  }
  return WINES(WinHttpSetStatusCallback)(handle, callback, notifications, reserved);
}

BOOL WINAPI WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID value, DWORD length) {
  if (!isKnownRequest(handle)) {
    return WINES(WinHttpSetOption)(handle, option, value, length);
  }
  // The scenario's limit holds, whatever the caller's is.
  auto limit = option == WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT ? responseLimit() : std::nullopt;
  if (limit && length == sizeof(*limit)) {
    value = &*limit;
  }
  if (option == WINHTTP_OPTION_PROXY) {
    // Wine's own answer comes first, so that what it refuses is refused here.
    const auto* info = static_cast<const WINHTTP_PROXY_INFO*>(value);
    return WINES(WinHttpSetOption)(handle, option, value, length) &&
           (info->dwAccessType != WINHTTP_ACCESS_TYPE_NAMED_PROXY || useProxy(handle, info->lpszProxy));
  }
  if (option == WINHTTP_OPTION_CONTEXT_VALUE && length == sizeof(DWORD_PTR)) {
    auto context = exchangeContext(handle, *static_cast<DWORD_PTR*>(value));
    return WINES(WinHttpSetOption)(effective(handle), option, &context, sizeof(context));
  }
  const BOOL done = WINES(WinHttpSetOption)(effective(handle), option, value, length);
  if (done != FALSE) {
    const auto* bytes = static_cast<const BYTE*>(value);
    auto& known = registry();
    const std::lock_guard guard(known.lock);
    known.requests.at(handle).options.emplace_back(option, std::vector<BYTE>(bytes, bytes + length));
  }
  return done;
}

BOOL WINAPI WinHttpQueryOption(HINTERNET handle, DWORD option, LPVOID value, LPDWORD length) {
  return WINES(WinHttpQueryOption)(effective(handle), option, value, length);
}

BOOL WINAPI WinHttpSetCredentials(HINTERNET handle, DWORD target, DWORD scheme, LPCWSTR user, LPCWSTR password,
                                  LPVOID reserved) {
  return WINES(WinHttpSetCredentials)(effective(handle), target, scheme, user, password, reserved);
}

BOOL WINAPI WinHttpSendRequest(HINTERNET handle, LPCWSTR headers, DWORD headersLength, LPVOID body, DWORD bodyLength,
                               DWORD totalLength, DWORD_PTR context) {
  const auto effectiveContext = exchangeContext(handle, context);
  return WINES(WinHttpSendRequest)(effective(handle), headers, headersLength, body, bodyLength, totalLength,
                                   effectiveContext);
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET handle, LPVOID reserved) {
  return WINES(WinHttpReceiveResponse)(effective(handle), reserved);
}

BOOL WINAPI WinHttpQueryHeaders(HINTERNET handle, DWORD level, LPCWSTR name, LPVOID value, LPDWORD length,
                                LPDWORD index) {
  return WINES(WinHttpQueryHeaders)(effective(handle), level, name, value, length, index);
}

BOOL WINAPI WinHttpQueryAuthSchemes(HINTERNET handle, LPDWORD supported, LPDWORD first, LPDWORD target) {
  return WINES(WinHttpQueryAuthSchemes)(effective(handle), supported, first, target);
}

}  // extern "C"
