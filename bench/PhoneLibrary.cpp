#include "bench/PhoneLibrary.h"

#include <phonenumbers/phonenumberutil.h>

#include <atomic>
#include <string>

using i18n::phonenumbers::PhoneNumber;
using i18n::phonenumbers::PhoneNumberUtil;

// The linker sends all calls of the two operations in this program to __wrap_ and those of __real_ to the library
// (CMakeLists.txt names these symbols too).
#define INSTANCE_SYMBOL "_ZN4i18n12phonenumbers15PhoneNumberUtil11GetInstanceEv"
#define PARSE_SYMBOL                                                                                    \
  "_ZNK4i18n12phonenumbers15PhoneNumberUtil5ParseERKNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcE" \
  "EES9_PNS0_11PhoneNumberE"

namespace pellor::bench {
namespace {

std::atomic<std::uint64_t> parseCount{0}, startCount{0};

}  // namespace

PhoneNumberUtil* instance() __asm__("__real_" INSTANCE_SYMBOL);
PhoneNumberUtil* countedInstance() __asm__("__wrap_" INSTANCE_SYMBOL);
PhoneNumberUtil::ErrorType parse(const PhoneNumberUtil* library, const std::string& text, const std::string& region,
                                 PhoneNumber* number) __asm__("__real_" PARSE_SYMBOL);
PhoneNumberUtil::ErrorType countedParse(const PhoneNumberUtil* library, const std::string& text,
                                        const std::string& region, PhoneNumber* number) __asm__("__wrap_" PARSE_SYMBOL);

PhoneNumberUtil* countedInstance() {
  ++startCount;
  return instance();
}

PhoneNumberUtil::ErrorType countedParse(const PhoneNumberUtil* library, const std::string& text,
                                        const std::string& region, PhoneNumber* number) {
  ++parseCount;
  return parse(library, text, region, number);
}

PhoneLibraryUse::PhoneLibraryUse() : _parsesBefore(parseCount), _startsBefore(startCount) {}

std::uint64_t PhoneLibraryUse::parses() const { return parseCount - _parsesBefore; }

std::uint64_t PhoneLibraryUse::starts() const { return startCount - _startsBefore; }

}  // namespace pellor::bench
