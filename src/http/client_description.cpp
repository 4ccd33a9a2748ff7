// The line that tells, in the log, what a request is about to use.
#include "http/client_description.h"

namespace kiv::impl {
namespace {

// People search their logs for these two masks, which have always differed.
constexpr const wchar_t* kServerMask = L"\", \"password\": \"****\"}";
constexpr const wchar_t* kProxyMask = L"\", password: \"*****\"}";

std::wstring credentials(const Cred& cred, const wchar_t* mask) {
  return L", \"Credentials\": {\"username\": \"" + cred.username() + mask;
}

}  // namespace

std::wstring describe(const ClientSettings& client) {
  std::wstring text = L"{\"Server\": {\"URL\": \"" + urlText(*client.server) + L"\"";
  if (client.serverCred) text += credentials(*client.serverCred, kServerMask);
  text += L"}";
  if (client.proxy.isValid()) {
    text += L", \"Proxy\": {\"Address\": \"";
    client.proxy.appendTo(text);
    text += L"\"";
    if (client.proxy.cred()) text += credentials(*client.proxy.cred(), kProxyMask);
    text += L"}";
  }
  return text + L", \"User Agent\": \"" + client.userAgent + L"\"}";
}

}  // namespace kiv::impl
