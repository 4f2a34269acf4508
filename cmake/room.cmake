# tamlog_room(NAME [PURE file...] [WINDOWS file...] [USES target...] [LIBS system-library...])
#
# Makes the static library tamlog_NAME of one room (folder). PURE files use the standard library only and are built
# for Windows and natively; WINDOWS files are left out of a native build, so the same lists serve the sanitizers.
function(tamlog_room name)
  cmake_parse_arguments(ROOM "" "" "PURE;WINDOWS;USES;LIBS" ${ARGN})
  set(sources ${ROOM_PURE})
  if(WIN32)
    list(APPEND sources ${ROOM_WINDOWS})
  endif()
  set(target tamlog_${name})
  if(sources)
    add_library(${target} STATIC ${sources})
    target_link_libraries(${target} PUBLIC tamlog_options ${ROOM_USES})
    if(WIN32)
      target_link_libraries(${target} PUBLIC ${ROOM_LIBS})
    endif()
  else()
    add_library(${target} INTERFACE)
    target_link_libraries(${target} INTERFACE tamlog_options ${ROOM_USES})
  endif()
endfunction()

# tamlog_test(NAME SOURCES file... USES target... [LABELS label...] [EXCLUSIVE] [TIMEOUT seconds])
#
# Makes the gtest executable NAME and one ctest test per case. EXCLUSIVE cases need a Wine prefix for themselves: the
# names of pipes, events, registry keys and services are shared by all of it. ctest gives each one of those that
# CMakeLists.txt names, so as many run side by side as there are prefixes.
# Cases are found when ctest starts, so that building needs no Wine.
function(tamlog_test name)
  cmake_parse_arguments(TEST "EXCLUSIVE" "TIMEOUT" "SOURCES;USES;LABELS" ${ARGN})
  if(NOT TEST_TIMEOUT)
    set(TEST_TIMEOUT 60)
  endif()
  add_executable(${name} ${TEST_SOURCES})
  target_link_libraries(${name} PRIVATE tamlog_options tamlog_gtest ${TEST_USES})
  target_precompile_headers(${name} REUSE_FROM tamlog_test_headers)
  set(properties TIMEOUT ${TEST_TIMEOUT})
  if(TEST_EXCLUSIVE AND WIN32)
    list(APPEND properties RESOURCE_GROUPS "prefixes:1")
  endif()
  if(TEST_LABELS)
    list(APPEND properties LABELS "${TEST_LABELS}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 120 PROPERTIES ${properties})
endfunction()
