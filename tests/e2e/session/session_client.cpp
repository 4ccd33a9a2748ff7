// A program over kiv-session.dll that does what it is told, a command in each line of its standard input, and tells
// what happens as JSON, an object in each line. harness/session_client.py drives it.
#include <winsock2.h>

#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kiv/session.h"

namespace {

using Words = std::vector<std::string>;

std::wstring wide(const std::string& text) {
  std::wstring result(text.size(), L'\0');
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(),
                                         static_cast<int>(result.size()));
  result.resize(static_cast<std::size_t>(length));
  return result;
}

std::string narrow(const wchar_t* text) {
  const int length = static_cast<int>(std::wcslen(text));
  std::string result(static_cast<std::size_t>(length) * 3, '\0');
  result.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, text, length, result.data(), static_cast<int>(result.size()), nullptr, nullptr)));
  return result;
}

// Milliseconds by a clock that all programs share.
double now() {
  LARGE_INTEGER count;
  LARGE_INTEGER frequency;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return 1000.0 * static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char character : text) {
    char escaped[8];
    if (character == '"' || character == '\\' || static_cast<unsigned char>(character) < 0x20) {
      std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(character));
      result += escaped;
    } else {
      result += character;
    }
  }
  return result + "\"";
}

// The members of an object: names and values, which are JSON already.
using Members = std::vector<std::pair<std::string, std::string>>;

std::string object(const Members& members) {
  std::string text;
  for (const auto& [name, value] : members) text += (text.empty() ? "" : ", ") + quoted(name) + ": " + value;
  return "{" + text + "}";
}

void tell(const std::string& what, Members members) {
  static std::mutex mutex;
  members.insert(members.begin(), {{"what", quoted(what)}, {"at", std::to_string(now())}});
  const std::string line = object(members) + "\n";
  const std::lock_guard lock(mutex);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

std::string described(KivDecision* decision) {
  if (!decision) return "null";
  return object({{"kind", std::to_string(KivDecision_Kind(decision))},
                 {"url", quoted(narrow(KivDecision_ProxyUrl(decision)))},
                 {"reason", std::to_string(KivDecision_Reason(decision))},
                 {"auth", std::to_string(KivDecision_AuthScheme(decision))},
                 {"age", std::to_string(KivDecision_Age(decision))}});
}

class Client {
 public:
  // Tells the result of one command; false to end.
  bool obey(const Words& words) {
    if (words[0] == "quit") return false;
    const auto found = kCommands.find(words[0]);
    if (found == kCommands.end()) {
      tell("unknown", {{"command", quoted(words[0])}});
    } else {
      found->second(*this, words);
    }
    return true;
  }

  ~Client() { end(); }

 private:
  using Command = std::function<void(Client&, const Words&)>;
  static const std::map<std::string, Command> kCommands;

  static void tellStatus(const std::string& what, KivStatus status) {
    tell(what, {{"status", std::to_string(status)}});
  }

  void create(const Words&) {
    tellStatus("create", KivSession_Create(L"kiv-e2e", &session_));
    reader_ = std::thread([this] { read(); });
  }

  void number(const Words& words) {
    tellStatus("number", KivSession_SetNumber(session_, static_cast<std::uint32_t>(std::stoul(words[1])),
                                              static_cast<std::uint32_t>(std::stoul(words[2]))));
  }

  void text(const Words& words) {
    tellStatus("text", KivSession_SetText(session_, static_cast<std::uint32_t>(std::stoul(words[1])),
                                          wide(words.size() > 2 ? words[2] : "").c_str()));
  }

  void proxy(const Words& words) {
    const std::wstring user = wide(words.size() > 3 ? words[3] : "");
    const std::wstring password = wide(words.size() > 4 ? words[4] : "");
    tellStatus("proxy",
               KivSession_SetProxy(session_, static_cast<std::uint32_t>(std::stoul(words[1])), wide(words[2]).c_str(),
                                   user.empty() ? nullptr : user.c_str(), user.empty() ? nullptr : password.c_str()));
  }

  // start TAG URL TIMEOUT
  void start(const Words& words) {
    const std::uint64_t tag = std::stoull(words[1]);
    KivRequest* request = nullptr;
    {
      const std::lock_guard lock(mutex_);
      began_[tag] = now();
    }
    const KivStatus status = KivSession_Start(session_, wide(words[2]).c_str(),
                                              static_cast<std::uint32_t>(std::stoul(words[3])), tag, nullptr, &request);
    requests_[tag] = request;
    if (status != KIV_STATUS_OK) tell("start", {{"tag", words[1]}, {"status", std::to_string(status)}});
  }

  // many COUNT URL TIMEOUT: with "*" as the number of each.
  void many(const Words& words) {
    for (std::uint64_t tag = 1; tag <= std::stoull(words[1]); ++tag) {
      std::string url = words[2];
      if (const auto star = url.find('*'); star != std::string::npos) url.replace(star, 1, std::to_string(tag));
      start({"start", std::to_string(tag), url, words[3]});
    }
  }

  void cancel(const Words& words) {
    const double began = now();
    KivRequest_Cancel(requests_[std::stoull(words[1])]);
    tell("cancel", {{"took", std::to_string(now() - began)}});
  }

  // resolve URL TIMEOUT: waits.
  void resolve(const Words& words) {
    const double began = now();
    KivDecision* decision = nullptr;
    const KivStatus status = KivSession_Resolve(session_, wide(words[1]).c_str(),
                                                static_cast<std::uint32_t>(std::stoul(words[2])), &decision);
    tell("resolve", {{"status", std::to_string(status)},
                     {"decision", described(decision)},
                     {"took", std::to_string(now() - began)}});
    remember(decision);
  }

  void lookUp(const Words& words) {
    const double began = now();
    KivDecision* decision = nullptr;
    const KivStatus status = KivSession_Lookup(session_, wide(words[1]).c_str(), &decision);
    tell("lookup", {{"status", std::to_string(status)},
                    {"decision", described(decision)},
                    {"took", std::to_string(now() - began)}});
    remember(decision);
  }

  // Of the decision that was told last.
  void reportFailure(const Words& words) {
    const std::lock_guard lock(mutex_);
    tellStatus("report",
               KivSession_ReportFailure(session_, decision_, static_cast<std::uint32_t>(std::stoul(words[1]))));
  }

  void forget(const Words&) {
    KivSession_Forget(session_);
    tell("forget", {});
  }

  void forgetCredentials(const Words&) {
    KivSession_ForgetCredentials(session_);
    tell("forget-credentials", {});
  }

  void counters(const Words&) {
    Members members;
    for (std::uint32_t counter = KIV_COUNTER_RESOLUTIONS; counter <= KIV_COUNTER_LOST_LOG_LINES; ++counter) {
      members.emplace_back(std::to_string(counter), std::to_string(KivSession_GetCounter(session_, counter)));
    }
    tell("counters", members);
  }

  // answers USER PASSWORD, or answers - to decline: what the next challenge that nobody has answered is told.
  void answers(const Words& words) {
    const std::lock_guard lock(mutex_);
    answers_.emplace_back(words[1], words.size() > 2 ? words[2] : "");
    answerOpen();
  }

  // busy THREADS MILLISECONDS URL: looks up and resolves, and tells how often when all have ended.
  void busy(const Words& words) {
    const double end = now() + std::stod(words[2]);
    for (int thread = 0; thread < std::stoi(words[1]); ++thread) {
      workers_.emplace_back([this, end, url = wide(words[3])] {
        for (; now() < end; ++calls_) {
          KivDecision* decision = nullptr;
          KivSession_Resolve(session_, url.c_str(), 0, &decision);
          KivDecision_Release(decision);
        }
      });
    }
    tell("busy", {});
  }

  void join(const Words&) {
    for (std::thread& worker : workers_) worker.join();
    workers_.clear();
    tell("join", {{"calls", std::to_string(calls_.exchange(0))}});
  }

  // settings HEX COUNT: writes the user's proxy settings, so often.
  void settings(const Words& words) {
    std::vector<BYTE> bytes;
    for (std::size_t at = 0; at + 1 < words[1].size(); at += 2) {
      bytes.push_back(static_cast<BYTE>(std::stoi(words[1].substr(at, 2), nullptr, 16)));
    }
    HKEY key = nullptr;
    const LSTATUS opened = RegOpenKeyExW(
        HKEY_CURRENT_USER, L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections", 0,
        KEY_SET_VALUE, &key);
    for (int count = std::stoi(words[2]); opened == ERROR_SUCCESS && count > 0; --count) {
      RegSetValueExW(key, L"DefaultConnectionSettings", 0, REG_BINARY, bytes.data(), static_cast<DWORD>(bytes.size()));
    }
    RegCloseKey(key);
    tellStatus("settings", static_cast<KivStatus>(opened));
  }

  // auth HOST:PORT [forget]: what a client does that speaks neither NTLM nor Negotiate, with a CONNECT of its own. It
  // can forget the credentials while it shakes hands with the proxy.
  void authenticate(const Words& words);

  void close(const Words&) {
    const double began = now();
    KivSession_Close(session_);
    tell("close", {{"took", std::to_string(now() - began)}});
  }

  void end() {
    for (std::thread& worker : workers_) worker.join();
    if (session_) KivSession_Close(session_);
    if (reader_.joinable()) reader_.join();
    for (auto& [tag, request] : requests_) KivRequest_Release(request);
    for (KivChallenge* challenge : open_) KivChallenge_Release(challenge);
    KivDecision_Release(decision_);
    KivSession_Destruct(session_);
  }

  void remember(KivDecision* decision) {
    if (!decision) return;
    const std::lock_guard lock(mutex_);
    KivDecision_Release(std::exchange(decision_, decision));
  }

  void read() {
    for (;;) {
      KivEvent* event = nullptr;
      const KivStatus status = KivSession_Next(session_, KIV_NO_TIME_OUT, &event);
      if (status != KIV_STATUS_OK) {
        tellStatus("next", status);
        KivEvent_Release(event);
        return;
      }
      handle(event);
      KivEvent_Release(event);
    }
  }

  void handle(KivEvent* event) {
    switch (KivEvent_Kind(event)) {
      case KIV_EVENT_COMPLETED:
        completed(event);
        break;
      case KIV_EVENT_CHALLENGE:
      case KIV_EVENT_WITHDRAWN:
        challenged(event);
        break;
      case KIV_EVENT_CHANGED:
        tell("changed", {});
        break;
      default:
        tell("log", {{"text", quoted(narrow(KivEvent_Text(event)))}});
    }
  }

  void completed(KivEvent* event) {
    const std::uint64_t tag = KivEvent_Tag(event);
    KivDecision* decision = KivEvent_Decision(event);
    double began = 0;
    {
      const std::lock_guard lock(mutex_);
      began = began_[tag];
    }
    tell("completed", {{"tag", std::to_string(tag)},
                       {"status", std::to_string(KivEvent_Status(event))},
                       {"decision", described(decision)},
                       {"took", std::to_string(now() - began)}});
    remember(decision);
  }

  void challenged(KivEvent* event) {
    KivChallenge* challenge = KivEvent_Challenge(event);
    const bool withdrawn = KivEvent_Kind(event) == KIV_EVENT_WITHDRAWN;
    tell(withdrawn ? "withdrawn" : "challenge", {{"proxy", quoted(narrow(KivChallenge_Proxy(challenge)))},
                                                 {"scheme", std::to_string(KivChallenge_Scheme(challenge))},
                                                 {"realm", quoted(narrow(KivChallenge_Realm(challenge)))},
                                                 {"attempt", std::to_string(KivChallenge_Attempt(challenge))}});
    if (withdrawn) {
      KivChallenge_Release(challenge);
      return;
    }
    const std::lock_guard lock(mutex_);
    open_.push_back(challenge);
    answerOpen();
  }

  // The oldest question gets the oldest answer.
  void answerOpen() {
    while (!open_.empty() && !answers_.empty()) {
      KivChallenge* challenge = open_.front();
      const auto [user, password] = answers_.front();
      open_.pop_front();
      answers_.pop_front();
      tellStatus("answer", user == "-" ? KivChallenge_Decline(challenge)
                                       : KivChallenge_Answer(challenge, wide(user).c_str(), wide(password).c_str()));
      KivChallenge_Release(challenge);
    }
  }

  KivSession* session_ = nullptr;
  std::thread reader_;
  std::vector<std::thread> workers_;
  std::atomic<std::uint64_t> calls_{0};
  std::map<std::uint64_t, KivRequest*> requests_;
  std::mutex mutex_;  // of what follows
  std::map<std::uint64_t, double> began_;
  KivDecision* decision_ = nullptr;
  std::deque<KivChallenge*> open_;
  std::deque<std::pair<std::string, std::string>> answers_;
};

const std::map<std::string, Client::Command> Client::kCommands = {
    {"create", &Client::create},     {"number", &Client::number},
    {"text", &Client::text},         {"proxy", &Client::proxy},
    {"start", &Client::start},       {"many", &Client::many},
    {"cancel", &Client::cancel},     {"resolve", &Client::resolve},
    {"lookup", &Client::lookUp},     {"report", &Client::reportFailure},
    {"forget", &Client::forget},     {"forget-credentials", &Client::forgetCredentials},
    {"counters", &Client::counters}, {"answers", &Client::answers},
    {"busy", &Client::busy},         {"join", &Client::join},
    {"settings", &Client::settings}, {"auth", &Client::authenticate},
    {"close", &Client::close},
};

// ---- A connection of the client's own to a proxy.

class ProxyConnection {
 public:
  explicit ProxyConnection(KivDecision* decision) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<u_short>(KivDecision_Port(decision)));
    connected_ = connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ProxyConnection(const ProxyConnection&) = delete;
  ProxyConnection& operator=(const ProxyConnection&) = delete;
  ~ProxyConnection() { closesocket(socket_); }

  struct Response {
    int status = 0;  // 0: there is none
    std::string challenges;
  };

  Response ask(const std::string& target, const std::string& authorization) {
    std::string request = "CONNECT " + target + " HTTP/1.1\r\nHost: " + target + "\r\n";
    if (!authorization.empty()) request += "Proxy-Authorization: " + authorization + "\r\n";
    request += "\r\n";
    if (!connected_ || send(socket_, request.data(), static_cast<int>(request.size()), 0) <= 0) return {};
    return read();
  }

 private:
  bool receive() {
    char bytes[4096];
    const int length = recv(socket_, bytes, sizeof bytes, 0);
    if (length > 0) received_.append(bytes, static_cast<std::size_t>(length));
    return length > 0;
  }

  Response read() {
    std::size_t end = 0;
    while ((end = received_.find("\r\n\r\n")) == std::string::npos) {
      if (!receive()) return {};
    }
    std::istringstream head(received_.substr(0, end + 2));
    received_.erase(0, end + 4);
    Response response;
    std::size_t body = 0;
    std::string line;
    std::getline(head, line);
    response.status = std::atoi(line.substr(line.find(' ')).c_str());
    while (std::getline(head, line)) {
      const std::size_t colon = line.find(':');
      const std::string name = line.substr(0, colon);
      const std::string value = line.substr(colon + 1, line.size() - colon - 2);
      if (_stricmp(name.c_str(), "Proxy-Authenticate") == 0) response.challenges += value + "\n";
      if (_stricmp(name.c_str(), "Content-Length") == 0) body = std::stoul(value);
    }
    while (response.status != 200 && received_.size() < body && receive()) {
    }
    received_.erase(0, body);
    return response;
  }

  SOCKET socket_;
  bool connected_ = false;
  std::string received_;
};

void Client::authenticate(const Words& words) {
  constexpr int kMostSteps = 200;
  constexpr DWORD kPause = 50;
  KivDecision* decision = nullptr;
  {
    const std::lock_guard lock(mutex_);
    decision = decision_ ? KivDecision_Retain(decision_) : nullptr;
  }
  KivAuth* auth = nullptr;
  KivStatus status = KivAuth_Create(session_, decision, &auth);
  std::string steps = std::to_string(status);
  std::string answers;
  int last = -1;
  if (status == KIV_STATUS_OK) {
    ProxyConnection connection(decision);
    std::string challenges;
    for (int step = 0; step < kMostSteps; ++step) {
      const wchar_t* header = nullptr;
      const KivStatus next = KivAuth_Next(auth, wide(challenges).c_str(), &header);
      if (next != status) steps += ", " + std::to_string(next);
      status = next;
      if (next == KIV_STATUS_NOT_YET && !challenges.empty()) {
        Sleep(kPause);
        continue;
      }
      if (!header && !challenges.empty()) break;
      const ProxyConnection::Response response = connection.ask(words[1], header ? narrow(header) : "");
      answers += (answers.empty() ? "" : ", ") + std::to_string(response.status);
      last = response.status;
      if (last != 407) break;
      if (next == KIV_STATUS_AGAIN && words.size() > 2) KivSession_ForgetCredentials(session_);
      challenges = response.challenges;
    }
  }
  KivAuth_Release(auth);
  KivDecision_Release(decision);
  tell("auth", {{"steps", "[" + steps + "]"}, {"http", "[" + answers + "]"}, {"last", std::to_string(last)}});
}

Words split(const std::string& line) {
  std::istringstream stream(line);
  Words words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

}  // namespace

int main() {
  WSADATA data;
  WSAStartup(MAKEWORD(2, 2), &data);
  Client client;
  tell("ready", {{"version", std::to_string(KivSession_Version())}});
  for (std::string line; std::getline(std::cin, line);) {
    const Words words = split(line);
    if (!words.empty() && !client.obey(words)) break;
  }
  return 0;
}
