// Local scripts: any answer of the engine, of any length that it may claim, is read. First byte: the claim.
#include "discovery/local_script.h"
#include "fuzz/fuzz_input.h"
#include "platform/simulated_windows.h"

using namespace kiv;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  test::SimulatedWindows windows;
  const std::string answer = fuzz::Input(data + 1, size - 1).rest();
  windows.scriptEngine.answer = answer;
  switch (data[0] % 4) {
    case 0:
      break;  // what it is
    case 1:
      windows.scriptEngine.reportedLength = answer.size() + 1;
      break;  // with the terminator
    case 2:
      windows.scriptEngine.reportedLength = 0xFFFFFFFF;
      break;  // up to the terminator
    default:
      windows.scriptEngine.reportedLength = answer.size() / 2;
      break;  // cut short
  }
  std::vector<impl::ProxyListEntry> entries;
  fuzz::require(impl::EvaluateLocalPacScript(L"file://C:/p.pac", L"http://target/", L"target", entries),
                "an engine that answers is believed");
  fuzz::require(windows.complaints().empty(), "everything is released once");
  return 0;
}
