// How URLs are reached, found for programs that do not ask kiv: the resolution, and what the proxy answers to them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/output_file.h"
#include "environment/no_proxy.h"
#include "environment/proxy_question.h"
#include "environment/variables.h"
#include "resolve/choices.h"
#include "resolve/request_options.h"
#include "resolve/resolution.h"

namespace kiv::tool {

struct Finding {
  Resolution resolution{};
  Route route{};
  Credential cred{};                    // for the proxy; none if none is known
  std::optional<ProxyAnswer> answer{};  // nothing if no proxy was asked
  std::wstring problem{};               // why programs cannot be told; empty if they can
};

// The URL with the other scheme, whose port is the scheme's own.
std::wstring withOtherScheme(std::wstring_view url);

struct Search {
  bool all = false;    // also the URL of the other scheme
  bool probe = false;  // for a report
  Detail detail = Detail::Nothing;
};

// Resolves the target, and asks the proxies. `trace` is null if none is wanted.
std::vector<Finding> findRoutes(const RequestOptions& options, const Target& target, const Search& search,
                                OutputFile* trace);

std::vector<Resolution> resolutionsOf(const std::vector<Finding>& findings);

// The bypass list of the resolution, for programs that read so much of it.
std::vector<BypassEntry> convertedExceptions(const std::vector<Finding>& findings, ExceptionsRead reads);

// Each entry that was changed or dropped, with the reason.
std::vector<std::wstring> remarksOn(const std::vector<BypassEntry>& entries);

// What users must know of a proxy's answer: who can log on. Empty if there is nothing to say.
std::vector<std::wstring> remarksOn(const Finding& finding);

}  // namespace kiv::tool
