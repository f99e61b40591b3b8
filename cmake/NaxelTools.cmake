# The command line tool. All of the tool but main.cpp is kept as objects, so
# that tests can link it.

set(tool_folder ${PROJECT_SOURCE_DIR}/tools/naxel)
file(GLOB_RECURSE tool_sources CONFIGURE_DEPENDS ${tool_folder}/*.cpp)
set(tool_main ${tool_folder}/main.cpp)
list(REMOVE_ITEM tool_sources ${tool_main})
if(NOT TARGET naxel_ovs_objects)
  list(FILTER tool_sources EXCLUDE REGEX "/command/(Switch[A-Za-z]*|LoadCommand)\\.cpp$")
endif()

if(EXISTS ${tool_main})
  find_package(CLI11 REQUIRED)
  find_package(nlohmann_json REQUIRED)
  find_package(ZLIB REQUIRED)
  find_path(PCAP_INCLUDE_DIR pcap/pcap.h REQUIRED)
  find_library(PCAP_LIBRARY pcap REQUIRED)
  mark_as_advanced(PCAP_INCLUDE_DIR PCAP_LIBRARY)
  find_package(Threads REQUIRED)

  add_library(naxel_tool_parts INTERFACE)
  target_include_directories(naxel_tool_parts INTERFACE ${tool_folder})
  target_link_libraries(naxel_tool_parts INTERFACE naxel_verify_parts CLI11::CLI11
    nlohmann_json::nlohmann_json ZLIB::ZLIB ${PCAP_LIBRARY} Threads::Threads)
  target_include_directories(naxel_tool_parts SYSTEM INTERFACE ${PCAP_INCLUDE_DIR})

  if(tool_sources)
    add_library(naxel_tool_core OBJECT ${tool_sources})
    target_link_libraries(naxel_tool_core PUBLIC naxel_tool_parts)
    naxel_own_target(naxel_tool_core)
    if(TARGET naxel_ovs_objects)
      target_link_libraries(naxel_tool_core PUBLIC naxel_ovs_headers)
      target_compile_definitions(naxel_tool_core PRIVATE NAXEL_WITH_OVS=1)
    endif()
    naxel_precompile(naxel_tool_core <CLI/CLI.hpp> <nlohmann/json.hpp> [["session/Session.h"]]
      [["input/RuleReading.h"]])
    target_compile_definitions(naxel_tool_core PRIVATE NAXEL_VERSION="${PROJECT_VERSION}")
    if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo" AND NOT NAXEL_SANITIZE)
      # What takes the time of a run is in the library, the proofs and the packets' lookups. The tool around them takes a
      # third longer to compile with more.
      target_compile_options(naxel_tool_core PRIVATE -O1)
    endif()
  endif()

  add_executable(naxel_tool ${tool_main})
  set_target_properties(naxel_tool PROPERTIES
    OUTPUT_NAME naxel
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  target_link_libraries(naxel_tool PRIVATE naxel_tool_parts
    $<TARGET_NAME_IF_EXISTS:naxel_tool_core> $<TARGET_NAME_IF_EXISTS:naxel_ovs_objects>
    softchip naxel_verify Naxel)
  naxel_own_target(naxel_tool)
  if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    # It reads the command line, once; optimising the templates of that takes longer than all other sources.
    target_compile_options(naxel_tool PRIVATE -O1)
  endif()
  add_dependencies(product naxel_tool)
  install(TARGETS naxel_tool RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

  # Manual pages and completions are written by the program itself, which knows its commands.
  if(NOT CMAKE_CROSSCOMPILING)
    set(tool_share ${PROJECT_BINARY_DIR}/share)
    add_custom_command(OUTPUT ${tool_share}/.written
      COMMAND naxel_tool --documentation ${tool_share}
      COMMAND ${CMAKE_COMMAND} -E touch ${tool_share}/.written
      DEPENDS naxel_tool VERBATIM)
    add_custom_target(naxel_documents ALL DEPENDS ${tool_share}/.written)
    add_dependencies(product naxel_documents)
    install(DIRECTORY ${tool_share}/man/ DESTINATION ${CMAKE_INSTALL_MANDIR})
    foreach(completion bash-completion/completions zsh/site-functions)
      install(DIRECTORY ${tool_share}/${completion}/ DESTINATION ${CMAKE_INSTALL_DATADIR}/${completion})
    endforeach()
  endif()
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/schema/ DESTINATION ${CMAKE_INSTALL_DATADIR}/naxel/schema)
endif()
