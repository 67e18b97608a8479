// Object: the base of every automation object. Objects are shared through Ref<T> (Ref.h) and
// live as long as a reference does; Object derives from enable_shared_from_this so a member
// function can hand out a reference to its own object (RefTo(this)).
#ifndef QUIV_AUTOMATION_OBJECT_H
#define QUIV_AUTOMATION_OBJECT_H

#include <memory>

#include "automation/String.h"
#include "platform/QuivExport.h"

namespace quiv {

class QUIV_API Object : public std::enable_shared_from_this<Object> {
 public:
  Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  virtual ~Object();

  // The class name as the run time's TypeName gives it, e.g. "CProvider". (On the error record,
  // ClassName() is the record's field, the class named by the failure's source.)
  virtual String TypeName() const;
};

}  // namespace quiv

#endif
