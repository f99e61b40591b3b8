# Every fuzz/<Name>Fuzz.cpp is one fuzz target. It is built with libFuzzer where NAXEL_BUILD_FUZZ is
# on, and with the tests as a program that replays fuzz/corpus/<Name>Fuzz/. The other sources of the
# folder are shared by all targets; ReplayMain.cpp holds the replayer's main().

if(NOT TARGET naxel_tool_core)
  message(STATUS "fuzz is left out: the tool is not built")
  return()
endif()

set(fuzz_folder ${PROJECT_SOURCE_DIR}/fuzz)
file(GLOB fuzz_targets CONFIGURE_DEPENDS ${fuzz_folder}/*Fuzz.cpp)
file(GLOB fuzz_shared CONFIGURE_DEPENDS ${fuzz_folder}/*.cpp)
set(replay_main ${fuzz_folder}/ReplayMain.cpp)
list(REMOVE_ITEM fuzz_shared ${replay_main} ${fuzz_targets})
if(NOT TARGET naxel_ovs_objects)
  list(REMOVE_ITEM fuzz_targets ${fuzz_folder}/OpenFlowFuzz.cpp)
endif()

# What the targets share, together with what they need of the tests' support where there are no tests.
set(fuzz_support)
if(NOT TARGET test_support)
  file(GLOB fuzz_support CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/tests/support/*.cpp)
endif()
add_library(fuzz_parts STATIC EXCLUDE_FROM_ALL ${fuzz_shared} ${fuzz_support})
target_include_directories(fuzz_parts PUBLIC ${fuzz_folder} ${PROJECT_SOURCE_DIR}/tests)
target_link_libraries(fuzz_parts PUBLIC naxel_tool_parts)
naxel_test_target(fuzz_parts)
# Each source is an object of its own, so that only the support that a fuzzer calls is linked: the rest of it
# needs the test framework.
set_target_properties(fuzz_parts PROPERTIES UNITY_BUILD OFF)

function(add_fuzz_program target)
  add_executable(${target} ${ARGN})
  target_link_libraries(${target} PRIVATE fuzz_parts $<TARGET_NAME_IF_EXISTS:test_support>
    naxel_tool_core $<TARGET_NAME_IF_EXISTS:naxel_ovs_objects> softchip naxel_verify naxel_objects)
  # What scripts are drawn from; the tests' support brings it along.
  if(NOT TARGET test_support)
    target_link_libraries(${target} PRIVATE naxel_testing_objects)
  endif()
  naxel_test_target(${target})
  if(TARGET test_support)
    naxel_precompiled_with(${target} test_support)
  endif()
endfunction()

add_library(fuzz_replay_main OBJECT EXCLUDE_FROM_ALL ${replay_main})
target_link_libraries(fuzz_replay_main PUBLIC fuzz_parts)
naxel_test_target(fuzz_replay_main)

add_custom_target(fuzzers)
foreach(source IN LISTS fuzz_targets)
  get_filename_component(name ${source} NAME_WE)
  if(NAXEL_BUILD_FUZZ)
    add_fuzz_program(${name} ${source})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    add_dependencies(fuzzers ${name})
  endif()
  # Under sanitizers the fuzzers themselves run.
  if(NAXEL_BUILD_TESTS AND NOT NAXEL_SANITIZE)
    add_fuzz_program(${name}_replay ${source})
    target_link_libraries(${name}_replay PRIVATE fuzz_replay_main)
    add_test(NAME fuzz.${name} COMMAND ${name}_replay ${fuzz_folder}/corpus/${name})
    set_tests_properties(fuzz.${name} PROPERTIES LABELS fast TIMEOUT 300)
  endif()
endforeach()
