// Ctrl-C, Ctrl-Break and a closed window, as an event.
#pragma once

#include "support/owners.h"

namespace kiv::tool {

// While it lives, these end the program by its own steps. There is one such object at a time.
class Interruption {
 public:
  Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;
  ~Interruption();

  // Stays set.
  HANDLE event() const;
};

}  // namespace kiv::tool
