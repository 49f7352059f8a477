# The fuzz targets: fuzz/<name>_fuzz.cpp, each with the libraries that it needs. The preset "fuzz" instruments the whole
# build.

find_package(OpenSSL REQUIRED)

# The targets run on the simulated Windows of the tests.
file(GLOB fuzz_platform_sources CONFIGURE_DEPENDS tests/sim/*.cpp)
add_library(mddct_fuzz_platform STATIC ${fuzz_platform_sources})
mddct_options(mddct_fuzz_platform)
target_link_libraries(mddct_fuzz_platform PUBLIC mddct_log OpenSSL::Crypto)

function(mddct_fuzz name)
  add_executable(${name}_fuzz fuzz/${name}_fuzz.cpp fuzz/entry.cpp)
  mddct_options(${name}_fuzz)
  target_link_libraries(${name}_fuzz PRIVATE ${ARGN})
  target_link_options(${name}_fuzz PRIVATE -fsanitize=fuzzer)
endfunction()

mddct_fuzz(base64 mddct_digest OpenSSL::Crypto)
mddct_fuzz(capability mddct_dct mddct_fuzz_platform)
mddct_fuzz(certificates mddct_trust mddct_fuzz_platform)
mddct_fuzz(error_code mddct_upload)
mddct_fuzz(format mddct_format)
mddct_fuzz(options mddct_main)
mddct_fuzz(percent_decoding mddct_digest)
mddct_fuzz(policy_path mddct_settings mddct_fuzz_platform)
mddct_fuzz(property_bag mddct_bag mddct_fuzz_platform)
mddct_fuzz(proxy_list mddct_proxy)
mddct_fuzz(request_text mddct_http)
mddct_fuzz(secrets mddct_bag mddct_fuzz_platform)
mddct_fuzz(signing mddct_upload mddct_fuzz_platform)
mddct_fuzz(url mddct_http mddct_fuzz_platform)
