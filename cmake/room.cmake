# tamlog_room(NAME [PURE file...] [PORTABLE file...] [SYSTEM file...] [USES target...] [LIBS system-library...])
#
# Makes the static library tamlog_NAME of one room (folder).
#   PURE      uses the standard library only (scripts/check-rooms.py checks it, with all that the file includes)
#   PORTABLE  compiles everywhere; calls the system through SYSTEM files only. A native build takes what it needs of
#             these, with stand-ins for the SYSTEM files (tests/native) or with their *_posix.cpp counterparts.
#   SYSTEM    calls the system: *_posix.cpp is built natively only, everything else for Windows only
function(tamlog_room name)
  cmake_parse_arguments(ROOM "" "" "PURE;PORTABLE;SYSTEM;USES;LIBS" ${ARGN})
  if(ROOM_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "tamlog_room(${name}): unknown: ${ROOM_UNPARSED_ARGUMENTS}")
  endif()
  set(system ${ROOM_SYSTEM})
  if(WIN32)
    list(FILTER system EXCLUDE REGEX "_posix\\.cpp$")
  else()
    list(FILTER system INCLUDE REGEX "_posix\\.cpp$")
    set(ROOM_LIBS)
  endif()
  set(sources ${ROOM_PURE} ${ROOM_PORTABLE} ${system})
  set(target tamlog_${name})
  if(sources)
    add_library(${target} STATIC ${sources})
    target_link_libraries(${target} PUBLIC tamlog_options ${ROOM_USES} ${ROOM_LIBS})
  else()
    add_library(${target} INTERFACE)
    target_link_libraries(${target} INTERFACE tamlog_options ${ROOM_USES})
  endif()
endfunction()

# tamlog_distribution_headers(TARGET LIBRARY...)
#
# Lets TARGET include header-only libraries of the distribution (/usr/include/LIBRARY). A cross build must not see the
# rest of /usr/include, so each is linked into a directory of the build.
function(tamlog_distribution_headers target)
  set(headers ${CMAKE_BINARY_DIR}/headers/${target})
  file(MAKE_DIRECTORY ${headers})
  foreach(library ${ARGN})
    file(CREATE_LINK /usr/include/${library} ${headers}/${library} SYMBOLIC)
  endforeach()
  get_target_property(type ${target} TYPE)
  set(scope PUBLIC)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set(scope INTERFACE)
  endif()
  target_include_directories(${target} SYSTEM ${scope} ${headers})
endfunction()

# tamlog_test(NAME SOURCES file... USES target... [NEEDS target...] [LABELS label...] [EXCLUSIVE] [TIMEOUT seconds])
#
# Makes the gtest executable NAME and one ctest test per case. NEEDS names programs that the cases start. EXCLUSIVE
# cases need a Wine prefix for themselves: the names of pipes, events, registry keys and services are shared by all of
# it. ctest gives each one of those that CMakeLists.txt names, so as many run side by side as there are prefixes.
# Cases are found when ctest starts, so that building needs no Wine.
function(tamlog_test name)
  cmake_parse_arguments(TEST "EXCLUSIVE" "TIMEOUT" "SOURCES;USES;NEEDS;LABELS" ${ARGN})
  if(NOT TEST_TIMEOUT)
    set(TEST_TIMEOUT 60)
  endif()
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE tamlog_options tamlog_gtest ${TEST_USES})
  target_precompile_headers(${name} REUSE_FROM tamlog_test_headers)
  if(TEST_NEEDS)
    add_dependencies(${name} ${TEST_NEEDS})
  endif()
  set(properties TIMEOUT ${TEST_TIMEOUT})
  if(TEST_EXCLUSIVE AND WIN32)
    list(APPEND properties RESOURCE_GROUPS "prefixes:1")
  endif()
  if(TEST_LABELS)
    list(APPEND properties LABELS "${TEST_LABELS}")
  endif()
  # What ThreadSanitizer looks at: a build of these tests alone is enough for it.
  if("threads" IN_LIST TEST_LABELS)
    add_dependencies(threads_tests ${name})
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES ${properties})
endfunction()
