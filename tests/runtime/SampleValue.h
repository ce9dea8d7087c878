// A value with all kinds of values in it, as lists hold them.
#pragma once

#include "pellor/runtime/Value.h"

namespace pellor {

inline Value sample() {
  return Array{Dictionary{},
               Dictionary{{"Name", "J\xC3\xBCrgen"},
                          {"ABRecordID", -1},
                          {"AllValues", Array{"+4930123456", "a@b.example"}},
                          {"Metadata", Dictionary{{"seen", Date{700000000.25}}, {"photo", Data(300, 7)}, {"on", true}}},
                          {"weight", 0.5}}};
}

}  // namespace pellor
