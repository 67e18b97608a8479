# quiv_add_module(NAME DIRS dir... DEPS target...)
# One static library per layer, built from every .cpp/.c in its folders, so that a new class
# needs no CMake edit. The shared library libquiv is assembled from these.
function(quiv_add_module name)
  cmake_parse_arguments(M "" "" "DIRS;DEPS" ${ARGN})
  set(sources)
  foreach(dir IN LISTS M_DIRS)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS
         ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.c)
    list(APPEND sources ${found})
  endforeach()
  if(NOT sources)
    set(sources ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/src>)
  target_compile_definitions(${name} PRIVATE QUIV_BUILDING)
  target_link_libraries(${name} PUBLIC ${M_DEPS})
  set_property(GLOBAL APPEND PROPERTY QUIV_MODULES ${name})
endfunction()

# quiv_add_test(FOLDER LIBS target...)
# Every tests/FOLDER/*Test.cpp becomes one executable whose tests CTest lists one by one.
function(quiv_add_tests folder)
  cmake_parse_arguments(T "" "" "LIBS" ${ARGN})
  file(GLOB found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*Test.cpp)
  foreach(src IN LISTS found)
    get_filename_component(base ${src} NAME_WE)
    set(target test_${folder}_${base})
    add_executable(${target} ${src})
    target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${target} PRIVATE ${T_LIBS} quiv_testsupport GTest::gtest GTest::gmock GTest::gtest_main)
    target_compile_definitions(${target} PRIVATE
      QUIV_TEST_DATA_DIR="${CMAKE_CURRENT_SOURCE_DIR}"
      QUIV_BINARY_DIR="${PROJECT_BINARY_DIR}")
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60
      PROPERTIES ENVIRONMENT "ASAN_OPTIONS=detect_leaks=1;UBSAN_OPTIONS=print_stacktrace=1")
  endforeach()
endfunction()
