// What the parts that watch tell the one that decides what is a change.
#pragma once

#include <cstdint>

namespace kiv::session {

enum class ChangeSource : std::uint8_t { Settings, Addresses, Resume };

class ChangeSink {
 public:
  // In the loop: something of this kind may have changed, or, for Resume, the computer has woken up.
  virtual void heardOf(ChangeSource source) noexcept = 0;
  // In the loop: what was read differs from what was read before.
  virtual void foundDifference() noexcept = 0;

 protected:
  ~ChangeSink() = default;
};

}  // namespace kiv::session
