# Both packages from the files that "cmake --install" installs: "cpack" in the build directory, or
# tools/package. Scripts and texts of the packages lie in dist/packages/.
set(dist ${PROJECT_SOURCE_DIR}/dist/packages)
set(made ${PROJECT_BINARY_DIR}/package)
get_property(conffiles GLOBAL PROPERTY UPDATER_CONFFILES)
list(SORT conffiles)
list(JOIN conffiles "\n" lines)
file(CONFIGURE OUTPUT ${made}/conffiles CONTENT "${lines}\n" @ONLY)

set(CPACK_GENERATOR DEB RPM)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_SOURCE_DIR}/cmake/package-config.cmake)
set(CPACK_PRE_BUILD_SCRIPTS ${PROJECT_SOURCE_DIR}/cmake/package-stage.cmake)
set(CPACK_UPDATER_TEXTS ${dist})
set(CPACK_UPDATER_MADE ${made})
set(CPACK_UPDATER_NEXT_VERSION ${UPDATER_NEXT_VERSION})
set(CPACK_UPDATER_NEXT_PROGRAM ${PROJECT_BINARY_DIR}/updater-next)

set(CPACK_PACKAGE_NAME updater)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_VENDOR "maintainers of updater")
set(CPACK_PACKAGE_CONTACT "maintainers of updater <maintainers@updater.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Unattended updates of a device from one package repository")
set(description
"updater keeps an embedded, rpm-based system up to date from one package
repository in the repomd format, over HTTP, HTTPS or from a local directory.
It does one run and exits. One word on disk tells how far the last update got,
across crashes and power cuts; only what fits together is installed; checksums
and signatures are tested before rpm sees any package.")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION ${description})
set(CPACK_RPM_PACKAGE_DESCRIPTION ${description})
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS rpm)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "systemd-sysv | sysvinit-core, dbus | sysvinit-core")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "logrotate, cron, bash-completion")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${dist}/deb/postinst ${dist}/deb/prerm ${dist}/deb/postrm
    ${made}/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE LicenseRef-proprietary)
set(CPACK_RPM_PACKAGE_GROUP System/Base)
set(CPACK_RPM_PACKAGE_REQUIRES rpm)
set(CPACK_RPM_PACKAGE_SUGGESTS "logrotate, crontabs")
set(CPACK_RPM_COMPRESSION_TYPE gzip) # the device's rpm may be older than its other formats
# Init scripts are programs there, and no configuration as with Debian.
list(TRANSFORM conffiles PREPEND "%attr(0755,root,root) " REGEX "/init.d/")
list(TRANSFORM conffiles PREPEND "%config(noreplace) " REGEX "^/")
set(CPACK_RPM_USER_FILELIST ${conffiles})
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${dist}/rpm/post)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${dist}/rpm/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${dist}/rpm/postun)
set(CPACK_RPM_CHANGELOG_FILE ${made}/changelog)
# Directories that belong to the system. What else the tree has belongs to the package.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /etc/cron.d /etc/init.d /etc/logrotate.d /usr/lib/systemd /usr/lib/systemd/system
    /usr/lib/systemd/system-preset /usr/lib/tmpfiles.d /usr/libexec /usr/sbin
    /usr/share/bash-completion /usr/share/bash-completion/completions /usr/share/doc
    /usr/share/man /usr/share/man/man5 /usr/share/man/man7 /usr/share/man/man8
    /var /var/lib /var/log /var/cache)
set(CPACK_RPM_SPEC_INSTALL_POST true) # nothing is left to do for the scripts of rpmbuild
# Time and name of the machine stay out.
set(CPACK_RPM_SPEC_MORE_DEFINE "%define packager ${CPACK_PACKAGE_CONTACT}
%define use_source_date_epoch_as_buildtime 1
%define _buildhost localhost
%define _build_id_links none")
include(CPack)
