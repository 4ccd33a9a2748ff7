// A file that is written, whose first failure is kept until somebody asks.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

namespace kiv::tool {

class OutputFile {
 public:
  // Creates the file, or empties it.
  explicit OutputFile(std::wstring path);

  void write(std::string_view utf8);
  // What went wrong, for people, with the file's name; empty if nothing did.
  const std::wstring& problem() const { return problem_; }

 private:
  struct Closer {
    void operator()(void* handle) const noexcept;
  };

  void fail();

  std::wstring path_;
  std::wstring problem_;
  std::unique_ptr<void, Closer> handle_;
};

}  // namespace kiv::tool
