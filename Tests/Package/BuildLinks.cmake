include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

if(BUILD_SHARED)
  # The libraries alone. Their objects are those of the build around this one, which a compiler cache knows.
  run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE_DIR} -B ${WORK_DIR}/build -DBUILD_SHARED_LIBS=ON -DCMAKE_BUILD_TYPE=${BUILD_TYPE}
      -DCMAKE_CXX_COMPILER=${CXX} -DNQCORE_WERROR=ON -DNQCORE_TOOLS=OFF -DNQCORE_EXAMPLES=OFF -DNQCORE_TESTS=OFF)
  run(${CMAKE_COMMAND} --build ${WORK_DIR}/build)
  set(PREFIX ${WORK_DIR}/prefix)
  run(${CMAKE_COMMAND} --install ${WORK_DIR}/build --prefix ${PREFIX})
endif()

# Every program runs as soon as it is linked.
run(${CMAKE_COMMAND} -E rm -rf ${WORK_DIR}/links)
run(${CMAKE_COMMAND} -G ${GENERATOR} -S ${SOURCE_DIR}/Tests/Package/Links -B ${WORK_DIR}/links -DCMAKE_PREFIX_PATH=${PREFIX}
    -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_CXX_COMPILER_LAUNCHER=${LAUNCHER})
run(${CMAKE_COMMAND} --build ${WORK_DIR}/links)

find_program(pkg_config pkg-config)
if(pkg_config)
  set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
  set(ENV{LD_LIBRARY_PATH} ${PREFIX}/${LIBDIR})
  foreach(uses IN ITEMS "USES_CORE" "USES_HOST -DUSES_CORE")
    run(sh -c "${CXX} -std=c++17 -D${uses} -Wl,--as-needed ${SOURCE_DIR}/Tests/Package/Links/Program.cpp -o ${WORK_DIR}/program-pc $(${pkg_config} --cflags --libs nqcore)")
    run(${WORK_DIR}/program-pc)
  endforeach()
endif()
