// A PAC script in a file, for the engine that runs local scripts.
#pragma once

#include <string>
#include <string_view>

namespace selfcheck {

// In the folder for temporary files; deleted with the object.
class ScriptFile {
 public:
  // Throws kiv::session::SystemError.
  explicit ScriptFile(std::string_view script);
  ScriptFile(const ScriptFile&) = delete;
  ScriptFile& operator=(const ScriptFile&) = delete;
  ~ScriptFile();

  const std::wstring& path() const { return path_; }

 private:
  std::wstring path_;
};

}  // namespace selfcheck
