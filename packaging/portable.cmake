# The portable build as .rpm: cpack, in its folder.

install(FILES ${PROJECT_SOURCE_DIR}/debian/copyright DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR RPM)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME tav-init)
set(CPACK_PACKAGE_VENDOR "the owner of tav_init")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY
  "Agent that keeps a server's management controller informed")
set(CPACK_RPM_PACKAGE_DESCRIPTION
"Runs beside the operating system of a server and tells its baseboard
management controller (BMC) which addresses the host has, that the operating
system runs, and when the agent goes; keeps the IPMI watchdog timer from
running out where the BMC asks for that.

It needs the kernel's IPMI device and nothing else: there is no configuration.
Only one program may own the watchdog timer: not together with the driver
ipmi_watchdog or with bmc-watchdog.")
if(TAV_IANA_ENTERPRISE_NUMBER EQUAL TAV_DEMONSTRATION_NUMBER)
  string(APPEND CPACK_PACKAGE_DESCRIPTION_SUMMARY " (demonstration)")
  string(APPEND CPACK_RPM_PACKAGE_DESCRIPTION
"\n\nThis is a demonstration: it was built without the number of a maker
and no real BMC will answer to it.")
endif()

set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_LICENSE "None granted, all rights reserved by the owner")
set(CPACK_RPM_PACKAGE_GROUP "System Environment/Daemons")
set(CPACK_RPM_PACKAGE_AUTOREQPROV OFF) # it was linked here and runs elsewhere
set(CPACK_PACKAGE_RELOCATABLE OFF)
set(CPACK_RPM_COMPRESSION_TYPE gzip) # which rpm of every age reads
set(CPACK_RPM_POST_INSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/post)
set(CPACK_RPM_PRE_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/preun)
set(CPACK_RPM_POST_UNINSTALL_SCRIPT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/rpm/postun)
# Folders that are the system's own.
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
  /usr/sbin /usr/lib/systemd /usr/lib/systemd/system /usr/lib/udev /usr/lib/udev/rules.d
  /usr/lib/modules-load.d /usr/share/man /usr/share/man/man8)
# With SOURCE_DATE_EPOCH in the environment two builds give the same bytes.
set(CPACK_RPM_SPEC_MORE_DEFINE
"%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1
%define _buildhost localhost
%define _build_id_links none
%define __os_install_post %{nil}")

include(CPack)
