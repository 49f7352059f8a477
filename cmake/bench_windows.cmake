# The programs that bench/run.sh measures under Wine. The target mddct_bench_programs builds them; "all" does not.

function(mddct_bench_program target)
  add_executable(${target} EXCLUDE_FROM_ALL ${ARGN})
  mddct_windows_program(${target})
  target_link_options(${target} PRIVATE -municode)
endfunction()

mddct_bench_program(mddct_bare_upload bench/wine/bare_upload.cpp)
target_link_libraries(mddct_bare_upload PRIVATE winhttp)

# The empty program makes the linker ask for every function that the shipped file imports.
set(imports ${PROJECT_BINARY_DIR}/imports.txt)
add_custom_command(OUTPUT ${imports} DEPENDS mdDCT VERBATIM
  COMMAND sh -c "${CMAKE_OBJDUMP} -p mdDCT.exe | \
    sed -n 's/^\\t[0-9a-f]*\\t *[0-9]*  \\([A-Za-z_]*[A-Za-z0-9_]*\\)$/-Wl,-u,__imp_\\1/p' >imports.txt"
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR})
add_custom_target(mddct_imports DEPENDS ${imports})
mddct_bench_program(mddct_empty_program WIN32 bench/wine/empty_program.cpp)
add_dependencies(mddct_empty_program mddct_imports)
set_property(TARGET mddct_empty_program PROPERTY LINK_DEPENDS ${imports})
target_link_options(mddct_empty_program PRIVATE @${imports})
target_link_libraries(mddct_empty_program PRIVATE
  advapi32 bcrypt crypt32 kernel32 shell32 urlmon user32 version winhttp wininet)

# The library to compare with consists of headers. They are in /usr/include beside the host's own headers, which the
# cross compiler must not see. So a folder of its own holds links to them.
foreach(name spdlog fmt)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/peers)
  file(CREATE_LINK /usr/include/${name} ${PROJECT_BINARY_DIR}/peers/${name} SYMBOLIC)
endforeach()
mddct_bench_program(mddct_log_lines bench/wine/log_lines.cpp bench/harness.cpp)
target_include_directories(mddct_log_lines SYSTEM PRIVATE ${PROJECT_BINARY_DIR}/peers)
target_compile_definitions(mddct_log_lines PRIVATE SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY)
target_link_libraries(mddct_log_lines PRIVATE mddct_log mddct_windows)

mddct_bench_program(mddct_bench_configuration bench/wine/configuration.cpp bench/harness.cpp)
target_link_libraries(mddct_bench_configuration PRIVATE mddct_log mddct_windows)

add_custom_target(mddct_bench_programs DEPENDS mddct_bare_upload mddct_empty_program mddct_log_lines
  mddct_bench_configuration)
