# Installs the build tree into a fresh prefix, builds examples/ against it with
# find_package(quillon2 CONFIG REQUIRED) alone, and runs the example.
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
# The pkg-config file must name the installed headers and library.
find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
  set(ENV{PKG_CONFIG_PATH} ${prefix}/lib/pkgconfig:${prefix}/lib/x86_64-linux-gnu/pkgconfig)
  run(${PKG_CONFIG} --exists --print-errors quillon2)
endif()
