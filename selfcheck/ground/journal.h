// What the servers of the ground were asked, for whoever wants to know or to wait for it.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "ground/ground.h"
#include "loop/lock.h"

namespace selfcheck {

class Journal {
 public:
  // To be called before the answer is sent: a client that has it finds the request here.
  void add(Server server, Asked asked);
  std::vector<Asked> of(Server server) const;
  bool waitFor(Server server, std::size_t times) const;
  void clear();

 private:
  std::vector<Asked> selected(Server server) const;

  mutable kiv::session::Lock lock_;
  mutable kiv::session::Condition grown_;
  std::vector<std::pair<Server, Asked>> entries_;
};

}  // namespace selfcheck
