// Ref<T>: a counted reference to an automation object, the library's object variable. Copies
// share the object; it is destroyed when the last Ref goes. There is no cycle collection: two
// objects that refer to each other stay alive until one of the references is set to Nothing,
// as with the original platform's reference counting.
//
// A default Ref, or one assigned `Nothing`, refers to no object (IsNothing()). Using the
// object through a Nothing reference (-> or *) raises run-time error 91, as the run time does.
// Make objects with MakeRef<T>(args...); downcast with As<U>() (Nothing if not a U).
#ifndef QUIV_AUTOMATION_REF_H
#define QUIV_AUTOMATION_REF_H

#include <concepts>
#include <cstddef>
#include <memory>
#include <utility>

#include "automation/Object.h"
#include "automation/RunTime.h"

namespace quiv {

struct NothingType {
  explicit constexpr NothingType(int /*tag*/) {}
};
inline constexpr NothingType Nothing{0};

template <class T>
class Ref {
 public:
  Ref() = default;
  Ref(NothingType) {}     // NOLINT: `Ref<T> r = Nothing;` reads as the run time does
  Ref(std::nullptr_t) {}  // NOLINT
  explicit Ref(std::shared_ptr<T> object) : m_object(std::move(object)) {}
  template <class U>
  requires std::convertible_to<U*, T*> Ref(const Ref<U>& other)
      : m_object(other.shared()) {}  // NOLINT: upcast like the run time
  template <class U>
  requires std::convertible_to<U*, T*> Ref(Ref<U>&& other)
      : m_object(std::move(other).shared()) {}  // NOLINT

  bool IsNothing() const { return m_object == nullptr; }
  explicit operator bool() const { return m_object != nullptr; }
  void SetNothing() { m_object.reset(); }

  // The object; raises run-time error 91 on a Nothing reference.
  T* operator->() const { return &Checked(); }
  T& operator*() const { return Checked(); }
  T* get() const { return m_object.get(); }
  const std::shared_ptr<T>& shared() const& { return m_object; }
  std::shared_ptr<T> shared() && { return std::move(m_object); }
  // How many Refs share the object (0 for Nothing); for tests and diagnostics.
  long UseCount() const { return m_object.use_count(); }

  // The same object as a U, or Nothing when it is not one.
  template <class U>
  Ref<U> As() const {
    return Ref<U>(std::dynamic_pointer_cast<U>(m_object));
  }

  // Identity, as the run time's `Is`.
  template <class U>
  friend bool operator==(const Ref<T>& lhs, const Ref<U>& rhs) {
    return static_cast<const void*>(lhs.get()) == static_cast<const void*>(rhs.get());
  }
  friend bool operator==(const Ref<T>& lhs, NothingType) { return lhs.IsNothing(); }

 private:
  T& Checked() const {
    if (!m_object) RaiseRuntime(kErrObjectNotSet);
    return *m_object;
  }

  std::shared_ptr<T> m_object;
};

template <class T, class... Args>
Ref<T> MakeRef(Args&&... args) {
  return Ref<T>(std::make_shared<T>(std::forward<Args>(args)...));
}

// A reference to an object that is already shared (e.g. `this` inside a member function).
// The object must be owned by a Ref; otherwise std::bad_weak_ptr is thrown.
template <class T>
requires std::derived_from<T, Object> Ref<T> RefTo(T* object) {
  if (object == nullptr) return Ref<T>();
  return Ref<T>(std::static_pointer_cast<T>(object->shared_from_this()));
}

}  // namespace quiv

#endif
