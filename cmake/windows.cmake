enable_language(RC)

# Sets the options of a static Windows program. It has no time stamp, so that a build can be repeated.
function(mddct_windows_program target)
  mddct_options(${target})
  target_compile_definitions(${target} PRIVATE
    UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
  if(MSVC)
    target_link_options(${target} PRIVATE /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT /Brepro /MANIFEST:NO)
  else()
    target_link_options(${target} PRIVATE -static
      -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat -Wl,--no-insert-timestamp)
  endif()
endfunction()

# The shipped executable: the rooms, the Windows layer and the entry point in one static file.

file(GLOB windows_sources CONFIGURE_DEPENDS platform/windows/*.cpp)
add_library(mddct_windows STATIC ${windows_sources})
mddct_options(mddct_windows)
target_compile_definitions(mddct_windows PRIVATE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
target_link_libraries(mddct_windows PUBLIC mddct_platform
  advapi32 bcrypt crypt32 kernel32 shell32 urlmon user32 version winhttp wininet)

# A crash becomes an exception at the very instruction that failed. -fnon-call-exceptions makes catch blocks cover all
# instructions that may fail and not calls alone; without it, the run-time library ends the program. -ffile-prefix-map
# keeps the path of the build folder out of the result, so that a build in another folder gives the same bytes.
if(NOT MSVC)
  get_property(rooms GLOBAL PROPERTY MDDCT_ROOMS)
  foreach(target ${rooms} mddct_windows)
    target_compile_options(${target} PRIVATE -fnon-call-exceptions -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  endforeach()
endif()

add_executable(mdDCT WIN32 main/entry.cpp packaging/mdDCT.rc)
mddct_windows_program(mdDCT)
set_property(SOURCE packaging/mdDCT.rc APPEND PROPERTY OBJECT_DEPENDS
  "${PROJECT_SOURCE_DIR}/packaging/version.h;${PROJECT_SOURCE_DIR}/packaging/mdDCT.manifest")
target_include_directories(mdDCT PRIVATE packaging)
target_link_libraries(mdDCT PRIVATE mddct_main mddct_windows)

# Microsoft's compiler builds the program alone. What follows is made for GCC, from which the releases come.
if(MSVC)
  return()
endif()
target_link_options(mdDCT PRIVATE -municode)

# Moves the symbols from the shipped file to a file beside it. Without SOURCE_DATE_EPOCH, objcopy writes the current
# time.
set(objcopy ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0 ${CMAKE_OBJCOPY})
add_custom_command(TARGET mdDCT POST_BUILD VERBATIM
  COMMAND ${objcopy} --only-keep-debug mdDCT.exe mdDCT.exe.debug
  COMMAND ${objcopy} --strip-all mdDCT.exe
  COMMAND ${objcopy} --add-gnu-debuglink=mdDCT.exe.debug mdDCT.exe
  BYPRODUCTS ${PROJECT_BINARY_DIR}/mdDCT.exe.debug
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR})

# The programs that run beside it under Wine: the launcher, the stand-in for powershell.exe, and those of the tests.

set(native ${PROJECT_SOURCE_DIR}/wine/native)
add_library(mddct_native STATIC ${native}/arguments.cpp)
mddct_options(mddct_native)
target_compile_definitions(mddct_native PRIVATE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)

function(mddct_native_program target)
  add_executable(${target} ${ARGN})
  mddct_windows_program(${target})
  target_link_libraries(${target} PRIVATE mddct_native)
endfunction()

mddct_native_program(mddct_run_as_system ${native}/run_as_system.cpp)
mddct_native_program(mddct_trust_root ${native}/trust_root.cpp)
target_link_libraries(mddct_trust_root PRIVATE crypt32)

# The stand-in has a folder of its own, so that no other program finds it there by its bare name.
mddct_native_program(mddct_powershell ${native}/powershell_standin.cpp)
set_target_properties(mddct_powershell PROPERTIES
  OUTPUT_NAME powershell RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/standin)

set(tests ${PROJECT_SOURCE_DIR}/tests/wine/programs)
mddct_native_program(mddct_https_client ${tests}/https_client.cpp)
target_link_libraries(mddct_https_client PRIVATE mddct_http mddct_windows)
file(GLOB check_sources CONFIGURE_DEPENDS ${tests}/check/*.cpp)
mddct_native_program(mddct_platform_check ${tests}/platform_check.cpp ${check_sources})
target_compile_options(mddct_platform_check PRIVATE $<$<COMPILE_LANGUAGE:CXX>:-fnon-call-exceptions>)
target_link_libraries(mddct_platform_check PRIVATE mddct_digest mddct_windows)

include(cmake/bench_windows.cmake)
