# What is only in the archive for Windows, which is unpacked anywhere.
set(notices ${CMAKE_CURRENT_BINARY_DIR}/COPYRIGHT.txt)
add_notices(${notices} libcli11-dev nlohmann-json3-dev mingw-w64-x86-64-dev gcc-mingw-w64-base)
install(FILES ${notices} ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${docdir}/libzel)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs DESTINATION ${docdir}/libzel FILES_MATCHING PATTERN *.md PATTERN *.c PATTERN *.svg)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/examples DESTINATION ${docdir}/libzel
  FILES_MATCHING PATTERN *.c PATTERN *.cpp)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/python/zel DESTINATION python
  FILES_MATCHING PATTERN *.py PATTERN py.typed PATTERN __pycache__ EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/tools/wireshark/zel.lua DESTINATION wireshark)
