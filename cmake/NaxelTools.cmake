# The command line tool, and the example programs. All of the tool but main.cpp is kept as objects, so
# that tests can link it.

set(tool_folder ${PROJECT_SOURCE_DIR}/tools/naxel)
file(GLOB_RECURSE tool_sources CONFIGURE_DEPENDS ${tool_folder}/*.cpp)
set(tool_main ${tool_folder}/main.cpp)
list(REMOVE_ITEM tool_sources ${tool_main})

if(EXISTS ${tool_main})
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_package(ZLIB REQUIRED)

  add_library(naxel_tool_parts INTERFACE)
  target_include_directories(naxel_tool_parts INTERFACE ${tool_folder})
  target_link_libraries(naxel_tool_parts INTERFACE naxel_headers CLI11::CLI11
    nlohmann_json::nlohmann_json ZLIB::ZLIB)

  # The exact proof is an extra of builds that have the library for it.
  find_path(BDD_INCLUDE_DIR bdd.h)
  find_library(BDD_LIBRARY bdd)
  mark_as_advanced(BDD_INCLUDE_DIR BDD_LIBRARY)
  if(BDD_INCLUDE_DIR AND BDD_LIBRARY)
    set(NAXEL_EXACT_PROOF ON)
    target_include_directories(naxel_tool_parts SYSTEM INTERFACE ${BDD_INCLUDE_DIR})
    target_link_libraries(naxel_tool_parts INTERFACE ${BDD_LIBRARY})
    target_compile_definitions(naxel_tool_parts INTERFACE NAXEL_EXACT_PROOF=1)
  else()
    set(NAXEL_EXACT_PROOF OFF)
    list(FILTER tool_sources EXCLUDE REGEX "/(Bdd|Exact[A-Za-z]*)\\.cpp$")
    message(STATUS "verify --exact is left out: there is no BDD library")
  endif()

  if(tool_sources)
    add_library(naxel_tool_core OBJECT ${tool_sources})
    target_link_libraries(naxel_tool_core PUBLIC naxel_tool_parts)
    naxel_own_target(naxel_tool_core)
    naxel_precompile(naxel_tool_core <nlohmann/json.hpp> <naxel/control/NaxelRootSm.h>)
  endif()

  add_executable(naxel_tool ${tool_main})
  set_target_properties(naxel_tool PROPERTIES
    OUTPUT_NAME naxel
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  target_link_libraries(naxel_tool PRIVATE naxel_tool_parts
    $<TARGET_NAME_IF_EXISTS:naxel_tool_core> $<TARGET_NAME_IF_EXISTS:softchip> Naxel)
  naxel_own_target(naxel_tool)
  add_dependencies(product naxel_tool)
  install(TARGETS naxel_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

file(GLOB example_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/*.cpp)
foreach(source IN LISTS example_sources)
  get_filename_component(name ${source} NAME_WE)
  add_executable(example_${name} ${source})
  target_link_libraries(example_${name} PRIVATE $<TARGET_NAME_IF_EXISTS:softchip> Naxel)
  naxel_own_target(example_${name})
  add_dependencies(product example_${name})
  if(NAXEL_BUILD_TESTS)
    add_test(NAME example.${name} COMMAND example_${name})
    set_tests_properties(example.${name} PROPERTIES LABELS fast TIMEOUT 120)
  endif()
endforeach()
