// All checks, in the order in which they run and are shown.
#pragma once

#include <vector>

#include "checks/check.h"

namespace selfcheck {

// Each is a file of this folder.
Group onlyWindowsChecks();
Group exportChecks();
Group candidateChecks();
Group sessionChecks();
Group resourceChecks();
Group requestFacts();
Group systemFacts();

std::vector<Group> allChecks();

}  // namespace selfcheck
