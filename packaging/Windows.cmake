# What is only in the archive for Windows, which is unpacked anywhere.
set(notices ${CMAKE_CURRENT_BINARY_DIR}/COPYRIGHT.txt)
add_notices(${notices} libcli11-dev nlohmann-json3-dev mingw-w64-x86-64-dev gcc-mingw-w64-base)
install(FILES ${notices} ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${docdir}/libzel)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${docdir}/libzel RENAME LICENSE.txt)
install(FILES /usr/share/common-licenses/Apache-2.0 DESTINATION ${docdir}/libzel/LICENSES RENAME Apache-2.0.txt)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${docdir}/libzel FILES_MATCHING PATTERN *.md PATTERN *.c PATTERN *.svg)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${docdir}/libzel
  FILES_MATCHING PATTERN *.c PATTERN *.cpp)
python_package(python python)
install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/zel.lua DESTINATION wireshark)
