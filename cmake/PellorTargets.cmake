# How the targets of this project are made. Each folder lists its own files:
#
#   target_sources(pellor_runtime PRIVATE Value.cpp)                   what is compiled
#   pellor_public_headers(pellor_runtime Value.h)                      what is installed

find_package(Threads REQUIRED)

# Whether the compiler takes the options of GCC. MSVC is also set for a clang that takes those of MSVC; a compiler that
# is not known here gets no option of its own.
set(PELLOR_GNU_OPTIONS OFF)
if(CMAKE_CXX_COMPILER_ID MATCHES "^(GNU|Clang|AppleClang)$" AND NOT MSVC)
  set(PELLOR_GNU_OPTIONS ON)
endif()

# Our own warnings. Linked privately and for the build alone, so that nobody inherits them.
add_library(pellor_warnings INTERFACE)
if(PROJECT_IS_TOP_LEVEL AND PELLOR_GNU_OPTIONS)
  target_compile_options(pellor_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast
    -Woverloaded-virtual -Wcast-align -Wimplicit-fallthrough -Wextra-semi
    # GCC 12 reports overlaps inside std::string that are none.
    $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond -Wlogical-op -Wno-restrict>
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety>
    $<$<BOOL:${PELLOR_WARNINGS_AS_ERRORS}>:-Werror>)
elseif(PROJECT_IS_TOP_LEVEL AND MSVC)
  target_compile_options(pellor_warnings INTERFACE /W4 $<$<BOOL:${PELLOR_WARNINGS_AS_ERRORS}>:/WX>)
endif()

# What makes a fault in a program of ours harder to use, in what users run: checks of stack and buffers, tables that are
# read-only once they are filled, a program that lies anywhere in memory, and nobody's folders in its texts.
add_library(pellor_hardening INTERFACE)
if(PROJECT_IS_TOP_LEVEL AND PELLOR_GNU_OPTIONS)
  set(PELLOR_FORTIFY_LEVEL 2)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
    set(PELLOR_FORTIFY_LEVEL 3)
  endif()
  # Without the level that a distribution may set.
  set(PELLOR_HARDENED -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=${PELLOR_FORTIFY_LEVEL}
      -ffile-prefix-map=${PROJECT_BINARY_DIR}=. -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  target_compile_options(pellor_hardening INTERFACE "$<$<CONFIG:Release,RelWithDebInfo>:${PELLOR_HARDENED}>")
  target_link_options(pellor_hardening INTERFACE
    "$<$<AND:$<PLATFORM_ID:Linux>,$<CONFIG:Release,RelWithDebInfo>>:LINKER:-z,relro,-z,now>")
endif()

# What every compiled target of ours has in common.
function(pellor_compile_settings target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:pellor_warnings> $<BUILD_INTERFACE:pellor_hardening>)
endfunction()

# Optimising what header-only libraries bring takes the compiler longer than all else, and tests gain nothing by it.
# Other compilers do not optimise in debug builds anyway.
function(pellor_no_optimisation_in_debug target)
  if(PELLOR_GNU_OPTIONS)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Debug>:-O0>)
  endif()
endfunction()

# pellor_compile_together(<target>): each PELLOR_COMPILE_TOGETHER sources that follow each other in a folder's list become
# one, so that what they include is read once. Not so a source with options of its own, one with SKIP_UNITY_BUILD_INCLUSION, and a target with UNITY_BUILD
# OFF. To be called when the target has all its sources.
function(pellor_compile_together target)
  get_target_property(is_wanted ${target} UNITY_BUILD)
  if(is_wanted STREQUAL "OFF")
    return()
  endif()
  set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  # That a class with members of an anonymous namespace is one source's alone cannot be seen here.
  target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
  get_target_property(sources ${target} SOURCES)
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  foreach(source IN LISTS sources)
    string(REGEX MATCH "^[a-z]+/" folder ${source})
    string(REPLACE "/" "" folder "all${folder}")
    list(APPEND sources_of_${folder} ${source})
    list(LENGTH sources_of_${folder} number)
    math(EXPR group "(${number} - 1) / ${PELLOR_COMPILE_TOGETHER}")
    set_source_files_properties(${source} PROPERTIES UNITY_GROUP ${folder}${group})
  endforeach()
endfunction()

# pellor_library(<target> <name>): a static library, known to users as pellor::<name>.
function(pellor_library target name)
  add_library(${target} STATIC)
  add_library(pellor::${name} ALIAS ${target})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name} POSITION_INDEPENDENT_CODE ON)
  # Nobody puts functions of their own in place of single ones of ours: they may be inlined in each other, also in code
  # that can become part of a shared object.
  target_compile_options(${target} PRIVATE $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:-fno-semantic-interposition>)
  pellor_compile_settings(${target})
  if(PELLOR_COMPILE_TOGETHER GREATER 1)
    cmake_language(EVAL CODE "cmake_language(DEFER CALL pellor_compile_together [[${target}]])")
  endif()
endfunction()

# pellor_public_headers(<target> <header>...): headers of the current folder that users include, spelled
# "pellor/<folder>/<header>" in the tree and after installation.
function(pellor_public_headers target)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL INTERFACE_LIBRARY)
    set(scope INTERFACE)
  else()
    set(scope PUBLIC)
  endif()
  list(TRANSFORM ARGN PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/)
  target_sources(${target} ${scope} FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${ARGN})
endfunction()

# pellor_program(<target> SOURCES <file>... LIBRARIES <library>...): a program of ours, with the root as include root.
function(pellor_program target)
  cmake_parse_arguments(program "" "" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${target} ${program_SOURCES})
  if(PROJECT_IS_TOP_LEVEL AND PELLOR_GNU_OPTIONS)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:-fPIE>)
    target_link_options(${target} PRIVATE $<$<CONFIG:Release,RelWithDebInfo>:-pie>)
  endif()
  pellor_compile_settings(${target})
  pellor_no_optimisation_in_debug(${target})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${target} PRIVATE ${program_LIBRARIES})
endfunction()
