// Reads the user's proxy settings. The library reads them too, but does not report them.
#pragma once

#include "resolve/resolution.h"

namespace kiv::tool {

UserSettings readUserSettings();

}  // namespace kiv::tool
