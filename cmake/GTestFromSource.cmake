# GoogleTest compiled in this tree from its sources (the libc++ build: a prebuilt library
# built against another standard library does not link). Its headers count as system
# headers, so our warnings apply to our code only. It defines the GTest:: names itself.
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
add_subdirectory(${DUSKWELL_GTEST_SOURCE_DIR} ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
