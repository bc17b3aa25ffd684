# Debian packages, by CPack: app-cg (the daemon as a service), app-cg-tools (cgctl), app-cg-doc.
#
# CPack and not debhelper: what a package holds is said once, by the install() rules that a plain installation has too.
# What debhelper would add stands in packaging/debian, and lintian watches over it. packaging/build-packages sets the
# compiler's flags as Debian has them and runs this.
#
# Everything that makes sense in a Debian package alone is excluded from a plain installation.
set(packaging ${PROJECT_SOURCE_DIR}/packaging)
set(documents ${CMAKE_INSTALL_DATADIR}/doc)
set(unit_folder lib/systemd/system)

# compressed(FILE NAME): a file as Debian wants it, in ${packaging_out}/NAME. Without the time of day in it, so that the
# same sources give the same bytes.
find_program(GZIP gzip REQUIRED)
set(packaging_out ${PROJECT_BINARY_DIR}/packaging)
file(MAKE_DIRECTORY ${packaging_out})
function(compressed file name)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${file})
    execute_process(COMMAND ${GZIP} -9 -n -c ${PROJECT_SOURCE_DIR}/${file} OUTPUT_FILE ${packaging_out}/${name}
                    COMMAND_ERROR_IS_FATAL ANY)
endfunction()
compressed(docs/app_cg.8 app_cg.8.gz)
compressed(packaging/debian/changelog changelog.Debian.gz)
compressed(CHANGELOG.md changelog.gz)

install(FILES ${packaging_out}/app_cg.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT daemon)
install(FILES ${packaging}/systemd/app_cg.service ${packaging}/systemd/app_cg-alarm.service
              ${packaging}/systemd/app_cg-retry.service ${packaging}/systemd/app_cg-retry.timer
        DESTINATION ${unit_folder} COMPONENT daemon)
install(FILES ${packaging}/sysusers.conf DESTINATION lib/sysusers.d RENAME app_cg.conf COMPONENT daemon)
install(FILES ${packaging}/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME app_cg.conf COMPONENT daemon)
install(PROGRAMS ${packaging}/app_cg-life DESTINATION lib/app_cg COMPONENT daemon)
if(NOT APP_CG_TOOLS)
    return() # somebody's own platform has packages of its own
endif()

install(FILES ${packaging}/systemd/cg_recorderd.service DESTINATION ${unit_folder} COMPONENT recorder)

compressed(docs/cg_scenario.5 cg_scenario.5.gz)
install(FILES ${packaging_out}/cg_scenario.5.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT tools)

# In the package this is a file of the administrator's, and dpkg asks before it touches it; a plain installation would
# overwrite it.
install(FILES ${packaging}/platform.conf DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/app_cg COMPONENT daemon
        EXCLUDE_FROM_ALL)

# Laid out as in the sources, so that the links in them lead somewhere.
install(FILES README.md DESTINATION ${documents}/app-cg-doc COMPONENT doc)
file(GLOB pages_to_read CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md)
install(FILES ${pages_to_read} DESTINATION ${documents}/app-cg-doc/docs COMPONENT doc)
# What the lines in the log mean is wanted where they are written.
install(FILES docs/operating.md DESTINATION ${documents}/app-cg COMPONENT daemon)
install(DIRECTORY kit/examples DESTINATION ${documents}/app-cg-doc/kit COMPONENT doc USE_SOURCE_PERMISSIONS
        PATTERN __pycache__ EXCLUDE)

# The Debian changelog carries the version of the packages; two truths about it would not stay the same.
file(STRINGS ${packaging}/debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^app-cg \\(${PROJECT_VERSION}-([0-9]+)\\) ")
    message(FATAL_ERROR "packaging/debian/changelog does not begin with version ${PROJECT_VERSION}: ${newest}")
endif()
set(CPACK_DEBIAN_PACKAGE_RELEASE ${CMAKE_MATCH_1})

# package_documents(COMPONENT PACKAGE): what every package has to have.
function(package_documents component package)
    install(FILES ${packaging_out}/changelog.Debian.gz ${packaging_out}/changelog.gz ${packaging}/debian/copyright
            DESTINATION ${documents}/${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
package_documents(daemon app-cg)
package_documents(tools app-cg-tools)
package_documents(doc app-cg-doc)
install(FILES ${packaging}/debian/README.Debian DESTINATION ${documents}/app-cg COMPONENT daemon EXCLUDE_FROM_ALL)
foreach(component_package IN ITEMS daemon:app-cg tools:app-cg-tools doc:app-cg-doc)
    string(REPLACE : ";" pair ${component_package})
    list(POP_FRONT pair component package)
    if(EXISTS ${packaging}/debian/${package}.lintian-overrides)
        install(FILES ${packaging}/debian/${package}.lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
                RENAME ${package} COMPONENT ${component} EXCLUDE_FROM_ALL)
    endif()
endforeach()

# What CPack takes as control files has to have these very names.
foreach(script IN ITEMS postinst prerm postrm)
    configure_file(${packaging}/debian/app-cg.${script} ${packaging_out}/${script} COPYONLY)
endforeach()
file(WRITE ${packaging_out}/conffiles "/etc/app_cg/platform.conf\n")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME app-cg)
set(CPACK_PACKAGE_VENDOR app_cg)
set(CPACK_PACKAGE_CONTACT "app_cg maintainers <maintainers@app-cg.example>" CACHE STRING
    "Who answers for the packages: NAME <ADDRESS>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL daemon tools doc)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME app-cg)
set(CPACK_DEBIAN_DAEMON_DESCRIPTION "admission gate for line cards of modular network devices
A line card that is plugged in waits until every registered check module, each
a process of its own, has examined it. One DENY keeps the card from starting,
powers it off and reports it in the system log; all PASS, or 300 seconds of
silence, admits it.

Daemon and modules meet in an object store, a Redis server of version 7.")
set(CPACK_DEBIAN_DAEMON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS systemd)
set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS "app-cg-tools (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS "redis-server (>= 5:7.0), app-cg-doc")
set(CPACK_DEBIAN_DAEMON_PACKAGE_CONTROL_EXTRA ${packaging_out}/postinst ${packaging_out}/prerm ${packaging_out}/postrm
    ${packaging_out}/conffiles)

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME app-cg-tools)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "operator's command for the admission gate for line cards
cgctl lists the cards and their verdicts, shows everything that the store
holds about one of them, watches changes as they happen, asks the running
daemon, runs any command as a check module, prints the access list of the
store server, and finds out what is wrong with an installation.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "app-cg, app-cg-doc")

set(CPACK_DEBIAN_DOC_PACKAGE_NAME app-cg-doc)
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_DESCRIPTION "documentation of the admission gate for line cards
Integration on a device, operating, writing check modules, the JSON forms, the
store's format, the security model, the architecture, the porting guide, and
examples of check modules.")
set(CPACK_DEBIAN_DOC_PACKAGE_SUGGESTS "python3, python3-redis")
include(CPack)
