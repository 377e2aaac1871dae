# The lists of sources by layer, in NqCore and Tools/nqtoken. `Scripts/layers` reads the same calls and holds the files to them.

# nq_layer(NAME "what it adds" FILE... [FOLDER FILE...]...)
# Adds the sources among the files to `sources`. Layers stand bottom first: a file may use what stands in its own layer and in
# those before it. A word without a dot is the folder of the files behind it.
function(nq_layer name purpose)
  set(folder "")
  foreach(word IN LISTS ARGN)
    if(NOT word MATCHES "\\.")
      set(folder "${word}/")
    elseif(word MATCHES "\\.cpp$")
      list(APPEND sources "${folder}${word}")
    endif()
  endforeach()
  set(sources "${sources}" PARENT_SCOPE)
endfunction()

# nq_reaches_up(FILE "why" WHAT...)
# Lets a file use these headers and functions although they stand above it. One that it does not use any more is a fault.
function(nq_reaches_up file reason)
endfunction()
