// Reading the user's settings and running PAC scripts, which can block for as long as they like.
#include "network/discovery.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <optional>
#include <utility>

#include "discovery/discovery_progress.h"
#include "discovery/system_proxy.h"
#include "loop/system_error.h"
#include "support/owners.h"

namespace kiv::session {
namespace {

constexpr std::size_t kMostAtOnce = 4;
constexpr Time kTimeWhileOneHangs = 1'000;  // ms

constinit Lock scriptEngine;

}  // namespace

// What the session and its discoveries share. Discoveries that hang outlive the session.
class DiscoveryQueue final : public RefCounted {
 public:
  class Item;

  DiscoveryQueue(EventLoop& loop, std::wstring userAgent, bool mayLogOn)
      : loop_(&loop), userAgent_(std::move(userAgent)), mayLogOn_(mayLogOn) {}

  EventLoop& loop() const noexcept { return *loop_; }
  const std::wstring& userAgent() const noexcept { return userAgent_; }
  bool mayLogOn() const noexcept { return mayLogOn_; }
  std::size_t hanging() const noexcept { return hanging_; }

  Ref<Item> add(const Origin& origin, std::uint32_t timeOut, DiscoveryListener& listener);
  void remove(const Item& item) noexcept;
  // A job that had begun has ended.
  void ended(const Item& item, bool hung) noexcept;
  void hangs(const Item& item) noexcept;
  void abandonAll() noexcept;

 private:
  ~DiscoveryQueue() override = default;

  void startNext() noexcept;

  Ref<EventLoop> loop_;
  std::wstring userAgent_;
  bool mayLogOn_;
  std::vector<Ref<Item>> items_;  // those that wait for their turn, and those that work and are not overdue
  std::size_t working_ = 0;
  std::size_t hanging_ = 0;  // among those that work
};

class DiscoveryQueue::Item final : public Discovery, private impl::DiscoveryProgress {
 public:
  Item(DiscoveryQueue& queue, const Origin& origin, DiscoveryListener& listener)
      : queue_(&queue), url_(origin.url()), listener_(&listener), deadline_(queue.loop(), *this) {}

  void abandon() noexcept override;
  bool start() noexcept;
  bool isWaiting() const noexcept { return state_ == State::Waiting; }
  void setDeadline(Time when) noexcept { deadline_.set(std::min(when, deadline_.when())); }

 private:
  enum class State : std::uint8_t { Waiting, Working, Ended };

  ~Item() override = default;

  void work() noexcept override;
  void discover();
  void run() noexcept override;
  void overdue() noexcept;
  void tell(Discovered result) noexcept;
  Discovered result() noexcept;
  std::wstring bypassListRead() noexcept;

  void settingsRead(const std::wstring& bypassList) override;
  bool isWanted() noexcept override { return wanted_; }
  bool mayLogOn() noexcept override { return queue_->mayLogOn(); }
  void enterScriptEngine() noexcept override { engineGuard_.emplace(scriptEngine); }
  void leaveScriptEngine() noexcept override { engineGuard_.reset(); }
  void scriptAnswered(bool namesProxies) noexcept override { scriptAnswer_ = namesProxies; }

  Ref<DiscoveryQueue> queue_;
  std::wstring url_;
  DiscoveryListener* listener_;
  DeadlineOf<Item, &Item::overdue> deadline_;
  State state_ = State::Waiting;
  bool hangs_ = false;

  std::atomic<bool> wanted_{true};
  Lock progressLock_;
  std::wstring bypassListRead_;  // guarded by it

  // The thread that discovers writes these; they are read when it has ended.
  std::optional<LockGuard> engineGuard_;
  std::optional<bool> scriptAnswer_;  // whether it named proxies
  bool succeeded_ = false;
  std::vector<impl::ProxyListEntry> entries_;
  std::wstring bypassList_;
};

Ref<DiscoveryQueue::Item> DiscoveryQueue::add(const Origin& origin, std::uint32_t timeOut,
                                              DiscoveryListener& listener) {
  auto item = makeRef<Item>(*this, origin, listener);
  items_.push_back(item);
  startNext();
  if (item->isWaiting() && working_ == 0) {
    remove(*item);
    throw SystemError{ERROR_NOT_ENOUGH_MEMORY};
  }
  const Time time = hanging_ > 0 ? std::min<Time>(timeOut, kTimeWhileOneHangs) : timeOut;
  item->setDeadline(EventLoop::now() + time);
  return item;
}

void DiscoveryQueue::remove(const Item& item) noexcept {
  std::erase_if(items_, [&](const Ref<Item>& other) { return other.get() == &item; });
}

void DiscoveryQueue::ended(const Item& item, bool hung) noexcept {
  remove(item);
  --working_;
  if (hung) --hanging_;
  startNext();
}

void DiscoveryQueue::hangs(const Item& item) noexcept {
  remove(item);
  ++hanging_;
  for (const Ref<Item>& other : items_) other->setDeadline(EventLoop::now() + kTimeWhileOneHangs);
}

void DiscoveryQueue::abandonAll() noexcept {
  const std::vector<Ref<Item>> items = std::exchange(items_, {});
  for (const Ref<Item>& item : items) item->abandon();
}

// One that gets no thread waits on, until another has ended or its time is over.
void DiscoveryQueue::startNext() noexcept {
  while (working_ < kMostAtOnce) {
    const auto next = std::ranges::find_if(items_, [](const Ref<Item>& item) { return item->isWaiting(); });
    if (next == items_.end() || !(*next)->start()) return;
    ++working_;
  }
}

bool DiscoveryQueue::Item::start() noexcept {
  if (!queue_->loop().start(*this)) return false;
  state_ = State::Working;
  return true;
}

// One that works keeps its deadline: if it hangs, others have less time.
void DiscoveryQueue::Item::abandon() noexcept {
  const Ref<Item> alive(this);
  listener_ = nullptr;
  wanted_ = false;
  if (state_ != State::Waiting) return;
  state_ = State::Ended;
  deadline_.clear();
  queue_->remove(*this);
}

void DiscoveryQueue::Item::work() noexcept {
  try {
    discover();
  } catch (const std::bad_alloc&) {
    succeeded_ = false;
  }
}

// A script that says "no proxy" means the direct connection, whatever the manual list says.
void DiscoveryQueue::Item::discover() {
  if (!wanted_) return;
  const support::UniqueInternet session(WinHttpOpen(queue_->userAgent().c_str(), WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                                                    WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  succeeded_ = session && impl::lorvResolveProxy(session.get(), url_, entries_, bypassList_, this);
  if (scriptAnswer_ == false) entries_.assign(1, {});
}

void DiscoveryQueue::Item::settingsRead(const std::wstring& bypassList) {
  std::wstring copy = bypassList;
  const LockGuard guard(progressLock_);
  bypassListRead_.swap(copy);
}

void DiscoveryQueue::Item::run() noexcept {
  state_ = State::Ended;
  deadline_.clear();
  queue_->ended(*this, hangs_);
  if (listener_) tell(result());
}

void DiscoveryQueue::Item::overdue() noexcept {
  const Ref<Item> alive(this);
  wanted_ = false;
  if (state_ == State::Working) {
    hangs_ = true;
    queue_->hangs(*this);
  } else {
    state_ = State::Ended;
    queue_->remove(*this);
  }
  if (!listener_) return;
  Discovered result;
  result.bypassList = bypassListRead();
  result.overdue = true;
  tell(std::move(result));
}

void DiscoveryQueue::Item::tell(Discovered result) noexcept {
  std::exchange(listener_, nullptr)->discovered(*this, std::move(result));
}

Discovered DiscoveryQueue::Item::result() noexcept {
  Discovered result;
  result.failed = !succeeded_;
  result.bypassList = succeeded_ ? std::move(bypassList_) : bypassListRead();
  if (!succeeded_) return result;
  result.entries = std::move(entries_);
  if (!result.entries.empty()) result.source = scriptAnswer_ ? ListSource::Script : ListSource::Manual;
  return result;
}

std::wstring DiscoveryQueue::Item::bypassListRead() noexcept {
  const LockGuard guard(progressLock_);
  return std::move(bypassListRead_);
}

Discoveries::Discoveries(EventLoop& loop, std::wstring userAgent, bool mayLogOn)
    : queue_(makeRef<DiscoveryQueue>(loop, std::move(userAgent), mayLogOn)) {}

Discoveries::~Discoveries() { queue_->abandonAll(); }

Ref<Discovery> Discoveries::begin(const Origin& origin, std::uint32_t timeOut, DiscoveryListener& listener) {
  Ref<Discovery> discovery = queue_->add(origin, timeOut, listener);
  ++begun_;
  return discovery;
}

std::size_t Discoveries::overdue() const noexcept { return queue_->hanging(); }

}  // namespace kiv::session
