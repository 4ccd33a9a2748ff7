// An output file that keeps its first error until it is asked for.
#include "common/output_file.h"

#include "common/system_text.h"

namespace kiv::tool {

OutputFile::OutputFile(std::wstring path) : path_(std::move(path)) {
  HANDLE handle = CreateFileW(path_.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    fail();
  } else {
    *handle_.put() = handle;
  }
}

void OutputFile::write(std::string_view utf8) {
  while (problem_.empty() && !utf8.empty()) {
    DWORD written = 0;
    if (!WriteFile(handle_.get(), utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr)) return fail();
    utf8.remove_prefix(written);
  }
}

void OutputFile::fail() { problem_ = L"cannot write " + path_ + L": " + systemText(GetLastError()); }

}  // namespace kiv::tool
