# tessel_subsystem(NAME [DIRS dir...] [DEPS target...])
# Builds every .cpp of src/NAME (or of DIRS) into the static library tessel_NAME.
function(tessel_subsystem NAME)
  cmake_parse_arguments(ARG "" "" "DIRS;DEPS" ${ARGN})
  if(NOT ARG_DIRS)
    set(ARG_DIRS src/${NAME})
  endif()
  set(SOURCES)
  foreach(DIR ${ARG_DIRS})
    file(GLOB DIR_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${DIR}/*.cpp)
    list(APPEND SOURCES ${DIR_SOURCES})
  endforeach()
  if(NOT SOURCES)
    set(SOURCES ${CMAKE_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(tessel_${NAME} STATIC ${SOURCES})
  target_include_directories(tessel_${NAME} PUBLIC ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
  if(ARG_DEPS)
    target_link_libraries(tessel_${NAME} PUBLIC ${ARG_DEPS})
  endif()
  if(NAME STREQUAL "foundation")
    find_package(Threads REQUIRED)
    target_link_libraries(tessel_${NAME} PUBLIC Threads::Threads)
    # foundation/tessel_version.h, generated from the project version.
    configure_file(${CMAKE_SOURCE_DIR}/cmake/tessel_version.h.in
                   ${CMAKE_BINARY_DIR}/generated/foundation/tessel_version.h @ONLY)
    target_include_directories(tessel_${NAME} PUBLIC ${CMAKE_BINARY_DIR}/generated)
  endif()
endfunction()

# tessel_test_suite(NAME DEPS target...)
# One GoogleTest program of every .cpp in tests/NAME.
function(tessel_test_suite NAME)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${NAME}/*.cpp)
  if(NOT SOURCES)
    return()
  endif()
  add_executable(test_${NAME} ${SOURCES} ${CMAKE_CURRENT_SOURCE_DIR}/support/startup/test_startup.cpp)
  target_link_libraries(test_${NAME} PRIVATE ${ARG_DEPS} tessel_test_support GTest::gtest GTest::gtest_main)
  target_compile_definitions(test_${NAME} PRIVATE
    TESSEL_SOURCE_DIR="${CMAKE_SOURCE_DIR}"
    TESSEL_SHARED_FBX_DIR="${CMAKE_SOURCE_DIR}/../shared/fbx"
    TESSEL_BINARY_DIR="${CMAKE_BINARY_DIR}")
  gtest_discover_tests(test_${NAME} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
    WORKING_DIRECTORY ${CMAKE_BINARY_DIR} PROPERTIES LABELS ${NAME})
endfunction()
