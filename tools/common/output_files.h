// The files that --trace and --report name.
#pragma once

#include <optional>

#include "common/command_line.h"
#include "common/output_file.h"

namespace kiv::tool {

// Creates the files, so that a wrong file name is reported before the first resolution.
class OutputFiles {
 public:
  OutputFiles(Value trace, Value report);

  // Null if none is wanted.
  OutputFile* trace() { return trace_ ? &*trace_ : nullptr; }
  OutputFile* report() { return report_ ? &*report_ : nullptr; }

  // Whether all files could be written; complains if not.
  bool check() const;

 private:
  std::optional<OutputFile> trace_;
  std::optional<OutputFile> report_;
};

}  // namespace kiv::tool
