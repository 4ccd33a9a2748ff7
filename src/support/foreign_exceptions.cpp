// What an exception of another compiler looks like, and what is done with it. For GCC on Windows alone: Visual C++'s
// own frames stop and clean up after its exceptions.
#include "support/foreign_exceptions.h"

#include <cstdint>

#include "support/platform.h"

namespace {

// How Visual C++'s run-time raises a C++ exception: under one code, with a number that names the layout of the rest,
// the object, its description, and the module's base, to which the addresses in the description are relative. The
// numbers of the layout are those that its frames accept (EH_MAGIC_NUMBER1 to 3 of its ehdata.h). `throw;` carries no
// object.
constexpr DWORD kVisualCThrow = 0xE06D7363;
constexpr ULONG_PTR kFirstLayout = 0x19930520;
constexpr ULONG_PTR kLastLayout = 0x19930522;
enum Parameter : std::uint8_t { Layout, ThrownObject, Description, ModuleBase, ParameterCount };

struct ThrowDescription {
  std::uint32_t attributes;
  std::uint32_t destructor;  // 0 if destroying the object does nothing
};

void destroyThrownObject(const EXCEPTION_RECORD& record) {
  if (record.NumberParameters != ParameterCount) return;
  const auto& parameters = record.ExceptionInformation;
  if (parameters[Layout] < kFirstLayout || parameters[Layout] > kLastLayout) return;
  auto* const object = reinterpret_cast<void*>(parameters[ThrownObject]);
  const auto* const description = reinterpret_cast<const ThrowDescription*>(parameters[Description]);
  if (!object || !description || !description->destructor) return;
  reinterpret_cast<void (*)(void*)>(parameters[ModuleBase] + description->destructor)(object);
}

}  // namespace

// Asked by the system for each exception that leaves the guarded call (see foreign_exceptions.S), before any frame is
// unwound. The object is destroyed here, since it lives in the frames that are about to go.
extern "C" LONG kivFilterForeign(const EXCEPTION_POINTERS* exception, void* /*frame*/) {
  if (exception->ExceptionRecord->ExceptionCode != kVisualCThrow) return EXCEPTION_CONTINUE_SEARCH;
  destroyThrownObject(*exception->ExceptionRecord);
  return EXCEPTION_EXECUTE_HANDLER;
}

extern "C" bool kivCallStoppingForeign(void (*call)(void*), void* argument);

bool kiv::support::detail::stopForeignExceptions(void (*call)(void*), void* argument) {
  return kivCallStoppingForeign(call, argument);
}
