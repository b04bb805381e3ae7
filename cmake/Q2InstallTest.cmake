# Installs the build tree into a fresh prefix (not the configured one), builds the
# example against it with find_package(quillon2 CONFIG REQUIRED) alone and with the flags
# of pkg-config alone, and runs both programs.
file(REMOVE_RECURSE ${Q2_WORK_DIR})
set(prefix ${Q2_WORK_DIR}/prefix)

function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}")
  endif()
endfunction()

run(${CMAKE_COMMAND} --install ${Q2_BINARY_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${Q2_SOURCE_DIR}/examples -B ${Q2_WORK_DIR}/build -G ${Q2_GENERATOR}
    -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=Release)
run(${CMAKE_COMMAND} --build ${Q2_WORK_DIR}/build)
run(${Q2_WORK_DIR}/build/quillon2_demo)
# The pkg-config file alone must build and link a client against the installed files.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig:${prefix}/lib/x86_64-linux-gnu/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs quillon2
  OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "pkg-config does not know quillon2")
endif()
execute_process(COMMAND ${PKG_CONFIG} --variable=prefix quillon2
  OUTPUT_VARIABLE pc_prefix OUTPUT_STRIP_TRAILING_WHITESPACE)
file(REAL_PATH "${pc_prefix}" pc_prefix)
file(REAL_PATH "${prefix}" real_prefix)
if(NOT pc_prefix STREQUAL real_prefix)
  message(FATAL_ERROR "pkg-config names the prefix ${pc_prefix}, not ${real_prefix}")
endif()
separate_arguments(flags UNIX_COMMAND "${flags}")
find_program(CXX NAMES c++ g++ REQUIRED)
run(${CXX} ${Q2_SOURCE_DIR}/examples/demo.cpp -o ${Q2_WORK_DIR}/demo_pkg_config ${flags})
file(GLOB libdirs LIST_DIRECTORIES true ${prefix}/lib ${prefix}/lib/x86_64-linux-gnu)
string(REPLACE ";" ":" libpath "${libdirs}")
run(${CMAKE_COMMAND} -E env LD_LIBRARY_PATH=${libpath} ${Q2_WORK_DIR}/demo_pkg_config)
