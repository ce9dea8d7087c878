// Values that are made of stored ones.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "pellor/platform/PreferencesStore.h"

namespace pellor {

struct WrittenValues {
  PreferenceWriteOutcome outcome = PreferenceWriteOutcome::failed;
  Dictionary values;              ///< when they were written: what is stored, or was, when it was found to be written
  std::set<std::string> changed;  ///< those keys of them that the write changed
};

/// Reads the keys and writes what `make` makes of their values, all of it or nothing and only over what was read; keys
/// that keep their values are not written. A write of this id that is stored already, because its writer was not told
/// or ended before it could remember, is not made a second time. `overtaken` and `unknown` are for another try. Any
/// thread.
WrittenValues writeValues(PreferencesStore& store, const std::string& domain, const std::set<std::string>& keys,
                          PreferenceWriteID id, const std::function<Dictionary(const Dictionary& stored)>& make);

}  // namespace pellor
