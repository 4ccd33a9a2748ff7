// The C functions of log records and loggers.
#include "log/log.h"
#include "log/logger.h"

namespace {

using kiv::impl::LogLevel;
using namespace kiv::support;

KivLog* create(LogLevel level, const wchar_t* message) { return newHandle<KivLog>(level, std::wstring_view(message)); }

bool hasLevel(const KivLog* log, LogLevel level) { return log && toObject(log)->level() == level; }

void logLine(const KivLogger* logger, LogLevel level, const wchar_t* message) {
  if (logger) toObject(logger)->logForApplication(level, message);
}

}  // namespace

extern "C" {

KivLog* KivLog_CreateError(const wchar_t* message) { return create(LogLevel::Error, message); }
KivLog* KivLog_CreateWarn(const wchar_t* message) { return create(LogLevel::Warn, message); }
KivLog* KivLog_CreateInfo(const wchar_t* message) { return create(LogLevel::Info, message); }
KivLog* KivLog_CreateDebug(const wchar_t* message) { return create(LogLevel::Debug, message); }

void KivLog_Destruct(KivLog* log) { destruct(log); }
KivLog* KivLog_CopyConstruct(const KivLog* source) { return copyConstruct(source); }
KivLog* KivLog_MoveConstruct(KivLog* source) { return moveConstruct(source); }
void KivLog_Copy(const KivLog* source, KivLog* target) { copy(source, target); }
void KivLog_Move(KivLog* source, KivLog* target) { move(source, target); }

bool KivLog_IsError(const KivLog* log) { return hasLevel(log, LogLevel::Error); }
bool KivLog_IsWarn(const KivLog* log) { return hasLevel(log, LogLevel::Warn); }
bool KivLog_IsInfo(const KivLog* log) { return hasLevel(log, LogLevel::Info); }
bool KivLog_IsDebug(const KivLog* log) { return hasLevel(log, LogLevel::Debug); }
const wchar_t* KivLog_Message(const KivLog* log) { return log ? toObject(log)->message().c_str() : nullptr; }

KivLogger* KivLogger_Construct(void* context, KivLogCallback callback) {
  return newHandle<KivLogger>(context, callback);
}

void KivLogger_Destruct(KivLogger* logger) { destruct(logger); }
KivLogger* KivLogger_CopyConstruct(const KivLogger* source) { return copyConstruct(source); }
KivLogger* KivLogger_MoveConstruct(KivLogger* source) { return moveConstruct(source); }
void KivLogger_Copy(const KivLogger* source, KivLogger* target) { copy(source, target); }
void KivLogger_Move(KivLogger* source, KivLogger* target) { move(source, target); }

// Not guarded: what the application's own callback throws is the application's to catch.

void KivLogger_Error(const KivLogger* logger, const wchar_t* message) { logLine(logger, LogLevel::Error, message); }
void KivLogger_Warn(const KivLogger* logger, const wchar_t* message) { logLine(logger, LogLevel::Warn, message); }
void KivLogger_Info(const KivLogger* logger, const wchar_t* message) { logLine(logger, LogLevel::Info, message); }
void KivLogger_Debug(const KivLogger* logger, const wchar_t* message) { logLine(logger, LogLevel::Debug, message); }

}  // extern "C"
