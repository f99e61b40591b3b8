# Compiler settings. Warnings belong to our own targets; instrumentation has to cover everything.

set(naxel_warnings -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wcast-qual -Wformat=2 -Wimplicit-fallthrough)
# GCC 12 takes a scope that registers itself and takes itself out again for a dangling pointer.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  list(APPEND naxel_warnings -Wno-dangling-pointer)
endif()
# Instrumented code defeats its analysis of what is initialised.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NAXEL_SANITIZE)
  list(APPEND naxel_warnings -Wno-maybe-uninitialized)
endif()
if(NAXEL_WERROR)
  list(APPEND naxel_warnings -Werror)
endif()

# A tenth of the time of quick builds went into collecting garbage, which fits into memory well: a gigabyte for each job.
if(NAXEL_UNITY AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  add_compile_options("SHELL:--param ggc-min-expand=200" "SHELL:--param ggc-min-heapsize=1048576")
endif()

# What nearly all sources of a target include is read once in quick builds. A source names what it needs all the same:
# other builds compile it by itself.
function(naxel_precompile target)
  if(NAXEL_UNITY)
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

# The same headers as another target that is compiled alike.
function(naxel_precompiled_with target other)
  if(NAXEL_UNITY)
    target_precompile_headers(${target} REUSE_FROM ${other})
  endif()
endfunction()

# Applies the warnings of the project to a target.
function(naxel_own_target target)
  target_compile_options(${target} PRIVATE ${naxel_warnings})
endfunction()

# The same for tests. Their code takes longer to compile than to run, so it is optimised less than what it tests. The
# sanitizers look for faults of memory in it, and for all others in what it tests.
function(naxel_test_target target)
  naxel_own_target(${target})
  if(NAXEL_SANITIZE)
    target_compile_options(${target} PRIVATE -fno-sanitize=undefined,float-cast-overflow)
  elseif(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    target_compile_options(${target} PRIVATE -O1)
  endif()
endfunction()

set(naxel_instrumented OFF)
if(NAXEL_SANITIZE)
  set(naxel_instrumented ON)
  add_compile_options(-fsanitize=${NAXEL_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${NAXEL_SANITIZE})
endif()
if(NAXEL_COVERAGE)
  set(naxel_instrumented ON)
  add_compile_options(--coverage)
  add_link_options(--coverage)
endif()
if(NAXEL_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "NAXEL_BUILD_FUZZ needs clang")
  endif()
  set(naxel_instrumented ON)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
