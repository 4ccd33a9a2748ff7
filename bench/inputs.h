// What is measured with.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kiv::bench {

constexpr const char* kTarget = "http://www.target.example/";

std::wstring wide(std::string_view text);

// Suffixes, exact names, ports and <local>, none of which is the target's, so that each rule is looked at.
std::vector<std::string> bypassEntries(std::size_t count);
std::wstring bypassText(std::size_t count);

}  // namespace kiv::bench
