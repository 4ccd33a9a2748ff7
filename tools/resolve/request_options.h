// The options of every command that resolves: which URLs, with which candidates, credentials and requests.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/command_line.h"
#include "common/redaction.h"
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
  Value proxyCredFrom;
  Value serverCred;
  Value serverCredFrom;
  Value method;
  Value maxTime;
  Value attemptTime;
  bool ignoreCertErrors = false;
  bool prompt = false;
  bool redact = false;
};

struct RequestOptions {
  std::wstring userAgent;
  std::optional<std::wstring> bypass;  // replaces the user's bypass list, also when empty
  ProxyConfig preferred;               // none if not given
  ProxyConfig fallback;                // none if not given
  Credential proxyCred{};              // none if not given
  Credential serverCred{};             // none if not given
  Method method = Method::Head;
  bool ignoreCertErrors = false;
  bool prompt = false;
  std::optional<std::chrono::milliseconds> maxTime;      // for one URL
  std::optional<std::chrono::milliseconds> attemptTime;  // for one request
  std::shared_ptr<Redaction> redaction;                  // null if texts are shown with names
};

// How long a question may take that follows the resolution of a URL: `most`, --attempt-time, or what the time that was
// `spent` leaves of --max-time. Zero if nothing is left.
std::chrono::milliseconds timeLeft(const RequestOptions& options, std::chrono::milliseconds spent,
                                   std::chrono::milliseconds most);

std::string mustBeUrl(std::wstring_view text);
// Also "-", which stands for the URLs in standard input.
std::string mustBeUrlOrInput(std::wstring_view text);
std::string mustBeSeconds(std::wstring_view text);

constexpr std::wstring_view kFromInput = L"-";

// All but --redact, which does not suit every command that resolves.
void addRequestOptions(CommandLine& commandLine, WrittenRequest& written);
void addRedaction(CommandLine& commandLine, WrittenRequest& written);

// Nothing, after a complaint, if something is wrong with options together, or with what they name. Asks at the console
// for passwords that are to be typed.
std::optional<RequestOptions> readRequestOptions(const CommandLine& commandLine, const WrittenRequest& written);

// The URL, or those in standard input. Nothing, after a complaint, if something is wrong with these.
std::optional<std::vector<Target>> readTargets(const CommandLine& commandLine, std::wstring_view url);

}  // namespace kiv::tool
