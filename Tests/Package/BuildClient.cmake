include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

# The README's first program, as it stands there.
function(extract_readme_program target)
  file(READ ${SOURCE_DIR}/README.md readme)
  string(FIND "${readme}" "```cpp\n" start)
  math(EXPR start "${start} + 7")
  string(SUBSTRING "${readme}" ${start} -1 readme)
  string(FIND "${readme}" "```" end)
  string(SUBSTRING "${readme}" 0 ${end} program)
  file(WRITE ${target} "${program}")
endfunction()

# A client that reports from a header must name the header by its place in the tree, not in the install. Its products are
# rounded before they are added to, also where the processor could do both at once.
function(expect_client program)
  run(${program} ${WORK_DIR}/settings.txt)
  if(NOT output MATCHES "width 640" OR NOT output MATCHES "report NqCore/PublicAPI/NqArray.h: i < GetElemCount"
     OR NOT output MATCHES "residue 0\n")
    message(FATAL_ERROR "${program} printed:\n${output}")
  endif()
endfunction()

function(expect_readme program)
  run(${CMAKE_COMMAND} -E chdir ${WORK_DIR} ${program})
  if(NOT output STREQUAL "SIZE: 640 by 480\n")
    message(FATAL_ERROR "the program of the README printed:\n${output}")
  endif()
endfunction()

set(client ${SOURCE_DIR}/Tests/Package/Client)
file(REMOVE_RECURSE ${WORK_DIR})
extract_readme_program(${WORK_DIR}/program.cpp)

run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${client} -B ${WORK_DIR}/client -DREADME_PROGRAM=${WORK_DIR}/program.cpp
    -DWITH_TOOLS=${WITH_TOOLS} -DCMAKE_PREFIX_PATH=${PREFIX} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${WORK_DIR}/client)
if(WITH_TOOLS)
  run(${PREFIX}/bin/nqres check ${WORK_DIR}/client/client.nqr)
endif()
expect_client(${WORK_DIR}/client/client)
expect_readme(${WORK_DIR}/client/readme)

find_program(pkg_config pkg-config)
if(pkg_config)
  set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
  set(ENV{LD_LIBRARY_PATH} ${PREFIX}/${LIBDIR})
  run(sh -c "${CXX} -std=c++17 -O2 ${client}/Client.cpp -o ${WORK_DIR}/client-pc $(${pkg_config} --cflags --libs nqcore)")
  expect_client(${WORK_DIR}/client-pc)
  # The README's own line, but for the compiler.
  file(READ ${SOURCE_DIR}/README.md readme)
  string(REGEX MATCH "`c\\+\\+( [^`]*)`" line "${readme}")
  run(${CMAKE_COMMAND} -E chdir ${WORK_DIR} sh -c "${CXX}${CMAKE_MATCH_1}")
  expect_readme(${WORK_DIR}/a.out)
endif()

# The installed tool finds its formats where it was put.
find_program(nqtoken nqtoken PATHS ${PREFIX}/bin NO_DEFAULT_PATH)
if(nqtoken)
  run(${nqtoken} formats)
  if(NOT output MATCHES "\\.obj +read")
    message(FATAL_ERROR "nqtoken formats printed:\n${output}")
  endif()
endif()
