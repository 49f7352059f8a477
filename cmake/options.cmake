# Warnings, sanitizers, and the libraries of the rooms.

find_package(Threads REQUIRED)

# Links Microsoft's run-time library statically. Other compilers ignore this variable.
set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreaded)

if(MSVC)
  # /EHa does what -fnon-call-exceptions does elsewhere; see cmake/windows.cmake.
  set(mddct_warnings /W4 /permissive- /utf-8 /EHa)
else()
  set(mddct_warnings
    -Wall -Wextra -Werror -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wundef -Wformat=2 -Wimplicit-fallthrough -Wno-missing-field-initializers)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    list(APPEND mddct_warnings -Wthread-safety)  # the labels of core/base/mutex.h
  endif()
endif()

# Sets the compiler options that all targets share. Warnings are errors.
function(mddct_options target)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(${target} PRIVATE ${mddct_warnings})
  if(MDDCT_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${MDDCT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PUBLIC -fsanitize=${MDDCT_SANITIZE})
  endif()
  target_link_libraries(${target} PUBLIC Threads::Threads)
endfunction()

# Makes the library of a room from the sources of its folder, without those of folders below it and without the entry
# point: mddct_room(NAME FOLDER ROOMS-BELOW...).
function(mddct_room name folder)
  set(target mddct_${name})
  file(GLOB sources CONFIGURE_DEPENDS ${folder}/*.cpp)
  list(FILTER sources EXCLUDE REGEX "/main/entry\\.cpp$")
  add_library(${target} STATIC ${sources})
  mddct_options(${target})
  set_property(GLOBAL APPEND PROPERTY MDDCT_ROOMS ${target})
  list(TRANSFORM ARGN PREPEND mddct_)
  target_link_libraries(${target} PUBLIC ${ARGN})
  if(NOT WIN32 AND NOT MDDCT_FUZZ)
    # This program holds the whole room and the rooms below it, so a call to any other room does not link.
    add_executable(${target}_links cmake/empty_program.cpp)
    mddct_options(${target}_links)
    target_link_libraries(${target}_links PRIVATE -Wl,--whole-archive $<TARGET_FILE:${target}> -Wl,--no-whole-archive
      ${ARGN})
    add_dependencies(${target}_links ${target})
  endif()
endfunction()
