# GoogleTest for the 32-bit build (preset m32): the distribution ships a 64-bit library only, so
# the test framework is built from its sources with the build's own flags (-m32).
if(NOT TARGET gtest)
  set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest32 EXCLUDE_FROM_ALL)
endif()
if(NOT TARGET GTest::gtest)
  add_library(GTest::gtest ALIAS gtest)
  add_library(GTest::gtest_main ALIAS gtest_main)
endif()
set(GTest_FOUND TRUE)
