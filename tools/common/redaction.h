// Takes names, addresses, queries and cookies out of texts, so that they can be shown to strangers.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace kiv::tool {

// The same name is always replaced by the same word: "host-1", "user-1", "address-1". Loopback is no secret.
class Redaction {
 public:
  // Names to replace wherever they stand as a word: in any case, percent-encoded, or in Base64. More names are learned
  // from texts: the hosts and users of URLs, names with dots, and names in front of a port.
  void learnHost(std::wstring_view host);
  void learnUser(std::wstring_view user);
  // With a word of its own, such as "this-computer".
  void learn(std::wstring_view name, const wchar_t* word);

  std::wstring operator()(std::wstring_view text);

  // What was replaced or removed so far, for users: "2 host names, 1 address, queries"; "nothing".
  std::wstring summary() const;

 private:
  enum class Kind : std::uint8_t { Host, User, Address };
  enum class Part : std::uint8_t { Queries, Cookies, Tokens };

  void learn(Kind kind, std::wstring_view name);
  void learnUrls(std::wstring_view text);
  void learnWords(std::wstring_view text);
  std::wstring withoutCookies(std::wstring_view text);
  std::wstring withoutQueries(std::wstring_view text);
  std::wstring withoutEncodedNames(std::wstring_view text);
  std::wstring withoutNames(std::wstring_view text) const;
  bool holdsName(std::wstring_view base64) const;

  std::map<std::wstring, std::wstring> words_;  // by the name in lower case
  std::array<std::size_t, 3> counts_{};         // of names, in the order of the kinds
  std::array<bool, 3> removed_{};               // in the order of the parts
};

}  // namespace kiv::tool
