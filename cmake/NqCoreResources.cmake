# nqcore_add_resource_file(TARGET INPUT.txt OUTPUT.nqr)
#
# Adds a target that makes a resource file from its text, whenever the text has changed. A relative input is taken from the source
# folder of the caller, a relative output from its binary folder. Needs nqres: the one of this build, or an installed one.
function(nqcore_add_resource_file target input output)
  get_filename_component(input "${input}" ABSOLUTE)
  get_filename_component(output "${output}" ABSOLUTE BASE_DIR "${CMAKE_CURRENT_BINARY_DIR}")
  set(tool nqres)
  if(NOT TARGET nqres)
    find_program(NQRES_PROGRAM nqres HINTS "${NQCORE_PROGRAMS}")
    if(NOT NQRES_PROGRAM)
      message(FATAL_ERROR "nqcore_add_resource_file needs nqres: build NqCore with NQCORE_TOOLS, or set NQRES_PROGRAM")
    endif()
    set(tool "${NQRES_PROGRAM}")
  endif()
  add_custom_command(OUTPUT "${output}" COMMAND "${tool}" build "${input}" -o "${output}" DEPENDS "${input}" "${tool}" VERBATIM
                     COMMENT "Making the resource file ${output}")
  add_custom_target(${target} ALL DEPENDS "${output}")
endfunction()
