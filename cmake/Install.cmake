# Installation: the library, its headers (same tree as Classes/ under include/VessanUtilities/),
# a CMake package config and a pkg-config file.
include(CMakePackageConfigHelpers)

# Installed programs find the library through a run path relative to themselves ($ORIGIN/../lib
# for the usual layout), so that a prefix outside the system's library path works as it is.
file(RELATIVE_PATH _vk_bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set(_vk_tool_dirs "")
if(VK_BUILD_TOOLS)
    get_property(_vk_tool_dirs DIRECTORY ${PROJECT_SOURCE_DIR}/tools PROPERTY SUBDIRECTORIES)
endif()
foreach(dir IN LISTS _vk_tool_dirs)
    get_property(_vk_targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS _vk_targets)
        get_target_property(_vk_type ${target} TYPE)
        if(_vk_type STREQUAL "EXECUTABLE")
            set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${_vk_bin_to_lib}")
        endif()
    endforeach()
endforeach()

install(TARGETS VessanUtilities EXPORT VessanUtilitiesTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

foreach(sub IN LISTS VK_ENABLED_SUBSYSTEMS)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/Classes/${sub}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VessanUtilities
        FILES_MATCHING PATTERN "*.h"
        PATTERN "*_p.h" EXCLUDE)  # private headers stay inside the library
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/Classes/VessanUtilities.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VessanUtilities)
install(FILES ${PROJECT_BINARY_DIR}/Classes/generated/Foundation/VKVersionConfig.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/VessanUtilities/Foundation)
if(EXISTS ${PROJECT_SOURCE_DIR}/resources)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/resources/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/VessanUtilities)
endif()

install(EXPORT VessanUtilitiesTargets
    NAMESPACE VessanUtilities::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VessanUtilities)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/VessanUtilitiesConfig.cmake.in
    ${PROJECT_BINARY_DIR}/VessanUtilitiesConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VessanUtilities)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/VessanUtilitiesConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/VessanUtilitiesConfig.cmake
    ${PROJECT_BINARY_DIR}/VessanUtilitiesConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/VessanUtilities)

configure_file(${PROJECT_SOURCE_DIR}/cmake/VessanUtilities.pc.in
    ${PROJECT_BINARY_DIR}/VessanUtilities.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VessanUtilities.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
