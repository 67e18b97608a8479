#include "platform/KeyObject.h"

#include "platform/RsaKey.h"
#include "platform/SymmetricKey.h"

namespace quiv::platform {

KeyObject::KeyObject(HCRYPTPROV owner, std::unique_ptr<SymmetricKey> key)
    : m_owner(owner), m_key(std::move(key)) {}

KeyObject::KeyObject(HCRYPTPROV owner, std::unique_ptr<RsaKey> key)
    : m_owner(owner), m_key(std::move(key)) {}

KeyObject::~KeyObject() = default;

SymmetricKey* KeyObject::symmetric() const {
  const auto* key = std::get_if<std::unique_ptr<SymmetricKey>>(&m_key);
  return key != nullptr ? key->get() : nullptr;
}

RsaKey* KeyObject::rsa() const {
  const auto* key = std::get_if<std::unique_ptr<RsaKey>>(&m_key);
  return key != nullptr ? key->get() : nullptr;
}

std::unique_ptr<KeyObject> KeyObject::Clone() const {
  if (const SymmetricKey* key = symmetric()) {
    return std::make_unique<KeyObject>(m_owner, key->Clone());
  }
  return std::make_unique<KeyObject>(m_owner, rsa()->Clone());
}

}  // namespace quiv::platform
