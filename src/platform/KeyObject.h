// KeyObject: what a key handle (HCRYPTKEY) refers to. It owns the key itself, a session key or
// an RSA key (pair or public key), and names the context handle it was made under, so that the
// key can be refused once that context is released (CryptoAPI fails such calls with
// ERROR_INVALID_PARAMETER rather than crashing).
//
// Ownership: a KeyObject owns its key; the handle table owns the KeyObject. The owning context
// is referred to by handle only (never by pointer), so a released context cannot dangle.
#ifndef QUIV_PLATFORM_KEYOBJECT_H
#define QUIV_PLATFORM_KEYOBJECT_H

#include <memory>
#include <variant>

#include "platform/KeyBlob.h"
#include "platform/wincrypt.h"

namespace quiv::platform {

class RsaKey;
class SymmetricKey;

// The key itself: exactly one alternative, never null once stored in a handle.
using KeyVariant = std::variant<std::unique_ptr<SymmetricKey>, std::unique_ptr<RsaKey>>;

class KeyObject final {
 public:
  KeyObject(HCRYPTPROV owner, std::unique_ptr<SymmetricKey> key);
  KeyObject(HCRYPTPROV owner, std::unique_ptr<RsaKey> key);
  ~KeyObject();
  KeyObject(const KeyObject&) = delete;
  KeyObject& operator=(const KeyObject&) = delete;

  HCRYPTPROV owner() const { return m_owner; }

  // Null when the key is of the other kind.
  SymmetricKey* symmetric() const;
  RsaKey* rsa() const;
  // The pair of pointers KeyBlob takes.
  KeyRef ref() const { return KeyRef{symmetric(), rsa()}; }

  // CryptDuplicateKey: a new object with an independent copy of the key (its whole state),
  // under the same context. throws what the key's Clone throws.
  std::unique_ptr<KeyObject> Clone() const;

 private:
  HCRYPTPROV m_owner;
  KeyVariant m_key;
};

}  // namespace quiv::platform

#endif
