#include "automation/Variant.h"

#include <type_traits>

#include "automation/RunTime.h"

namespace quiv {
namespace {

constexpr int16_t kTrue = -1;

}  // namespace

Variant::Variant(Ref<Object> object) {
  if (object.IsNothing()) {
    m_value = NothingValue{};
  } else {
    m_value = std::move(object);
  }
}

bool Variant::IsNumber() const {
  const Kind kind = GetKind();
  return kind == Kind::Integer || kind == Kind::Long || kind == Kind::Double;
}

double Variant::ToDouble() const {
  switch (GetKind()) {
    case Kind::Empty:
      return 0;
    case Kind::Integer:
      return std::get<int16_t>(m_value);
    case Kind::Long:
      return std::get<int32_t>(m_value);
    case Kind::Double:
      return std::get<double>(m_value);
    case Kind::Boolean:
      return std::get<bool>(m_value) ? kTrue : 0;
    case Kind::String:
      return CDbl(std::get<String>(m_value));
    default:
      RaiseRuntime(kErrTypeMismatch);
  }
}

int16_t Variant::ToInteger() const {
  return CInt(ToDouble());
}

int32_t Variant::ToLong() const {
  return CLng(ToDouble());
}

bool Variant::ToBoolean() const {
  if (GetKind() == Kind::Boolean) return std::get<bool>(m_value);
  if (GetKind() == Kind::String) {
    const String& text = std::get<String>(m_value);
    if (text.Trim().EqualsText(u"True")) return true;
    if (text.Trim().EqualsText(u"False")) return false;
  }
  return ToDouble() != 0;
}

ByteArray Variant::ToByteArray() const {
  if (GetKind() == Kind::ByteArray) return std::get<ByteArray>(m_value);
  if (GetKind() == Kind::String) return ByteArray::FromString(std::get<String>(m_value));
  RaiseRuntime(kErrTypeMismatch);
}

Ref<Object> Variant::ToObject() const {
  if (GetKind() == Kind::Nothing) return Ref<Object>();
  if (GetKind() == Kind::Object) return std::get<Ref<Object>>(m_value);
  RaiseRuntime(kErrTypeMismatch);
}

String Variant::TextForm() const {
  switch (GetKind()) {
    case Kind::Empty:
      return String();
    case Kind::Integer:
      return String::FromInt(std::get<int16_t>(m_value));
    case Kind::Long:
      return String::FromInt(std::get<int32_t>(m_value));
    case Kind::Double:
      return String::FromDouble(std::get<double>(m_value));
    case Kind::Boolean:
      return std::get<bool>(m_value) ? u"True" : u"False";
    case Kind::String:
      return std::get<String>(m_value);
    case Kind::ByteArray:
      return std::get<ByteArray>(m_value).ToString();
    default:
      RaiseRuntime(kErrTypeMismatch);
  }
}

bool operator==(const Variant& lhs, const Variant& rhs) {
  if (lhs.IsNumber() && rhs.IsNumber()) return lhs.ToDouble() == rhs.ToDouble();
  return lhs.m_value == rhs.m_value;
}

}  // namespace quiv
