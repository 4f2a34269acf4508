# find_package(tamlog) defines
#   tamlog::static  the static library
#   tamlog::shared  the shared library (on Windows tamlog.dll)
#   tamlog::tamlog  the shared one if BUILD_SHARED_LIBS is on, else the static one
include(${CMAKE_CURRENT_LIST_DIR}/tamlogTargets.cmake)
if(NOT TARGET tamlog::tamlog)
  add_library(tamlog::tamlog INTERFACE IMPORTED)
  if(BUILD_SHARED_LIBS)
    target_link_libraries(tamlog::tamlog INTERFACE tamlog::shared)
  else()
    target_link_libraries(tamlog::tamlog INTERFACE tamlog::static)
  endif()
endif()
