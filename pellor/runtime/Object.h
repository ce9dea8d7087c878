// The common base of what can be the object of a notification.
#pragma once

namespace pellor {

class Object {
 public:
  virtual ~Object() = default;
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

 protected:
  Object() = default;
};

}  // namespace pellor
