// Notices that the user's settings or the network have changed.
#include "changes/changes.h"

#include <algorithm>
#include <array>
#include <optional>

#include "changes/comparison.h"
#include "changes/notice.h"
#include "changes/registry_watch.h"
#include "changes/snapshots.h"
#include "changes/system_notifications.h"
#include "support/border.h"

namespace kiv::session {
namespace {

constexpr Time kQuiet = 1'500;
constexpr Time kLongestUnrest = 5'000;

#define KIV_INTERNET_SETTINGS L"Microsoft\\Windows\\CurrentVersion\\Internet Settings"
constexpr std::array<RegistryPlace, 3> kPlaces{{
    {RegistryRoot::User, L"Software\\" KIV_INTERNET_SETTINGS, nullptr},
    {RegistryRoot::Machine, L"SOFTWARE\\" KIV_INTERNET_SETTINGS, nullptr},
    {RegistryRoot::Machine, L"SOFTWARE\\Policies\\" KIV_INTERNET_SETTINGS, L"SOFTWARE\\Policies"},
}};
#undef KIV_INTERNET_SETTINGS

class Watcher final : public Changes, public ChangeSink {
 public:
  Watcher(EventLoop& loop, ChangesListener& listener)
      : loop_(loop),
        listener_(listener),
        quiet_(loop, *this),
        settings_(makeRef<Comparison<ProxySettings>>(loop, *this)),
        addresses_(makeRef<Comparison<Addresses>>(loop, *this)),
        notices_{makeRef<Notice>(loop, *this, ChangeSource::Settings),
                 makeRef<Notice>(loop, *this, ChangeSource::Addresses),
                 makeRef<Notice>(loop, *this, ChangeSource::Resume)},
        beginning_(makeRef<Beginning>(*this)) {
    std::ranges::transform(kPlaces, keys_.begin(),
                           [&](const RegistryPlace& place) { return RegistryWatch::create(loop, place, *this); });
  }

  void stop() noexcept override {
    if (std::exchange(stopped_, true)) return;
    quiet_.clear();
    settings_->stop();
    addresses_->stop();
    for (const Ref<Notice>& notice : notices_) notice->stop();
    for (const Ref<RegistryWatch>& key : keys_) {
      if (key) key->stop();
    }
    beginning_->stop();
  }

 private:
  ~Watcher() override = default;

  // Reads first, then registers for notifications, then reads again: so no change is lost that comes after the first
  // reading. Loads libraries, which must not happen under the loop's lock.
  class Beginning final : public Job {
   public:
    explicit Beginning(Watcher& watcher)
        : watcher_(watcher),
          contexts_{watcher.notices_[0]->context(), watcher.notices_[1]->context(), watcher.notices_[2]->context()} {}

    // Ends the notifications; if the job is still at work, when it is done.
    void stop() noexcept {
      stopped_ = true;
      if (finished_) notifications_.reset();
    }

   private:
    ~Beginning() override = default;

    void work() noexcept override {
      support::guarded([this] {
        settings_ = ProxySettings::read();
        addresses_ = Addresses::read();
      });
      notifications_.emplace(contexts_[0], contexts_[1], contexts_[2]);
    }
    void run() noexcept override {
      finished_ = true;
      if (stopped_) return notifications_.reset();
      watcher_.begin(std::move(settings_), std::move(addresses_));
    }

    Watcher& watcher_;  // unless it was stopped
    std::array<void*, 3> contexts_;
    std::optional<ProxySettings> settings_;
    std::optional<Addresses> addresses_;
    std::optional<SystemNotifications> notifications_;
    bool finished_ = false;
    bool stopped_ = false;
  };

  // Once, first of all. Without a thread for it nothing is noticed.
  void run() noexcept override {
    if (!stopped_) static_cast<void>(loop_.start(*beginning_));
  }

  void begin(std::optional<ProxySettings> settings, std::optional<Addresses> addresses) noexcept {
    begun_ = true;
    for (const Ref<RegistryWatch>& key : keys_) {
      if (key) key->start();
    }
    settings_->beginWith(std::move(settings));
    addresses_->beginWith(std::move(addresses));
  }

  void heardOf(ChangeSource source) noexcept override {
    if (!begun_) return;  // what has changed is read then
    switch (source) {
      case ChangeSource::Settings:
        return settings_->read();
      case ChangeSource::Addresses:
        return awaitQuiet();
      case ChangeSource::Resume:
        settings_->renew();
        addresses_->renew();
        return foundDifference();
    }
  }

  void foundDifference() noexcept override { listener_.changed(); }

  // A network that comes up changes its addresses several times.
  void awaitQuiet() noexcept {
    const Time now = EventLoop::now();
    if (!quiet_.isSet()) unrestEnds_ = now + kLongestUnrest;
    quiet_.set(std::min(now + kQuiet, unrestEnds_));
  }

  void isQuiet() noexcept { addresses_->read(); }

  EventLoop& loop_;
  ChangesListener& listener_;
  DeadlineOf<Watcher, &Watcher::isQuiet> quiet_;
  Time unrestEnds_ = 0;
  Ref<Comparison<ProxySettings>> settings_;
  Ref<Comparison<Addresses>> addresses_;
  std::array<Ref<Notice>, 3> notices_;
  Ref<Beginning> beginning_;
  std::array<Ref<RegistryWatch>, kPlaces.size()> keys_;
  bool begun_ = false;
  bool stopped_ = false;
};

}  // namespace

Ref<Changes> Changes::start(EventLoop& loop, ChangesListener& listener) {
  Ref<Watcher> watcher = makeRef<Watcher>(loop, listener);
  loop.post(*watcher);
  return watcher;
}

}  // namespace kiv::session
