# What a release consists of: the archive (cpack) with its bill of materials and sums, and the setup
# program (target setup).
set(KESTRUNE_HELP_URL "" CACHE STRING "Publisher's address for help; empty for none")
set(KESTRUNE_ABOUT_URL "" CACHE STRING "Publisher's address about the program; empty for none")
# As files, for they may hold any character.
file(WRITE ${PROJECT_BINARY_DIR}/publisher/publisher "${KESTRUNE_PUBLISHER}\n")
file(WRITE ${PROJECT_BINARY_DIR}/publisher/help "${KESTRUNE_HELP_URL}\n")
file(WRITE ${PROJECT_BINARY_DIR}/publisher/about "${KESTRUNE_ABOUT_URL}\n")

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
  COMMAND ${PROJECT_SOURCE_DIR}/tools/make-release . Kestrune-${PROJECT_VERSION}
  WORKING_DIRECTORY ${PROJECT_BINARY_DIR} COMMENT "Making archive and setup program" VERBATIM)
add_dependencies(setup stage)
