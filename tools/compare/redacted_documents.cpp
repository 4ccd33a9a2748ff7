// Two documents without names, addresses and queries, for strangers. The same name is the same word in both.
#include "compare/redacted_documents.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "common/console.h"
#include "common/presentable.h"

namespace kiv::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view kConnection = "vpn:";

// Puts in the place of every text what `change` makes of it.
template <class Change>
void changeTexts(Json& json, const Change& change) {
  if (json.is_string()) {
    json = change(json.get_ref<const std::string&>());
  } else if (json.is_structured()) {
    for (Json& item : json) changeTexts(item, change);
  }
}

void replaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
}

// The names of VPN connections are their users' own texts, as those of accounts and computers are.
std::vector<std::string> connectionsIn(const Json& document) {
  std::vector<std::string> names;
  for (const Json& place : document.value("places", Json::array())) {
    const Json id = place.is_object() ? place.value("id", Json()) : Json();
    if (id.is_string() && id.get_ref<const std::string&>().starts_with(kConnection))
      names.push_back(id.get<std::string>().substr(kConnection.size()));
  }
  return names;
}

void learnMachine(Json& document, Redaction& redaction) {
  if (!document.contains("machine") || !document["machine"].is_object()) return;
  Json& machine = document["machine"];
  // It names the domain and the user.
  machine["sid"] = nullptr;
  const auto textOf = [&](const char* name) {
    const Json value = machine.value(name, Json());
    return value.is_string() ? toWide(value.get<std::string>()) : std::wstring();
  };
  const std::wstring computer = textOf("computer");
  redaction.learnHost(computer);
  redaction.learnHost(computer.substr(0, computer.find(L'.')));
  const std::wstring account = textOf("account");
  const std::size_t domain = account.find(L'\\');
  if (domain != std::wstring::npos) redaction.learnHost(account.substr(0, domain));
  redaction.learnUser(account.substr(domain + 1));
}

void numberConnections(Json& document, const std::vector<std::string>& names) {
  changeTexts(document, [&](std::string text) {
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string number = std::to_string(i + 1);
      replaceAll(text, std::string(kConnection) + names[i], std::string(kConnection) + number);
      replaceAll(text, "connection " + names[i], "connection " + number);
    }
    return text;
  });
}

}  // namespace

void redact(Json& left, Json& right, Redaction& redaction) {
  std::vector<std::string> connections = connectionsIn(left);
  for (std::string& name : connectionsIn(right)) {
    if (std::ranges::find(connections, name) == connections.end()) connections.push_back(std::move(name));
  }
  // A connection's number is no port.
  const auto redacted = [&](const std::string& text) {
    return text.starts_with(kConnection) ? text : toUtf8(redaction(presentable(toWide(text))));
  };
  for (Json* const document : {&left, &right}) {
    // Not compared, and the same in every document.
    document->erase("programs");
    learnMachine(*document, redaction);
    numberConnections(*document, connections);
  }
  // A name that only the end of a document shows to be one stands at its beginning too.
  for (Json document : {left, right}) changeTexts(document, redacted);
  for (Json* const document : {&left, &right}) changeTexts(*document, redacted);
}

}  // namespace kiv::tool
