# Kestrune.exe: GUI subsystem, manifest, version resource and icon.
configure_file(${PROJECT_SOURCE_DIR}/cmake/Kestrune.manifest.in
  ${PROJECT_BINARY_DIR}/Kestrune.manifest @ONLY)
set(KESTRUNE_PUBLISHER "" CACHE STRING "Publisher, for version resource and setup program; empty for none")
set(KESTRUNE_COMPANY "")
if(NOT KESTRUNE_PUBLISHER STREQUAL "")
  string(REPLACE "\\" "\\\\" KESTRUNE_COMPANY "${KESTRUNE_PUBLISHER}")
  string(REPLACE "\"" "\"\"" KESTRUNE_COMPANY "${KESTRUNE_COMPANY}")
  set(KESTRUNE_COMPANY "VALUE \"CompanyName\", \"${KESTRUNE_COMPANY}\"")
endif()
configure_file(${PROJECT_SOURCE_DIR}/cmake/Kestrune.rc.in ${PROJECT_BINARY_DIR}/Kestrune.rc @ONLY)
add_executable(Kestrune WIN32 ${PROJECT_SOURCE_DIR}/entry/main_win32.cpp
  ${PROJECT_BINARY_DIR}/Kestrune.rc)
set_source_files_properties(${PROJECT_BINARY_DIR}/Kestrune.rc PROPERTIES OBJECT_DEPENDS
  "${PROJECT_BINARY_DIR}/Kestrune.manifest;${PROJECT_SOURCE_DIR}/cmake/Kestrune.ico")
target_link_libraries(Kestrune PRIVATE kestrune_windows)
kestrune_place(Kestrune)
if(MSVC)
  target_link_options(Kestrune PRIVATE /DYNAMICBASE /NXCOMPAT /MANIFEST:NO)
else()
  target_link_options(Kestrune PRIVATE -municode -Wl,--dynamicbase,--nxcompat,--gc-sections -s
    # What was linked in, for the check of the bill of materials.
    -Wl,-Map,${PROJECT_BINARY_DIR}/Kestrune.map)
  target_compile_options(kestrune_core PRIVATE -ffunction-sections -fdata-sections)
  target_compile_options(kestrune_windows PRIVATE -ffunction-sections -fdata-sections)
endif()
