# Fuzz targets: fuzz/<name>_fuzz.cpp with the libraries it needs. The whole build is instrumented (preset "fuzz").
function(mddct_fuzz name)
  add_executable(${name}_fuzz fuzz/${name}_fuzz.cpp)
  mddct_options(${name}_fuzz)
  target_link_libraries(${name}_fuzz PRIVATE ${ARGN})
  target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
endfunction()

mddct_fuzz(proxy_list mddct_http)
