# kestrune_options: language level, warnings as errors and the flags that every target of ours shares.
add_library(kestrune_options INTERFACE)
target_compile_features(kestrune_options INTERFACE cxx_std_20)
target_include_directories(kestrune_options INTERFACE ${PROJECT_SOURCE_DIR})

if(MSVC)
  target_compile_options(kestrune_options INTERFACE /W4 /WX /utf-8 /permissive- /EHsc)
  target_compile_definitions(kestrune_options INTERFACE _CRT_SECURE_NO_WARNINGS)
else()
  target_compile_options(kestrune_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual
    -Wnon-virtual-dtor -Woverloaded-virtual -Werror
    # Reproducible and free of the builder's folders.
    -ffile-prefix-map=${PROJECT_SOURCE_DIR}=. -ffile-prefix-map=${PROJECT_BINARY_DIR}=build)
endif()

if(WIN32)
  target_compile_definitions(kestrune_options INTERFACE
    UNICODE _UNICODE NOMINMAX WIN32_LEAN_AND_MEAN WINVER=0x0A00 _WIN32_WINNT=0x0A00)
  if(NOT MSVC)
    # Everything static: a compiler run-time DLL beside the program could be planted.
    target_link_options(kestrune_options INTERFACE -static -Wl,--no-insert-timestamp)
  endif()
endif()
