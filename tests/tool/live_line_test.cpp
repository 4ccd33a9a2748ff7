// The line at the bottom of a console, and the thread that draws it.
#include "resolve/live_line.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <array>

#include "support/owners.h"

namespace kiv::tool {
namespace {

// What is printed as errors while this lives.
class ErrorOutput {
 public:
  ErrorOutput() : former_(GetStdHandle(STD_ERROR_HANDLE)) {
    std::array<wchar_t, MAX_PATH> folder{};
    std::array<wchar_t, MAX_PATH> name{};
    GetTempPathW(static_cast<DWORD>(folder.size()), folder.data());
    GetTempFileNameW(folder.data(), L"kiv", 0, name.data());
    file_ = File(CreateFileW(name.data(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                             FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    SetStdHandle(STD_ERROR_HANDLE, file_.get());
  }
  ErrorOutput(const ErrorOutput&) = delete;
  ErrorOutput& operator=(const ErrorOutput&) = delete;
  ~ErrorOutput() { SetStdHandle(STD_ERROR_HANDLE, former_); }

  bool isEmpty() const { return GetFileSize(file_.get(), nullptr) == 0; }

  // To be called when nothing is printed any more.
  std::string text() const {
    std::string read(GetFileSize(file_.get(), nullptr), '\0');
    SetFilePointer(file_.get(), 0, nullptr, FILE_BEGIN);
    DWORD size = 0;
    ReadFile(file_.get(), read.data(), static_cast<DWORD>(read.size()), &size, nullptr);
    read.resize(size);
    return read;
  }

 private:
  using File = support::Unique<HANDLE, support::CloseKernelHandle>;

  HANDLE former_;
  File file_;
};

TEST(LiveLine, ShowsWhatIsBeingDoneUntilItEnds) {
  const ErrorOutput output;
  LiveLine line(true);
  line.begin(L"Testing");
  while (output.isEmpty()) std::this_thread::yield();
  line.end();
  const std::string text = output.text();
  EXPECT_TRUE(text.starts_with("\r| Testing  ")) << text;
  EXPECT_TRUE(text.ends_with(" s\x1b[K\r\x1b[K")) << text;
}

TEST(LiveLine, OfNoConsoleShowsNothing) {
  const ErrorOutput output;
  LiveLine line(false);
  line.begin(L"Testing");
  line.end();
  EXPECT_EQ(output.text(), "");
}

TEST(LiveLine, ResumesOnlyWhatIsPausedAndHasNotEnded) {
  const ErrorOutput output;
  LiveLine line(true);
  line.begin(L"Testing");
  line.resume();
  line.end();
  const std::string text = output.text();
  line.resume();
  line.pause();
  EXPECT_EQ(output.text(), text);
}

TEST(LiveLine, EndsWheneverItIsAskedTo) {
  const ErrorOutput output;
  LiveLine line(true);
  for (int i = 0; i < 1000; ++i) {
    line.begin(L"Testing");
    // Each time at another moment in the life of the thread that draws.
    for (int turn = 0; turn < i % 100; ++turn) std::this_thread::yield();
    line.end();
  }
}

}  // namespace
}  // namespace kiv::tool
