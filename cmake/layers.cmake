# updater_layer(name FILES patterns... [EXCEPT pattern] USES layers and libraries...): one static
# library for each layer, of all source files below src/ that fit the patterns. Include paths start
# at src/. Which layer may include which is held by tools/check-includes.py.
function(updater_layer name)
  cmake_parse_arguments(layer "" "EXCEPT" "FILES;USES" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${layer_FILES})
  if(layer_EXCEPT)
    list(FILTER sources EXCLUDE REGEX "${layer_EXCEPT}")
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name} PUBLIC ${layer_USES})
endfunction()

# updater_test(layer): the unit tests of one layer, all *_test.cpp below tests/unit/layer/.
function(updater_test layer)
  file(GLOB sources CONFIGURE_DEPENDS unit/${layer}/*_test.cpp)
  if(sources)
    add_executable(${layer}_test ${sources})
    target_include_directories(${layer}_test PRIVATE unit)
    target_compile_definitions(${layer}_test PRIVATE CASES="${CMAKE_CURRENT_SOURCE_DIR}/cases")
    target_link_libraries(${layer}_test PRIVATE ${layer} unit_testing GTest::gmock GTest::gtest_main)
    set(seconds 60)
    if(CMAKE_CROSSCOMPILING)
      set(seconds 600)  # in emulation
    endif()
    gtest_discover_tests(${layer}_test DISCOVERY_TIMEOUT ${seconds}
                         PROPERTIES ENVIRONMENT LC_ALL=C TIMEOUT ${seconds})
  endif()
endfunction()
