# The libraries behind the Linux platform. Used by the build and, installed, by find_package(pellor).
find_package(PkgConfig REQUIRED)
pkg_check_modules(PELLOR_SQLITE REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(PELLOR_ICU REQUIRED IMPORTED_TARGET icu-i18n icu-uc)
pkg_check_modules(PELLOR_NETTLE REQUIRED IMPORTED_TARGET nettle)
pkg_check_modules(PELLOR_PROMETHEUS REQUIRED IMPORTED_TARGET prometheus-cpp-core)

# libphonenumber comes without a pkg-config file. Its numbers are protocol buffers, whose code its headers hold in part.
pkg_check_modules(PELLOR_PROTOBUF REQUIRED IMPORTED_TARGET protobuf)
if(NOT TARGET Pellor::phonenumber)
  find_path(PELLOR_PHONENUMBER_INCLUDE phonenumbers/phonenumberutil.h REQUIRED)
  find_library(PELLOR_PHONENUMBER_LIBRARY phonenumber REQUIRED)
  add_library(Pellor::phonenumber UNKNOWN IMPORTED)
  set_target_properties(Pellor::phonenumber PROPERTIES
    IMPORTED_LOCATION ${PELLOR_PHONENUMBER_LIBRARY}
    INTERFACE_INCLUDE_DIRECTORIES ${PELLOR_PHONENUMBER_INCLUDE}
    INTERFACE_LINK_LIBRARIES PkgConfig::PELLOR_PROTOBUF)
endif()
