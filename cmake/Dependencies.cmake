# Every third-party dependency of the library is found here, once.
find_package(Qt6 6.2 REQUIRED COMPONENTS Core Gui DBus Network)
# The reporters' windows: widgets, and their .ui descriptions loaded at run time.
find_package(Qt6 6.2 REQUIRED COMPONENTS Widgets UiTools)
find_package(PkgConfig REQUIRED)
pkg_check_modules(Oniguruma REQUIRED IMPORTED_TARGET oniguruma)
pkg_check_modules(Plist REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET libsystemd)
# Volume labels and device properties (Files).
pkg_check_modules(Blkid REQUIRED IMPORTED_TARGET blkid)
pkg_check_modules(Udev REQUIRED IMPORTED_TARGET libudev)
# The crash reporter's archives (Diagnostics).
pkg_check_modules(Zip REQUIRED IMPORTED_TARGET libzip)
find_package(Threads REQUIRED)
# Backtraces of the crashing thread in crash reports (Diagnostics).
pkg_check_modules(Unwind REQUIRED IMPORTED_TARGET libunwind)

if(VK_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(VK_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()
