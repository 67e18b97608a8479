// ByReference: the rule for methods that write a value back through a by-reference parameter and
// also accept a constant through a const overload (CSessionKey::Encrypt's amount,
// CRSAKeyPair::Sign's hash algorithm). A variable of another type would bind to the const
// overload through a converted temporary and silently miss the write-back; such methods add a
// deleted overload for exactly those variables, so the call does not compile:
//
//   template <class T>
//   requires OtherVariable<T, int32_t, AMOUNT>
//   bool Encrypt(const Ref<CMessagetext>& i_oMsgTxt, T& io_lAmount) = delete;
//
// Constants and temporaries of any type still reach the const overload (they are only read).
#ifndef QUIV_AUTOMATION_BYREFERENCE_H
#define QUIV_AUTOMATION_BYREFERENCE_H

#include <concepts>
#include <type_traits>

namespace quiv {

// A modifiable variable of type T, T being none of the types the value is written back into.
template <class T, class... Written>
concept OtherVariable = !std::is_const_v<T> && (!std::same_as<T, Written> && ...);

}  // namespace quiv

#endif
