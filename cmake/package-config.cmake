# Read by cpack for each generator.
if(CPACK_UPDATER_NEXT) # "cpack -D CPACK_UPDATER_NEXT=ON"
  set(CPACK_PACKAGE_VERSION ${CPACK_UPDATER_NEXT_VERSION})
endif()
find_program(RPM_EXECUTABLE rpm REQUIRED) # is asked whether it knows suggestions
set(CPACK_RPM_PACKAGE_PROVIDES "updater-running = ${CPACK_PACKAGE_VERSION}")
