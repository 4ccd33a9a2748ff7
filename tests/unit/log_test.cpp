// Tests of log records, through their C functions.
#include "log/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/memory_watch.h"
#include "unit/support/allocation_sweep.h"
#include "unit/support/handles.h"
#include "unit/support/heap_test.h"

namespace kiv::test {
namespace {

using impl::LogLevel;

static_assert(sizeof(KivLog_IsError(nullptr)) == 1, "predicates return one byte");
static_assert(static_cast<std::uint32_t>(LogLevel::Error) == 0);
static_assert(static_cast<std::uint32_t>(LogLevel::Warn) == 1);
static_assert(static_cast<std::uint32_t>(LogLevel::Info) == 2);
static_assert(static_cast<std::uint32_t>(LogLevel::Debug) == 3);
static_assert(sizeof(LogLevel) == 4);

constexpr const wchar_t* kLong = L"a text that is much too long to be kept inside of the record itself";
constexpr const wchar_t* kOther = L"another text, of which the same is to be said: it needs a block of its own";

struct LevelCase {
  const char* name;
  KivLog* (*create)(const wchar_t*);
  bool (*is)(const KivLog*);
  std::uint32_t level;
};

constexpr LevelCase kLevels[] = {
    {"Error", KivLog_CreateError, KivLog_IsError, 0},
    {"Warn", KivLog_CreateWarn, KivLog_IsWarn, 1},
    {"Info", KivLog_CreateInfo, KivLog_IsInfo, 2},
    {"Debug", KivLog_CreateDebug, KivLog_IsDebug, 3},
};

// Says the level of a record, as its four predicates do; 4 if they do not agree on one.
std::uint32_t levelOf(const KivLog* log) {
  std::uint32_t level = 4;
  int found = 0;
  for (const LevelCase& candidate : kLevels) {
    if (!candidate.is(log)) continue;
    level = candidate.level;
    ++found;
  }
  return found == 1 ? level : 4;
}

void expectRecord(const KivLog* log, std::uint32_t level, const wchar_t* message) {
  EXPECT_EQ(levelOf(log), level);
  EXPECT_STREQ(KivLog_Message(log), message);
}

class LogTest : public HeapTest {};

TEST_F(LogTest, PredicatesOfNullAreFalse) {
  for (const LevelCase& level : kLevels) EXPECT_FALSE(level.is(nullptr)) << level.name;
}

TEST_F(LogTest, MessageOfNullIsNull) { EXPECT_EQ(KivLog_Message(nullptr), nullptr); }

TEST_F(LogTest, DestructIgnoresNull) { KivLog_Destruct(nullptr); }

TEST_F(LogTest, CreatesARecordOfEachLevelWithExactlyOnePredicateTrue) {
  for (const LevelCase& level : kLevels) {
    SCOPED_TRACE(level.name);
    const UniqueLog log(level.create(kLong));
    for (const LevelCase& asked : kLevels) EXPECT_EQ(asked.is(log.get()), asked.level == level.level) << asked.name;
    EXPECT_STREQ(KivLog_Message(log.get()), kLong);
  }
}

TEST_F(LogTest, KeepsTheLevelAsTheFirstMember) {
  for (const LevelCase& level : kLevels) {
    const UniqueLog log(level.create(L"text"));
    std::uint32_t first = 99;
    std::memcpy(&first, log.get(), sizeof first);
    EXPECT_EQ(first, level.level) << level.name;
  }
}

TEST_F(LogTest, EmptyMessageIsAnEmptyTextAndNotNull) {
  for (const LevelCase& level : kLevels) {
    const UniqueLog log(level.create(L""));
    expectRecord(log.get(), level.level, L"");
  }
}

TEST_F(LogTest, KeepsAnyTextAsItIs) {
  const std::wstring texts[] = {L"x",
                                L"%d %s %n %ls 100%",
                                L"line\r\nline\n\ttab",
                                L"\x65E5\x672C\x8A9E \xFFFD\xFFFF",
                                L"\xD83D",
                                std::wstring(100'000, L'\xE9'),
                                L" blanks "};
  for (const std::wstring& text : texts) {
    const UniqueLog log(KivLog_CreateInfo(text.c_str()));
    EXPECT_EQ(text, KivLog_Message(log.get()));
  }
}

TEST_F(LogTest, CopiesTheTextThatItIsGiven) {
  wchar_t text[] = L"given";
  const UniqueLog log(KivLog_CreateWarn(text));
  text[0] = L'X';
  expectRecord(log.get(), 1, L"given");
}

TEST_F(LogTest, CopyConstructAndMoveConstructOfNullAreNull) {
  EXPECT_EQ(KivLog_CopyConstruct(nullptr), nullptr);
  EXPECT_EQ(KivLog_MoveConstruct(nullptr), nullptr);
}

TEST_F(LogTest, CopyConstructCopiesLevelAndText) {
  for (const LevelCase& level : kLevels) {
    for (const wchar_t* text : {L"", L"x", kLong}) {
      UniqueLog source(level.create(text));
      const UniqueLog copied(KivLog_CopyConstruct(source.get()));
      expectRecord(source.get(), level.level, text);
      EXPECT_NE(KivLog_Message(source.get()), KivLog_Message(copied.get()));
      source.reset();
      expectRecord(copied.get(), level.level, text);
    }
  }
}

TEST_F(LogTest, MoveConstructTakesTheTextAndLeavesTheLevel) {
  for (const LevelCase& level : kLevels) {
    for (const wchar_t* text : {L"", L"x", kLong}) {
      const UniqueLog source(level.create(text));
      const UniqueLog moved(KivLog_MoveConstruct(source.get()));
      expectRecord(moved.get(), level.level, text);
      expectRecord(source.get(), level.level, L"");
    }
  }
}

TEST_F(LogTest, CopyAndMoveDoNothingIfEitherIsNull) {
  const UniqueLog log(KivLog_CreateWarn(kLong));
  KivLog_Copy(nullptr, log.get());
  KivLog_Copy(log.get(), nullptr);
  KivLog_Copy(nullptr, nullptr);
  KivLog_Move(nullptr, log.get());
  KivLog_Move(log.get(), nullptr);
  KivLog_Move(nullptr, nullptr);
  expectRecord(log.get(), 1, kLong);
}

TEST_F(LogTest, CopyReplacesLevelAndTextOfTheTarget) {
  for (const wchar_t* text : {L"", L"x", kLong}) {
    const UniqueLog source(KivLog_CreateDebug(text));
    const UniqueLog target(KivLog_CreateError(kOther));
    KivLog_Copy(source.get(), target.get());
    expectRecord(target.get(), 3, text);
    expectRecord(source.get(), 3, text);
  }
}

TEST_F(LogTest, CopyOntoItselfLeavesARecordUnchanged) {
  for (const wchar_t* text : {L"", L"x", kLong}) {
    const UniqueLog log(KivLog_CreateInfo(text));
    KivLog_Copy(log.get(), log.get());
    expectRecord(log.get(), 2, text);
  }
}

TEST_F(LogTest, MoveGivesTheTargetLevelAndTextAndLeavesTheSourceItsLevelAndAnEmptyText) {
  for (const wchar_t* text : {L"", L"x", kLong}) {
    const UniqueLog source(KivLog_CreateDebug(text));
    const UniqueLog target(KivLog_CreateError(kOther));
    KivLog_Move(source.get(), target.get());
    expectRecord(target.get(), 3, text);
    expectRecord(source.get(), 3, L"");
  }
}

TEST_F(LogTest, MoveOntoItselfLeavesARecordUnchanged) {
  for (const wchar_t* text : {L"", L"x", kLong}) {
    const UniqueLog log(KivLog_CreateInfo(text));
    KivLog_Move(log.get(), log.get());
    expectRecord(log.get(), 2, text);
  }
}

TEST_F(LogTest, MovedFromRecordCanBeUsedAgain) {
  const UniqueLog log(KivLog_CreateWarn(kLong));
  const UniqueLog moved(KivLog_MoveConstruct(log.get()));
  const UniqueLog again(KivLog_MoveConstruct(log.get()));
  expectRecord(again.get(), 1, L"");
  const UniqueLog copied(KivLog_CopyConstruct(log.get()));
  expectRecord(copied.get(), 1, L"");
  const UniqueLog source(KivLog_CreateError(kOther));
  KivLog_Copy(source.get(), log.get());
  expectRecord(log.get(), 0, kOther);
}

TEST_F(LogTest, CreatingIsNullWithoutMemory) {
  for (const LevelCase& level : kLevels) {
    SCOPED_TRACE(level.name);
    EXPECT_EQ(expectNullWithoutMemory([&] { return UniqueLog(level.create(kLong)); }), 2U);
    EXPECT_EQ(expectNullWithoutMemory([&] { return UniqueLog(level.create(L"x")); }), 1U);
  }
}

TEST_F(LogTest, CopyConstructIsNullWithoutMemory) {
  const UniqueLog source(KivLog_CreateWarn(kLong));
  EXPECT_EQ(expectNullWithoutMemory([&] { return UniqueLog(KivLog_CopyConstruct(source.get())); }), 2U);
  expectRecord(source.get(), 1, kLong);
}

TEST_F(LogTest, MoveConstructWithoutMemoryIsNullAndLeavesTheSource) {
  const UniqueLog source(KivLog_CreateWarn(kLong));
  UniqueLog moved;
  const std::size_t allocations = forEachAllocationOf([&] { moved.reset(KivLog_MoveConstruct(source.get())); },
                                                      [&](bool failed) {
                                                        EXPECT_EQ(moved == nullptr, failed);
                                                        expectRecord(source.get(), 1, failed ? kLong : L"");
                                                      });
  EXPECT_EQ(allocations, 1U);
  expectRecord(moved.get(), 1, kLong);
}

TEST_F(LogTest, CopyWithoutMemoryLeavesTheTargetUnchanged) {
  const UniqueLog source(KivLog_CreateWarn(kLong));
  const UniqueLog target(KivLog_CreateDebug(L"kept"));
  const std::size_t allocations =
      forEachAllocationOf([&] { KivLog_Copy(source.get(), target.get()); },
                          [&](bool failed) {
                            expectRecord(target.get(), failed ? 3 : 1, failed ? L"kept" : kLong);
                            expectRecord(source.get(), 1, kLong);
                          });
  EXPECT_GE(allocations, 1U);
}

TEST_F(LogTest, MoveNeedsNoMemory) {
  const UniqueLog source(KivLog_CreateWarn(kLong));
  const UniqueLog target(KivLog_CreateDebug(kOther));
  const MemoryWatch::AllocationFailure counter(0);
  KivLog_Move(source.get(), target.get());
  EXPECT_EQ(counter.count(), 0U);
}

}  // namespace
}  // namespace kiv::test
