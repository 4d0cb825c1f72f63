# Helpers shared by the libraries: sources are picked up by glob so that adding a
# file needs no edit here; tests live in tests/ folders beside the code.

# zem_library(NAME DIR [DEPS ...]): a static library of every .cpp under DIR that
# is not in a tests/ folder.
function(zem_library name dir)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  list(FILTER srcs EXCLUDE REGEX "/(tests|fuzz)/")
  if(srcs)
    add_library(${name} STATIC ${srcs})
    target_include_directories(${name} PUBLIC ${ZEM_LIBS_DIR})
    target_link_libraries(${name} PUBLIC ${ARGN})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${ZEM_LIBS_DIR})
    target_link_libraries(${name} INTERFACE ${ARGN})
  endif()
endfunction()

# zem_tests(NAME DIR [DEPS ...]): one GoogleTest binary of every *_test.cpp in a
# tests/ folder under DIR.
function(zem_tests name dir)
  if(NOT ZEM_BUILD_TESTS)
    return()
  endif()
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*_test.cpp)
  list(FILTER srcs INCLUDE REGEX "/tests/")
  if(NOT srcs)
    return()
  endif()
  add_executable(${name} ${srcs})
  # Tests find shipped content from here, not from __FILE__, which a compiler cache may make relative.
  target_compile_definitions(${name} PRIVATE ZEM_SOURCE_DIR="${CMAKE_SOURCE_DIR}")
  target_link_libraries(${name} PRIVATE ${ARGN} GTest::gtest GTest::gtest_main GTest::gmock Threads::Threads)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# zem_fuzzers(DIR [DEPS ...]): every *_fuzz.cpp in a fuzz/ folder under DIR is a
# libFuzzer target (LLVMFuzzerTestOneInput). In a fuzz build (clang, ZEM_FUZZ) it
# becomes a fuzzer; in a test build it becomes a replay program that CTest runs over
# the seed corpus in fuzz/corpus/<name>/, so every crash ever found stays a test.
function(zem_fuzzers dir)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*_fuzz.cpp)
  list(FILTER srcs INCLUDE REGEX "/fuzz/")
  foreach(src ${srcs})
    get_filename_component(n ${src} NAME_WE)
    get_filename_component(fdir ${src} DIRECTORY)
    if(ZEM_FUZZ)
      add_executable(${n} ${src})
      target_compile_options(${n} PRIVATE -fsanitize=fuzzer)
      target_link_options(${n} PRIVATE -fsanitize=fuzzer)
      target_link_libraries(${n} PRIVATE ${ARGN})
    elseif(ZEM_BUILD_TESTS)
      add_executable(${n} ${src} ${CMAKE_SOURCE_DIR}/tests/fuzz_replay_main.cpp)
      target_link_libraries(${n} PRIVATE ${ARGN})
      add_test(NAME ${n}.replay COMMAND ${n} ${fdir}/corpus/${n})
    endif()
  endforeach()
endfunction()
