# Warnings, sanitizers and the libraries of the rooms.

find_package(Threads REQUIRED)

# One static file with any compiler. (Read by Microsoft's only.)
set(CMAKE_MSVC_RUNTIME_LIBRARY MultiThreaded)

if(MSVC)
  # /EHa is what -fnon-call-exceptions is elsewhere: see cmake/windows.cmake.
  set(mddct_warnings /W4 /permissive- /utf-8 /EHa)
else()
  set(mddct_warnings
    -Wall -Wextra -Werror -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wundef -Wformat=2 -Wimplicit-fallthrough -Wno-missing-field-initializers)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    list(APPEND mddct_warnings -Wthread-safety)  # the labels of core/base/mutex.h
  endif()
endif()

# What every target of ours is compiled with; warnings are errors.
function(mddct_options target)
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR})
  target_compile_options(${target} PRIVATE ${mddct_warnings})
  if(MDDCT_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${MDDCT_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PUBLIC -fsanitize=${MDDCT_SANITIZE})
  endif()
  target_link_libraries(${target} PUBLIC Threads::Threads)
endfunction()

# The library of a room: the sources of its folder, without those of folders below it and without the entry point.
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
    # The whole room with what stands below it, and nothing else: a call upwards does not link.
    add_executable(${target}_links cmake/empty_program.cpp)
    mddct_options(${target}_links)
    target_link_libraries(${target}_links PRIVATE -Wl,--whole-archive $<TARGET_FILE:${target}> -Wl,--no-whole-archive
      ${ARGN})
    add_dependencies(${target}_links ${target})
  endif()
endfunction()
