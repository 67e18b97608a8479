#include "automation/Object.h"

namespace quiv {

Object::~Object() = default;

String Object::TypeName() const {
  return u"Object";
}

}  // namespace quiv
