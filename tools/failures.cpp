// What it means, in a few words, that a test request failed.
#include "failures.h"

namespace kiv::tool {
namespace {

struct ErrorMeaning {
  unsigned error;
  std::wstring_view meaning;
};

// The system's error codes that a test request meets, its sockets' included.
constexpr ErrorMeaning kErrors[] = {
    {10054, L"connection reset"},
    {10060, L"timed out"},
    {10061, L"cannot connect"},
    {12002, L"timed out"},
    {12005, L"not a URL"},
    {12007, L"name not known"},
    {12015, L"login failed"},
    {12017, L"cancelled"},
    {12029, L"cannot connect"},
    {12030, L"connection broken off"},
    {12037, L"certificate out of date"},
    {12038, L"certificate of another name"},
    {12044, L"client certificate wanted"},
    {12045, L"certificate of an unknown authority"},
    {12152, L"answer is not HTTP"},
    {12156, L"redirect failed"},
    {12157, L"no secure channel"},
    {12169, L"certificate not valid"},
    {12170, L"certificate revoked"},
    {12175, L"certificate or TLS refused"},
};

struct LineMeaning {
  std::wstring_view beginning;
  std::wstring_view meaning;
};

// The library's lines about failures that have no error code.
constexpr LineMeaning kLines[] = {
    {L"No supported schemes for the proxy authentication.", L"proxy offers no usable authentication"},
    {L"No supported schemes for the server authentication.", L"server offers no usable authentication"},
    {L"ERROR_WINHTTP_RESEND_REQUEST occured too many times.", L"asks to send again for ever"},
};

}  // namespace

std::wstring_view meaningOf(const Request& request) {
  for (const auto& [error, meaning] : kErrors) {
    if (request.error == error) return meaning;
  }
  for (const auto& [beginning, meaning] : kLines) {
    if (request.failure.starts_with(beginning)) return meaning;
  }
  return {};
}

}  // namespace kiv::tool
