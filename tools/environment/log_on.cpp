// Which programs can log on to a proxy that answers 407, and how.
#include "environment/log_on.h"

#include <algorithm>
#include <iterator>

#include "common/ascii.h"

namespace kiv::tool {
namespace {

using std::wstring_view;

struct Scheme {
  wstring_view name;  // in lower case
  LogOn logOn;
  wstring_view curlOptions;
  wstring_view who;
};

constexpr Scheme kSchemes[] = {
    {L"basic", LogOn::Basic, L"-U USER --proxy-basic",
     L"most programs, with user name and password (kiv-resolve exec --with-password passes them)"},
    {L"digest", LogOn::Digest, L"-U USER --proxy-digest",
     L"curl.exe -U USER --proxy-digest, which asks for the password; not npm, pip or Go programs"},
    {L"ntlm", LogOn::Ntlm, L"-U : --proxy-ntlm",
     L"curl.exe -U : --proxy-ntlm, and git with an empty user name; not npm, pip or Go programs"},
    {L"negotiate", LogOn::Negotiate, L"-U : --proxy-negotiate",
     L"curl.exe -U : --proxy-negotiate, and git with an empty user name; not npm, pip or Go programs"},
};

const Scheme* schemeNamed(wstring_view name) {
  const auto* const found = std::ranges::find_if(
      kSchemes, [&](const Scheme& s) { return std::ranges::equal(s.name, name, {}, {}, asciiLower<wchar_t>); });
  return found == std::end(kSchemes) ? nullptr : found;
}

std::wstring joined(const std::vector<std::wstring>& schemes) {
  std::wstring text;
  for (const std::wstring& scheme : schemes) text.append(text.empty() ? L"" : L", ").append(scheme);
  return text;
}

}  // namespace

LogOn bestLogOn(const std::vector<std::wstring>& schemes) {
  LogOn best = LogOn::None;
  for (const std::wstring& name : schemes) {
    if (const Scheme* const scheme = schemeNamed(name)) best = std::max(best, scheme->logOn);
  }
  return best;
}

wstring_view curlOptionsFor(LogOn logOn) {
  const auto* const found = std::ranges::find(kSchemes, logOn, &Scheme::logOn);
  return found == std::end(kSchemes) ? L"" : found->curlOptions;
}

bool logsOnAsUser(LogOn logOn) { return logOn == LogOn::Ntlm || logOn == LogOn::Negotiate; }

std::vector<std::wstring> logOnRemarks(const std::wstring& proxy, const std::vector<std::wstring>& schemes) {
  std::vector<std::wstring> remarks = {proxy + L" requires credentials (407), " +
                                       (schemes.empty() ? L"and names no scheme" : L"by " + joined(schemes))};
  for (const std::wstring& name : schemes) {
    const Scheme* const scheme = schemeNamed(name);
    remarks.push_back(L"who can log on by " + name + L": " +
                      std::wstring(scheme ? scheme->who : L"no program that kiv-resolve knows"));
  }
  return remarks;
}

}  // namespace kiv::tool
