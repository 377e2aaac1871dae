# Runs an example in an empty folder and compares what it prints with what it should.
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})
set(ENV{LC_ALL} C) # what is written in the user's language is the same for everybody
execute_process(COMMAND ${PROGRAM} WORKING_DIRECTORY ${WORK_DIR} RESULT_VARIABLE status OUTPUT_VARIABLE printed ERROR_VARIABLE errors)
file(READ ${EXPECTED} expected)
if(NOT status EQUAL 0 OR NOT printed STREQUAL expected OR NOT errors STREQUAL "")
  message(FATAL_ERROR "status ${status}\nprinted:\n${printed}\nexpected:\n${expected}\nerrors:\n${errors}")
endif()
