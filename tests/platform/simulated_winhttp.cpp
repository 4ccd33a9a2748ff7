// WinHTTP's sessions, connections and requests: scripted answers, delivered on the thread that the test asks for.
#include <algorithm>
#include <array>
#include <cstring>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

using Level = Internet::Level;
using Stage = Internet::Stage;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kEndless = Milliseconds::max();

// Finds a live handle of that level; if there is none, makes the call fail the way the system does.
Internet* find(Entry& call, HINTERNET handle, std::optional<Level> level, DWORD& error) {
  error = ERROR_INVALID_HANDLE;
  if (!call.state().check(handle, Kind::Internet, call.name())) return nullptr;
  Internet& internet = call.state().internets.at(handle);
  if (!level || internet.level == *level) return &internet;
  error = ERROR_WINHTTP_INCORRECT_HANDLE_TYPE;
  call.state().complaints.push_back(call.name() + " was given a handle of the wrong type");
  return nullptr;
}

// A child starts with its parent's callback.
HINTERNET create(State& state, Level level, const char* name, const Internet& parent) {
  Internet internet;
  internet.level = level;
  internet.asynchronous = parent.asynchronous;
  internet.callback = parent.callback;
  internet.notifications = parent.notifications;
  internet.context = parent.context;
  internet.agent = parent.agent;
  internet.host = parent.host;
  internet.port = parent.port;
  internet.proxy = parent.proxy;
  internet.options = parent.options;
  HINTERNET handle = state.newHandle(Kind::Internet, name);
  state.internets[handle] = std::move(internet);
  return handle;
}

std::optional<std::wstring> optionalText(const wchar_t* text) {
  return text ? std::optional<std::wstring>(text) : std::nullopt;
}

Exchange nextExchange(HttpScript& http, const RequestRecord& request) {
  if (http.decide) return http.decide(request);
  if (http.script.empty()) return http.otherwise;
  Exchange exchange = std::move(http.script.front());
  http.script.pop_front();
  return exchange;
}

void deliver(Entry& call, const Notification& notification, Delivery delivery, std::chrono::microseconds delay) {
  State& state = call.state();
  if (delivery == Delivery::Inside) {
    call.lock().unlock();
    state.notify(notification);
    call.lock().lock();
    return;
  }
  // The other thread cannot wait for itself: a call made by a callback is answered after the callback.
  const bool early = delivery == Delivery::OtherThreadEarly && state.dispatcher.get_id() != std::this_thread::get_id();
  const auto job = state.post(notification, early ? std::chrono::microseconds(0) : delay);
  if (early) state.changed.wait(call.lock(), [&] { return job->done; });
}

Milliseconds limitOf(const Internet& request, DWORD option, DWORD otherwise) {
  const auto found = request.options.find(option);
  const DWORD value = found == request.options.end() ? otherwise : found->second;
  return value == 0 || value == INFINITE ? kEndless : Milliseconds(value);
}

// The time-outs that count while the request is sent, and while the response is awaited, with the system's defaults.
Milliseconds connectLimit(const Internet& request) { return limitOf(request, WINHTTP_OPTION_CONNECT_TIMEOUT, 60000); }

Milliseconds answerLimit(const Internet& request) {
  return std::min(limitOf(request, WINHTTP_OPTION_RECEIVE_TIMEOUT, 30000),
                  limitOf(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, 90000));
}

// Hands out what happened on a handle, in virtual time, one after the other.
void handOut(Entry& call, Internet& internet, const std::vector<Notification>& notifications, Delivery delivery) {
  State& state = call.state();
  const bool inTurn = std::exchange(internet.delivering, true);
  internet.inbox.insert(internet.inbox.end(), notifications.begin(), notifications.end());
  if (inTurn) return;
  HINTERNET handle = notifications.front().handle;
  if (delivery == Delivery::Inside) {
    call.lock().unlock();
    state.deliverQueued(handle);
    call.lock().lock();
    return;
  }
  state.needTime(call.name()).submit([&state, handle] { state.deliverQueued(handle); });
  if (delivery == Delivery::OtherThread) return;
  state.await(
      call.lock(), "a callback", [&] { return !internet.delivering; }, std::nullopt);
}

std::vector<Notification> endOf(Internet& request) {
  const Notification end = *std::exchange(request.underWay, std::nullopt);
  const bool isConnected = end.api == API_SEND_REQUEST && end.error != ERROR_WINHTTP_CANNOT_CONNECT &&
                           end.error != ERROR_WINHTTP_NAME_NOT_RESOLVED && end.error != ERROR_WINHTTP_TIMEOUT;
  if (!isConnected) return {end};
  return {{.handle = end.handle, .status = WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER}, end};
}

// Ends the operation when it has taken its time, or reached its time-out.
void completeInTime(Entry& call, Internet& request, Notification end, Delivery delivery) {
  State& state = call.state();
  VirtualTime& time = state.needTime(call.name());
  Milliseconds takes = request.exchange.connecting;
  Milliseconds limit = connectLimit(request);
  if (end.api == API_SEND_REQUEST) {
    const bool isAnswered = takes < kNever && request.exchange.answering < kNever;
    request.answered = isAnswered ? time.now() + takes + request.exchange.answering : kEndless;
  } else {
    takes = request.answered == kEndless ? kEndless : std::max(request.answered - time.now(), Milliseconds(0));
    limit = answerLimit(request);
  }
  if (limit < takes) {
    takes = limit;
    end.status = WINHTTP_CALLBACK_STATUS_REQUEST_ERROR;
    end.error = ERROR_WINHTTP_TIMEOUT;
  }
  request.underWay = end;
  const std::size_t operation = ++request.operation;
  if (takes >= kNever) return;
  if (takes.count() == 0) return handOut(call, request, endOf(request), delivery);
  time.at(takes, [&state, &request, operation] {
    if (request.operation != operation) return;
    for (const Notification& notification : endOf(request)) state.queue(notification);
  });
}

// A request that is closed while something is under way says that it was cancelled; or nothing, for a long time.
void closeInTime(Entry& call, HINTERNET handle, Internet& internet) {
  State& state = call.state();
  const HttpScript& http = call.windows().http;
  const Notification closing{.handle = handle, .status = WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING};
  ++internet.operation;
  if (!http.closingWaits || !internet.underWay) {
    std::vector<Notification> last{closing};
    if (internet.underWay) last.insert(last.begin(), *std::exchange(internet.underWay, std::nullopt));
    return handOut(call, internet, last, http.closeDelivery.value_or(http.delivery));
  }
  internet.underWay->asItIs = true;
  VirtualTime& time = state.needTime(call.name());
  const Milliseconds limit = answerLimit(internet);
  const Milliseconds due = std::min(internet.answered, limit == kEndless ? kEndless : time.now() + limit);
  if (due == kEndless) return;
  time.at(due - time.now(), [&state, &internet, closing] {
    state.queue(*std::exchange(internet.underWay, std::nullopt));
    state.queue(closing);
  });
}

// Ends a send or a receipt the way the session's kind and the script want it.
BOOL complete(Entry& call, HINTERNET handle, Internet& request, const Notification& success, DWORD error, Stage done) {
  const HttpScript& http = call.windows().http;
  const Exchange exchange = request.exchange;
  const bool notified = request.asynchronous && request.callback;
  if (notified && !(error && exchange.errorBy.value_or(http.errorBy) == ErrorBy::ReturnValue)) {
    request.stage = done == Stage::Sent ? Stage::Sending : Stage::Receiving;
    Notification notification = success;
    notification.handle = handle;
    notification.error = error;
    if (error) notification.status = WINHTTP_CALLBACK_STATUS_REQUEST_ERROR;
    const Delivery delivery = exchange.delivery.value_or(http.delivery);
    if (call.state().time.load()) {
      completeInTime(call, request, notification, delivery);
    } else {
      deliver(call, notification, delivery, http.delay);
    }
    return call.succeed(TRUE);
  }
  const bool endsNow = notified || !request.asynchronous || http.synchronous;
  if (!endsNow) {
    // It is under way, and nobody will hear of its end; but a receipt can be started.
    request.stage = done == Stage::Sent ? Stage::Sent : Stage::Receiving;
    return call.succeed(TRUE);
  }
  request.stage = error ? Stage::Opened : done;
  return error ? call.fail(error, FALSE) : call.succeed(TRUE);
}

BOOL answerNumber(Entry& call, DWORD value, LPVOID buffer, LPDWORD size) {
  if (!size) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const DWORD capacity = *size;
  *size = sizeof(DWORD);
  if (!buffer || capacity < sizeof(DWORD)) return call.fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(buffer, &value, sizeof value);
  return call.succeed(TRUE);
}

BOOL answerHeaders(Entry& call, const Internet& request, LPVOID buffer, LPDWORD size) {
  if (!size) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const HttpScript& http = call.windows().http;
  const std::wstring usual =
      L"HTTP/1.1 " + std::to_wstring(request.exchange.status) + L" X\r\nServer: simulated\r\n\r\n";
  const std::wstring headers = request.exchange.headers.value_or(usual);
  const DWORD length = static_cast<DWORD>(headers.size() * sizeof(wchar_t));
  const DWORD needed = length + static_cast<DWORD>(sizeof(wchar_t));
  if (!buffer) {
    *size = http.reportedHeaderSize.value_or(needed);
    return http.headerSizeQuerySucceeds ? call.succeed(TRUE) : call.fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  }
  if (*size < needed) {
    *size = needed;
    return call.fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  }
  std::memcpy(buffer, headers.c_str(), needed);
  *size = length;  // without the terminator, unlike the answer to the size query
  return call.succeed(TRUE);
}

constexpr std::array<std::pair<DWORD, std::wstring_view>, 3> kFields{{
    {WINHTTP_QUERY_LOCATION, L"Location"},
    {WINHTTP_QUERY_WWW_AUTHENTICATE, L"WWW-Authenticate"},
    {WINHTTP_QUERY_PROXY_AUTHENTICATE, L"Proxy-Authenticate"},
}};

// Answers with the first field of that name, or with the one of the index, which is then counted up.
BOOL answerField(Entry& call, const Internet& request, DWORD level, LPVOID buffer, LPDWORD size, LPDWORD index) {
  if (!size) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const auto known = std::ranges::find(kFields, level, [](const auto& field) { return field.first; });
  std::vector<std::wstring> values;
  for (const auto& [name, value] : request.exchange.fields) {
    if (known != kFields.end() && name == known->second) values.push_back(value);
  }
  const std::size_t at = index ? *index : 0;
  if (at >= values.size()) return call.fail(ERROR_WINHTTP_HEADER_NOT_FOUND, FALSE);
  const auto length = static_cast<DWORD>(values[at].size() * sizeof(wchar_t));
  const DWORD needed = length + static_cast<DWORD>(sizeof(wchar_t));
  if (!buffer || *size < needed) {
    *size = needed;
    return call.fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  }
  std::memcpy(buffer, values[at].c_str(), needed);
  *size = length;
  if (index) ++*index;
  return call.succeed(TRUE);
}

BOOL setProxy(Entry& call, Internet& request, LPVOID buffer, DWORD size) {
  if (!buffer || size != sizeof(WINHTTP_PROXY_INFO)) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const auto& info = *static_cast<const WINHTTP_PROXY_INFO*>(buffer);
  call.number(L"access", info.dwAccessType).text(L"proxy", info.lpszProxy).text(L"bypass", info.lpszProxyBypass);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (request.level == Level::Request) {
    call.state().requests[request.record].proxy =
        ProxyOption{info.dwAccessType, optionalText(info.lpszProxy), optionalText(info.lpszProxyBypass)};
  }
  return call.succeed(TRUE);
}

BOOL setSecurityFlags(Entry& call, Internet& request, LPVOID buffer, DWORD size) {
  if (!buffer || size != sizeof(DWORD)) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  DWORD flags = 0;
  std::memcpy(&flags, buffer, sizeof flags);
  call.flags(L"value", flags);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (request.level != Level::Request) return call.fail(ERROR_WINHTTP_INCORRECT_HANDLE_TYPE, FALSE);
  call.state().requests[request.record].securityFlags = flags;
  return call.succeed(TRUE);
}

BOOL setContext(Entry& call, Internet& internet, LPVOID buffer, DWORD size) {
  if (!buffer || size != sizeof(DWORD_PTR)) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  DWORD_PTR context = 0;
  std::memcpy(&context, buffer, sizeof context);
  call.text(L"value", context ? L"set" : L"0");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  internet.context = context;
  return call.succeed(TRUE);
}

void recordOption(State& state, Internet& internet, DWORD option, DWORD value) {
  internet.options[option] = value;
  if (internet.level == Level::Request) state.requests[internet.record].options[option] = value;
}

// Those whose value is a number, and whether a request alone has them.
constexpr std::array<std::pair<DWORD, bool>, 10> kNumbers{{{WINHTTP_OPTION_RESOLVE_TIMEOUT, false},
                                                           {WINHTTP_OPTION_CONNECT_TIMEOUT, false},
                                                           {WINHTTP_OPTION_CONNECT_RETRIES, false},
                                                           {WINHTTP_OPTION_SEND_TIMEOUT, false},
                                                           {WINHTTP_OPTION_RECEIVE_TIMEOUT, false},
                                                           {WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, false},
                                                           {WINHTTP_OPTION_DISABLE_FEATURE, true},
                                                           {WINHTTP_OPTION_MAX_CONNS_PER_SERVER, false},
                                                           {WINHTTP_OPTION_MAX_CONNS_PER_1_0_SERVER, false},
                                                           {WINHTTP_OPTION_AUTOLOGON_POLICY, true}}};

BOOL setNumber(Entry& call, Internet& internet, DWORD option, LPVOID buffer, DWORD size) {
  const auto known = std::ranges::find(kNumbers, option, [](const auto& number) { return number.first; });
  if (known == kNumbers.end()) {
    return call.fail(call.fault().value_or(DWORD{ERROR_WINHTTP_INVALID_OPTION}), FALSE);
  }
  if (!buffer || size != sizeof(DWORD)) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  DWORD value = 0;
  std::memcpy(&value, buffer, sizeof value);
  call.number(L"value", value);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  if (known->second && internet.level != Level::Request) {
    return call.fail(ERROR_WINHTTP_INCORRECT_HANDLE_TYPE, FALSE);
  }
  recordOption(call.state(), internet, option, value);
  return call.succeed(TRUE);
}

}  // namespace

void State::queue(const Notification& notification) {
  Internet& internet = internets.at(notification.handle);
  internet.inbox.push_back(notification);
  if (std::exchange(internet.delivering, true)) return;
  needTime("State::queue").submit([this, handle = notification.handle] { deliverQueued(handle); });
}

void State::deliverQueued(HINTERNET handle) {
  std::unique_lock guard(mutex);
  Internet& internet = internets.at(handle);
  while (!internet.inbox.empty()) {
    const Notification notification = internet.inbox.front();
    internet.inbox.pop_front();
    guard.unlock();
    notify(notification);
    guard.lock();
  }
  internet.delivering = false;
  wake();
}

void State::letGoOfRequests() {
  for (auto& [handle, internet] : internets) {
    if (!internet.closed || !internet.underWay) continue;
    internet.underWay.reset();
    queue({.handle = handle, .status = WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING});
  }
}

// Brings the handle to the state that the notification tells of, then tells it, as its callback wishes.
void State::notify(const Notification& notification) {
  std::unique_lock guard(mutex);
  Internet& internet = internets.at(notification.handle);
  if (internet.silent) return;
  DWORD status = notification.status;
  WINHTTP_ASYNC_RESULT result{notification.api, notification.error};
  if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
    internet.silent = true;
  } else if (internet.closed && !notification.asItIs) {
    if (status == WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER) return;
    status = WINHTTP_CALLBACK_STATUS_REQUEST_ERROR;
    result.dwError = ERROR_WINHTTP_OPERATION_CANCELLED;
  }
  if (status == WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE) internet.stage = Stage::Sent;
  if (status == WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE) internet.stage = Stage::Answered;
  if (status == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR) internet.stage = Stage::Opened;
  const auto callback = internet.notifications & status ? internet.callback : nullptr;
  const DWORD_PTR context = internet.context;
  guard.unlock();
  if (!callback) return;

  HINTERNET handle = notification.handle;
  std::wstring address = L"192.0.2.1";
  const MemoryWatch::Resume resume;
  if (status == WINHTTP_CALLBACK_STATUS_REQUEST_ERROR) {
    callback(handle, context, status, &result, sizeof result);
  } else if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING) {
    callback(handle, context, status, &handle, sizeof handle);
  } else if (status == WINHTTP_CALLBACK_STATUS_CONNECTED_TO_SERVER) {
    callback(handle, context, status, address.data(), static_cast<DWORD>(address.size() + 1));
  } else {
    callback(handle, context, status, nullptr, 0);
  }
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

HINTERNET WINAPI WinHttpOpen(LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
  Entry call("WinHttpOpen");
  call.text(L"agent", agent).number(L"access", access).text(L"proxy", proxy).text(L"bypass", bypass);
  call.flags(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), HINTERNET{});
  Internet session;
  session.asynchronous = (flags & WINHTTP_FLAG_ASYNC) != 0;
  if (agent) session.agent = agent;
  if (access == WINHTTP_ACCESS_TYPE_NAMED_PROXY) {
    session.proxy = ProxyOption{access, optionalText(proxy), optionalText(bypass)};
  }
  return call.succeed(create(call.state(), Level::Session, "session", session));
}

HINTERNET WINAPI WinHttpConnect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
  Entry call("WinHttpConnect");
  call.handle(L"session", session).text(L"host", host).number(L"port", port).number(L"reserved", reserved);
  if (call.fault()) return call.fail(*call.fault(), HINTERNET{});
  DWORD error = 0;
  const Internet* parent = find(call, session, Level::Session, error);
  if (!parent) return call.fail(error, HINTERNET{});
  if (!host || reserved != 0) return call.fail(ERROR_INVALID_PARAMETER, HINTERNET{});
  Internet connection = *parent;
  connection.host = host;
  connection.port = port;
  return call.succeed(create(call.state(), Level::Connection, "connection", connection));
}

HINTERNET WINAPI WinHttpOpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR objectName, LPCWSTR version,
                                    LPCWSTR referrer, LPCWSTR* acceptTypes, DWORD flags) {
  Entry call("WinHttpOpenRequest");
  call.handle(L"connection", connection).text(L"verb", verb).text(L"object", objectName).text(L"version", version);
  call.text(L"referrer", referrer).text(L"accept", acceptTypes ? L"set" : L"null").flags(L"flags", flags);
  if (call.fault()) return call.fail(*call.fault(), HINTERNET{});
  DWORD error = 0;
  const Internet* parent = find(call, connection, Level::Connection, error);
  if (!parent) return call.fail(error, HINTERNET{});
  State& state = call.state();
  HINTERNET handle = create(state, Level::Request, "request", *parent);
  state.internets[handle].record = state.requests.size();
  state.requests.push_back({.agent = parent->agent,
                            .host = parent->host,
                            .port = parent->port,
                            .verb = verb ? verb : L"GET",
                            .objectName = objectName ? objectName : L"",
                            .flags = flags,
                            .securityFlags = call.windows().http.securityFlags,
                            .proxy = parent->proxy,
                            .credentials = {},
                            .options = parent->options});
  return call.succeed(handle);
}

BOOL WINAPI WinHttpCloseHandle(HINTERNET handle) {
  Entry call("WinHttpCloseHandle");
  call.handle(L"handle", handle);
  State& state = call.state();
  if (!state.release(handle, Kind::Internet, call.name())) return call.fail(ERROR_INVALID_HANDLE, FALSE);
  Internet& internet = state.internets.at(handle);
  internet.closed = true;
  if (internet.level == Level::Request) state.requests[internet.record].closed = true;
  if (internet.callback && state.time.load()) {
    closeInTime(call, handle, internet);
  } else if (internet.callback) {
    const HttpScript& http = call.windows().http;
    Delivery delivery = http.closeDelivery.value_or(http.delivery);
    // It is the last word on its handle: it must not overtake one that is on its way on the other thread.
    if (delivery == Delivery::Inside && state.isBusy(handle)) delivery = Delivery::OtherThread;
    deliver(call, {.handle = handle, .status = WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING}, delivery, http.closeDelay);
  }
  return call.succeed(TRUE);
}

WINHTTP_STATUS_CALLBACK WINAPI WinHttpSetStatusCallback(HINTERNET handle, WINHTTP_STATUS_CALLBACK callback,
                                                        DWORD notifications, DWORD_PTR reserved) {
  Entry call("WinHttpSetStatusCallback");
  call.handle(L"handle", handle).text(L"callback", callback ? L"set" : L"null");
  call.flags(L"notifications", notifications).number(L"reserved", reserved);
  if (call.fault()) return call.fail(*call.fault(), WINHTTP_INVALID_STATUS_CALLBACK);
  DWORD error = 0;
  Internet* internet = find(call, handle, std::nullopt, error);
  if (!internet) return call.fail(error, WINHTTP_INVALID_STATUS_CALLBACK);
  internet->notifications = notifications;
  return call.succeed(std::exchange(internet->callback, callback));
}

BOOL WINAPI WinHttpQueryOption(HINTERNET handle, DWORD option, LPVOID buffer, LPDWORD size) {
  Entry call("WinHttpQueryOption");
  call.handle(L"handle", handle).number(L"option", option);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  const Internet* internet = find(call, handle, std::nullopt, error);
  if (!internet) return call.fail(error, FALSE);
  if (option == WINHTTP_OPTION_SECURITY_KEY_BITNESS && internet->level == Level::Request) {
    const bool secure = (call.state().requests[internet->record].flags & WINHTTP_FLAG_SECURE) != 0;
    return answerNumber(call, secure && !internet->exchange.beforeTls ? 256 : 0, buffer, size);
  }
  if (option != WINHTTP_OPTION_SECURITY_FLAGS || internet->level != Level::Request) {
    return call.fail(ERROR_WINHTTP_INVALID_OPTION, FALSE);
  }
  return answerNumber(call, call.state().requests[internet->record].securityFlags, buffer, size);
}

BOOL WINAPI WinHttpSetOption(HINTERNET handle, DWORD option, LPVOID buffer, DWORD size) {
  Entry call("WinHttpSetOption");
  call.handle(L"handle", handle).number(L"option", option);
  DWORD error = 0;
  Internet* internet = find(call, handle, std::nullopt, error);
  if (!internet) return call.fail(error, FALSE);
  switch (option) {
    case WINHTTP_OPTION_PROXY:
      return setProxy(call, *internet, buffer, size);
    case WINHTTP_OPTION_SECURITY_FLAGS:
      return setSecurityFlags(call, *internet, buffer, size);
    case WINHTTP_OPTION_CONTEXT_VALUE:
      return setContext(call, *internet, buffer, size);
    default:
      return setNumber(call, *internet, option, buffer, size);
  }
}

BOOL WINAPI WinHttpSetTimeouts(HINTERNET handle, int resolve, int connect, int send, int receive) {
  Entry call("WinHttpSetTimeouts");
  call.handle(L"handle", handle);
  const std::array<std::pair<DWORD, int>, 4> values{{{WINHTTP_OPTION_RESOLVE_TIMEOUT, resolve},
                                                     {WINHTTP_OPTION_CONNECT_TIMEOUT, connect},
                                                     {WINHTTP_OPTION_SEND_TIMEOUT, send},
                                                     {WINHTTP_OPTION_RECEIVE_TIMEOUT, receive}}};
  for (const auto& [option, value] : values) call.number(L"timeout", static_cast<DWORD>(value));
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  Internet* internet = find(call, handle, std::nullopt, error);
  if (!internet) return call.fail(error, FALSE);
  for (const auto& [option, value] : values) {
    if (value < -1) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
    recordOption(call.state(), *internet, option, static_cast<DWORD>(value));
  }
  return call.succeed(TRUE);
}

BOOL WINAPI WinHttpSetCredentials(HINTERNET request, DWORD target, DWORD scheme, LPCWSTR user, LPCWSTR password,
                                  LPVOID parameters) {
  Entry call("WinHttpSetCredentials");
  call.handle(L"request", request).number(L"target", target).flags(L"scheme", scheme).text(L"user", user);
  call.text(L"password", password ? L"****" : L"null").text(L"parameters", parameters ? L"set" : L"null");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  const Internet* internet = find(call, request, Level::Request, error);
  if (!internet) return call.fail(error, FALSE);
  const Credentials credentials{target, scheme, user ? user : L"", password ? password : L""};
  call.state().requests[internet->record].credentials.push_back(credentials);
  call.state().credentials.push_back(credentials);
  return call.succeed(TRUE);
}

BOOL WINAPI WinHttpSendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID optional,
                               DWORD optionalLength, DWORD totalLength, DWORD_PTR context) {
  Entry call("WinHttpSendRequest");
  call.handle(L"request", request).text(L"headers", headers ? L"set" : L"null").number(L"length", headersLength);
  call.text(L"optional", optional ? L"set" : L"null").number(L"length", optionalLength);
  call.number(L"total", totalLength).text(L"context", context ? L"set" : L"0");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  Internet* internet = find(call, request, Level::Request, error);
  if (!internet) return call.fail(error, FALSE);
  if (internet->stage == Stage::Sending) return call.fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE, FALSE);
  if (context) internet->context = context;
  RequestRecord& record = call.state().requests[internet->record];
  ++record.sends;
  internet->exchange = nextExchange(call.windows().http, record);
  const Notification success{.status = WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE, .api = API_SEND_REQUEST};
  return complete(call, request, *internet, success, internet->exchange.sendError, Stage::Sent);
}

BOOL WINAPI WinHttpReceiveResponse(HINTERNET request, LPVOID reserved) {
  Entry call("WinHttpReceiveResponse");
  call.handle(L"request", request).text(L"reserved", reserved ? L"set" : L"null");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  Internet* internet = find(call, request, Level::Request, error);
  if (!internet) return call.fail(error, FALSE);
  if (internet->stage != Stage::Sent) return call.fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE, FALSE);
  const Notification success{.status = WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE, .api = API_RECEIVE_RESPONSE};
  return complete(call, request, *internet, success, internet->exchange.receiveError, Stage::Answered);
}

BOOL WINAPI WinHttpQueryHeaders(HINTERNET request, DWORD level, LPCWSTR name, LPVOID buffer, LPDWORD size,
                                LPDWORD index) {
  Entry call("WinHttpQueryHeaders");
  call.handle(L"request", request).flags(L"level", level).text(L"name", name);
  call.text(L"buffer", buffer ? L"set" : L"null").text(L"index", index ? L"set" : L"null");
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  const Internet* internet = find(call, request, Level::Request, error);
  if (!internet) return call.fail(error, FALSE);
  if (internet->stage != Stage::Answered) return call.fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE, FALSE);
  switch (level) {
    case WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER:
      return answerNumber(call, internet->exchange.status, buffer, size);
    case WINHTTP_QUERY_RAW_HEADERS_CRLF:
      return answerHeaders(call, *internet, buffer, size);
    default:
      return answerField(call, *internet, level, buffer, size, index);
  }
}

BOOL WINAPI WinHttpQueryAuthSchemes(HINTERNET request, LPDWORD supported, LPDWORD first, LPDWORD target) {
  Entry call("WinHttpQueryAuthSchemes");
  call.handle(L"request", request);
  if (call.fault()) return call.fail(*call.fault(), FALSE);
  DWORD error = 0;
  const Internet* internet = find(call, request, Level::Request, error);
  if (!internet) return call.fail(error, FALSE);
  if (!supported || !first || !target) return call.fail(ERROR_INVALID_PARAMETER, FALSE);
  const Exchange& exchange = internet->exchange;
  std::optional<AuthSchemes> schemes = exchange.schemes;
  if (!schemes && (exchange.status == 401 || exchange.status == 407)) {
    schemes = AuthSchemes{WINHTTP_AUTH_SCHEME_BASIC, WINHTTP_AUTH_SCHEME_BASIC,
                          exchange.status == 407 ? DWORD{WINHTTP_AUTH_TARGET_PROXY} : WINHTTP_AUTH_TARGET_SERVER};
  }
  if (!schemes || internet->stage != Stage::Answered) return call.fail(ERROR_WINHTTP_INCORRECT_HANDLE_STATE, FALSE);
  *supported = schemes->supported;
  *first = schemes->first;
  *target = schemes->target;
  return call.succeed(TRUE);
}
