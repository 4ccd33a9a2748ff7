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

// Registers for the system's notifications, which loads libraries and so must not happen under the loop's lock.
class Registering final : public Job {
 public:
  Registering(Comparison<Addresses>& addresses, void* settingsContext, void* addressesContext, void* resumeContext)
      : addresses_(&addresses),
        settingsContext_(settingsContext),
        addressesContext_(addressesContext),
        resumeContext_(resumeContext) {}

  // Ends the notifications; if the job is still at work, when it is done.
  void stop() noexcept {
    stopped_ = true;
    if (finished_) notifications_.reset();
  }

 private:
  ~Registering() override = default;

  void work() noexcept override { notifications_.emplace(settingsContext_, addressesContext_, resumeContext_); }
  void run() noexcept override {
    finished_ = true;
    if (stopped_) return notifications_.reset();
    addresses_->read();
  }

  Ref<Comparison<Addresses>> addresses_;
  void* settingsContext_;
  void* addressesContext_;
  void* resumeContext_;
  std::optional<SystemNotifications> notifications_;
  bool finished_ = false;
  bool stopped_ = false;
};

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
        registering_(
            makeRef<Registering>(*addresses_, notices_[0]->context(), notices_[1]->context(), notices_[2]->context())) {
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
    registering_->stop();
  }

 private:
  ~Watcher() override = default;

  // Once, first of all: the keys are those of the session's user. What is heard of before the snapshots are there
  // counts.
  void run() noexcept override {
    if (stopped_) return;
    for (const Ref<RegistryWatch>& key : keys_) {
      if (key) key->start();
    }
    settings_->read();
    static_cast<void>(loop_.start(*registering_));  // without a thread for it, the settings are all that is watched
  }

  void heardOf(ChangeSource source) noexcept override {
    switch (source) {
      case ChangeSource::Settings:
        settings_->suspect();
        return settings_->read();
      case ChangeSource::Addresses:
        addresses_->suspect();
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
  Ref<Registering> registering_;
  std::array<Ref<RegistryWatch>, kPlaces.size()> keys_;
  bool stopped_ = false;
};

}  // namespace

Ref<Changes> Changes::start(EventLoop& loop, ChangesListener& listener) {
  Ref<Watcher> watcher = makeRef<Watcher>(loop, listener);
  loop.post(*watcher);
  return watcher;
}

}  // namespace kiv::session
