#include "automation/Object.h"

namespace quiv {

Object::~Object() = default;

String Object::ClassName() const {
  return u"Object";
}

}  // namespace quiv
