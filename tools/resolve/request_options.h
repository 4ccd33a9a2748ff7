// The options of every command that resolves: which URLs, with which candidates, credentials and requests.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "common/command_line.h"
#include "kiv/kiv.hpp"
#include "resolve/targets.h"

namespace kiv::tool {

// The options as written.
struct WrittenRequest {
  Value userAgent;
  Value bypass;
  Value preferred;
  Value fallback;
  Value proxyCred;
  Value serverCred;
  Value method;
  bool ignoreCertErrors = false;
  bool prompt = false;
};

struct RequestOptions {
  std::wstring userAgent;
  std::optional<std::wstring> bypass;  // replaces the user's bypass list, also when empty
  ProxyConfig preferred;               // none if not given
  ProxyConfig fallback;                // none if not given
  Credential proxyCred;                // none if not given
  Credential serverCred;               // none if not given
  Method method = Method::Head;
  bool ignoreCertErrors = false;
  bool prompt = false;
};

std::string mustBeUrl(std::wstring_view text);
// Also "-", which stands for the URLs in standard input.
std::string mustBeUrlOrInput(std::wstring_view text);

constexpr std::wstring_view kFromInput = L"-";

void addRequestOptions(CommandLine& commandLine, WrittenRequest& written);
RequestOptions readRequestOptions(const WrittenRequest& written);

// The URL, or those in standard input; or what is wrong with these.
std::variant<std::vector<Target>, std::string> readTargets(std::wstring_view url);

}  // namespace kiv::tool
