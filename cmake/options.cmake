# Warnings, sanitizers and the folder libraries.

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

# A static library of the sources that match; an entry point and the Windows layer are never part of one.
function(mddct_library target folder)
  file(GLOB sources CONFIGURE_DEPENDS ${ARGN})
  list(FILTER sources EXCLUDE REGEX "/main/entry\\.cpp$")
  if(NOT sources)
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${PROJECT_SOURCE_DIR})
    return()
  endif()
  add_library(${target} STATIC ${sources})
  mddct_options(${target})
endfunction()
