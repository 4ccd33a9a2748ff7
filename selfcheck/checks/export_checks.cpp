// The group "Exports": does every function of the two DLLs answer?
#include "checks/export_checks.h"

#include "checks/checks.h"

namespace selfcheck {
namespace {

constexpr Check kChecks[] = {
    {"exports-of-kiv", "Does every function of kiv.dll answer as documented?", callKivExports},
    {"exports-of-kiv-session", "Does every function of kiv-session.dll answer as documented?", callSessionExports},
};

}  // namespace

Group exportChecks() { return {"Exports", kChecks}; }

}  // namespace selfcheck
