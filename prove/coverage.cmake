# SPDX-License-Identifier: MIT
# Included by the preset "coverage": what a process ran counts even if abort() ends it.
function(veklib_count_aborted)
  # The library and each program have counters of their own, which no other object can reach.
  target_sources(veklib PRIVATE ${PROJECT_SOURCE_DIR}/prove/coverage_abort.cpp)
  if(TARGET vektest)
    target_sources(vektest INTERFACE ${PROJECT_SOURCE_DIR}/prove/coverage_abort.cpp)
  endif()
endfunction()
cmake_language(DEFER CALL veklib_count_aborted)
