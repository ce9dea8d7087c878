# Adapters for services that a user may have: each an option, a library of its own, built where its libraries are found.
#
#   pellor_adapter(SDBUS sdbus "the session bus" libsystemd)
#
# makes the option PELLOR_SDBUS (AUTO: built if its pkg-config modules are found; ON: they have to be; OFF; empty: what
# PELLOR_ADAPTERS says, also when that is changed later), finds them as
# PkgConfig::PELLOR_SDBUS_PACKAGES, and adds pellor/linux/sdbus, which makes the library pellor_sdbus. PELLOR_BUILT_ADAPTERS lists
# the folders of those that are built.
set(PELLOR_ADAPTERS AUTO CACHE STRING "Which adapters are built unless their own options say: AUTO, ON, OFF")
set(PELLOR_BUILT_ADAPTERS "")
# What a user of the installed libraries has to find: lines for the package.
set(PELLOR_ADAPTER_REQUIREMENTS "")

macro(pellor_adapter NAME folder description)
  set(PELLOR_${NAME} "" CACHE STRING "Build the adapter for ${description}: AUTO, ON, OFF; empty: as PELLOR_ADAPTERS")
  set(adapter_choice "${PELLOR_${NAME}}")
  if(adapter_choice STREQUAL "")
    set(adapter_choice ${PELLOR_ADAPTERS})
  endif()
  set(PELLOR_${NAME}_PACKAGES_FOUND FALSE)
  if(adapter_choice STREQUAL "AUTO")
    pkg_check_modules(PELLOR_${NAME}_PACKAGES QUIET IMPORTED_TARGET ${ARGN})
  elseif(adapter_choice)
    pkg_check_modules(PELLOR_${NAME}_PACKAGES REQUIRED IMPORTED_TARGET ${ARGN})
  endif()
  if(PELLOR_${NAME}_PACKAGES_FOUND)
    list(APPEND PELLOR_BUILT_ADAPTERS ${folder})
    string(APPEND PELLOR_ADAPTER_REQUIREMENTS
      "pkg_check_modules(PELLOR_${NAME}_PACKAGES REQUIRED IMPORTED_TARGET ${ARGN})\n")
    add_subdirectory(pellor/linux/${folder})
  else()
    message(STATUS "Without the adapter for ${description}")
  endif()
endmacro()
