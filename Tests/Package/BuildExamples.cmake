include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

find_program(pkg_config pkg-config)
if(NOT pkg_config)
  message(STATUS "no pkg-config")
  return()
endif()
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
set(ENV{LD_LIBRARY_PATH} ${PREFIX}/${LIBDIR})
run(${pkg_config} --cflags nqcore)
separate_arguments(cflags UNIX_COMMAND "${output}")
run(${pkg_config} --libs nqcore)
separate_arguments(libs UNIX_COMMAND "${output}")
file(MAKE_DIRECTORY ${WORK_DIR})

# What the README's line does, in two steps: a compiler cache keeps objects and no programs. The headers warn nobody who asks for more.
set(warnings -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast)
function(build_example source)
  get_filename_component(name ${source} NAME_WE)
  run(${LAUNCHER} ${CXX} -std=c++17 ${warnings} -Werror ${cflags} ${ARGN} -c ${source} -o ${WORK_DIR}/${name}.o)
endfunction()

function(run_example name)
  run(${CMAKE_COMMAND} -DPROGRAM=${WORK_DIR}/${name} -DEXPECTED=${folder}/${name}.expected -DWORK_DIR=${WORK_DIR}/${name}.work
      -P ${SOURCE_DIR}/Examples/RunExample.cmake)
endfunction()

set(folder ${SOURCE_DIR}/Examples)
file(GLOB examples ${folder}/*.cpp)
foreach(source IN LISTS examples)
  get_filename_component(name ${source} NAME_WE)
  build_example(${source})
  run(${CXX} ${WORK_DIR}/${name}.o -o ${WORK_DIR}/${name} ${libs})
  run_example(${name})
endforeach()

# A plug-in, and a program that has all of the library for it.
set(folder ${SOURCE_DIR}/Examples/PlugIn)
set(plug_in ${WORK_DIR}/PointCloud.so)
build_example(${folder}/PointCloud.cpp -I${SOURCE_DIR} -fPIC)
build_example(${folder}/PlugInHost.cpp -I${SOURCE_DIR} -DPLUG_IN_PATH="${plug_in}")
run(${CXX} -shared ${WORK_DIR}/PointCloud.o -o ${plug_in})
run(${CXX} -rdynamic ${WORK_DIR}/PlugInHost.o -o ${WORK_DIR}/PlugInHost -Wl,--whole-archive ${libs} -Wl,--no-whole-archive)
run_example(PlugInHost)
