// Calls of every function that the two DLLs export.
#pragma once

#include "checks/check.h"

namespace selfcheck {

Finding callKivExports(Ground& ground);
Finding callSessionExports(Ground& ground);

}  // namespace selfcheck
