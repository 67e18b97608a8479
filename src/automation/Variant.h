// Variant: the automation world's dynamically typed value: Empty, Nothing (an object variable
// referring to no object), Integer (16-bit), Long (32-bit), Double, Boolean (True is -1 when
// seen as a number), String, ByteArray (a byte array), or an object reference.
//
// A Variant owns its value; an object is held through a counted Ref. The To... accessors
// convert as the run time does and raise run-time error 13 ("Type mismatch") for a value that
// cannot be converted, 6 ("Overflow") for a number that does not fit.
#ifndef QUIV_AUTOMATION_VARIANT_H
#define QUIV_AUTOMATION_VARIANT_H

#include <cstdint>
#include <variant>

#include "automation/ByteArray.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API Variant final {
 public:
  enum class Kind { Empty, Nothing, Integer, Long, Double, Boolean, String, ByteArray, Object };

  Variant() = default;
  Variant(NothingType) : m_value(NothingValue{}) {}           // NOLINT
  Variant(int16_t value) : m_value(value) {}                  // NOLINT
  Variant(int32_t value) : m_value(value) {}                  // NOLINT
  Variant(double value) : m_value(value) {}                   // NOLINT
  Variant(bool value) : m_value(value) {}                     // NOLINT
  Variant(String value) : m_value(std::move(value)) {}        // NOLINT
  Variant(const char16_t* value) : m_value(String(value)) {}  // NOLINT
  // Narrow text would otherwise decay to a pointer and become a Boolean True: say which form.
  Variant(const char* value) = delete;
  Variant(const void* value) = delete;
  Variant(ByteArray value) : m_value(std::move(value)) {}  // NOLINT
  // A Nothing reference gives a Variant of kind Nothing.
  template <class T>
  Variant(const Ref<T>& object) : Variant(Ref<Object>(object)) {}  // NOLINT
  Variant(Ref<Object> object);                                     // NOLINT

  Kind GetKind() const { return static_cast<Kind>(m_value.index()); }
  bool IsEmpty() const { return GetKind() == Kind::Empty; }
  bool IsNothing() const { return GetKind() == Kind::Nothing; }
  bool IsObject() const { return GetKind() == Kind::Object; }
  // Integer, Long or Double.
  bool IsNumber() const;

  // Numbers: Integer, Long, Double, Boolean (-1/0), Empty (0) and numeric text convert.
  int16_t ToInteger() const;
  int32_t ToLong() const;
  double ToDouble() const;
  // Numbers are True when non-zero; text "True"/"False" (any case) or numeric text convert.
  bool ToBoolean() const;
  // The bytes of a ByteArray, or the bytes of the text form of a String.
  ByteArray ToByteArray() const;
  // The object (Nothing for kind Nothing); raises 13 for any other kind.
  Ref<Object> ToObject() const;

  // The text form: numbers in decimal (the run time's CStr), booleans "True"/"False", strings
  // as they are, byte arrays as their bytes read as a String (so a one-byte array gives "" and
  // two bytes one character), Empty "". Nothing and objects raise 13.
  String TextForm() const;

  // Same kind and same value; Integer, Long and Double compare by numeric value. Objects
  // compare by identity.
  friend bool operator==(const Variant& lhs, const Variant& rhs);

 private:
  struct NothingValue {
    bool operator==(const NothingValue&) const = default;
  };
  // Order matches Kind.
  std::variant<std::monostate, NothingValue, int16_t, int32_t, double, bool, String, ByteArray,
               Ref<Object>>
      m_value;
};

// The operators declared as friends above, exported from libquiv with the class.
QUIV_API bool operator==(const Variant& lhs, const Variant& rhs);

}  // namespace quiv

#endif
