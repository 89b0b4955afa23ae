# Run by cpack on the tree of files of one package, before it is packed.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY})
set(version ${CPACK_PACKAGE_VERSION})
set(who "${CPACK_PACKAGE_CONTACT}")

file(GLOB_RECURSE pages ${root}/usr/share/man/*.[578])
foreach(page ${pages})
  execute_process(COMMAND gzip -9nf ${page} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

if(CPACK_UPDATER_NEXT)
  file(COPY_FILE ${CPACK_UPDATER_NEXT_PROGRAM} ${root}/usr/sbin/updater)
endif()

if(CPACK_GENERATOR STREQUAL "DEB")
  string(TIMESTAMP when "%a, %d %b %Y %H:%M:%S +0000" UTC)
  set(doc ${root}/usr/share/doc/updater)
  file(MAKE_DIRECTORY ${root}/usr/share/lintian/overrides)
  file(WRITE ${doc}/changelog "updater (${version}) stable; urgency=medium

  * Version ${version}. CHANGELOG.md tells what is new.

 -- ${who}  ${when}
")
  execute_process(COMMAND gzip -9nf ${doc}/changelog COMMAND_ERROR_IS_FATAL ANY)
  file(COPY ${CPACK_UPDATER_TEXTS}/deb/copyright DESTINATION ${doc})
  file(COPY_FILE ${CPACK_UPDATER_TEXTS}/deb/lintian-overrides ${root}/usr/share/lintian/overrides/updater)
else()
  string(TIMESTAMP when "%a %b %d %Y" UTC)
  file(WRITE ${CPACK_UPDATER_MADE}/changelog "* ${when} ${who} - ${version}-1
- Version ${version}. CHANGELOG.md tells what is new.
")
endif()

if(DEFINED ENV{SOURCE_DATE_EPOCH})
  execute_process(COMMAND find ${root} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
                  COMMAND_ERROR_IS_FATAL ANY)
endif()
