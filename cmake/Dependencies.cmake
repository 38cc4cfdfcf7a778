# Every third-party dependency of the library is found here, once.
find_package(Qt6 6.2 REQUIRED COMPONENTS Core Gui DBus Network Widgets)
# The reporters' windows: their .ui descriptions are loaded at run time.
find_package(Qt6 6.2 REQUIRED COMPONENTS UiTools)
find_package(PkgConfig REQUIRED)
pkg_check_modules(Oniguruma REQUIRED IMPORTED_TARGET oniguruma)
pkg_check_modules(Plist REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(Systemd REQUIRED IMPORTED_TARGET libsystemd)
# Volume labels and device properties (Files).
pkg_check_modules(Blkid REQUIRED IMPORTED_TARGET blkid)
pkg_check_modules(Udev REQUIRED IMPORTED_TARGET libudev)
# Image filters, pixel formats and colour spaces (Color); ICC profiles are made with LittleCMS.
pkg_check_modules(Gegl REQUIRED IMPORTED_TARGET gegl-0.4)
pkg_check_modules(Babl REQUIRED IMPORTED_TARGET babl)
pkg_check_modules(Lcms2 REQUIRED IMPORTED_TARGET lcms2)
# The crash reporter's archives (Diagnostics) and the report server's unpacking.
pkg_check_modules(Zip REQUIRED IMPORTED_TARGET libzip)
find_package(Threads REQUIRED)
# The report server (tools/vkreportd): serving HTTP (Debian's HttpServer package needs the
# WebSockets development files too).
find_package(Qt6 6.2 REQUIRED COMPONENTS HttpServer)
# Backtraces of the crashing thread in crash reports (Diagnostics).
pkg_check_modules(Unwind REQUIRED IMPORTED_TARGET libunwind)

if(VK_BUILD_TESTS)
    find_package(GTest REQUIRED)
endif()
if(VK_BUILD_BENCHMARKS)
    find_package(benchmark REQUIRED)
endif()
