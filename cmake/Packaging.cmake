# Debian packages, by CPack: app-cg (the daemon as a service), app-cg-recorder, app-cg-tools (cgctl), libapp-cg-kit0 and
# libapp-cg-kit-dev (the kit for check modules, with cg_sim), app-cg-doc.
#
# CPack and not debhelper: what a package holds is said once, by the install() rules that a plain installation has too.
# What debhelper would add stands in packaging/debian, and lintian watches over it. packaging/build-packages sets the
# compiler's flags as Debian has them, runs this, and finishes the library's package.
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
compressed(packaging/debian/changelog changelog.Debian.gz)
compressed(CHANGELOG.md changelog.gz)

# manual(PAGE COMPONENT): docs/PAGE, where its section belongs. cgctl prints its own page, see there.
function(manual page component)
    compressed(docs/${page} ${page}.gz)
    string(REGEX REPLACE ".*\\." "" section ${page})
    install(FILES ${packaging_out}/${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section}
            COMPONENT ${component})
endfunction()

manual(app_cg.8 daemon)
install(FILES ${packaging}/systemd/app_cg.service ${packaging}/systemd/app_cg-alarm.service
              ${packaging}/systemd/app_cg-retry.service ${packaging}/systemd/app_cg-retry.timer
        DESTINATION ${unit_folder} COMPONENT daemon)
install(FILES ${packaging}/sysusers.conf DESTINATION lib/sysusers.d RENAME app_cg.conf COMPONENT daemon)
install(FILES ${packaging}/tmpfiles.conf DESTINATION lib/tmpfiles.d RENAME app_cg.conf COMPONENT daemon)
install(PROGRAMS ${packaging}/app_cg-life DESTINATION lib/app_cg COMPONENT daemon)
if(NOT APP_CG_TOOLS)
    return() # somebody's own platform has packages of its own
endif()

manual(cg_recorderd.8 recorder)
install(FILES ${packaging}/systemd/cg_recorderd.service DESTINATION ${unit_folder} COMPONENT recorder)
install(FILES ${packaging}/sysusers-recorder.conf DESTINATION lib/sysusers.d RENAME cg_recorder.conf
        COMPONENT recorder)

manual(app_cg_kit.3 kit_dev)
manual(cg_sim.1 kit_dev)
manual(cg_scenario.5 kit_dev)

# In the package these are files of the administrator's, and dpkg asks before it touches them; a plain installation
# would overwrite them.
install(FILES ${packaging}/platform.conf DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/app_cg COMPONENT daemon
        EXCLUDE_FROM_ALL)
install(FILES ${packaging}/logrotate.conf DESTINATION ${CMAKE_INSTALL_SYSCONFDIR}/logrotate.d RENAME app_cg
        COMPONENT daemon EXCLUDE_FROM_ALL)

# The access list without passwords, for whoever makes it by other means than cgctl.
if(APP_CG_RUNS_PROGRAMS)
    set(access_list ${packaging_out}/users.acl.template)
    file(MAKE_DIRECTORY ${packaging_out}/modules)
    file(TOUCH ${packaging_out}/modules/NAME)
    add_custom_command(OUTPUT ${access_list}
        COMMAND cgctl acl --modules ${packaging_out}/modules > ${access_list}
        DEPENDS cgctl
        COMMENT "Writing the template of the access list"
        VERBATIM)
    add_custom_target(access_list ALL DEPENDS ${access_list})
    install(FILES ${access_list} DESTINATION ${CMAKE_INSTALL_DATADIR}/app_cg COMPONENT tools)
else()
    message(WARNING "The template of the access list is left out: cgctl writes it, and without "
                    "CMAKE_CROSSCOMPILING_EMULATOR it does not run here")
endif()

# Laid out as in the sources, so that the links in them lead somewhere.
file(GLOB pages_to_read CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.md ${PROJECT_SOURCE_DIR}/docs/*.svg)
file(GLOB pages_of_manual CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/*.[1358])
install(FILES README.md HACKING.md CHANGELOG.md LICENSE DESTINATION ${documents}/app-cg-doc COMPONENT doc)
install(FILES ${pages_of_manual} DESTINATION ${documents}/app-cg-doc/docs COMPONENT doc)
install(FILES ${packaging}/debian/README.Debian DESTINATION ${documents}/app-cg-doc/packaging/debian COMPONENT doc)
install(FILES tools/demo/chassis.scenario DESTINATION ${documents}/app-cg-doc/tools/demo COMPONENT doc)
install(FILES ${pages_to_read} DESTINATION ${documents}/app-cg-doc/docs COMPONENT doc)
install(DIRECTORY docs/plots DESTINATION ${documents}/app-cg-doc/docs COMPONENT doc)
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
set(same_version "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_GENERATOR DEB)
# Else it is the machine that builds.
if(CMAKE_CROSSCOMPILING AND CMAKE_LIBRARY_ARCHITECTURE)
    execute_process(COMMAND dpkg-architecture -t${CMAKE_LIBRARY_ARCHITECTURE} -qDEB_HOST_ARCH
                    OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()
set(CPACK_PACKAGE_NAME app-cg)
set(CPACK_PACKAGE_VENDOR app_cg)
set(CPACK_PACKAGE_CONTACT "app_cg maintainers <maintainers@app-cg.example>" CACHE STRING
    "Who answers for the packages: NAME <ADDRESS>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# package(COMPONENT NAME DESCRIPTION): makes a package of a component, with what every package has to have and with the
# control files packaging/debian/NAME.*. For its dependencies and such, set CPACK_DEBIAN_<COMPONENT>_PACKAGE_*.
macro(package component name description)
    list(APPEND CPACK_COMPONENTS_ALL ${component})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${name})
    set(CPACK_DEBIAN_${upper}_DESCRIPTION "${description}")
    install(FILES ${packaging_out}/changelog.Debian.gz ${packaging_out}/changelog.gz ${packaging}/debian/copyright
            DESTINATION ${documents}/${name} COMPONENT ${component} EXCLUDE_FROM_ALL)
    set(overrides ${packaging}/debian/${name}.lintian-overrides)
    if(EXISTS ${overrides})
        install(FILES ${overrides} DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${name}
                COMPONENT ${component} EXCLUDE_FROM_ALL)
    endif()
    # What CPack takes as control files has to have these very names.
    foreach(file IN ITEMS conffiles postinst prerm postrm shlibs triggers)
        if(EXISTS ${packaging}/debian/${name}.${file})
            configure_file(${packaging}/debian/${name}.${file} ${packaging_out}/${name}/${file} COPYONLY)
            list(APPEND CPACK_DEBIAN_${upper}_PACKAGE_CONTROL_EXTRA ${packaging_out}/${name}/${file})
        endif()
    endforeach()
endmacro()

package(daemon app-cg "admission gate for line cards of modular network devices
A line card that is plugged in waits until every registered check module, each
a process of its own, has examined it. One DENY keeps the card from starting,
powers it off and reports it in the system log; all PASS, or 300 seconds of
silence, admits it.

Daemon and modules meet in an object store, a Redis server of version 7 or
Valkey.")
set(CPACK_DEBIAN_DAEMON_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DAEMON_PACKAGE_DEPENDS systemd)
set(CPACK_DEBIAN_DAEMON_PACKAGE_RECOMMENDS "app-cg-tools ${same_version}, app-cg-recorder ${same_version}")
set(CPACK_DEBIAN_DAEMON_PACKAGE_SUGGESTS "redis-server (>= 5:7.0) | valkey-server, logrotate, app-cg-doc")
install(FILES ${packaging}/debian/README.Debian DESTINATION ${documents}/app-cg COMPONENT daemon EXCLUDE_FROM_ALL)

package(recorder app-cg-recorder "recorder of the admission gate for line cards
Keeps what became of each line card in a file: the verdict, each check
module's answer and how long it took, who stayed silent, who decided and why.
cgctl shows it, and Prometheus gets metrics over HTTP, on the loopback
interface. It only reads the store, and the gate does not know that it exists.")
set(CPACK_DEBIAN_RECORDER_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RECORDER_PACKAGE_DEPENDS systemd)
set(CPACK_DEBIAN_RECORDER_PACKAGE_RECOMMENDS "app-cg-tools ${same_version}")
set(CPACK_DEBIAN_RECORDER_PACKAGE_SUGGESTS "app-cg, prometheus")

package(tools app-cg-tools "operator's command for the admission gate for line cards
cgctl lists the cards and their verdicts, shows everything that the store
holds about one of them, watches changes as they happen, asks the running
daemon, runs any command as a check module, prints the access list of the
store server, and finds out what is wrong with an installation.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
# The server's program, for the stores of `cgctl module test` and `module replay`.
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS "redis-tools | valkey-server")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "app-cg, app-cg-recorder, app-cg-doc, bash-completion")

package(kit libapp-cg-kit0 "library for check modules of the admission gate for line cards
A check module is a process that examines the line cards of a modular network
device before they may start. The library is told of the cards to examine,
asks a function of the module's about each, writes the answer, and goes on
through restarts of the store and of the gate.")
set(CPACK_DEBIAN_KIT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_KIT_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_KIT_PACKAGE_MULTIARCH same)

package(kit_dev libapp-cg-kit-dev "library for check modules of a line card gate - development files
A check module is a process that examines the line cards of a modular network
device before they may start.

What it takes to build one in C or C++: the headers, and what CMake and
pkg-config want to know about the library. cg_sim plays a chassis around the
gate and its modules, from a file.")
set(CPACK_DEBIAN_KIT_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_KIT_DEV_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_KIT_DEV_PACKAGE_DEPENDS "libapp-cg-kit0 ${same_version}")
set(CPACK_DEBIAN_KIT_DEV_PACKAGE_SUGGESTS "app-cg-doc, app-cg-tools")

package(doc app-cg-doc "documentation of the admission gate for line cards
Integration on a device, operating, writing check modules, the JSON forms, the
store's format, the security model, the architecture, the porting guide, and
examples of check modules.")
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOC_PACKAGE_SUGGESTS "libapp-cg-kit-dev, python3, python3-redis")
include(CPack)
