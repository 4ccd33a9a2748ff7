// The security packages: handshakes as NTLM has them, or as the script says, and what the library gave to them.
#include <algorithm>
#include <cstring>
#include <cwchar>

#include "platform/simulated_state.h"

namespace kiv::test {
namespace {

constexpr std::string_view kSignature("NTLMSSP\0", 8);
constexpr std::size_t kNonceAt = 24;
constexpr std::size_t kNonceSize = 8;

enum class Message : char { Negotiate = 1, Challenge = 2, Authenticate = 3 };

std::string message(Message type, std::string_view rest) {
  std::string text(kSignature);
  text.append(1, static_cast<char>(type)).append(3, '\0');
  return text.append(rest);
}

bool isMessage(std::string_view text, Message type) {
  return text.starts_with(kSignature) && text.size() >= 12 && text[8] == static_cast<char>(type);
}

// A fault that is no security status becomes one.
SECURITY_STATUS fail(Entry& call, DWORD code) {
  if (static_cast<LONG>(code) >= 0) code |= 0x80070000U;
  return call.failWith<SECURITY_STATUS>(code);
}

SECURITY_STATUS fail(Entry& call, SECURITY_STATUS status) { return fail(call, static_cast<DWORD>(status)); }

void* toHandle(const SecHandle* handle) {
  const bool isValid = handle && (handle->dwLower != static_cast<ULONG_PTR>(-1));
  return isValid ? reinterpret_cast<void*>(static_cast<std::uintptr_t>(handle->dwLower)) : nullptr;
}

SecHandle fromHandle(void* handle) {
  SecHandle made{};
  made.dwLower = reinterpret_cast<std::uintptr_t>(handle);
  return made;
}

// The identity's texts are wide, whatever the type says.
std::wstring readText(const unsigned short* text, std::size_t length) {
  return text ? std::wstring(reinterpret_cast<const wchar_t*>(text), length) : std::wstring();
}

SecBuffer* findToken(PSecBufferDesc buffers) {
  if (!buffers || buffers->ulVersion != SECBUFFER_VERSION) return nullptr;
  for (ULONG i = 0; i < buffers->cBuffers; ++i) {
    if (buffers->pBuffers[i].BufferType == SECBUFFER_TOKEN) return &buffers->pBuffers[i];
  }
  return nullptr;
}

std::string readToken(PSecBufferDesc buffers) {
  const SecBuffer* token = findToken(buffers);
  return token && token->pvBuffer ? std::string(static_cast<const char*>(token->pvBuffer), token->cbBuffer) : "";
}

// What the packages do by themselves: open, then answer a challenge.
Leg usualLeg(const IdentityRecord& identity, std::size_t legsBefore, std::string_view input) {
  if (legsBefore == 0) return {SEC_I_CONTINUE_NEEDED, message(Message::Negotiate, "")};
  if (legsBefore > 1 || !isMessage(input, Message::Challenge) || input.size() < kNonceAt + kNonceSize) {
    return {SEC_E_INVALID_TOKEN};
  }
  return {SEC_E_OK,
          message(Message::Authenticate, std::string(input.substr(kNonceAt, kNonceSize)) + toNarrow(identity.user))};
}

// Hands the token out, in the caller's memory or in the package's; gives 0 or the error.
SECURITY_STATUS handOut(Entry& call, const std::string& token, ULONG requirements, PSecBufferDesc output) {
  SecBuffer* buffer = findToken(output);
  if (!buffer) return SEC_E_INVALID_TOKEN;
  if (requirements & ISC_REQ_ALLOCATE_MEMORY) {
    buffer->pvBuffer = call.state().newBlock(Kind::ContextBuffer, token.data(), token.size());
  } else if (!buffer->pvBuffer || buffer->cbBuffer < token.size()) {
    return SEC_E_BUFFER_TOO_SMALL;
  } else {
    std::ranges::copy(token, static_cast<char*>(buffer->pvBuffer));
  }
  buffer->cbBuffer = static_cast<ULONG>(token.size());
  return SEC_E_OK;
}

bool wantsCompletion(SECURITY_STATUS status) {
  return status == SEC_I_COMPLETE_NEEDED || status == SEC_I_COMPLETE_AND_CONTINUE;
}

// One leg of the context, which the caller has already recorded.
SECURITY_STATUS advance(Entry& call, SecurityContext& context, ULONG requirements, PSecBufferDesc input,
                        PSecBufferDesc output) {
  SecurityState& security = call.state().security;
  HandshakeRecord& record = security.handshakes[context.record];
  if (context.wantsCompletion) {
    call.state().complaints.push_back(call.name() + " was called where CompleteAuthToken was needed first");
  }
  if (context.finished) call.state().complaints.push_back(call.name() + " was called after the handshake's end");
  std::deque<Leg>& script = call.windows().security.legs;
  Leg leg;
  if (script.empty()) {
    leg = usualLeg(security.identities[record.identity], record.legs, readToken(input));
  } else {
    leg = std::move(script.front());
    script.pop_front();
  }
  ++record.legs;
  if (leg.status >= 0 && leg.token) {
    if (const SECURITY_STATUS error = handOut(call, *leg.token, requirements, output)) leg.status = error;
  } else if (SecBuffer* buffer = findToken(output)) {
    buffer->cbBuffer = 0;
  }
  record.status = leg.status;
  context.wantsCompletion = wantsCompletion(leg.status);
  context.finished = leg.status == SEC_E_OK || leg.status == SEC_I_COMPLETE_NEEDED;
  return leg.status;
}

}  // namespace

std::string ntlmChallenge(std::string_view nonce) {
  std::string rest(kNonceAt - 12, '\0');
  return message(Message::Challenge, rest.append(nonce).append(16, '\0'));
}

std::optional<NtlmAnswer> readNtlmAnswer(std::string_view token) {
  if (!isMessage(token, Message::Authenticate) || token.size() < 12 + kNonceSize) return std::nullopt;
  return NtlmAnswer{std::string(token.substr(12, kNonceSize)), toWide(token.substr(12 + kNonceSize))};
}

std::vector<IdentityRecord> SimulatedWindows::identities() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->security.identities;
}

std::vector<HandshakeRecord> SimulatedWindows::handshakes() const {
  const MemoryWatch::Pause pause;
  const std::lock_guard lock(state_->mutex);
  return state_->security.handshakes;
}

}  // namespace kiv::test

using namespace kiv::test;  // NOLINT(google-build-using-namespace): the functions below belong to the system

SECURITY_STATUS WINAPI AcquireCredentialsHandleW(SEC_WCHAR* principal, SEC_WCHAR* package, ULONG use, void* logonId,
                                                 void* authData, SEC_GET_KEY_FN getKey, void* getKeyArgument,
                                                 PCredHandle credential, PTimeStamp expiry) {
  Entry call("AcquireCredentialsHandleW");
  const auto* identity = static_cast<const SEC_WINNT_AUTH_IDENTITY_W*>(authData);
  IdentityRecord record{.package = package ? package : L"", .loggedOn = !identity};
  if (identity) {
    record.user = readText(identity->User, identity->UserLength);
    record.domain = readText(identity->Domain, identity->DomainLength);
    record.password = readText(identity->Password, identity->PasswordLength);
  } else {
    record.user = call.windows().security.loggedOnUser;
  }
  call.text(L"principal", principal).text(L"package", package).number(L"use", use);
  call.text(L"user", identity ? record.user.c_str() : nullptr);
  call.text(L"domain", identity ? record.domain.c_str() : nullptr);
  call.text(L"password", identity && identity->Password ? L"****" : L"null");
  if (logonId || getKey || getKeyArgument) call.text(L"others", L"set");
  if (call.fault()) return fail(call, *call.fault());
  if (std::ranges::count(call.windows().security.present, record.package) == 0) {
    return fail(call, SEC_E_SECPKG_NOT_FOUND);
  }
  if (identity && identity->Flags != SEC_WINNT_AUTH_IDENTITY_UNICODE) return fail(call, SEC_E_UNKNOWN_CREDENTIALS);
  if (!credential || use != SECPKG_CRED_OUTBOUND) return fail(call, SEC_E_UNSUPPORTED_FUNCTION);
  State& state = call.state();
  void* handle = state.newHandle(Kind::Credentials, "credentials handle");
  state.security.credentials[handle] = state.security.identities.size();
  state.security.identities.push_back(std::move(record));
  *credential = fromHandle(handle);
  if (expiry) *expiry = {};
  return call.succeed(SECURITY_STATUS{SEC_E_OK});
}

SECURITY_STATUS WINAPI FreeCredentialsHandle(PCredHandle credential) {
  Entry call("FreeCredentialsHandle");
  void* handle = toHandle(credential);
  call.handle(L"credentials", handle);
  State& state = call.state();
  if (!state.release(handle, Kind::Credentials, call.name())) return fail(call, SEC_E_INVALID_HANDLE);
  state.security.identities[state.security.credentials.at(handle)].released = true;
  return call.succeed(SECURITY_STATUS{SEC_E_OK});
}

SECURITY_STATUS WINAPI InitializeSecurityContextW(PCredHandle credential, PCtxtHandle context, SEC_WCHAR* targetName,
                                                  ULONG requirements, ULONG reserved1, ULONG dataRepresentation,
                                                  PSecBufferDesc input, ULONG reserved2, PCtxtHandle newContext,
                                                  PSecBufferDesc output, ULONG* attributes, PTimeStamp expiry) {
  Entry call("InitializeSecurityContextW");
  void* owner = toHandle(credential);
  void* handle = toHandle(context);
  call.handle(L"credentials", owner).handle(L"context", handle).text(L"target", targetName);
  call.flags(L"requirements", requirements).number(L"data", dataRepresentation);
  call.number(L"input", readToken(input).size());
  if (reserved1 || reserved2) call.text(L"reserved", L"set");
  if (call.fault()) return fail(call, *call.fault());
  State& state = call.state();
  if (!state.check(owner, Kind::Credentials, call.name())) return fail(call, SEC_E_INVALID_HANDLE);
  if (handle && !state.check(handle, Kind::Context, call.name())) return fail(call, SEC_E_INVALID_HANDLE);
  if (!handle && !newContext) return fail(call, SEC_E_INVALID_HANDLE);
  SecurityState& security = state.security;
  SecurityContext fresh{.record = security.handshakes.size()};
  if (!handle) {
    security.handshakes.push_back({.identity = security.credentials.at(owner),
                                   .targetName = targetName ? targetName : L"",
                                   .requirements = requirements});
  }
  SecurityContext& current = handle ? security.contexts.at(handle) : fresh;
  const SECURITY_STATUS status = advance(call, current, requirements, input, output);
  if (status < 0) return fail(call, status);
  // A first call that fails makes no context.
  if (!handle) {
    handle = state.newHandle(Kind::Context, "security context");
    security.contexts[handle] = fresh;
  }
  if (newContext) *newContext = fromHandle(handle);
  if (attributes) *attributes = requirements;
  if (expiry) *expiry = {};
  return call.succeed(status);
}

SECURITY_STATUS WINAPI CompleteAuthToken(PCtxtHandle context, PSecBufferDesc token) {
  Entry call("CompleteAuthToken");
  void* handle = toHandle(context);
  call.handle(L"context", handle);
  if (call.fault()) return fail(call, *call.fault());
  if (!call.state().check(handle, Kind::Context, call.name())) return fail(call, SEC_E_INVALID_HANDLE);
  if (!findToken(token)) return fail(call, SEC_E_INVALID_TOKEN);
  SecurityContext& completed = call.state().security.contexts.at(handle);
  if (!std::exchange(completed.wantsCompletion, false)) {
    call.state().complaints.push_back(call.name() + " was called where nothing was to be completed");
  }
  call.state().security.handshakes[completed.record].completed = true;
  return call.succeed(SECURITY_STATUS{SEC_E_OK});
}

SECURITY_STATUS WINAPI DeleteSecurityContext(PCtxtHandle context) {
  Entry call("DeleteSecurityContext");
  void* handle = toHandle(context);
  call.handle(L"context", handle);
  State& state = call.state();
  if (!state.release(handle, Kind::Context, call.name())) return fail(call, SEC_E_INVALID_HANDLE);
  state.security.handshakes[state.security.contexts.at(handle).record].released = true;
  return call.succeed(SECURITY_STATUS{SEC_E_OK});
}

SECURITY_STATUS WINAPI FreeContextBuffer(void* buffer) {
  Entry call("FreeContextBuffer");
  call.handle(L"buffer", buffer);
  if (buffer && !call.state().release(buffer, Kind::ContextBuffer, call.name())) {
    return fail(call, SEC_E_INVALID_HANDLE);
  }
  return call.succeed(SECURITY_STATUS{SEC_E_OK});
}

SECURITY_STATUS WINAPI QuerySecurityPackageInfoW(SEC_WCHAR* package, PSecPkgInfoW* info) {
  Entry call("QuerySecurityPackageInfoW");
  call.text(L"package", package);
  if (call.fault()) return fail(call, *call.fault());
  const SecurityPackages& script = call.windows().security;
  if (!package || !info || std::ranges::count(script.present, std::wstring_view(package)) == 0) {
    return fail(call, SEC_E_SECPKG_NOT_FOUND);
  }
  // One block: the structure and, behind it, the name.
  const std::size_t nameSize = (std::wcslen(package) + 1) * sizeof(wchar_t);
  const std::vector<std::byte> nothing(sizeof(SecPkgInfoW) + nameSize);
  auto* made = static_cast<PSecPkgInfoW>(call.state().newBlock(Kind::ContextBuffer, nothing.data(), nothing.size()));
  made->wVersion = 1;
  made->cbMaxToken = script.maxToken;
  made->Name = reinterpret_cast<SEC_WCHAR*>(made + 1);
  std::memcpy(made->Name, package, nameSize);
  made->Comment = made->Name;
  *info = made;
  return call.succeed(SECURITY_STATUS{SEC_E_OK});
}
