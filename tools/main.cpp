// kiv-resolve: finds how the current user gets out to a URL, with kiv.dll, and shows why.
#include <windows.h>

#include <string>
#include <variant>
#include <vector>

#include "console.h"
#include "host.h"
#include "options.h"

namespace {

using namespace kiv::tool;

constexpr int kFound = 0;
constexpr int kNoneFound = 2;

std::wstring outcomeText(const KivProxyConfig* outcome) {
  if (KivProxyConfig_IsNone(outcome)) return L"NONE";
  if (KivProxyConfig_IsDirect(outcome)) return L"DIRECT";
  std::wstring text;
  KivProxyConfig_ToString(outcome, 1, 0, &text,
                          [](void* context, const wchar_t* shown) { *static_cast<std::wstring*>(context) = shown; });
  return text;
}

int resolve(const Options& options) {
  const UniqueProxyConfig outcome = Host(options).resolve();
  if (!outcome) print(Stream::Error, L"kiv-resolve: the resolution could not be carried out\n");
  print(Stream::Output, outcomeText(outcome.get()) + L"\n");
  return KivProxyConfig_IsNone(outcome.get()) ? kNoneFound : kFound;
}

}  // namespace

int wmain(int count, wchar_t** arguments) {
  std::vector<std::string> texts;
  for (int i = 1; i < count; ++i) texts.push_back(toUtf8(arguments[i]));
  const auto parsed = parseCommandLine(std::move(texts));
  if (const auto* const exit = std::get_if<Exit>(&parsed)) {
    print(exit->code == 0 ? Stream::Output : Stream::Error, toWide(exit->text));
    return exit->code;
  }
  return resolve(std::get<Options>(parsed));
}
