// An output file that keeps its first error until it is asked for.
#pragma once

#include <string>
#include <string_view>

#include "support/owners.h"

namespace kiv::tool {

class OutputFile {
 public:
  // Creates the file, or empties it.
  explicit OutputFile(std::wstring path);

  void write(std::string_view utf8);
  const std::wstring& path() const { return path_; }
  // What failed, for users, with the file's name; empty if nothing did.
  const std::wstring& problem() const { return problem_; }

 private:
  void fail();

  std::wstring path_;
  std::wstring problem_;
  support::Unique<HANDLE, support::CloseKernelHandle> handle_;
};

}  // namespace kiv::tool
