# The warnings and hardening that every target of ours is built with. Third-party code (gtest) is not.
# Warnings do not stop a build of the programs alone, perhaps with another compiler.
option(TAMLOG_WARNINGS_ARE_ERRORS "stop at the first warning" ON)
add_library(tamlog_options INTERFACE)
target_compile_features(tamlog_options INTERFACE cxx_std_20)
target_compile_options(tamlog_options INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
  -Wcast-qual -Wcast-align -Wformat=2 -Wnon-virtual-dtor -Woverloaded-virtual -Wnull-dereference -Wundef
  -Wextra-semi $<$<BOOL:${TAMLOG_WARNINGS_ARE_ERRORS}>:-Werror>>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tamlog_options INTERFACE
    $<$<COMPILE_LANGUAGE:CXX>:-Wuseless-cast -Wduplicated-cond -Wlogical-op -Wsuggest-override>)
  if(CMAKE_CXX_FLAGS MATCHES "-fsanitize=thread")
    # ThreadSanitizer does not see fences. Ours order reads of memory that another process writes, which it does
    # not see either.
    target_compile_options(tamlog_options INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wno-tsan>)
  endif()
endif()
target_compile_definitions(tamlog_options INTERFACE _GLIBCXX_ASSERTIONS)
# No file depends on the place of the tree: builds in two places are equal. Debuggers look for the sources in the
# current directory.
target_compile_options(tamlog_options INTERFACE -ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
# Debug information names the options by default. A compiler cache adds some of its own to those of files that use
# precompiled headers.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tamlog_options INTERFACE -gno-record-gcc-switches)
endif()
# A compiler cache may pass paths relative to the directory of the build.
file(RELATIVE_PATH tamlog_source_from_build ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR})
string(REGEX REPLACE "/$" "" tamlog_source_from_build "${tamlog_source_from_build}")
target_compile_options(tamlog_options INTERFACE -ffile-prefix-map=${tamlog_source_from_build}=.)
if(WIN32)
  target_compile_definitions(tamlog_options INTERFACE _WIN32_WINNT=0x0601 NOMINMAX WIN32_LEAN_AND_MEAN)
  # The sections let the linker drop unused code.
  target_compile_options(tamlog_options INTERFACE -fstack-protector-strong -ffunction-sections -fdata-sections)
  # The build id joins a stripped program and its symbols. A time in the header would make every build differ.
  target_link_options(tamlog_options INTERFACE -Wl,--gc-sections -fstack-protector-strong -Wl,--build-id
                      -Wl,--no-insert-timestamp)
endif()
target_include_directories(tamlog_options INTERFACE ${PROJECT_SOURCE_DIR})
