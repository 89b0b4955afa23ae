# Compiles by way of ccache, if it is there and works: it fails where it cannot write its directory.
find_program(CCACHE ccache)
if(CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  execute_process(
    COMMAND ${CCACHE} ${CMAKE_CXX_COMPILER} -x c++ -c /dev/null -o ${PROJECT_BINARY_DIR}/empty.o
    RESULT_VARIABLE failed OUTPUT_QUIET ERROR_QUIET)
  if(NOT failed)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
  endif()
endif()
