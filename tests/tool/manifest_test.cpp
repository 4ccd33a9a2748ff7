// What the manifest embedded in kiv-resolve.exe tells Windows.
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

namespace kiv::tool {
namespace {

// The manifest of the program beside the tests, as Windows reads it.
class Manifest : public testing::Test {
 protected:
  Manifest() {
    ACTCTXW source{};
    source.cbSize = sizeof(source);
    source.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
    source.lpSource = L"kiv-resolve.exe";
    source.lpResourceName = MAKEINTRESOURCEW(1);
    context_ = CreateActCtxW(&source);
  }
  ~Manifest() override {
    if (context_ != INVALID_HANDLE_VALUE) ReleaseActCtx(context_);
  }
  Manifest(const Manifest&) = delete;
  Manifest& operator=(const Manifest&) = delete;

  void SetUp() override { ASSERT_NE(context_, INVALID_HANDLE_VALUE) << "error " << GetLastError(); }

  std::vector<char> information(ULONG kind) const {
    SIZE_T size = 0;
    QueryActCtxW(0, context_, nullptr, kind, nullptr, 0, &size);
    std::vector<char> buffer(size);
    if (size == 0 || !QueryActCtxW(0, context_, nullptr, kind, buffer.data(), size, &size)) return {};
    return buffer;
  }

  HANDLE context_ = INVALID_HANDLE_VALUE;
};

TEST_F(Manifest, AsksForTheCallersRights) {
  struct RunLevel {
    DWORD flags;
    DWORD level;
    DWORD uiAccess;
  };
  constexpr DWORD kAsInvoker = 1;
  const std::vector<char> buffer = information(RunlevelInformationInActivationContext);
  ASSERT_GE(buffer.size(), sizeof(RunLevel));
  const auto* const runLevel = reinterpret_cast<const RunLevel*>(buffer.data());
  EXPECT_EQ(runLevel->level, kAsInvoker);
  EXPECT_EQ(runLevel->uiAccess, 0u);
}

TEST_F(Manifest, NamesWindows10) {
  constexpr GUID kWindows10 = {0x8e0f7a12, 0xbfb3, 0x4fe8, {0xb9, 0xa5, 0x48, 0xfd, 0x50, 0xa1, 0x5a, 0x9a}};
  constexpr ULONG kCompatibilityInformation = 6;
  // The elements before the identifier depend on the version of Windows.
  const std::vector<char> buffer = information(kCompatibilityInformation);
  const auto* const wanted = reinterpret_cast<const char*>(&kWindows10);
  EXPECT_NE(std::search(buffer.begin(), buffer.end(), wanted, wanted + sizeof(GUID)), buffer.end());
}

TEST_F(Manifest, AllowsLongPathsAndLeavesTheCodePageAlone) {
  using Query = BOOL(WINAPI*)(DWORD, HANDLE, PCWSTR, PCWSTR, PWSTR, SIZE_T, SIZE_T*);
  const auto query = reinterpret_cast<Query>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "QueryActCtxSettingsW")));
  ASSERT_NE(query, nullptr);
  const auto setting = [&](const wchar_t* space, const wchar_t* name) {
    wchar_t value[32] = {};
    SIZE_T size = 0;
    return query(0, context_, space, name, value, 32, &size) ? std::wstring(value) : std::wstring(L"not set");
  };
  EXPECT_EQ(setting(L"http://schemas.microsoft.com/SMI/2016/WindowsSettings", L"longPathAware"), L"true");
  EXPECT_EQ(setting(L"http://schemas.microsoft.com/SMI/2019/WindowsSettings", L"activeCodePage"), L"not set");
}

}  // namespace
}  // namespace kiv::tool
