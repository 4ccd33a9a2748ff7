// All checks, in the order in which they run and are shown.
#include "checks/checks.h"

namespace selfcheck {

std::vector<Group> allChecks() {
  return {
      onlyWindowsChecks(), exportChecks(), candidateChecks(), sessionChecks(),
      resourceChecks(),    requestFacts(), systemFacts(),
  };
}

}  // namespace selfcheck
