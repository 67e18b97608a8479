// CallFrame: the arguments of one Invoke after coercion to the parameters' types, and the
// result. A table's invoker reads and writes the argument slots as lvalues of the C++ types the
// member takes (String&, int32_t&, ...), so what a by-reference member writes back stays in the
// slot, from where Invoke copies it to the caller's by-reference argument.
#ifndef QUIV_SERVER_CALLFRAME_H
#define QUIV_SERVER_CALLFRAME_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <variant>

#include "automation/ByteArray.h"
#include "automation/Object.h"
#include "automation/Ref.h"
#include "automation/String.h"
#include "automation/Variant.h"

namespace quiv::server {

class CallFrame {
 public:
  using Slot = std::variant<std::monostate, int16_t, int32_t, double, bool, String, ByteArray,
                            Variant, Ref<Object>>;
  // No member of the library takes more.
  static constexpr size_t kMaxParams = 8;

  Slot& At(size_t index) { return m_slots[index]; }
  const Slot& At(size_t index) const { return m_slots[index]; }

  int16_t& Int(size_t i) { return std::get<int16_t>(m_slots[i]); }
  int32_t& Long(size_t i) { return std::get<int32_t>(m_slots[i]); }
  double& Dbl(size_t i) { return std::get<double>(m_slots[i]); }
  bool& Bool(size_t i) { return std::get<bool>(m_slots[i]); }
  String& Str(size_t i) { return std::get<String>(m_slots[i]); }
  ByteArray& Bytes(size_t i) { return std::get<ByteArray>(m_slots[i]); }
  Variant& Var(size_t i) { return std::get<Variant>(m_slots[i]); }
  Ref<Object>& Obj(size_t i) { return std::get<Ref<Object>>(m_slots[i]); }
  // The object argument as the class the parameter names (Invoke has checked it); Nothing
  // when the caller passed Nothing.
  template <class T>
  Ref<T> ObjAs(size_t i) {
    return Obj(i).As<T>();
  }
  // Stores an object an invoker hands back through a by-reference parameter.
  template <class T>
  void SetObj(size_t i, const Ref<T>& object) {
    Obj(i) = Ref<Object>(object);
  }

  void Return(bool value) { m_result = value; }
  void Return(int16_t value) { m_result = value; }
  void Return(int32_t value) { m_result = value; }
  void Return(double value) { m_result = value; }
  void Return(String value) { m_result = std::move(value); }
  void Return(ByteArray value) { m_result = std::move(value); }
  void Return(Variant value) { m_result = std::move(value); }
  template <class T>
  void Return(const Ref<T>& object) {
    m_result = Ref<Object>(object);
  }
  Slot& Result() { return m_result; }

  // The dispatch id being invoked (for tables whose members share one invoker).
  int32_t DispId() const { return m_dispId; }
  void SetDispId(int32_t dispId) { m_dispId = dispId; }

 private:
  std::array<Slot, kMaxParams> m_slots;
  Slot m_result;
  int32_t m_dispId = 0;
};

// The table's object as the class it belongs to. The dispatch object was made for exactly this
// class, so the cast cannot fail.
template <class T>
T& Self(Object& self) {
  return static_cast<T&>(self);
}

}  // namespace quiv::server

#endif
