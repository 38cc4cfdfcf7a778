# Report uploads go through Qt Network.
target_link_libraries(VessanUtilities PRIVATE Qt6::Network)
# The model translation table of the system profile.
qt_add_resources(VessanUtilities "vk_diagnostics_resources"
    PREFIX "/VessanUtilities"
    BASE ${CMAKE_CURRENT_SOURCE_DIR}/../resources/Diagnostics
    FILES ${CMAKE_CURRENT_SOURCE_DIR}/../resources/Diagnostics/SUModelTranslation.json)
# The crash handler walks the crashing thread's stack with libunwind.
target_link_libraries(VessanUtilities PRIVATE PkgConfig::Unwind)
