// The words for what probes found, which the JSON document and the reports share.
#pragma once

#include <windows.h>

#include <winhttp.h>

#include <array>
#include <string_view>

namespace kiv::tool {

struct Words {
  std::string_view id;  // for programs
  std::wstring_view text;
};

struct FlagWords {
  unsigned flag;
  Words words;
};

// In the order of the enumerators of PhaseKind.
inline constexpr std::array<Words, 6> kPhaseWords = {{
    {"name", L"name"},
    {"connection", L"connection"},
    {"tunnel", L"proxy tunnel"},
    {"tls", L"TLS"},
    {"sending", L"request sent"},
    {"first-byte", L"first byte"},
}};

// In the order of the enumerators of Root.
inline constexpr std::array<Words, 4> kRootWords = {{
    {"public", L"a public root"},
    {"installed", L"installed on this machine"},
    {"untrusted", L"not trusted on this machine"},
    {"missing", L"not known: the chain is not complete"},
}};

// What Windows finds wrong with a certificate, in the order of the documentation of WINHTTP_STATUS_CALLBACK.
inline constexpr FlagWords kProblemWords[] = {
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED, {"revocation-not-checked", L"its revocation could not be checked"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT, {"invalid", L"not valid"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED, {"revoked", L"revoked"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA, {"authority-not-trusted", L"the authority is not trusted"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID, {"other-host", L"for another host"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID, {"out-of-date", L"out of date"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE, {"wrong-usage", L"not for servers"}},
    {WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR, {"tls-failed", L"TLS itself failed"}},
};

inline constexpr FlagWords kSchemeWords[] = {
    {WINHTTP_AUTH_SCHEME_NEGOTIATE, {"negotiate", L"Negotiate"}}, {WINHTTP_AUTH_SCHEME_NTLM, {"ntlm", L"NTLM"}},
    {WINHTTP_AUTH_SCHEME_DIGEST, {"digest", L"Digest"}},          {WINHTTP_AUTH_SCHEME_BASIC, {"basic", L"Basic"}},
    {WINHTTP_AUTH_SCHEME_PASSPORT, {"passport", L"Passport"}},
};

template <std::size_t count, class Enumerator>
constexpr const Words& wordsOf(const std::array<Words, count>& table, Enumerator enumerator) {
  return table[static_cast<std::size_t>(enumerator)];
}

}  // namespace kiv::tool
