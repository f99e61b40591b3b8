# Every fuzz/<Name>Fuzz.cpp is one fuzz target. It is built with libFuzzer where NAXEL_BUILD_FUZZ is
# on, and with the tests as a program that replays fuzz/corpus/<Name>Fuzz/. The other sources of the
# folder are shared by all targets; ReplayMain.cpp holds the replayer's main().

set(fuzz_folder ${PROJECT_SOURCE_DIR}/fuzz)
file(GLOB fuzz_targets CONFIGURE_DEPENDS ${fuzz_folder}/*Fuzz.cpp)
file(GLOB fuzz_shared CONFIGURE_DEPENDS ${fuzz_folder}/*.cpp)
set(replay_main ${fuzz_folder}/ReplayMain.cpp)
list(REMOVE_ITEM fuzz_shared ${replay_main} ${fuzz_targets})

function(add_fuzz_program target source)
  add_executable(${target} ${source} ${fuzz_shared} ${ARGN})
  target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests)
  target_link_libraries(${target} PRIVATE $<TARGET_NAME_IF_EXISTS:test_support>
    $<TARGET_NAME_IF_EXISTS:naxel_tool_core> $<TARGET_NAME_IF_EXISTS:softchip> naxel_objects)
  naxel_own_target(${target})
endfunction()

foreach(source IN LISTS fuzz_targets)
  get_filename_component(name ${source} NAME_WE)
  if(NAXEL_BUILD_FUZZ)
    add_fuzz_program(${name} ${source})
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
  endif()
  if(NAXEL_BUILD_TESTS AND EXISTS ${replay_main})
    add_fuzz_program(${name}_replay ${source} ${replay_main})
    add_test(NAME fuzz.${name} COMMAND ${name}_replay ${fuzz_folder}/corpus/${name})
    set_tests_properties(fuzz.${name} PROPERTIES LABELS fast TIMEOUT 300)
  endif()
endforeach()
