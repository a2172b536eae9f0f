# build/<preset>/stage: the package as a user unpacks it, made from what exists.
set(KESTRUNE_STAGE ${PROJECT_BINARY_DIR}/stage)
file(GLOB_RECURSE package_files CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/package
  ${PROJECT_SOURCE_DIR}/package/Script/* ${PROJECT_SOURCE_DIR}/package/Runtime/*
  ${PROJECT_SOURCE_DIR}/package/Assets/*)
set(staged ${KESTRUNE_STAGE}/Kestrune.exe)
add_custom_command(OUTPUT ${KESTRUNE_STAGE}/Kestrune.exe
  COMMAND ${CMAKE_COMMAND} -E copy $<TARGET_FILE:Kestrune> ${KESTRUNE_STAGE}/Kestrune.exe
  DEPENDS Kestrune VERBATIM)
foreach(file ${package_files})
  add_custom_command(OUTPUT ${KESTRUNE_STAGE}/${file}
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/package/${file} ${KESTRUNE_STAGE}/${file}
    DEPENDS ${PROJECT_SOURCE_DIR}/package/${file} VERBATIM)
  list(APPEND staged ${KESTRUNE_STAGE}/${file})
endforeach()
add_custom_target(stage ALL DEPENDS ${staged})
