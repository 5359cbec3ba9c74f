# macOS on Apple silicon (arm64), macOS 11 and later, with Zig.
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(PNGKRV_ZIG_TARGET aarch64-macos.11.0)
include(${CMAKE_CURRENT_LIST_DIR}/zig-macos.cmake)
