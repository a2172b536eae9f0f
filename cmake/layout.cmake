# kestrune_place(TARGET... [FOLDER folder]): puts the programs into this folder of the build folder, at the
# same place with every generator. Without an expression in the path, generators of several
# configurations (Visual Studio) append a folder named after the configuration, and the test programs would
# look for each other in vain.
function(kestrune_place)
  cmake_parse_arguments(PARSE_ARGV 0 place "" "FOLDER" "")
  set_target_properties(${place_UNPARSED_ARGUMENTS} PROPERTIES RUNTIME_OUTPUT_DIRECTORY
    ${CMAKE_BINARY_DIR}/${place_FOLDER}$<0:>)
endfunction()
