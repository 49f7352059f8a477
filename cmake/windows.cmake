enable_language(RC)

# The shipped executable: the library, the Windows layer and the entry point in one static file.

file(GLOB windows_sources CONFIGURE_DEPENDS platform/windows/*.cpp)
add_library(mddct_windows STATIC ${windows_sources})
mddct_options(mddct_windows)
target_compile_definitions(mddct_windows PRIVATE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0A00)
target_link_libraries(mddct_windows PUBLIC mddct_platform
  advapi32 bcrypt crypt32 kernel32 shell32 urlmon user32 winhttp wininet)

add_executable(mdDCT WIN32 main/entry.cpp packaging/mdDCT.rc)
mddct_options(mdDCT)
target_link_libraries(mdDCT PRIVATE mddct_main mddct_windows)
target_link_options(mdDCT PRIVATE -municode -static
  -Wl,--dynamicbase -Wl,--high-entropy-va -Wl,--nxcompat -Wl,--no-insert-timestamp)
