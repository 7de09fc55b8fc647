# What every target of the project is compiled with: link to zel_compile_options privately.
add_library(zel_compile_options INTERFACE)
target_compile_features(zel_compile_options INTERFACE cxx_std_20)
target_compile_options(zel_compile_options INTERFACE -Wall -Wextra -Wconversion -Wshadow
  $<$<BOOL:${ZEL_WARNINGS_AS_ERRORS}>:-Werror>
  # Which lock guards what is checked wherever clang compiles.
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety -Werror=thread-safety>)
if(ZEL_SANITIZE)
  target_compile_options(zel_compile_options INTERFACE -fsanitize=${ZEL_SANITIZE} -fno-sanitize-recover=all
    -fno-omit-frame-pointer)
  target_link_options(zel_compile_options INTERFACE -fsanitize=${ZEL_SANITIZE})
endif()
if(WIN32)
  # What we build imports system DLLs only.
  target_compile_definitions(zel_compile_options INTERFACE _WIN32_WINNT=0x0602 WIN32_LEAN_AND_MEAN NOMINMAX)
  target_link_options(zel_compile_options INTERFACE -static)
endif()

if(PROJECT_IS_TOP_LEVEL)
  find_program(ZEL_CCACHE ccache)
  if(ZEL_CCACHE)
    set(CMAKE_C_COMPILER_LAUNCHER ${ZEL_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ZEL_CCACHE})
  endif()
endif()
