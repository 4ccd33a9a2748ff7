// Reads a file with a JSON document.
#include "compare/document_file.h"

#include <windows.h>

#include <cstring>

#include "common/console.h"
#include "common/system_text.h"
#include "support/owners.h"

namespace kiv::tool {
namespace {

// No result is as long as this.
constexpr LONGLONG kLongest = 64 << 20;

}  // namespace

std::variant<std::string, DocumentProblem> readDocumentFile(const std::wstring& path) {
  const auto problem = [&](const std::wstring& why) { return DocumentProblem{L"cannot read " + path + L": " + why}; };
  HANDLE handle =
      CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return problem(systemText(GetLastError()));
  const support::Unique<HANDLE, support::CloseKernelHandle> file(handle);
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(file.get(), &size)) return problem(systemText(GetLastError()));
  if (size.QuadPart > kLongest) return problem(L"it is too long");
  std::string bytes(static_cast<std::size_t>(size.QuadPart), '\0');
  DWORD read = 0;
  if (!ReadFile(file.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr))
    return problem(systemText(GetLastError()));
  bytes.resize(read);
  return utf8Of(bytes);
}

std::string utf8Of(std::string_view bytes) {
  constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
  constexpr std::string_view kUtf16Mark = "\xFF\xFE";
  if (bytes.starts_with(kUtf8Mark)) return std::string(bytes.substr(kUtf8Mark.size()));
  if (!bytes.starts_with(kUtf16Mark)) return std::string(bytes);
  bytes.remove_prefix(kUtf16Mark.size());
  std::wstring text(bytes.size() / sizeof(wchar_t), L'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(wchar_t));
  return toUtf8(text);
}

}  // namespace kiv::tool
