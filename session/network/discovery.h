// Reading the user's settings and running PAC scripts, which can block for as long as they like.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "discovery/proxy_list.h"
#include "loop/event_loop.h"
#include "routes/candidates.h"
#include "routes/origin.h"

namespace kiv::session {

struct Discovered {
  ListSource source = ListSource::Nothing;
  std::vector<impl::ProxyListEntry> entries;
  std::wstring bypassList;  // that was read, also by a discovery that is overdue
  bool failed = false;      // settings unreadable, or an error that stops discovery: kept for the failure time only
  bool overdue = false;     // entries were not found in time
};

class Discovery;

class DiscoveryListener {
 public:
  // In the loop, once, unless the discovery was abandoned before.
  virtual void discovered(Discovery& discovery, Discovered result) noexcept = 0;

 protected:
  ~DiscoveryListener() = default;
};

// One question for one origin. Handed out by Discoveries; all under the loop's lock.
class Discovery : public Job {
 public:
  // The listener hears nothing any more. A call of the system that is under way ends by itself, and touches nothing.
  virtual void abandon() noexcept = 0;
};

class DiscoveryQueue;

// At most four at a time, others wait for their turn; a local script runs alone in the process. One that is overdue and
// still hangs counts among the four, and while there is one, others have one second. All under the loop's lock.
class Discoveries {
 public:
  // `mayLogOn`: scripts' servers that ask for it may receive the logged-on user's credentials. Throws std::bad_alloc.
  Discoveries(EventLoop& loop, std::wstring userAgent, bool mayLogOn);
  Discoveries(const Discoveries&) = delete;
  Discoveries& operator=(const Discoveries&) = delete;
  // Those that are not finished are abandoned.
  ~Discoveries();

  // `timeOut` in ms from now, waiting for its turn included. Throws std::bad_alloc and SystemError.
  Ref<Discovery> begin(const Origin& origin, std::uint32_t timeOut, DiscoveryListener& listener);

  std::uint64_t begun() const noexcept { return begun_; }
  // That are overdue and have not ended yet.
  std::size_t overdue() const noexcept;

 private:
  Ref<DiscoveryQueue> queue_;
  std::uint64_t begun_ = 0;
};

}  // namespace kiv::session
