# The benchmarks, one program from all of bench/.

file(GLOB_RECURSE bench_sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/bench/*.cpp)
if(bench_sources)
  find_package(benchmark REQUIRED)
  add_executable(naxel_bench ${bench_sources})
  target_link_libraries(naxel_bench PRIVATE $<TARGET_NAME_IF_EXISTS:softchip> naxel_objects
    benchmark::benchmark_main benchmark::benchmark)
  naxel_own_target(naxel_bench)
endif()
