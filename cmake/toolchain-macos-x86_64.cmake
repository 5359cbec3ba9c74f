# macOS on Intel (x86-64), macOS 11 and later, with Zig.
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(PNGKRV_ZIG_TARGET x86_64-macos.11.0)
include(${CMAKE_CURRENT_LIST_DIR}/zig-macos.cmake)
