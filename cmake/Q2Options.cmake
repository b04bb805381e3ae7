# Compiler settings shared by every target of the project. The warning flags live
# here and nowhere else; tests may relax a few on their own targets.

find_program(Q2_CCACHE ccache)
if(Q2_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_C_COMPILER_LAUNCHER ${Q2_CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${Q2_CCACHE})
endif()

add_library(q2_warnings INTERFACE)
target_compile_options(q2_warnings INTERFACE -Wall -Wextra -Wpedantic)
# CI turns warnings into errors for every target built here.
option(Q2_WERROR "Treat compiler warnings as errors" OFF)
if(Q2_WERROR)
  target_compile_options(q2_warnings INTERFACE -Werror)
endif()

# Sanitizers apply to everything built in this tree, library and tests alike.
if(Q2_SANITIZE)
  set(Q2_SANITIZE_FLAGS -fsanitize=${Q2_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_compile_options(${Q2_SANITIZE_FLAGS})
  add_link_options(${Q2_SANITIZE_FLAGS})
endif()

if(Q2_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "Q2_FUZZ needs clang (CXX=clang++)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()
