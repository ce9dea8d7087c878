// How the library posts its notifications.
#pragma once

#include <any>
#include <memory>
#include <string>
#include <string_view>

#include "pellor/runtime/Process.h"

namespace pellor {

/// Posts on the main queue of `process`, after the call, a notification whose object is `sender`, or none if that is
/// gone by then. Any thread.
inline void postOnMainQueue(Process& process, std::string_view name, std::weak_ptr<Object> sender,
                            std::any userInfo = {}) {
  process.mainQueue().async(
      [&process, name = std::string(name), sender = std::move(sender), info = std::move(userInfo)] {
        process.notificationCenter().post({name, sender.lock(), info});
      });
}

}  // namespace pellor
