// HTML without injection: text becomes markup only by being escaped.
#include "common/markup.h"

#include "common/console.h"

namespace kiv::tool {
namespace {

std::string escaped(std::wstring_view text) {
  std::string html;
  for (const char c : toUtf8(text)) {
    switch (c) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += c;
    }
  }
  return html;
}

}  // namespace

Markup::Markup(std::wstring_view text) : html_(escaped(text)) {}

// The only creator of markup that is not escaped text.
class Element {
 public:
  Element(std::string_view name, Attributes attributes) : name_(name) {
    made_.html_ = "<" + name_;
    for (const auto& [key, value] : attributes) {
      (((made_.html_ += ' ') += key) += "=\"" + escaped(value)) += '"';
    }
    made_.html_ += '>';
  }

  Markup around(std::string_view html) && {
    made_.html_ += html;
    made_.html_ += "</" + name_ + ">";
    return std::move(made_);
  }
  Markup alone() && { return std::move(made_); }

 private:
  std::string name_;
  Markup made_;
};

Markup element(std::string_view name, Attributes attributes, const Markup& content) {
  return Element(name, attributes).around(content.html());
}
Markup element(std::string_view name, const Markup& content) { return element(name, {}, content); }
Markup emptyElement(std::string_view name, Attributes attributes) { return Element(name, attributes).alone(); }
Markup styleElement(std::string_view css) { return Element("style", {}).around(css); }

}  // namespace kiv::tool
