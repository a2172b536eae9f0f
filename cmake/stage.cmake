# build/<preset>/stage: the package as a user unpacks it, with its timestamp manifests. It is looked
# at in every build, for a new commit changes the times even where no file changed.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(KESTRUNE_STAGE ${PROJECT_BINARY_DIR}/stage)
add_custom_target(stage ALL
  COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/tools/make-stage
    --program $<TARGET_FILE:Kestrune> --package ${PROJECT_SOURCE_DIR}/package
    --stage ${KESTRUNE_STAGE}
  COMMENT "Staging the package" VERBATIM)
add_dependencies(stage Kestrune)
