// Families of hostile texts, of any size: what a network or a user could make the library read, and how the time that
// it takes may grow. For a test that asserts the growth, and for a benchmark that prints it.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "discovery/bypass_rules.h"
#include "discovery/local_script.h"
#include "discovery/proxy_list.h"
#include "discovery/wildcard.h"
#include "http/client_description.h"
#include "kiv/cred.h"
#include "kiv/proxy_config.h"
#include "platform/simulated_windows.h"

namespace kiv::test {

enum class Growth { Linear, Square };

struct HostileFamily {
  const char* name;
  Growth growth;
  // Makes the input of a size, in characters, and returns what reads it.
  std::function<std::function<void()>(std::size_t size)> prepare;
};

inline std::wstring repeated(std::wstring_view piece, std::size_t size) {
  std::wstring text;
  text.reserve(size + piece.size());
  while (text.size() < size) text += piece;
  return text;
}

// Proxy addresses, by the C function: the piece, repeated, between what stands before and after it.
inline HostileFamily hostileAddress(const char* name, std::wstring before, std::wstring piece, std::wstring after) {
  return {name, Growth::Linear, [=](std::size_t size) {
            return [text = before + repeated(piece, size) + after] {
              const SimulatedWindows windows;
              KivProxyConfig_Destruct(KivProxyConfig_Parse(text.c_str(), nullptr));
            };
          }};
}

inline HostileFamily hostileScriptAnswer(const char* name, std::wstring piece) {
  return {name, Growth::Linear, [=](std::size_t size) {
            const std::wstring wide = repeated(piece, size);
            return [answer = std::string(wide.begin(), wide.end())] {
              SimulatedWindows windows;
              windows.scriptEngine.answer = answer;
              std::vector<impl::ProxyListEntry> entries;
              impl::EvaluateLocalPacScript(L"file://p.pac", L"http://h", L"h", entries);
            };
          }};
}

inline HostileFamily hostileProxyList(const char* name, std::wstring piece) {
  return {name, Growth::Linear, [=](std::size_t size) {
            return [list = repeated(piece, size)] {
              std::vector<impl::ProxyListEntry> entries;
              static_cast<void>(impl::ParseWinHttpProxyList(list, entries));
            };
          }};
}

// Bypass lists, against a host as long as one can be.
inline HostileFamily hostileBypassList(const char* name, std::wstring piece) {
  return {
      name, Growth::Linear, [=](std::size_t size) {
        return [list = repeated(piece, size)] {
          impl::ParsedAddress target;
          target.host = std::wstring(254, L'a');
          target.kind = impl::AddressScheme::Http;
          for (const impl::BypassRule& rule : impl::BuildBypassRules(list)) {
            const auto* pattern = std::get_if<impl::BypassPatternRule>(&rule);
            static_cast<void>(pattern ? impl::MatchesBypassPattern(*pattern, target) : impl::IsPlainHostName(target));
          }
        };
      }};
}

// A pattern and a text, each of which may depend on the size.
inline HostileFamily hostilePattern(const char* name, Growth growth, std::wstring (*pattern)(std::size_t size)) {
  return {name, growth, [=](std::size_t size) {
            return [rule = pattern(size), text = std::wstring(size, L'a')] {
              static_cast<void>(impl::WildcardToRegex(rule).matches(text));
            };
          }};
}

inline std::function<void()> writingOfAddress(std::size_t size) {
  const std::wstring text(size / 3, L'x');
  const std::shared_ptr<KivCred> cred(KivCred_Create(text.c_str(), text.c_str()), KivCred_Destruct);
  const std::shared_ptr<KivProxyConfig> config(KivProxyConfig_Http(text.c_str(), 1, cred.get()),
                                               KivProxyConfig_Destruct);
  return [config] {
    const SimulatedWindows windows;
    int calls = 0;
    KivProxyConfig_ToString(config.get(), 1, 1, &calls,
                            [](void* context, const wchar_t*) { ++*static_cast<int*>(context); });
  };
}

inline std::function<void()> descriptionOfClient(std::size_t size) {
  return [text = std::wstring(size / 2, L'"')] {
    impl::ClientSettings client;
    client.server.emplace();
    client.server->path = text;
    client.userAgent = text;
    static_cast<void>(impl::describe(client));
  };
}

// To be made while a SimulatedWindows exists, and used while it does.
inline std::vector<HostileFamily> hostileFamilies() {
  return {
      hostileAddress("AddressOfBlanks", L"", L" ", L""),
      hostileAddress("AddressBehindBlanks", L"", L" ", L"h:1"),
      hostileAddress("AddressOfOneWord", L"", L"h", L""),
      hostileAddress("AddressOfManyLabels", L"", L"a.", L"b:80"),
      hostileAddress("AddressOfIdeographs", L"", L"\x4E2D", L".example"),
      hostileAddress("AddressOfDroppedCharacters", L"h", L"\xAD", L".example"),
      hostileAddress("AddressOfManySchemes", L"", L"s://", L"h"),
      hostileAddress("AddressOfManyUsers", L"", L"u:p@", L"h"),
      hostileAddress("AddressOfManyPorts", L"h", L":1", L""),
      hostileAddress("AddressWithLongScheme", L"", L"s", L"://h"),
      hostileAddress("AddressWithLongUser", L"", L"u", L":p@h"),
      hostileAddress("AddressWithLongPassword", L"u:", L"p", L"@h"),
      hostileAddress("AddressWithManyZeros", L"h:", L"0", L"80"),
      hostileAddress("AddressWithHugePort", L"h:", L"9", L""),
      hostileAddress("AddressWithBlanksAndMore", L"h:80", L" ", L"x"),
      hostileAddress("AddressWithLongPath", L"h/", L"p", L""),
      hostileAddress("AddressWithManySlashes", L"h", L"/", L":"),
      hostileAddress("AddressWithLongQuery", L"h/?", L"q", L"/"),
      {"WritingOfAddress", Growth::Linear, writingOfAddress},
      {"DescriptionOfClient", Growth::Linear, descriptionOfClient},
      hostileScriptAnswer("ScriptAnswerOfProxies", L"PROXY p:1;"),
      hostileScriptAnswer("ScriptAnswerOfDirects", L"DIRECT;"),
      hostileScriptAnswer("ScriptAnswerOfSemicolons", L";"),
      hostileScriptAnswer("ScriptAnswerOfBlanks", L" "),
      hostileScriptAnswer("ScriptAnswerOfOneWord", L"p"),
      hostileScriptAnswer("ScriptAnswerOfWords", L"p "),
      hostileScriptAnswer("ScriptAnswerOfBytesThatAreNoText", L"\xFF"),
      hostileProxyList("ProxyListOfProxies", L"http=s://p:1;"),
      hostileProxyList("ProxyListOfHosts", L"p "),
      hostileProxyList("ProxyListOfSemicolons", L";"),
      hostileProxyList("ProxyListOfEqualSigns", L"="),
      hostileProxyList("ProxyListOfSchemeEnds", L"://"),
      hostileProxyList("ProxyListOfOneWord", L"p"),
      hostileProxyList("ProxyListOfDigits", L"9"),
      hostileBypassList("BypassListOfHosts", L"a;"),
      hostileBypassList("BypassListOfStars", L"*;"),
      hostileBypassList("BypassListOfRulesThatNearlyMatch", L"*a*a*a*ab;"),
      hostileBypassList("BypassListOfSchemesAndPorts", L"http*://*aaaa:80;"),
      hostileBypassList("BypassListOfLocals", L"<local>;"),
      hostileBypassList("BypassListOfSemicolons", L";"),
      hostileBypassList("BypassListOfBlankEntries", L" ;"),
      hostileBypassList("BypassListOfNoRules", L"[::1];"),
      hostileBypassList("BypassListOfOneLongRule", L"*a"),
      hostileBypassList("BypassListOfOneLongWord", L"a"),
      hostilePattern("HostAgainstManyStars", Growth::Linear, [](std::size_t) { return repeated(L"*a", 64) + L"b"; }),
      hostilePattern("HostAgainstLongEnd", Growth::Linear,
                     [](std::size_t) { return L"*" + std::wstring(64, L'a') + L"b"; }),
      hostilePattern("HostAndRuleOfStars", Growth::Square,
                     [](std::size_t size) { return repeated(L"*a", size) + L"b"; }),
      hostilePattern("HostAndRuleOfLetters", Growth::Square,
                     [](std::size_t size) { return L"*" + std::wstring(size / 2, L'a') + L"b"; }),
  };
}

}  // namespace kiv::test
