// Local proxy scripts: what the engine is given, what is made of its answer, and what is released in which order.
#include "discovery/local_script.h"

#include <gmock/gmock.h>

#include "platform/platform_test.h"
#include "unit/support/proxy_entries.h"
#include "unit/support/transcript.h"

namespace kiv::test {
namespace {

using impl::ProxyListEntry;
using testing::ElementsAre;
using testing::IsEmpty;

using Entries = std::vector<ProxyListEntry>;

constexpr DWORD kCannotConvert = 1113;

const Entries kUntouched = {{L"old", L"old", 1}};

const wchar_t* const kLoad = L"LoadLibraryW(file=jsproxy.dll)";
const wchar_t* const kLookUpInitialize = L"GetProcAddress(module=module 1, name=InternetInitializeAutoProxyDll)";
const wchar_t* const kInitialize =
    L"InternetInitializeAutoProxyDll(version=0, path=C:/p.pac, mime=null, functions=null, script=null)";
const wchar_t* const kLookUpGetInfo = L"GetProcAddress(module=module 1, name=InternetGetProxyInfo)";
const wchar_t* const kGetInfo = L"InternetGetProxyInfo(url=http://target/x, urlLength=15, host=target, hostLength=6)";
const wchar_t* const kUnload = L"FreeLibrary(module=module 1)";
const wchar_t* const kReleaseAnswer = L"GlobalFree(block=global block 1)";

class LocalScriptTest : public PlatformTest {
 protected:
  bool evaluate(const std::wstring& autoConfigUrl = L"file://C:/p.pac") {
    candidates = kUntouched;
    return impl::EvaluateLocalPacScript(autoConfigUrl, L"http://target/x", L"target", candidates);
  }

  // The calls but for the conversions.
  std::vector<std::wstring> transcript() const {
    return transcriptOf(windows, {"WideCharToMultiByte", "MultiByteToWideChar"});
  }

  // What becomes of an answer, by a fresh engine.
  Entries entriesOf(const std::string& answer, std::optional<DWORD> reportedLength = std::nullopt) {
    SimulatedWindows own;
    own.scriptEngine.answer = answer;
    own.scriptEngine.reportedLength = reportedLength;
    EXPECT_TRUE(evaluate());
    expectNoComplaints(own);
    return candidates;
  }

  Entries candidates;
};

TEST_F(LocalScriptTest, LoadsAsksAndReleasesTheEngineInThisOrder) {
  windows.scriptEngine.answer = "PROXY p:8080; SOCKS s:1080; DIRECT";
  EXPECT_TRUE(evaluate());
  EXPECT_EQ(candidates, (Entries{{L"PROXY", L"p", 8080}, {L"SOCKS", L"s", 1080}, {L"", L"", 0}}));
  EXPECT_THAT(transcript(),
              ElementsAre(kLoad, kLookUpInitialize, kInitialize, kLookUpGetInfo, kGetInfo, kUnload, kReleaseAnswer));
}

TEST_F(LocalScriptTest, ConvertsInTheCodePageOfTheThread) {
  windows.scriptEngine.answer = "DIRECT";
  EXPECT_TRUE(evaluate());
  for (const Call& call : windows.calls()) {
    if (call.name != "WideCharToMultiByte" && call.name != "MultiByteToWideChar") continue;
    EXPECT_THAT(call.arguments, testing::StartsWith(L"codePage=3, flags=0x0, ")) << call.name;
  }
  EXPECT_GE(windows.count("WideCharToMultiByte"), 3U);
  EXPECT_GE(windows.count("MultiByteToWideChar"), 1U);
}

TEST_F(LocalScriptTest, LoadsTheEngineAnewEachTime) {
  windows.scriptEngine.answer = "DIRECT";
  EXPECT_TRUE(evaluate());
  EXPECT_TRUE(evaluate());
  EXPECT_EQ(windows.count("LoadLibraryW"), 2U);
  EXPECT_EQ(windows.count("InternetInitializeAutoProxyDll"), 2U);
  EXPECT_EQ(windows.count("FreeLibrary"), 2U);
}

TEST_F(LocalScriptTest, DoesNothingForAnEmptyUrl) {
  EXPECT_FALSE(evaluate(L""));
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(windows.calls(Transcript::Everything), IsEmpty());
}

TEST_F(LocalScriptTest, GivesTheEngineWhatFollowsTheFirstFileScheme) {
  struct Case {
    const wchar_t* url;
    const wchar_t* path;
  };
  const Case cases[] = {
      {L"file://C:/proxy.pac", L"C:/proxy.pac"},
      {L"FILE://C:/proxy.pac", L"FILE://C:/proxy.pac"},
      {L"File://C:/proxy.pac", L"File://C:/proxy.pac"},
      {L"file:///C:/p.pac", L"/C:/p.pac"},
      {L"file:/C:/p.pac", L"file:/C:/p.pac"},
      {L"C:\\p.pac", L"C:\\p.pac"},
      {L"x file://C:/p.pac", L"C:/p.pac"},
      {L"file://a/file://b", L"a/file://b"},
      {L"file://C:/My%20Files/p.pac", L"C:/My%20Files/p.pac"},
      {L"file://", L""},
      {L"file://C:/\x65E5\x672C/\xE4.pac", L"C:/\x65E5\x672C/\xE4.pac"},
      {L" ", L" "},
  };
  for (const Case& c : cases) {
    SimulatedWindows own;
    own.scriptEngine.answer = "DIRECT";
    EXPECT_TRUE(evaluate(c.url));
    EXPECT_EQ(own.arguments("InternetInitializeAutoProxyDll"),
              L"version=0, path=" + std::wstring(c.path) + L", mime=null, functions=null, script=null");
  }
}

TEST_F(LocalScriptTest, CountsTheBytesOfUrlAndHost) {
  windows.scriptEngine.answer = "DIRECT";
  // 3 bytes for each of the two characters, in the code page of the simulated system.
  EXPECT_TRUE(impl::EvaluateLocalPacScript(L"file://p", L"http://\x65E5\x672C/", L"\x65E5\x672C", candidates));
  EXPECT_EQ(windows.arguments("InternetGetProxyInfo"),
            L"url=http://\x65E5\x672C/, urlLength=14, host=\x65E5\x672C, hostLength=6");
}

TEST_F(LocalScriptTest, AsksForATargetWithoutAHost) {
  windows.scriptEngine.answer = "DIRECT";
  EXPECT_TRUE(impl::EvaluateLocalPacScript(L"file://p", L"", L"", candidates));
  EXPECT_EQ(windows.arguments("InternetGetProxyInfo"), L"url=, urlLength=0, host=, hostLength=0");
}

TEST_F(LocalScriptTest, FailsWithoutTheEngine) {
  windows.scriptEngine.present = false;
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(std::wstring(kLoad) + L" failed: 126"));
}

TEST_F(LocalScriptTest, UnloadsAnEngineThatCannotBeInitialised) {
  windows.scriptEngine.hasInitialize = false;
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(kLoad, std::wstring(kLookUpInitialize) + L" failed: 127", kUnload));
}

TEST_F(LocalScriptTest, UnloadsAnEngineThatCannotReadTheScript) {
  windows.scriptEngine.initializeResult = FALSE;
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(kLoad, kLookUpInitialize, std::wstring(kInitialize) + L" failed: 2", kUnload));
}

TEST_F(LocalScriptTest, UnloadsAnEngineThatCannotBeAsked) {
  windows.scriptEngine.hasGetInfo = false;
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(kLoad, kLookUpInitialize, kInitialize,
                                        std::wstring(kLookUpGetInfo) + L" failed: 127", kUnload));
}

TEST_F(LocalScriptTest, FailsIfTheEngineDoes) {
  windows.scriptEngine.getInfoResult = FALSE;
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(kLoad, kLookUpInitialize, kInitialize, kLookUpGetInfo,
                                        std::wstring(kGetInfo) + L" failed: 31", kUnload));
}

TEST_F(LocalScriptTest, ReleasesTheAnswerOfACallThatFailed) {
  windows.scriptEngine.getInfoResult = FALSE;
  windows.scriptEngine.answer = "PROXY p:8080";
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(kLoad, kLookUpInitialize, kInitialize, kLookUpGetInfo,
                                        std::wstring(kGetInfo) + L" failed: 31", kUnload, kReleaseAnswer));
}

TEST_F(LocalScriptTest, FailsIfTheEngineLeavesTheAnswerNull) {
  EXPECT_FALSE(evaluate());
  EXPECT_EQ(candidates, kUntouched);
  EXPECT_THAT(transcript(), ElementsAre(kLoad, kLookUpInitialize, kInitialize, kLookUpGetInfo, kGetInfo, kUnload));
}

TEST_F(LocalScriptTest, TreatsAnyNonzeroResultAsSuccess) {
  windows.scriptEngine.initializeResult = 2;
  windows.scriptEngine.getInfoResult = -1;
  windows.scriptEngine.answer = "DIRECT";
  EXPECT_TRUE(evaluate());
  EXPECT_EQ(candidates, (Entries{{L"", L"", 0}}));
}

TEST_F(LocalScriptTest, TreatsAnEmptyAnswerAsAnAnswer) {
  EXPECT_EQ(entriesOf(""), Entries());
  EXPECT_EQ(entriesOf("PROXY p:8080", 0), Entries());
}

TEST_F(LocalScriptTest, DropsATerminatorThatTheLengthCounts) {
  const Entries expected = {{L"PROXY", L"p", 8080}};
  EXPECT_EQ(entriesOf("PROXY p:8080"), expected);
  EXPECT_EQ(entriesOf("PROXY p:8080", 13), expected);
  EXPECT_EQ(entriesOf("PROXY p:8080", 0xFFFFFFFF), expected);
  EXPECT_EQ(entriesOf("PROXY p:8080", 11), (Entries{{L"PROXY", L"p", 808}}));
  EXPECT_EQ(entriesOf("", 1), Entries());
  EXPECT_EQ(entriesOf("", 0xFFFFFFFF), Entries());
}

TEST_F(LocalScriptTest, TreatsAnAnswerOfUnknownLengthAsEmpty) {
  windows.scriptEngine.answer = "PROXY p:8080";
  windows.scriptEngine.reportsLength = false;
  EXPECT_TRUE(evaluate());
  EXPECT_EQ(candidates, Entries());
}

// The engine may look at the texts that it was given for as long as it is loaded.
class LocalScriptTextsTest : public PlatformTest {
 protected:
  LocalScriptTextsTest() {
    windows.scriptEngine.answer = "DIRECT";
    windows.onCall = [this](const std::string& name) {
      if (!guard_ || (name != "FreeLibrary" && name != "GlobalFree")) return;
      const MemoryWatch::Pause pause;
      events_.push_back(name + " with " + std::to_string(guard_->scanLiveBlocks().size()) + " texts");
    };
  }

  // The releases: of the engine and of its answer, with the number of narrow texts that there are at that time, and
  // then of these texts.
  std::vector<std::string> releasesOf(bool expected) {
    const std::wstring mark = L"in all three texts";
    const std::wstring path = L"file://" + std::wstring(300, L'p') + mark;
    const std::wstring url = L"http://" + std::wstring(200, L'u') + mark;
    const std::wstring host = std::wstring(100, L'h') + mark;
    std::vector<ProxyListEntry> candidates;
    events_.clear();
    guard_.emplace(mark);
    EXPECT_EQ(impl::EvaluateLocalPacScript(path, url, host, candidates), expected);
    const MemoryWatch::Pause pause;
    for (const std::string& block : guard_->violations()) {
      const std::string size = block.substr(block.find_first_of("0123456789"));
      events_.emplace_back(std::stoi(size) > 300 ? "path" : std::stoi(size) > 200 ? "url" : "host");
    }
    guard_.reset();
    return events_;
  }

 private:
  std::optional<MemoryWatch::SecretGuard> guard_;
  std::vector<std::string> events_;
};

TEST_F(LocalScriptTextsTest, AreReleasedAfterTheEngineAndItsAnswer) {
  EXPECT_THAT(releasesOf(true),
              ElementsAre("FreeLibrary with 3 texts", "GlobalFree with 3 texts", "url", "host", "path"));
}

TEST_F(LocalScriptTextsTest, AreReleasedInTheSameOrderIfTheEngineFails) {
  windows.scriptEngine.getInfoResult = FALSE;
  EXPECT_THAT(releasesOf(false),
              ElementsAre("FreeLibrary with 3 texts", "GlobalFree with 3 texts", "url", "host", "path"));
  windows.scriptEngine.hasGetInfo = false;
  EXPECT_THAT(releasesOf(false), ElementsAre("FreeLibrary with 1 texts", "path"));
  windows.scriptEngine.initializeResult = FALSE;
  EXPECT_THAT(releasesOf(false), ElementsAre("FreeLibrary with 1 texts", "path"));
  windows.scriptEngine.present = false;
  EXPECT_THAT(releasesOf(false), ElementsAre("path"));
}

TEST_F(LocalScriptTest, ReadsAnswersInTheCodePageOfTheThread) {
  EXPECT_EQ(entriesOf("PROXY \xE6\x97\xA5\xE6\x9C\xAC:80"), (Entries{{L"PROXY", L"\x65E5\x672C", 80}}));
  EXPECT_EQ(entriesOf("PROXY \xE6\x97\xA5:80", 13), (Entries{{L"PROXY", L"\x65E5", 80}}));
}

TEST_F(LocalScriptTest, KeepsTheEntriesInFrontOfASyntaxError) {
  EXPECT_EQ(entriesOf("PROXY a:1; PROXY b; PROXY c:3"), (Entries{{L"PROXY", L"a", 1}}));
  EXPECT_EQ(entriesOf("nonsense"), Entries());
}

TEST_F(LocalScriptTest, ReadsOneDirectEntry) { EXPECT_EQ(entriesOf("DIRECT"), (Entries{{L"", L"", 0}})); }

TEST_F(LocalScriptTest, ReadsAnAnswerThatCannotBeConvertedAsEmpty) {
  for (const std::size_t nth : {1U, 2U}) {
    SimulatedWindows own;
    own.scriptEngine.answer = "PROXY p:8080";
    own.failNth("MultiByteToWideChar", nth, kCannotConvert);
    EXPECT_TRUE(evaluate());
    EXPECT_EQ(candidates, Entries()) << nth;
    expectNoComplaints(own);
  }
}

// Whichever text cannot be converted, nothing is asked of the engine.
TEST_F(LocalScriptTest, FailsIfATextCannotBeConverted) {
  windows.scriptEngine.answer = "DIRECT";
  ASSERT_TRUE(evaluate());
  const std::size_t conversions = windows.count("WideCharToMultiByte");
  for (std::size_t nth = 1; nth <= conversions; ++nth) {
    SimulatedWindows own;
    own.scriptEngine.answer = "DIRECT";
    own.failNth("WideCharToMultiByte", nth, kCannotConvert);
    EXPECT_FALSE(evaluate());
    EXPECT_EQ(candidates, kUntouched) << nth;
    EXPECT_EQ(own.count("InternetGetProxyInfo"), 0U);
    expectNoComplaints(own);
  }
}

}  // namespace
}  // namespace kiv::test
