# The colour conversions are pinned to the last bit of their float/double arithmetic: no fused
# multiply-add, whatever the compiler's default for the target.
set_source_files_properties(${_vk_sources} PROPERTIES COMPILE_OPTIONS "-ffp-contract=off")
# Filters run on GEGL; babl gives pixel formats and colour spaces.
target_link_libraries(VessanUtilities PRIVATE PkgConfig::Gegl PkgConfig::Babl)
# The colour spaces' ICC profiles are made at build time and built in as resources.
add_executable(vk_make_color_profiles ${PROJECT_SOURCE_DIR}/resources/Color/VKMakeColorProfiles.cpp)
target_link_libraries(vk_make_color_profiles PRIVATE PkgConfig::Lcms2)
set(_vk_profiles_dir ${PROJECT_BINARY_DIR}/resources/Color)
add_custom_command(
    OUTPUT ${_vk_profiles_dir}/rec709.icc ${_vk_profiles_dir}/ProPhoto.icc
    COMMAND ${CMAKE_COMMAND} -E make_directory ${_vk_profiles_dir}
    COMMAND vk_make_color_profiles ${_vk_profiles_dir}
    DEPENDS vk_make_color_profiles
    COMMENT "Making the ICC profiles")
qt_add_resources(VessanUtilities "vk_color_profiles"
    PREFIX "/VessanUtilities/Color"
    BASE ${_vk_profiles_dir}
    FILES ${_vk_profiles_dir}/rec709.icc ${_vk_profiles_dir}/ProPhoto.icc)
install(FILES ${_vk_profiles_dir}/rec709.icc ${_vk_profiles_dir}/ProPhoto.icc
    DESTINATION ${CMAKE_INSTALL_DATADIR}/VessanUtilities/Color)
