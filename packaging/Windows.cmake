# What is only in the archive for Windows, which is unpacked anywhere.
set(notices ${CMAKE_CURRENT_BINARY_DIR}/COPYRIGHT.txt)
add_notices(${notices} libcli11-dev nlohmann-json3-dev mingw-w64-x86-64-dev gcc-mingw-w64-base doxygen doxygen-awesome-css)
install(FILES ${notices} ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md ${PROJECT_SOURCE_DIR}/SECURITY.md
  ${PROJECT_SOURCE_DIR}/CONTRIBUTING.md DESTINATION ${docdir}/libzel)
# What is seen first. The site that documents.html leads to is put there by package.sh.
configure_file(windows/README.txt.in README.txt @ONLY NEWLINE_STYLE CRLF)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/README.txt windows/documents.html DESTINATION .)
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION . RENAME LICENSE.txt)
install(FILES /usr/share/common-licenses/Apache-2.0 DESTINATION ${docdir}/libzel/LICENSES RENAME Apache-2.0.txt)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${docdir}/libzel FILES_MATCHING PATTERN *.md PATTERN *.c PATTERN *.svg)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${docdir}/libzel
  FILES_MATCHING PATTERN *.c PATTERN *.cpp)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/examples DESTINATION ${docdir}/libzel/python FILES_MATCHING PATTERN *.py
  PATTERN __pycache__ EXCLUDE)
python_package(python python)
install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/zel.lua DESTINATION wireshark)
