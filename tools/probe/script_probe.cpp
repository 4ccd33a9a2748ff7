// The PAC script, fetched once more: what it is, not what it says.
#include "probe/script_probe.h"

#include <array>

#include "common/presentable.h"
#include "probe/exchange.h"
#include "probe/sha256.h"

namespace kiv::tool {
namespace {

constexpr std::wstring_view kFile = L"file://";
constexpr std::size_t kMostBytes = 64 << 20;
using Buffer = std::array<char, 16384>;

std::wstring detectedUrl() {
  support::UniqueGlobalText<wchar_t> url;
  const bool found =
      WinHttpDetectAutoProxyConfigUrl(WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A, url.put());
  return found && url ? std::wstring(url.get()) : std::wstring();
}

// Hashes what `read` puts into the buffer until it reads nothing or fails.
template <class Read>
void hash(ScriptFindings& findings, Read read) {
  Sha256 hash;
  Buffer buffer{};
  std::size_t count = 0;
  while ((findings.error = read(buffer, count)) == 0 && count > 0) {
    findings.bytes += count;
    if (findings.bytes > kMostBytes) {
      findings.error = ERROR_FILE_TOO_LARGE;
      break;
    }
    hash.add({reinterpret_cast<const std::uint8_t*>(buffer.data()), count});
  }
  if (!findings.error) findings.sha256 = hash.finish();
}

void readFile(const std::wstring& path, ScriptFindings& findings) {
  HANDLE const opened = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) {
    findings.error = GetLastError();
    return;
  }
  const support::Unique<HANDLE, support::CloseKernelHandle> file(opened);
  hash(findings, [&](Buffer& buffer, std::size_t& count) -> DWORD {
    DWORD read = 0;
    if (!ReadFile(file.get(), buffer.data(), static_cast<DWORD>(buffer.size()), &read, nullptr)) return GetLastError();
    count = read;
    return ERROR_SUCCESS;
  });
}

void download(const Location& location, const ScriptPlan& plan, ScriptFindings& findings) {
  Exchange exchange({.target = location, .userAgent = plan.userAgent, .method = L"GET", .limit = plan.limit});
  findings.error = exchange.run();
  if (findings.error) return;
  findings.status = exchange.status();
  findings.type = exchange.contentType();
  hash(findings, [&](Buffer& buffer, std::size_t& count) { return exchange.request().read(buffer, count); });
}

}  // namespace

std::optional<ScriptFindings> probeScript(const ScriptPlan& plan) {
  const std::wstring detected = plan.detect ? detectedUrl() : std::wstring();
  const std::wstring& url = detected.empty() ? plan.scriptUrl : detected;
  if (url.empty()) return std::nullopt;
  ScriptFindings findings{.url = presentable(url), .fromDetection = !detected.empty()};
  if (url.starts_with(kFile)) {
    readFile(url.substr(kFile.size()), findings);
  } else if (const std::optional<Location> location = locate(url)) {
    download(*location, plan, findings);
  } else {
    findings.error = ERROR_WINHTTP_INVALID_URL;
  }
  return findings;
}

}  // namespace kiv::tool
