// The files that --trace and --report name.
#include "common/output_files.h"

#include "common/exits.h"

namespace kiv::tool {

OutputFiles::OutputFiles(Value trace, Value report) {
  if (trace) trace_.emplace(std::wstring(*trace));
  if (report) report_.emplace(std::wstring(*report));
}

bool OutputFiles::check() const {
  bool good = true;
  for (const auto* const file : {&trace_, &report_}) {
    if (!*file || (*file)->problem().empty()) continue;
    complain((*file)->problem());
    good = false;
  }
  return good;
}

}  // namespace kiv::tool
