# What a release consists of: the archive (cpack) with its bill of materials and sums, and the setup
# program (target setup).
set(KESTRUNE_PUBLISHER "" CACHE STRING "Publisher that the setup program registers; empty for none")

set(CPACK_GENERATOR External)
set(CPACK_PACKAGE_NAME Kestrune)
set(CPACK_PACKAGE_FILE_NAME Kestrune-${PROJECT_VERSION})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CHECKSUM SHA256)
# CPack's own ZIP generator writes the times at which it runs, so the project's tool packs instead.
set(CPACK_EXTERNAL_PACKAGE_SCRIPT ${PROJECT_SOURCE_DIR}/cmake/archive.cmake)
set(CPACK_INSTALL_CMAKE_PROJECTS "")
set(CPACK_KESTRUNE_SOURCE ${PROJECT_SOURCE_DIR})
set(CPACK_KESTRUNE_BUILD ${PROJECT_BINARY_DIR})
set(CPACK_KESTRUNE_COMPILER ${CMAKE_CXX_COMPILER})
set(CPACK_KESTRUNE_PYTHON ${Python3_EXECUTABLE})
include(CPack)

# The setup program carries the archive's files unchanged.
add_custom_target(setup
  COMMAND ${CMAKE_CPACK_COMMAND}
  COMMAND ${PROJECT_SOURCE_DIR}/tools/make-setup Kestrune-${PROJECT_VERSION}.zip
    Kestrune-${PROJECT_VERSION}-setup.exe ${KESTRUNE_PUBLISHER}
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} COMMENT "Making the setup program" VERBATIM)
add_dependencies(setup stage)
