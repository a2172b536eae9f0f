# Run by cpack: brings the stage up to date and packs it; with CPACK_KESTRUNE_PROGRAM a stage of its own
# around that program.
function(run)
  execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

set(stage ${CPACK_KESTRUNE_BUILD}/stage)
set(sbom ${CPACK_KESTRUNE_BUILD}/${CPACK_PACKAGE_FILE_NAME}.cdx.json)
set(archive ${CPACK_TEMPORARY_DIRECTORY}/${CPACK_PACKAGE_FILE_NAME}.zip)
file(MAKE_DIRECTORY ${CPACK_TEMPORARY_DIRECTORY})

if(CPACK_KESTRUNE_PROGRAM)
  set(stage ${CPACK_TEMPORARY_DIRECTORY}/stage)
  run(${CPACK_KESTRUNE_PYTHON} ${CPACK_KESTRUNE_SOURCE}/tools/make-stage
    --program ${CPACK_KESTRUNE_PROGRAM} --package ${CPACK_KESTRUNE_SOURCE}/package --stage ${stage})
else()
  run(${CMAKE_COMMAND} --build ${CPACK_KESTRUNE_BUILD} --target stage)
endif()
file(TIMESTAMP ${stage}/Kestrune.exe seconds "%s" UTC)
file(READ ${CPACK_KESTRUNE_BUILD}/publisher/publisher publisher)
string(STRIP "${publisher}" publisher)
# Not by run, which would split a publisher with a semicolon.
execute_process(COMMAND ${CPACK_KESTRUNE_SOURCE}/tools/make-sbom ${CPACK_KESTRUNE_COMPILER}
  ${stage}/Kestrune.exe Kestrune ${CPACK_PACKAGE_VERSION} ${seconds} ${sbom} "${publisher}"
  COMMAND_ERROR_IS_FATAL ANY)
run(${CPACK_KESTRUNE_PYTHON} ${CPACK_KESTRUNE_SOURCE}/tools/make-archive --stage ${stage}
  --package ${CPACK_KESTRUNE_SOURCE}/package --sbom ${sbom} --name ${CPACK_PACKAGE_FILE_NAME}
  --output ${archive})
set(CPACK_EXTERNAL_BUILT_PACKAGES ${archive})
