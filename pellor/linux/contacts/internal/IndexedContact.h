// A contact as the index gives it.
#pragma once

#include <cstdint>
#include <string>

#include "pellor/linux/contacts/internal/EVCardContact.h"

namespace pellor {

struct IndexedContact {
  std::int32_t recordID = 0;
  std::string guid;
  std::int32_t linkID = -1;  ///< the lowest record identifier of the linked set; -1 when it is linked with none
  ContactCard card;          ///< without its UID
};

}  // namespace pellor
