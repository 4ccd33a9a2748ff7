// One run of the library's resolution, with its own client and dialogs, and a record of every step.
#include "resolve/resolution_run.h"

#include <chrono>
#include <memory>
#include <mutex>
#include <string>

#include "common/presentable.h"
#include "common/time_limits.h"
#include "resolve/bypass_entry.h"
#include "resolve/json_document.h"
#include "resolve/log_facts.h"
#include "resolve/test_client.h"
#include "resolve/user_settings.h"

namespace kiv::tool {
namespace {

// Thrown out of the library's callbacks when the time for the whole is up.
struct Stopped {};

class ResolutionRun {
 public:
  ResolutionRun(const RequestOptions& options, Task task, const Target& target, Display& display, OutputFile* trace);

  void begin();
  // The library's part. Ends early, in the next callback, after `end`.
  void run(const kiv::Request& request);
  // `self` keeps this object for as long as the library has the request, which may be longer than anybody waits.
  static kiv::Request requestOf(const std::shared_ptr<ResolutionRun>& self);
  Resolution end(bool stopped);

 private:
  // The library's callbacks. Those about one candidate come after a line of the log that has its number.
  void onRecord(const LogRecord& logged);
  bool keep(const ProxyConfig& candidate);
  int test();
  Credential giveProxyCred(const ProxyConfig& proxy);
  Credential giveServerCred(std::wstring_view url);

  // Owns what the callbacks change, unless the time is up.
  std::unique_lock<std::mutex> locked();
  std::wstring shown(std::wstring_view text) const;
  Credential proxyCred(const ProxyConfig& proxy) const;
  Credential serverCred(std::wstring_view url) const;
  void learn(std::wstring_view message);
  void noteFailure(const Record& record, std::wstring_view message);
  void endDiscovery();
  void assignOrigins();
  Outcome outcomeOf() const;
  milliseconds sinceBegin() const;

  const RequestOptions options_;
  const Task task_;
  const Target target_;
  Display& display_;
  OutputFile* trace_;
  Logger logger_;
  TestClient client_;
  std::chrono::steady_clock::time_point began_;

  std::mutex mutex_;
  bool stopped_ = false;
  std::optional<ProxyConfig> found_;  // nothing if the resolution did not complete
  Resolution resolution_;
  std::wstring bypassList_;
  std::size_t current_ = 0;  // the candidate that is being tested
  bool discovering_ = false;
  Request* underway_ = nullptr;
};

ResolutionRun::ResolutionRun(const RequestOptions& options, Task task, const Target& target, Display& display,
                             OutputFile* trace)
    : options_(options),
      task_(task),
      target_(target),
      display_(display),
      trace_(trace),
      logger_([this](const LogRecord& logged) { onRecord(logged); }),
      client_(target.url, options.userAgent, options.ignoreCertErrors, options.attemptTime),
      began_(std::chrono::steady_clock::now()) {
  if (options.redaction) {
    options.redaction->learnUser(options.proxyCred.username());
    options.redaction->learnUser(options.serverCred.username());
    options.redaction->learnUser(target.cred.username());
  }
  resolution_.url = shown(target.url);
  resolution_.began = std::chrono::system_clock::now();
  resolution_.bypass.given = options.bypass.has_value();
}

milliseconds ResolutionRun::sinceBegin() const {
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - began_);
}

std::wstring ResolutionRun::shown(std::wstring_view text) const {
  return options_.redaction ? (*options_.redaction)(presentable(text)) : presentable(text);
}

std::unique_lock<std::mutex> ResolutionRun::locked() {
  std::unique_lock lock(mutex_);
  if (stopped_) throw Stopped();
  return lock;
}

void ResolutionRun::begin() {
  resolution_.settings = readUserSettings();
  for (std::wstring* const text :
       {&resolution_.settings.scriptUrl, &resolution_.settings.manualList, &resolution_.settings.bypassList}) {
    *text = shown(*text);
  }
  discovering_ = true;
  display_.discoveryBegins(resolution_);
}

kiv::Request ResolutionRun::requestOf(const std::shared_ptr<ResolutionRun>& self) {
  kiv::Request request;
  request.url = self->target_.url;
  request.user_agent = self->options_.userAgent;
  request.bypass_list = self->options_.bypass;
  request.preferred = self->options_.preferred;
  request.fallback = self->options_.fallback;
  request.filter = [self](const ProxyConfig& candidate) { return self->keep(candidate); };
  request.server_cred = [self](std::wstring_view url) { return self->giveServerCred(url); };
  request.proxy_cred = [self](const ProxyConfig& proxy) { return self->giveProxyCred(proxy); };
  request.test = [self] { return self->test(); };
  request.set_server_cred = [self](Credential cred) { self->client_.setServerCred(std::move(cred)); };
  request.set_proxy = [self](const ProxyConfig& proxy) { self->client_.setProxy(proxy); };
  request.logger = self->logger_;
  return request;
}

void ResolutionRun::run(const kiv::Request& request) {
  try {
    ProxyConfig found = kiv::resolve(request);
    const auto lock = locked();
    found_ = std::move(found);
  } catch (const ResolutionError&) {  // it did not complete
  } catch (const Stopped&) {          // nobody waits for it
  }
}

Resolution ResolutionRun::end(bool stopped) {
  const std::lock_guard lock(mutex_);
  stopped_ = stopped;
  if (stopped && discovering_) resolution_.discoveryFailed = true;
  endDiscovery();
  display_.underwayEnds();
  if (underway_) {
    underway_->duration = sinceBegin() - underway_->began;
    underway_->failure = L"Stopped (--max-time)";
    resolution_.candidates.at(current_).requests.push_back(*underway_);
  }
  resolution_.outcome = outcomeOf();
  if (found_) resolution_.found = *found_;
  resolution_.duration = sinceBegin();
  assignOrigins();
  display_.finished(resolution_);
  return std::move(resolution_);
}

Credential ResolutionRun::proxyCred(const ProxyConfig& proxy) const {
  if (!options_.proxyCred.is_none() || !options_.prompt) return options_.proxyCred;
  return ProxyAuthDialog{L"kiv-resolve", windowOfConsole()}(proxy);
}

Credential ResolutionRun::serverCred(std::wstring_view url) const {
  if (!options_.serverCred.is_none()) return options_.serverCred;
  if (!target_.cred.is_none() || !options_.prompt) return target_.cred;
  return ServerAuthDialog{L"kiv-resolve", windowOfConsole()}(url);
}

Credential ResolutionRun::giveProxyCred(const ProxyConfig& proxy) {
  Credential cred = proxyCred(proxy);
  const auto lock = locked();
  resolution_.candidates.at(current_).proxyCredGiven = !cred.is_none();
  return cred;
}

Credential ResolutionRun::giveServerCred(std::wstring_view url) {
  Credential cred = serverCred(url);
  const auto lock = locked();
  resolution_.candidates.at(current_).serverCredGiven = !cred.is_none();
  return cred;
}

// Every candidate is tested, unless the task is to test none.
bool ResolutionRun::keep(const ProxyConfig& candidate) {
  const auto lock = locked();
  endDiscovery();
  resolution_.candidates.push_back({.text = shown(candidate.display_string()), .route = candidate});
  return task_ == Task::Resolve;
}

int ResolutionRun::test() {
  Request request;
  {
    const auto lock = locked();
    request.began = sinceBegin();
    underway_ = &request;
    display_.testBegins(current_, resolution_.candidates.at(current_));
  }
  const auto status = client_.send(options_.method, [this](const LogRecord& logged) { onRecord(logged); });
  const auto lock = locked();
  underway_ = nullptr;
  request.status = status.value_or(-1);
  request.duration = sinceBegin() - request.began;
  if (!status) request.failure = L"Stopped (--attempt-time)";
  display_.underwayEnds();
  resolution_.candidates.at(current_).requests.push_back(std::move(request));
  return status.value_or(-1);
}

void ResolutionRun::onRecord(const LogRecord& logged) {
  const auto lock = locked();
  const std::wstring_view message = logged.message();
  Record record{std::chrono::system_clock::now(), logged.level(), shown(message)};
  learn(message);
  noteFailure(record, message);
  display_.record(record);
  if (trace_) trace_->write(traceLine(resolution_, record));
  resolution_.log.push_back(std::move(record));
}

void ResolutionRun::learn(std::wstring_view message) {
  // The first line is written before discovery, all others after it.
  if (!resolution_.log.empty()) endDiscovery();
  const LogFact fact = factOf(message, target_.url);
  switch (fact.kind) {
    case FactKind::DiscoveryFailed:
      resolution_.discoveryFailed = true;
      break;
    case FactKind::BypassList:
      bypassList_ = presentable(fact.text);
      resolution_.bypass.list = shown(fact.text);
      break;
    case FactKind::Bypassed:
      resolution_.bypass.matches = true;
      resolution_.bypass.entry = shown(matchingEntry(bypassList_, presentable(target_.url)));
      break;
    case FactKind::InvalidCandidate:
      resolution_.candidates.at(fact.number).invalid = true;
      break;
    case FactKind::Attempt:
      current_ = fact.number;
      break;
    case FactKind::Other:
      break;
  }
}

// The last warning or error during a request is why it failed, if it did.
void ResolutionRun::noteFailure(const Record& record, std::wstring_view message) {
  if (!underway_ || record.level > LogLevel::Warn) return;
  underway_->failure = record.message;
  underway_->error = errorCodeOf(message);
}

void ResolutionRun::endDiscovery() {
  if (!discovering_) return;
  discovering_ = false;
  resolution_.discoveryDuration = sinceBegin();
  display_.underwayEnds();
}

// The library puts the preferred candidate before the system's and the fallback after them.
void ResolutionRun::assignOrigins() {
  auto& candidates = resolution_.candidates;
  if (candidates.empty()) return;
  if (!options_.fallback.is_none()) candidates.back().origin = Origin::Fallback;
  if (!options_.preferred.is_none()) candidates.front().origin = Origin::Preferred;
}

Outcome ResolutionRun::outcomeOf() const {
  if (stopped_) return {OutcomeKind::Stopped, L"NONE"};
  if (!found_) return {OutcomeKind::NotCarriedOut, L"NONE"};
  if (found_->is_none() && task_ != Task::Resolve) return {OutcomeKind::NotTested, {}};
  const OutcomeKind kind = found_->is_none()     ? OutcomeKind::None
                           : found_->is_direct() ? OutcomeKind::Direct
                                                 : OutcomeKind::Proxy;
  return {kind, shown(found_->display_string())};
}

}  // namespace

Resolution resolve(const RequestOptions& options, Task task, const Target& target, Display& display,
                   OutputFile* trace) {
  const auto run = std::make_shared<ResolutionRun>(options, task, target, display, trace);
  run->begin();
  const kiv::Request request = ResolutionRun::requestOf(run);
  const bool ended = TimeLimits(options.maxTime, {}).within(false, [run, request] {
    run->run(request);
    return true;
  });
  return run->end(!ended);
}

}  // namespace kiv::tool
