# Included by tests/CMakeLists.txt: every fuzz target, linked with ReplayMain.cpp instead of
# libFuzzer, becomes the test fuzz_replay.NAME over its recorded inputs (see fuzz/CMakeLists.txt).
set(RVITUNES_FUZZ_REPLAY ON)
add_subdirectory(${CMAKE_CURRENT_LIST_DIR} ${CMAKE_CURRENT_BINARY_DIR}/fuzz-replay)
