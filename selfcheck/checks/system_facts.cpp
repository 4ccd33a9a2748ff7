// The group "What the system does": facts about the functions that kiv calls, apart from requests, that documentation
// leaves open.
#include <windows.h>
// After windows.h, whose types they use.
#include <objbase.h>
#include <wincred.h>

#include <array>
#include <cwctype>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "checks/checks.h"
#include "checks/script_file.h"
#include "common/console.h"
#include "discovery/local_script.h"
#include "discovery/proxy_list.h"
#include "ground/ground.h"
#include "ground/listeners.h"
#include "loop/system_error.h"
#include "support/owners.h"

namespace selfcheck {
namespace {

using kiv::impl::ProxyListEntry;
using kiv::support::UniqueGlobalText;
using kiv::support::UniqueInternet;
using kiv::tool::toUtf8;

std::string errorText(DWORD error) { return std::string("error ").append(std::to_string(error)); }
std::string quoted(std::wstring_view text) { return std::string("\"").append(toUtf8(text)).append("\""); }

void append(std::string& text, const std::string& sentence) { text.append(text.empty() ? "" : " ").append(sentence); }

// ---- The script engine

constexpr std::string_view kScript =
    "function FindProxyForURL(url, host) { return 'PROXY first.test:1; PROXY second.test:2'; }\n";

std::string countText(std::size_t proxies) {
  return proxies == 1 ? std::string("1 proxy") : std::to_string(proxies) + " proxies";
}

std::string runFile(const std::wstring& path) {
  std::vector<ProxyListEntry> proxies;
  if (!kiv::impl::EvaluateLocalPacScript(L"file://" + path, kTarget, L"target.test", proxies)) return "no answer";
  return countText(proxies.size());
}

std::string runThroughWinHttp(const std::wstring& url) {
  const UniqueInternet session(
      WinHttpOpen(L"kiv-selfcheck", WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
  WINHTTP_AUTOPROXY_OPTIONS options{};
  options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
  options.lpszAutoConfigUrl = url.c_str();
  WINHTTP_PROXY_INFO info{};
  if (!WinHttpGetProxyForUrl(session.get(), kTarget, &options, &info)) return errorText(GetLastError());
  const UniqueGlobalText<wchar_t> list(info.lpszProxy);
  const UniqueGlobalText<wchar_t> bypass(info.lpszProxyBypass);
  std::vector<ProxyListEntry> proxies;
  if (list) kiv::impl::ParseWinHttpProxyList(list.get(), proxies);
  return countText(proxies.size());
}

class Apartment {
 public:
  explicit Apartment(DWORD model) : entered_(SUCCEEDED(CoInitializeEx(nullptr, model))) {}
  Apartment(const Apartment&) = delete;
  Apartment& operator=(const Apartment&) = delete;
  ~Apartment() {
    if (entered_) CoUninitialize();
  }

 private:
  bool entered_;
};

void onItsOwnThread(std::function<void()> body) { const Thread thread(std::move(body)); }

Finding factOfApartments(Ground& ground) {
  const ScriptFile file(kScript);
  std::string text;
  const auto run = [&](const std::string& where) {
    append(text, where + ": " + runFile(file.path()) + " from the file, " +
                     runThroughWinHttp(ground.scriptUrl(std::string(kScript))) + " through WinHTTP.");
  };
  onItsOwnThread([&] { run("Without an apartment"); });
  onItsOwnThread([&] {
    const Apartment apartment(COINIT_APARTMENTTHREADED);
    run("In a single-threaded one");
  });
  onItsOwnThread([&] {
    const Apartment apartment(COINIT_MULTITHREADED);
    run("In the multithreaded one");
  });
  return {Verdict::Fact, text};
}

// ---- Credentials from a prompt

// CRED_PACK_GENERIC_CREDENTIALS, which MinGW's headers lack.
constexpr DWORD kGenericCredentials = 0x4;

// What a prompt would give for made-up credentials; empty if the system packs none.
std::vector<BYTE> packed(DWORD flags) {
  std::wstring user = L"domain\\user";
  std::wstring password = L"password";
  DWORD size = 0;
  // Asked for the size alone, the call fails with just this error. Wine has no such function, and calls that a success.
  if (CredPackAuthenticationBufferW(flags, user.data(), password.data(), nullptr, &size) ||
      GetLastError() != ERROR_INSUFFICIENT_BUFFER) {
    return {};
  }
  std::vector<BYTE> block(size);
  if (!CredPackAuthenticationBufferW(flags, user.data(), password.data(), block.data(), &size)) return {};
  return block;
}

std::string unpackedText(std::vector<BYTE> block) {
  std::array<wchar_t, 64> user{};
  std::array<wchar_t, 64> password{};
  DWORD userSize = user.size();
  DWORD domainSize = user.size();
  DWORD passwordSize = password.size();
  if (!CredUnPackAuthenticationBufferW(CRED_PACK_PROTECTED_CREDENTIALS, block.data(), static_cast<DWORD>(block.size()),
                                       user.data(), &userSize, nullptr, &domainSize, password.data(), &passwordSize)) {
    return errorText(GetLastError());
  }
  return "the user is " + quoted(user.data());
}

Finding factOfUnpacking(Ground& /*ground*/) {
  struct Packing {
    const char* name;
    DWORD flags;
  };
  constexpr Packing kPackings[] = {{"Packed as generic credentials", kGenericCredentials},
                                   {"Packed as protected credentials", CRED_PACK_PROTECTED_CREDENTIALS}};
  std::string text;
  for (const auto& [name, flags] : kPackings) {
    const std::vector<BYTE> block = packed(flags);
    append(text, std::string(name) + ": " + (block.empty() ? "the system packs none" : unpackedText(block)) + ".");
  }
  return {Verdict::Fact, text};
}

// ---- Texts

Finding factOfAsciiNames(Ground& /*ground*/) {
  constexpr const wchar_t* kNames[] = {L"a..b", L".a", L"a.", L"a b", L" a", L"a ", L"\u00E4..b"};
  std::string text;
  for (const wchar_t* const name : kNames) {
    std::array<wchar_t, 256> ascii{};
    const bool made = IdnToAscii(0, name, -1, ascii.data(), static_cast<int>(ascii.size())) != 0;
    append(text, quoted(name) + ": " + (made ? quoted(ascii.data()) : errorText(GetLastError())) + ".");
  }
  return {Verdict::Fact, text};
}

Finding factOfBlanks(Ground& /*ground*/) {
  struct Blank {
    const char* name;
    wchar_t character;
  };
  constexpr Blank kBlanks[] = {{"U+0085", 0x0085}, {"U+00A0", 0x00A0}, {"U+2028", 0x2028}, {"U+3000", 0x3000}};
  std::string text;
  for (const auto& [name, character] : kBlanks) {
    WORD type = 0;
    const bool known = GetStringTypeW(CT_CTYPE1, &character, 1, &type) != FALSE;
    const bool bySystem = known && (type & C1_SPACE) != 0;
    const bool byLibrary = std::iswspace(character) != 0;
    append(text, std::string(name) + ": " + (bySystem ? "space" : "no space") + " to the system, " +
                     (byLibrary ? "space" : "no space") + " to the C library.");
  }
  return {Verdict::Fact, text};
}

constexpr Check kChecks[] = {
    {"fact-apartments", "Does the script engine work in every kind of COM apartment?", factOfApartments},
    {"fact-unpacking-without-domain", "Can a prompt's answer be unpacked without a buffer for the domain?",
     factOfUnpacking},
    {"fact-ascii-names", "What is the ASCII form of odd host names?", factOfAsciiNames},
    {"fact-blanks", "Which characters are white space?", factOfBlanks},
};

}  // namespace

Group systemFacts() { return {"What the system does", kChecks}; }

}  // namespace selfcheck
