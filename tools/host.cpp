// The host of a resolution: the library's own client and dialogs behind its callbacks, and a record of what they saw.
#include "host.h"

#include <windows.h>

#include <array>
#include <string>

#include "json_document.h"
#include "log_facts.h"
#include "presentable.h"
#include "user_settings.h"

namespace kiv::tool {
namespace {

// The callbacks' contexts are const; the host that they lead to is not.
Host& hostOf(const void* context) { return **static_cast<Host* const*>(context); }

KivHttpClient* clientOf(void* client) { return static_cast<KivHttpClient*>(client); }

// The client takes the credential out of the handle; the handle itself stays to be released.
void setServerCred(void* client, KivCred* cred) {
  const UniqueCred owned(cred);
  KivHttpClient_SetServerCred(clientOf(client), owned.get());
}

void setProxy(void* client, KivProxyConfig* proxy) { KivHttpClient_SetProxy(clientOf(client), proxy); }

std::wstring textOf(const KivProxyConfig* proxy) {
  if (KivProxyConfig_IsNone(proxy)) return L"NONE";
  if (KivProxyConfig_IsDirect(proxy)) return L"DIRECT";
  std::wstring text;
  KivProxyConfig_ToString(proxy, 1, 0, &text,
                          [](void* context, const wchar_t* shown) { *static_cast<std::wstring*>(context) = shown; });
  return text;
}

Level levelOf(const KivLog* log) {
  constexpr std::array<bool (*)(const KivLog*), 4> kTests = {KivLog_IsError, KivLog_IsWarn, KivLog_IsInfo,
                                                             KivLog_IsDebug};
  std::size_t level = 0;
  while (level + 1 < kTests.size() && !kTests[level](log)) ++level;
  return static_cast<Level>(level);
}

}  // namespace

Host::Host(const Options& options, const Target& target, Display& display, OutputFile* trace)
    : options_(options),
      target_(target),
      display_(display),
      trace_(trace),
      logger_(
          KivLogger_Construct(this, [](void* self, const KivLog* log) { static_cast<Host*>(self)->onRecord(log); })),
      client_(KivHttpClient_Create(target.url.c_str(), options.userAgent.c_str(), options.ignoreCertErrors)),
      began_(std::chrono::steady_clock::now()) {
  resolution_.url = presentable(target.url);
  resolution_.began = std::chrono::system_clock::now();
  resolution_.bypass.given = options.bypass.has_value();
}

milliseconds Host::sinceBegin() const {
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - began_);
}

Resolution Host::resolve() {
  resolution_.settings = readUserSettings();
  discovering_ = true;
  display_.discoveryBegins(resolution_);
  const UniqueProxyConfig config = run();
  resolution_.outcome = outcomeOf(config.get());
  resolution_.duration = sinceBegin();
  assignOrigins();
  display_.finished(resolution_);
  return std::move(resolution_);
}

UniqueProxyConfig Host::run() {
  Host* const self = this;
  const auto filter = [](const void* context, KivProxyConfig* candidate) -> int {
    return hostOf(context).keep(candidate);
  };
  const auto serverSource = [](const void* context, const wchar_t* url) { return hostOf(context).giveServerCred(url); };
  const auto proxySource = [](const void* context, KivProxyConfig* proxy) {
    return hostOf(context).giveProxyCred(proxy);
  };
  const auto test = [](const void*, const void* context) { return hostOf(context).test(); };
  const auto logger = [](const void* context) { return hostOf(context).logger_.get(); };
  return UniqueProxyConfig(KivProxyResolver_Resolve(
      target_.url.c_str(), options_.userAgent.c_str(), options_.bypass ? options_.bypass->c_str() : nullptr,
      options_.preferred.get(), options_.fallback.get(), &self, filter, &self, serverSource, &self, proxySource,
      client_.get(), test, setServerCred, setProxy, &self, logger));
}

KivCred* Host::proxyCred(const KivProxyConfig* proxy) const {
  if (options_.proxyCred) return KivCred_CopyConstruct(options_.proxyCred.get());
  if (!options_.prompt) return KivCred_None();
  return KivDialogAuthUi_ProxyAuthUi(textOf(proxy).c_str(), L"kiv-resolve", GetConsoleWindow());
}

KivCred* Host::serverCred(const wchar_t* url) const {
  if (options_.serverCred) return KivCred_CopyConstruct(options_.serverCred.get());
  if (target_.cred) return KivCred_CopyConstruct(target_.cred.get());
  if (!options_.prompt) return KivCred_None();
  return KivDialogAuthUi_ServerAuthUi(url, L"kiv-resolve", GetConsoleWindow());
}

KivCred* Host::giveProxyCred(const KivProxyConfig* proxy) {
  KivCred* const cred = proxyCred(proxy);
  resolution_.candidates.at(turn_).proxyCredGiven = !KivCred_IsNone(cred);
  return cred;
}

KivCred* Host::giveServerCred(const wchar_t* url) {
  KivCred* const cred = serverCred(url);
  resolution_.candidates.at(turn_).serverCredGiven = !KivCred_IsNone(cred);
  return cred;
}

// Every candidate is worth a try, unless no test is wanted at all.
bool Host::keep(const KivProxyConfig* candidate) {
  endDiscovery();
  resolution_.candidates.push_back({.text = presentable(textOf(candidate))});
  return options_.task == Task::Resolve;
}

int Host::test() {
  Candidate& candidate = resolution_.candidates.at(turn_);
  display_.testBegins(turn_, candidate);
  Request request{.began = sinceBegin()};
  underway_ = &request;
  request.status = options_.method == Method::Get ? KivHttpClient_Get(client_.get(), logger_.get())
                                                  : KivHttpClient_Head(client_.get(), logger_.get());
  underway_ = nullptr;
  request.duration = sinceBegin() - request.began;
  display_.underwayEnds();
  const int status = request.status;
  candidate.requests.push_back(std::move(request));
  return status;
}

void Host::onRecord(const KivLog* log) {
  const std::wstring_view message = KivLog_Message(log);
  Record record{std::chrono::system_clock::now(), levelOf(log), presentable(message)};
  learn(message);
  noteFailure(record, message);
  display_.record(record);
  if (trace_) trace_->write(traceLine(resolution_, record));
  resolution_.log.push_back(std::move(record));
}

void Host::learn(std::wstring_view message) {
  // The first line is written before the settings are asked, all others after that.
  if (!resolution_.log.empty()) endDiscovery();
  const Fact fact = factOf(message, target_.url);
  switch (fact.kind) {
    case FactKind::DiscoveryFailed:
      resolution_.discoveryFailed = true;
      break;
    case FactKind::BypassList:
      resolution_.bypass.list = presentable(fact.text);
      break;
    case FactKind::Bypassed:
      resolution_.bypass.matches = true;
      break;
    case FactKind::InvalidCandidate:
      resolution_.candidates.at(fact.number).invalid = true;
      break;
    case FactKind::Turn:
      turn_ = fact.number;
      break;
    case FactKind::Other:
      break;
  }
}

// The last complaint during a request is why it failed, if it did.
void Host::noteFailure(const Record& record, std::wstring_view message) {
  if (!underway_ || record.level > Level::Warn) return;
  underway_->failure = record.message;
  underway_->error = errorCodeOf(message);
}

void Host::endDiscovery() {
  if (!discovering_) return;
  discovering_ = false;
  resolution_.discoveryDuration = sinceBegin();
  display_.underwayEnds();
}

// The library puts the preferred candidate in front of the system's and the fallback behind them.
void Host::assignOrigins() {
  auto& candidates = resolution_.candidates;
  if (candidates.empty()) return;
  if (options_.fallback) candidates.back().origin = Origin::Fallback;
  if (options_.preferred) candidates.front().origin = Origin::Preferred;
}

Outcome Host::outcomeOf(const KivProxyConfig* config) const {
  if (!config) return {OutcomeKind::NotCarriedOut, L"NONE"};
  if (KivProxyConfig_IsDirect(config)) return {OutcomeKind::Direct, textOf(config)};
  if (!KivProxyConfig_IsNone(config)) return {OutcomeKind::Proxy, textOf(config)};
  return options_.task == Task::Resolve ? Outcome{OutcomeKind::None, L"NONE"} : Outcome{OutcomeKind::NotTested, {}};
}

}  // namespace kiv::tool
