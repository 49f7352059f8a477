# The native measurements, which compare the program with other libraries. bench/run.sh builds and runs them.

find_package(spdlog REQUIRED)
find_package(nlohmann_json REQUIRED)

file(GLOB bench_sources CONFIGURE_DEPENDS bench/*.cpp)
add_executable(mddct_bench ${bench_sources})
mddct_options(mddct_bench)
target_link_libraries(mddct_bench PRIVATE mddct_sim mddct_digest mddct_bag spdlog::spdlog_header_only
  nlohmann_json::nlohmann_json OpenSSL::Crypto)
# At -O3, GCC 12 reports a copy of two bytes in a vector of the simulation as out of bounds. It is not.
target_compile_options(mddct_bench PRIVATE -Wno-array-bounds -Wno-stringop-overread)
