# The five Debian packages; the components have their names.
set(packages libzel0 libzel-dev libzel-tools python3-libzel zelgate)
set(CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)

file(STRINGS debian/changelog newest LIMIT_COUNT 1)
if(NOT newest MATCHES "^libzel \\(${debian_version}\\) ")
  message(FATAL_ERROR "packaging/debian/changelog has no entry for ${debian_version}.")
endif()

foreach(package IN LISTS packages)
  set(copyright ${CMAKE_CURRENT_BINARY_DIR}/${package}/copyright)
  set(contained)
  if(package STREQUAL libzel-tools)
    set(contained libcli11-dev nlohmann-json3-dev libasio-dev)
  elseif(package STREQUAL zelgate)
    set(contained libcli11-dev nlohmann-json3-dev libtoml11-dev)
  endif()
  add_notices(${copyright} ${contained})
  install(FILES ${copyright} DESTINATION ${docdir}/${package} COMPONENT ${package})
  zipped(changelog.Debian ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog ${docdir}/${package} ${package})
  zipped(changelog ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${docdir}/${package} ${package})
  file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${package}/overrides
    "# These packages are not uploaded to Debian, so there is no bug that asks for them.\n"
    "${package}: initial-upload-closes-no-bugs [*]\n")
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}/overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
    RENAME ${package} COMPONENT ${package})
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${docdir}/libzel-dev COMPONENT libzel-dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${docdir}/libzel-dev COMPONENT libzel-dev
  FILES_MATCHING PATTERN *.md PATTERN *.c PATTERN *.svg)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${docdir}/libzel-dev COMPONENT libzel-dev
  FILES_MATCHING PATTERN *.c PATTERN *.cpp)

# The tools' pages. zel loads the library, so it runs where no network is.
set(lab ${PROJECT_SOURCE_DIR}/tests/lab/lab.sh)
set(generated_kinds man bash zsh fish)
set(generated_files zel.1 zel.bash zel.zsh zel.fish)
foreach(kind file IN ZIP_LISTS generated_kinds generated_files)
  add_custom_command(OUTPUT ${file} DEPENDS zel VERBATIM
    COMMAND sh -c "'${lab}' -- '$<TARGET_FILE:zel>' --generate ${kind} > ${file}")
  set_property(TARGET package_files APPEND PROPERTY SOURCES ${CMAKE_CURRENT_BINARY_DIR}/${file})
endforeach()
add_custom_command(OUTPUT zelgate.1 DEPENDS zelgate VERBATIM
  COMMAND sh -c "'${lab}' -- help2man --no-info --name='fleets of Zel devices on NATS' '$<TARGET_FILE:zelgate>' > zelgate.1")
zipped(zelgate.1 ${CMAKE_CURRENT_BINARY_DIR}/zelgate.1 ${CMAKE_INSTALL_MANDIR}/man1 zelgate)
add_custom_command(OUTPUT zelsim.1 DEPENDS zelsim VERBATIM
  COMMAND help2man --no-info --name=simulated\ Zel\ devices --output=zelsim.1 $<TARGET_FILE:zelsim>)
foreach(program zel zelsim)
  zipped(${program}.1 ${CMAKE_CURRENT_BINARY_DIR}/${program}.1 ${CMAKE_INSTALL_MANDIR}/man1 libzel-tools)
endforeach()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zel.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
  RENAME zel COMPONENT libzel-tools)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zel.zsh DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions
  RENAME _zel COMPONENT libzel-tools)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zel.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d
  COMPONENT libzel-tools)
install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/zel.lua DESTINATION ${CMAKE_INSTALL_LIBDIR}/wireshark/plugins
  COMPONENT libzel-tools)

# Nothing of zelgate starts by itself: the configuration is to be written first.
install(DIRECTORY zelgate/systemd/ DESTINATION lib/systemd/system COMPONENT zelgate)
install(DIRECTORY zelgate/nats DESTINATION ${docdir}/zelgate/examples COMPONENT zelgate)
install(FILES zelgate/zelgate.toml zelgate/hub.toml DESTINATION ${docdir}/zelgate/examples COMPONENT zelgate)
install(FILES ${PROJECT_SOURCE_DIR}/docs/gate.md DESTINATION ${docdir}/zelgate COMPONENT zelgate)

set(python lib/python3/dist-packages)
python_package(${python} python3-libzel)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/examples DESTINATION ${docdir}/python3-libzel COMPONENT python3-libzel
  FILES_MATCHING PATTERN *.py PATTERN __pycache__ EXCLUDE)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/METADATA
  "Metadata-Version: 2.1\nName: zel\nVersion: ${PROJECT_VERSION}\n"
  "Summary: Client of the Zel device communication protocol, on the libzel library\nLicense: Apache-2.0\nRequires-Python: >=3.9\n")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/METADATA DESTINATION ${python}/zel-${PROJECT_VERSION}.egg-info
  RENAME PKG-INFO COMPONENT python3-libzel)

set(CPACK_PACKAGE_NAME libzel)
set(CPACK_PACKAGE_VENDOR "libzel project")
# Or it would stand above the descriptions of all packages.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "libzel maintainers <maintainers@libzel.example>")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS ${CMAKE_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS})
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/SetTimes.cmake)
set(CPACK_THREADS 1)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL ${packages})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SOURCE libzel)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE none) # package.sh packs them once more

# describe PACKAGE SECTION SUMMARY TEXT: the summary is the first line, the text has a line in each line.
macro(describe package section summary text)
  string(TOUPPER ${package} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  set(CPACK_DEBIAN_${upper}_PACKAGE_SECTION ${section})
  set(CPACK_DEBIAN_${upper}_DESCRIPTION "${summary}\n${text}")
  set(CPACK_COMPONENT_${upper}_DESCRIPTION "${summary}\n${text}")
endmacro()

set(about "The Zel protocol joins supervisory software to devices in machines. An
application names a device by its identifier and exchanges requests,
publications and routed messages with it, finds the devices on the local
networks, and sends them files.")
describe(libzel0 libs "Zel device communication protocol, client library" "${about}
.
This package has the shared library.")
describe(libzel-dev libdevel "Zel device communication protocol, development files" "${about}
.
This package has the headers for C and C++, the static library, files for
CMake and pkg-config, and examples.")
describe(libzel-tools net "Zel device communication protocol, tools" "${about}
.
This package has the program zel, which does all of that from a shell, the
device simulator zelsim, and a dissector for Wireshark and tshark.")
describe(zelgate net "Zel device communication protocol, fleets on NATS JetStream" "${about}
.
This package has the program zelgate, which brings the events of many devices
at several sites into NATS streams, and requests to the devices, with units
for systemd and example configurations.")
describe(python3-libzel python "Zel device communication protocol, Python package" "${about}
.
This package has the module zel for Python 3.")

set(CPACK_DEBIAN_LIBZEL0_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_LIBZEL-TOOLS_PACKAGE_SHLIBDEPS ON)
# Names and lines for debuggers, in libzel0-dbgsym, libzel-tools-dbgsym and zelgate-dbgsym.
set(CPACK_DEBIAN_LIBZEL0_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_LIBZEL-TOOLS_DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_ZELGATE_DEBUGINFO_PACKAGE ON)
install(CODE "execute_process(COMMAND ${CMAKE_STRIP} --strip-debug --enable-deterministic-archives
  \$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/libzel.a COMMAND_ERROR_IS_FATAL ANY)" COMPONENT libzel-dev)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_LIBZEL-DEV_PACKAGE_DEPENDS "libzel0 (= ${debian_version}), libc6-dev")
set(CPACK_DEBIAN_LIBZEL-DEV_PACKAGE_SUGGESTS "cmake, pkgconf")
set(CPACK_DEBIAN_LIBZEL-TOOLS_PACKAGE_DEPENDS "libzel0 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_LIBZEL-TOOLS_PACKAGE_SUGGESTS "bash-completion, tshark | wireshark")
set(CPACK_DEBIAN_ZELGATE_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_ZELGATE_PACKAGE_DEPENDS "libzel0 (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_ZELGATE_PACKAGE_SUGGESTS "libzel-tools, nats-server, prometheus")
set(CPACK_DEBIAN_PYTHON3-LIBZEL_PACKAGE_DEPENDS "libzel0 (>= ${PROJECT_VERSION}), python3:any (>= 3.9)")
set(CPACK_DEBIAN_PYTHON3-LIBZEL_PACKAGE_ARCHITECTURE all)

foreach(node IN LISTS ZEL_EXPORT_NODES)
  set(since ${ZEL_SINCE_${node}})
  list(TRANSFORM ZEL_EXPORTS_${node} REPLACE "(.+)" " \\1@${node} ${since}" OUTPUT_VARIABLE names)
  list(APPEND symbols " ${node}@${node} ${since}" ${names})
endforeach()
list(SORT symbols)
list(JOIN symbols "\n" symbols)
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/symbols "libzel.so.0 libzel0 #MINVER#\n${symbols}\n")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/shlibs "libzel 0 libzel0 (>= ${since})\n")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_LIBZEL0_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_BINARY_DIR}/symbols ${CMAKE_CURRENT_BINARY_DIR}/shlibs
  ${CMAKE_CURRENT_BINARY_DIR}/triggers)
set(CPACK_DEBIAN_PYTHON3-LIBZEL_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst
  ${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm)
include(CPack)
