# One place for what every target is compiled with.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET default)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# Installed, shared libraries find each other beside them, and programs find them from where they lie.
file(RELATIVE_PATH nqcore_lib_from_bin ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN" "$ORIGIN/${nqcore_lib_from_bin}")

# In depend mode a file that is not in the cache is not preprocessed for its key first. The rest lets precompiled headers be cached.
find_program(NQCORE_CCACHE ccache)
if(NQCORE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_DEPEND=1 CCACHE_SLOPPINESS=pch_defines,time_macros ${NQCORE_CCACHE})
endif()

# Saved documents must read the same on every machine: no fused multiply-add, no reassociation.
add_compile_options(-ffp-contract=off -fno-fast-math)

if(NQCORE_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link) # coverage that steers the fuzzers; they alone link its runtime
endif()

if(NQCORE_SANITIZE)
  add_compile_options(-fsanitize=${NQCORE_SANITIZE} -fno-omit-frame-pointer)
  if(NQCORE_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=all)
  endif()
  add_link_options(-fsanitize=${NQCORE_SANITIZE})
endif()

# Warnings belong to the project's own targets, never to those of a client.
function(nq_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion
                                           -Wundef -Wcast-align -Woverloaded-virtual)
  if(NQCORE_WERROR)
    # gcc 12 sees overflows in std::vector at -O3 that are not there.
    target_compile_options(${target} PRIVATE -Werror $<$<CXX_COMPILER_ID:GNU>:-Wno-error=stringop-overflow>)
  endif()
endfunction()
