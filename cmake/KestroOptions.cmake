# Compile options of everything in this tree, and the paths that a build may move.

find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Without these it would not keep what was compiled with precompiled headers.
  set(launcher ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  add_compile_options("$<$<COMPILE_LANGUAGE:CXX>:SHELL:-Xclang -fno-pch-timestamp>")
else()
  # To read gcc's, of more than 100 MB, takes as long as to compile the headers.
  set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON)
endif()

set(KESTRO_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize= (address,undefined or thread)")
if(KESTRO_SANITIZE)
  add_compile_options(-fsanitize=${KESTRO_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KESTRO_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # A program in C gets what the library in C++ needs of the sanitizers' run time, too.
    add_link_options(-fsanitize-link-c++-runtime)
    link_libraries($<$<LINK_LANGUAGE:C>:stdc++>)
  endif()
endif()

if(KESTRO_BUILD_FUZZ)
  # Every branch of every object guides the search; only the fuzz targets get the main() that searches.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# What makes an error in our own code harder to exploit. scripts/check_hardening.sh looks whether it arrived.
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection=full)
add_compile_definitions($<$<COMPILE_LANGUAGE:CXX>:_GLIBCXX_ASSERTIONS>)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
if(NOT KESTRO_SANITIZE)
  # It needs the optimiser, and would hide from the sanitizers what it checks itself. Level 3 is gcc's.
  set(fortify_level $<IF:$<CXX_COMPILER_ID:GNU>,3,2>)
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=${fortify_level}>")
endif()

# Warnings of our own targets. A consumer of the library does not inherit them.
add_library(kestro_warnings INTERFACE)
target_compile_options(kestro_warnings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(KESTRO_SANITIZE)
  # gcc 12 sees uninitialised members in its own standard library once sanitizers rewrite it.
  target_compile_options(kestro_warnings INTERFACE -Wno-maybe-uninitialized -Wno-unknown-warning-option)
endif()
if(KESTRO_WERROR)
  target_compile_options(kestro_warnings INTERFACE -Werror)
endif()

# The file paths that daemons are built with: each a macro of kestro_general.h, which holds the default.
# A value given here replaces it, for tests and for builds that run without privileges.
set(KESTRO_PATH_DEFINITIONS "")
foreach(path KESTRO_LSYSLOG_CONF_FILE KESTRO_CFGDB_FILE KESTRO_UPDATE_DIR)
  set(${path} "" CACHE STRING "Replaces the path ${path} of kestro_general.h")
  if(${path})
    list(APPEND KESTRO_PATH_DEFINITIONS "${path}=\"${${path}}\"")
  endif()
endforeach()
