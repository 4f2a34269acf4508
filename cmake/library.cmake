# The client library for other programs: one static and one shared library with the C interface, headers, a CMake
# package and a pkg-config file.  `cmake --install BUILD --prefix DIR --component client` puts them into DIR.

# Raised together with TAMLOG_ABI of tamlog.h; the name of the shared library carries it where names do.
set(tamlog_abi 1 CACHE INTERNAL "number of the binary interface")
set(tamlog_objects)
foreach(room ${client_rooms})
  list(APPEND tamlog_objects $<TARGET_OBJECTS:${room}>)
endforeach()
set(tamlog_include ${PROJECT_SOURCE_DIR}/client/include)
set_target_properties(${client_rooms} PROPERTIES POSITION_INDEPENDENT_CODE ON)

add_library(tamlog_static STATIC ${tamlog_objects})
add_library(tamlog_shared SHARED ${tamlog_objects})
set_target_properties(tamlog_static PROPERTIES EXPORT_NAME static OUTPUT_NAME tamlog LINKER_LANGUAGE CXX)
set_target_properties(tamlog_shared PROPERTIES EXPORT_NAME shared OUTPUT_NAME tamlog LINKER_LANGUAGE CXX)
target_link_libraries(tamlog_shared PRIVATE tamlog_options)
# A program in C that takes the static library has to name the run-time library of C++ to its linker.
target_link_libraries(tamlog_static INTERFACE $<$<LINK_LANGUAGE:C>:stdc++>)
foreach(library tamlog_static tamlog_shared)
  target_include_directories(${library} INTERFACE $<BUILD_INTERFACE:${tamlog_include}> $<INSTALL_INTERFACE:include>)
endforeach()

if(WIN32)
  # The list of exports is the record of the binary interface. -static leaves no MinGW run-time DLL beside ours.
  target_sources(tamlog_shared PRIVATE ${PROJECT_SOURCE_DIR}/client/tamlog.def)
  target_link_options(tamlog_shared PRIVATE -static)
  target_compile_definitions(tamlog_shared INTERFACE TAMLOG_DLL)
  # The functions that the stack protector calls are in a separate library.
  target_link_libraries(tamlog_static INTERFACE ssp)
  set_target_properties(tamlog_shared PROPERTIES PREFIX "")
  tamlog_packaged(tamlog_shared "Torvane Log Server client library")
  set_target_properties(tamlog_static tamlog_shared PROPERTIES
    ARCHIVE_OUTPUT_DIRECTORY ${TAMLOG_OUTPUT}/lib)
  set(tamlog_private_libraries "-lstdc++ -lssp")
else()
  target_link_options(tamlog_shared PRIVATE LINKER:--version-script=${PROJECT_SOURCE_DIR}/client/tamlog.map)
  set_target_properties(tamlog_shared PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${tamlog_abi}
    LINK_DEPENDS ${PROJECT_SOURCE_DIR}/client/tamlog.map)
  set(tamlog_private_libraries "-lstdc++ -lm")
endif()

# The names that an installed library has.
add_library(tamlog::static ALIAS tamlog_static)
add_library(tamlog::shared ALIAS tamlog_shared)
add_library(tamlog::tamlog ALIAS tamlog_shared)

include(CMakePackageConfigHelpers)
set(package lib/cmake/tamlog)
configure_file(${PROJECT_SOURCE_DIR}/cmake/tamlog.pc.in ${CMAKE_CURRENT_BINARY_DIR}/tamlog.pc @ONLY)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/tamlogConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(TARGETS tamlog_static tamlog_shared EXPORT tamlogTargets COMPONENT client
  RUNTIME DESTINATION bin LIBRARY DESTINATION lib ARCHIVE DESTINATION lib)
install(DIRECTORY ${tamlog_include}/ DESTINATION include COMPONENT client)
install(EXPORT tamlogTargets NAMESPACE tamlog:: DESTINATION ${package} COMPONENT client)
install(FILES ${PROJECT_SOURCE_DIR}/cmake/tamlogConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/tamlogConfigVersion.cmake
  DESTINATION ${package} COMPONENT client)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tamlog.pc DESTINATION lib/pkgconfig COMPONENT client)
if(WIN32)
  # Other tool chains make their import library from it.
  install(FILES ${PROJECT_SOURCE_DIR}/client/tamlog.def DESTINATION lib COMPONENT client)
endif()
