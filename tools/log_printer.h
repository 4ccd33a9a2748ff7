// Prints log records as they happen.
#pragma once

#include "handles.h"

namespace kiv::tool {

class LogPrinter {
 public:
  explicit LogPrinter(bool quiet);

  KivLogger* logger() const { return logger_.get(); }

 private:
  static void onRecord(void* context, const KivLog* log);

  bool quiet_;
  bool coloured_;
  UniqueLogger logger_;
};

}  // namespace kiv::tool
