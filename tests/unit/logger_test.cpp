// Tests of the application's logger, through its C functions and as the rest of the library uses it.
#include "log/logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "platform/memory_watch.h"
#include "unit/support/allocation_sweep.h"
#include "unit/support/handles.h"
#include "unit/support/heap_test.h"
#include "unit/support/recorded_log.h"

namespace kiv::test {
namespace {

using impl::Logger;
using support::toHandle;
using support::toObject;
using ::testing::ElementsAre;

constexpr const wchar_t* kLong = L"a text that is much too long to be kept inside of the record itself";

struct LevelCase {
  const char* name;
  void (*log)(const KivLogger*, const wchar_t*);
  void (*internalLog)(const Logger&, std::wstring_view);
  bool (*is)(const KivLog*);
  const wchar_t* prefix;
};

constexpr LevelCase kLevels[] = {
    {"Error", KivLogger_Error, [](const Logger& logger, std::wstring_view text) { logger.error(text); }, KivLog_IsError,
     L"E: "},
    {"Warn", KivLogger_Warn, [](const Logger& logger, std::wstring_view text) { logger.warn(text); }, KivLog_IsWarn,
     L"W: "},
    {"Info", KivLogger_Info, [](const Logger& logger, std::wstring_view text) { logger.info(text); }, KivLog_IsInfo,
     L"I: "},
    {"Debug", KivLogger_Debug, [](const Logger& logger, std::wstring_view text) { logger.debug(text); }, KivLog_IsDebug,
     L"D: "},
};

// What a logger consists of, in order.
struct Members {
  void* context;
  KivLogCallback callback;
  bool engaged;

  bool operator==(const Members&) const = default;
};
static_assert(sizeof(Members) == sizeof(Logger));
static_assert(std::is_standard_layout_v<Logger>);

Members membersOf(const KivLogger* logger) {
  Members members{};
  std::memcpy(static_cast<void*>(&members), logger, sizeof members);
  members.engaged = toObject(logger)->engaged();
  return members;
}

void countCall(void* context, const KivLog*) { ++*static_cast<int*>(context); }

void failOnCall(void*, const KivLog*) { FAIL() << "a callback was called"; }

void logOnce(const KivLogger* logger) { KivLogger_Info(logger, L"line"); }

class LoggerTest : public HeapTest {};

TEST_F(LoggerTest, EachFunctionLogsAtItsLevel) {
  for (const LevelCase& level : kLevels) {
    RecordedLog log;
    level.log(log.logger(), kLong);
    level.internalLog(*toObject(log.logger()), L"x");
    EXPECT_THAT(log.lines(), ElementsAre(level.prefix + std::wstring(kLong), level.prefix + std::wstring(L"x")));
  }
}

TEST_F(LoggerTest, LoggingToANullLoggerDoesNothing) {
  for (const LevelCase& level : kLevels) {
    level.log(nullptr, L"text");
    level.log(nullptr, nullptr);
  }
}

TEST_F(LoggerTest, LoggerThatIsNotEngagedDropsEveryLine) {
  const Logger logger;
  EXPECT_FALSE(logger.engaged());
  for (const LevelCase& level : kLevels) {
    level.log(toHandle<KivLogger>(&logger), L"text");
    level.log(toHandle<KivLogger>(&logger), nullptr);
    level.internalLog(logger, L"text");
  }
}

TEST_F(LoggerTest, HandsOverExactlyTheTextGivenPercentSignsIncluded) {
  const std::wstring texts[] = {
      L"",
      L"100%",
      L"%s %d %n %ls %lu %%",
      L"line\r\nline\n",
      L" blanks ",
      L"\x65E5\x672C\x8A9E \xE9\xFFFF",
      std::wstring(100'000, L'%'),
  };
  for (const LevelCase& level : kLevels) {
    RecordedLog log;
    for (const std::wstring& text : texts) {
      log.clear();
      level.log(log.logger(), text.c_str());
      EXPECT_THAT(log.lines(), ElementsAre(level.prefix + text));
    }
  }
}

TEST_F(LoggerTest, PartOfATextReachesTheCallbackTerminated) {
  const RecordedLog log;
  toObject(log.logger())->info(std::wstring_view(L"a part of a text").substr(2, 4));
  EXPECT_THAT(log.lines(), ElementsAre(L"I: part"));
}

TEST_F(LoggerTest, PassesTheContextBackOnTheCallingThread) {
  struct Seen {
    void* context = nullptr;
    std::thread::id thread;
  };
  static Seen seen;
  const auto callback = [](void* context, const KivLog*) { seen = {context, std::this_thread::get_id()}; };
  int value = 0;
  for (void* context : {static_cast<void*>(&value), static_cast<void*>(nullptr)}) {
    seen = {&seen, {}};
    const UniqueLogger logger(KivLogger_Construct(context, callback));
    logOnce(logger.get());
    EXPECT_EQ(seen.context, context);
    EXPECT_EQ(seen.thread, std::this_thread::get_id());
  }
}

TEST_F(LoggerTest, RecordIsTheLibrarysOwnAndCanBeKeptAsACopy) {
  struct Kept {
    const wchar_t* given;
    UniqueLog copy;
    bool own;
  } kept{kLong, nullptr, false};
  const UniqueLogger logger(KivLogger_Construct(&kept, [](void* context, const KivLog* log) {
    auto& keeper = *static_cast<Kept*>(context);
    keeper.copy.reset(KivLog_CopyConstruct(log));
    keeper.own = KivLog_Message(log) != keeper.given;
  }));
  KivLogger_Warn(logger.get(), kLong);
  EXPECT_TRUE(kept.own);
  EXPECT_TRUE(KivLog_IsWarn(kept.copy.get()));
  EXPECT_STREQ(KivLog_Message(kept.copy.get()), kLong);
}

TEST_F(LoggerTest, ExceptionOfTheCallbackPassesThroughAfterTheRecordWasDestroyed) {
  const UniqueLogger logger(KivLogger_Construct(nullptr, [](void*, const KivLog* log) {
    // The exception carries what it saw; it must not be a block on the heap that is counted below.
    throw std::wcslen(KivLog_Message(log));
  }));
  for (const LevelCase& level : kLevels) {
    SCOPED_TRACE(level.name);
    const MemoryWatch::Scope scope;
    std::size_t caught = 0;
    try {
      level.log(logger.get(), kLong);
    } catch (std::size_t length) {
      caught = length;
      EXPECT_EQ(scope.liveBlocks(), 0U) << "the record outlived its call";
    }
    EXPECT_EQ(caught, std::wcslen(kLong));
    EXPECT_THROW(level.internalLog(*toObject(logger.get()), L"x"), std::size_t);
  }
}

TEST_F(LoggerTest, LoggerCanBeUsedAfterItsCallbackThrew) {
  int calls = 0;
  const UniqueLogger logger(KivLogger_Construct(&calls, [](void* context, const KivLog*) {
    if (++*static_cast<int*>(context) == 1) throw std::runtime_error("first");
  }));
  EXPECT_THROW(logOnce(logger.get()), std::runtime_error);
  EXPECT_NO_THROW(logOnce(logger.get()));
  EXPECT_EQ(calls, 2);
}

TEST_F(LoggerTest, OnlyLoggingCallsTheCallback) {
  const UniqueLogger logger(KivLogger_Construct(nullptr, failOnCall));
  UniqueLogger other(KivLogger_CopyConstruct(logger.get()));
  KivLogger_Copy(logger.get(), other.get());
  KivLogger_Move(other.get(), logger.get());
  other.reset(KivLogger_MoveConstruct(logger.get()));
  KivLogger_Destruct(nullptr);
}

TEST_F(LoggerTest, ConstructedLoggerIsEngagedAndHoldsWhatItWasGiven) {
  int value = 0;
  const UniqueLogger logger(KivLogger_Construct(&value, countCall));
  EXPECT_EQ(membersOf(logger.get()), (Members{&value, countCall, true}));
}

TEST_F(LoggerTest, LoggingChangesNothingInTheLogger) {
  int value = 0;
  const UniqueLogger logger(KivLogger_Construct(&value, countCall));
  for (const LevelCase& level : kLevels) level.log(logger.get(), L"text");
  EXPECT_EQ(membersOf(logger.get()), (Members{&value, countCall, true}));
  EXPECT_EQ(value, 4);
}

TEST_F(LoggerTest, CopyConstructAndMoveConstructOfNullAreNull) {
  EXPECT_EQ(KivLogger_CopyConstruct(nullptr), nullptr);
  EXPECT_EQ(KivLogger_MoveConstruct(nullptr), nullptr);
}

TEST_F(LoggerTest, CopyAndMoveDoNothingIfEitherIsNull) {
  int value = 0;
  const UniqueLogger logger(KivLogger_Construct(&value, countCall));
  KivLogger_Copy(nullptr, logger.get());
  KivLogger_Copy(logger.get(), nullptr);
  KivLogger_Copy(nullptr, nullptr);
  KivLogger_Move(nullptr, logger.get());
  KivLogger_Move(logger.get(), nullptr);
  KivLogger_Move(nullptr, nullptr);
  EXPECT_EQ(membersOf(logger.get()), (Members{&value, countCall, true}));
}

TEST_F(LoggerTest, CopyConstructCopiesAllThreeMembers) {
  int calls = 0;
  UniqueLogger source(KivLogger_Construct(&calls, countCall));
  const UniqueLogger copied(KivLogger_CopyConstruct(source.get()));
  EXPECT_EQ(membersOf(copied.get()), (Members{&calls, countCall, true}));
  EXPECT_EQ(membersOf(source.get()), (Members{&calls, countCall, true}));
  source.reset();
  logOnce(copied.get());
  EXPECT_EQ(calls, 1);
  const Logger none;
  const UniqueLogger copiedNone(KivLogger_CopyConstruct(toHandle<KivLogger>(&none)));
  EXPECT_EQ(membersOf(copiedNone.get()), (Members{nullptr, nullptr, false}));
}

TEST_F(LoggerTest, MoveConstructTakesContextAndCallbackAndLeavesTheSourceEngaged) {
  int calls = 0;
  UniqueLogger source(KivLogger_Construct(&calls, countCall));
  const UniqueLogger moved(KivLogger_MoveConstruct(source.get()));
  EXPECT_EQ(membersOf(moved.get()), (Members{&calls, countCall, true}));
  EXPECT_EQ(membersOf(source.get()), (Members{nullptr, nullptr, true}));
  source.reset();
  logOnce(moved.get());
  EXPECT_EQ(calls, 1);
}

TEST_F(LoggerTest, LoggerMoveConstructedFromOneThatIsNotEngagedNeverCallsAnything) {
  Logger source;
  const UniqueLogger moved(KivLogger_MoveConstruct(toHandle<KivLogger>(&source)));
  ASSERT_NE(moved, nullptr);
  EXPECT_FALSE(toObject(moved.get())->engaged());
  EXPECT_FALSE(source.engaged());
  for (const LevelCase& level : kLevels) level.log(moved.get(), L"text");
}

TEST_F(LoggerTest, CopyCopiesAllThreeMembers) {
  int calls = 0;
  const UniqueLogger source(KivLogger_Construct(&calls, countCall));
  const UniqueLogger target(KivLogger_Construct(nullptr, failOnCall));
  KivLogger_Copy(source.get(), target.get());
  EXPECT_EQ(membersOf(target.get()), (Members{&calls, countCall, true}));
  EXPECT_EQ(membersOf(source.get()), (Members{&calls, countCall, true}));
  KivLogger_Copy(target.get(), target.get());
  logOnce(target.get());
  EXPECT_EQ(calls, 1);
  const Logger none;
  KivLogger_Copy(toHandle<KivLogger>(&none), target.get());
  EXPECT_EQ(membersOf(target.get()), (Members{nullptr, nullptr, false}));
}

TEST_F(LoggerTest, MoveIntoALoggerThatIsNotEngagedEngagesItWithCallbackAndContextOfTheSource) {
  int calls = 0;
  const UniqueLogger source(KivLogger_Construct(&calls, countCall));
  Logger target;
  KivLogger_Move(source.get(), toHandle<KivLogger>(&target));
  EXPECT_TRUE(target.engaged());
  logOnce(toHandle<KivLogger>(&target));
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(membersOf(source.get()), (Members{nullptr, nullptr, true}));
}

TEST_F(LoggerTest, MoveFromALoggerThatIsNotEngagedDisengagesTheTarget) {
  Logger source;
  const UniqueLogger target(KivLogger_Construct(nullptr, failOnCall));
  KivLogger_Move(toHandle<KivLogger>(&source), target.get());
  EXPECT_FALSE(toObject(target.get())->engaged());
  EXPECT_FALSE(source.engaged());
  logOnce(target.get());
}

TEST_F(LoggerTest, MoveOntoItselfLeavesALoggerUnchanged) {
  int calls = 0;
  const UniqueLogger logger(KivLogger_Construct(&calls, countCall));
  KivLogger_Move(logger.get(), logger.get());
  EXPECT_EQ(membersOf(logger.get()), (Members{&calls, countCall, true}));
}

TEST_F(LoggerTest, MovedFromLoggerCanBeOverwrittenByCopyAndMove) {
  int calls = 0;
  const UniqueLogger logger(KivLogger_Construct(&calls, countCall));
  const UniqueLogger moved(KivLogger_MoveConstruct(logger.get()));
  KivLogger_Copy(moved.get(), logger.get());
  logOnce(logger.get());
  const UniqueLogger again(KivLogger_MoveConstruct(logger.get()));
  KivLogger_Move(moved.get(), logger.get());
  logOnce(logger.get());
  EXPECT_EQ(calls, 2);
}

TEST_F(LoggerTest, LineNeedsOneAllocationIfItIsLongAndNoneIfItIsShort) {
  int calls = 0;
  const UniqueLogger logger(KivLogger_Construct(&calls, countCall));
  const MemoryWatch::AllocationFailure counter(0);
  KivLogger_Info(logger.get(), L"abc");
  EXPECT_EQ(counter.count(), 0U);
  KivLogger_Info(logger.get(), kLong);
  EXPECT_EQ(counter.count(), 1U);
}

TEST_F(LoggerTest, CreatingIsNullWithoutMemory) {
  int calls = 0;
  const UniqueLogger source(KivLogger_Construct(&calls, countCall));
  EXPECT_EQ(expectNullWithoutMemory([&] { return UniqueLogger(KivLogger_Construct(&calls, countCall)); }), 1U);
  EXPECT_EQ(expectNullWithoutMemory([&] { return UniqueLogger(KivLogger_CopyConstruct(source.get())); }), 1U);
}

TEST_F(LoggerTest, MoveConstructWithoutMemoryIsNullAndLeavesTheSource) {
  int calls = 0;
  const UniqueLogger source(KivLogger_Construct(&calls, countCall));
  UniqueLogger moved;
  const auto check = [&](bool failed) {
    EXPECT_EQ(moved == nullptr, failed);
    const Members left = failed ? Members{&calls, countCall, true} : Members{nullptr, nullptr, true};
    EXPECT_EQ(membersOf(source.get()), left);
  };
  EXPECT_EQ(forEachAllocationOf([&] { moved.reset(KivLogger_MoveConstruct(source.get())); }, check), 1U);
}

TEST_F(LoggerTest, CopyAndMoveNeedNoMemory) {
  int calls = 0;
  const UniqueLogger source(KivLogger_Construct(&calls, countCall));
  const UniqueLogger target(KivLogger_Construct(nullptr, failOnCall));
  const MemoryWatch::AllocationFailure counter(0);
  KivLogger_Copy(source.get(), target.get());
  KivLogger_Move(source.get(), target.get());
  EXPECT_EQ(counter.count(), 0U);
}

TEST_F(LoggerTest, ThreadsCanShareALoggerWhoseCallbackAllowsIt) {
  std::atomic<int> lines{0};
  const UniqueLogger logger(KivLogger_Construct(&lines, [](void* context, const KivLog* log) {
    if (KivLog_IsDebug(log)) ++*static_cast<std::atomic<int>*>(context);
  }));
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int line = 0; line < 100; ++line) KivLogger_Debug(logger.get(), kLong);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(lines, 400);
}

TEST(LoggerDeathTest, LineThatCannotBeCopiedForWantOfMemoryEndsTheProcess) {
  for (const LevelCase& level : kLevels) {
    SCOPED_TRACE(level.name);
    const UniqueLogger logger(KivLogger_Construct(nullptr, failOnCall));
    EXPECT_DEATH(
        {
          const MemoryWatch::AllocationFailure failure(1);
          level.log(logger.get(), kLong);
        },
        "terminate called");
  }
}

TEST(LoggerMemoryTest, TextThatWasMadeForALineBecomesTheRecords) {
  const wchar_t* seen = nullptr;
  const Logger logger(
      &seen, [](void* context, const KivLog* log) { *static_cast<const wchar_t**>(context) = KivLog_Message(log); });
  std::wstring text = kLong;
  const wchar_t* const characters = text.c_str();
  const MemoryWatch::AllocationFailure counter(0);
  logger.info(std::move(text));
  EXPECT_EQ(seen, characters);
  EXPECT_EQ(counter.count(), 0U);
  logger.info(kLong);
  EXPECT_EQ(counter.count(), 1U);
}

}  // namespace
}  // namespace kiv::test
