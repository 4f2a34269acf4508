# For presets that look for warnings: programs and shared libraries are empty files, and build/bin stays as it is.
foreach(language C CXX)
  set(CMAKE_${language}_LINK_EXECUTABLE "${CMAKE_COMMAND} -E touch <TARGET>")
  set(CMAKE_${language}_CREATE_SHARED_LIBRARY "${CMAKE_COMMAND} -E touch <TARGET> <TARGET_IMPLIB>")
  set(CMAKE_${language}_CREATE_SHARED_MODULE "${CMAKE_COMMAND} -E touch <TARGET>")
endforeach()
set(TAMLOG_OUTPUT ${PROJECT_BINARY_DIR})
