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

# tamlog_test(NAME SOURCES file... USES target... [NEEDS target...] [LABELS label...] [EACH | SHARDS n] [EXCLUSIVE]
#             [TIMEOUT seconds] [FILTER pattern])
#
# Makes the gtest executable NAME and its ctest test, of the label `unit` unless others are given: one process runs all
# cases, because starting Wine or a sanitizer once a case takes longer than most cases do. GTEST_FILTER in the
# environment chooses cases.
#   NEEDS      programs that the cases start
#   EACH       each case is a ctest test and a process of its own. Cases are found when ctest starts, so that building
#              needs no Wine.
#   SHARDS     n processes share the cases, for those that mostly wait
#   EXCLUSIVE  the names of pipes, events, registry keys and services are shared by a whole Wine prefix: ctest gives
#              each such test one of the prefixes that CMakeLists.txt names, so as many run at a time
#   TIMEOUT    what one case takes at most on an idle machine, in seconds, 60 by default. Three times that is a hang: the
#              watchdog (tests/support/watchdog.h) ends it. ctest starts tests with a longer one first: a long test at
#              the end of a run would run alone.
#   FILTER     the cases that the ctest test runs, as a gtest filter; all by default, and not together with EACH
function(tamlog_test name)
  cmake_parse_arguments(TEST "EACH;EXCLUSIVE" "SHARDS;TIMEOUT;FILTER" "SOURCES;USES;NEEDS;LABELS" ${ARGN})
  set(properties)
  if(TEST_TIMEOUT)
    set(properties COST ${TEST_TIMEOUT})
  else()
    set(TEST_TIMEOUT 60)
  endif()
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE tamlog_options tamlog_gtest tamlog_watchdog ${TEST_USES})
  target_precompile_headers(${name} REUSE_FROM tamlog_test_headers)
  if(TEST_NEEDS)
    add_dependencies(${name} ${TEST_NEEDS})
  endif()
  # The tests that run under ThreadSanitizer: a build of these alone is enough for it.
  if("threads" IN_LIST TEST_LABELS)
    add_dependencies(threads_tests ${name})
  endif()
  if(NOT TEST_LABELS)
    set(TEST_LABELS unit)
  endif()
  if(TEST_EXCLUSIVE AND WIN32)
    list(APPEND properties RESOURCE_GROUPS "prefixes:1")
  endif()
  math(EXPR most "3 * ${TEST_TIMEOUT}")
  set(limit TAMLOG_TEST_LIMIT=${most})
  if(TEST_EACH)
    math(EXPR timeout "${most} + 15")
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 300
      PROPERTIES TIMEOUT ${timeout} ENVIRONMENT ${limit} LABELS "${TEST_LABELS}" ${properties})
    return()
  endif()
  set(arguments)
  if(TEST_FILTER)
    set(arguments --gtest_filter=${TEST_FILTER})
  endif()
  set(shards 1)
  if(TEST_SHARDS)
    set(shards ${TEST_SHARDS})
  endif()
  foreach(shard RANGE 1 ${shards})
    set(test ${name})
    set(environment ${limit})
    if(TEST_SHARDS)
      string(APPEND test .${shard})
      math(EXPR index "${shard} - 1")
      list(APPEND environment GTEST_TOTAL_SHARDS=${shards} GTEST_SHARD_INDEX=${index})
    endif()
    add_test(NAME ${test} COMMAND ${name} ${arguments})
    set_tests_properties(${test} PROPERTIES TIMEOUT 1200 ENVIRONMENT "${environment}" LABELS "${TEST_LABELS}" ${properties})
  endforeach()
endfunction()
