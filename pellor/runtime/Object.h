// The common base of all classes whose objects notifications can be about.
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
