# What `cmake --install` puts where. The components are named after the Debian packages; everything is relocatable.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(cmakedir ${CMAKE_INSTALL_LIBDIR}/cmake/libzel)
set(made ${CMAKE_CURRENT_BINARY_DIR}/install)

install(TARGETS libzel EXPORT libzelTargets
  RUNTIME COMPONENT libzel0
  LIBRARY COMPONENT libzel0 NAMELINK_COMPONENT libzel-dev
  ARCHIVE COMPONENT libzel-dev)
install(TARGETS libzel_static EXPORT libzelStaticTargets ARCHIVE COMPONENT libzel-dev)
install(DIRECTORY include/libzel DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT libzel-dev)
if(TARGET zel)
  install(TARGETS zel RUNTIME COMPONENT libzel-tools)
endif()
if(TARGET zelsim)
  install(TARGETS zelsim RUNTIME COMPONENT libzel-tools)
endif()
if(TARGET zelgate)
  install(TARGETS zelgate RUNTIME COMPONENT zelgate)
endif()

install(EXPORT libzelTargets NAMESPACE libzel:: DESTINATION ${cmakedir} COMPONENT libzel-dev)
install(EXPORT libzelStaticTargets NAMESPACE libzel:: DESTINATION ${cmakedir} COMPONENT libzel-dev)
configure_package_config_file(cmake/libzelConfig.cmake.in ${made}/libzelConfig.cmake
  INSTALL_DESTINATION ${cmakedir} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# The SONAME's promise: programs that asked for 0.2 go on.
write_basic_package_version_file(${made}/libzelConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${made}/libzelConfig.cmake ${made}/libzelConfigVersion.cmake DESTINATION ${cmakedir}
  COMPONENT libzel-dev)

if(WIN32)
  set(private_libs "-lstdc++ -pthread -lws2_32 -liphlpapi")
else()
  set(private_libs "-lstdc++ -lm -pthread")
endif()
file(RELATIVE_PATH up /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" up ${up})
configure_file(cmake/libzel.pc.in ${made}/libzel.pc @ONLY)
install(FILES ${made}/libzel.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT libzel-dev)

if(WIN32)
  # The vendor's linker wants its own kind of import library.
  find_program(ZEL_DLLTOOL llvm-dlltool REQUIRED)
  add_custom_command(OUTPUT libzel.lib DEPENDS ${PROJECT_BINARY_DIR}/src/libzel.def VERBATIM
    COMMAND ${ZEL_DLLTOOL} -m i386:x86-64 -D libzel.dll -d ${PROJECT_BINARY_DIR}/src/libzel.def -l libzel.lib)
  add_custom_target(libzel_vendor_implib ALL DEPENDS libzel.lib)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/libzel.lib DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT libzel-dev)
endif()
