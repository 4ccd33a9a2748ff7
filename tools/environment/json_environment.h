// The JSON document of `kiv-resolve env --json`.
#pragma once

#include <string>
#include <vector>

#include "environment/finding.h"
#include "environment/lines.h"

namespace kiv::tool {

struct EnvironmentResult {
  Reader reader = Reader::Cmd;
  std::vector<Finding> findings;
  std::vector<Route> routes;  // of the findings without a problem
  std::vector<BypassEntry> exceptions;
  Lines lines;
  std::vector<std::wstring> remarks;
};

std::string jsonDocument(const EnvironmentResult& result);

}  // namespace kiv::tool
