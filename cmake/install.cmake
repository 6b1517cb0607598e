# What `cmake --install` puts where, by component: process, tools, phone, development, documentation (docs/deployment.md).
include(CMakePackageConfigHelpers)

set(FXSMEDIA_SYSTEMD "" CACHE PATH "Folder for systemd's units, e.g. /lib/systemd/system; empty: none is installed")

install(TARGETS fxsmedia RUNTIME COMPONENT process)
# For whatever starts the process: a second one on its control port must not start.
install(PROGRAMS packaging/port-is-free DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/fxsmedia COMPONENT process)
if(FXSMEDIA_SYSTEMD)
    configure_file(packaging/systemd/fxsmedia.service.in packaging/fxsmedia.service @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/fxsmedia.service DESTINATION ${FXSMEDIA_SYSTEMD} COMPONENT process)
    install(FILES packaging/systemd/fxsmedia.default DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/default
        RENAME fxsmedia COMPONENT process)
    install(FILES packaging/systemd/fxsmedia.sysusers DESTINATION lib/sysusers.d RENAME fxsmedia.conf COMPONENT process)
endif()

if(FXSMEDIA_TOOLS)
    install(TARGETS fxsctl fxsheard fxsline fxslink RUNTIME COMPONENT tools)
endif()
if(TARGET fxsphone)
    install(TARGETS fxsphone RUNTIME COMPONENT phone)
    if(FXSMEDIA_SYSTEMD)
        configure_file(packaging/systemd/fxsphone.service.in packaging/fxsphone.service @ONLY)
        install(FILES ${CMAKE_BINARY_DIR}/packaging/fxsphone.service DESTINATION ${FXSMEDIA_SYSTEMD} COMPONENT phone)
        install(FILES packaging/systemd/fxsphone.sysusers DESTINATION lib/sysusers.d RENAME fxsphone.conf
            COMPONENT phone)
    endif()
endif()

file(GLOB pages docs/*.md)
install(FILES README.md CHANGELOG.md ${pages} DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT documentation)
foreach(section 1 7 8)
    file(GLOB pages docs/man/*.${section})
    if(NOT TARGET fxsphone)
        list(FILTER pages EXCLUDE REGEX "/fxsphone")
    endif()
    install(FILES ${pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT documentation)
endforeach()

# How programs of others find the client's headers, which client/ installs.
if(TARGET fxsmedia_client)
    set(package_folder ${CMAKE_INSTALL_DATADIR}/cmake/fxsmedia)
    configure_package_config_file(packaging/fxsmediaConfig.cmake.in packaging/fxsmediaConfig.cmake
        INSTALL_DESTINATION ${package_folder} PATH_VARS CMAKE_INSTALL_INCLUDEDIR)
    write_basic_package_version_file(packaging/fxsmediaConfigVersion.cmake
        COMPATIBILITY SameMinorVersion ARCH_INDEPENDENT)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/fxsmediaConfig.cmake
        ${CMAKE_BINARY_DIR}/packaging/fxsmediaConfigVersion.cmake DESTINATION ${package_folder} COMPONENT development)
    configure_file(packaging/fxsmedia-client.pc.in packaging/fxsmedia-client.pc @ONLY)
    install(FILES ${CMAKE_BINARY_DIR}/packaging/fxsmedia-client.pc
        DESTINATION ${CMAKE_INSTALL_DATADIR}/pkgconfig COMPONENT development)
endif()
