// The C functions of credentials and protected strings.
#include "config/cred.h"
#include "config/secure_string.h"

namespace {

using kiv::impl::Cred;
using kiv::impl::SecureString;
using kiv::impl::take;
using namespace kiv::support;

}  // namespace

extern "C" {

KivCred* KivCred_Create(const wchar_t* username, const wchar_t* password) {
  if (!username || !password) return KivCred_None();
  return guarded<KivCred*>(nullptr, [&] { return newHandle<KivCred>(Cred::create(username, password)); });
}

KivCred* KivCred_None() { return newHandle<KivCred>(); }

bool KivCred_IsNone(const KivCred* cred) { return !cred || !toObject(cred)->has_value(); }

const wchar_t* KivCred_Username(const KivCred* cred) {
  return KivCred_IsNone(cred) ? nullptr : (*toObject(cred))->username().c_str();
}

KivSecStr* KivCred_Password(const KivCred* cred) {
  if (!cred) return nullptr;
  return guarded<KivSecStr*>(nullptr, [&] {
    const std::optional<Cred>& value = *toObject(cred);
    return newHandle<KivSecStr>(value ? value->password() : SecureString());
  });
}

KivCred* KivCred_CopyConstruct(const KivCred* source) { return copyConstruct(source); }

KivCred* KivCred_MoveConstruct(KivCred* source) {
  KivCred* moved = source ? KivCred_None() : nullptr;
  KivCred_Move(source, moved);
  return moved;
}

void KivCred_Copy(const KivCred* source, KivCred* target) { copy(source, target); }

void KivCred_Move(KivCred* source, KivCred* target) {
  if (source && target) *toObject(target) = take(*toObject(source));
}

void KivCred_Destruct(KivCred* cred) { destruct(cred); }

const wchar_t* KivSecStr_CStr(const KivSecStr* text) { return text ? toObject(text)->c_str() : nullptr; }

uint32_t KivSecStr_Size(const KivSecStr* text) { return text ? static_cast<uint32_t>(toObject(text)->size()) : 0; }

KivSecStr* KivSecStr_MoveConstruct(KivSecStr* source) { return moveConstruct(source); }
void KivSecStr_Destruct(KivSecStr* text) { destruct(text); }

}  // extern "C"
