// HTML without injection: text becomes markup only by being escaped.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace kiv::tool {

class Markup {
 public:
  Markup() = default;
  // Text, escaped.
  Markup(std::wstring_view text);
  Markup(const std::wstring& text) : Markup(std::wstring_view(text)) {}
  Markup(const wchar_t* text) : Markup(std::wstring_view(text)) {}

  Markup& operator+=(const Markup& other) {
    html_ += other.html_;
    return *this;
  }
  friend Markup operator+(Markup left, const Markup& right) { return left += right; }

  const std::string& html() const { return html_; }

 private:
  friend class Element;
  std::string html_;
};

using Attribute = std::pair<std::string_view, std::wstring>;
using Attributes = std::initializer_list<Attribute>;

// Names are the program's own; values and contents are escaped.
Markup element(std::string_view name, Attributes attributes, const Markup& content);
Markup element(std::string_view name, const Markup& content);
// An element of HTML that has no content and no end.
Markup emptyElement(std::string_view name, Attributes attributes);
// An element of HTML whose content is not escaped, of the program's own text.
Markup styleElement(std::string_view css);

}  // namespace kiv::tool
