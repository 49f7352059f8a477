# The native tests: the libraries of the rooms on the simulated Windows.

enable_testing()
include(GoogleTest)
find_package(GTest REQUIRED)
find_package(OpenSSL REQUIRED)

file(GLOB sim_sources CONFIGURE_DEPENDS tests/sim/*.cpp)
add_library(mddct_sim STATIC ${sim_sources})
mddct_options(mddct_sim)
target_link_libraries(mddct_sim PUBLIC mddct_log OpenSSL::Crypto)

# Makes one test program of tests/unit/<folder>/*_test.cpp: mddct_tests(FOLDER LIBRARIES...).
function(mddct_tests folder)
  file(GLOB sources CONFIGURE_DEPENDS tests/unit/${folder}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${folder}_tests ${sources})
  mddct_options(${folder}_tests)
  target_link_libraries(${folder}_tests PRIVATE mddct_sim ${ARGN} GTest::gtest_main)
  gtest_discover_tests(${folder}_tests TEST_PREFIX ${folder}. DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()

mddct_tests(core mddct_crash mddct_bag)
mddct_tests(digest mddct_digest)
mddct_tests(http mddct_http)
mddct_tests(upload mddct_upload)
mddct_tests(dct mddct_dct)
mddct_tests(main mddct_main)
