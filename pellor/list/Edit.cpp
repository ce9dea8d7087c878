#include "pellor/list/Edit.h"

namespace pellor {

std::string_view textOf(RefusalReason reason) {
  switch (reason) {
    case RefusalReason::noRoom:
      return "there is no room";
    case RefusalReason::isFriend:
      return "is a friend already";
    case RefusalReason::noDestination:
      return "there is no such number or address";
    case RefusalReason::notFound:
      return "is not there";
    case RefusalReason::noSuchPlace:
      return "there is no such place, or it is taken";
    case RefusalReason::contactsNotReadable:
      return "the contacts cannot be read";
    case RefusalReason::storeNotReadable:
      return "the friend list cannot be read";
    case RefusalReason::storeNotWritable:
      return "the friend list cannot be written";
    case RefusalReason::overtaken:
      return "another program changed it first";
    case RefusalReason::notUndoable:
      return "it cannot be taken back";
    case RefusalReason::abandoned:
      return "the program ended before it was stored";
    case RefusalReason::isTwice:
      return "is there twice";
    case RefusalReason::pageTooSmall:
      return "a page has too few slots for it";
    case RefusalReason::tooManyPages:
      return "the list may not have so many pages";
    case RefusalReason::addsNoPages:
      return "the list makes no pages by itself";
  }
  return "";
}

}  // namespace pellor
