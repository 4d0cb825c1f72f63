# Helpers shared by the libraries: sources are picked up by glob so that adding a
# file needs no edit here; tests live in tests/ folders beside the code.

# zem_library(NAME DIR [DEPS ...]): a static library of every .cpp under DIR that
# is not in a tests/ folder.
function(zem_library name dir)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  list(FILTER srcs EXCLUDE REGEX "/tests/")
  add_library(${name} STATIC ${srcs})
  target_include_directories(${name} PUBLIC ${ZEM_LIBS_DIR})
  target_link_libraries(${name} PUBLIC ${ARGN})
endfunction()

# zem_tests(NAME DIR [DEPS ...]): one GoogleTest binary of every *_test.cpp in a
# tests/ folder under DIR.
function(zem_tests name dir)
  if(NOT ZEM_BUILD_TESTS)
    return()
  endif()
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*/tests/*_test.cpp ${dir}/tests/*_test.cpp)
  if(NOT srcs)
    return()
  endif()
  add_executable(${name} ${srcs})
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gtest GTest::gtest_main GTest::gmock Threads::Threads)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
