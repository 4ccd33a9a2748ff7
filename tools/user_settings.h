// Reads the user's proxy settings, which the library reads as well but tells nobody.
#pragma once

#include "resolution.h"

namespace kiv::tool {

UserSettings readUserSettings();

}  // namespace kiv::tool
