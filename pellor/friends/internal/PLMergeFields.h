// The fields of a friend, as a three-way merge compares and merges them.
#pragma once

#include <string>
#include <string_view>

#include "pellor/runtime/Value.h"

namespace pellor {

// All of them take forms as a person writes them. A block is what follows the contact: record and database identifiers,
// name, destinations, monogram.

std::string_view identifyingGUID(const Dictionary& form);
/// The name; empty also when there is none.
std::string_view nameOf(const Dictionary& form);
bool haveSameBlock(const Dictionary& one, const Dictionary& other);
/// The block's entries alone.
Dictionary blockOfForm(const Dictionary& form);
/// Equal for equal blocks.
std::string keyOfBlock(const Dictionary& form);
bool haveSameName(const Dictionary& one, const Dictionary& other);
bool haveCommonDestination(const Dictionary& one, const Dictionary& other);
/// Whether both have equal destinations, and any.
bool haveSameDestinations(const Dictionary& one, const Dictionary& other);

struct PLMergedForm {
  Dictionary form;
  bool bothChangedBlock = false;  ///< and differently: the form has theirs
};

/// `theirs`, as it is stored, with what `ours` changed of `base`. A block that both changed is theirs; every other
/// field that both changed is ours. `base` and `theirsAsWritten` are in the form in which a person writes them; an
/// empty base stands for a friend that both sides added.
PLMergedForm mergeForms(const Dictionary& base, const Dictionary& theirsAsWritten, const Dictionary& theirs,
                        const Dictionary& ours);

}  // namespace pellor
