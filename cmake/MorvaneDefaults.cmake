# Compile settings shared by every Morvane target.

set(MORVANE_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
    -Wcast-align -Woverloaded-virtual -Wimplicit-fallthrough
    # Designated initialisers leave the other fields at their defaults on purpose.
    -Wno-missing-field-initializers)

if(MORVANE_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

# Warnings, and errors for them in CI, on one of our own targets.
function(morvane_target_defaults target)
  target_compile_options(${target} PRIVATE ${MORVANE_WARNINGS})
  if(MORVANE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# A library of one layer: public headers under include/, sources under src/ (private), found by glob so
# that adding a file never means editing a shared list.
function(morvane_add_library name alias)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/src/*.cpp")
  file(GLOB_RECURSE headers CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/include/*.hpp"
       "${CMAKE_CURRENT_SOURCE_DIR}/src/*.hpp")
  add_library(${name} STATIC ${sources} ${headers})
  add_library(${alias} ALIAS ${name})
  target_include_directories(${name} PUBLIC "${CMAKE_CURRENT_SOURCE_DIR}/include"
                                     PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}/src")
  morvane_target_defaults(${name})
endfunction()

# One GoogleTest binary per library, from tests/*.cpp. Each test case becomes a CTest test labelled
# `label`, except suites whose name ends in "Media" (slower, real media files), which are labelled "media".
function(morvane_add_tests name label)
  cmake_parse_arguments(ARG "" "" "LIBS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/tests/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} morvane::testing GTest::gtest GTest::gmock
                                        GTest::gtest_main)
  morvane_target_defaults(${name})
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_LIST ${name}_fast TEST_FILTER "-*Media.*"
                       PROPERTIES LABELS ${label} DISCOVERY_TIMEOUT 60)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST TEST_LIST ${name}_media TEST_FILTER "*Media.*"
                       PROPERTIES LABELS media DISCOVERY_TIMEOUT 60)
endfunction()
