// What the session tells the application.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "core/challenge.h"
#include "core/filtering.h"
#include "kiv/session.h"
#include "routes/decision.h"
#include "support/border.h"

namespace kiv::session {

// A kind that the application never sees: its filter is asked.
inline constexpr std::uint32_t kFilterEvent = 0;

struct EventContents {
  std::uint32_t kind = KIV_EVENT_CLOSED;
  std::uint64_t tag = 0;
  std::uint32_t status = 0;
  KivDoneFunction done = nullptr;  // of a request that has one
  Ref<Decision> decision = {};
  ChallengeHandle challenge = {};
  std::wstring text = {};
  Ref<Filtering> filtering = {};
};

class Event final : public RefCounted {
 public:
  explicit Event(EventContents contents) : contents_(std::move(contents)) {}

  const EventContents& contents() const noexcept { return contents_; }
  // Before it is sent: what an event was made for has come.
  void ask(ChallengeHandle challenge) noexcept { contents_.challenge = std::move(challenge); }
  void complete(KivStatus status, Ref<Decision> decision) noexcept {
    contents_.status = status;
    contents_.decision = std::move(decision);
  }

 private:
  friend class EventList;

  ~Event() override = default;

  EventContents contents_;
  Event* next_ = nullptr;
};

// Events in order, each with the reference that the list has to it. Nothing of it can fail.
class EventList {
 public:
  EventList() = default;
  EventList(EventList&& other) noexcept
      : first_(std::exchange(other.first_, nullptr)), last_(std::exchange(other.last_, nullptr)) {}
  EventList(const EventList&) = delete;
  EventList& operator=(const EventList&) = delete;
  EventList& operator=(EventList&&) = delete;
  ~EventList() {
    while (takeFirst()) continue;
  }

  bool empty() const noexcept { return first_ == nullptr; }
  void append(Ref<Event> event) noexcept {
    Event* const added = event.detach();
    added->next_ = nullptr;
    (last_ ? last_->next_ : first_) = added;
    last_ = added;
  }
  Ref<Event> takeFirst() noexcept {
    Event* const taken = first_;
    if (!taken) return {};
    first_ = taken->next_;
    if (!first_) last_ = nullptr;
    return Ref<Event>::adopt(taken);
  }

 private:
  Event* first_ = nullptr;
  Event* last_ = nullptr;
};

}  // namespace kiv::session

template <>
struct kiv::support::ObjectOf<KivEvent> {
  using Type = kiv::session::Event;
};
