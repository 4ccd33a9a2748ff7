// What to try next: what a resolution shows, what it means and what to do. docs/guide/troubleshooting.md has the same
// rows.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "resolve/resolution.h"

namespace kiv::tool {

// The headings of the page.
enum class Topic : std::uint8_t { Discovery, Requests, Authentication, Probe };

// Texts are Markdown, with nothing in it but code between backticks.
struct Advice {
  std::string_view id;
  Topic topic;
  std::wstring_view sign;
  std::wstring_view meaning;
  std::wstring_view advice;
  bool (*applies)(const Resolution& resolution);
};

// In the order of the page.
std::vector<const Advice*> adviceFor(const Resolution& resolution);

}  // namespace kiv::tool
