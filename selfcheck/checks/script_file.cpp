// A PAC script in a file, for the engine that runs local scripts.
#include "checks/script_file.h"

#include <array>

#include "loop/system_error.h"
#include "support/owners.h"

namespace selfcheck {
namespace {

using kiv::session::throwLastError;

// Makes the file, empty, with a name that no other file has.
std::wstring newFile() {
  std::array<wchar_t, MAX_PATH + 1> folder{};
  if (GetTempPathW(MAX_PATH, folder.data()) == 0) throwLastError();
  std::array<wchar_t, MAX_PATH> path{};
  if (GetTempFileNameW(folder.data(), L"kiv", 0, path.data()) == 0) throwLastError();
  return path.data();
}

void write(const std::wstring& path, std::string_view text) {
  const HANDLE opened = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (opened == INVALID_HANDLE_VALUE) throwLastError();
  const kiv::support::UniqueEvent file(opened);
  DWORD written = 0;
  if (!WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) throwLastError();
}

}  // namespace

ScriptFile::ScriptFile(std::string_view script) : path_(newFile()) { write(path_, script); }

ScriptFile::~ScriptFile() { DeleteFileW(path_.c_str()); }

}  // namespace selfcheck
