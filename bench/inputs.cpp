// What is measured with.
#include "inputs.h"

namespace kiv::bench {

std::wstring wide(std::string_view text) { return {text.begin(), text.end()}; }

std::vector<std::string> bypassEntries(std::size_t count) {
  std::vector<std::string> entries = {"<local>"};
  for (std::size_t i = 1; i < count; ++i) {
    const std::string number = std::to_string(i);
    switch (i % 3) {
      case 0:
        entries.push_back("gate" + number + ".corp.example:8080");
        break;
      case 1:
        entries.push_back("*.zone" + number + ".example");
        break;
      default:
        entries.push_back("host" + number + ".corp.example");
    }
  }
  entries.resize(count);
  return entries;
}

std::wstring bypassText(std::size_t count) {
  std::string text;
  for (const std::string& entry : bypassEntries(count)) text += (text.empty() ? "" : ";") + entry;
  return wide(text);
}

}  // namespace kiv::bench
