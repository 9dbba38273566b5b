# Where `cmake --install` puts each piece on a real system, and the two Debian packages CPack
# makes of them: qrix-platform (the host, the platform's libraries and tools, the service) and
# haulport (the settings module, the download common library, the page, the package's files).
# Nothing only the tests or the demo use is installed.
set(QRIX_PREFIX /usr/qrix)
set(QRIX_LIB_DIR ${QRIX_PREFIX}/lib)
set(HAULPORT_TARGET /var/packages/Haulport/target)
set(HAULPORT_LIB_DIR ${HAULPORT_TARGET}/lib)

# Installed programs and libraries find the libraries they need relative to themselves
# ($ORIGIN): the package's two beside each other, the platform's in /usr/qrix/lib.
set_target_properties(
  qrix_webapi qrix_vlibc qrix_system qrix_accounts qrix_shares qrix_db qrix_dlbase qrix_amule
  qrix_volume qrix_task
  PROPERTIES INSTALL_RPATH "$ORIGIN")
set_target_properties(qrix_share_api PROPERTIES INSTALL_RPATH "$ORIGIN/..")
set_target_properties(qrix-webapi qrixfstool PROPERTIES INSTALL_RPATH "$ORIGIN/../lib")
set_target_properties(haulport_setting haulport_dlcommon
  PROPERTIES INSTALL_RPATH "$ORIGIN:$ORIGIN/../../../../..${QRIX_LIB_DIR}")

install(TARGETS qrix-webapi qrixfstool RUNTIME DESTINATION ${QRIX_PREFIX}/bin COMPONENT platform)
install(TARGETS qrix_webapi qrix_vlibc qrix_system qrix_accounts qrix_shares qrix_db qrix_dlbase
                qrix_amule qrix_volume qrix_task
        LIBRARY DESTINATION ${QRIX_LIB_DIR} COMPONENT platform)
# The shared-folder API, a module the host loads, with its policy beside it.
install(TARGETS qrix_share_api LIBRARY DESTINATION ${QRIX_LIB_DIR}/webapi COMPONENT platform)
install(FILES ${CMAKE_BINARY_DIR}/platform/shares/libqrix_share_api.policy.json
        DESTINATION ${QRIX_LIB_DIR}/webapi COMPONENT platform)
install(FILES package/debian/qrix-webapi.service DESTINATION /lib/systemd/system
        COMPONENT platform)
install(FILES package/debian/qrix-webapi.pam DESTINATION /etc/pam.d RENAME qrix-webapi
        COMPONENT platform)
install(FILES package/debian/qrix-webapi.default DESTINATION /etc/default RENAME qrix-webapi
        COMPONENT platform)

install(TARGETS haulport_setting haulport_dlcommon LIBRARY DESTINATION ${HAULPORT_LIB_DIR}
        COMPONENT haulport)
install(FILES ${CMAKE_BINARY_DIR}/module/libhaulport_setting.policy.json
        DESTINATION ${HAULPORT_LIB_DIR} COMPONENT haulport)
install(DIRECTORY package/target/etc DESTINATION ${HAULPORT_TARGET} COMPONENT haulport)
install(FILES module/dlcommon/db/download.sql DESTINATION ${HAULPORT_TARGET}/db
        COMPONENT haulport)
# The page: its files and texts, not its test set-up (package.json).
install(DIRECTORY ui/ DESTINATION ${HAULPORT_TARGET}/ui COMPONENT haulport
        PATTERN package.json EXCLUDE)
install(FILES package/debian/haulport.service.conf DESTINATION /lib/systemd/system/qrix-webapi.service.d
        RENAME haulport.conf COMPONENT haulport)
install(FILES package/nginx/haulport.conf DESTINATION /usr/share/doc/haulport/examples
        RENAME nginx-site.conf COMPONENT haulport)
# Each package's copyright, changelog (compressed, as Debian has it) and lintian overrides.
execute_process(COMMAND gzip -9nc ${CMAKE_SOURCE_DIR}/package/debian/changelog
                OUTPUT_FILE ${CMAKE_BINARY_DIR}/changelog.Debian.gz COMMAND_ERROR_IS_FATAL ANY)
foreach(pair platform:qrix-platform haulport:haulport)
  string(REPLACE ":" ";" pair ${pair})
  list(GET pair 0 component)
  list(GET pair 1 package)
  install(FILES package/debian/copyright ${CMAKE_BINARY_DIR}/changelog.Debian.gz
          DESTINATION /usr/share/doc/${package} COMPONENT ${component})
  install(FILES package/debian/${package}/lintian-overrides DESTINATION /usr/share/lintian/overrides
          RENAME ${package} COMPONENT ${component})
endforeach()

# --- Debian packages.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME haulport)
set(CPACK_PACKAGE_VENDOR Haulport)
set(CPACK_PACKAGE_CONTACT "Haulport developers <developers@haulport.example.org>")
# scripts/packages sets the version (an upgrade test builds a higher one).
set(HAULPORT_VERSION "1.0.0" CACHE STRING "version of the Debian packages")
set(CPACK_PACKAGE_VERSION ${HAULPORT_VERSION})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL platform haulport)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_STRIP_FILES ON)
# The platform's own libraries are private to it (no SONAME of a public library): shlibdeps
# looks them up here instead of asking for a package that provides them.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${CMAKE_BINARY_DIR}/platform/webapi ${CMAKE_BINARY_DIR}/platform/vlibc
    ${CMAKE_BINARY_DIR}/platform/system ${CMAKE_BINARY_DIR}/platform/accounts
    ${CMAKE_BINARY_DIR}/platform/shares ${CMAKE_BINARY_DIR}/platform/db
    ${CMAKE_BINARY_DIR}/platform/dlbase ${CMAKE_BINARY_DIR}/platform/amule
    ${CMAKE_BINARY_DIR}/platform/volume ${CMAKE_BINARY_DIR}/platform/task
    ${CMAKE_BINARY_DIR}/module/dlcommon)
set(debian ${CMAKE_SOURCE_DIR}/package/debian)

set(CPACK_DEBIAN_PLATFORM_PACKAGE_NAME qrix-platform)
set(CPACK_COMPONENT_PLATFORM_DESCRIPTION
    "open NAS platform and its web-API host\nThe web-API host qrix-webapi (run as the systemd service qrix-webapi),\nthe platform libraries its modules call and the file-system tool.")
# PAM's unix module checks the passwords; useradd and groupadd make the accounts.
set(CPACK_DEBIAN_PLATFORM_PACKAGE_DEPENDS "libpam-modules, libpam-runtime, passwd")
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_EXTRA
    ${debian}/qrix-platform/postinst ${debian}/qrix-platform/prerm ${debian}/qrix-platform/postrm
    ${debian}/qrix-platform/conffiles)
set(CPACK_DEBIAN_PLATFORM_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_HAULPORT_PACKAGE_NAME haulport)
set(CPACK_COMPONENT_HAULPORT_DESCRIPTION
    "download manager settings back-end and web page\nThe settings module the web-API host serves, the download common library,\nthe settings page and the package's default settings.")
set(CPACK_DEBIAN_HAULPORT_PACKAGE_DEPENDS
    "qrix-platform (= ${HAULPORT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), passwd")
set(CPACK_DEBIAN_HAULPORT_PACKAGE_SUGGESTS "postgresql")
set(CPACK_DEBIAN_HAULPORT_PACKAGE_CONTROL_EXTRA
    ${debian}/haulport/postinst ${debian}/haulport/postrm)
set(CPACK_DEBIAN_HAULPORT_PACKAGE_CONTROL_STRICT_PERMISSION ON)
include(CPack)
