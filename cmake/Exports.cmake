# Makes the linker's two export lists (a version script and a .def file) from cmake/exports.txt.
file(STRINGS ${PROJECT_SOURCE_DIR}/cmake/exports.txt ZEL_EXPORTS)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.txt)

function(zel_limit_exports target)
  if(WIN32)
    list(JOIN ZEL_EXPORTS "\n  " names)
    set(def ${CMAKE_CURRENT_BINARY_DIR}/libzel.def)
    file(CONFIGURE OUTPUT ${def} CONTENT "LIBRARY libzel.dll\nEXPORTS\n  @names@\n" @ONLY)
    target_sources(${target} PRIVATE ${def})
  else()
    list(JOIN ZEL_EXPORTS ";\n    " names)
    set(map ${CMAKE_CURRENT_BINARY_DIR}/libzel.map)
    # Programs are linked to the version's name: it stays when ours goes up. New names get a node of their own.
    file(CONFIGURE OUTPUT ${map} CONTENT "LIBZEL_0.2 {\n  global:\n    @names@;\n  local:\n    *;\n};\n" @ONLY)
    target_link_options(${target} PRIVATE -Wl,--version-script=${map} -Wl,-z,nodelete)
    # The sanitizers' own functions come from the program.
    if(NOT ZEL_SANITIZE)
      target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${map})
  endif()
endfunction()
