# The benchmarks, one program from all of bench/, and the comparison with peers, another from
# bench/peers/, where NAXEL_BUILD_PEERS asks for it.

if(NOT TARGET naxel_tool_core)
  message(STATUS "bench is left out: the tool is not built")
  return()
endif()

set(bench_folder ${PROJECT_SOURCE_DIR}/bench)
set(bench_shared ${bench_folder}/Pipeline.cpp ${bench_folder}/RuleSource.cpp)

# What both programs use of bench/, with the library and the tool behind it.
add_library(bench_parts OBJECT EXCLUDE_FROM_ALL ${bench_shared})
target_include_directories(bench_parts PUBLIC ${bench_folder})
target_link_libraries(bench_parts PUBLIC naxel_tool_parts)
naxel_own_target(bench_parts)

# Only built when named: a build folder in which benchmarks were made serves the tests as well.
function(add_bench_program target)
  add_executable(${target} EXCLUDE_FROM_ALL ${ARGN})
  target_link_libraries(${target} PRIVATE bench_parts naxel_tool_core $<TARGET_NAME_IF_EXISTS:naxel_ovs_objects> softchip naxel_verify naxel_objects)
  naxel_own_target(${target})
endfunction()

if(NAXEL_BUILD_BENCH)
  find_package(benchmark REQUIRED)
  file(GLOB bench_sources CONFIGURE_DEPENDS ${bench_folder}/*.cpp)
  list(REMOVE_ITEM bench_sources ${bench_shared})
  add_bench_program(naxel_bench ${bench_sources})
  target_link_libraries(naxel_bench PRIVATE benchmark::benchmark)
endif()

# The same rules in Open vSwitch with labels and without.
if(NAXEL_BUILD_BENCH AND TARGET naxel_ovs_objects)
  file(GLOB ovs_bench_sources CONFIGURE_DEPENDS ${bench_folder}/ovs/*.cpp)
  add_bench_program(naxel_bench_ovs ${ovs_bench_sources})
endif()

if(NAXEL_BUILD_PEERS)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(dpdk REQUIRED IMPORTED_TARGET libdpdk)
  file(GLOB peers_sources CONFIGURE_DEPENDS ${bench_folder}/peers/*.cpp)
  add_bench_program(naxel_bench_peers ${peers_sources})
  target_link_libraries(naxel_bench_peers PRIVATE PkgConfig::dpdk)
endif()
